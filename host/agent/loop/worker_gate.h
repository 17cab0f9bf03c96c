// Holds the threads of all objects between two of their jobs, so that what their handlers share can be exchanged.
//
//     WorkerGate gate;
//     gate.hold(workers, [&] { loop.post(...); });   // called once no handler is at work
//     gate.release();
//
// Jobs that are submitted meanwhile wait. Threads: hold() and release() from one thread; `held` is called by a worker.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "host/agent/loop/object_worker.h"

class WorkerGate {
public:
    WorkerGate() = default;
    ~WorkerGate() { release(); }
    WorkerGate(const WorkerGate&) = delete;
    WorkerGate& operator=(const WorkerGate&) = delete;

    // REQUIRES: it holds nobody yet. Without workers `held` is called at once.
    void hold(const std::vector<ObjectWorker*>& workers, std::function<void()> held);

    // Lets all go on; those who have not come yet are not held any more.
    void release();

private:
    struct tHold {
        std::mutex mutex;
        std::condition_variable changed;
        std::size_t missing = 0;
        bool open = false;
    };
    std::shared_ptr<tHold> m_hold;  // shared with the jobs: they may run after the gate has gone
};
