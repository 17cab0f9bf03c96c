// Entries of the notification log as vrxctl prints them. Texts come from files and backends of others: bytes that are
// no UTF-8 are replaced, and a terminal gets none of their control characters.
//
// Threads: any.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include "host/notification_log/notification.h"
#include "host/notification_log/notification_log_file.h"

namespace vrx {

// An entry as people read it: local time with milliseconds, raise or clear, level, which of the alarm's traps it was,
// where it went, and what happened, for a terminal.
struct TrapTexts {
    std::string time;
    std::string kind;
    std::string level;
    std::string trap;
    std::string destinations;
    std::string text;
};
TrapTexts trapTexts(const LoggedNotification& entry);

// A table of them, a line an entry; each line with its end.
std::string trapTableHead();
std::string trapTableRow(const LoggedNotification& entry);

// With all bindings, for programs.
nlohmann::json jsonOf(const LoggedNotification& entry);
std::string dumped(const nlohmann::json& document, int indent = -1);  // in one line without an indent

std::string joined(const std::vector<std::string>& names);  // "1,3"

// Of a binding: the type's SMI name, and the value in one form for each type.
std::string typeText(unsigned char type);
std::string valueText(const SnmpValue& value);

}  // namespace vrx
