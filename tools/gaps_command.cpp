#include "tools/gaps_command.h"

#include <fmt/format.h>
#include <time.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>
#include <nlohmann/json.hpp>

#include "host/command_line/option_parser.h"
#include "tools/terminal_text.h"
#include "tools/time_text.h"
#include "tools/trap_log.h"

namespace vrx {

namespace {

// Exit codes, as those of diff(1).
constexpr int NONE = 0;
constexpr int SOME = 1;
constexpr int UNKNOWN = 2;

constexpr const char* STANDARD_INPUT = "-";

bool readLog(const std::string& name, TrapLogReader& reader) {
    if (name == STANDARD_INPUT) return reader.read(std::cin);
    std::ifstream file(name, std::ios::binary);
    return file && reader.read(file);
}

int unknown(const std::string& why) {
    std::cerr << "vrxctl: " << why << "\n";
    return UNKNOWN;
}

}  // namespace

void printGaps(std::ostream& out, const GapReport& report) {
    std::size_t width = std::strlen("AGENT");
    for (const TrapGap& gap : report.gaps) width = std::max(width, gap.address.size());
    const auto row = [&](const auto& from, const auto& to, const std::string& agent, const auto& destination,
                         const auto& missing, const auto& sent) {
        out << fmt::format("{:<19}  {:<19}  {:<{}}  {:>11}  {:>7}  {}\n", from, to, agent, width, destination, missing,
                           sent);
    };
    if (!report.gaps.empty()) row("FROM", "TO", "AGENT", "DESTINATION", "MISSING", "OF");
    for (const TrapGap& gap : report.gaps) {
        row(localTime(gap.from), localTime(gap.to), terminalText(gap.address), gap.destination, gap.missing, gap.sent);
    }
    if (report.missing == 0) {
        out << fmt::format("none of {} traps is missing\n", report.sent);
    } else {
        out << fmt::format("{} of {} traps are missing\n", report.missing, report.sent);
    }
}

void printGapsAsJson(std::ostream& out, const GapReport& report) {
    nlohmann::json gaps = nlohmann::json::array();
    for (const TrapGap& gap : report.gaps) {
        gaps.push_back({{"from", utcTime(gap.from)},
                        {"to", utcTime(gap.to)},
                        {"address", gap.address},
                        {"engine", gap.engine},
                        {"destination", gap.destination},
                        {"missing", gap.missing},
                        {"sent", gap.sent}});
    }
    const nlohmann::json document = {{"gaps", gaps},
                                     {"heartbeats", report.heartbeats},
                                     {"missing", report.missing},
                                     {"sent", report.sent},
                                     {"unassigned", report.unassigned}};
    out << document.dump(2, ' ', true, nlohmann::json::error_handler_t::replace) << "\n";
}

void GapsCommand::define(OptionParser& command) {
    command.add("LOG", logs, "log of snmptrapd; its rotated parts, oldest first (default: standard input)");
    command.addFlag("--by-address", byAddress, "tell senders apart by address alone: their ports change on the way");
    command.addFlag("--json", json, "as JSON");
}

int GapsCommand::run() {
    if (logs.empty()) logs.emplace_back(STANDARD_INPUT);
    TrapGaps gaps(byAddress ? TrapGaps::By::Address : TrapGaps::By::Port);
    TrapLogReader reader([&gaps](const LoggedTrap& trap) { gaps.add(trap); });
    for (const std::string& log : logs) {
        errno = 0;
        if (!readLog(log, reader)) return unknown(log + " cannot be read: " + std::strerror(errno));
    }
    const GapReport report = gaps.report(reader.begin());
    if (!report.shared.empty()) {
        return unknown("traps of several destinations come from " + terminalText(*report.shared.begin()) +
                       ": they cannot be told apart");
    }
    if (report.heartbeats == 0) {
        return unknown("there is no heartbeat trap in the log: does the agent's configuration have vrxHeartbeatTrap?");
    }
    json ? printGapsAsJson(std::cout, report) : printGaps(std::cout, report);
    if (report.missing > 0 && report.unassigned > 0) {
        std::cerr << "vrxctl: " << report.unassigned
                  << " traps or informs came from the same addresses, but from ports without heartbeats; where a "
                     "translator of addresses changes ports, use --by-address\n";
    }
    return report.missing > 0 ? SOME : NONE;
}

}  // namespace vrx
