#include "host/agent/objects/managed_object.h"

#include <exception>
#include <utility>

#include "host/base/log_line.h"
#include "host/log_lines/requests.h"

namespace vrx {

ManagedObject::ManagedObject(const MibObject& mib, CSnmpHandler& handler, AgentLoop& loop, const SnapshotLimits& limits)
    : m_mib(&mib),
      m_handler(handler),
      m_loop(loop),
      m_snapshots(limits),
      m_reader(
          mib, handler, [this] { return m_snapshots.changes(); }, m_snapshots.eventRows()),
      m_worker(mib.name) {}

void ManagedObject::setShape(const MibObject& mib) {
    m_mib = &mib;
    m_reader.setShape(mib);
    m_snapshots.markChanged();
}

ReadOutcome ManagedObject::attempt(const std::function<SnapshotPointer()>& read) const {
    try {
        return {read(), {}};
    } catch (const std::exception& error) {
        return ReadOutcome{nullptr, error.what()};
    }
}

void ManagedObject::refresh() {
    if (m_refreshing) return;
    const SnapshotPointer before = m_snapshots.feedIsLive() ? m_snapshots.last() : nullptr;
    m_worker.submit([this, before, wholeAge = m_snapshots.limits().quietAge] {
        const ReadOutcome outcome = attempt([&] { return m_reader.current(before, wholeAge); });
        m_loop.post([this, outcome] { refreshed(outcome); });
    });
    m_refreshing = true;  // the answer comes on this thread
}

void ManagedObject::refresh(std::function<void(const ReadOutcome&)> done) {
    m_awaiting.push_back(std::move(done));
    refresh();
}

void ManagedObject::refreshed(const ReadOutcome& outcome) {
    m_refreshing = false;
    noteOutcome(outcome);
    if (outcome.snapshot != nullptr) m_snapshots.put(outcome.snapshot, TableSnapshot::Clock::now());
    if (onRefreshed) onRefreshed(outcome);  // first: requests wait for it
    for (const auto& done : std::exchange(m_awaiting, {})) done(outcome);
    if (outcome.snapshot == nullptr) return;
    // Frees what nobody goes on with.
    const auto purgeAfter = [this](std::chrono::milliseconds age) {
        m_loop.runAfter(age + std::chrono::milliseconds(1), [this] { m_snapshots.purge(TableSnapshot::Clock::now()); });
    };
    const std::chrono::milliseconds walkAge = m_snapshots.limits().walkAge;
    purgeAfter(walkAge);
    if (m_snapshots.longestAge() > walkAge) purgeAfter(m_snapshots.longestAge());
}

void ManagedObject::readRows(std::vector<std::uint32_t> numbers, std::function<void(const ReadOutcome&)> done) {
    m_worker.submit([this, numbers = std::move(numbers), done = std::move(done)] {
        const ReadOutcome outcome = attempt([&] { return m_reader.rows(numbers); });
        m_loop.post([this, done, outcome] {
            noteOutcome(outcome);
            done(outcome);
        });
    });
}

void ManagedObject::noteOutcome(const ReadOutcome& outcome) {
    const bool failing = outcome.snapshot == nullptr;
    ++m_counters.reads;
    if (failing) ++m_counters.failures;
    if (failing) {
        m_reading.begins([&] { logLine<lines::OBJECT_UNREADABLE>(m_mib->name, outcome.failure); });
    } else {
        m_reading.ends([&] { logLine<lines::OBJECT_READABLE>(m_mib->name); });
    }
}

}  // namespace vrx
