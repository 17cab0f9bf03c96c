// The MIB modules that the alarm module serves, for sysORTable.
#pragma once

#include <utility>

namespace vrx {

constexpr std::pair<const char*, const char*> TAMREL_MIBS[] = {
    {"1.3.6.1.4.1.99871.2.91.1", "VRX-TAMREL-MIB: topology, current alarms, trap destinations"},
    {"1.3.6.1.4.1.99871.2.91.2", "VRX-TAMREL-ALARM-MIB: a notification for each alarm"},
};

}  // namespace vrx
