#include "host/destinations/trap_destination_store.h"

#include <sys/stat.h>

#include <algorithm>
#include <exception>
#include <new>
#include <stdexcept>
#include <utility>

#include "host/base/log_line.h"
#include "host/base/memory_retry.h"
#include "host/base/sqlite_database.h"
#include "host/destinations/trap_destination_checks.h"
#include "host/destinations/trap_destination_result.h"
#include "host/destinations/trap_destination_rows.h"
#include "host/log_lines/files.h"
#include "platform/vrx_utility.h"

namespace vrx {

namespace {

constexpr int SCHEMA_VERSION = 1;

// EXTRA: with a rollback journal only this makes a commit outlast a power failure right after it.
constexpr const char* OPEN_SQL =
    "PRAGMA journal_mode=DELETE;"
    "PRAGMA synchronous=EXTRA;";

std::string createSql() {
    return "BEGIN IMMEDIATE;"
           "CREATE TABLE destination("
           "  number INTEGER PRIMARY KEY CHECK(number BETWEEN 1 AND " +
           std::to_string(destination_check::HIGHEST_NUMBER) +
           "),"
           "  address TEXT NOT NULL, canonical TEXT NOT NULL, port INTEGER NOT NULL, version INTEGER NOT NULL,"
           "  trap_type INTEGER NOT NULL, user TEXT NOT NULL,"
           "  UNIQUE(canonical, port, user));"
           "CREATE TABLE numbering(last INTEGER NOT NULL);"
           "INSERT INTO numbering VALUES(0);"
           "PRAGMA user_version=1;"
           "COMMIT;";
}

bool isSame(const tTrapDestInfo& a, const tTrapDestInfo& b) {
    return a.port == b.port && a.user == b.user &&
           destination_check::canonicalAddress(a.address) == destination_check::canonicalAddress(b.address);
}

// The number of an index text; 0, which no row has, for any other text.
unsigned int numberOf(const std::string& index) {
    const unsigned int number = StrToUint(index);
    return UintToStr(number) == index ? number : 0;
}

}  // namespace

// The file and its statements. Every operation throws SqliteError.
class TrapDestinationStore::Database {
public:
    explicit Database(const std::string& path) : m_database(path) {
        try {
            prepare(path);
        } catch (const SqliteError& error) {
            throw SqliteError(path + ": " + error.what());
        }
    }

    Rows readRows() { return readTrapDestinationRows(m_database); }

    unsigned int readLastNumber() { return static_cast<unsigned int>(readNumber("SELECT last FROM numbering")); }

    void begin() { m_database.begin(); }
    void commit() { m_database.execute("COMMIT"); }
    void rollBack() { m_database.rollBack(); }

    void insert(unsigned int number, const tTrapDestInfo& row) { write(m_statements->insert, number, row); }
    void update(unsigned int number, const tTrapDestInfo& row) { write(m_statements->update, number, row); }
    void remove(unsigned int number) { execute(m_statements->remove, number); }
    void writeLastNumber(unsigned int number) { execute(m_statements->numbering, number); }

private:
    struct Statements {
        explicit Statements(const SqliteDatabase& database)
            : insert(database,
                     "INSERT INTO destination(number, address, canonical, port, version, trap_type, user)"
                     " VALUES(?1, ?2, ?3, ?4, ?5, ?6, ?7)"),
              update(database,
                     "UPDATE destination SET address=?2, canonical=?3, port=?4, version=?5, trap_type=?6, user=?7"
                     " WHERE number=?1"),
              remove(database, "DELETE FROM destination WHERE number=?1"),
              numbering(database, "UPDATE numbering SET last=?1") {}

        SqliteStatement insert;
        SqliteStatement update;
        SqliteStatement remove;
        SqliteStatement numbering;
    };

    void prepare(const std::string& path) {
        m_database.execute(OPEN_SQL);
        const unsigned long long version = readNumber("PRAGMA user_version");
        if (version == 0) {
            m_database.execute(createSql().c_str());
        } else if (version != SCHEMA_VERSION) {
            throw SqliteError("schema " + std::to_string(version) + " is not known");
        }
        if (chmod(path.c_str(), S_IRUSR | S_IWUSR) != 0) throw SqliteError("cannot be made private");
        m_statements = std::make_unique<Statements>(m_database);
    }

