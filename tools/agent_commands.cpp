#include "tools/agent_commands.h"

#include <fmt/format.h>
#include <sysexits.h>

#include <algorithm>
#include <cstdint>
#include <iostream>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "host/command_line/option_parser.h"
#include "tools/agent_call.h"

namespace vrx {

namespace {

using json = nlohmann::ordered_json;

json parsed(const std::string& text) {
    json answer = json::parse(text, nullptr, false);
    if (answer.is_discarded()) throw AgentCallError("the agent's answer is no JSON");
    return answer;
}

json ask(const std::string& method, const std::string& path) {
    return parsed(callAgent(method, path));
}

bool isHistogram(const json& value) {
    return value.is_object() && value.contains("p99_seconds");
}

bool areNumbers(const json& value) {
    return value.is_object() &&
           std::all_of(value.begin(), value.end(), [](const json& number) { return number.is_number_unsigned(); });
}

// "3 (queue full 2, unresolved 1)"
std::string sumOf(const json& counts) {
    std::uint64_t sum = 0;
    std::string parts;
    for (const auto& [name, count] : counts.items()) {
        const auto number = count.get<std::uint64_t>();
        if (number == 0) continue;
        sum += number;
        parts += fmt::format("{}{} {}", parts.empty() ? " (" : ", ", name, number);
    }
    return std::to_string(sum) + (parts.empty() ? "" : parts + ")");
}

// "0.0041" for seconds: as exact as anybody needs.
std::string plainNumber(const json& value) {
    return value.is_number_float() ? fmt::format("{:.4g}", value.get<double>()) : value.dump();
}

std::string timesOf(const json& histogram) {
    if (histogram.at("count") == 0) return "-";
    const auto milliseconds = [&](const char* name) { return histogram.at(name).get<double>() * 1000; };
    return fmt::format("{}; half within {:.3g} ms, 90 % {:.3g} ms, 99 % {:.3g} ms, longest {:.3g} ms",
                       plainNumber(histogram.at("count")), milliseconds("p50_seconds"), milliseconds("p90_seconds"),
                       milliseconds("p99_seconds"), milliseconds("max_seconds"));
}

// A value as people read it: no quotes, "-" for none.
std::string plain(const json& value) {
    if (value.is_null()) return "-";
    if (value.is_string()) return value.get<std::string>().empty() ? "-" : value.get<std::string>();
    if (value.is_boolean()) return value.get<bool>() ? "yes" : "no";
    if (value.is_number()) return plainNumber(value);
    if (isHistogram(value)) return timesOf(value);
    if (areNumbers(value)) return sumOf(value);
    if (!value.is_array()) return value.dump();
    std::string list;
    for (const json& one : value) list += (list.empty() ? "" : " ") + plain(one);
    return list.empty() ? "-" : list;
}

void printItems(std::ostream& out, const json& items, const std::string& indent) {
    for (const auto& [name, value] : items.items()) out << fmt::format("{}{:<20} {}\n", indent, name, plain(value));
}

// Every row under its first value; the others below.
void printList(std::ostream& out, const json& rows) {
    for (const json& row : rows) {
        if (row.empty()) continue;
        out << "  " << plain(row.front()) << "\n";
        json others = row;
        others.erase(others.begin());
        printItems(out, others, "    ");
    }
}

// What of a member of a list is at fault: its name and what it says of itself.
struct Listed {
    const char* list;
    const char* name;
    const char* state;
    std::vector<const char*> good;
    const char* title;
};
const Listed LISTED[] = {
    {"destinations", "number", "state", {"ready", "not used yet"}, "trap destination"},
    {"informs", "destination", "state", {"answers", "not used yet"}, "inform destination"},
    {"objects", "name", "readable", {"yes"}, "object"},
};

struct Trouble {
    const char* field;
    bool good;
    const char* text;
};
constexpr Trouble TROUBLES[] = {
    {"/backend/connected", true, "the backend is away"},
    {"/events/definitions_loaded", true, "the alarm definitions cannot be loaded, alarm events wait"},
    {"/agent/last_reload_taken", true, "the last reload was refused"},
};

// An answer may be that of an agent of another version.
json fieldOf(const json& status, const char* path) {
    return status.value(json::json_pointer(path), json());
}

std::vector<std::string> troublesIn(const json& status) {
    std::vector<std::string> troubles;
    for (const Trouble& trouble : TROUBLES) {
        const json value = fieldOf(status, trouble.field);
        if (value.is_boolean() && value.get<bool>() != trouble.good) troubles.emplace_back(trouble.text);
    }
    if (const json fault = fieldOf(status, "/notification_log/fault");
        fault.is_string() && !fault.get_ref<const std::string&>().empty()) {
        troubles.push_back("the notification log cannot be written: " + plain(fault));
    }
    for (const Listed& listed : LISTED) {
        for (const json& one : status.value(listed.list, json::array())) {
            const std::string state = plain(one.value(listed.state, json()));
            if (std::find(listed.good.begin(), listed.good.end(), state) != listed.good.end()) continue;
            troubles.push_back(fmt::format("{} {} {}", listed.title, plain(one.value(listed.name, json())),
                                           state == "no" ? "cannot be read" : state));
        }
    }
    return troubles;
}

// Of all members of a list.
std::uint64_t sumOf(const json& status, const char* list, const char* field) {
    std::uint64_t sum = 0;
    for (const json& row : status.value(list, json::array())) sum += row.value(field, std::uint64_t{0});
    return sum;
}

std::uint64_t droppedOf(const json& status, const char* list) {
    std::uint64_t sum = 0;
    for (const json& row : status.value(list, json::array())) {
        const json dropped = row.value("dropped", json::object());
        for (const json& count : dropped) sum += count.get<std::uint64_t>();
    }
    return sum;
}

// "3 d 4 h", "26 min", "7 s"
std::string durationText(const json& seconds) {
    if (!seconds.is_number()) return "-";
    constexpr std::uint64_t MINUTE = 60;
    constexpr std::uint64_t HOUR = 60 * MINUTE;
    constexpr std::uint64_t DAY = 24 * HOUR;
    const auto whole = static_cast<std::uint64_t>(std::max(0.0, seconds.get<double>()));
    if (whole >= DAY) return fmt::format("{} d {} h", whole / DAY, whole % DAY / HOUR);
    if (whole >= HOUR) return fmt::format("{} h {} min", whole / HOUR, whole % HOUR / MINUTE);
    return whole >= MINUTE ? fmt::format("{} min", whole / MINUTE) : fmt::format("{} s", whole);
}

void printInforms(std::ostream& out, const json& informs) {
    constexpr const char* ROW = "  {:<35} {:>3}  {:<13} {:>12} {:>8}  {:<8}  {}\n";
    out << fmt::format(ROW, "destination", "ver", "state", "acknowledged", "waiting", "dropped", "last failure");
    for (const json& inform : informs) {
        out << fmt::format(ROW, plain(inform.at("destination")), plain(inform.at("version")), plain(inform.at("state")),
                           plain(inform.at("acknowledged")), plain(inform.at("waiting")), plain(inform.at("dropped")),
                           plain(inform.at("last_failure")));
    }
}

void printDestinations(std::ostream& out, const json& destinations) {
    constexpr const char* ROW = "  {:>6}  {:<28} {:>3}  {:<13} {:>10} {:>10} {:>10} {:>8}  {:<8}  {}\n";
    out << fmt::format(ROW, "number", "address", "ver", "state", "sent", "filtered", "suppressed", "waiting", "dropped",
                       "reason");
    for (const json& destination : destinations) {
        out << fmt::format(ROW, plain(destination.at("number")),
                           plain(destination.at("address")) + " " + plain(destination.at("port")),
                           plain(destination.at("version")), plain(destination.at("state")),
                           plain(destination.at("sent")), plain(destination.at("filtered")),
                           plain(destination.at("suppressed")), plain(destination.at("waiting")),
                           plain(destination.at("dropped")), plain(destination.at("reason")));
    }
}

}  // namespace

std::vector<std::string> troublesOf(const std::string& answer) {
    return troublesIn(parsed(answer));
}

void printStatus(std::ostream& out, bool all) {
    const std::string answer = callAgent("GET", "/status");
    printStatusSummary(out, answer);
    if (all) printStatusTables(out, answer);
}

void printStatusSummary(std::ostream& out, const std::string& answer) {
    const json status = parsed(answer);
    const std::vector<std::string> troubles = troublesIn(status);
    const std::string who = fmt::format("vrx-agentd {}, up {}", plain(fieldOf(status, "/agent/version")),
                                        durationText(fieldOf(status, "/agent/uptime_seconds")));
    out << who << (troubles.empty() ? ": all is well\n" : fmt::format(": {}\n", fmt::join(troubles, "; ")));

    const bool connected = fieldOf(status, "/backend/connected") == true;
    const json informs = status.value("informs", json::array());
    const json destinations = status.value("destinations", json::array());
    const auto line = [&](const char* title, const std::string& text) {
        out << fmt::format("  {:<12} {}\n", title, text);
    };
    line("backend", fmt::format("{} for {}", connected ? "connected" : "away",
                                durationText(fieldOf(status, "/backend/since_seconds"))));
    line("alarms", fmt::format("{} active, last change {}", plain(fieldOf(status, "/alarms/by_level")),
                               plain(fieldOf(status, "/alarms/last_change"))));
    line("events", fmt::format("{} handled; the last is {}, done up to {}", plain(fieldOf(status, "/events/handled")),
                               plain(fieldOf(status, "/events/last")), plain(fieldOf(status, "/events/last_done"))));
    line("traps", fmt::format("{} sent, {} waiting, {} dropped", sumOf(status, "destinations", "sent"),
                              sumOf(status, "destinations", "waiting"), droppedOf(status, "destinations")));
    line("informs", fmt::format("{} acknowledged, {} waiting, {} dropped", sumOf(status, "informs", "acknowledged"),
                                sumOf(status, "informs", "waiting"), droppedOf(status, "informs")));
    line("engine ID", plain(fieldOf(status, "/agent/engine_id")));
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
    const json status = parsed(answer);
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
    const json answer = ask("POST", "/reload");
    for (const json& fault : answer.at("faults")) faults << plain(fault) << "\n";
    return answer.at("taken").get<bool>();
}

void printLogLevels(std::ostream& out) {
    const json levels = ask("GET", "/log");
    for (const auto& [subsystem, level] : levels.items()) out << fmt::format("{:<13} {}\n", subsystem, plain(level));
}

void setLogLevel(const std::string& subsystem, const std::string& level) {
    callAgent("POST", "/log", json{{"subsystem", subsystem}, {"level", level}}.dump());
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
