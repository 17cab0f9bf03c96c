#include "host/agent/notifications/notification_log.h"

#include <filesystem>
#include <utility>

#include "host/base/log_line.h"
#include "host/log_lines/events.h"
#include "host/notification_log/notification_codec.h"

namespace vrx {

namespace {

// Entries of one transaction: readers wait for none of them long, and memory for their bytes stays small.
constexpr std::size_t BATCH = 1000;

}  // namespace

NotificationLog::NotificationLog(std::string path)
    : m_path(std::move(path)), m_writer([this] { return tryToFlush(); }) {
    setKept(KEPT);
}

NotificationLog::~NotificationLog() {
    m_writer.stop();
    try {
        flush();
    } catch (const std::exception& fault) {
        logFault<lines::NOTIFICATION_LOG_LOST>(fault.what());
    }
}

void NotificationLog::setKept(std::uint64_t kept) {
    {
        const MutexLock lock(m_mutex);
        m_counters.kept = kept;
    }
    m_writer.wake();  // the file is made before the first entry, for people who look
}

NotificationLog::Prepared NotificationLog::prepared(LoggedNotification entry,
                                                    std::shared_ptr<const Notification> trap) {
    Prepared prepared;
    prepared.push_back({std::move(entry), std::move(trap)});
    return prepared;
}

void NotificationLog::add(Prepared entry) noexcept {
    {
        const MutexLock lock(m_mutex);
        if (entry.empty() || m_counters.kept == 0) return;
        if (entry.front().entry.because == SentBecause::Asked) ++m_counters.askedFor;
        m_queue.splice(m_queue.end(), entry);
        if (m_queue.size() > WAITING_LIMIT) {
            m_queue.pop_front();
            ++m_counters.notWritten;
        }
    }
    m_writer.wake();
}

NotificationLog::Counters NotificationLog::counters() const {
    const MutexLock lock(m_mutex);
    Counters counters = m_counters;
    counters.waiting = m_queue.size() + m_batchSize;
    return counters;
}

// Whether there is anything to write; a batch that could not be written stays the next one.
// Without memory nothing is lost: what was taken out goes into the batch the next time.
bool NotificationLog::takeBatch() {
    if (m_batch.empty() && m_taken.empty()) {
        m_taken.reserve(BATCH);
        m_batch.reserve(BATCH);
        const MutexLock lock(m_mutex);
        while (!m_queue.empty() && m_taken.size() < BATCH) {
            m_taken.push_back(std::move(m_queue.front()));
            m_queue.pop_front();
        }
        m_batchSize = m_taken.size();
    }
    while (m_batch.size() < m_taken.size()) {
        Waiting& one = m_taken[m_batch.size()];
        one.entry.trapOid = oidText(one.trap->oid);
        one.entry.trap = bytesOf(*one.trap);
        m_batch.push_back(std::move(one.entry));
    }
    m_taken.clear();
    return !m_batch.empty();
}

// REQUIRES: a batch was taken.
void NotificationLog::write() {
    m_file->append(m_batch, kept());
    const MutexLock lock(m_mutex);
    m_counters.written += m_batch.size();
    m_batchSize = 0;
    m_batch.clear();
}

std::uint64_t NotificationLog::kept() const {
    const MutexLock lock(m_mutex);
    return m_counters.kept;
}

void NotificationLog::flush() {
    const MutexLock writing(m_writing);
    try {
        const bool any = takeBatch();
        std::error_code unknown;
        if (m_file && !std::filesystem::exists(m_path, unknown)) m_file.reset();  // somebody has deleted it
        if (!m_file && (any || kept() > 0)) m_file.emplace(m_path);
        for (bool more = any; more; more = takeBatch()) write();
    } catch (const SqliteError&) {
        m_file.reset();  // a file that is replaced, or mended, is found at the next attempt
        throw;
    }
}

void NotificationLog::flushWhatCanBe() {
    try {
        flush();
    } catch (const SqliteError&) {  // the writer tells of it when it tries again
    }
}

// False when there is something left. One line for each change of state.
bool NotificationLog::tryToFlush() {
    std::string fault;
    try {
        flush();
    } catch (const SqliteError& error) {
        fault = error.what();
    }
    const Counters before = counters();
    if (before.fault.empty() && !fault.empty()) {
        logLine<lines::NOTIFICATION_LOG_NOT_WRITTEN>(fault);
    } else if (!before.fault.empty() && fault.empty()) {
        logLine<lines::NOTIFICATION_LOG_WRITTEN>(before.notWritten);
    }
    const MutexLock lock(m_mutex);
    m_counters.fault = std::move(fault);
    return m_counters.fault.empty();
}

}  // namespace vrx
