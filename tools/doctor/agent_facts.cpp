#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <exception>
#include <nlohmann/json.hpp>
#include <string>

#include "host/base/file_descriptor.h"
#include "tools/agent_call.h"
#include "tools/agent_commands.h"
#include "tools/doctor/facts.h"

namespace vrx {

namespace {

using nlohmann::json;
using std::chrono::system_clock;

constexpr std::chrono::seconds STATUS_PATIENCE{5};

// What the answer has there, or nothing: it may be that of an agent of another version.
template <typename Value>
std::optional<Value> valueOf(const json& status, const char* path) {
    const json value = status.value(json::json_pointer(path), json());
    try {
        return value.is_null() ? std::nullopt : std::optional<Value>(value.get<Value>());
    } catch (const json::exception&) {
        return std::nullopt;
    }
}

// "3 (unknown user 2, queue full 1)"; empty for none. Those of a destination that was removed were meant to go.
std::string lossOf(const json& dropped) {
    std::uint64_t sum = 0;
    std::string reasons;
    for (const auto& [reason, count] : dropped.items()) {
        if (!count.is_number_unsigned() || count == 0U || reason == "destination removed") continue;
        sum += count.get<std::uint64_t>();
        reasons += fmt::format("{}{} {}", reasons.empty() ? "" : ", ", reason, count.get<std::uint64_t>());
    }
    return sum == 0 ? "" : fmt::format("{} ({})", sum, reasons);
}

json listOf(const json& status, const char* name) {
    const auto found = status.find(name);
    return found != status.end() && found->is_array() ? *found : json::array();
}

// "2026-11-21T09:14:03Z"
std::optional<system_clock::time_point> timeOf(const std::optional<std::string>& text) {
    std::tm parts{};
    if (!text || ::strptime(text->c_str(), "%Y-%m-%dT%H:%M:%SZ", &parts) == nullptr) return std::nullopt;
    return system_clock::from_time_t(::timegm(&parts));
}

// The addresses after --listen on the agent's command line.
void readCommandLine(AgentFacts& agent) {
    const FileDescriptor file(::open(fmt::format("/proc/{}/cmdline", agent.process).c_str(), O_RDONLY | O_CLOEXEC));
    std::string line(std::size_t{1} << 16U, '\0');
    const ssize_t size = file ? ::read(file.get(), line.data(), line.size()) : -1;
    if (size <= 0) return;
    agent.commandLineKnown = true;
    line.resize(static_cast<std::size_t>(size));
    bool isListener = false;
    for (std::size_t at = 0; at < line.size();) {
        const std::string word = line.c_str() + at;
        at += word.size() + 1;
        constexpr std::string_view OPTION = "--listen";
        if (isListener) agent.listeners.push_back(word);
        isListener = word == OPTION;
        if (word.compare(0, OPTION.size() + 1, "--listen=") == 0)
            agent.listeners.push_back(word.substr(OPTION.size() + 1));
    }
}

void read(const json& status, AgentFacts& agent) {
    agent.version = valueOf<std::string>(status, "/agent/version").value_or("");
    agent.engineId = valueOf<std::string>(status, "/agent/engine_id").value_or("");
    agent.process = valueOf<pid_t>(status, "/agent/pid").value_or(0);
    agent.modules = valueOf<std::vector<std::string>>(status, "/agent/modules").value_or(std::vector<std::string>());
    agent.activeAlarms = valueOf<std::uint64_t>(status, "/alarms/active");
    agent.lostEvents = valueOf<std::uint64_t>(status, "/events/missing").value_or(0);
    agent.lostLogEntries = valueOf<std::uint64_t>(status, "/notification_log/not_written").value_or(0);
    if (const auto uptime = valueOf<double>(status, "/agent/uptime_seconds")) {
        agent.configurationRead = system_clock::now() - std::chrono::duration_cast<system_clock::duration>(
                                                            std::chrono::duration<double>(*uptime));
        const auto reload = timeOf(valueOf<std::string>(status, "/agent/last_reload_at"));
        if (reload && valueOf<bool>(status, "/agent/last_reload_taken").value_or(false))
            agent.configurationRead = std::max(*agent.configurationRead, *reload);
    }
    for (const json& object : listOf(status, "objects")) {
        const auto age = valueOf<double>(object, "/snapshot_age_seconds");
        if (object.value("name", "") == "vrxAlarmTable" && age && *age < 1) {
            agent.alarmRows = valueOf<std::uint64_t>(object, "/rows");
        }
    }
    for (const char* list : {"destinations", "informs"}) {
        const bool informs = std::string(list) == "informs";
        for (const json& row : listOf(status, list)) {
            const std::string loss = lossOf(row.value("dropped", json::object()));
            const auto name = valueOf<std::string>(row, informs ? "/destination" : "/number");
            if (!name) continue;
            const std::string subject = (informs ? "inform destination " : "trap destination ") + *name;
            agent.sentTraps[subject] = valueOf<std::uint64_t>(row, "/sent").value_or(0);
            if (!loss.empty()) agent.lostTraps[subject] = loss;
        }
    }
}

}  // namespace

AgentFacts gatherAgentFacts() {
    AgentFacts agent;
    try {
        const std::string answer = callAgent("GET", "/status", {}, STATUS_PATIENCE);
        agent.troubles = troublesOf(answer);
        read(json::parse(answer), agent);
        readCommandLine(agent);
        agent.state = AgentFacts::State::Answers;
    } catch (const AgentAwayError& error) {
        agent.state = AgentFacts::State::Away;
        agent.fault = error.what();
    } catch (const std::exception& error) {
        agent.state = AgentFacts::State::Silent;
        agent.fault = error.what();
    }
    return agent;
}

}  // namespace vrx
