#include "tools/export/catalogue.h"

#include <fmt/format.h>
#include <tinyxml.h>

#include <algorithm>
#include <cstdlib>
#include <tuple>

#include "alarm/alarm_grading.h"
#include "alarm/alarm_placeholder.h"
#include "alarm/alarm_xml_file.h"
#include "alarm/snmp_alarm_iniparser.h"
#include "host/base/utf8.h"
#include "host/definitions/notification_names.h"
#include "host/definitions/template_placeholders.h"
#include "host/notification_log/tamrel_notifications.h"

namespace vrx {

namespace {

constexpr unsigned int MOST_PARAMETERS = 100;  // a placeholder's index has two digits

std::string cleaned(std::string_view text) {
    static constexpr const char* REPLACEMENT = "\xEF\xBF\xBD";
    std::string clean;
    clean.reserve(text.size());
    while (!text.empty()) {
        const std::size_t octets = utf8CharacterLength(text);
        const std::string_view character = text.substr(0, std::max<std::size_t>(octets, 1));
        const bool stays = octets > 0 && (!isControlCharacter(character) || character == "\n" || character == "\t");
        clean += stays ? character : REPLACEMENT;
        text.remove_prefix(character.size());
    }
    return clean;
}

std::string textOf(const TiXmlElement& element, const char* attribute, const char* absent) {
    const char* const text = element.Attribute(attribute);
    return text == nullptr ? absent : text;
}

// The first of its kind below the root, as the module reads it.
const TiXmlElement* listIn(const TiXmlDocument& document, const char* name) {
    const TiXmlElement* const root = document.FirstChildElement();
    return root == nullptr ? nullptr : root->FirstChildElement(name);
}

std::map<std::string, std::vector<CodedText>> readEnumerations(const std::string& file) {
    std::map<std::string, std::vector<CodedText>> enumerations;
    TiXmlDocument document;
    document.SetTabSize(0);  // nobody asks an element for its place
    loadAlarmXmlFile("open alarm config file(", file, document);
    const TiXmlElement* const list = listIn(document, "param_enum");
    if (list == nullptr) return enumerations;
    for (const TiXmlElement* type = list->FirstChildElement("enum_type"); type != nullptr;
         type = type->NextSiblingElement("enum_type")) {
        std::vector<CodedText>& members = enumerations[textOf(*type, "name", "")];
        for (const TiXmlElement* member = type->FirstChildElement("enum_member"); member != nullptr;
             member = member->NextSiblingElement("enum_member")) {
            const char* const text = member->GetText();
            members.push_back({textOf(*member, "value", ""), text == nullptr ? "" : text});
        }
    }
    return enumerations;
}

std::vector<CatalogueParameter> parametersOf(const std::string& detail, const std::string& paramDesc) {
    std::map<unsigned int, CatalogueParameter> parameters;
    for (const TemplatePlaceholder& placeholder : placeholdersOf(detail)) {
        if (!placeholder.index) continue;
        CatalogueParameter& parameter = parameters[*placeholder.index];
        for (const std::string& entry : placeholder.entries) {
            const std::size_t colon = entry.find(MAP_VALUE_SEPARATOR);
            if (colon != std::string::npos)
                parameter.shownAs.push_back({entry.substr(0, colon), entry.substr(colon + 1)});
        }
    }
    for (std::size_t at = 0; at < paramDesc.size();) {
        const std::size_t comma = std::min(paramDesc.find(',', at), paramDesc.size());
        const std::string entry = paramDesc.substr(at, comma - at);
        const std::size_t equals = entry.find('=');
        const unsigned long position = std::strtoul(entry.c_str(), nullptr, 10);
        if (equals != std::string::npos && position < MOST_PARAMETERS) {
            CatalogueParameter& parameter = parameters[static_cast<unsigned int>(position)];
            if (parameter.enumeration.empty()) parameter.enumeration = entry.substr(equals + 1);
        }
        at = comma + 1;
    }
    std::vector<CatalogueParameter> sorted;
    for (auto& [position, parameter] : parameters) {
        parameter.position = position;
        sorted.push_back(std::move(parameter));
    }
    return sorted;
}

// A value that the alarm could have been raised with, its code's description in place of the code.
std::string sampleValue(const CatalogueParameter& parameter, const Catalogue& catalogue) {
    const auto type = catalogue.enumerations.find(parameter.enumeration);
    if (type != catalogue.enumerations.end() && !type->second.empty()) return type->second.front().text;
    if (!parameter.shownAs.empty()) return parameter.shownAs.front().code;
    return fmt::format("[{}]", parameter.position);
}

// The module's own rendering: parameters, value maps, templates.
AlarmTexts sampleOf(const CatalogueAlarm& alarm, const Catalogue& catalogue) {
    std::vector<std::string> values;
    for (const CatalogueParameter& parameter : alarm.parameters) {
        values.resize(parameter.position + 1);
        values.back() = sampleValue(parameter, catalogue);
    }
    POSITION_LIST pairs;
    parserParmeterByDetail(values, pairs, alarm.templates.detail);
    std::string detail = alarm.templates.detail;
    replaceBraceWithEmptyString(detail);
    AlarmTexts sample;
    for (const auto& [text, out] :
         {std::pair<const std::string&, std::string&>(alarm.templates.location, sample.location),
          {detail, sample.detail},
          {alarm.templates.advice, sample.advice}})
        if (replaceAlarmParamInfo(text, out, pairs) != 0) out = text;
    return sample;
}

void clean(CodedText& text) {
    text.code = cleaned(text.code);
    text.text = cleaned(text.text);
}

void clean(AlarmTexts& texts) {
    for (std::string* text : {&texts.location, &texts.detail, &texts.advice}) *text = cleaned(*text);
}

void clean(CatalogueAlarm& alarm) {
    alarm.title = cleaned(alarm.title);
    alarm.cause = cleaned(alarm.cause);
    clean(alarm.templates);
    clean(alarm.sample);
    for (CatalogueParameter& parameter : alarm.parameters) {
        parameter.enumeration = cleaned(parameter.enumeration);
        for (CodedText& text : parameter.shownAs) clean(text);
    }
}

void cleanEnumerations(Catalogue& catalogue) {
    std::map<std::string, std::vector<CodedText>> enumerations;
    for (auto& [name, members] : catalogue.enumerations) {
        for (CodedText& text : members) clean(text);
        enumerations[cleaned(name)] = std::move(members);
    }
    catalogue.enumerations = std::move(enumerations);
}

}  // namespace

Catalogue readCatalogue(const std::string& definitionFile, const std::string& enumerationFile) {
    Catalogue catalogue;
    if (!enumerationFile.empty()) catalogue.enumerations = readEnumerations(enumerationFile);
    TiXmlDocument document;
    document.SetTabSize(0);
    loadAlarmXmlFile("open config file(", definitionFile, document);
    const TiXmlElement* const list = listIn(document, "eventDefinition");
    if (list == nullptr) return catalogue;
    catalogue.revision = moduleRevision(textOf(*list, "mibRevision", ""));

    std::vector<AlarmTitle> titles;
    for (const TiXmlElement* element = list->FirstChildElement("param"); element != nullptr;
         element = element->NextSiblingElement("param")) {
        static constexpr const char* ABSENT = "None";  // as the module shows it
        CatalogueAlarm alarm;
        alarm.identifier =
            static_cast<std::uint64_t>(std::strtoll(textOf(*element, "eventID", "0").c_str(), nullptr, 10));
        alarm.number = static_cast<std::uint32_t>(alarm.identifier);
        alarm.alarmOid = textOf(*element, "alarmOid", ABSENT);
        alarm.oid = std::string(tamrel_notification::OWN) + alarm.alarmOid;
        alarm.isInTable = !reportsNoFault(alarm.number);
        alarm.title = textOf(*element, "name", ABSENT);
        alarm.cause = textOf(*element, "reason", ABSENT);
        alarm.templates = {textOf(*element, "location", ABSENT), textOf(*element, "detail", ABSENT),
                           textOf(*element, "suggestion", ABSENT)};
        alarm.parameters = parametersOf(alarm.templates.detail, textOf(*element, "paramDesc", ""));
        alarm.sample = sampleOf(alarm, catalogue);
        titles.push_back({alarm.title, alarm.alarmOid});
        catalogue.alarms.push_back(std::move(alarm));
    }
    const std::vector<std::string> names = notificationNames(titles);
    for (std::size_t i = 0; i < names.size(); ++i) {
        catalogue.alarms[i].notification = names[i];
        clean(catalogue.alarms[i]);
    }
    cleanEnumerations(catalogue);
    std::sort(catalogue.alarms.begin(), catalogue.alarms.end(), [](const CatalogueAlarm& a, const CatalogueAlarm& b) {
        return std::tie(a.number, a.identifier) < std::tie(b.number, b.identifier);
    });
    return catalogue;
}

}  // namespace vrx
