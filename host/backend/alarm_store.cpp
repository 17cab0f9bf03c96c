#include "host/backend/alarm_store.h"

#include <algorithm>

namespace vrx {

namespace {

constexpr unsigned long long SCHEMA_VERSION = 1;

// AUTOINCREMENT keeps the highest number ever given, so that numbers of deleted rows do not come back. The name is NAA
// format 3, locally assigned: the digit 3 and 60 bits by chance.
constexpr char CREATE_TABLES[] = R"(
    CREATE TABLE active_alarms (
        serial INTEGER PRIMARY KEY AUTOINCREMENT,
        alarm_id INTEGER NOT NULL,
        level INTEGER NOT NULL,
        raised INTEGER NOT NULL,
        parameters TEXT NOT NULL);
    CREATE TABLE events (
        sequence INTEGER PRIMARY KEY AUTOINCREMENT,
        type INTEGER NOT NULL,
        serial INTEGER NOT NULL,
        alarm_id INTEGER NOT NULL,
        level INTEGER NOT NULL,
        raised INTEGER NOT NULL,
        ended INTEGER NOT NULL,
        parameters TEXT NOT NULL);
    CREATE TABLE identity (world_wide_name TEXT NOT NULL);
    INSERT INTO identity VALUES ('3' || substr(lower(hex(randomblob(8))), 2));
    PRAGMA user_version = 1;
)";

// Which events a serial number has. Made up for as the identity is.
constexpr char INDEX_SERIALS[] = "CREATE INDEX IF NOT EXISTS events_of_serial ON events (serial)";

// Made by chance, and made up for in a file that has none yet. A table of its own: older programs leave it alone.
constexpr char IDENTIFY[] = R"(
    CREATE TABLE IF NOT EXISTS store_identity (identity TEXT NOT NULL);
    INSERT INTO store_identity SELECT lower(hex(randomblob(16))) WHERE NOT EXISTS (SELECT 1 FROM store_identity);
)";

// The one number that a statement gives, 0 for none.
unsigned long long readNumber(SqliteStatement& statement) {
    SqliteStatement::Run run(statement);
    return run.step() ? run.number(0) : 0;
}

unsigned long long schemaVersion(const SqliteDatabase& database) {
    SqliteStatement statement(database, "PRAGMA user_version");
    return readNumber(statement);
}

SqliteDatabase openStore(const std::string& path) {
    SqliteDatabase database(path);
    try {
        // FULL: a commit reaches the disk before it is acknowledged, or events could get their number twice after a
        // power failure.
        database.execute("PRAGMA journal_mode = WAL; PRAGMA synchronous = FULL;");
        SqliteTransaction transaction(database);
        const unsigned long long version = schemaVersion(database);
        if (version == 0) {
            database.execute(CREATE_TABLES);
        } else if (version != SCHEMA_VERSION) {
            throw SqliteError("store has layout " + std::to_string(version) + ", this program knows layout " +
                              std::to_string(SCHEMA_VERSION));
        }
        database.execute(IDENTIFY);
        database.execute(INDEX_SERIALS);
        transaction.commit();
    } catch (const SqliteError& error) {
        throw SqliteError(path + ": " + error.what());
    }
    return database;
}

// What a record of an alarm takes on the wire beside its parameter text, rounded up.
constexpr std::size_t RECORD_BYTES = 128;

// Where a list ends before its count is reached.
class ByteBudget {
public:
    explicit ByteBudget(std::size_t bytes) : m_left(bytes) {}
    void spend(const Alarm& alarm) { m_left -= std::min(RECORD_BYTES + alarm.parameters.size(), m_left); }
    bool isSpent() const { return m_left == 0; }

private:
    std::size_t m_left;
};

// Columns alarm_id, level, raised and what follows.
void readAlarm(const SqliteStatement::Run& run, int column, Alarm& alarm) {
    alarm.id = run.number(column);
    alarm.level = static_cast<unsigned int>(run.number(column + 1));
    alarm.raised = run.number(column + 2);
}

}  // namespace