    unsigned long long readNumber(const char* sql) {
        SqliteStatement statement(m_database, sql);
        SqliteStatement::Run run(statement);
        if (!run.step()) throw SqliteError("the database is not complete");
        return run.number(0);
    }

    static void execute(SqliteStatement& statement, unsigned int number) {
        SqliteStatement::Run run(statement);
        run.bind(1, number);
        run.step();
    }

    static void write(SqliteStatement& statement, unsigned int number, const tTrapDestInfo& row) {
        const std::string canonical = destination_check::canonicalAddress(row.address);
        SqliteStatement::Run run(statement);
        run.bind(1, number);
        run.bind(2, row.address);
        run.bind(3, canonical);
        run.bind(4, row.port);
        run.bind(5, row.version);
        run.bind(6, row.trapType);
        run.bind(7, row.user);
        run.step();
    }

    SqliteDatabase m_database;
    std::unique_ptr<Statements> m_statements;
};

TrapDestinationStore::TrapDestinationStore(const std::string& path, std::size_t limit)
    : m_path(path), m_limit(limit), m_database(std::make_unique<Database>(path)), m_rows(m_database->readRows()) {}

TrapDestinationStore::~TrapDestinationStore() = default;

TrapDestinationStore::Transaction::Transaction(TrapDestinationStore& store) : m_store(store) {
    m_store.begin();
}

TrapDestinationStore::Transaction::~Transaction() {
    if (m_open) m_store.rollBack();
}

void TrapDestinationStore::Transaction::assignNext(unsigned int number) {
    m_store.m_nextNumber = number;
}

int TrapDestinationStore::Transaction::commit() {
    if (!m_open) return TRAP_DESTINATION_STORE_FAILED;
    m_open = false;
    const bool changed = m_store.m_changed;
    const int result = m_store.commit();
    if (result == TRAP_DESTINATION_OK && changed) m_store.notify();
    return result;
}

void TrapDestinationStore::begin() {
    {
        MutexLock lock(m_mutex);
        m_ended.wait(lock, [this]() REQUIRES(m_mutex) { return !m_open; });
        m_open = true;
    }
    m_changed = false;
    m_failed = false;
    m_nextNumber = 0;
    try {
        {
            const MutexLock lock(m_mutex);
            m_working = m_rows;
        }
        m_database->begin();
        m_lastNumber = m_database->readLastNumber();
    } catch (const SqliteError& error) {
        m_failed = true;
        noteFailure(error.what());
    } catch (...) {
        rollBack();
        throw;
    }
    m_writer = std::this_thread::get_id();
}

void TrapDestinationStore::end() {
    m_writer = std::thread::id();
    const MutexLock lock(m_mutex);
    m_open = false;
    m_ended.notify_one();
}

int TrapDestinationStore::commit() {
    if (m_failed) {
        rollBack();
        return TRAP_DESTINATION_STORE_FAILED;
    }
    try {
        m_database->commit();
    } catch (const std::exception& error) {
        noteFailure(error.what());
        rollBack();
        return TRAP_DESTINATION_STORE_FAILED;
    }
    {
        const MutexLock lock(m_mutex);
        m_rows.swap(m_working);
    }
    if (m_changed) noteSuccess();
    end();
    return TRAP_DESTINATION_OK;
}

// One line for each change of state. Without memory for it the next failure tells.
void TrapDestinationStore::noteFailure(const char* reason) {
    m_writing.begins([&] { logLine<lines::DESTINATIONS_NOT_WRITTEN>(m_path, reason); });
}

void TrapDestinationStore::noteSuccess() {
    m_writing.ends([&] { logLine<lines::DESTINATIONS_WRITTEN>(m_path); });
}

void TrapDestinationStore::rollBack() {
    m_database->rollBack();
    end();
}

// Runs one change, within the thread's transaction or one of its own.
template <typename Change>
int TrapDestinationStore::change(Change body) {
    if (isInTransaction()) return changeInTransaction(body);
    Transaction transaction(*this);
    const int result = changeInTransaction(body);
    return result != TRAP_DESTINATION_OK ? result : transaction.commit();
}

template <typename Change>
int TrapDestinationStore::changeInTransaction(Change body) {
    if (m_failed) return TRAP_DESTINATION_STORE_FAILED;
    try {
        const int result = body();
        if (result == TRAP_DESTINATION_OK) m_changed = true;
        return result;
    } catch (const SqliteError& error) {
        m_failed = true;
        noteFailure(error.what());
        return TRAP_DESTINATION_STORE_FAILED;
    } catch (...) {
        m_failed = true;  // file and m_working may differ
        throw;
    }
}

bool TrapDestinationStore::isDuplicate(const tTrapDestInfo& destination, unsigned int number) const {
    return std::any_of(m_working.begin(), m_working.end(), [&](const Rows::value_type& row) {
        return row.first != number && isSame(row.second, destination);
    });
}

// 0 when all numbers are taken.
unsigned int TrapDestinationStore::nextNumber() const {
    for (unsigned int step = 0; step < destination_check::HIGHEST_NUMBER; ++step) {
        const unsigned int number = (m_lastNumber + step) % destination_check::HIGHEST_NUMBER + 1;
        if (m_working.count(number) == 0) return number;
    }
    return 0;
}

int TrapDestinationStore::create(const tTrapDestInfo& destination) {
    return change([&]() -> int {
        const unsigned int asked = std::exchange(m_nextNumber, 0);
        if (asked > destination_check::HIGHEST_NUMBER) return TRAP_DESTINATION_BAD_VALUE;
        if (m_working.count(asked) != 0) return TRAP_DESTINATION_NUMBER_TAKEN;
        if (isDuplicate(destination, 0)) return TRAP_DESTINATION_DUPLICATE;
        const unsigned int number = asked != 0 ? asked : nextNumber();
        if (m_working.size() >= m_limit || number == 0) return TRAP_DESTINATION_LIMIT;

        m_database->insert(number, destination);
        if (asked == 0) {
            m_database->writeLastNumber(number);
            m_lastNumber = number;
        }
        tTrapDestInfo& row = m_working[number];
        row = destination;
        row.index = UintToStr(number);
        return TRAP_DESTINATION_OK;
    });
}

int TrapDestinationStore::modify(const tTrapDestInfo& destination) {
    return change([&]() -> int {
        const auto row = m_working.find(numberOf(destination.index));
        if (row == m_working.end()) return TRAP_DESTINATION_NO_ROW;
        if (isDuplicate(destination, row->first)) return TRAP_DESTINATION_DUPLICATE;
        m_database->update(row->first, destination);
        row->second = destination;
        return TRAP_DESTINATION_OK;
    });
}

int TrapDestinationStore::remove(const std::string& index) {
    return change([&]() -> int {
        const auto row = m_working.find(numberOf(index));
        if (row == m_working.end()) return TRAP_DESTINATION_NO_ROW;
        m_database->remove(row->first);
        m_working.erase(row);
        return TRAP_DESTINATION_OK;
    });
}

std::list<tTrapDestInfo> TrapDestinationStore::all() const {
    std::list<tTrapDestInfo> destinations;
    const auto append = [&destinations](const Rows& rows) {
        for (const auto& [number, row] : rows) destinations.push_back(row);
    };
    if (isInTransaction()) {
        append(m_working);
    } else {
        const MutexLock lock(m_mutex);
        append(m_rows);
    }
    return destinations;
}

std::optional<tTrapDestInfo> TrapDestinationStore::find(const std::string& index) const {
    const auto in = [number = numberOf(index)](const Rows& rows) -> std::optional<tTrapDestInfo> {
        const auto row = rows.find(number);
        return row == rows.end() ? std::nullopt : std::optional(row->second);
    };
    if (isInTransaction()) return in(m_working);
    const MutexLock lock(m_mutex);
    return in(m_rows);
}

void TrapDestinationStore::setListener(std::function<void()> listener) {
    auto shared = std::make_shared<const std::function<void()>>(std::move(listener));
    const MutexLock lock(m_mutex);
    m_listener = std::move(shared);
}

void TrapDestinationStore::notify() {
    std::shared_ptr<const std::function<void()>> listener;
    {
        const MutexLock lock(m_mutex);
        listener = m_listener;
    }
    if (listener && *listener) retryForever(*listener);  // the change is made: whoever made it must not fail
}

}  // namespace vrx
