// How many alarms are active, of each level, and when that changed last: kept up to date from the backend's events, so
// that nobody has to ask the backend or walk a table for it. Stands between the event source and the next listener.
//
//     ActiveAlarms alarms(path);
//     AlarmEventSource source(alarms);
//     alarms.state().active;
//
// Right after each connection the counts are those of the backend's own list; while there is none they stay as they
// were last. They count the backend's alarms: also those that no definition is known for, which no table shows.
//
// Threads: the event source's; state() from any.
#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "host/base/mutex.h"
#include "host/notification_log/fault_level.h"
#include "host/transport/alarm_event_source.h"

namespace vrx {

class ActiveAlarms : public AlarmEventSource::Listener {
public:
    // A moment, by the clock of days and by the one that nobody sets.
    struct Moment {
        std::chrono::system_clock::time_point time;
        std::chrono::steady_clock::time_point steady;
        static Moment now() { return {std::chrono::system_clock::now(), std::chrono::steady_clock::now()}; }
    };

    struct State {
        std::size_t active = 0;
        std::array<std::size_t, FAULT_LEVELS> ofLevel{};  // by FaultLevel, the first one at 0
        std::uint64_t changes = 0;                        // of the alarms, since the agent started
        std::optional<Moment> lastChange;
        std::string store;                  // identity of the backend's store; empty: it does not tell
        unsigned long long lastEvent = 0;   // number of the backend's last event that is known
        std::optional<Moment> lastEventAt;  // when it came; nothing when it was there before the connection
        bool connected = false;             // with the backend
        Moment since = Moment::now();       // it is, or is not
        std::uint64_t connections = 0;      // that were made

        std::size_t of(FaultLevel level) const { return ofLevel.at(static_cast<std::size_t>(level) - 1); }
    };

    // `next` outlives this.
    explicit ActiveAlarms(AlarmEventSource::Listener& next) : m_next(next) {}

    std::optional<HandledEvent> lastHandledEvent() override { return m_next.lastHandledEvent(); }
    void onConnected(const BackendState& state) override;
    void onEvent(const AlarmEvent& event, const CTLVRecordV3& record) override;
    void onDisconnected() override;

    State state() const;

private:
    using Levels = std::unordered_map<unsigned int, FaultLevel>;  // of the active alarms, by serial number

    void noteChange(const Moment& now) REQUIRES(m_mutex);
    void count(FaultLevel level, int difference) REQUIRES(m_mutex);

    AlarmEventSource::Listener& m_next;

    Levels m_levels;                      // the event source's thread only, as the next one
    unsigned long long m_comparedAt = 0;  // the backend's list was read when this was its last event

    mutable Mutex m_mutex;
    State m_state GUARDED_BY(m_mutex);
};

}  // namespace vrx
