#include "host/agent/notifications/event_ledger.h"

#include <exception>
#include <utility>

#include "host/base/log_line.h"
#include "host/log_lines/events.h"

namespace vrx {

namespace {

constexpr const char* SCHEMA =
    "PRAGMA journal_mode=WAL;"
    "PRAGMA synchronous=FULL;"  // a number that was written is not taken back by a power cut
    "CREATE TABLE IF NOT EXISTS ledger (id INTEGER PRIMARY KEY CHECK (id = 1), done INTEGER NOT NULL)";

// Files of older programs have no identity of the store.
constexpr const char* HAS_STORE = "SELECT 1 FROM pragma_table_info('ledger') WHERE name = 'store'";
constexpr const char* ADD_STORE = "ALTER TABLE ledger ADD COLUMN store TEXT";

bool hasRow(const SqliteDatabase& database, const char* query) {
    SqliteStatement statement(database, query);
    SqliteStatement::Run run(statement);
    return run.step();
}

}  // namespace

EventLedger::EventLedger(const std::string& path, std::function<void()> beforeWrite)
    : m_beforeWrite(std::move(beforeWrite)), m_database(path), m_writer([this] { return tryToFlush(); }) {
    try {
        m_database.execute(SCHEMA);
        if (!hasRow(m_database, HAS_STORE)) m_database.execute(ADD_STORE);
        SqliteStatement select(m_database, "SELECT done, store FROM ledger");
        SqliteStatement::Run row(select);
        if (row.step()) {
            m_written = m_lastBegun = row.number(0);
            if (!row.isNull(1)) m_writtenStore = m_store = row.text(1);
        }
    } catch (const SqliteError& fault) {
        throw SqliteError(path + ": " + fault.what());
    }
}

EventLedger::~EventLedger() {
    m_writer.stop();
    try {
        flush();
    } catch (const std::exception& fault) {
        logFault<lines::LAST_EVENT_LOST>(fault.what());
    }
}

std::optional<EventLedger::Sequence> EventLedger::lastBegun() const {
    const MutexLock lock(m_mutex);
    return m_lastBegun;
}

std::optional<EventLedger::Sequence> EventLedger::lastDone() const {
    const MutexLock lock(m_mutex);
    if (!m_lastBegun) return std::nullopt;
    return doneLocked();
}

// REQUIRES: m_lastBegun holds a number.
EventLedger::Sequence EventLedger::doneLocked() const {
    return m_open.empty() ? *m_lastBegun : m_open.begin()->first - 1;
}

std::string EventLedger::store() const {
    const MutexLock lock(m_mutex);
    return m_store;
}

void EventLedger::setStore(const std::string& store) {
    {
        const MutexLock lock(m_mutex);
        if (store == m_store) return;
        m_store = store;
    }
    m_writer.wake();
}

void EventLedger::startAfter(Sequence sequence, const std::string& store) {
    const MutexLock writing(m_writing);
    write(sequence, store);
    const MutexLock lock(m_mutex);
    ++m_numbering;  // events of the old numbering are settled into nothing
    m_open.clear();
    m_lastBegun = m_written = sequence;
    m_store = m_writtenStore = store;
}

EventLedger::Ticket EventLedger::begin(Sequence sequence) {
    const MutexLock lock(m_mutex);
    m_open[sequence] = 1;
    m_lastBegun = sequence;
    return {sequence, m_numbering};
}

void EventLedger::hold(const Ticket& ticket) {
    const MutexLock lock(m_mutex);
    if (ticket.numbering == m_numbering) ++m_open[ticket.sequence];
}

void EventLedger::settle(const Ticket& ticket) {
    {
        const MutexLock lock(m_mutex);
        if (ticket.numbering != m_numbering) return;
        const auto open = m_open.find(ticket.sequence);
        if (open == m_open.end() || --open->second > 0) return;
        const bool first = open == m_open.begin();
        m_open.erase(open);
        if (!first) return;  // the number to store is as before
    }
    m_writer.wake();
}

void EventLedger::flush() {
    const MutexLock writing(m_writing);
    std::optional<Sequence> done;
    std::string store;
    {
        const MutexLock lock(m_mutex);
        if (!m_lastBegun) return;
        done = doneLocked();
        store = m_store;
        if (done == m_written && store == m_writtenStore) return;
    }
    if (m_beforeWrite) m_beforeWrite();
    write(*done, store);
    const MutexLock lock(m_mutex);
    m_written = done;
    m_writtenStore = store;
}

void EventLedger::write(Sequence sequence, const std::string& store) {
    SqliteStatement insert(m_database, "INSERT OR REPLACE INTO ledger (id, done, store) VALUES (1, ?, ?)");
    SqliteStatement::Run row(insert);
    row.bind(1, sequence);
    row.bind(2, store);
    row.step();
}

// False when there is something left. One line for each change of state.
bool EventLedger::tryToFlush() {
    try {
        flush();
    } catch (const SqliteError& fault) {
        m_storing.begins([&] { logLine<lines::LAST_EVENT_NOT_STORED>(fault.what()); });
        return false;
    }
    m_storing.ends([] { logLine<lines::LAST_EVENT_STORED>(); });
    return true;
}

}  // namespace vrx
