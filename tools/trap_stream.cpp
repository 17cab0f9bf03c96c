#include "tools/trap_stream.h"

#include <fmt/format.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <iostream>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <utility>

#include "host/notification_log/notification_texts.h"
#include "tools/syslog_line.h"
#include "tools/time_text.h"
#include "tools/trap_texts.h"

namespace vrx {

namespace {

using nlohmann::json;
using std::chrono::milliseconds;
using std::chrono::system_clock;

constexpr const char* SCHEMA = "vrx-traps/1";
constexpr std::uint64_t PIECE = 500;  // entries that are read at a time

// Whether somebody may still read what is written; waits a moment.
bool isReadStill(milliseconds wait) {
    pollfd output{STDOUT_FILENO, 0, 0};
    return ::poll(&output, 1, static_cast<int>(wait.count())) <= 0 || (output.revents & (POLLERR | POLLHUP)) == 0;
}

}  // namespace

TrapStream::TrapStream(TrapStreamOptions options) : m_options(std::move(options)), m_after(m_options.after) {
    if (!m_after && m_options.filter.since) m_after = 0;
}

std::string TrapStream::next() {
    std::string lines;
    const std::optional<File> now = fileNow();
    if (m_reader && now && now != m_file) {  // the log was deleted, and the agent has made another one
        while (read(lines)) {
        }
        m_reader.reset();
    }
    if (!m_reader && !open(lines)) return lines;
    try {
        read(lines);
    } catch (...) {
        m_reader.reset();
        throw;
    }
    return lines;
}

std::optional<TrapStream::File> TrapStream::fileNow() const {
    struct stat status {};
    if (::stat(m_options.path.c_str(), &status) != 0) return std::nullopt;
    return File{status.st_dev, status.st_ino};
}

bool TrapStream::open(std::string& lines) {
    const std::optional<File> file = fileNow();
    std::optional<NotificationLogReader> reader;
    try {
        if (file) reader.emplace(m_options.path);
    } catch (const UnfinishedNotificationLog&) {  // as good as none
    }
    if (!reader) {
        if (!m_after) m_after = 0;  // all that the agent is going to write
        return false;
    }
    if (fileNow() != file) return false;  // another one meanwhile: the next call opens it
    m_reader = std::move(reader);
    if (m_file && m_file != file) {
        addNewLog(lines);
        m_after = 0;
    }
    m_file = file;
    if (!m_after) begin(lines);
    return true;
}

// With what is there already, if that is asked for.
void TrapStream::begin(std::string& lines) {
    m_after = m_reader->newest();
    if (!m_options.filter.last) return;
    m_reader->list(m_options.filter, [&](const LoggedNotification& entry) {
        if (entry.number <= *m_after) addEntry(entry, lines);  // later ones come next
    });
}

// Whether there may be more.
bool TrapStream::read(std::string& lines) {
    const NotificationLogPart part = m_reader->after(*m_after, m_options.filter, PIECE);
    if (part.isOfAnother) addNewLog(lines);
    if (part.gone > 0) addGap(part.gone, *m_after + part.gone + 1, lines);
    for (const LoggedNotification& entry : part.entries) addEntry(entry, lines);
    const bool advanced = part.isOfAnother || part.upTo > *m_after;
    m_after = part.upTo;
    return advanced;
}

void TrapStream::addEntry(const LoggedNotification& entry, std::string& lines) const {
    if (m_options.format == TrapStreamFormat::Table) {
        lines += trapTableRow(entry);
        return;
    }
    lines += line("notification", jsonOf(entry),
                  {{"id", fmt::format("{}-{}", entry.number, entry.time.time_since_epoch().count())},
                   {"type", fmt::format("vrx.notification.{}", kindText(entry))},
                   {"time", utcTime(entry.time)},
                   {"subject", std::to_string(entry.serial)}});
}

void TrapStream::addGap(std::uint64_t gone, std::uint64_t next, std::string& lines) const {
    if (m_options.format == TrapStreamFormat::Table) {
        lines += fmt::format("({} entries before number {} are no longer in the log)\n", gone, next);
        return;
    }
    lines += line("gap", {{"after", *m_after}, {"next", next}, {"gone", gone}},
                  {{"id", fmt::format("gap-{}-{}", *m_after, next)},
                   {"type", "vrx.notification.gap"},
                   {"time", utcTime(system_clock::now())}});
}

void TrapStream::addNewLog(std::string& lines) const {
    if (m_options.format == TrapStreamFormat::Table) {
        lines += fmt::format("(a new log: the one before had come to number {})\n", *m_after);
        return;
    }
    const system_clock::time_point now = system_clock::now();
    lines += line("new-log", {{"after", *m_after}},
                  {{"id", fmt::format("new-log-{}-{}", *m_after, now.time_since_epoch().count())},
                   {"type", "vrx.notification.new-log"},
                   {"time", utcTime(now)}});
}

// `attributes`: what a CloudEvent says besides.
std::string TrapStream::line(const char* type, const json& fields, const json& attributes) const {
    if (m_options.format == TrapStreamFormat::Syslog) {
        return syslogLine(m_options.source, type, attributes.at("time").get<std::string>(), fields) + "\n";
    }
    json document = fields;
    document["schema"] = SCHEMA;
    document["type"] = type;
    if (m_options.format == TrapStreamFormat::CloudEvents) {
        json event = attributes;
        event["specversion"] = "1.0";
        event["source"] = m_options.source;
        event["datacontenttype"] = "application/json";
        event["data"] = std::move(document);
        document = std::move(event);
    }
    return dumped(document) + "\n";
}

void followTraps(std::ostream& out, const TrapStreamOptions& options) {
    constexpr milliseconds PAUSE{100};  // the agent writes entries as often
    constexpr milliseconds PAUSE_AFTER_FAULT{1000};
    TrapStream stream(options);
    std::string fault;
    for (bool isFirst = true;; isFirst = false) {
        std::string lines;
        try {
            lines = stream.next();
            fault.clear();
        } catch (const SqliteError& error) {
            if (isFirst) throw;
            if (fault != error.what()) std::cerr << "vrxctl: " << error.what() << "; trying again\n";
            fault = error.what();
        }
        // Who sees the head sees what comes after it.
        if (isFirst && options.format == TrapStreamFormat::Table) out << trapTableHead();
        out << lines << std::flush;
        if (!out) throw std::runtime_error("the lines cannot be written");
        const milliseconds pause = !fault.empty() ? PAUSE_AFTER_FAULT : lines.empty() ? PAUSE : milliseconds(0);
        if (!isReadStill(pause)) return;
    }
}

}  // namespace vrx
