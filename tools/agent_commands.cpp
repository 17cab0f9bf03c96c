#include "tools/agent_commands.h"

#include <fmt/format.h>
#include <sysexits.h>

#include <cstdint>
#include <iostream>
#include <string>
#include <vector>

#include "host/command_line/option_parser.h"
#include "tools/agent_call.h"
#include "tools/status_text.h"

namespace vrx {

namespace {

StatusJson ask(const std::string& method, const std::string& path) {
    return parsedAnswer(callAgent(method, path));
}

void printItems(std::ostream& out, const StatusJson& items, const std::string& indent) {
    for (const auto& [name, value] : items.items())
        out << fmt::format("{}{:<20} {}\n", indent, name, statusText(value));
}

// Every row under its first value; the others below.
void printList(std::ostream& out, const StatusJson& rows) {
    for (const StatusJson& row : rows) {
        if (row.empty()) continue;
        out << "  " << statusText(row.front()) << "\n";
        StatusJson others = row;
        others.erase(others.begin());
        printItems(out, others, "    ");
    }
}

// Of all members of a list.
std::uint64_t sumOf(const StatusJson& status, const char* list, const char* field) {
    std::uint64_t sum = 0;
    for (const StatusJson& row : status.value(list, StatusJson::array())) sum += row.value(field, std::uint64_t{0});
    return sum;
}

std::uint64_t droppedOf(const StatusJson& status, const char* list) {
    std::uint64_t sum = 0;
    for (const StatusJson& row : status.value(list, StatusJson::array())) {
        const StatusJson dropped = row.value("dropped", StatusJson::object());
        for (const StatusJson& count : dropped) sum += count.get<std::uint64_t>();
    }
    return sum;
}

void printInforms(std::ostream& out, const StatusJson& informs) {
    constexpr const char* ROW = "  {:<35} {:>3}  {:<13} {:>12} {:>8}  {:<8}  {}\n";
    out << fmt::format(ROW, "destination", "ver", "state", "acknowledged", "waiting", "dropped", "last failure");
    for (const StatusJson& inform : informs) {
        out << fmt::format(ROW, statusText(inform.at("destination")), statusText(inform.at("version")),
                           statusText(inform.at("state")), statusText(inform.at("acknowledged")),
                           statusText(inform.at("waiting")), statusText(inform.at("dropped")),
                           statusText(inform.at("last_failure")));
    }
}

void printDestinations(std::ostream& out, const StatusJson& destinations) {
    constexpr const char* ROW = "  {:>6}  {:<28} {:>3}  {:<13} {:>10} {:>10} {:>10} {:>8}  {:<8}  {}\n";
    out << fmt::format(ROW, "number", "address", "ver", "state", "sent", "filtered", "suppressed", "waiting", "dropped",
                       "reason");
    for (const StatusJson& destination : destinations) {
        out << fmt::format(ROW, statusText(destination.at("number")),
                           statusText(destination.at("address")) + " " + statusText(destination.at("port")),
                           statusText(destination.at("version")), statusText(destination.at("state")),
                           statusText(destination.at("sent")), statusText(destination.at("filtered")),
                           statusText(destination.at("suppressed")), statusText(destination.at("waiting")),
                           statusText(destination.at("dropped")), statusText(destination.at("reason")));
    }
}

}  // namespace

std::vector<std::string> troublesOf(const std::string& answer) {
    return troublesIn(parsedAnswer(answer));
}

void printStatus(std::ostream& out, bool all) {
    const std::string answer = callAgent("GET", "/status");
    printStatusSummary(out, answer);
    if (all) printStatusTables(out, answer);
}

void printStatusSummary(std::ostream& out, const std::string& answer) {
    const StatusJson status = parsedAnswer(answer);
    const std::vector<std::string> troubles = troublesIn(status);
    const std::string who = fmt::format("vrx-agentd {}, up {}", statusText(statusField(status, "/agent/version")),
                                        durationText(statusField(status, "/agent/uptime_seconds")));
    out << who << (troubles.empty() ? ": all is well\n" : fmt::format(": {}\n", fmt::join(troubles, "; ")));

    const bool connected = statusField(status, "/backend/connected") == true;
    const StatusJson informs = status.value("informs", StatusJson::array());
    const StatusJson destinations = status.value("destinations", StatusJson::array());
    const auto line = [&](const char* title, const std::string& text) {
        out << fmt::format("  {:<12} {}\n", title, text);
    };
    line("backend", fmt::format("{} for {}", connected ? "connected" : "away",
                                durationText(statusField(status, "/backend/since_seconds"))));
    line("alarms", fmt::format("{} active, last change {}", statusText(statusField(status, "/alarms/by_level")),
                               statusText(statusField(status, "/alarms/last_change"))));
    line("events",
         fmt::format("{} handled; the last is {}, done up to {}", statusText(statusField(status, "/events/handled")),
                     statusText(statusField(status, "/events/last")),
                     statusText(statusField(status, "/events/last_done"))));
    line("traps", fmt::format("{} sent, {} waiting, {} dropped", sumOf(status, "destinations", "sent"),
                              sumOf(status, "destinations", "waiting"), droppedOf(status, "destinations")));
    line("informs", fmt::format("{} acknowledged, {} waiting, {} dropped", sumOf(status, "informs", "acknowledged"),
                                sumOf(status, "informs", "waiting"), droppedOf(status, "informs")));
    line("engine ID", statusText(statusField(status, "/agent/engine_id")));
    if (!destinations.empty()) {
        out << "trap destinations\n";
        printDestinations(out, destinations);
    }
    if (!informs.empty()) {
        out << "inform destinations\n";
        printInforms(out, informs);
    }
}

void printStatusTables(std::ostream& out, const std::string& answer) {
    const StatusJson status = parsedAnswer(answer);
    for (const auto& [title, section] : status.items()) {
        out << title << "\n";
        if (title == "destinations") {
            printDestinations(out, section);
        } else if (section.is_array()) {
            printList(out, section);
        } else {
            printItems(out, section, "  ");
        }
    }
}

void printStatusAsJson(std::ostream& out) {
    out << ask("GET", "/status").dump(2) << "\n";
}

bool reloadAgent(std::ostream& faults) {
    const StatusJson answer = ask("POST", "/reload");
    for (const StatusJson& fault : answer.at("faults")) faults << statusText(fault) << "\n";
    return answer.at("taken").get<bool>();
}

void printLogLevels(std::ostream& out) {
    const StatusJson levels = ask("GET", "/log");
    for (const auto& [subsystem, level] : levels.items())
        out << fmt::format("{:<13} {}\n", subsystem, statusText(level));
}

void setLogLevel(const std::string& subsystem, const std::string& level) {
    callAgent("POST", "/log", StatusJson{{"subsystem", subsystem}, {"level", level}}.dump());
}

void StatusCommand::define(OptionParser& command) {
    command.addFlag("--all", all, "all counters");
    command.addFlag("--json", json, "everything, as JSON");
}

int StatusCommand::run() {
    json ? printStatusAsJson(std::cout) : printStatus(std::cout, all);
    return EX_OK;
}

int ReloadCommand::run() {
    return reloadAgent(std::cerr) ? EX_OK : EX_CONFIG;
}

void LogCommand::define(OptionParser& command) {
    const auto subsystemOption = command.add("SUBSYSTEM", subsystem, "one of the list, or \"all\"");
    const auto levelOption =
        command.add("LEVEL", level, "trace, debug, info, warn, error or off, until the next reload or start");
    subsystemOption.needs(levelOption);
}

int LogCommand::run() {
    subsystem.empty() ? printLogLevels(std::cout) : setLogLevel(subsystem, level);
    return EX_OK;
}

}  // namespace vrx
