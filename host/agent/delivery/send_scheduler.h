// Gives a sender its turns on the agent thread: after it was woken, when a time has come, and when the name of one of
// its receivers has another address.
//
//     SendScheduler scheduler(loop, [this] { takeTurn(); }, shortestSleep, resolveInterval, lookup);
//     scheduler.wake();                                     // any thread: there is something to send
//     scheduler.watch({"nms.example.com", "192.0.2.7"});    // in a turn, as the rest
//     const std::string address = scheduler.addressOf("nms.example.com");
//     scheduler.sleepUntil(nextTime);
//
// However often it is woken, one turn at most is on its way. Memory that runs out costs no turn: to wake needs none,
// and a turn that throws std::bad_alloc is taken again from its beginning.
//
// Threads: wake() and stopped() may be called from any, also under a lock that turns take; the rest, the constructor
// and the destructor included, from the agent thread.
#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>

#include "host/agent/delivery/name_resolver.h"
#include "host/agent/loop/timer.h"
#include "host/agent/loop/wakeup.h"
#include "host/base/mutex.h"

namespace vrx {

class SendScheduler {
public:
    using Clock = std::chrono::steady_clock;

    // `loop` outlives this object. Throws std::system_error when no thread can be started to look up names.
    SendScheduler(AgentLoop& loop, std::function<void()> turn, std::chrono::milliseconds shortestSleep,
                  std::chrono::seconds resolveInterval, NameResolver::Lookup lookup);
    SendScheduler(const SendScheduler&) = delete;
    SendScheduler& operator=(const SendScheduler&) = delete;

    // A turn is taken soon, unless it is stopped.
    void wake() noexcept;

    // The same at that time, but not before the shortest sleep is over.
    void sleepUntil(Clock::time_point when) noexcept;

    // Looks up the names among these hosts from now on, and no others. REQUIRES: it is not stopped.
    void watch(const std::set<std::string>& hosts);

    // Of a watched name, the last one that it had: it keeps that while the name server is away. "" while it had none.
    // An address is its own.
    std::string addressOf(const std::string& host) const;

    // From now on no turn is taken and no name looked up.
    void stop();

    bool stopped() const { return m_stopped; }

private:
    void takeAnswers();

    const std::function<void()> m_turn;
    const std::chrono::milliseconds m_shortestSleep;

    std::atomic<bool> m_stopped{false};

    Clock::time_point m_wakeAt;  // of the timer, while it runs; agent thread only, as the next two
    std::set<std::string> m_hosts;
    std::map<std::string, std::string> m_addresses;  // of the names among them; "" while there is none

    Mutex m_mutex;
    std::map<std::string, std::string> m_answers GUARDED_BY(m_mutex);  // of the resolver, by name

    LoopWakeup m_turnWanted;
    LoopWakeup m_answered;
    LoopTimer m_timer;

    std::unique_ptr<NameResolver> m_resolver;  // last: its thread uses the others
};

}  // namespace vrx
