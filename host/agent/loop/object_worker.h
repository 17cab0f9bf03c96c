// The thread on which one object's handler runs: operations on an object never overlap, and a slow one delays no other
// object and not the agent thread.
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
    explicit ObjectWorker(const std::string& name);  // of the thread, for debuggers: its first 15 characters
    ~ObjectWorker();                                 // stops, and waits for the running job
    ObjectWorker(const ObjectWorker&) = delete;
    ObjectWorker& operator=(const ObjectWorker&) = delete;

    void submit(std::function<void()> job);

    // The running job is the last one; jobs that have not begun are destroyed unrun, also later ones.
    void requestStop();

    // Waits until the running job has ended: false when it has not until then.
    [[nodiscard]] bool waitStopped(std::chrono::steady_clock::time_point end);

private:
    void run();

    Mutex m_mutex;
    ConditionVariable m_wakeup;
    std::deque<std::function<void()>> m_jobs GUARDED_BY(m_mutex);
    bool m_stop GUARDED_BY(m_mutex) = false;
    bool m_ended GUARDED_BY(m_mutex) = false;
    std::thread m_thread;  // last: it uses the others
};

}  // namespace vrx
