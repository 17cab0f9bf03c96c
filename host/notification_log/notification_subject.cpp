#include "host/notification_log/notification_subject.h"

#include <algorithm>

namespace vrx {

namespace {

constexpr unsigned int SERIAL_BINDING = 9;
constexpr unsigned int ALARM_BINDING = 12;

// Of the common trap, and of those that alarms have for themselves.
const OidVector BASES[] = {{1, 3, 6, 1, 4, 1, 99871, 2, 91, 10, 3, 1, 1}, {1, 3, 6, 1, 4, 1, 99871, 2, 251, 20, 1, 3}};

}  // namespace

const SnmpValue* alarmBinding(const Notification& trap, unsigned int number) {
    for (const OidVector& base : BASES) {
        OidVector name = base;
        name.insert(name.end(), {number, 0});
        const auto found = std::find_if(trap.bindings.begin(), trap.bindings.end(),
                                        [&name](const NotificationBinding& binding) { return binding.name == name; });
        if (found != trap.bindings.end()) return &found->value;
    }
    return nullptr;
}

std::string subjectOf(const Notification& trap) {
    const SnmpValue* alarm = alarmBinding(trap, ALARM_BINDING);
    const SnmpValue* serial = alarmBinding(trap, SERIAL_BINDING);
    if (alarm == nullptr || serial == nullptr) return "trap " + oidText(trap.oid);
    return "alarm " + std::to_string(alarm->number) + ", serial number " + std::to_string(serial->number);
}

}  // namespace vrx
