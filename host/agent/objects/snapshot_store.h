// Which snapshot answers a read: the rules of one object.
//
// - A client that goes on where an answer of ours to it ended is in a walk, and stays in the walk's snapshot until that
//   is `walkAge` old: one walk sees one moment.
// - Everybody else gets a snapshot that is at most `freshAge` old and was begun after the last change that was heard
// of. While every change is heard of soon it may be `quietAge` old: nothing has changed since. Where only changed rows
// have been read, that counts from when all were.
// - When neither exists the object has to be read again.
//
// Memory: at most `kept` snapshots are held, beside those that requests hold just now; past it the walks in the oldest
// one go on in a fresh one.
//
// Threads: agent thread only, except changes() and what marks them.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <list>
#include <string>
#include <utility>
#include <vector>

#include "host/agent/objects/event_rows.h"
#include "host/agent/objects/table_snapshot.h"
#include "host/snmp/oid_vector.h"

namespace vrx {

struct SnapshotLimits {
    std::chrono::milliseconds walkAge{10'000};
    std::chrono::milliseconds freshAge{1'000};
    std::chrono::milliseconds quietAge{10'000};
    std::size_t kept = 4;
    std::size_t walks = 64;  // remembered at a time, the longest unused forgotten first
};

class SnapshotStore {
public:
    using TimePoint = TableSnapshot::Clock::time_point;

    // What one variable of a request asked for and the last name of its answer.
    struct Span {
        OidVector asked;
        OidVector last;
    };

    explicit SnapshotStore(const SnapshotLimits& limits) : m_limits(limits) {}

    // The snapshot of the walk that the client goes on with at `name`; null when it is in none.
    SnapshotPointer ofWalk(const std::string& client, const OidVector& name, TimePoint now);

    // The last snapshot, when a request that comes now may see it; else null.
    SnapshotPointer fresh(TimePoint now) const;

    // Whether a snapshot whose reading began at `started`, when `changes` changes were known, may answer a request that
    // came at `arrived`, when `changesThen` were known.
    bool answers(std::uint64_t changes, TimePoint started, std::uint64_t changesThen, TimePoint arrived) const;

    void put(SnapshotPointer snapshot, TimePoint now);
    const SnapshotPointer& last() const { return m_last; }  // null when none is held

    // Remembers what a client has got, so that it can go on there; not of a request that is no walk by its size.
    void answered(const std::string& client, const SnapshotPointer& snapshot, std::vector<Span> spans, TimePoint now);

    // Asked whether markChanged() tells every change of the object soon; without it none is told. A change from "no" to
    // "yes" or back comes with a markChanged().
    void setChangeFeedLive(std::function<bool()> told) { m_told = std::move(told); }

    bool feedIsLive() const { return m_told && m_told(); }

    // The object's values have changed, or may have: what was read before is stale.
    void markChanged() {
        m_eventRows.forget();
        ++m_changes;
    }
    // The same of rows that eventRows() has been told.
    void markRowsChanged() { ++m_changes; }
    std::uint64_t changes() const { return m_changes.load(); }  // any thread
    EventRows& eventRows() { return m_eventRows; }

    // Forgets what is past its age.
    void purge(TimePoint now);

    // After which no snapshot is used any more.
    std::chrono::milliseconds longestAge() const;

    const SnapshotLimits& limits() const { return m_limits; }
    void setLimits(const SnapshotLimits& limits) { m_limits = limits; }  // they hold from the next snapshot on
    std::size_t held() const;                                            // snapshots

private:
    struct Walk {
        std::string client;
        SnapshotPointer snapshot;
        std::vector<Span> spans;  // of the last answer
        bool continued;           // the last request went on from an answer: its retry may come
    };

    static bool goesOn(const Walk& walk, const OidVector& name);
    void bound();

    SnapshotLimits m_limits;
    std::function<bool()> m_told;
    std::atomic<std::uint64_t> m_changes{0};
    EventRows m_eventRows;
    SnapshotPointer m_last;
    std::list<Walk> m_walks;  // the last used first
};

}  // namespace vrx
