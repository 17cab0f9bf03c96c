#include "host/agent/objects/mib_model.h"

#include <tinyxml.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <optional>
#include <set>
#include <system_error>

#include "host/base/whole_file.h"
#include "host/snmp/limits.h"

namespace vrx {

namespace {

struct BaseType {
    const char* name;  // as smidump spells it
    unsigned char type;
};

constexpr BaseType BASE_TYPES[] = {
    {"Integer32", ASN_INTEGER},     {"Enumeration", ASN_INTEGER},
    {"Unsigned32", ASN_GAUGE},  // one tag on the wire with Gauge32
    {"Gauge32", ASN_GAUGE},         {"Counter32", ASN_COUNTER},
    {"TimeTicks", ASN_TIMETICKS},   {"Counter64", ASN_COUNTER64},
    {"OctetString", ASN_OCTET_STR}, {"Bits", ASN_OCTET_STR},
    {"IpAddress", ASN_IPADDRESS},   {"ObjectIdentifier", ASN_OBJECT_ID},
};

// Textual conventions that MIB modules import: smidump names them and does not repeat what they are.
const std::map<std::string, MibSyntax>& importedTypes() {
    static const std::map<std::string, MibSyntax> types = {
        {"DisplayString", {ASN_OCTET_STR, "DisplayString", {{0, 255}}, {}}},
        {"SnmpAdminString", {ASN_OCTET_STR, "SnmpAdminString", {{0, 255}}, {}}},
        {"DateAndTime", {ASN_OCTET_STR, "DateAndTime", {{8, 8}, {11, 11}}, {}}},
        {"PhysAddress", {ASN_OCTET_STR, "PhysAddress", {}, {}}},
        {"MacAddress", {ASN_OCTET_STR, "MacAddress", {{6, 6}}, {}}},
        {"TruthValue", {ASN_INTEGER, "TruthValue", {}, {{1, "true"}, {2, "false"}}}},
        {"TimeInterval", {ASN_INTEGER, "TimeInterval", {{0, std::numeric_limits<int>::max()}}, {}}},
        {"TimeStamp", {ASN_TIMETICKS, "TimeStamp", {}, {}}},
        {"RowStatus",
         {ASN_INTEGER,
          "RowStatus",
          {},
          {{1, "active"},
           {2, "notInService"},
           {3, "notReady"},
           {4, "createAndGo"},
           {5, "createAndWait"},
           {6, "destroy"}}}},
    };
    return types;
}

bool knownBaseType(const std::string& name, unsigned char& type) {
    const auto* const found = std::find_if(std::begin(BASE_TYPES), std::end(BASE_TYPES),
                                           [&](const BaseType& base) { return name == base.name; });
    if (found == std::end(BASE_TYPES)) return false;
    type = found->type;
    return true;
}

std::string attribute(const TiXmlElement& element, const char* name) {
    const char* const value = element.Attribute(name);
    if (value == nullptr) {
        throw MibError(std::string("<") + element.Value() + "> without attribute \"" + name + "\"");
    }
    return value;
}

long long number(const TiXmlElement& element, const char* name) {
    const std::string text = attribute(element, name);
    char* end = nullptr;
    errno = 0;
    const long long value = std::strtoll(text.c_str(), &end, 0);
    if (text.empty() || *end != '\0' || errno != 0) {
        throw MibError(std::string("<") + element.Value() + ">: \"" + text + "\" is no number");
    }
    return value;
}

// Ranges and named numbers that stand directly in `element` replace those that the syntax has from its parent.
void refine(const TiXmlElement& element, MibSyntax& syntax) {
    std::vector<MibRange> ranges;
    for (const TiXmlElement* range = element.FirstChildElement("range"); range != nullptr;
         range = range->NextSiblingElement("range")) {
        ranges.push_back({number(*range, "min"), number(*range, "max")});
    }
    std::map<long, std::string> labels;
    for (const TiXmlElement* label = element.FirstChildElement("namednumber"); label != nullptr;
         label = label->NextSiblingElement("namednumber")) {
        labels.emplace(number(*label, "number"), attribute(*label, "name"));
    }
    if (!ranges.empty()) syntax.ranges = std::move(ranges);
    if (!labels.empty()) syntax.labels = std::move(labels);
}

class Reader {
public:
    explicit Reader(const TiXmlElement& smi) {
        if (const TiXmlElement* definitions = smi.FirstChildElement("typedefs")) {
            for (const TiXmlElement* definition = definitions->FirstChildElement("typedef"); definition != nullptr;
                 definition = definition->NextSiblingElement("typedef")) {
                m_types[attribute(*definition, "name")] = definedType(*definition);
            }
        }
    }

