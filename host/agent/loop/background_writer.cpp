#include "host/agent/loop/background_writer.h"

#include <algorithm>
#include <chrono>
#include <thread>
#include <utility>
#include <vector>

#include "host/base/memory_retry.h"
#include "host/base/mutex.h"
#include "host/base/thread_without_signals.h"

namespace vrx {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds WRITE_INTERVAL{100};

}  // namespace

// What one writer has to do.
struct BackgroundWriter::Work {
    explicit Work(std::function<bool()> given) : write(std::move(given)) {}

    const std::function<bool()> write;
    // Guarded by the thread's mutex:
    bool awake = false;
    bool underWay = false;
    Clock::time_point notBefore;
};

class BackgroundWriter::Thread {
public:
    static std::shared_ptr<Thread> ofProcess();

    Thread() : m_thread(threadWithoutSignals([this] { run(); })) {}
    ~Thread();
    Thread(const Thread&) = delete;
    Thread& operator=(const Thread&) = delete;

    void add(std::shared_ptr<Work> work);
    void wake(Work& work);
    void remove(const std::shared_ptr<Work>& work);

private:
    void run();
    std::shared_ptr<Work> next() const REQUIRES(m_mutex);

    Mutex m_mutex;
    ConditionVariable m_changed;
    std::vector<std::shared_ptr<Work>> m_works GUARDED_BY(m_mutex);
    bool m_stopping GUARDED_BY(m_mutex) = false;

    std::thread m_thread;  // last: it uses the others
};

std::shared_ptr<BackgroundWriter::Thread> BackgroundWriter::Thread::ofProcess() {
    static Mutex mutex;
    static std::weak_ptr<Thread> known;
    const MutexLock lock(mutex);
    std::shared_ptr<Thread> thread = known.lock();
    if (thread == nullptr) {
        thread = std::make_shared<Thread>();
        known = thread;
    }
    return thread;
}

BackgroundWriter::Thread::~Thread() {
    {
        const MutexLock lock(m_mutex);
        m_stopping = true;
        m_changed.notify_all();
    }
    m_thread.join();
}

void BackgroundWriter::Thread::add(std::shared_ptr<Work> work) {
    const MutexLock lock(m_mutex);
    m_works.push_back(std::move(work));
}

void BackgroundWriter::Thread::wake(Work& work) {
    const MutexLock lock(m_mutex);
    if (!std::exchange(work.awake, true)) m_changed.notify_all();
}

void BackgroundWriter::Thread::remove(const std::shared_ptr<Work>& work) {
    MutexLock lock(m_mutex);
    m_works.erase(std::remove(m_works.begin(), m_works.end(), work), m_works.end());
    m_changed.wait(lock, [&work] { return !work->underWay; });
}

// The one that waits longest.
std::shared_ptr<BackgroundWriter::Work> BackgroundWriter::Thread::next() const {
    std::shared_ptr<Work> first;
    for (const std::shared_ptr<Work>& work : m_works) {
        if (work->awake && (first == nullptr || work->notBefore < first->notBefore)) first = work;
    }
    return first;
}

void BackgroundWriter::Thread::run() {
    MutexLock lock(m_mutex);
    while (!m_stopping) {
        const std::shared_ptr<Work> work = next();
        if (work == nullptr) {
            m_changed.wait(lock);
        } else if (work->notBefore > Clock::now()) {
            m_changed.wait_until(lock, work->notBefore);
        } else {
            work->awake = false;
            work->underWay = true;
            lock.unlock();
            const bool complete = retryForever(work->write);
            lock.lock();
            work->underWay = false;
            work->awake = work->awake || !complete;
            work->notBefore = Clock::now() + WRITE_INTERVAL;
            m_changed.notify_all();
        }
    }
}

BackgroundWriter::BackgroundWriter(std::function<bool()> write)
    : m_thread(Thread::ofProcess()), m_work(std::make_shared<Work>(std::move(write))) {
    m_thread->add(m_work);
}

BackgroundWriter::~BackgroundWriter() {
    stop();
}

void BackgroundWriter::wake() {
    m_thread->wake(*m_work);
}

void BackgroundWriter::stop() {
    m_thread->remove(m_work);
}

}  // namespace vrx
