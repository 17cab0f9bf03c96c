// Which alarm a trap is about, by its bindings: what waits on disk has nothing else to tell it by.
//
// Threads: any.
#pragma once

#include <string>

#include "host/notification_log/notification.h"

namespace vrx {

// The value of binding 1 to 15, of the common trap or an alarm's own; null when there is none.
const SnmpValue* alarmBinding(const Notification& trap, unsigned int number);

// "alarm 4295229443, serial number 7"; "trap 1.3.6.1.6.3.1.1.5.1" of one that is about none.
std::string subjectOf(const Notification& trap);

}  // namespace vrx
