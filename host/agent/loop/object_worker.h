// The thread on which one object's handler runs: operations on an object never overlap, and a slow one delays no other
// object and not the agent thread. It is made for the first job, ends when none has come for a while, and is made again
// for the next one: an object that nobody asks for has none.
//
// Threads: submit() from any thread. Jobs run one after the other, with all signals blocked; they must not throw, but
// for std::bad_alloc: then they are run again, and do all or nothing.
#pragma once

#include <chrono>
#include <deque>
#include <functional>
#include <string>
#include <thread>

#include "host/base/mutex.h"

namespace vrx {

class ObjectWorker {
public:
    static constexpr std::chrono::seconds IDLE{10};

    // `name` is that of the thread, for debuggers: its first 15 characters. The thread ends `idle` after its last job.
    explicit ObjectWorker(std::string name, std::chrono::milliseconds idle = IDLE);
    ~ObjectWorker();  // stops, and waits for the running job
    ObjectWorker(const ObjectWorker&) = delete;
    ObjectWorker& operator=(const ObjectWorker&) = delete;

    // All or nothing: throws std::bad_alloc without memory, and when the system has no thread for the job.
    void submit(std::function<void()> job);

    // The running job is the last one; jobs that have not begun are destroyed unrun, also later ones.
    void requestStop();

    // Waits until the running job has ended: false when it has not until then.
    [[nodiscard]] bool waitStopped(std::chrono::steady_clock::time_point end);

private:
    void start() REQUIRES(m_mutex);
    void run();

    const std::string m_name;
    const std::chrono::milliseconds m_idle;

    Mutex m_mutex;
    ConditionVariable m_wakeup;
    std::deque<std::function<void()>> m_jobs GUARDED_BY(m_mutex);  // none, unless the thread runs
    bool m_stop GUARDED_BY(m_mutex) = false;
    bool m_running GUARDED_BY(m_mutex) = false;  // the thread; one that does not run only has to be joined
    std::thread m_thread GUARDED_BY(m_mutex);
};

}  // namespace vrx
