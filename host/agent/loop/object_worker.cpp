#include "host/agent/loop/object_worker.h"

#include <pthread.h>

#include <exception>
#include <new>
#include <utility>

#include "host/base/memory_retry.h"
#include "host/base/thread_without_signals.h"

namespace vrx {

ObjectWorker::ObjectWorker(std::string name, std::chrono::milliseconds idle)
    : m_name(name.substr(0, 15)), m_idle(idle) {}

ObjectWorker::~ObjectWorker() {
    requestStop();
    std::thread thread;
    {
        const MutexLock lock(m_mutex);
        thread.swap(m_thread);
    }
    if (thread.joinable()) thread.join();
}

void ObjectWorker::submit(std::function<void()> job) {
    const MutexLock lock(m_mutex);
    if (m_stop) return;
    m_jobs.push_back(std::move(job));
    if (m_running) {
        m_wakeup.notify_all();
        return;
    }
    try {
        start();
    } catch (const std::exception&) {
        m_jobs.pop_back();
        throw std::bad_alloc();  // for whoever waits until there is memory: it is the same shortage
    }
}

void ObjectWorker::start() {
    if (m_thread.joinable()) m_thread.join();  // at once: nothing is left to it but its end
    m_thread = threadWithoutSignals([this] { run(); });
    m_running = true;
}

void ObjectWorker::requestStop() {
    const MutexLock lock(m_mutex);
    m_stop = true;
    m_wakeup.notify_all();
}

bool ObjectWorker::waitStopped(std::chrono::steady_clock::time_point end) {
    MutexLock lock(m_mutex);
    return m_wakeup.wait_until(lock, end, [this]() REQUIRES(m_mutex) { return !m_running; });
}

void ObjectWorker::run() {
    pthread_setname_np(pthread_self(), m_name.c_str());
    MutexLock lock(m_mutex);
    const auto wanted = [this]() REQUIRES(m_mutex) { return m_stop || !m_jobs.empty(); };
    while (m_wakeup.wait_for(lock, m_idle, wanted) && !m_stop) {
        {
            const std::function<void()> job = std::move(m_jobs.front());
            m_jobs.pop_front();
            lock.unlock();
            retryForever(job);
        }
        lock.lock();
    }
    m_jobs.clear();
    m_running = false;
    m_wakeup.notify_all();
}

}  // namespace vrx
