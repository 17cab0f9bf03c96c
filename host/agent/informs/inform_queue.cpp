#include "host/agent/informs/inform_queue.h"

#include <algorithm>
#include <chrono>
#include <random>
#include <tuple>
#include <utility>

#include "host/base/log_line.h"
#include "host/base/memory_retry.h"
#include "host/base/thread_without_signals.h"
#include "host/log_lines/informs.h"
#include "host/notification_log/notification_codec.h"

namespace vrx {

namespace {

using std::chrono::milliseconds;

constexpr milliseconds WRITE_INTERVAL{20};  // what comes within it shares a transaction
constexpr milliseconds RETRY_INTERVAL{500};

// Of each receiver's informs so many are in memory, and when half of them are gone more are read.
constexpr std::size_t IN_MEMORY = 256;

constexpr const char* SCHEMA =
    "PRAGMA journal_mode=WAL;"
    "PRAGMA synchronous=FULL;"  // what was said to be on disk is not taken back by a power cut
    "CREATE TABLE IF NOT EXISTS receiver (name TEXT PRIMARY KEY, event INTEGER NOT NULL, handler INTEGER NOT NULL)"
    " WITHOUT ROWID;"
    // Numbers are never used again: they tell informs apart also for their receivers.
    "CREATE TABLE IF NOT EXISTS inform (number INTEGER PRIMARY KEY AUTOINCREMENT, receiver TEXT NOT NULL,"
    " up_time INTEGER NOT NULL, trap BLOB NOT NULL);"
    "CREATE INDEX IF NOT EXISTS inform_of_receiver ON inform (receiver, number);";

bool isBehind(const NotificationOrigin& a, const NotificationOrigin& b) {
    return std::tie(a.sequence, a.handler) > std::tie(b.sequence, b.handler);
}

// Nobody can tell beforehand what a new queue's first request ID is.
void startNumbers(const SqliteDatabase& database) {
    SqliteStatement find(database, "SELECT 1 FROM sqlite_sequence WHERE name = 'inform'");
    if (SqliteStatement::Run(find).step()) return;
    constexpr unsigned long long HIGHEST = 0x3fffffff;
    std::random_device random;
    SqliteStatement insert(database, "INSERT INTO sqlite_sequence (name, seq) VALUES ('inform', ?)");
    SqliteStatement::Run row(insert);
    row.bind(1, random() & HIGHEST);
    row.step();
}

}  // namespace

struct InformQueue::Statements {
    explicit Statements(const SqliteDatabase& database)
        : insert(database, "INSERT INTO inform (receiver, up_time, trap) VALUES (?, ?, ?)"),
          mark(database, "INSERT OR REPLACE INTO receiver (name, event, handler) VALUES (?, ?, ?)"),
          remove(database, "DELETE FROM inform WHERE number = ?"),
          dropInforms(database, "DELETE FROM inform WHERE receiver = ?"),
          dropReceiver(database, "DELETE FROM receiver WHERE name = ?"),
          renumber(database, "UPDATE receiver SET event = ?, handler = 0"),
          select(database,
                 "SELECT number, up_time, trap FROM inform WHERE receiver = ? AND number > ? ORDER BY number LIMIT ?") {
    }

    SqliteStatement insert;
    SqliteStatement mark;
    SqliteStatement remove;
    SqliteStatement dropInforms;
    SqliteStatement dropReceiver;
    SqliteStatement renumber;
    SqliteStatement select;
};

struct InformQueue::Lane {
    std::string name;
    std::size_t limit = 0;
    NotificationOrigin last;
    Standing standing;
    std::deque<Inform> first;      // of those on disk, in their order
    bool complete = true;          // these are all of them
    std::uint64_t lastLoaded = 0;  // number of the last one that was in `first`

    bool wantsMore() const { return !complete && first.size() <= IN_MEMORY / 2; }

