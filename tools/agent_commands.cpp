#include "tools/agent_commands.h"

#include <fmt/format.h>

#include <nlohmann/json.hpp>
#include <string>

#include "tools/agent_call.h"

namespace {

using nlohmann::json;

json ask(const std::string& method, const std::string& path) {
    json answer = json::parse(callAgent(method, path), nullptr, false);
    if (answer.is_discarded()) throw AgentCallError("the agent's answer is no JSON");
    return answer;
}

// A value as people read it: no quotes, "-" for none.
std::string plain(const json& value) {
    if (value.is_null()) return "-";
    if (value.is_string()) return value.get<std::string>().empty() ? "-" : value.get<std::string>();
    return value.dump();
}

void printSection(std::ostream& out, const std::string& title, const json& items) {
    out << title << "\n";
    for (const auto& [name, value] : items.items()) out << fmt::format("  {:<20} {}\n", name, plain(value));
}

}  // namespace

void printStatus(std::ostream& out) {
    const json status = ask("GET", "/status");
    for (const auto& [title, items] : status.items()) {
        if (items.is_object() && title != "former_destinations") printSection(out, title, items);
    }
    out << "destinations\n";
    constexpr const char* ROW = "  {:>6}  {:<28} {:>3}  {:<13} {:>10} {:>10} {:>8} {:>8}  {}\n";
    out << fmt::format(ROW, "number", "address", "ver", "state", "sent", "filtered", "dropped", "waiting", "reason");
    for (const json& destination : status.at("destinations")) {
        std::uint64_t dropped = 0;
        for (const auto& [reason, count] : destination.at("dropped").items()) dropped += count.get<std::uint64_t>();
        out << fmt::format(ROW, plain(destination.at("number")),
                           plain(destination.at("address")) + " " + plain(destination.at("port")),
                           plain(destination.at("version")), plain(destination.at("state")),
                           plain(destination.at("sent")), plain(destination.at("filtered")), dropped,
                           plain(destination.at("waiting")), plain(destination.at("reason")));
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
