// Holds the threads of all objects between two of their jobs, so that what their handlers share can be exchanged.
//
//     WorkerBarrier barrier;
//     barrier.hold(workers, [&] { loop.post(...); });   // called once no handler is at work
//     barrier.release();
//
// Jobs that are submitted meanwhile wait. Threads: hold() and release() from one thread; `held` is called by a worker.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <vector>

#include "host/agent/loop/object_worker.h"
#include "host/base/mutex.h"

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
        explicit Hold(std::size_t workers) : missing(workers) {}

        Mutex mutex;
        ConditionVariable changed;
        std::size_t missing GUARDED_BY(mutex) = 0;
        bool open GUARDED_BY(mutex) = false;
    };
    std::shared_ptr<Hold> m_hold;  // shared with the jobs: they may run after the barrier has gone
};

}  // namespace vrx
