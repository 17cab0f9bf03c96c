// vrxctl raise, clear, list: alarms at the management backend.
//
// Each throws BackendCallError when the backend refuses or does not answer.
#pragma once

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include "tools/command.h"

namespace vrx {

struct RaiseRequest {
    std::uint64_t alarmId = 0;
    std::uint32_t level = 5;
    std::vector<std::string> parameters;  // as they are; commas and ampersands are escaped on the way
    std::uint32_t count = 1;              // that many alarms of the same kind
};

// The raw parameter text of a notification: values joined by commas, "," and "&" inside a value escaped.
std::string joinParameters(const std::vector<std::string>& parameters);

// Raises the alarms (all or none) and returns their serial numbers.
std::vector<std::uint32_t> raiseAlarms(const RaiseRequest& request);

void clearAlarm(std::uint32_t serial);

struct ListedAlarm {
    std::uint32_t serial = 0;
    std::uint64_t alarmId = 0;
    std::uint32_t level = 0;
    std::uint64_t raisedAt = 0;  // seconds since 1970 UTC
    std::string parameters;      // raw
    std::string name;            // rendered; empty when the definitions do not know the alarm
    std::string location;
    std::string detail;
    std::string advice;
};

// All active alarms, by serial number.
std::vector<ListedAlarm> listAlarms();

void printAlarms(std::ostream& out, const std::vector<ListedAlarm>& alarms);
void printAlarmsAsJson(std::ostream& out, const std::vector<ListedAlarm>& alarms);

struct RaiseCommand : Command {
    void define(OptionParser& command) override;
    int run() override;

    RaiseRequest request;
};

struct ClearCommand : Command {
    void define(OptionParser& command) override;
    int run() override;

    std::uint32_t serial = 0;
};

struct ListCommand : Command {
    void define(OptionParser& command) override;
    int run() override;

    bool json = false;
};

}  // namespace vrx
