// vrxctl traps: what the agent has sent, from its notification log. The agent may run or not, but for sending again.
//
// Errors: std::runtime_error, AgentCallError where the agent is asked.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <ostream>
#include <string>

#include "host/notification_log/notification_log_file.h"
#include "tools/command.h"

namespace vrx {

// As a table, for people.
void printTraps(std::ostream& out, const NotificationLogFilter& filter);

// With all bindings, for programs.
void printTrapsAsJson(std::ostream& out, const NotificationLogFilter& filter);

// One entry with all bindings.
void printTrap(std::ostream& out, std::uint64_t number);
void printTrapAsJson(std::ostream& out, std::uint64_t number);

// Lets the agent send an entry's trap again, to its destinations or to the one of that name.
void resendTrap(std::ostream& out, std::uint64_t number, const std::string& to);

// A moment as people write it: "2026-11-21", "2026-11-21 09:14", "2026-11-21T09:14:03" in local time, with a Z after
// it in UTC, "@1763716443" in seconds since 1970, or how long ago: "90s", "15m", "2h", "3d". Throws
// std::invalid_argument.
std::chrono::system_clock::time_point momentOf(const std::string& text, std::chrono::system_clock::time_point now);

// The list, or one of the subcommands "show" and "resend".
struct TrapsCommand : Command {
    void define(OptionParser& command) override;
    int run() override;

    OptionParser* show = nullptr;
    OptionParser* resend = nullptr;
    NotificationLogFilter filter;
    std::string since;
    std::string until;
    std::string kind;
    std::uint64_t number = 0;
    std::string to;
    bool json = false;
    bool follow = false;
    std::optional<std::uint64_t> after;
    std::optional<std::string> source;
    std::optional<std::string> syslogHost;
    std::string feed;
    std::string cursor;

private:
    int runFollow();
};

}  // namespace vrx
