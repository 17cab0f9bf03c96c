#include "host/agent/loop/worker_barrier.h"

#include <utility>

namespace vrx {

void WorkerBarrier::hold(const std::vector<ObjectWorker*>& workers, std::function<void()> held) {
    m_hold = std::make_shared<Hold>();
    m_hold->missing = workers.size();
    if (workers.empty()) {
        held();
        return;
    }
    for (ObjectWorker* worker : workers) {
        worker->submit([hold = m_hold, held] {
            std::unique_lock<std::mutex> lock(hold->mutex);
            if (hold->open) return;
            if (--hold->missing == 0) held();
            hold->changed.wait(lock, [&] { return hold->open; });
        });
    }
}

void WorkerBarrier::release() {
    const std::shared_ptr<Hold> hold = std::exchange(m_hold, nullptr);
    if (hold == nullptr) return;
    const std::lock_guard<std::mutex> lock(hold->mutex);
    hold->open = true;
    hold->changed.notify_all();
}

}  // namespace vrx
