// Reads an object's values through its handler. Everything here runs on the object's worker.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "host/agent/objects/event_rows.h"
#include "host/agent/objects/mib_model.h"
#include "host/agent/objects/table_snapshot.h"
#include "module/snmp_handler.h"

class CSnmpTableBase;

namespace vrx {

// The handler gave no values: it threw, or returned a failure.
class ReadError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

class ObjectReader {
public:
    // `changes` counts the object's changes, for any thread. Object, handler and `eventRows` outlive the reader.
    ObjectReader(const MibObject& object, CSnmpHandler& handler, std::function<std::uint64_t()> changes,
                 const EventRows& eventRows);

    // `obstacle` is asked before the handler is: a text is why the object cannot be read. Before the first reading.
    void setObstacle(std::function<std::optional<std::string>()> obstacle) { m_obstacle = std::move(obstacle); }

    // Another shape of the same object; not while a reading is under way.
    void setShape(const MibObject& object) { m_object = &object; }

    // The handler's whole answer, as records. Throws ReadError.
    std::unique_ptr<CR8KPackageV3> records();

    // The whole object. When it changed during the reading it is read again, for a while, so that the snapshot shows
    // one moment. A table of several batches tells that by the backend's events too: notifications of changes may come
    // after the reading. Throws ReadError.
    SnapshotPointer whole();

    // The same, by way of `before`, an earlier snapshot or null: when the rows that have changed since are known, only
    // these are read. All are once the last time that all were is `wholeAge` ago. Throws ReadError.
    SnapshotPointer current(const SnapshotPointer& before, std::chrono::milliseconds wholeAge);

    // How often the whole object, read for its age, was not what reading changed rows had made of it: never, with a
    // backend that tells every change. Any thread.
    std::uint64_t differences() const { return m_differences; }

    // Only these rows, of a table that readsRows(). Throws ReadError.
    SnapshotPointer rows(const std::vector<std::uint32_t>& numbers);

    // Whether single rows can be asked for: a whole table may be hundreds of backend calls, a row is one.
    bool readsRows() const { return m_batch; }

    // Whether the rows are what the backend answers to that command.
    bool asks(unsigned long long backendCommand) const;

    // What was left out of the readings so far: rows with the number of another one, and records that are no rows. Any
    // thread.
    std::uint64_t duplicates() const;
    std::uint64_t badRecords() const;

private:
    SnapshotPointer broughtUpToDate(const TableSnapshot& before, std::chrono::milliseconds wholeAge);
    std::unique_ptr<CR8KPackageV3> row(std::uint32_t number);
    std::unique_ptr<CR8KPackageV3> query(const CR8KPackageV3& request);
    std::unique_ptr<CR8KPackageV3> batchAfter(std::uint64_t row);
    std::size_t addBatches(TableSnapshot& snapshot);
    void addRows(const CR8KPackageV3& response, TableSnapshot& snapshot);

    const MibObject* m_object;
    CSnmpHandler& m_handler;
    std::function<std::uint64_t()> m_changes;
    const EventRows& m_eventRows;
    std::function<std::optional<std::string>()> m_obstacle;
    CSnmpTableBase* m_table;  // the handler, if it reads in batches
    bool m_batch;             // and gives them one by one
    bool m_large;             // it came in more than one batch when it was read last, or was not read yet
    std::size_t m_rows = 0;   // when it was read last

    std::atomic<std::uint64_t> m_duplicates{0};
    std::atomic<std::uint64_t> m_unnumbered{0};
    std::atomic<std::uint64_t> m_differences{0};
};

}  // namespace vrx
