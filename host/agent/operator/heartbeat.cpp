#include "host/agent/operator/heartbeat.h"

#include <string>

#include "host/agent/assembly/notification_service.h"
#include "host/agent/engine/snmp_engine.h"
#include "host/base/log_line.h"
#include "host/log_lines/start.h"

namespace vrx {

namespace {

// "3 min", "26 h 10 min"
std::string durationOf(unsigned long seconds) {
    constexpr unsigned long MINUTE = 60;
    constexpr unsigned long HOUR = 60 * MINUTE;
    if (seconds < MINUTE) return std::to_string(seconds) + " s";
    const std::string minutes = std::to_string(seconds % HOUR / MINUTE) + " min";
    return seconds < HOUR ? minutes : std::to_string(seconds / HOUR) + " h " + minutes;
}

}  // namespace

Heartbeat::Heartbeat(AgentLoop& loop, const SnmpEngine& engine, const NotificationService& notifications)
    : m_engine(engine), m_notifications(notifications), m_last(counts()), m_timer(loop, [this] { beat(); }) {}

void Heartbeat::setPeriod(std::chrono::seconds period) {
    if (period == m_period) return;
    m_period = period;
    m_timer.cancel();
    if (period.count() > 0) m_timer.start(period);
}

void Heartbeat::beat() {
    m_timer.start(m_period);
    const Counts now = counts();
    const ActiveAlarms::State alarms = m_notifications.alarms();
    logLine<lines::HEARTBEAT>(durationOf(m_engine.identity().uptimeSeconds), alarms.connected ? "connected" : "away",
                              alarms.active, now.events - m_last.events, now.sent - m_last.sent,
                              now.dropped - m_last.dropped);
    m_last = now;
}

Heartbeat::Counts Heartbeat::counts() const {
    const TrapCounters traps = m_notifications.trapTotals();
    return {m_notifications.status().path.events, traps.sent, traps.droppedInAll()};
}

}  // namespace vrx