AlarmStore::AlarmStore(const std::string& path, unsigned long long eventLimit)
    : m_eventLimit(eventLimit),
      m_database(openStore(path)),
      m_insertActive(m_database,
                     "INSERT INTO active_alarms (serial, alarm_id, level, raised, parameters) VALUES (?, ?, ?, ?, ?)"),
      m_findActive(m_database, "SELECT alarm_id, level, raised, parameters FROM active_alarms WHERE serial = ?"),
      m_deleteActive(m_database, "DELETE FROM active_alarms WHERE serial = ?"),
      m_listActive(m_database,
                   "SELECT serial, alarm_id, level, raised, parameters FROM active_alarms WHERE serial > ? "
                   "ORDER BY serial LIMIT ?"),
      m_countActive(m_database, "SELECT count(*) FROM active_alarms"),
      m_findSerial(m_database,
                   "SELECT 1 FROM active_alarms WHERE serial = ?1 UNION ALL SELECT 1 FROM events WHERE serial = ?1"),
      m_lastSerial(m_database, "SELECT seq FROM sqlite_sequence WHERE name = 'active_alarms'"),
      m_setLastSerial(m_database, "UPDATE sqlite_sequence SET seq = ? WHERE name = 'active_alarms'"),
      m_insertEvent(m_database,
                    "INSERT INTO events (type, serial, alarm_id, level, raised, ended, parameters) "
                    "VALUES (?, ?, ?, ?, ?, ?, ?)"),
      m_listEvents(m_database,
                   "SELECT sequence, type, serial, alarm_id, level, raised, ended, parameters FROM events "
                   "WHERE sequence > ? ORDER BY sequence LIMIT ?"),
      m_deleteEvents(m_database, "DELETE FROM events WHERE sequence <= ?"),
      m_lastSequence(m_database, "SELECT seq FROM sqlite_sequence WHERE name = 'events'"),
      m_oldestSequence(m_database, "SELECT min(sequence) FROM events"),
      m_worldWideName(m_database, "SELECT world_wide_name FROM identity"),
      m_identity(m_database, "SELECT identity FROM store_identity") {}

BackendResult AlarmStore::raise(std::vector<Alarm>& alarms) {
    const MutexLock lock(m_mutex);
    std::vector<Alarm> raised = alarms;
    SqliteTransaction transaction(m_database);
    for (Alarm& alarm : raised) {
        if (alarm.serial != 0) {
            SqliteStatement::Run find(m_findActive);
            find.bind(1, alarm.serial);
            if (find.step()) return BACKEND_SERIAL_ACTIVE;
        }
        const bool isChosen = alarm.serial == 0;
        if (isChosen) alarm.serial = nextSerial();
        SqliteStatement::Run insert(m_insertActive);
        insert.bind(1, alarm.serial);
        insert.bind(2, alarm.id);
        insert.bind(3, alarm.level);
        insert.bind(4, alarm.raised);
        insert.bind(5, alarm.parameters);
        insert.step();
        if (isChosen) {  // also where it is below the one before: the highest was given
            SqliteStatement::Run remember(m_setLastSerial);
            remember.bind(1, alarm.serial);
            remember.step();
        }
        addEvent(ALARM_TYPE_FAULT, alarm);
    }
    dropOldEvents();
    commit(transaction);
    alarms = std::move(raised);
    return BACKEND_OK;
}

BackendResult AlarmStore::clear(const std::vector<unsigned int>& serials, unsigned long long time) {
    const MutexLock lock(m_mutex);
    SqliteTransaction transaction(m_database);
    for (const unsigned int serial : serials) {
        Alarm alarm;
        alarm.serial = serial;
        alarm.ended = time;
        {
            SqliteStatement::Run find(m_findActive);
            find.bind(1, serial);
            if (!find.step()) return BACKEND_UNKNOWN_SERIAL;
            readAlarm(find, 0, alarm);
            alarm.parameters = find.text(3);
        }
        SqliteStatement::Run remove(m_deleteActive);
        remove.bind(1, serial);
        remove.step();
        addEvent(ALARM_TYPE_CLEAR, alarm);
    }
    dropOldEvents();
    commit(transaction);
    return BACKEND_OK;
}

