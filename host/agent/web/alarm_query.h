// Which alarms a page asks for, and these as JSON:
//
//     ?filter=WORDS        with all of these words, case of ASCII letters aside
//     &level=LEVEL,LEVEL   of one of these levels: critical, major, minor, warning
//     &sort=KEY            raised (unless it says otherwise), level, title or location
//     &order=asc|desc      desc unless it says otherwise
//     &limit=N             at most so many: 1 to 1000, 100 unless it says otherwise
//
// Threads: any.
#pragma once

#include <array>
#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include "host/agent/web/alarm_list.h"
#include "host/notification_log/fault_level.h"

namespace vrx {

struct AlarmQuery {
    enum class Key { Raised, Level, Title, Location };

    std::vector<std::string> words;            // in lower case
    std::array<bool, FAULT_LEVELS> ofLevel{};  // by FaultLevel, the first one at 0; none: all
    Key sort = Key::Raised;
    bool ascending = false;
    std::size_t limit = 100;
};

// Throws ControlFault for what has no meaning.
AlarmQuery alarmQueryOf(const std::map<std::string, std::string>& query);

// {"read", "stale", "fault", "rows", "matching", "alarms": [...]}. Fewer alarms than `limit` when their texts are long.
std::string alarmsAsJson(const AlarmReading& reading, const AlarmQuery& query);

}  // namespace vrx
