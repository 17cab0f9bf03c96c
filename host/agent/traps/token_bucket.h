// How fast traps may follow each other: a bucket of `burst` tokens that fills at `rate` a second. Time is handed in.
//
// Threads: one at a time.
#pragma once

#include <algorithm>
#include <chrono>

namespace vrx {

class TokenBucket {
public:
    using Clock = std::chrono::steady_clock;

    // Starts full. REQUIRES: both above 0.
    TokenBucket(unsigned int rate, unsigned int burst, Clock::time_point now)
        : m_rate(rate), m_burst(burst), m_tokens(burst), m_filled(now) {}

    // Takes a token; false when there is none.
    bool take(Clock::time_point now) {
        fill(now);
        if (m_tokens < 1) return false;
        m_tokens -= 1;
        return true;
    }

    // One that was taken for nothing.
    void putBack() { m_tokens = std::min(m_burst, m_tokens + 1); }

    // When take() succeeds next: `now` or later.
    Clock::time_point nextToken(Clock::time_point now) {
        fill(now);
        if (m_tokens >= 1) return now;
        return now +
               std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>((1 - m_tokens) / m_rate)) +
               Clock::duration(1);
    }

private:
    void fill(Clock::time_point now) {
        if (now <= m_filled) return;
        m_tokens = std::min(m_burst, m_tokens + std::chrono::duration<double>(now - m_filled).count() * m_rate);
        m_filled = now;
    }

    double m_rate;
    double m_burst;
    double m_tokens;
    Clock::time_point m_filled;
};

}  // namespace vrx
