// The checks of vrxctl doctor, a file for each family. doctor_command.cpp has the table of all; what a check throws
// becomes a line "not checked".
//
// None of them writes or sends, but for the last, or waits without a limit.
#pragma once

#include <cstdint>
#include <string>

namespace vrx {

struct Facts;
class Report;

// file_checks.cpp
void checkAccount(const Facts& facts, Report& report);
void checkFiles(const Facts& facts, Report& report);
void checkState(const Facts& facts, Report& report);
void checkDiskSpace(const Facts& facts, Report& report);
void checkClock(const Facts& facts, Report& report);

// configuration_checks.cpp
void checkConfiguration(const Facts& facts, Report& report);
void checkDefinitions(const Facts& facts, Report& report);

// access_checks.cpp
void checkEngine(const Facts& facts, Report& report);
void checkUsers(const Facts& facts, Report& report);
void checkCommunities(const Facts& facts, Report& report);
void checkViews(const Facts& facts, Report& report);
void checkSecrets(const Facts& facts, Report& report);

// network_checks.cpp
void checkListeners(const Facts& facts, Report& report);
void checkMetrics(const Facts& facts, Report& report);

// backend_checks.cpp
void checkBackend(const Facts& facts, Report& report);
void checkAlarms(const Facts& facts, Report& report);

// agent_checks.cpp
void checkAgent(const Facts& facts, Report& report);
void checkAgentVersion(const Facts& facts, Report& report);
void checkAgentStatus(const Facts& facts, Report& report);
void checkLosses(const Facts& facts, Report& report);

// destination_checks.cpp
void checkDestinations(const Facts& facts, Report& report);
void checkInformReceivers(const Facts& facts, Report& report);
void checkMessageSizes(const Facts& facts, Report& report);

// test_trap.cpp: asked for, the one that sends
void sendTestTrap(const Facts& facts, unsigned int destination, Report& report);

// Parts that tests call: of a folder's file system; of the longest message beside the path's MTU.
void judgeSpace(const std::string& folder, std::uint64_t freeBytes, std::uint64_t freeFiles, Report& report);
void judgeMessageSize(const std::string& destination, bool isIpv6, std::size_t mtu, std::size_t longest,
                      std::size_t limit, Report& report);

}  // namespace vrx
