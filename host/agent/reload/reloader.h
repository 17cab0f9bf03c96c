// Reloads the configuration while the agent runs: all of it or, if anything has a fault, nothing.
//
//     Reloader reloader(loop, agent, notifications, places);
//     reloader.request([](const ReloadResult& result) { ... });
//
// First a process of its own reads all files as the agent would at its start (configuration_check.h): a pipe, or a file
// of any size, in the place of one holds up nobody here. When it finds no fault, and the files are still the ones that
// it has read, the handlers are held between two of their jobs, and everything is exchanged at once: device
// configuration and log levels, alarm definitions and enumerations, the engine's configuration, the MIB's shapes, the
// list of destinations. Requests and notifications wait meanwhile, for milliseconds; none is lost, no walk ends.
// Listeners, the backend's address and identity stay until the next start.
//
// Threads: agent thread. Requests that come while one is under way share one that follows it.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "host/agent/assembly/agent.h"
#include "host/agent/assembly/notification_service.h"
#include "host/agent/loop/timer.h"
#include "host/agent/loop/wakeup.h"
#include "host/agent/loop/worker_barrier.h"
#include "host/base/check_process.h"

namespace vrx {

struct ReloadResult {
    bool taken = false;
    std::vector<std::string> faults;  // lines of the check, or why nothing could be exchanged
};

class Reloader {
public:
    using Done = std::function<void(const ReloadResult& result)>;

    struct Places {
        std::string root;                       // the product root
        std::vector<std::string> checkCommand;  // path and arguments of the program that checks
    };

    struct Counters {
        std::uint64_t taken = 0;
        std::uint64_t refused = 0;
        std::chrono::system_clock::time_point last{};  // end of the last one
        bool lastTaken = true;
    };

    // All that is given outlives the reloader.
    Reloader(AgentLoop& loop, Agent& agent, NotificationService& notifications, Places places);
    ~Reloader();
    Reloader(const Reloader&) = delete;
    Reloader& operator=(const Reloader&) = delete;

    // `done` is called from the loop.
    void request(Done done = {});

    // Called while everything is exchanged, with the engine's new configuration in force; what it throws is told as a
    // fault, and the rest is taken over all the same.
    std::function<void()> onExchange;

    // Nothing is exchanged any more, and nobody held.
    void stop();

    const Counters& counters() const { return m_counters; }

    // Called around each reload, for whoever shows it.
    std::function<void()> onBegin = [] {};
    std::function<void(const ReloadResult& result)> onEnd = [](const ReloadResult&) {};

private:
    // What changes with a file: device, inode, size, times of change. The files themselves are read elsewhere.
    using Version = std::tuple<dev_t, ino_t, off_t, std::chrono::nanoseconds, std::chrono::nanoseconds>;
    // Of each file that a reload takes over, by path; of a missing one nothing.
    using Files = std::map<std::string, std::optional<Version>>;

    Files versions() const;
    void attempt(const std::function<void()>& step);
    void check();
    void checked();
    void hold();
    void held();
    void exchange();
    std::string engineFile() const;
    bool mibDiffers() const;
    bool definitionsDiffer() const;
    void finish(ReloadResult result);

    Agent& m_agent;
    NotificationService& m_notifications;
    const Places m_places;

    Files m_taken;                                // what the agent runs with
    Files m_checked;                              // what the check is about
    std::chrono::steady_clock::time_point m_end;  // of all checks of one reload
    std::uint64_t m_holding = 0;                  // number of the hold that is waited for or in force
    bool m_busy = false;
    bool m_stopped = false;
    std::vector<Done> m_waiting;  // for the reload that is under way
    std::vector<Done> m_next;     // for the one after it
    bool m_again = false;
    Counters m_counters;

    CheckProcess::Outcome m_outcome;             // set by the process's thread before m_checkEnded
    std::atomic<std::uint64_t> m_heldNumber{0};  // hold that came to be, set by a worker before m_allHeld
    LoopWakeup m_checkEnded;
    LoopWakeup m_allHeld;
    LoopTimer m_heldTooLong;
    WorkerBarrier m_barrier;
    std::unique_ptr<CheckProcess> m_process;
};

}  // namespace vrx
