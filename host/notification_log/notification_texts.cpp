#include "host/notification_log/notification_texts.h"

#include "host/notification_log/fault_level.h"
#include "host/notification_log/notification_codec.h"
#include "host/notification_log/notification_subject.h"
#include "host/notification_log/tamrel_notifications.h"

namespace vrx {

const char* kindText(const LoggedNotification& entry) {
    return entry.raised ? "raise" : "clear";
}

const char* trapText(const LoggedNotification& entry) {
    if (entry.trapOid == tamrel_notification::COMMON) return "common";
    constexpr std::string_view OWN_TRAPS = tamrel_notification::OWN;
    return entry.trapOid.compare(0, OWN_TRAPS.size(), OWN_TRAPS) == 0 ? "own" : "other";
}

std::optional<std::string> levelText(const LoggedNotification& entry) {
    if (!entry.level) return std::nullopt;
    return textOf(faultLevelOf(*entry.level));
}

std::string becauseText(const LoggedNotification& entry) {
    switch (entry.because) {
        case SentBecause::Held:
            return "held while the alarm flapped";
        case SentBecause::Asked:
            return "entry " + std::to_string(entry.again) + " again";
        default:
            return "";
    }
}

std::string descriptionOf(const LoggedNotification& entry) {
    const std::optional<Notification> trap = trapFrom(entry.trap);
    if (!trap) return "(cannot be read)";
    for (const unsigned int number : {tamrel_notification::DESCRIPTION, tamrel_notification::NAME}) {
        const SnmpValue* value = alarmBinding(*trap, number);
        if (value != nullptr && !value->octets.empty()) return value->octets;
    }
    return "";
}

}  // namespace vrx
