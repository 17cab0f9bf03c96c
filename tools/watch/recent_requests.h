// How many requests were answered lately and how long they took, from the counters of two statuses.
#pragma once

#include <chrono>
#include <deque>
#include <string>
#include <utility>

#include "tools/status_text.h"

namespace vrx {

class RecentRequests {
public:
    using Time = std::chrono::system_clock::time_point;

    // A status that was taken then.
    void add(Time at, const StatusJson& status);

    // "last minute: GET 720, 99 % within 0.26 ms; SET 1, 99 % within 4.2 ms"
    [[nodiscard]] std::string text() const;

private:
    // Counts of one agent begin at zero with it: `requests` of a minute, the oldest first.
    StatusJson m_agent;
    std::deque<std::pair<Time, StatusJson>> m_statuses;
};

}  // namespace vrx
