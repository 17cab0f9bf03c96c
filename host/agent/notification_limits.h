// What the configuration says of notifications.
#pragma once

#include <cstdint>

#include "host/agent/notification_log.h"
#include "host/agent/storm_pacing.h"

struct NotificationLimits {
    std::uint64_t logged = NotificationLog::KEPT;  // entries that the notification log keeps; 0: none are made
    StormLimits storms;
};
