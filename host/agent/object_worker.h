// The thread on which one object's handler runs: operations on an object never overlap, and a slow one delays no other
// object and not the agent thread.
//
// Threads: submit() from any thread. Jobs run one after the other, with all signals blocked; they must not throw.
#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

class ObjectWorker {
public:
    explicit ObjectWorker(const std::string& name);  // of the thread, for debuggers: its first 15 characters
    ~ObjectWorker();                                 // stops
    ObjectWorker(const ObjectWorker&) = delete;
    ObjectWorker& operator=(const ObjectWorker&) = delete;

    void submit(std::function<void()> job);

    // Waits for the running job; jobs that have not begun are destroyed unrun, also later ones.
    void stop();

private:
    void run();

    std::mutex m_mutex;
    std::condition_variable m_wakeup;
    std::deque<std::function<void()>> m_jobs;  // guarded by m_mutex
    bool m_stop = false;                       // guarded by m_mutex
    std::thread m_thread;                      // last: it uses the others
};
