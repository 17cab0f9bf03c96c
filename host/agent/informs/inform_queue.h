// Informs that wait for their acknowledgement, on disk, in the order in which they came, for each receiver by itself.
//
//     InformQueue queue(root + "/state/informs.db", [&] { /* some receiver has informs now */ });
//     queue.setReceivers({{"nms.example.com:162", 20000}}, true);
//     InformQueue::Places places = queue.places(1, trap, [] { /* it is on disk */ });
//     queue.add("nms.example.com:162", origin, upTime, places);
//     while (const auto inform = queue.first(name)) { send(*inform); queue.remove(name, inform->number); }
//     queue.first(name, inform->number);  // the one after that
//
// A thread of the queue's own does all that needs the disk: what came meanwhile becomes one transaction. Of each
// receiver it keeps the first few informs in memory. While the file cannot be written everything stays in memory,
// within the limit of each receiver, and nothing is reported as being on disk; one log line for each change of state.
//
// With its informs a receiver has the origin of the last one: alarm events come again after a restart of the agent, and
// those that it was given informs of already give it none.
//
// Threads: any. What is called back comes from the queue's thread, without a lock of it.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <future>
#include <list>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <thread>

#include "host/agent/delivery/notification_sink.h"
#include "host/agent/informs/inform_channel.h"
#include "host/base/fault_line.h"
#include "host/base/mutex.h"
#include "host/base/sqlite_database.h"

namespace vrx {

class InformQueue {
    struct Lane;
    struct Job;

public:
    using Settled = std::function<void()>;
    using Limits = std::map<std::string, std::size_t>;  // most informs that wait, by receiver

    enum class Added { Waiting, Repeated, Full };

    struct Standing {
        std::size_t waiting = 0;
        std::uint64_t restored = 0;    // came with the file
        std::uint64_t unreadable = 0;  // came with the file, and were dropped
    };

    // Opens or creates the file. `onReady` is called when first() has more to give than it had. Throws SqliteError.
    InformQueue(const std::string& path, std::function<void()> onReady);

    ~InformQueue();
    InformQueue(const InformQueue&) = delete;
    InformQueue& operator=(const InformQueue&) = delete;

    // From here on these receivers. Gives those that are gone with the number of informs that waited for each, which
    // are dropped; with `keepOthers` what the file has for unknown ones stays in it.
    Limits setReceivers(const Limits& limits, bool keepOthers);

    // Memory for the informs of a trap to so many receivers: each add() takes a place. `settled` is called for each,
    // when it is on disk, or at once when it is not taken.
    using Places = std::list<Job>;
    static Places places(std::size_t receivers, const std::shared_ptr<const Notification>& trap,
                         const Settled& settled);

    // Needs no memory. REQUIRES: the receiver is known, and there is a place.
    Added add(const std::string& receiver, const NotificationOrigin& origin, std::uint32_t upTime, Places& places);

    // The first inform with a number above `after`; nothing when none is in memory. Gives the same one until it is
    // removed.
    std::optional<Inform> first(const std::string& receiver, std::uint64_t after = 0) const;

    // It is done with. Soon on disk.
    void remove(const std::string& receiver, std::uint64_t number);

    // Events are numbered anew: those after `sequence` are new ones for all receivers. On disk when it returns. Throws
    // SqliteError.
    void startAfter(unsigned long long sequence);

    // Writes what is left, unless the file cannot be written, and nothing from then on.
    void stop();

    Standing standing(const std::string& receiver) const;

private:
    struct Statements;
    struct Round;

    // Something for the disk.
    struct Job {
        enum class Kind { Add, Remove, Drop, Renumber };
        Kind kind = Kind::Add;
        std::shared_ptr<Lane> lane;
        Inform inform;              // Add; number also of Remove
        NotificationOrigin origin;  // Add, Renumber
        Settled settled;
        std::shared_ptr<std::promise<void>> renumbered;
    };
    using Jobs = std::list<Job>;

    void load();
    void run();
    bool serve(Round& round);
    bool write(Jobs& jobs);
    void execute(Job& job);
    void taken(Round& round);
    bool refill();
    void refill(const std::shared_ptr<Lane>& lane);
    bool wantsRefill() const REQUIRES(m_mutex);

    SqliteDatabase m_database;  // the thread's, but for the constructor, as the rest down to the next line
    std::unique_ptr<Statements> m_statements;
    FaultLine m_writing;
    FaultLine m_reading;

    const std::function<void()> m_onReady;

    mutable Mutex m_mutex;
    ConditionVariable m_changed;
    std::map<std::string, std::shared_ptr<Lane>> m_lanes GUARDED_BY(m_mutex);
    std::map<std::string, std::shared_ptr<Lane>> m_strangers GUARDED_BY(m_mutex);  // in the file, but no receivers now
    Jobs m_jobs GUARDED_BY(m_mutex);
    bool m_stopping GUARDED_BY(m_mutex) = false;

    std::thread m_thread;
};

}  // namespace vrx
