#include "tools/alarm_commands.h"

#include <fmt/format.h>
#include <sysexits.h>

#include <algorithm>
#include <iostream>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "alarm/snmp_alarm_iniparser.h"
#include "host/command_line/option_parser.h"
#include "host/notification_log/fault_level.h"
#include "host/transport/backend_protocol.h"
#include "host/transport/batch_reader.h"
#include "platform/snmp_util.h"
#include "tools/backend_call.h"
#include "tools/terminal_text.h"

namespace vrx {

namespace {

constexpr std::uint32_t RAISE_BATCH = 500;  // alarms of one request, which the backend stores as a whole
constexpr std::uint32_t LIST_BATCH = 500;
constexpr std::size_t MOST_LIST_BYTES = 256 * 1024 * 1024;  // of texts: a list without end must not fill the memory

std::unique_ptr<CTLVRecordV3> requestRecord(unsigned long long code) {
    return std::make_unique<CTLVRecordV3>(code, CTLVRecordV3::DEFAULT_BUCKETS);
}

std::string timeText(std::uint64_t seconds) {
    Snmp_pp::OctetStr text;
    CSnmpUtil::convertTime2DateTimeStr(text, static_cast<long>(seconds));
    return std::string(reinterpret_cast<const char*>(text.data()), text.len());
}

ListedAlarm listedAlarm(const CTLVRecordV3& record) {
    ListedAlarm alarm;
    alarm.serial = uint32Of(record, alarm_tag::SERIAL);
    alarm.alarmId = uint64Of(record, alarm_tag::ID);
    alarm.level = uint32Of(record, alarm_tag::LEVEL);
    alarm.raisedAt = uint64Of(record, alarm_tag::RAISED);
    alarm.parameters = textOf(record, alarm_tag::PARAMETERS);
    unsigned int number = 0;
    CAlarmConfigParser::instance()->getAlarmInfo(alarm.alarmId, alarm.parameters, alarm.location, alarm.detail, number,
                                                 alarm.name, alarm.advice);
    return alarm;
}

}  // namespace

std::string joinParameters(const std::vector<std::string>& parameters) {
    std::string joined;
    for (const std::string& parameter : parameters) {
        if (&parameter != parameters.data()) joined += ",";
        joined += relpacestr(relpacestr(parameter, CAlarmConfigParser::AMPERSAND, CAlarmConfigParser::ECS_AMPERSAND),
                             CAlarmConfigParser::COMMA, CAlarmConfigParser::ESC_COMMA);
    }
    return joined;
}

std::vector<std::uint32_t> raiseAlarms(const RaiseRequest& request) {
    const std::string parameters = joinParameters(request.parameters);
    const unsigned long long code = BackendCommands::fromDevice().raiseAlarm;
    std::vector<std::uint32_t> serials;
    for (std::uint32_t left = request.count; left > 0;) {
        const std::uint32_t batch = std::min(left, RAISE_BATCH);
        CR8KPackageV3 package;
        for (std::uint32_t i = 0; i < batch; ++i) {
            auto record = requestRecord(code);
            appendUint64(*record, alarm_tag::ID, request.alarmId);
            appendUint32(*record, alarm_tag::LEVEL, request.level);
            appendText(*record, alarm_tag::PARAMETERS, parameters);
            package.append(std::move(record));
        }
        CR8KPackageV3 answer;
        callBackend(package, answer);
        for (const CTLVRecordV3* record : answer.records()) serials.push_back(uint32Of(*record, alarm_tag::SERIAL));
        left -= batch;
    }
    return serials;
}

void clearAlarm(std::uint32_t serial) {
    CR8KPackageV3 package;
    auto record = requestRecord(BackendCommands::fromDevice().clearAlarm);
    appendUint32(*record, alarm_tag::SERIAL, serial);
    appendText(*record, alarm_tag::CLEARED_BY, "vrxctl");
    package.append(std::move(record));
    CR8KPackageV3 answer;
    callBackend(package, answer);
}

std::vector<ListedAlarm> listAlarms() {
    const unsigned long long code = BackendCommands::fromDevice().getCurrentAlarm;
    std::vector<ListedAlarm> alarms;
    std::size_t bytes = 0;
    for (std::uint32_t start = 0;;) {
        CR8KPackageV3 package;
        auto record = requestRecord(code);
        appendUint32(*record, alarm_tag::SERIAL, start);
        appendUint32(*record, alarm_tag::COUNT, LIST_BATCH);
        package.append(std::move(record));
        CR8KPackageV3 answer;
        callBackend(package, answer);
        if (answer.records().empty()) return alarms;
        for (const CTLVRecordV3* row : answer.records()) {
            const ListedAlarm& alarm = alarms.emplace_back(listedAlarm(*row));
            bytes += alarm.parameters.size() + alarm.name.size() + alarm.location.size() + alarm.detail.size() +
                     alarm.advice.size();
        }
        if (alarms.size() > LONGEST_LIST || bytes > MOST_LIST_BYTES) {
            throw std::runtime_error("the backend's list of alarms does not end: " + std::to_string(alarms.size()) +
                                     " were read");
        }
        if (alarms.back().serial <= start)
            throw std::runtime_error("the backend's list of alarms does not go on after serial number " +
                                     std::to_string(start));
        start = alarms.back().serial;
    }
}

void printAlarms(std::ostream& out, const std::vector<ListedAlarm>& alarms) {
    if (alarms.empty()) {
        out << "no active alarms\n";
        return;
    }
    constexpr const char* ROW = "{:>10}  {:<30}  {:<8}  {:<20}  {:<30}  {}\n";
    out << fmt::format(ROW, "SERIAL", "RAISED", "LEVEL", "ALARM ID", "NAME", "LOCATION");
    for (const ListedAlarm& alarm : alarms) {
        out << fmt::format(ROW, alarm.serial, timeText(alarm.raisedAt), textOf(faultLevelOf(alarm.level)),
                           alarm.alarmId, alarm.name.empty() ? "(not defined)" : terminalText(alarm.name),
                           terminalText(alarm.location));
    }
}

void printAlarmsAsJson(std::ostream& out, const std::vector<ListedAlarm>& alarms) {
    nlohmann::json rows = nlohmann::json::array();
    for (const ListedAlarm& alarm : alarms) {
        rows.push_back({{"serial", alarm.serial},
                        {"alarmId", alarm.alarmId},
                        {"level", alarm.level},
                        {"levelName", textOf(faultLevelOf(alarm.level))},
                        {"raisedAt", alarm.raisedAt},
                        {"raised", timeText(alarm.raisedAt)},
                        {"parameters", alarm.parameters},
                        {"name", alarm.name},
                        {"location", alarm.location},
                        {"detail", alarm.detail}});
    }
    // Texts come from files and backends of others: bytes that are no UTF-8 are replaced, not fatal, and a terminal
    // gets none of their control characters.
    out << rows.dump(2, ' ', true, nlohmann::json::error_handler_t::replace) << "\n";
}

void RaiseCommand::define(OptionParser& command) {
    command.add("ALARM-ID", request.alarmId, "identifier in the definition file").required();
    command.add("PARAMETER", request.parameters, "parameter values, in order");
    command.add("--level", request.level, "level as the backend grades it (default 5)");
    command.add("--count", request.count, "alarms to raise (default 1)").range(1, 1000000);
}

int RaiseCommand::run() {
    for (const std::uint32_t serial : raiseAlarms(request)) std::cout << serial << "\n";
    return EX_OK;
}

void ClearCommand::define(OptionParser& command) {
    command.add("SERIAL", serial, "serial number of the alarm").required();
}

int ClearCommand::run() {
    clearAlarm(serial);
    return EX_OK;
}

void ListCommand::define(OptionParser& command) {
    command.addFlag("--json", json, "as JSON");
}

int ListCommand::run() {
    const std::vector<ListedAlarm> alarms = listAlarms();
    json ? printAlarmsAsJson(std::cout, alarms) : printAlarms(std::cout, alarms);
    return EX_OK;
}

}  // namespace vrx
