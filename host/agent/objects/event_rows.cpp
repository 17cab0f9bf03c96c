#include "host/agent/objects/event_rows.h"

#include <algorithm>

namespace vrx {

void EventRows::add(std::uint64_t event, std::uint32_t row) noexcept {
    const MutexLock lock(m_mutex);
    const bool none = m_first > m_last;
    if (none || event != m_last + 1) m_first = event;
    m_last = event;
    m_rows[event % MOST] = row;
    if (m_last - m_first >= MOST) m_first = m_last - MOST + 1;
}

void EventRows::forget() noexcept {
    const MutexLock lock(m_mutex);
    m_first = 1;
    m_last = 0;
    ++m_forgotten;
}

std::uint64_t EventRows::forgotten() const {
    const MutexLock lock(m_mutex);
    return m_forgotten;
}

std::optional<std::vector<std::uint32_t>> EventRows::between(std::uint64_t after, std::uint64_t upTo) const {
    std::vector<std::uint32_t> rows;
    if (after == upTo) return rows;
    const MutexLock lock(m_mutex);
    if (after > upTo || after + 1 < m_first || upTo > m_last) return std::nullopt;
    for (std::uint64_t event = after + 1; event <= upTo; ++event) rows.push_back(m_rows[event % MOST]);
    std::sort(rows.begin(), rows.end());
    rows.erase(std::unique(rows.begin(), rows.end()), rows.end());
    return rows;
}

}  // namespace vrx
