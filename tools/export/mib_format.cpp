// VRX-TAMREL-ALARM-MIB, with the comments that converters of MIB modules read: --#TYPE and so on.
#include <fmt/format.h>

#include <string>
#include <string_view>
#include <vector>

#include "tools/export/catalogue.h"
#include "tools/export/formats.h"
#include "tools/export/plain_text.h"

namespace vrx {

namespace {

// In the order of the bindings.
constexpr const char* VARIABLES[] = {"NodeCode",     "LocationInfo", "RestoreAdvice",    "FaultTitle",
                                     "FaultType",    "FaultLevel",   "AlarmId",          "FaultTime",
                                     "SerialNo",     "AdditionInfo", "FaultCategory",    "LocationAlarmId",
                                     "ProductModel", "ProductSn",    "ProductSystemName"};

constexpr std::size_t LINE_WIDTH = 60;
constexpr std::size_t LONGEST_TEXT =
    900;  // three of them and their indentation: Net-SNMP reads 4096 octets of a string
constexpr std::size_t LONGEST_TITLE = 120;

// Converters write the lines of a description into files in which a line that begins with one of these is a command.
constexpr std::string_view LINE_COMMANDS[] = {"EVENT", "FORMAT", "EXEC",  "PREEXEC", "NODES",
                                              "MATCH", "REGEX",  "SDESC", "EDESC"};

constexpr const char* MODULE_HEAD = R"(VRX-TAMREL-ALARM-MIB DEFINITIONS ::= BEGIN

-- Written by "vrxctl export mib" from the alarm definition file.
-- Do not edit.

IMPORTS
    NOTIFICATION-TYPE,
    MODULE-IDENTITY
        FROM SNMPv2-SMI
    MODULE-COMPLIANCE,
    NOTIFICATION-GROUP
        FROM SNMPv2-CONF
    vrxTamrel,
    vrxNamedAlarms,
{variables}
        FROM VRX-TAMREL-MIB;

vrxTamrelAlarmMIB MODULE-IDENTITY
    LAST-UPDATED "{revision}"
    ORGANIZATION "VRX Storage"
    CONTACT-INFO
            "Service desk of the maker of this storage system."
    DESCRIPTION
            "One notification for each alarm that a VRX storage system can
             raise. Each is sent when the alarm is raised and again when it
             has ended; vrxNamedAlarmFaultCategory tells which, and
             vrxNamedAlarmFaultLevel how severe it is. In descriptions [N]
             stands for parameter N of the alarm."
    REVISION    "{revision}"
    DESCRIPTION
            "The alarms of this date."
    ::= {{ vrxTamrel 2 }}

vrxNamedAlarmPrefix OBJECT IDENTIFIER ::= {{ vrxNamedAlarms 0 }}

vrxTamrelAlarmConformance OBJECT IDENTIFIER ::= {{ vrxTamrelAlarmMIB 2 }}

vrxTamrelAlarmGroups OBJECT IDENTIFIER ::= {{ vrxTamrelAlarmConformance 1 }}

vrxTamrelAlarmCompliances OBJECT IDENTIFIER ::= {{ vrxTamrelAlarmConformance 2 }}
)";

// Arguments count bindings from 0. The level is the event's: one severity for all is neither Normal nor the worst.
constexpr const char* ALARM_NOTIFICATION = R"(
-- eventID {identifier}
{name} NOTIFICATION-TYPE
    OBJECTS     {{
{variables}
                }}
    STATUS      current
    DESCRIPTION
            "{description}"
    --#TYPE "{title}"
    --#SUMMARY "%s %s Advice: %s Level %s, category %s, serial %s, node %s"
    --#ARGUMENTS {{1, 9, 2, 5, 10, 8, 0}}
    --#SEVERITY MAJOR
    ::= {{ vrxNamedAlarmPrefix {number} }}
)";

