// How a definition file becomes a MIB module: the name and the number of each alarm's notification, the module's
// revision; and what a file lacks for that.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/definitions/definition_lint.h"

namespace vrx {

struct AlarmTitle {
    std::string name;
    std::string alarmOid;
};

// The N of an alarmOid "0.N", the only form that can be written as a NOTIFICATION-TYPE.
[[nodiscard]] std::optional<std::uint32_t> notificationNumber(const std::string& alarmOid);

// One for each alarm: "vrx" and the words of its name, "Disk Failed" is vrxDiskFailed. Where that is no name of SMI,
// the module's own or another alarm's, it is vrxAlarmN after alarmOid 0.N; empty where there is no N either.
[[nodiscard]] std::vector<std::string> notificationNames(const std::vector<AlarmTitle>& alarms);

// The attribute mibRevision where it is a date of the form YYYYMMDDHHMMZ, else a fixed one.
[[nodiscard]] std::string moduleRevision(const std::string& mibRevision);

// Warnings on a definition file that can be read: its alarms do without what is missing, its MIB module does not.
[[nodiscard]] std::vector<LintFinding> lintForMib(const std::string& definitionFile);

}  // namespace vrx
