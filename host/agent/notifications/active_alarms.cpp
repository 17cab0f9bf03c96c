#include "host/agent/notifications/active_alarms.h"

#include <utility>

namespace vrx {

void ActiveAlarms::onConnected(const BackendState& state) {
    Levels levels;
    levels.reserve(state.alarms.size());
    for (const ActiveAlarm& alarm : state.alarms) levels[alarm.serial] = faultLevelOf(alarm.level);
    {
        const MutexLock lock(m_mutex);
        if (levels != m_levels) noteChange(Moment::now());
        m_state.active = levels.size();
        m_state.ofLevel = {};
        for (const auto& [serial, level] : levels) count(level, 1);
        if (m_state.lastEvent != state.lastSequence) m_state.lastEventAt.reset();
        m_state.store = state.store;
        m_state.lastEvent = state.lastSequence;
        m_state.connected = true;
        m_state.since = Moment::now();
        ++m_state.connections;
    }
    m_levels = std::move(levels);
    m_comparedAt = state.lastSequence;
    m_next.onConnected(state);
}

// Before the event goes on: who gets its trap and asks then finds it counted. Events that the backend's list was ahead
// of are in the counts already.
void ActiveAlarms::onEvent(const AlarmEvent& event, const CTLVRecordV3& record) {
    if (event.sequence > m_comparedAt) {
        const FaultLevel level = faultLevelOf(event.level.value_or(0));
        const Moment now = Moment::now();
        const auto known = m_levels.find(event.serial);
        const bool isNew = known == m_levels.end();
        const bool changes = event.serial != 0 && event.raised == isNew;
        const FaultLevel counted = isNew ? level : known->second;
        if (changes && isNew) m_levels.emplace(event.serial, level);
        if (changes && !isNew) m_levels.erase(known);
        const MutexLock lock(m_mutex);
        m_state.lastEvent = event.sequence;
        m_state.lastEventAt = now;
        if (changes) {
            m_state.active = m_levels.size();
            count(counted, isNew ? 1 : -1);
            noteChange(now);
        }
    }
    m_next.onEvent(event, record);
}

void ActiveAlarms::onDisconnected() {
    {
        const MutexLock lock(m_mutex);
        m_state.connected = false;
        m_state.since = Moment::now();
    }
    m_next.onDisconnected();
}

ActiveAlarms::State ActiveAlarms::state() const {
    const MutexLock lock(m_mutex);
    return m_state;
}

void ActiveAlarms::noteChange(const Moment& now) {
    ++m_state.changes;
    m_state.lastChange = now;
}

void ActiveAlarms::count(FaultLevel level, int difference) {
    m_state.ofLevel.at(static_cast<std::size_t>(level) - 1) += static_cast<std::size_t>(difference);
}

}  // namespace vrx
