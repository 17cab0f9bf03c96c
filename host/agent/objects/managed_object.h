// One object that the agent serves: its shape, its handler on its own worker, and what was read of it.
//
// Threads: agent thread only; what runs on the worker comes back to it through the loop.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "host/agent/loop/agent_loop.h"
#include "host/agent/loop/object_worker.h"
#include "host/agent/objects/mib_model.h"
#include "host/agent/objects/object_reader.h"
#include "host/agent/objects/snapshot_store.h"
#include "host/base/fault_line.h"
#include "module/snmp_handler.h"

namespace vrx {

// What a reading gave: a snapshot, or null when it failed.
struct ReadOutcome {
    SnapshotPointer snapshot;
    std::string failure;
};

// Readings of an object through its handler, whole or of single rows.
struct ReadCounters {
    std::uint64_t reads = 0;
    std::uint64_t failures = 0;  // of these
};

class ManagedObject {
public:
    using TimePoint = SnapshotStore::TimePoint;

    // Shape, handler and loop outlive the object.
    ManagedObject(const MibObject& mib, CSnmpHandler& handler, AgentLoop& loop, const SnapshotLimits& limits);

    const MibObject& mib() const { return *m_mib; }
    CSnmpHandler& handler() { return m_handler; }
    ObjectReader& reader() { return m_reader; }  // for jobs on the worker
    const ObjectReader& reader() const { return m_reader; }
    ObjectWorker& worker() { return m_worker; }
    SnapshotStore& snapshots() { return m_snapshots; }
    const SnapshotStore& snapshots() const { return m_snapshots; }
    const ReadCounters& counters() const { return m_counters; }
    bool readable() const { return !m_reading.lasts(); }  // as the last reading found it

    // Reads the whole object, unless that is under way already. `onRefreshed` tells when it is done.
    void refresh();
    std::function<void(const ReadOutcome&)> onRefreshed;

    // The same, and calls `done` with the outcome of that reading.
    void refresh(std::function<void(const ReadOutcome&)> done);

    // Another shape of the same object, which outlives this one too. REQUIRES: the worker is held between two jobs.
    // Snapshots of the former shape stay valid for the walks that read them.
    void setShape(const MibObject& mib);

    bool readsRows() const { return m_reader.readsRows(); }
    void readRows(std::vector<std::uint32_t> numbers, std::function<void(const ReadOutcome&)> done);

private:
    ReadOutcome attempt(const std::function<SnapshotPointer()>& read) const;
    void refreshed(const ReadOutcome& outcome);
    void noteOutcome(const ReadOutcome& outcome);

    const MibObject* m_mib;
    CSnmpHandler& m_handler;
    AgentLoop& m_loop;
    SnapshotStore m_snapshots;
    ObjectReader m_reader;
    bool m_refreshing = false;
    std::vector<std::function<void(const ReadOutcome&)>> m_awaiting;  // its end
    FaultLine m_reading;
    ReadCounters m_counters;
    ObjectWorker m_worker;  // last: its jobs use the others
};

}  // namespace vrx
