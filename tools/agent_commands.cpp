#include "tools/agent_commands.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>

#include "tools/agent_call.h"

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

void printStatus(std::ostream& out) {
    printStatusTables(out, callAgent("GET", "/status"));
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
