#include "host/notification_log/fault_level.h"

#include "alarm/alarm_grading.h"

namespace vrx {

FaultLevel faultLevelOf(unsigned int backendLevel) {
    return static_cast<FaultLevel>(managementLevelOf(static_cast<int>(backendLevel)));
}

const char* textOf(FaultLevel level) {
    constexpr const char* TEXTS[FAULT_LEVELS] = {"critical", "major", "minor", "warning"};
    return TEXTS[static_cast<std::size_t>(level) - 1];
}

}  // namespace vrx
