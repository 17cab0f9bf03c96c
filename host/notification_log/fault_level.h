// Levels of alarms, as people and managers know them.
//
// Threads: any.
#pragma once

#include <cstddef>

namespace vrx {

// As VrxFaultLevel of the MIB has them, from 1 on.
enum class FaultLevel : unsigned char { Critical = 1, Major, Minor, Warning };
constexpr std::size_t FAULT_LEVELS = 4;

// The level that the alarm table and the traps show for one that the backend grades so.
FaultLevel faultLevelOf(unsigned int backendLevel);

const char* textOf(FaultLevel level);  // "critical"

}  // namespace vrx
