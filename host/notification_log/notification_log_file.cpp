#include "host/notification_log/notification_log_file.h"

#include <algorithm>
#include <sstream>

namespace vrx {

namespace {

using std::chrono::milliseconds;
using std::chrono::system_clock;

constexpr std::uint64_t STORE_VERSION = 1;

// Numbers are never given twice, also when the entries are gone (AUTOINCREMENT).
constexpr const char* SCHEMA =
    "PRAGMA journal_mode=WAL;"
    "PRAGMA synchronous=NORMAL;"  // a killed process loses nothing; a disk that syncs for every batch would be felt
    "CREATE TABLE IF NOT EXISTS notifications ("
    "number INTEGER PRIMARY KEY AUTOINCREMENT, time_ms INTEGER NOT NULL, because INTEGER NOT NULL, "
    "again INTEGER NOT NULL, sequence INTEGER NOT NULL, alarm_id INTEGER NOT NULL, serial INTEGER NOT NULL, "
    "raised INTEGER NOT NULL, level INTEGER, trap_oid TEXT NOT NULL, trap BLOB NOT NULL, "
    "destinations TEXT NOT NULL);"
    "PRAGMA user_version=1";

constexpr const char* INSERT =
    "INSERT INTO notifications (time_ms, because, again, sequence, alarm_id, serial, raised, level, trap_oid, trap, "
    "destinations) VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)";

constexpr const char* DELETE_OLD =
    "DELETE FROM notifications WHERE number <= (SELECT max(number) FROM notifications) - ?";

constexpr const char* DELETED_UP_TO = "SELECT ifnull(min(number) - 1, 0) FROM notifications";
constexpr const char* NEWEST = "SELECT ifnull(max(number), 0) FROM notifications";

// Each condition after the range of numbers holds where its parameter is null.
constexpr const char* SELECT =
    "SELECT number, time_ms, because, again, sequence, alarm_id, serial, raised, level, trap_oid, trap, destinations "
    "FROM (SELECT * FROM notifications WHERE number BETWEEN ?1 AND ?2 AND "
    "ifnull(time_ms >= ?3, 1) AND ifnull(time_ms <= ?4, 1) AND "
    "ifnull(alarm_id = ?5, 1) AND ifnull(serial = ?6, 1) AND ifnull(raised = ?7, 1) AND "
    "ifnull(instr(',' || destinations || ',', ',' || ?8 || ','), 1) "
    "ORDER BY number DESC LIMIT ifnull(?9, -1)) ORDER BY number";

constexpr std::uint64_t LARGEST_NUMBER = INT64_MAX;

std::string joined(const std::vector<std::string>& numbers) {
    std::string text;
    for (const std::string& number : numbers) text += (text.empty() ? "" : ",") + number;
    return text;
}

std::vector<std::string> split(const std::string& text) {
    std::vector<std::string> numbers;
    std::istringstream in(text);
    for (std::string number; std::getline(in, number, ',');) numbers.push_back(number);
    return numbers;
}

std::uint64_t millisecondsOf(system_clock::time_point time) {
    return static_cast<std::uint64_t>(std::chrono::duration_cast<milliseconds>(time.time_since_epoch()).count());
}

system_clock::time_point timeOf(std::uint64_t count) {
    return system_clock::time_point(
        std::chrono::duration_cast<system_clock::duration>(milliseconds(static_cast<std::int64_t>(count))));
}

std::uint64_t numberFrom(const SqliteDatabase& database, const char* sql) {
    SqliteStatement select(database, sql);
    SqliteStatement::Run row(select);
    return row.step() ? row.number(0) : 0;
}

std::uint64_t versionOf(const SqliteDatabase& database) {
    return numberFrom(database, "PRAGMA user_version");
}

SqliteDatabase openForWriting(const std::string& path) {
    SqliteDatabase database(path);
    if (versionOf(database) > STORE_VERSION) throw SqliteError(path + ": of a younger version of this program");
    database.execute(SCHEMA);
    return database;
}

LoggedNotification entryOf(const SqliteStatement::Run& row) {
    LoggedNotification entry;
    int column = 0;
    entry.number = row.number(column++);
    entry.time = timeOf(row.number(column++));
    entry.because = static_cast<SentBecause>(row.number(column++));
    entry.again = row.number(column++);
    entry.sequence = row.number(column++);
    entry.alarmId = row.number(column++);
    entry.serial = static_cast<std::uint32_t>(row.number(column++));
    entry.raised = row.number(column++) != 0;
    if (!row.isNull(column)) entry.level = static_cast<std::uint32_t>(row.number(column));
    ++column;
    entry.trapOid = row.text(column++);
    entry.trap = row.bytes(column++);
    entry.destinations = split(row.text(column));
    return entry;
}

struct Rollback {
    explicit Rollback(SqliteDatabase& one) : database(one) {}
    Rollback(const Rollback&) = delete;
    Rollback& operator=(const Rollback&) = delete;
    ~Rollback() { database.rollBack(); }

