// Which of the active alarms are shown, and in which order.
#pragma once

#include <string>
#include <vector>

#include "host/notification_log/fault_level.h"
#include "tools/alarm_commands.h"

namespace vrx {

enum class AlarmOrder { Newest, Level, Name };
constexpr std::size_t ALARM_ORDERS = 3;

const char* textOf(AlarmOrder order);  // "newest first"

// The level of that name, "critical"; throws std::invalid_argument.
FaultLevel faultLevelNamed(const std::string& name);

struct AlarmChoice {
    FaultLevel least = FaultLevel::Warning;  // this level and those above
    std::string text;                        // somewhere in an alarm's texts or numbers, in capitals or not; "": all

    [[nodiscard]] bool takes(const ListedAlarm& alarm) const;
};

std::vector<const ListedAlarm*> chosen(const std::vector<ListedAlarm>& alarms, const AlarmChoice& choice,
                                       AlarmOrder order);

// "Disk Failed: Enclosure CTE0, slot 7.", as it came: for screenText().
std::string titleOf(const ListedAlarm& alarm);

}  // namespace vrx
