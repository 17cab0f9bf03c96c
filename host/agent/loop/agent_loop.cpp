#include "host/agent/loop/agent_loop.h"

#include <sys/eventfd.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <exception>
#include <system_error>
#include <utility>

#include "host/agent/loop/timer.h"
#include "host/agent/loop/wakeup.h"
#include "host/base/log_line.h"
#include "host/base/memory_retry.h"
#include "host/log_lines/requests.h"
#include "host/snmp/net_snmp.h"

namespace vrx {

namespace {

// The agent thread blocks in select while nothing happens; both descriptors only interrupt that wait.
int checked(int descriptor, const char* what) {
    if (descriptor < 0) throw std::system_error(errno, std::generic_category(), what);
    return descriptor;
}

void consume(int descriptor) {
    std::uint64_t count = 0;
    [[maybe_unused]] const ssize_t got = ::read(descriptor, &count, sizeof count);  // EAGAIN: already consumed
}

template <typename Task>
void runGuarded(const Task& task) {
    try {
        task();
    } catch (const std::exception& error) {
        logFault<lines::TASK_FAILED>(error.what());
    } catch (...) {
        logFault<lines::TASK_FAILED_UNKNOWN>();
    }
}

// For what nobody would ask for again.
void runWithMemory(const AgentLoop::Task& action) {
    runGuarded([&action] { retryForever(action); });
}

}  // namespace

AgentLoop::AgentLoop()
    : m_wakeup(checked(::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC), "eventfd")),
      m_timer(::timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC)) {
    if (m_timer < 0) {
        const int error = errno;
        ::close(m_wakeup);
        throw std::system_error(error, std::generic_category(), "timerfd");
    }
    register_readfd(
        m_wakeup, [](int, void* self) { static_cast<AgentLoop*>(self)->drain(); }, this);
    register_readfd(
        m_timer, [](int, void* self) { static_cast<AgentLoop*>(self)->runDue(); }, this);
}

AgentLoop::~AgentLoop() {
    unregister_readfd(m_wakeup);
    unregister_readfd(m_timer);
    ::close(m_wakeup);
    ::close(m_timer);
}

void AgentLoop::post(Task task) {
    {
        const MutexLock lock(m_mutex);
        m_posted.push_back(std::move(task));
    }
    wakeUp();
}

void AgentLoop::wakeUp() {
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t put = ::write(m_wakeup, &one, sizeof one);  // EAGAIN: it is awake already
}

void AgentLoop::runAfter(std::chrono::milliseconds delay, Task task) {
    m_timers.emplace(Clock::now() + delay, Timer{std::move(task)});
    armTimer();
}

void AgentLoop::run() {
    while (!m_stop.exchange(false)) {
        agent_check_and_process(1);
        snmp_timeout();  // the library does it on idle turns only: steady traffic would starve retries
    }
}

void AgentLoop::stop() {
    m_stop.store(true);
    wakeUp();
}

void AgentLoop::drain() {
    consume(m_wakeup);
    std::vector<Task> tasks;
    {
        const MutexLock lock(m_mutex);
        tasks.swap(m_posted);
    }
    for (const Task& task : tasks) runGuarded(task);
    runWakeups();
}

// An action may ask for itself again: that is for the next turn of the loop. It may also make and destroy wake-ups.
void AgentLoop::runWakeups() {
    for (std::size_t i = 0; i < m_wakeups.size(); ++i) {
        LoopWakeup* const wakeup = m_wakeups[i];
        if (wakeup == nullptr || !wakeup->m_requested.exchange(false)) continue;
        const std::shared_ptr<const Task> action = wakeup->m_action;
        runWithMemory(*action);
    }
}

void AgentLoop::runDue() {
    consume(m_timer);
    const auto now = Clock::now();  // once: a task may add timers, also such as are due at once
    while (!m_timers.empty() && m_timers.begin()->first <= now) {
        Timers::node_type due = m_timers.extract(m_timers.begin());
        LoopTimer* const timer = due.mapped().timer;
        if (timer == nullptr) {
            runWithMemory(due.mapped().task);
        } else {
            timer->m_idle = std::move(due);
            const std::shared_ptr<const Task> action = timer->m_action;
            runWithMemory(*action);
        }
    }
    armTimer();
}

void AgentLoop::armTimer() {
    itimerspec when{};
    if (!m_timers.empty()) {
        const auto wait = std::chrono::duration_cast<std::chrono::nanoseconds>(m_timers.begin()->first - Clock::now());
        const auto nanoseconds = wait.count() < 1 ? 1 : wait.count();  // zero would disarm
        when.it_value.tv_sec = nanoseconds / 1'000'000'000;
        when.it_value.tv_nsec = nanoseconds % 1'000'000'000;
    }
    ::timerfd_settime(m_timer, 0, &when, nullptr);
}

}  // namespace vrx