    // The first one that has at least that number.
    std::deque<Inform>::iterator from(std::uint64_t number) {
        return std::lower_bound(first.begin(), first.end(), number,
                                [](const Inform& inform, std::uint64_t least) { return inform.number < least; });
    }
};

struct InformQueue::Round {
    Jobs jobs;  // in their order; those that could not be written come first
    bool written = false;
    bool ready = false;  // some receiver has more informs in memory
    bool stopping = false;
};

InformQueue::InformQueue(const std::string& path, std::function<void()> onReady)
    : m_database(path), m_onReady(std::move(onReady)) {
    try {
        m_database.execute(SCHEMA);
        startNumbers(m_database);
        load();
        m_statements = std::make_unique<Statements>(m_database);
    } catch (const SqliteError& fault) {
        throw SqliteError(path + ": " + fault.what());
    }
    m_thread = threadWithoutSignals([this] { run(); });
}

InformQueue::~InformQueue() {
    stop();
}

void InformQueue::stop() {
    if (!m_thread.joinable()) return;
    {
        const MutexLock lock(m_mutex);
        m_stopping = true;
    }
    m_changed.notify_all();
    m_thread.join();
}

void InformQueue::load() {
    const MutexLock lock(m_mutex);  // nobody else is there yet
    const auto laneOf = [this](const std::string& name) REQUIRES(m_mutex) {
        std::shared_ptr<Lane>& lane = m_strangers[name];
        if (lane == nullptr) {
            lane = std::make_shared<Lane>();
            lane->name = name;
        }
        return lane;
    };
    SqliteStatement receivers(m_database, "SELECT name, event, handler FROM receiver");
    SqliteStatement::Run row(receivers);
    while (row.step()) laneOf(row.text(0))->last = {row.number(1), static_cast<unsigned int>(row.number(2))};
    SqliteStatement counts(m_database, "SELECT receiver, count(*) FROM inform GROUP BY receiver");
    SqliteStatement::Run count(counts);
    while (count.step()) {
        Lane& lane = *laneOf(count.text(0));
        lane.standing.waiting = lane.standing.restored = count.number(1);
        lane.complete = false;
    }
}

InformQueue::Limits InformQueue::setReceivers(const Limits& limits, bool keepOthers) {
    Limits gone;
    const MutexLock lock(m_mutex);
    const auto dropAll = [&](std::map<std::string, std::shared_ptr<Lane>>& lanes) REQUIRES(m_mutex) {
        for (auto at = lanes.begin(); at != lanes.end();) {
            if (limits.count(at->first) != 0) {
                ++at;
                continue;
            }
            Job job;
            job.kind = Job::Kind::Drop;
            job.lane = at->second;
            m_jobs.push_back(std::move(job));
            gone[at->first] = at->second->standing.waiting;
            at = lanes.erase(at);
        }
    };
    dropAll(m_lanes);
    if (!keepOthers) dropAll(m_strangers);
    for (const auto& [name, limit] : limits) {
        std::shared_ptr<Lane>& lane = m_lanes[name];
        const auto stranger = m_strangers.find(name);
        if (stranger != m_strangers.end()) {
            lane = stranger->second;
            m_strangers.erase(stranger);
        } else if (lane == nullptr) {
            lane = std::make_shared<Lane>();
            lane->name = name;
        }
        lane->limit = limit;
    }
    m_changed.notify_all();
    return gone;
}

InformQueue::Places InformQueue::places(std::size_t receivers, const std::shared_ptr<const Notification>& trap,
                                        const Settled& settled) {
    Job job;
    job.inform.trap = trap;
    job.settled = settled;
    return Places(receivers, job);
}

InformQueue::Added InformQueue::add(const std::string& receiver, const NotificationOrigin& origin, std::uint32_t upTime,
                                    Places& places) {
    Places place;
    place.splice(place.begin(), places, places.begin());
    Job& job = place.front();
    Added result = Added::Waiting;
    {
        const MutexLock lock(m_mutex);
        Lane& lane = *m_lanes.at(receiver);
        const bool isEvent = origin.sequence != 0;
        if (isEvent && !isBehind(origin, lane.last)) {
            result = Added::Repeated;
        } else if (lane.standing.waiting >= lane.limit) {
            result = Added::Full;
        } else {
            job.lane = m_lanes.at(receiver);
            job.inform.upTime = upTime;
            job.origin = isEvent ? origin : lane.last;
            m_jobs.splice(m_jobs.end(), place);
            if (isEvent) lane.last = origin;
            ++lane.standing.waiting;
        }
        if (result == Added::Waiting && m_jobs.size() == 1) m_changed.notify_all();
    }
    if (!place.empty() && job.settled) job.settled();
    return result;
}

std::optional<Inform> InformQueue::first(const std::string& receiver, std::uint64_t after) const {
    const MutexLock lock(m_mutex);
    const auto lane = m_lanes.find(receiver);
    if (lane == m_lanes.end()) return std::nullopt;
    const auto at = lane->second->from(after + 1);
    if (at == lane->second->first.end()) return std::nullopt;
    return *at;
}

void InformQueue::remove(const std::string& receiver, std::uint64_t number) {
    const MutexLock lock(m_mutex);
    const auto found = m_lanes.find(receiver);
    if (found == m_lanes.end()) return;
    Lane& lane = *found->second;
    const auto at = lane.from(number);
    if (at == lane.first.end() || at->number != number) return;
    Job job;
    job.kind = Job::Kind::Remove;
    job.lane = found->second;
    job.inform.number = number;
    m_jobs.push_back(std::move(job));
    lane.first.erase(at);
    --lane.standing.waiting;
    if (m_jobs.size() == 1) m_changed.notify_all();
}

void InformQueue::startAfter(unsigned long long sequence) {
    Job job;
    job.kind = Job::Kind::Renumber;
    job.origin.sequence = sequence;
    job.renumbered = std::make_shared<std::promise<void>>();
    std::future<void> done = job.renumbered->get_future();
    {
        const MutexLock lock(m_mutex);
        m_jobs.push_back(std::move(job));
        for (const auto* lanes : {&m_lanes, &m_strangers}) {
            for (const auto& entry : *lanes) entry.second->last = {sequence, 0};
        }
        m_changed.notify_all();
    }
    done.get();
}

InformQueue::Standing InformQueue::standing(const std::string& receiver) const {
    const MutexLock lock(m_mutex);
    const auto lane = m_lanes.find(receiver);
    return lane == m_lanes.end() ? Standing() : lane->second->standing;
}

// The thread

bool InformQueue::wantsRefill() const {
    for (const auto& entry : m_lanes) {
        if (entry.second->wantsMore()) return true;
    }
    return false;
}

void InformQueue::run() {
    Round round;
    for (;;) {
        {
            MutexLock lock(m_mutex);
            if (round.jobs.empty()) {
                m_changed.wait(lock,
                               [this]() REQUIRES(m_mutex) { return m_stopping || !m_jobs.empty() || wantsRefill(); });
            }
            round.stopping = m_stopping;
        }
        const bool healthy = retryForever([&] { return serve(round); });
        if (round.stopping) return;
        MutexLock lock(m_mutex);
        m_changed.wait_for(lock, healthy ? WRITE_INTERVAL : RETRY_INTERVAL,
                           [this]() REQUIRES(m_mutex) { return m_stopping; });
    }
}

// What is left of a round: taken out, written, told, and more read. One that found no memory goes on where it stopped.
// False when the file does not take it, or cannot be read.
bool InformQueue::serve(Round& round) {
    if (!round.written) {
        {
            const MutexLock lock(m_mutex);
            round.jobs.splice(round.jobs.end(), m_jobs);
        }
        if (!round.jobs.empty() && !write(round.jobs)) return false;
        round.written = true;
    }
    taken(round);
    round.jobs.clear();
    const bool healthy = refill();
    round.written = false;
    return healthy;
}

// All of them in one transaction. False when that failed; those who wait for it are told then, and their jobs gone.
bool InformQueue::write(Jobs& jobs) {
    try {
        SqliteTransaction transaction(m_database);
        for (Job& job : jobs) execute(job);
        transaction.commit();
    } catch (const SqliteError& fault) {
        m_writing.begins([&] { logLine<lines::INFORMS_NOT_STORED>(fault.what()); });
        for (auto job = jobs.begin(); job != jobs.end();) {
            if (job->kind == Job::Kind::Renumber) {
                job->renumbered->set_exception(std::make_exception_ptr(fault));
                job = jobs.erase(job);
            } else {
                ++job;
            }
        }
        return false;
    }
    m_writing.ends([] { logLine<lines::INFORMS_STORED>(); });
    return true;
}

void InformQueue::execute(Job& job) {
    switch (job.kind) {
        case Job::Kind::Add: {
            const std::string bytes = bytesOf(*job.inform.trap);
            SqliteStatement::Run row(m_statements->insert);
            row.bind(1, job.lane->name);
            row.bind(2, job.inform.upTime);
            row.bindBytes(3, bytes);
            row.step();
            job.inform.number = static_cast<std::uint64_t>(sqlite3_last_insert_rowid(m_database.get()));
            SqliteStatement::Run mark(m_statements->mark);
            mark.bind(1, job.lane->name);
            mark.bind(2, job.origin.sequence);
            mark.bind(3, job.origin.handler);
            mark.step();
            return;
        }
        case Job::Kind::Remove: {
            SqliteStatement::Run row(m_statements->remove);
            row.bind(1, job.inform.number);
            row.step();
            return;
        }
        case Job::Kind::Drop:
            for (SqliteStatement* drop : {&m_statements->dropInforms, &m_statements->dropReceiver}) {
                SqliteStatement::Run row(*drop);
                row.bind(1, job.lane->name);
                row.step();
            }
            return;
        case Job::Kind::Renumber: {
            SqliteStatement::Run row(m_statements->renumber);
            row.bind(1, job.origin.sequence);
            row.step();
            return;
        }
    }
}

// They are on disk: those who wait for that learn it.
void InformQueue::taken(Round& round) {
    {
        const MutexLock lock(m_mutex);
        for (Job& job : round.jobs) {
            if (job.kind != Job::Kind::Add || job.inform.trap == nullptr) continue;
            Lane& lane = *job.lane;
            if (lane.complete && lane.first.size() < IN_MEMORY) {
                round.ready = true;
                lane.first.push_back(job.inform);
                lane.lastLoaded = job.inform.number;
            } else {
                lane.complete = false;
            }
            job.inform.trap.reset();
        }
    }
    for (Job& job : round.jobs) {
        if (const Settled settled = std::exchange(job.settled, nullptr)) settled();
        if (const auto renumbered = std::exchange(job.renumbered, nullptr)) renumbered->set_value();
    }
    if (std::exchange(round.ready, false)) m_onReady();
}

// Reads the next informs of receivers that have more on disk than in memory. False when that failed.
bool InformQueue::refill() {
    std::vector<std::shared_ptr<Lane>> wanting;
    {
        const MutexLock lock(m_mutex);
        for (const auto& entry : m_lanes) {
            if (entry.second->wantsMore()) wanting.push_back(entry.second);
        }
    }
    if (wanting.empty()) return true;
    try {
        for (const std::shared_ptr<Lane>& lane : wanting) refill(lane);
    } catch (const SqliteError& fault) {
        m_reading.begins([&] { logLine<lines::INFORMS_UNREADABLE>(fault.what()); });
        return false;
    }
    m_reading.ends([] { logLine<lines::INFORMS_READABLE>(); });
    return true;
}

void InformQueue::refill(const std::shared_ptr<Lane>& lane) {
    std::vector<Inform> informs;
    Jobs unreadable;
    std::size_t rows = 0;
    std::uint64_t last = lane->lastLoaded;  // changed by this thread alone
    SqliteStatement::Run row(m_statements->select);
    row.bind(1, lane->name);
    row.bind(2, last);
    row.bind(3, IN_MEMORY);
    for (; row.step(); ++rows) {
        last = row.number(0);
        std::optional<Notification> trap = trapFrom(row.bytes(2));
        if (trap) {
            informs.push_back({last, static_cast<std::uint32_t>(row.number(1)),
                               std::make_shared<const Notification>(std::move(*trap))});
        } else {
            Job job;
            job.kind = Job::Kind::Remove;
            job.lane = lane;
            job.inform.number = last;
            unreadable.push_back(std::move(job));
        }
    }
    if (!unreadable.empty()) logLine<lines::STORED_INFORMS_DAMAGED>(lane->name, unreadable.size());
    {
        const MutexLock lock(m_mutex);
        lane->first.insert(lane->first.end(), informs.begin(), informs.end());
        lane->lastLoaded = last;
        lane->complete = rows < IN_MEMORY;
        lane->standing.waiting -= unreadable.size();
        lane->standing.unreadable += unreadable.size();
        m_jobs.splice(m_jobs.end(), unreadable);
    }
    if (!informs.empty()) m_onReady();
}

}  // namespace vrx
