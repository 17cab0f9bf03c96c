// What the configuration says of notifications.
#pragma once

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
};

}  // namespace vrx