    std::vector<MibObject> objects(const TiXmlElement& smi) const {
        std::vector<MibObject> found;
        const TiXmlElement* const nodes = smi.FirstChildElement("nodes");
        if (nodes == nullptr) throw MibError("no <nodes>");
        for (const TiXmlElement* node = nodes->FirstChildElement(); node != nullptr;
             node = node->NextSiblingElement()) {
            if (std::strcmp(node->Value(), "table") == 0) found.push_back(table(*node));
            if (std::strcmp(node->Value(), "scalar") == 0) found.push_back(scalar(*node));
        }
        return found;
    }

private:
    MibSyntax namedType(const std::string& name) const {
        const auto own = m_types.find(name);
        if (own != m_types.end()) return own->second;
        MibSyntax syntax;
        syntax.name = name;
        if (knownBaseType(name, syntax.type)) return syntax;
        const auto imported = importedTypes().find(name);
        if (imported != importedTypes().end()) return imported->second;
        throw MibError("type \"" + name + "\" is not known");
    }

    // <typedef basetype="OctetString"> <parent name="..."/> <range .../> </typedef>
    MibSyntax definedType(const TiXmlElement& definition) const {
        MibSyntax syntax;
        if (const TiXmlElement* parent = definition.FirstChildElement("parent")) {
            syntax = namedType(attribute(*parent, "name"));
        } else {
            syntax = namedType(attribute(definition, "basetype"));
        }
        if (const char* name = definition.Attribute("name")) syntax.name = name;
        refine(definition, syntax);
        return syntax;
    }

    MibSyntax syntaxOf(const TiXmlElement& node) const {
        const TiXmlElement* const syntax = node.FirstChildElement("syntax");
        if (syntax == nullptr) throw MibError("no <syntax>");
        if (const TiXmlElement* type = syntax->FirstChildElement("type")) return namedType(attribute(*type, "name"));
        if (const TiXmlElement* definition = syntax->FirstChildElement("typedef")) return definedType(*definition);
        throw MibError("<syntax> without a type");
    }

    static MibAccess accessOf(const TiXmlElement& node) {
        const TiXmlElement* const element = node.FirstChildElement("access");
        const char* const text = element == nullptr ? nullptr : element->GetText();
        const std::string access = text == nullptr ? "" : text;
        if (access == "noaccess") return MibAccess::NotAccessible;
        if (access == "notifyonly") return MibAccess::NotifyOnly;
        if (access == "readonly") return MibAccess::ReadOnly;
        if (access == "readwrite") return MibAccess::ReadWrite;
        throw MibError("access \"" + access + "\" is not known");
    }

    MibColumn column(const TiXmlElement& node) const {
        MibColumn result;
        result.name = attribute(node, "name");
        try {
            result.number = parseOid(attribute(node, "oid")).back();
            result.syntax = syntaxOf(node);
            result.access = accessOf(node);
        } catch (const std::exception& error) {
            throw MibError(result.name + ": " + error.what());
        }
        return result;
    }

    MibObject scalar(const TiXmlElement& node) const {
        MibObject object;
        object.columns.push_back(column(node));
        object.name = object.columns.front().name;
        object.root = parseOid(attribute(node, "oid"));
        object.columns.front().number = 0;
        return object;
    }

    MibObject table(const TiXmlElement& node) const {
        MibObject object;
        object.table = true;
        object.name = attribute(node, "name");
        object.root = parseOid(attribute(node, "oid"));
        const TiXmlElement* const row = node.FirstChildElement("row");
        if (row == nullptr) throw MibError(object.name + ": no <row>");
        OidVector entry = object.root;
        entry.push_back(MibObject::ENTRY);
        if (parseOid(attribute(*row, "oid")) != entry) throw MibError(object.name + ": the entry's OID is not .1");
        const char* const create = row->Attribute("create");
        object.creatable = create != nullptr && std::strcmp(create, "true") == 0;
        for (const TiXmlElement* child = row->FirstChildElement("column"); child != nullptr;
             child = child->NextSiblingElement("column")) {
            object.columns.push_back(column(*child));
        }
        std::sort(object.columns.begin(), object.columns.end(),
                  [](const MibColumn& a, const MibColumn& b) { return a.number < b.number; });
        object.index = indexRange(*row, object);
        return object;
    }

