// The active alarms for the status page: rows of the alarm table, which are read while somebody looks, and again when
// they have changed. A reading takes as many backend calls as a walk of the table: who asks gets the last one, and a
// later one the next time.
//
// Threads: agent thread.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "host/agent/loop/agent_loop.h"
#include "host/agent/loop/timer.h"
#include "host/agent/objects/table_snapshot.h"

namespace vrx {

class ManagedObject;

struct AlarmReading {
    SnapshotPointer rows;                        // null: they were not read yet
    std::chrono::system_clock::time_point time;  // when they were
    std::string fault;                           // why the last attempt to read them failed; empty: it did not
    std::uint64_t number = 0;                    // another one when anything of the above changes
    bool stale = true;                           // the alarms may have changed since
};

struct AlarmListTimes {
    std::chrono::milliseconds untold{10'000};  // how old rows may get that may have changed unheard
    std::chrono::milliseconds unused{60'000};  // how long rows are kept that nobody asks for
    std::chrono::milliseconds pause{1'000};    // between two readings, at least
};

class AlarmList {
public:
    using Clock = std::chrono::steady_clock;

    // `table` may be null: no module has it. `told`: whether every change of the table is heard of. What is given
    // outlives the list.
    AlarmList(AgentLoop& loop, ManagedObject* table, std::function<bool()> told, const AlarmListTimes& times = {},
              std::function<Clock::time_point()> now = Clock::now);
    AlarmList(const AlarmList&) = delete;
    AlarmList& operator=(const AlarmList&) = delete;

    AlarmReading current();

    // Calls `done` with rows that are not stale once they are read; at once with the last ones where that cannot be
    // yet.
    void whenRead(std::function<void(const AlarmReading& reading)> done);

private:
    struct State {
        AlarmReading last;
        Clock::time_point next;  // no reading begins before
        bool reading = false;
        std::vector<std::function<void(const AlarmReading& reading)>> waiting;  // for its end
    };

    bool isStale() const;
    void read();

    ManagedObject* const m_table;
    const std::function<bool()> m_told;
    const AlarmListTimes m_times;
    const std::function<Clock::time_point()> m_now;
    const std::shared_ptr<State> m_state;  // a reading may end after the list
    LoopTimer m_unused;                    // nobody looks any more
};

}  // namespace vrx