std::vector<Alarm> AlarmStore::activeAfter(unsigned int start, std::size_t count, std::size_t bytes) {
    const MutexLock lock(m_mutex);
    std::vector<Alarm> alarms;
    ByteBudget budget(bytes);
    SqliteStatement::Run run(m_listActive);
    run.bind(1, start);
    run.bind(2, count);
    while (!budget.isSpent() && run.step()) {
        Alarm& alarm = alarms.emplace_back();
        alarm.serial = static_cast<unsigned int>(run.number(0));
        readAlarm(run, 1, alarm);
        alarm.parameters = run.text(4);
        budget.spend(alarm);
    }
    return alarms;
}

std::vector<StoredEvent> AlarmStore::eventsAfter(unsigned long long sequence, std::size_t count, std::size_t bytes) {
    const MutexLock lock(m_mutex);
    std::vector<StoredEvent> events;
    ByteBudget budget(bytes);
    SqliteStatement::Run run(m_listEvents);
    run.bind(1, sequence);
    run.bind(2, count);
    while (!budget.isSpent() && run.step()) {
        StoredEvent& event = events.emplace_back();
        event.sequence = run.number(0);
        event.type = static_cast<unsigned int>(run.number(1));
        event.alarm.serial = static_cast<unsigned int>(run.number(2));
        readAlarm(run, 3, event.alarm);
        event.alarm.ended = run.number(6);
        event.alarm.parameters = run.text(7);
        budget.spend(event.alarm);
    }
    return events;
}

unsigned long long AlarmStore::lastSequence() {
    const MutexLock lock(m_mutex);
    return readNumber(m_lastSequence);
}

AlarmStoreStatus AlarmStore::status() {
    const MutexLock lock(m_mutex);
    AlarmStoreStatus status;
    status.activeAlarms = readNumber(m_countActive);
    status.lastSequence = readNumber(m_lastSequence);
    status.oldestSequence = readNumber(m_oldestSequence);
    return status;
}

std::string AlarmStore::worldWideName() {
    const MutexLock lock(m_mutex);
    SqliteStatement::Run run(m_worldWideName);
    return run.step() ? run.text(0) : "";
}

std::string AlarmStore::identity() {
    const MutexLock lock(m_mutex);
    SqliteStatement::Run run(m_identity);
    return run.step() ? run.text(0) : "";
}

// What could not be synchronized may stand in the journal all the same, and would be taken for done after a crash: the
// journal is emptied, if the disk lets us.
void AlarmStore::commit(SqliteTransaction& transaction) {
    try {
        transaction.commit();
    } catch (const SqliteError&) {
        m_database.rollBack();
        (void)sqlite3_wal_checkpoint_v2(m_database.get(), nullptr, SQLITE_CHECKPOINT_TRUNCATE, nullptr, nullptr);
        throw;
    }
}

// Comes to an end: alarms and events are fewer than the numbers.
unsigned int AlarmStore::nextSerial() {
    auto serial = static_cast<unsigned int>(readNumber(m_lastSerial));
    for (;;) {
        ++serial;
        if (serial == 0) continue;  // after the highest number
        SqliteStatement::Run used(m_findSerial);
        used.bind(1, serial);
        if (!used.step()) return serial;
    }
}

void AlarmStore::addEvent(unsigned int type, const Alarm& alarm) {
    SqliteStatement::Run run(m_insertEvent);
    run.bind(1, type);
    run.bind(2, alarm.serial);
    run.bind(3, alarm.id);
    run.bind(4, alarm.level);
    run.bind(5, alarm.raised);
    run.bind(6, alarm.ended);
    run.bind(7, alarm.parameters);
    run.step();
}

void AlarmStore::dropOldEvents() {
    const unsigned long long last = readNumber(m_lastSequence);
    if (last <= m_eventLimit) return;
    SqliteStatement::Run run(m_deleteEvents);
    run.bind(1, last - m_eventLimit);
    run.step();
}

}  // namespace vrx
