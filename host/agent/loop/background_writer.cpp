#include "host/agent/loop/background_writer.h"

#include <chrono>
#include <utility>

#include "host/base/memory_retry.h"
#include "host/base/thread_without_signals.h"

namespace vrx {

namespace {

constexpr std::chrono::milliseconds WRITE_INTERVAL{100};

}  // namespace

BackgroundWriter::BackgroundWriter(std::function<bool()> write) : m_write(std::move(write)) {
    m_thread = threadWithoutSignals([this] { run(); });
}

BackgroundWriter::~BackgroundWriter() {
    stop();
}

void BackgroundWriter::wake() {
    const MutexLock lock(m_mutex);
    if (!std::exchange(m_awake, true)) m_changed.notify_all();
}

void BackgroundWriter::stop() {
    if (!m_thread.joinable()) return;
    {
        const MutexLock lock(m_mutex);
        m_stopping = true;
    }
    m_changed.notify_all();
    m_thread.join();
}

void BackgroundWriter::run() {
    MutexLock lock(m_mutex);
    for (;;) {
        m_changed.wait(lock, [this]() REQUIRES(m_mutex) { return m_stopping || m_awake; });
        if (m_stopping) return;
        m_awake = false;
        lock.unlock();
        const bool complete = retryForever(m_write);
        lock.lock();
        m_awake = m_awake || !complete;
        m_changed.wait_for(lock, WRITE_INTERVAL, [this]() REQUIRES(m_mutex) { return m_stopping; });
    }
}

}  // namespace vrx
