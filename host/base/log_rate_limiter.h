// How many lines somebody else may make us write: a sender of malformed messages must not fill the disk with what the
// SNMP library says of each.
//
//     if (const auto more = limiter.take(now)) { if (*more > 0) say(*more); write(line); }
//
// Threads: one at a time.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>

namespace vrx {

class LogRateLimiter {
public:
    using TimePoint = std::chrono::steady_clock::time_point;

    LogRateLimiter(unsigned int lines, std::chrono::seconds period) : m_lines(lines), m_period(period) {}

    // Nothing when the line is to be left out; else the number of lines that were left out since the last one written.
    std::optional<std::uint64_t> take(TimePoint now) {
        if (now - m_start >= m_period) {
            m_start = now;
            m_written = 0;
        }
        if (m_written == m_lines) {
            ++m_leftOut;
            return std::nullopt;
        }
        ++m_written;
        const std::uint64_t before = m_leftOut;
        m_leftOut = 0;
        return before;
    }

private:
    const unsigned int m_lines;
    const std::chrono::seconds m_period;
    TimePoint m_start{};
    unsigned int m_written = 0;
    std::uint64_t m_leftOut = 0;
};

}  // namespace vrx
