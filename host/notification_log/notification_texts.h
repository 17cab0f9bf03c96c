// An entry of the notification log in words.
//
// Threads: any.
#pragma once

#include <optional>
#include <string>

#include "host/notification_log/notification_log_file.h"

namespace vrx {

const char* kindText(const LoggedNotification& entry);  // "raise" or "clear"

// Which of the alarm's traps it is: "common", the one that all alarms have in common, its "own", or "other".
const char* trapText(const LoggedNotification& entry);

std::optional<std::string> levelText(const LoggedNotification& entry);  // "critical"

// Why it was sent when it was; empty for the usual.
std::string becauseText(const LoggedNotification& entry);

// What happened, in full, or the alarm's name where that is empty; in the trap's own bytes.
std::string descriptionOf(const LoggedNotification& entry);

}  // namespace vrx