    SqliteDatabase& database;
};

void bindIfThere(SqliteStatement::Run& run, int parameter, std::optional<std::uint64_t> number) {
    if (number) run.bind(parameter, *number);
}

std::optional<std::uint64_t> millisecondsOf(const std::optional<system_clock::time_point>& time) {
    return time ? std::optional<std::uint64_t>(millisecondsOf(*time)) : std::nullopt;
}

}  // namespace

NotificationLogFile::NotificationLogFile(const std::string& path)
    : m_database(openForWriting(path)), m_insert(m_database, INSERT), m_deleteOld(m_database, DELETE_OLD) {}

void NotificationLogFile::append(const std::vector<LoggedNotification>& entries, std::uint64_t kept) {
    SqliteTransaction transaction(m_database);
    for (const LoggedNotification& entry : entries) {
        const std::string destinations = joined(entry.destinations);
        SqliteStatement::Run row(m_insert);
        int parameter = 1;
        row.bind(parameter++, millisecondsOf(entry.time));
        row.bind(parameter++, static_cast<std::uint64_t>(entry.because));
        row.bind(parameter++, entry.again);
        row.bind(parameter++, entry.sequence);
        row.bind(parameter++, entry.alarmId);
        row.bind(parameter++, entry.serial);
        row.bind(parameter++, entry.raised ? 1 : 0);
        bindIfThere(row, parameter++, entry.level);
        row.bind(parameter++, entry.trapOid);
        row.bindBytes(parameter++, entry.trap);
        row.bind(parameter, destinations);
        row.step();
    }
    if (kept > 0) {
        SqliteStatement::Run old(m_deleteOld);
        old.bind(1, kept);
        old.step();
    }
    transaction.commit();
}

NotificationLogReader::NotificationLogReader(const std::string& path) : m_database(SqliteDatabase::readOnly(path)) {
    const std::uint64_t version = versionOf(m_database);
    if (version == 0) throw UnfinishedNotificationLog(path + ": no notification log yet");
    if (version != STORE_VERSION) throw SqliteError(path + ": no notification log of this version");
}

void NotificationLogReader::list(const NotificationLogFilter& filter,
                                 const std::function<void(const LoggedNotification& entry)>& each) {
    select(filter, 0, LARGEST_NUMBER, filter.last, each);
}

std::optional<LoggedNotification> NotificationLogReader::find(std::uint64_t number) {
    std::optional<LoggedNotification> found;
    if (number > LARGEST_NUMBER) return found;
    select({}, number, number, std::nullopt, [&found](const LoggedNotification& entry) { found = entry; });
    return found;
}

NotificationLogPart NotificationLogReader::after(std::uint64_t number, const NotificationLogFilter& filter,
                                                 std::uint64_t most) {
    m_database.execute("BEGIN");  // all of it as it is at one moment
    const Rollback atTheEnd(m_database);
    const std::uint64_t newest = numberFrom(m_database, NEWEST);
    const std::uint64_t deleted = numberFrom(m_database, DELETED_UP_TO);
    NotificationLogPart part;
    part.isOfAnother = number > newest;
    if (part.isOfAnother) number = 0;
    part.gone = deleted > number && !part.isOfAnother ? deleted - number : 0;
    const std::uint64_t before = std::max(number, deleted);
    part.upTo = std::min(newest, before + std::min(most, LARGEST_NUMBER - before));
    select(filter, before + 1, part.upTo, std::nullopt,
           [&part](const LoggedNotification& entry) { part.entries.push_back(entry); });
    return part;
}

std::uint64_t NotificationLogReader::newest() {
    return numberFrom(m_database, NEWEST);
}

void NotificationLogReader::select(const NotificationLogFilter& filter, std::uint64_t from, std::uint64_t to,
                                   const std::optional<std::uint64_t>& last,
                                   const std::function<void(const LoggedNotification& entry)>& each) {
    SqliteStatement select(m_database, SELECT);
    SqliteStatement::Run rows(select);
    rows.bind(1, from);
    rows.bind(2, to);
    bindIfThere(rows, 3, millisecondsOf(filter.since));
    bindIfThere(rows, 4, millisecondsOf(filter.until));
    bindIfThere(rows, 5, filter.alarmId);
    bindIfThere(rows, 6, filter.serial);
    if (filter.raised) rows.bind(7, *filter.raised ? 1 : 0);
    if (filter.destination) rows.bind(8, *filter.destination);
    bindIfThere(rows, 9, last);
    while (rows.step()) each(entryOf(rows));
}

}  // namespace vrx