    static MibRange indexRange(const TiXmlElement& row, const MibObject& object) {
        const TiXmlElement* const linkage = row.FirstChildElement("linkage");
        const TiXmlElement* const index = linkage == nullptr ? nullptr : linkage->FirstChildElement("index");
        if (index == nullptr || index->NextSiblingElement("index") != nullptr) {
            throw MibError(object.name + ": served are tables with one index column");
        }
        const std::string name = attribute(*index, "name");
        const auto found = std::find_if(object.columns.begin(), object.columns.end(),
                                        [&](const MibColumn& candidate) { return candidate.name == name; });
        if (found == object.columns.end() || found->syntax.type != ASN_GAUGE) {
            throw MibError(object.name + ": the index column is not an Unsigned32 column of the table");
        }
        if (found->syntax.ranges.empty()) return {0, MAX_UNSIGNED32};
        return {found->syntax.ranges.front().min, found->syntax.ranges.back().max};
    }

    std::map<std::string, MibSyntax> m_types;  // defined in the file
};

}  // namespace

bool MibSyntax::allows(long long value) const {
    if (!labels.empty()) return labels.count(static_cast<long>(value)) > 0;
    return ranges.empty() || std::any_of(ranges.begin(), ranges.end(), [value](const MibRange& range) {
               return value >= range.min && value <= range.max;
           });
}

const MibColumn* MibObject::column(oid wanted) const {
    const auto found = std::find_if(columns.begin(), columns.end(),
                                    [wanted](const MibColumn& candidate) { return candidate.number == wanted; });
    return found == columns.end() ? nullptr : &*found;
}

std::string MibObject::nameOf(const oid* wanted, std::size_t length) const {
    const std::size_t before = root.size() + (table ? 2 : 0);  // entry and column
    const MibColumn* const means =
        length < before || (table && wanted[before - 2] != ENTRY) ? nullptr : column(table ? wanted[before - 1] : 0);
    std::string text = means == nullptr ? oidText(wanted, length) : means->name;
    for (std::size_t at = before; means != nullptr && at < length; ++at) text += "." + std::to_string(wanted[at]);
    return text;
}

const MibColumn* MibObject::rowStatus() const {
    const auto found = std::find_if(columns.begin(), columns.end(),
                                    [](const MibColumn& candidate) { return candidate.syntax.name == "RowStatus"; });
    return found == columns.end() ? nullptr : &*found;
}

MibModel MibModel::load(const std::string& path) {
    constexpr std::size_t LARGEST_FILE = std::size_t{16} << 20U;
    std::optional<std::string> content;
    try {
        content = readWholeFile(path, LARGEST_FILE);
    } catch (const WholeFileError& error) {
        throw MibError(error.what());
    }
    if (!content) throw MibError(path + ": " + std::generic_category().message(ENOENT));
    // Room after the end: TinyXML steps up to three bytes over it when a UTF-8 character is cut off there.
    constexpr std::size_t TINYXML_OVERRUN = 3;
    content->append(TINYXML_OVERRUN, '\0');
    TiXmlDocument document;
    document.Parse(content->c_str());
    if (document.Error()) {
        const std::string row = document.ErrorRow() > 0 ? ":" + std::to_string(document.ErrorRow()) : "";
        throw MibError(path + row + ": " + document.ErrorDesc());
    }
    const TiXmlElement* const smi = document.FirstChildElement("smi");
    if (smi == nullptr) throw MibError(path + ": no <smi>: not the output of smidump -f xml");
    MibModel model;
    try {
        for (MibObject& object : Reader(*smi).objects(*smi)) {
            const OidVector root = object.root;
            model.m_objects.emplace(root, std::move(object));
        }
    } catch (const std::exception& error) {
        throw MibError(path + ": " + error.what());
    }
    return model;
}

const MibObject* MibModel::find(const OidVector& root) const {
    const auto found = m_objects.find(root);
    return found == m_objects.end() ? nullptr : &found->second;
}

}  // namespace vrx
