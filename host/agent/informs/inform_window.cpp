#include "host/agent/informs/inform_window.h"

#include <algorithm>
#include <functional>
#include <iterator>
#include <string>

#include "host/notification_log/notification_subject.h"
#include "host/notification_log/tamrel_notifications.h"

namespace vrx {

namespace {

std::optional<InformWindow::Alarm> alarmOf(const Notification& trap) {
    const SnmpValue* serial = alarmBinding(trap, tamrel_notification::SERIAL);
    const SnmpValue* identifier = alarmBinding(trap, tamrel_notification::ALARM);
    const SnmpValue* location = alarmBinding(trap, tamrel_notification::LOCATION);
    if (serial == nullptr || identifier == nullptr || location == nullptr) return std::nullopt;
    return InformWindow::Alarm{serial->number, identifier->number, std::hash<std::string>()(location->octets)};
}

bool areOfOneAlarm(const std::optional<InformWindow::Alarm>& a, const std::optional<InformWindow::Alarm>& b) {
    if (!a || !b) return !a && !b;
    return a->serial == b->serial || (a->identifier == b->identifier && a->location == b->location);
}

}  // namespace

void InformWindow::take(const Inform& inform) {
    Entry entry;
    entry.inform = inform;
    entry.alarm = alarmOf(*inform.trap);
    entry.earlier =
        static_cast<unsigned int>(std::count_if(m_entries.begin(), m_entries.end(), [&entry](const Entry& other) {
            return areOfOneAlarm(other.alarm, entry.alarm);
        }));
    m_entries.push_back(entry);
    m_lastTaken = inform.number;
}

InformWindow::Entry* InformWindow::next(unsigned int limit) {
    m_limit = limit;
    if (m_underWay >= std::min(m_size, limit)) return nullptr;
    for (Entry& entry : m_entries) {
        if (!entry.isUnderWay && entry.earlier == 0) return &entry;
    }
    return nullptr;
}

void InformWindow::sent(Entry& entry, Clock::time_point now) {
    ++m_underWay;
    entry.isUnderWay = true;
    entry.early = 0;
    entry.overtaken = 0;
    entry.turn = ++m_turns;
    entry.answers = m_answers;
    entry.sentAt = now;
}

InformWindow::Entry* InformWindow::overtaken() {
    unsigned int least = OVERTAKEN;
    for (const Entry& entry : m_entries) {
        if (entry.isUnderWay && entry.early == 0) least = std::min(least, entry.overtaken);
    }
    const unsigned int lost = least >= OVERTAKEN_AT_THE_END ? OVERTAKEN_AT_THE_END : OVERTAKEN;
    for (Entry& entry : m_entries) {
        if (entry.isUnderWay && entry.early < EARLY && entry.overtaken >= lost) return &entry;
    }
    return nullptr;
}

void InformWindow::sentEarly(Entry& entry) {
    ++entry.early;
    entry.overtaken = 0;
    entry.turn = ++m_turns;
}

InformWindow::Entry* InformWindow::find(std::uint64_t number) {
    for (Entry& entry : m_entries) {
        if (entry.inform.number == number) return &entry;
    }
    return nullptr;
}

void InformWindow::answered(const Entry& entry, Clock::time_point now, std::chrono::milliseconds firstRetry) {
    ++m_answers;
    if (entry.early > 0) return;  // nobody knows to which of its messages this is the answer
    for (Entry& other : m_entries) {
        if (other.isUnderWay && other.turn < entry.turn) ++other.overtaken;
    }
    const Clock::duration took = now - entry.sentAt;
    if (took * 2 > firstRetry) {
        m_size = std::max(1U, m_size - 1);
    } else if (m_underWay >= m_size && entry.turn > m_grownAt) {  // sent when as many were under way
        if (took * 4 <= firstRetry) {
            m_size *= 2;
        } else if (took * 2 * (m_size + 1) <= firstRetry * m_size) {
            ++m_size;
        }
        m_size = std::min(m_size, m_limit);
        m_grownAt = m_turns + m_size - std::min(m_size, m_underWay);
    }
}

// Those that were sent together with one that shrank it are no reason to do so again.
void InformWindow::unanswered(const Entry& entry) {
    if (!isAnsweredSince(entry)) {
        m_size = 1;
    } else if (entry.turn > m_shrunkAt) {
        m_size = std::max(1U, m_size / 2);
        m_shrunkAt = m_turns;
    }
}

void InformWindow::remove(const Entry& entry) {
    const auto at = std::find_if(m_entries.begin(), m_entries.end(), [&](const Entry& e) { return &e == &entry; });
    if (at == m_entries.end()) return;
    release(*at);
    for (auto later = std::next(at); later != m_entries.end(); ++later) {
        if (areOfOneAlarm(later->alarm, at->alarm)) --later->earlier;
    }
    m_entries.erase(at);
}

void InformWindow::release(Entry& entry) {
    if (entry.isUnderWay) --m_underWay;
    entry.isUnderWay = false;
}

void InformWindow::restart() {
    for (Entry& entry : m_entries) release(entry);
    m_size = 1;
}

}  // namespace vrx
