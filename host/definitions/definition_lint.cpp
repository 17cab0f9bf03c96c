#include "host/definitions/definition_lint.h"

#include <fmt/format.h>
#include <tinyxml.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <map>
#include <optional>
#include <set>

#include "alarm/alarm_grading.h"
#include "alarm/alarm_placeholder.h"
#include "alarm/alarm_xml_file.h"
#include "host/definitions/notification_names.h"
#include "host/definitions/template_placeholders.h"
#include "module/vrx_exception.h"
#include "platform/vrx_utility.h"

namespace vrx {

namespace {

// Descriptions by raw value, of each enumeration type.
using Enumerations = std::map<std::string, std::map<std::string, std::string>>;

std::vector<std::string> split(const std::string& text, char separator) {
    std::vector<std::string> pieces;
    SplitToStr(text, separator, pieces);
    return pieces;
}

bool isNumber(const std::string& text) {
    return !text.empty() && std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

bool isOid(const std::string& text) {
    const std::vector<std::string> pieces = split(text, '.');
    return !pieces.empty() && std::all_of(pieces.begin(), pieces.end(), [](const std::string& piece) {
        return isNumber(piece) && piece.size() <= 10 && std::strtoull(piece.c_str(), nullptr, 10) <= 0xFFFFFFFFULL;
    });
}

class Linter {
public:
    std::vector<LintFinding> findings;

    void enumerationFile(const std::string& path);
    void definitionFile(const std::string& path);

private:
    void add(int line, LintSeverity severity, const char* rule, const std::string& text) {
        findings.push_back({m_file, line, severity, rule, text});
    }
    void error(int line, const char* rule, const std::string& text) { add(line, LintSeverity::Error, rule, text); }
    void warning(int line, const char* rule, const std::string& text) { add(line, LintSeverity::Warning, rule, text); }

    const TiXmlElement* load(const std::string& path, TiXmlDocument& document, const char* root, const char* list);
    void unknownAttributes(const TiXmlElement& element, const std::set<std::string>& known);

    void enumType(const TiXmlElement& type);
    void enumMember(const TiXmlElement& member, const std::string& type);

    void alarm(const TiXmlElement& alarm);
    void eventId(const TiXmlElement& alarm);
    void texts(const TiXmlElement& alarm);
    void alarmOid(const TiXmlElement& alarm);
    void paramDesc(const TiXmlElement& alarm, const std::vector<TemplatePlaceholder>& detail);
    void detailTemplate(const TiXmlElement& alarm, const std::vector<TemplatePlaceholder>& detail);
    void valueMap(int line, const TemplatePlaceholder& placeholder);
    void braces(const TiXmlElement& alarm, const std::string& detail);
    void otherTemplate(const TiXmlElement& alarm, const char* attribute,
                       const std::vector<TemplatePlaceholder>& detail);
    void endOf(const TiXmlElement& alarm, const char* attribute);
    std::string enumerationOf(const TiXmlElement& alarm, unsigned int position) const;

    std::string m_file;
    bool m_haveEnumerations = false;
    Enumerations m_enumerations;
    std::set<std::string> m_usedTypes;
    std::map<std::uint64_t, int> m_alarmLines;
    std::map<std::uint32_t, int> m_numberLines;
    std::map<std::string, int> m_oidLines;
};

// The reason in the message of a failed load: what stands between its first line and the place.
std::string reasonOf(const std::string& message) {
    const std::size_t begin = message.find('\n') + 1;
    return message.substr(begin, message.rfind(". Location(") - begin);
}

std::string attribute(const TiXmlElement& element, const char* name) {
    const char* value = element.Attribute(name);
    return value == nullptr ? std::string() : std::string(value);
}

const TiXmlElement* Linter::load(const std::string& path, TiXmlDocument& document, const char* root, const char* list) {
    m_file = path;
    try {
        loadAlarmXmlFile("cannot load (", path, document);
    } catch (const CVRX_Exception& fault) {
        error(document.Error() ? document.ErrorRow() : 0, "unreadable", reasonOf(fault.what()));
        return nullptr;
    }
    const TiXmlElement* top = document.FirstChildElement();
    if (top == nullptr) {
        error(0, "no-root", "the file has no element");
        return nullptr;
    }
    if (std::strcmp(top->Value(), root) != 0) {
        error(top->Row(), "wrong-root", fmt::format("the root element is ({}), should be ({})", top->Value(), root));
        return nullptr;
    }
    const TiXmlElement* found = top->FirstChildElement(list);
    if (found == nullptr) {
        error(top->Row(), "no-list", fmt::format("the root has no element ({})", list));
        return nullptr;
    }
    for (const TiXmlElement* child = top->FirstChildElement(); child != nullptr; child = child->NextSiblingElement()) {
        if (child == found) continue;
        const bool second = std::strcmp(child->Value(), list) == 0;
        warning(child->Row(), second ? "second-list" : "unknown-element",
                second ? fmt::format("a second ({}) is not read", list)
                       : fmt::format("element ({}) is not read", child->Value()));
    }
    return found;
}

void Linter::unknownAttributes(const TiXmlElement& element, const std::set<std::string>& known) {
    for (const TiXmlAttribute* item = element.FirstAttribute(); item != nullptr; item = item->Next())
        if (known.count(item->Name()) == 0)
            warning(element.Row(), "unknown-attribute", fmt::format("attribute \"{}\" is not read", item->Name()));
}

// ---- enumeration file

void Linter::enumerationFile(const std::string& path) {
    TiXmlDocument document;
    const TiXmlElement* list = load(path, document, "alarm", "param_enum");
    m_haveEnumerations = true;
    if (list == nullptr) return;
    for (const TiXmlElement* type = list->FirstChildElement(); type != nullptr; type = type->NextSiblingElement()) {
        if (std::strcmp(type->Value(), "enum_type") == 0)
            enumType(*type);
        else
            warning(type->Row(), "unknown-element", fmt::format("element ({}) is not read", type->Value()));
    }
}

void Linter::enumType(const TiXmlElement& type) {
    unknownAttributes(type, {"name"});
    const char* name = type.Attribute("name");
    if (name == nullptr || *name == '\0') {
        error(type.Row(), "type-without-name", "the enumeration type has no name");
        return;
    }
    if (m_enumerations.count(name) != 0)
        warning(type.Row(), "repeated-type", fmt::format("enumeration type \"{}\" stands here again", name));
    m_enumerations[name];
    if (type.FirstChildElement("enum_member") == nullptr)
        warning(type.Row(), "empty-type", fmt::format("enumeration type \"{}\" has no members", name));
    for (const TiXmlElement* member = type.FirstChildElement(); member != nullptr;
         member = member->NextSiblingElement()) {
        if (std::strcmp(member->Value(), "enum_member") == 0)
            enumMember(*member, name);
        else
            warning(member->Row(), "unknown-element", fmt::format("element ({}) is not read", member->Value()));
    }
}

void Linter::enumMember(const TiXmlElement& member, const std::string& type) {
    unknownAttributes(member, {"value"});
    const char* value = member.Attribute("value");
    const char* text = member.GetText();
    if (value == nullptr) error(member.Row(), "member-without-value", "the enumeration member has no value");
    if (text == nullptr) error(member.Row(), "member-without-text", "the enumeration member has no text");
    if (value == nullptr || text == nullptr) return;
    if (!m_enumerations[type].emplace(value, text).second)
        error(member.Row(), "repeated-member",
              fmt::format("value \"{}\" of \"{}\" stands here again; the first description is used", value, type));
}

// ---- definition file

void Linter::definitionFile(const std::string& path) {
    TiXmlDocument document;
    const TiXmlElement* list = load(path, document, "root", "eventDefinition");
    if (list == nullptr) return;
    for (const TiXmlElement* child = list->FirstChildElement(); child != nullptr; child = child->NextSiblingElement()) {
        if (std::strcmp(child->Value(), "param") == 0)
            alarm(*child);
        else
            warning(child->Row(), "unknown-element", fmt::format("element ({}) is not read", child->Value()));
    }
    if (m_alarmLines.empty()) error(list->Row(), "no-alarms", "the file defines no alarm");
}

void Linter::alarm(const TiXmlElement& alarm) {
    unknownAttributes(alarm,
                      {"eventID", "name", "reason", "suggestion", "detail", "location", "alarmOid", "paramDesc"});
    eventId(alarm);
    texts(alarm);
    alarmOid(alarm);
    const std::string detail = attribute(alarm, "detail");
    const std::vector<TemplatePlaceholder> placeholders = placeholdersOf(detail);
    detailTemplate(alarm, placeholders);
    braces(alarm, detail);
    otherTemplate(alarm, "location", placeholders);
    otherTemplate(alarm, "suggestion", placeholders);
    for (const char* name : {"detail", "location", "suggestion"}) endOf(alarm, name);
    paramDesc(alarm, placeholders);
}

void Linter::eventId(const TiXmlElement& alarm) {
    const char* text = alarm.Attribute("eventID");
    if (text == nullptr) {
        error(alarm.Row(), "no-event-id", "the alarm has no eventID; it becomes alarm 0, which is never found");
        return;
    }
    char* end = nullptr;
    errno = 0;
    const auto id = static_cast<std::uint64_t>(std::strtoll(text, &end, 10));
    if (end == text || *end != '\0') {
        error(alarm.Row(), "bad-event-id",
              fmt::format("eventID \"{}\" is no decimal number; it is read as {}", text, id));
        return;
    }
    if (errno == ERANGE) {
        error(alarm.Row(), "large-event-id", fmt::format("eventID \"{}\" does not fit; it is read as {}", text, id));
        return;
    }
    if (id == 0) error(alarm.Row(), "zero-event-id", "alarm 0 is never found");
    const auto [same, isNew] = m_alarmLines.emplace(id, alarm.Row());
    if (!isNew) {
        error(alarm.Row(), "repeated-event-id",
              fmt::format("alarm {} is defined on line {} already; this definition is ignored", id, same->second));
        return;
    }
    const auto number = static_cast<std::uint32_t>(id);
    if (reportsNoFault(number))
        warning(alarm.Row(), "hidden-alarm", fmt::format("alarm number {} never shows in the alarm table", number));
    const auto [sameNumber, newNumber] = m_numberLines.emplace(number, alarm.Row());
    if (!newNumber)
        warning(alarm.Row(), "repeated-number",
                fmt::format("the alarm number {} (low 32 bits) is that of line {} too", number, sameNumber->second));
}

void Linter::texts(const TiXmlElement& alarm) {
    for (const char* name : {"name", "reason", "suggestion", "detail", "location"}) {
        const char* text = alarm.Attribute(name);
        if (text == nullptr)
            warning(alarm.Row(), "missing-text",
                    fmt::format("attribute \"{}\" is missing; it shows as \"None\"", name));
        else if (*text == '\0')
            warning(alarm.Row(), "empty-text", fmt::format("attribute \"{}\" is empty", name));
    }
}

void Linter::alarmOid(const TiXmlElement& alarm) {
    const char* oid = alarm.Attribute("alarmOid");
    if (oid == nullptr) {
        error(alarm.Row(), "no-oid", "the alarm has no alarmOid; its own trap would have no valid OID");
        return;
    }
    if (!isOid(oid)) {
        error(alarm.Row(), "bad-oid", fmt::format("alarmOid \"{}\" is no OID", oid));
        return;
    }
    if (!notificationNumber(oid))
        warning(alarm.Row(), "oid-form",
                fmt::format("alarmOid \"{}\" is not of the form 0.N; a MIB cannot name it", oid));
    const auto [same, isNew] = m_oidLines.emplace(oid, alarm.Row());
    if (!isNew)
        warning(alarm.Row(), "repeated-oid", fmt::format("alarmOid \"{}\" is that of line {} too", oid, same->second));
}

std::string Linter::enumerationOf(const TiXmlElement& alarm, unsigned int position) const {
    for (const std::string& entry : split(attribute(alarm, "paramDesc"), ',')) {
        const std::size_t equals = entry.find('=');
        if (equals != std::string::npos && isNumber(entry.substr(0, equals)) &&
            std::strtoul(entry.c_str(), nullptr, 10) == position)
            return entry.substr(equals + 1);
    }
    return {};
}

void Linter::paramDesc(const TiXmlElement& alarm, const std::vector<TemplatePlaceholder>& detail) {
    std::set<std::string> positions;
    for (const std::string& entry : split(attribute(alarm, "paramDesc"), ',')) {
        const std::size_t equals = entry.find('=');
        if (equals == std::string::npos) {
            error(alarm.Row(), "bad-param-desc",
                  fmt::format("paramDesc entry \"{}\" has no \"=\"; it is ignored", entry));
            continue;
        }
        const std::string position = entry.substr(0, equals);
        const std::string type = entry.substr(equals + 1);
        if (!isNumber(position)) {
            error(alarm.Row(), "bad-param-position", fmt::format("paramDesc position \"{}\" is no number", position));
            continue;
        }
        if (!positions.insert(position).second)
            warning(alarm.Row(), "repeated-param-position",
                    fmt::format("paramDesc names position {} more than once", position));
        if (m_haveEnumerations && m_enumerations.count(type) == 0)
            error(alarm.Row(), "unknown-type", fmt::format("enumeration type \"{}\" is not defined", type));
        m_usedTypes.insert(type);
        const unsigned long number = std::strtoul(position.c_str(), nullptr, 10);
        const bool shown = std::any_of(detail.begin(), detail.end(), [number](const TemplatePlaceholder& item) {
            return item.index && *item.index == number;
        });
        if (!shown)
            warning(alarm.Row(), "unused-param-position",
                    fmt::format("paramDesc names position {}, which the detail does not show", position));
    }
}

void Linter::detailTemplate(const TiXmlElement& alarm, const std::vector<TemplatePlaceholder>& detail) {
    for (const TemplatePlaceholder& placeholder : detail) {
        if (placeholder.cutOff) {
            error(alarm.Row(), "cut-off-placeholder", "the detail ends in \"##\"; the alarm cannot be rendered");
            continue;
        }
        if (!placeholder.index) {
            error(alarm.Row(), "bad-placeholder", "a \"##\" of the detail is not followed by two digits");
            continue;
        }
        if (*placeholder.index >= detail.size())
            error(alarm.Row(), "placeholder-out-of-range",
                  fmt::format("placeholder ##{:02} of the detail shows as \"None\": the detail has {} placeholders",
                              *placeholder.index, detail.size()));
        if (!placeholder.hasMap) continue;
        if (placeholder.unclosed) {
            error(alarm.Row(), "unclosed-brace", "a value map of the detail has no \"}\"");
            continue;
        }
        valueMap(alarm.Row(), placeholder);
        const std::string type = enumerationOf(alarm, *placeholder.index);
        const auto known = m_enumerations.find(type);
        if (type.empty() || known == m_enumerations.end()) continue;
        for (const std::string& entry : placeholder.entries) {
            const std::string value = entry.substr(0, entry.find(MAP_VALUE_SEPARATOR));
            const bool described = std::any_of(known->second.begin(), known->second.end(),
                                               [&value](const auto& member) { return member.second == value; });
            if (!described)
                warning(alarm.Row(), "map-value-unknown",
                        fmt::format("value \"{}\" of the map of ##{:02} is no description of \"{}\"", value,
                                    *placeholder.index, type));
        }
    }
}

void Linter::valueMap(int line, const TemplatePlaceholder& placeholder) {
    if (placeholder.entries.empty()) warning(line, "empty-map", "a value map of the detail has no entries");
    std::set<std::string> values;
    for (const std::string& entry : placeholder.entries) {
        const std::vector<std::string> parts = split(entry, MAP_VALUE_SEPARATOR);
        if (parts.size() != 2) {
            error(line, "bad-map-entry", fmt::format("map entry \"{}\" is not VALUE:TEXT; it is ignored", entry));
            continue;
        }
        if (!values.insert(parts[0]).second)
            error(line, "repeated-map-value",
                  fmt::format("value \"{}\" stands twice in a map; the first is used", parts[0]));
    }
}

// Every brace group is removed from the detail, also one that is too far after its placeholder to be its map.
void Linter::braces(const TiXmlElement& alarm, const std::string& detail) {
    for (std::size_t open = detail.find('{'); open != std::string::npos; open = detail.find('{', open + 1)) {
        const std::size_t mark = detail.rfind(PLACEHOLDER_MARK, open);
        if (mark == std::string::npos || open > mark + PLACEHOLDER_MAP_DISTANCE)
            warning(alarm.Row(), "stray-brace", "a \"{\" of the detail belongs to no placeholder; its text is removed");
        if (detail.find('}', open) == std::string::npos &&
            (mark == std::string::npos || open > mark + PLACEHOLDER_MAP_DISTANCE))
            error(alarm.Row(), "unclosed-brace", "a \"{\" of the detail has no \"}\"");
    }
}

void Linter::otherTemplate(const TiXmlElement& alarm, const char* name,
                           const std::vector<TemplatePlaceholder>& detail) {
    const std::string text = attribute(alarm, name);
    if (text.find('{') != std::string::npos)
        warning(alarm.Row(), "map-outside-detail", fmt::format("braces of the {} are shown as they are", name));
    for (const TemplatePlaceholder& placeholder : placeholdersOf(text)) {
        if (placeholder.cutOff) {
            error(alarm.Row(), "cut-off-placeholder",
                  fmt::format("the {} ends in \"##\"; the alarm cannot be rendered", name));
        } else if (!placeholder.index) {
            error(alarm.Row(), "bad-placeholder",
                  fmt::format("a \"##\" of the {} is not followed by two digits", name));
        } else if (detail.empty()) {
            error(alarm.Row(), "placeholder-not-replaced",
                  fmt::format("placeholder ##{:02} of the {} stays as it is: the detail has none", *placeholder.index,
                              name));
        } else if (*placeholder.index >= detail.size()) {
            error(alarm.Row(), "placeholder-out-of-range",
                  fmt::format("placeholder ##{:02} of the {} shows as \"None\": the detail has {} placeholders",
                              *placeholder.index, name, detail.size()));
        } else if (std::none_of(detail.begin(), detail.end(),
                                [&](const TemplatePlaceholder& item) { return item.index == placeholder.index; })) {
            error(alarm.Row(), "placeholder-not-in-detail",
                  fmt::format("placeholder ##{:02} of the {} shows as \"--\": the detail does not have it",
                              *placeholder.index, name));
        }
    }
}

// A value that is put in is searched for marks again. When it ends in "##", and the text ends with it, that is a mark
// without an index, and the alarm is not rendered. The map of a last placeholder is not shown, so it is no end of the
// text.
void Linter::endOf(const TiXmlElement& alarm, const char* name) {
    const std::string text = attribute(alarm, name);
    const std::size_t mark = text.rfind(PLACEHOLDER_MARK);
    if (mark == std::string::npos) return;
    std::size_t end = mark + PLACEHOLDER_MARK.size() + PLACEHOLDER_INDEX_LENGTH;
    if (end > text.size() || !isNumber(text.substr(mark + PLACEHOLDER_MARK.size(), PLACEHOLDER_INDEX_LENGTH))) return;
    if (std::strcmp(name, "detail") == 0 && text.compare(end, 1, "{") == 0) end = text.find('}', end) + 1;
    if (end == text.size())
        warning(alarm.Row(), "placeholder-at-end",
                fmt::format("the {} ends in a placeholder: a value that ends in \"##\" takes the alarm away from traps "
                            "and table; let a full stop or a word follow",
                            name));
}

}  // namespace

std::vector<LintFinding> lintDefinitions(const std::string& definitionFile, const std::string& enumerationFile) {
    Linter linter;
    if (!enumerationFile.empty()) linter.enumerationFile(enumerationFile);
    if (!definitionFile.empty()) linter.definitionFile(definitionFile);
    sortFindings(linter.findings);
    return std::move(linter.findings);
}

void sortFindings(std::vector<LintFinding>& findings) {
    std::stable_sort(findings.begin(), findings.end(), [](const LintFinding& a, const LintFinding& b) {
        return a.file != b.file ? a.file < b.file : a.line < b.line;
    });
}

void printFindings(std::ostream& out, const std::vector<LintFinding>& findings) {
    for (const LintFinding& finding : findings)
        out << fmt::format("{}:{}: {}: {} [{}]\n", finding.file, finding.line,
                           finding.severity == LintSeverity::Error ? "error" : "warning", finding.text, finding.rule);
}

}  // namespace vrx
