// Holds the threads of all objects between two of their jobs, so that what their handlers share can be exchanged.
//
//     WorkerBarrier barrier;
//     barrier.hold(workers, [&] { loop.post(...); });   // called once no handler is at work
//     barrier.release();
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

namespace vrx {

class WorkerBarrier {
public:
    WorkerBarrier() = default;
    ~WorkerBarrier() { release(); }
    WorkerBarrier(const WorkerBarrier&) = delete;
    WorkerBarrier& operator=(const WorkerBarrier&) = delete;

    // REQUIRES: it holds nobody yet. Without workers `held` is called at once.
    void hold(const std::vector<ObjectWorker*>& workers, std::function<void()> held);

    // Lets all go on; those who have not come yet are not held any more.
    void release();

private:
    struct Hold {
        std::mutex mutex;
        std::condition_variable changed;
        std::size_t missing = 0;
        bool open = false;
    };
    std::shared_ptr<Hold> m_hold;  // shared with the jobs: they may run after the barrier has gone
};

}  // namespace vrx
