// Keeps the last notifications on disk, for people who ask later what was sent: <root>/state/notification_log.db.
//
//     NotificationLog log(root + "/state/notification_log.db");
//     log.setKept(10000);
//     log.add(NotificationLog::prepared(entry, trap));
//
// add() puts the entry into memory; a thread writes what has come at most every 100 ms, many entries at a time. A crash
// loses the entries of that moment. While the file cannot be written entries wait, up to WAITING_LIMIT; then the oldest
// of them are given up and counted. One log line when that begins and one when it is over.
//
// Threads: any.
#pragma once

#include <cstdint>
#include <list>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/agent/loop/background_writer.h"
#include "host/base/mutex.h"
#include "host/notification_log/notification.h"
#include "host/notification_log/notification_log_file.h"

namespace vrx {

class NotificationLog {
public:
    struct Counters {
        std::uint64_t kept = 0;        // entries that the file holds at most; 0: nothing is logged
        std::uint64_t written = 0;     // in this life of the process, as the rest
        std::uint64_t waiting = 0;     // now
        std::uint64_t notWritten = 0;  // given up
        std::uint64_t askedFor = 0;    // written or waiting: traps that an operator had sent again
        std::string fault;             // why the file cannot be written; empty when it can
    };

    static constexpr std::uint64_t KEPT = 10'000;
    static constexpr std::size_t WAITING_LIMIT = 20'000;

    // The file is opened by the thread: one that cannot be is a failing one.
    explicit NotificationLog(std::string path);
    ~NotificationLog();  // writes what waits
    NotificationLog(const NotificationLog&) = delete;
    NotificationLog& operator=(const NotificationLog&) = delete;

    // How many entries the file keeps from the next one on. With 0 no entry is taken, and those there are stay.
    void setKept(std::uint64_t kept);

    // An entry with the memory that it needs to wait. Its trap, the trap's OID and its number are filled in later.
    struct Waiting {
        LoggedNotification entry;
        std::shared_ptr<const Notification> trap;
    };
    using Prepared = std::list<Waiting>;  // one, or none: nothing is to be logged
    static Prepared prepared(LoggedNotification entry, std::shared_ptr<const Notification> trap);

    void add(Prepared entry) noexcept;

    // Writes what waits now. Throws SqliteError, and what waits goes on waiting.
    void flush();

    // The same, but that a file which cannot be written keeps nobody from going on.
    void flushWhatCanBe();

    Counters counters() const;

    const std::string& path() const { return m_path; }

private:
    bool tryToFlush();
    bool takeBatch() REQUIRES(m_writing);
    void write() REQUIRES(m_writing);
    std::uint64_t kept() const;

    const std::string m_path;

    Mutex m_writing ACQUIRED_BEFORE(m_mutex);
    std::optional<NotificationLogFile> m_file GUARDED_BY(m_writing);  // open while it can be written
    std::vector<Waiting> m_taken GUARDED_BY(m_writing);               // out of the queue
    std::vector<LoggedNotification> m_batch GUARDED_BY(m_writing);    // these as they are written, not on disk yet

    mutable Mutex m_mutex;
    std::list<Waiting> m_queue GUARDED_BY(m_mutex);
    std::size_t m_batchSize GUARDED_BY(m_mutex) = 0;
    Counters m_counters GUARDED_BY(m_mutex);

    BackgroundWriter m_writer;  // last: its thread uses the others
};

}  // namespace vrx
