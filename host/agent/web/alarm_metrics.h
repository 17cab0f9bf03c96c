// Each active alarm as a series: text for collectors, beside the agent's other metrics.
//
//     vrx_alarm{node="VRX-0001",serial="77",alarm_id="4295229443",name="Disk Failed",level="major",...} 1
//     vrx_alarm_start_time_seconds{node="VRX-0001",serial="77"} 1763712000
//
// Made once for each change of the alarms, however often it is asked for.
//
// Threads: text() from those of requests; made and destroyed on the agent thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "host/agent/loop/agent_thread_call.h"
#include "host/agent/web/alarm_list.h"
#include "host/base/mutex.h"

namespace vrx {

class AlarmMetrics {
public:
    // `most`: how many alarms there may be, the newest ones; asked on the agent thread. What is given outlives it.
    AlarmMetrics(AlarmList& alarms, std::function<std::size_t()> most);

    // Waits for the alarms to be read where they have changed. Throws std::runtime_error when the agent has no time.
    std::string text(AgentThreadCall& caller);

private:
    struct Made {
        std::uint64_t reading = 0;
        std::size_t most = 0;
        std::shared_ptr<const std::string> text;  // null: none yet
    };

    AlarmList& m_alarms;
    const std::function<std::size_t()> m_most;
    Mutex m_mutex;
    Made m_made GUARDED_BY(m_mutex);
};

// Of the newest `most` rows; the last metric says how many are left out.
std::string alarmSeries(const TableSnapshot& snapshot, std::size_t most);

}  // namespace vrx
