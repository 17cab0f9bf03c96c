// What the configuration says of notifications.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>

#include "host/agent/delivery/notification_fitting.h"
#include "host/agent/notifications/flap_damping.h"
#include "host/agent/notifications/notification_log.h"

namespace vrx {

struct NotificationLimits {
    std::uint64_t logged = NotificationLog::KEPT;  // entries that the notification log keeps; 0: none are made
    std::size_t messageSize = LONGEST_MESSAGE;     // octets of a message; longer ones have texts shortened
    FlapDampingLimits storms;
    std::chrono::seconds heartbeats{0};  // between two heartbeat traps of a destination; 0: none
};

}  // namespace vrx
