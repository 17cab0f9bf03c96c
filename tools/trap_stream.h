// vrxctl traps --follow: the notification log as it grows, an entry a line, for ever.
//
//     {"schema":"vrx-traps/1","type":"notification","number":4711,"time":"2026-11-22T09:14:03.120Z", ...}
//     {"schema":"vrx-traps/1","type":"gap","after":4711,"next":4800,"gone":88}
//     {"schema":"vrx-traps/1","type":"new-log","after":4711}
//
// Whoever keeps the last number and begins after it misses nothing and gets nothing twice: over ends of the agent, of
// its own and of this program. The fields are those of jsonOf() (trap_texts.h), in docs/notification-log.md.
//
// Threads: one at a time. Errors: SqliteError.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <ostream>
#include <string>
#include <utility>

#include "host/notification_log/notification_log_file.h"

namespace vrx {

enum class TrapStreamFormat { Table, Json, CloudEvents, Syslog };

struct TrapStreamOptions {
    std::string path;  // of the notification log
    TrapStreamFormat format = TrapStreamFormat::Table;
    NotificationLogFilter filter;        // with `last` or `since`: entries that are there already come first
    std::optional<std::uint64_t> after;  // so do those after this number; else none does
    std::string source;                  // the agent, as the source of CloudEvents or the host name in syslog
};

class TrapStream {
public:
    explicit TrapStream(TrapStreamOptions options);

    // What has come since the last call, in whole lines; empty when nothing has, or while there is no log. The log is
    // not held meanwhile: the agent's file does not grow for a reader that is slow.
    std::string next();

    // The last number that was looked at; nothing while there is no log.
    std::optional<std::uint64_t> upTo() const { return m_after; }

private:
    using File = std::pair<dev_t, ino_t>;

    std::optional<File> fileNow() const;
    bool open(std::string& lines);
    void begin(std::string& lines);
    bool read(std::string& lines);
    void addEntry(const LoggedNotification& entry, std::string& lines) const;
    void addGap(std::uint64_t gone, std::uint64_t next, std::string& lines) const;
    void addNewLog(std::string& lines) const;
    std::string line(const char* type, const nlohmann::json& fields, const nlohmann::json& attributes) const;

    const TrapStreamOptions m_options;
    std::optional<NotificationLogReader> m_reader;
    std::optional<File> m_file;  // of the reader, or of the one before
    std::optional<std::uint64_t> m_after;
};

// Writes what comes, each piece at once, until nobody reads it any more; then it returns. A log that cannot be read any
// more is a line on stderr, and tried again.
void followTraps(std::ostream& out, const TrapStreamOptions& options);

}  // namespace vrx