constexpr const char* MODULE_TAIL = R"(
vrxNamedAlarmNotificationGroup NOTIFICATION-GROUP
    NOTIFICATIONS {{
{notifications}
                }}
    STATUS      current
    DESCRIPTION
            "The alarms of the system."
    ::= {{ vrxTamrelAlarmGroups 1 }}

vrxTamrelAlarmCompliance MODULE-COMPLIANCE
    STATUS      current
    DESCRIPTION
            "What every VRX storage system sends."
    MODULE      -- this module
    MANDATORY-GROUPS {{
                    vrxNamedAlarmNotificationGroup
                }}
    ::= {{ vrxTamrelAlarmCompliances 1 }}

END
)";

std::string onePerLine(const std::vector<std::string>& names, std::size_t indent) {
    std::string lines;
    for (const std::string& name : names) lines += (lines.empty() ? "" : ",\n") + std::string(indent, ' ') + name;
    return lines;
}

// A text between quotes that ends neither them nor, for readers by lines, the clause.
std::string quotable(const std::string& text) {
    std::string plain = asciiText(oneLine(text));
    for (const auto& [from, to] : {std::pair("\"", "'"), {"::=", ":="}, {"--", "-"}})
        plain = replacedAll(std::move(plain), from, to);
    return shortened(plain, LONGEST_TEXT);
}

// A text in a comment that a converter takes for a format: "%s" and "$1" have a meaning there.
std::string formatTitle(const std::string& title) {
    std::string plain = shortened(quotable(title), LONGEST_TITLE);
    for (char& c : plain)
        if (c == '%' || c == '$' || c == '{' || c == '}' || c == '\\' || c == '`') c = '_';
    return plain;
}

std::string wrapped(const std::string& text) {
    const std::string newLine = "\n" + std::string(13, ' ');
    std::string lines;
    std::size_t width = 0;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t end = std::min(text.find(' ', at), text.size());
        std::string word = text.substr(at, end - at);
        at = end + 1;
        if (!lines.empty() && width + 1 + word.size() <= LINE_WIDTH) {
            lines += " " + word;
            width += 1 + word.size();
            continue;
        }
        for (const std::string_view command : LINE_COMMANDS)
            if (word.compare(0, command.size(), command) == 0) word.insert(0, "'");
        lines += (lines.empty() ? "" : newLine) + word;
        width = word.size();
    }
    return lines;
}

std::string descriptionOf(const CatalogueAlarm& alarm) {
    const std::string newLine = "\n" + std::string(13, ' ');
    std::string text;
    for (const auto& [label, content] :
         {std::pair("Cause: ", &alarm.cause), {"Detail: ", &alarm.sample.detail}, {"Advice: ", &alarm.sample.advice}})
        text += (text.empty() ? "" : newLine) + wrapped(label + quotable(*content));
    return text;
}

}  // namespace

std::vector<ExportFile> mibFiles(const Catalogue& catalogue) {
    std::vector<std::string> variables;
    for (const char* const variable : VARIABLES) variables.push_back(std::string("vrxNamedAlarm") + variable);
    const std::string objects = onePerLine(variables, 20);
    std::string module = fmt::format(MODULE_HEAD, fmt::arg("variables", onePerLine(variables, 4)),
                                     fmt::arg("revision", catalogue.revision));
    std::vector<std::string> notifications;
    for (const CatalogueAlarm& alarm : catalogue.alarms) {
        module +=
            fmt::format(ALARM_NOTIFICATION, fmt::arg("identifier", alarm.identifier),
                        fmt::arg("name", alarm.notification), fmt::arg("variables", objects),
                        fmt::arg("description", descriptionOf(alarm)), fmt::arg("title", formatTitle(alarm.title)),
                        fmt::arg("number", alarm.alarmOid.substr(alarm.alarmOid.find('.') + 1)));
        notifications.push_back(alarm.notification);
    }
    module += fmt::format(MODULE_TAIL, fmt::arg("notifications", onePerLine(notifications, 20)));
    return {{"VRX-TAMREL-ALARM-MIB", module}};
}

}  // namespace vrx
