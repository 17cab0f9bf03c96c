#include "host/notification_log/fault_level.h"

namespace vrx {

FaultLevel faultLevelOf(unsigned int backendLevel) {
    switch (backendLevel) {
        case 4:
            return FaultLevel::Minor;
        case 5:
            return FaultLevel::Major;
        case 6:
        case 7:
            return FaultLevel::Critical;
        default:
            return FaultLevel::Warning;
    }
}

const char* textOf(FaultLevel level) {
    constexpr const char* TEXTS[FAULT_LEVELS] = {"critical", "major", "minor", "warning"};
    return TEXTS[static_cast<std::size_t>(level) - 1];
}

}  // namespace vrx
