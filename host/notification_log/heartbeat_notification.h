// vrxAgentHeartbeat of VRX-AGENT-MIB: what the sender of traps fills and vrxctl reads.
//
// Threads: any.
#pragma once

#include <cstddef>

#include "host/snmp/oid_vector.h"

namespace vrx::heartbeat_notification {

const OidVector NOTIFICATION = {1, 3, 6, 1, 4, 1, 99871, 3, 1, 0, 1};

// Its bindings are OBJECTS.NUMBER.0, in the order of their numbers.
const OidVector OBJECTS = {1, 3, 6, 1, 4, 1, 99871, 3, 1, 1, 4};

enum Binding : unsigned int { ENGINE = 1, DESTINATION, BOOTS, SERIES, NUMBER, TRAPS, AGE, NEXT, LAST_TRAP };
constexpr std::size_t BINDINGS = LAST_TRAP;

}  // namespace vrx::heartbeat_notification
