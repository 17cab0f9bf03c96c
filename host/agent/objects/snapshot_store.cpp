#include "host/agent/objects/snapshot_store.h"

#include <algorithm>
#include <set>
#include <utility>

namespace vrx {

namespace {

constexpr std::size_t MOST_SPANS = 256;  // of a walk; a request of more variables is none, and is not remembered

}  // namespace

SnapshotPointer SnapshotStore::ofWalk(const std::string& client, const OidVector& name, TimePoint now) {
    purge(now);
    const auto walk = std::find_if(m_walks.begin(), m_walks.end(), [&](const Walk& candidate) {
        return candidate.client == client && goesOn(candidate, name);
    });
    return walk == m_walks.end() ? nullptr : walk->snapshot;
}

// An answer that is too large for a message loses its end, so a client may go on from any name of it. The name that
// the last request asked for comes again when its answer was lost; at the start of a walk it means a new walk.
bool SnapshotStore::goesOn(const Walk& walk, const OidVector& name) {
    return std::any_of(walk.spans.begin(), walk.spans.end(), [&](const Span& span) {
        return (span.asked < name && name <= span.last) || (walk.continued && name == span.asked);
    });
}

SnapshotPointer SnapshotStore::fresh(TimePoint now) const {
    if (m_last == nullptr || !answers(m_last->changes(), m_last->taken(), changes(), now)) return nullptr;
    const auto& origin = m_last->origin();
    const auto whole = origin ? origin->wholeSince : m_last->taken();
    const bool isYoung = now - m_last->taken() <= m_limits.freshAge || now - whole <= m_limits.quietAge;
    return isYoung ? m_last : nullptr;
}

bool SnapshotStore::answers(std::uint64_t changes, TimePoint started, std::uint64_t changesThen,
                            TimePoint arrived) const {
    if (changes < changesThen) return false;
    const auto age = arrived - started;
    return age <= m_limits.freshAge || (age <= m_limits.quietAge && feedIsLive());
}

void SnapshotStore::put(SnapshotPointer snapshot, TimePoint now) {
    m_last = std::move(snapshot);
    purge(now);
    bound();
}

void SnapshotStore::answered(const std::string& client, const SnapshotPointer& snapshot, std::vector<Span> spans,
                             TimePoint now) {
    if (spans.empty() || spans.size() > MOST_SPANS) return;
    const auto before = std::find_if(m_walks.begin(), m_walks.end(), [&](const Walk& walk) {
        return walk.client == client && walk.snapshot == snapshot &&
               std::any_of(spans.begin(), spans.end(), [&](const Span& span) { return goesOn(walk, span.asked); });
    });
    const bool continued = before != m_walks.end();
    if (continued) m_walks.erase(before);
    m_walks.push_front({client, snapshot, std::move(spans), continued});
    purge(now);
    bound();
}

void SnapshotStore::purge(TimePoint now) {
    m_walks.remove_if([&](const Walk& walk) { return now - walk.snapshot->taken() > m_limits.walkAge; });
    if (m_last != nullptr && now - m_last->taken() > longestAge()) m_last = nullptr;
}

std::chrono::milliseconds SnapshotStore::longestAge() const {
    return std::max({m_limits.walkAge, m_limits.freshAge, m_told ? m_limits.quietAge : m_limits.freshAge});
}

void SnapshotStore::bound() {
    while (m_walks.size() > m_limits.walks) m_walks.pop_back();
    while (held() > std::max<std::size_t>(m_limits.kept, 1)) {
        const auto oldest = std::min_element(m_walks.begin(), m_walks.end(), [](const Walk& a, const Walk& b) {
            return a.snapshot->taken() < b.snapshot->taken();
        });
        const SnapshotPointer snapshot = oldest->snapshot;
        m_walks.remove_if([&](const Walk& walk) { return walk.snapshot == snapshot; });
    }
}

std::size_t SnapshotStore::held() const {
    std::set<const TableSnapshot*> snapshots;
    for (const Walk& walk : m_walks) snapshots.insert(walk.snapshot.get());
    if (m_last != nullptr) snapshots.insert(m_last.get());
    return snapshots.size();
}

}  // namespace vrx
