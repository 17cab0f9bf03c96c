// vrxctl status, reload and log: what is asked of a running agent.
#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "tools/command.h"

namespace vrx {

// For people: how it does in one line, the figures that matter, where traps and informs go; and, with `all`, the rest.
// Throws AgentCallError.
void printStatus(std::ostream& out, bool all);

// The parts of it, of an answer that is there: the agent's JSON. Throw AgentCallError when it is none.
void printStatusSummary(std::ostream& out, const std::string& answer);
void printStatusTables(std::ostream& out, const std::string& answer);

// What in it needs attention, a short text each. Throws AgentCallError when it is no JSON.
std::vector<std::string> troublesOf(const std::string& answer);

// As the agent gives it, for programs. Throws AgentCallError.
void printStatusAsJson(std::ostream& out);

// False when the agent refused its configuration; its faults are then written to `faults`, one line
// each. Throws AgentCallError.
[[nodiscard]] bool reloadAgent(std::ostream& faults);

// The subsystems of the agent's log with their levels. Throws AgentCallError.
void printLogLevels(std::ostream& out);

// Another level for a subsystem, or for "all". Throws AgentCallError, also for what there is not.
void setLogLevel(const std::string& subsystem, const std::string& level);

struct StatusCommand : Command {
    void define(OptionParser& command) override;
    int run() override;

    bool all = false;
    bool json = false;
};

struct ReloadCommand : Command {
    void define(OptionParser&) override {}
    int run() override;
};

struct LogCommand : Command {
    void define(OptionParser& command) override;
    int run() override;

    std::string subsystem;
    std::string level;
};

}  // namespace vrx
