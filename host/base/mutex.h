// Mutexes whose use Clang checks at compile time (-Wthread-safety): which mutex guards a member, which one the caller
// of a function must hold or must not hold. Other compilers see std::mutex and what goes with it, at the same cost.
//
//     Mutex m_mutex;
//     int m_count GUARDED_BY(m_mutex) = 0;
//     void add() REQUIRES(m_mutex);  // the caller holds it
//     ...
//     MutexLock lock(m_mutex);
//     m_changed.wait(lock, [this]() REQUIRES(m_mutex) { return m_count > 0; });
//
// Builds by Clang hold every user to it (tests/locks).
//
// Threads: any.
#pragma once

#include <condition_variable>
#include <mutex>
#include <utility>

#if defined(__clang__)
#define VRX_THREAD_SAFETY(attribute) __attribute__((attribute))
#else
#define VRX_THREAD_SAFETY(attribute)
#endif

#define CAPABILITY(name) VRX_THREAD_SAFETY(capability(name))
#define SCOPED_CAPABILITY VRX_THREAD_SAFETY(scoped_lockable)
#define GUARDED_BY(mutex) VRX_THREAD_SAFETY(guarded_by(mutex))
#define PT_GUARDED_BY(mutex) VRX_THREAD_SAFETY(pt_guarded_by(mutex))
#define ACQUIRED_BEFORE(...) VRX_THREAD_SAFETY(acquired_before(__VA_ARGS__))
#define REQUIRES(...) VRX_THREAD_SAFETY(requires_capability(__VA_ARGS__))
#define EXCLUDES(...) VRX_THREAD_SAFETY(locks_excluded(__VA_ARGS__))
#define ACQUIRE(...) VRX_THREAD_SAFETY(acquire_capability(__VA_ARGS__))
#define RELEASE(...) VRX_THREAD_SAFETY(release_capability(__VA_ARGS__))
#define RETURN_CAPABILITY(mutex) VRX_THREAD_SAFETY(lock_returned(mutex))
// Of a template that calls what it was given at once: which locks that wants is checked where it stands.
#define NO_THREAD_SAFETY_ANALYSIS VRX_THREAD_SAFETY(no_thread_safety_analysis)

namespace vrx {

class CAPABILITY("mutex") Mutex {
public:
    Mutex() = default;
    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;

    void lock() ACQUIRE() { m_mutex.lock(); }
    void unlock() RELEASE() { m_mutex.unlock(); }

private:
    friend class MutexLock;
    std::mutex m_mutex;
};

// Holds a mutex to the end of the scope, or to unlock().
class SCOPED_CAPABILITY MutexLock {
public:
    explicit MutexLock(Mutex& mutex) ACQUIRE(mutex) : m_lock(mutex.m_mutex) {}
    ~MutexLock() RELEASE() {}
    MutexLock(const MutexLock&) = delete;
    MutexLock& operator=(const MutexLock&) = delete;

    void lock() ACQUIRE() { m_lock.lock(); }
    void unlock() RELEASE() { m_lock.unlock(); }

private:
    friend class ConditionVariable;
    std::unique_lock<std::mutex> m_lock;
};

// Lets go of a mutex to the end of the scope: for a function that is called with it held.
class SCOPED_CAPABILITY MutexUnlock {
public:
    explicit MutexUnlock(Mutex& mutex) RELEASE(mutex) : m_mutex(mutex) { m_mutex.unlock(); }
    ~MutexUnlock() RELEASE() { m_mutex.lock(); }
    MutexUnlock(const MutexUnlock&) = delete;
    MutexUnlock& operator=(const MutexUnlock&) = delete;

private:
    Mutex& m_mutex;
};

// std::condition_variable for a MutexLock, which holds its mutex again when a wait ends.
class ConditionVariable {
public:
    void notify_one() { m_condition.notify_one(); }
    void notify_all() { m_condition.notify_all(); }

    template <class... Rest>
    void wait(MutexLock& lock, Rest&&... rest) {
        m_condition.wait(lock.m_lock, std::forward<Rest>(rest)...);
    }
    template <class... Rest>
    auto wait_for(MutexLock& lock, Rest&&... rest) {
        return m_condition.wait_for(lock.m_lock, std::forward<Rest>(rest)...);
    }
    template <class... Rest>
    auto wait_until(MutexLock& lock, Rest&&... rest) {
        return m_condition.wait_until(lock.m_lock, std::forward<Rest>(rest)...);
    }

private:
    std::condition_variable m_condition;
};

}  // namespace vrx
