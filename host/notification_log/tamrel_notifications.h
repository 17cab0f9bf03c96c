// The alarm module's notifications by their OIDs: those that agent and vrxctl tell apart.
//
// Threads: any.
#pragma once

#include <string_view>

namespace vrx::tamrel_notification {

// The notification that all alarms have in common, and what the names of an alarm's own one begin with.
constexpr std::string_view COMMON = "1.3.6.1.4.1.99871.2.91.10.2.1.0.1";
constexpr std::string_view OWN = "1.3.6.1.4.1.99871.2.91.10.2.1.1.";

// Their bindings are BASE.NUMBER.0, with the same numbers.
constexpr const char* COMMON_BASE = "1.3.6.1.4.1.99871.2.91.10.3.1.1";
constexpr const char* OWN_BASE = "1.3.6.1.4.1.99871.2.251.20.1.3";

enum Binding : unsigned int { NODE = 1, LOCATION = 2, ADVICE = 3, NAME = 4, SERIAL = 9, DESCRIPTION = 10, ALARM = 12 };

}  // namespace vrx::tamrel_notification
