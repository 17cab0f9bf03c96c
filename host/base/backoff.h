// When a peer that could not be reached may be tried again: 50 ms after the first failure, twice as long after each
// further one, up to a second.
//
// Threads: one at a time.
#pragma once

#include <algorithm>
#include <chrono>

namespace vrx {

class Backoff {
public:
    using Clock = std::chrono::steady_clock;

    static constexpr std::chrono::milliseconds SHORTEST{50};
    static constexpr std::chrono::milliseconds LONGEST{1000};

    bool mayTry(Clock::time_point now) const { return now >= m_next; }
    Clock::time_point nextTry() const { return m_next; }

    // An attempt failed. Failures of attempts that began together count once.
    void failed(Clock::time_point now) {
        if (!mayTry(now)) return;
        m_pause = m_pause.count() == 0 ? SHORTEST : std::min(m_pause * 2, LONGEST);
        m_next = now + m_pause;
    }

    void succeeded() { *this = Backoff(); }

private:
    std::chrono::milliseconds m_pause{0};
    Clock::time_point m_next{};
};

}  // namespace vrx
