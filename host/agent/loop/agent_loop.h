// The agent thread's event loop: Net-SNMP's own, with a door for other threads and timers of our own.
//
//     AgentLoop loop;
//     worker.submit([&] { auto rows = ask(); loop.post([rows] { answer(rows); }); });
//     loop.run();  // until stop()
//
// Threads: one thread, the agent thread, makes the loop, runs it and destroys it; it is the only thread of the process
// that calls Net-SNMP. post() and stop() may be called from any thread, stop() from a signal handler too.
// Tasks must not throw: an exception is logged and goes no further. What an object has done for itself by the loop goes
// through a LoopTimer (timer.h) or a LoopWakeup (wakeup.h), which end with it and need no memory.
#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <map>
#include <vector>

#include "host/base/mutex.h"

namespace vrx {

class LoopTimer;
class LoopWakeup;

class AgentLoop {
public:
    using Task = std::function<void()>;

    AgentLoop();   // throws std::system_error when the process has no descriptors left
    ~AgentLoop();  // tasks that have not run are destroyed unrun
    AgentLoop(const AgentLoop&) = delete;
    AgentLoop& operator=(const AgentLoop&) = delete;

    // Runs the task on the agent thread soon; tasks of one thread run in their order. Any thread, at any time.
    void post(Task task);

    // Runs the task once, again when it throws std::bad_alloc, not before `delay` has passed. Agent thread only.
    void runAfter(std::chrono::milliseconds delay, Task task);

    // Serves until stop(); may be called again then. Agent thread only.
    void run();

    // Lets run() return after its current turn. Any thread; async-signal-safe.
    void stop();

    // Runs what was posted so far, without waiting: for the end of the program. Agent thread only.
    void drain();

private:
    friend class LoopTimer;
    friend class LoopWakeup;

    using Clock = std::chrono::steady_clock;

    // One of the two.
    struct Timer {
        Task task;
        LoopTimer* timer = nullptr;
    };
    using Timers = std::multimap<Clock::time_point, Timer>;

    void wakeUp();
    void runWakeups();
    void runDue();
    void armTimer();

    int m_wakeup;  // eventfd: something was posted, or stop() was called
    int m_timer;   // timerfd: the first of m_timers is due
    std::atomic<bool> m_stop{false};
    Timers m_timers;                     // agent thread only, as the next
    std::vector<LoopWakeup*> m_wakeups;  // null: a place that is free

    Mutex m_mutex;
    std::vector<Task> m_posted GUARDED_BY(m_mutex);
};

}  // namespace vrx
