#include "host/agent/web/alarm_list.h"

#include <algorithm>
#include <utility>

#include "host/agent/objects/managed_object.h"

namespace vrx {

namespace {

constexpr int SHARE = 5;  // a pause is that many times as long as the reading took: the backend has other work

}  // namespace

AlarmList::AlarmList(AgentLoop& loop, ManagedObject* table, std::function<bool()> told, const AlarmListTimes& times,
                     std::function<Clock::time_point()> now)
    : m_table(table),
      m_told(std::move(told)),
      m_times(times),
      m_now(std::move(now)),
      m_state(std::make_shared<State>()),
      m_unused(loop, [this] {
          m_state->last.rows = nullptr;
          ++m_state->last.number;
      }) {
    if (m_table == nullptr) m_state->last.fault = "no module has an alarm table";
}

AlarmReading AlarmList::current() {
    AlarmReading reading = m_state->last;
    reading.stale = m_table != nullptr && isStale();
    m_unused.start(m_times.unused);
    if (reading.stale && !m_state->reading && m_now() >= m_state->next) read();
    return reading;
}

void AlarmList::whenRead(std::function<void(const AlarmReading& reading)> done) {
    const AlarmReading reading = current();
    if (reading.stale && m_state->reading) {
        m_state->waiting.push_back(std::move(done));
    } else {
        done(reading);
    }
}

bool AlarmList::isStale() const {
    const AlarmReading& last = m_state->last;
    if (last.rows == nullptr || !last.fault.empty()) return true;
    if (last.rows->changes() < m_table->snapshots().changes()) return true;
    return !m_told() && m_now() - last.rows->taken() > m_times.untold;
}

void AlarmList::read() {
    const auto begun = m_now();
    const auto time = std::chrono::system_clock::now();
    const std::weak_ptr<State> weak = m_state;
    m_table->refresh([this, weak, begun, time](const ReadOutcome& outcome) {
        const std::shared_ptr<State> state = weak.lock();
        if (state == nullptr) return;  // so is the list
        const auto now = m_now();
        state->reading = false;
        state->next = now + std::max<Clock::duration>(m_times.pause, SHARE * (now - begun));
        AlarmReading& last = state->last;
        if (outcome.snapshot != nullptr || last.fault != outcome.failure) {
            last.fault = outcome.failure;
            ++last.number;
        }
        if (outcome.snapshot != nullptr) {
            last.rows = outcome.snapshot;
            last.time = time;
        }
        AlarmReading reading = last;
        reading.stale = isStale();
        for (const auto& done : std::exchange(state->waiting, {})) done(reading);
    });
    m_state->reading = true;
}

}  // namespace vrx
