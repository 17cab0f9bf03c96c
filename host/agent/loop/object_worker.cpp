#include "host/agent/loop/object_worker.h"

#include <pthread.h>

#include <utility>

#include "host/base/memory_retry.h"
#include "host/base/thread_without_signals.h"

namespace vrx {

ObjectWorker::ObjectWorker(const std::string& name) {
    m_thread = threadWithoutSignals([this] { run(); });
    pthread_setname_np(m_thread.native_handle(), name.substr(0, 15).c_str());
}

ObjectWorker::~ObjectWorker() {
    requestStop();
    m_thread.join();
}

void ObjectWorker::submit(std::function<void()> job) {
    const MutexLock lock(m_mutex);
    if (m_stop) return;
    m_jobs.push_back(std::move(job));
    m_wakeup.notify_all();
}

void ObjectWorker::requestStop() {
    const MutexLock lock(m_mutex);
    m_stop = true;
    m_wakeup.notify_all();
}

bool ObjectWorker::waitStopped(std::chrono::steady_clock::time_point end) {
    MutexLock lock(m_mutex);
    return m_wakeup.wait_until(lock, end, [this]() REQUIRES(m_mutex) { return m_ended; });
}

void ObjectWorker::run() {
    MutexLock lock(m_mutex);
    while (true) {
        m_wakeup.wait(lock, [this]() REQUIRES(m_mutex) { return m_stop || !m_jobs.empty(); });
        if (m_stop) break;
        {
            const std::function<void()> job = std::move(m_jobs.front());
            m_jobs.pop_front();
            lock.unlock();
            retryForever(job);
        }
        lock.lock();
    }
    m_jobs.clear();
    m_ended = true;
    m_wakeup.notify_all();
}

}  // namespace vrx
