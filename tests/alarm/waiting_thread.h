// Runs an operation on a thread of its own, and tells whether it came to wait for something or to its end.
//
//     ASSERT_EQ(mutex.acquire(), 0);
//     WaitingThread thread([] { operationThatNeedsTheMutex(); });
//     EXPECT_TRUE(thread.waits());
//     mutex.release();
#pragma once

#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <utility>

class WaitingThread {
public:
    explicit WaitingThread(std::function<void()> operation)
        : m_thread([this, operation = std::move(operation)] {
              m_id = syscall(SYS_gettid);
              operation();
              m_isDone = true;
          }) {}
    ~WaitingThread() { join(); }
    WaitingThread(const WaitingThread&) = delete;
    WaitingThread& operator=(const WaitingThread&) = delete;

    void join() {
        if (m_thread.joinable()) m_thread.join();
    }

    // True when the system has put the thread to sleep, as it does with one that wants a lock which another has; false
    // when the operation has ended.
    bool waits() const {
        constexpr int LASTING = 100;  // looks in a row: a moment's sleep for a lock of memory management is none
        for (int asleep = 0; asleep < LASTING; std::this_thread::yield()) {
            if (m_isDone) return false;
            asleep = isAsleep() ? asleep + 1 : 0;
        }
        return true;
    }

private:
    bool isAsleep() const {
        if (m_id == 0) return false;
        std::ifstream file("/proc/self/task/" + std::to_string(m_id) + "/stat");
        std::string status;
        std::getline(file, status);
        const std::size_t end = status.rfind(") ");  // of the thread's name
        return end != std::string::npos && status[end + 2] == 'S';
    }

    std::atomic<long> m_id{0};
    std::atomic<bool> m_isDone{false};
    std::thread m_thread;
};
