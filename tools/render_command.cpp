#include "tools/render_command.h"

#include <fmt/format.h>
#include <sysexits.h>

#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

#include "alarm/snmp_alarm_iniparser.h"
#include "host/command_line/option_parser.h"
#include "host/notification_log/tamrel_notifications.h"
#include "tools/alarm_commands.h"
#include "tools/terminal_text.h"

namespace vrx {

namespace {

void printValues(std::ostream& out, const char* title, const std::vector<std::string>& values) {
    out << title << "\n";
    if (values.empty()) out << "  (none)\n";
    for (std::size_t i = 0; i < values.size(); ++i) out << fmt::format("  {:02}  \"{}\"\n", i, terminalText(values[i]));
}

void printPairs(std::ostream& out, const char* title, const POSITION_LIST& pairs) {
    out << title << "\n";
    if (pairs.empty()) out << "  (none)\n";
    for (const auto& [index, value] : pairs) out << fmt::format("  ##{:02}  \"{}\"\n", index, terminalText(value));
}

void explainSteps(std::ostream& out, CAlarmConfigParser& parser, const CAlarmConfigItem& item,
                  const std::string& parameters) {
    out << fmt::format("parameter text: \"{}\"\n", terminalText(parameters));
    std::vector<std::string> values;
    parser.parseAlarmParamList(parameters, values);
    for (std::string& value : values)
        if (value.empty()) value = "--";
    printValues(out, "parameter list:", values);

    printPairs(out, "enumeration types by position (paramDesc):", item.paramEnumDescs);
    if (!item.paramEnumDescs.empty()) {
        parser.replaceAlarmParamEnumValueDesc(item.alarmId, values, item.paramEnumDescs);
        printValues(out, "parameter list with enumeration descriptions:", values);
    }

    POSITION_LIST pairs;
    parserParmeterByDetail(values, pairs, item.detail);
    printPairs(out, "placeholders of the detail and their values:", pairs);

    std::string detail = item.detail;
    replaceBraceWithEmptyString(detail);
    out << "templates:\n";
    out << fmt::format("  location    \"{}\"\n", terminalText(item.location));
    out << fmt::format("  detail      \"{}\"\n", terminalText(detail));
    out << fmt::format("  suggestion  \"{}\"\n", terminalText(item.suggestion));
    out << "texts:\n";
}

}  // namespace

int renderAlarm(std::ostream& out, std::uint64_t alarmId, const std::string& parameters, bool explain) {
    CAlarmConfigParser& parser = *CAlarmConfigParser::instance();
    const auto item = parser.alarmItems().find(alarmId);
    if (explain && item != parser.alarmItems().end()) explainSteps(out, parser, *item->second, parameters);

    std::string location;
    std::string detail;
    std::string name;
    std::string suggestion;
    unsigned int number = 0;
    const int result = parser.getAlarmInfo(alarmId, parameters, location, detail, number, name, suggestion);
    if (result != 0) {
        out << (item == parser.alarmItems().end()
                    ? fmt::format("alarm {} is not defined\n", alarmId)
                    : fmt::format("alarm {} cannot be rendered: result {}\n", alarmId, result));
        return result;
    }
    out << fmt::format("  name        \"{}\"\n", terminalText(name));
    out << fmt::format("  location    \"{}\"\n", terminalText(location));
    out << fmt::format("  detail      \"{}\"\n", terminalText(detail));
    out << fmt::format("  suggestion  \"{}\"\n", terminalText(suggestion));
    out << fmt::format("  number      {}\n", number);
    out << fmt::format("  trap OID    {}{}\n", tamrel_notification::OWN, terminalText(item->second->alarmOid));
    return 0;
}

void RenderCommand::define(OptionParser& command) {
    command.add("ALARM-ID", alarmId, "identifier in the definition file").required();
    command.add("PARAMETER", parameters, "parameter values, in order");
    command.addFlag("--explain", explain, "show each step");
    command.addFlag("--raw", raw, "PARAMETER is the parameter text of a notification, commas escaped");
}

int RenderCommand::run() {
    if (raw && parameters.size() > 1) throw std::runtime_error("--raw takes one PARAMETER");
    const std::string text = !raw ? joinParameters(parameters) : parameters.empty() ? "" : parameters[0];
    return renderAlarm(std::cout, alarmId, text, explain) == 0 ? EX_OK : EX_DATAERR;
}

}  // namespace vrx
