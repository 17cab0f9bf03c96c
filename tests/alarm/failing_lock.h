// Makes every lock of a mutex fail while it lives: the mutex becomes one that checks for errors, held by this thread.
#pragma once

#include <ace/Thread_Mutex.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <new>

class FailingLock {
public:
    // REQUIRES: the mutex is free, and used by this thread only while this lives.
    explicit FailingLock(ACE_Thread_Mutex& mutex) : m_mutex(mutex) { makeFail(m_mutex); }
    ~FailingLock() {
        EXPECT_EQ(m_mutex.release(), 0);  // nobody else has unlocked it
        m_mutex.~ACE_Thread_Mutex();
        new (&m_mutex) ACE_Thread_Mutex();
    }
    FailingLock(const FailingLock&) = delete;
    FailingLock& operator=(const FailingLock&) = delete;

    // For good: of a mutex that is destroyed by the code under test.
    static void makeFail(ACE_Thread_Mutex& mutex) {
        ACE_mutexattr_t attributes;
        EXPECT_EQ(pthread_mutexattr_init(&attributes), 0);
        EXPECT_EQ(pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_ERRORCHECK), 0);
        mutex.~ACE_Thread_Mutex();
        new (&mutex) ACE_Thread_Mutex(nullptr, &attributes);
        EXPECT_EQ(pthread_mutexattr_destroy(&attributes), 0);
        EXPECT_EQ(mutex.acquire(), 0);
        EXPECT_EQ(mutex.acquire(), -1);
    }

private:
    ACE_Thread_Mutex& m_mutex;
};
