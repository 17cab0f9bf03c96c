// What several checks of vrxctl doctor look at, gathered once. What cannot be read is missing, and its fault says why:
// nothing here throws for what is broken, waits without a limit, or writes.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "host/destinations/trap_destination_rows.h"
#include "tools/doctor/path_facts.h"

namespace vrx {

// Whose files and sockets these are: the owner of the state.
struct ServiceUser {
    uid_t id = 0;
    std::string name;
    std::vector<gid_t> groups;
};

// A line of etc/vrx-agentd.conf.
struct Directive {
    std::size_t line = 0;
    std::string word;  // in small letters
    std::vector<std::string> arguments;
};

// A user of whom the agent's state has keys, or will have them at its next start.
struct KeptUser {
    std::string name;
    std::string engineId;  // that the keys are for, in hexadecimal digits; empty: made at the start
};

// The running agent, from its control socket.
struct AgentFacts {
    enum class State { Away, Silent, Answers, OutOfReach };

    State state = State::Away;
    std::string fault;  // why there is no answer
    std::vector<std::string> troubles;
    std::string version;
    std::string engineId;
    pid_t process = 0;
    std::vector<std::string> modules;
    std::vector<std::string> listeners;  // of its command line; empty: those of the configuration
    bool commandLineKnown = false;
    std::optional<std::chrono::system_clock::time_point> configurationRead;  // when it last read its files
    std::optional<std::uint64_t> activeAlarms;
    std::optional<std::uint64_t> alarmRows;          // of the last snapshot of the alarm table
    std::map<std::string, std::uint64_t> sentTraps;  // by destination
    std::map<std::string, std::string> lostTraps;    // the same: how many, and why
    std::uint64_t lostEvents = 0;                    // that the backend no longer had
    std::uint64_t lostLogEntries = 0;
};

struct Facts {
    std::string rootOption;  // "--root DIR " for commands; empty for the installed root
    ServiceUser service;
    bool mayLook = true;  // into the state: as root or as the service's user

    std::optional<std::vector<Directive>> directives;
    std::string directivesFault;

    std::string engineId;  // hexadecimal digits, as configured or kept; empty before the first start
    std::string engineIdFault;
    std::optional<std::vector<KeptUser>> users;
    std::optional<std::uint64_t> boots;
    std::string usersFault;

    std::optional<TrapDestinationRows> destinations;
    std::string destinationsFault;

    std::map<std::string, PathFacts> paths;  // by address, of destinations and inform receivers

    AgentFacts agent;

    // The directives with one of these words, in small letters.
    std::vector<Directive> directivesOf(const std::vector<std::string>& words) const;

    // Whether there are, or will be, keys of the user: any, or such that this engine can use.
    bool hasKeys(const std::string& user, bool ofThisEngine) const;

    // "vrxctl [--root DIR] ARGUMENTS"
    std::string vrxctl(const std::string& arguments) const;

    bool agentAnswers() const { return agent.state == AgentFacts::State::Answers; }
};

// Of the process's product root, which is a folder. `rootOption`: as in Facts.
Facts gatherFacts(const std::string& rootOption);

// Asks for at most 5 seconds.
AgentFacts gatherAgentFacts();

std::vector<Directive> parseDirectives(const std::string& content);
std::vector<KeptUser> usersOf(const std::vector<Directive>& directives);

// The address or name in a line informsink or trapsess; empty for another line.
std::string receiverOf(const Directive& line);

// The file of the agent's directives, of its keys, and of its engine ID.
std::string directivesPath();
std::string keysPath();
std::string engineIdPath();

}  // namespace vrx
