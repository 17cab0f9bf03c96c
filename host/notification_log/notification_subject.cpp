#include "host/notification_log/notification_subject.h"

#include <algorithm>

#include "host/notification_log/tamrel_notifications.h"

namespace vrx {

namespace {

using namespace tamrel_notification;

}  // namespace

const SnmpValue* alarmBinding(const Notification& trap, unsigned int number) {
    static const OidVector BASES[] = {parseOid(COMMON_BASE), parseOid(OWN_BASE)};
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
    const SnmpValue* alarm = alarmBinding(trap, ALARM);
    const SnmpValue* serial = alarmBinding(trap, SERIAL);
    if (alarm == nullptr || serial == nullptr) return "trap " + oidText(trap.oid);
    return "alarm " + std::to_string(alarm->number) + ", serial number " + std::to_string(serial->number);
}

}  // namespace vrx
