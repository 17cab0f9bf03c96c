// Remembers on disk which alarm events are done with: every trap of theirs was sent, or dropped for a reason.
//
//     EventLedger ledger(root + "/state/notifications.db");
//     const auto ticket = ledger.begin(sequence);
//     ledger.hold(ticket);                                     // once per trap
//     sender.submit(..., [&, ticket] { ledger.settle(ticket); });
//     ledger.settle(ticket);                                   // for begin()
//
// What is stored is the number below which nothing is open: events may be done with in any order, but after a restart
// the agent goes on after the first one that was not, so each is handled at least once. It is written at most every
// 100 ms, by a thread of the ledger: a crash repeats the events of that moment. kill -9 and a power cut lose no more.
//
// Threads: any.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>

#include "host/agent/loop/background_writer.h"
#include "host/base/fault_line.h"
#include "host/base/mutex.h"
#include "host/base/sqlite_database.h"

namespace vrx {

class EventLedger {
public:
    using Sequence = unsigned long long;

    // An event under way.
    struct Ticket {
        Sequence sequence = 0;
        std::uint64_t numbering = 0;  // of the backend's store: a younger one starts anew
    };

    // Opens or creates the file. `beforeWrite` is called, by any thread, before a number of events that are done with
    // is written: for what has to be on disk by then, since those events never come again. Throws SqliteError.
    explicit EventLedger(const std::string& path, std::function<void()> beforeWrite = nullptr);
    ~EventLedger();  // writes what is known
    EventLedger(const EventLedger&) = delete;
    EventLedger& operator=(const EventLedger&) = delete;

    // The last event that began, or that an earlier life of the process was done with; nothing when none ever was.
    std::optional<Sequence> lastBegun() const;

    // The last event up to which all are done with.
    std::optional<Sequence> lastDone() const;

    // Identity of the backend's store that the numbers are of; empty when it never told one.
    std::string store() const;

    // Counts from here, in the numbering of that store: on disk when it returns. For the first contact with a backend
    // and for another store than before. Throws SqliteError.
    void startAfter(Sequence sequence, const std::string& store = "");

    // The store that the numbers are of has told its identity; on disk with the next number.
    void setStore(const std::string& store);

    // REQUIRES: `sequence` above lastBegun().
    Ticket begin(Sequence sequence);
    void hold(const Ticket& ticket);
    void settle(const Ticket& ticket);

    // Writes now. Throws SqliteError.
    void flush();

private:
    bool tryToFlush();
    void write(Sequence sequence, const std::string& store) REQUIRES(m_writing);
    Sequence doneLocked() const REQUIRES(m_mutex);

    const std::function<void()> m_beforeWrite;

    Mutex m_writing ACQUIRED_BEFORE(m_mutex);
    SqliteDatabase m_database GUARDED_BY(m_writing);
    FaultLine m_storing;

    mutable Mutex m_mutex;
    std::map<Sequence, unsigned int> m_open GUARDED_BY(m_mutex);  // holds of each event that is under way
    std::optional<Sequence> m_lastBegun GUARDED_BY(m_mutex);
    std::optional<Sequence> m_written GUARDED_BY(m_mutex);
    std::string m_store GUARDED_BY(m_mutex);
    std::string m_writtenStore GUARDED_BY(m_mutex);
    std::uint64_t m_numbering GUARDED_BY(m_mutex) = 0;

    BackgroundWriter m_writer;  // last: its thread uses the others
};

}  // namespace vrx
