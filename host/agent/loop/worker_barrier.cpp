#include "host/agent/loop/worker_barrier.h"

#include <utility>

namespace vrx {

void WorkerBarrier::hold(const std::vector<ObjectWorker*>& workers, std::function<void()> held) {
    m_hold = std::make_shared<Hold>(workers.size());
    if (workers.empty()) {
        held();
        return;
    }
    for (ObjectWorker* worker : workers) {
        worker->submit([hold = m_hold, held] {
            MutexLock lock(hold->mutex);
            if (hold->open) return;
            if (--hold->missing == 0) held();
            hold->changed.wait(lock, [&]() REQUIRES(hold->mutex) { return hold->open; });
        });
    }
}

void WorkerBarrier::release() {
    const std::shared_ptr<Hold> hold = std::exchange(m_hold, nullptr);
    if (hold == nullptr) return;
    const MutexLock lock(hold->mutex);
    hold->open = true;
    hold->changed.notify_all();
}

}  // namespace vrx
