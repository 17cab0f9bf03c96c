// The file of the notification log: what the agent appends and vrxctl reads, while the agent runs or not.
//
//     NotificationLogFile file(path);             // the agent
//     file.append(entries, 10000);
//
//     NotificationLogReader reader(path);         // anybody who may read the file
//     reader.list(filter, [](const LoggedNotification& entry) { print(entry); });
//
// Entries are on disk when append() returns: kill -9 loses none of them. A power cut may lose those of the last moment,
// never the file.
//
// Threads: one at a time per object. Errors: SqliteError.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "host/base/sqlite_database.h"

namespace vrx {

// How a trap came to its destinations.
enum class SentBecause : unsigned int {
    Event = 0,  // an alarm event
    Held = 1,   // the same, later: it was held back while the alarm flapped
    Asked = 2,  // an operator had it sent again
};

// One trap of one notification handler.
struct LoggedNotification {
    std::uint64_t number = 0;  // its own, ascending; the file gives it
    std::chrono::system_clock::time_point time;
    SentBecause because = SentBecause::Event;
    std::uint64_t again = 0;     // number of the entry that was sent again, or 0
    std::uint64_t sequence = 0;  // of the alarm event
    std::uint64_t alarmId = 0;
    std::uint32_t serial = 0;
    bool raised = true;                     // else it has ended
    std::optional<std::uint32_t> level;     // as the backend grades it
    std::string trapOid;                    // dotted
    std::string trap;                       // bytesOf() it
    std::vector<std::string> destinations;  // numbers of those that it went to
};

class NotificationLogFile {
public:
    // Opens or creates the file, for its owner only.
    explicit NotificationLogFile(const std::string& path);

    // All entries, or none when it throws; the file keeps the last `kept` of what it then has, with 0 everything.
    void append(const std::vector<LoggedNotification>& entries, std::uint64_t kept);

private:
    SqliteDatabase m_database;
    SqliteStatement m_insert;
    SqliteStatement m_deleteOld;
};

struct NotificationLogFilter {
    std::optional<std::uint64_t> last;  // the newest ones only
    std::optional<std::chrono::system_clock::time_point> since;
    std::optional<std::chrono::system_clock::time_point> until;
    std::optional<std::uint64_t> alarmId;
    std::optional<std::uint32_t> serial;
    std::optional<bool> raised;
    std::optional<std::string> destination;  // that it went to
};

// A piece of the log, for who follows it.
struct NotificationLogPart {
    std::vector<LoggedNotification> entries;  // that the filter selects
    std::uint64_t upTo = 0;                   // the next piece comes after this number
    std::uint64_t gone = 0;                   // so many entries before this piece were deleted since
    bool isOfAnother = false;                 // the log has never come to the number asked for: this is its beginning
};

// The agent has begun the file and not finished its table yet: there is no entry.
class UnfinishedNotificationLog : public SqliteError {
public:
    using SqliteError::SqliteError;
};

class NotificationLogReader {
public:
    // Throws SqliteError when there is no such file, or none of a notification log; UnfinishedNotificationLog.
    explicit NotificationLogReader(const std::string& path);

    // In the order of their numbers.
    void list(const NotificationLogFilter& filter, const std::function<void(const LoggedNotification& entry)>& each);

    std::optional<LoggedNotification> find(std::uint64_t number);

    // What comes after the entry of that number: those of the next `most` entries, 1 or more, that the filter selects.
    // Its `last` does not count. The file is free again when this returns, however long the caller takes.
    NotificationLogPart after(std::uint64_t number, const NotificationLogFilter& filter, std::uint64_t most);

    // The number of the newest entry; 0 when there is none.
    std::uint64_t newest();

private:
    void select(const NotificationLogFilter& filter, std::uint64_t from, std::uint64_t to,
                const std::optional<std::uint64_t>& last,
                const std::function<void(const LoggedNotification& entry)>& each);

    SqliteDatabase m_database;
};

}  // namespace vrx
