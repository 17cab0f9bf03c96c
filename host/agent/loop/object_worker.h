// The thread on which one object's handler runs: operations on an object never overlap, and a slow one delays no other
// object and not the agent thread.
//
// Threads: submit() from any thread. Jobs run one after the other, with all signals blocked; they must not throw.
#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

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
    bool waitStopped(std::chrono::steady_clock::time_point end);

private:
    void run();

    std::mutex m_mutex;
    std::condition_variable m_wakeup;
    std::deque<std::function<void()>> m_jobs;  // guarded by m_mutex
    bool m_stop = false;                       // guarded by m_mutex
    bool m_ended = false;                      // guarded by m_mutex
    std::thread m_thread;                      // last: it uses the others
};

}  // namespace vrx
