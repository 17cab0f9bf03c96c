// Makes every lock of a mutex fail.
#pragma once

#include <ace/Thread_Mutex.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <new>
#include <thread>

// Made anew, as `set(attributes, value)` makes it. REQUIRES: the mutex is free, and no other thread uses it.
inline void renewMutex(ACE_Thread_Mutex& mutex, int (*set)(pthread_mutexattr_t*, int), int value) {
    ACE_mutexattr_t attributes;
    EXPECT_EQ(pthread_mutexattr_init(&attributes), 0);
    EXPECT_EQ(set(&attributes, value), 0);
    mutex.~ACE_Thread_Mutex();
    new (&mutex) ACE_Thread_Mutex(nullptr, &attributes);
    EXPECT_EQ(pthread_mutexattr_destroy(&attributes), 0);
}

// While it lives: the mutex becomes one that checks for errors, held by this thread. Who unlocks it after a lock that
// failed is noticed.
class FailingLock {
public:
    // REQUIRES: the mutex is free, and used by this thread only while this lives.
    explicit FailingLock(ACE_Thread_Mutex& mutex) : m_mutex(mutex) {
        renewMutex(m_mutex, pthread_mutexattr_settype, PTHREAD_MUTEX_ERRORCHECK);
        EXPECT_EQ(m_mutex.acquire(), 0);
        EXPECT_EQ(m_mutex.acquire(), -1);
    }
    ~FailingLock() {
        EXPECT_EQ(m_mutex.release(), 0);  // nobody else has unlocked it
        m_mutex.~ACE_Thread_Mutex();
        new (&m_mutex) ACE_Thread_Mutex();
    }
    FailingLock(const FailingLock&) = delete;
    FailingLock& operator=(const FailingLock&) = delete;

private:
    ACE_Thread_Mutex& m_mutex;
};

// For good, of a mutex that the code under test destroys, so nobody may hold it: its owner ended with it, and what it
// guards was given up (ENOTRECOVERABLE). REQUIRES: the mutex is free, and no other thread uses it.
inline void makeEveryLockFail(ACE_Thread_Mutex& mutex) {
    renewMutex(mutex, pthread_mutexattr_setrobust, PTHREAD_MUTEX_ROBUST);
    std::thread([&mutex] { EXPECT_EQ(mutex.acquire(), 0); }).join();
    EXPECT_EQ(mutex.acquire(), -1);  // held, but told of the owner's end
    EXPECT_EQ(mutex.release(), 0);
    EXPECT_EQ(mutex.acquire(), -1);
}
