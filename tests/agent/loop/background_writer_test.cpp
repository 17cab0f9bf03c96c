#include "host/agent/loop/background_writer.h"

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <future>
#include <mutex>
#include <new>
#include <thread>
#include <utility>
#include <vector>

namespace vrx {

namespace {

// Counts the writes; each may be held up by the test, and gives what the test wants.
class BackgroundWriterTest : public testing::Test {
protected:
    bool write() {
        std::unique_lock<std::mutex> lock(m_mutex);
        ++m_begun;
        m_changed.notify_all();
        m_changed.wait(lock, [this] { return !m_held; });
        const bool complete = !m_outcome || m_outcome(m_begun);
        ++m_ended;
        m_changed.notify_all();
        return complete;
    }
    void waitFor(const int& count, int least) {
        std::unique_lock<std::mutex> lock(m_mutex);
        ASSERT_TRUE(m_changed.wait_for(lock, std::chrono::seconds(60), [&] { return count >= least; }));
    }
    void hold(bool held) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_held = held;
        m_changed.notify_all();
    }

    std::mutex m_mutex;
    std::condition_variable m_changed;
    int m_begun = 0;  // guarded by m_mutex, as the rest
    int m_ended = 0;
    bool m_held = false;
    std::function<bool(int number)> m_outcome;
};

}  // namespace

TEST_F(BackgroundWriterTest, NothingIsWrittenByItself) {
    BackgroundWriter writer([this] { return write(); });
    writer.stop();
    EXPECT_EQ(m_begun, 0);
}

TEST_F(BackgroundWriterTest, EachWakeUpIsFollowedByAWrite) {
    BackgroundWriter writer([this] { return write(); });
    writer.wake();
    waitFor(m_ended, 1);
    writer.wake();
    waitFor(m_ended, 2);
    writer.stop();
    EXPECT_EQ(m_begun, 2);
}

TEST_F(BackgroundWriterTest, WakeUpsDuringAWriteShareTheNext) {
    BackgroundWriter writer([this] { return write(); });
    hold(true);
    writer.wake();
    waitFor(m_begun, 1);
    for (int i = 0; i < 100; ++i) writer.wake();
    hold(false);
    waitFor(m_ended, 2);
    writer.stop();
    EXPECT_EQ(m_begun, 2);
}

TEST_F(BackgroundWriterTest, WhatAThreadLeavesBeforeItWakesIsSeenByAWrite) {
    constexpr int THREADS = 4;
    constexpr int EACH = 2000;
    int waiting = 0;  // guarded by m_mutex, as the next
    int written = 0;
    BackgroundWriter writer([&] {
        const std::lock_guard<std::mutex> lock(m_mutex);
        written += std::exchange(waiting, 0);
        m_changed.notify_all();
        return true;
    });
    std::vector<std::thread> threads;
    for (int thread = 0; thread < THREADS; ++thread) {
        threads.emplace_back([&] {
            for (int i = 0; i < EACH; ++i) {
                const std::lock_guard<std::mutex> lock(m_mutex);
                ++waiting;
                writer.wake();
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    waitFor(written, THREADS * EACH);
    writer.stop();
    EXPECT_EQ(written, THREADS * EACH);
}

TEST_F(BackgroundWriterTest, WhatCouldNotBeWrittenIsTriedAgain) {
    m_outcome = [](int number) { return number == 3; };
    BackgroundWriter writer([this] { return write(); });
    writer.wake();
    waitFor(m_ended, 3);
    writer.stop();
    EXPECT_EQ(m_begun, 3);
}

TEST_F(BackgroundWriterTest, AWriteWithoutMemoryIsTriedAgain) {
    m_outcome = [](int number) {
        if (number < 3) throw std::bad_alloc();
        return true;
    };
    BackgroundWriter writer([this] { return write(); });
    writer.wake();
    waitFor(m_ended, 1);
    writer.stop();
    EXPECT_EQ(m_begun, 3);
}

TEST_F(BackgroundWriterTest, AStopWaitsForTheWriteUnderWay) {
    BackgroundWriter writer([this] { return write(); });
    hold(true);
    writer.wake();
    waitFor(m_begun, 1);
    std::thread opener([this] { hold(false); });
    writer.stop();
    EXPECT_EQ(m_ended, 1);
    opener.join();
}

TEST_F(BackgroundWriterTest, AllWritersShareAThread) {
    std::promise<std::thread::id> one;
    std::promise<std::thread::id> other;
    BackgroundWriter first([&one] {
        one.set_value(std::this_thread::get_id());
        return true;
    });
    BackgroundWriter second([&other] {
        other.set_value(std::this_thread::get_id());
        return true;
    });
    first.wake();
    second.wake();
    const std::thread::id thread = one.get_future().get();
    EXPECT_EQ(thread, other.get_future().get());
    EXPECT_NE(thread, std::this_thread::get_id());
}

TEST_F(BackgroundWriterTest, AWriterWhoseDiskTakesNothingDelaysNoOther) {
    m_outcome = [](int) { return false; };
    BackgroundWriter failing([this] { return write(); });
    int written = 0;  // guarded by m_mutex
    BackgroundWriter other([&] {
        const std::lock_guard<std::mutex> lock(m_mutex);
        ++written;
        m_changed.notify_all();
        return true;
    });
    failing.wake();
    for (int round = 1; round <= 3; ++round) {
        waitFor(m_ended, round);
        other.wake();
        waitFor(written, round);
    }
}

TEST_F(BackgroundWriterTest, AStopLeavesTheOthersAtWork) {
    BackgroundWriter writer([this] { return write(); });
    hold(true);
    writer.wake();
    waitFor(m_begun, 1);
    {
        BackgroundWriter other([this] { return write(); });
        other.wake();
        other.stop();  // does not wait for the writer's write
    }
    hold(false);
    waitFor(m_ended, 1);
    writer.wake();
    waitFor(m_ended, 2);
    writer.stop();
    EXPECT_EQ(m_begun, 2);
}

TEST_F(BackgroundWriterTest, AfterAStopNothingIsWritten) {
    BackgroundWriter writer([this] { return write(); });
    writer.stop();
    writer.wake();
    writer.stop();
    EXPECT_EQ(m_begun, 0);
}

TEST_F(BackgroundWriterTest, AStopDoesNotWaitForADiskThatTakesNothing) {
    m_outcome = [](int) { return false; };
    BackgroundWriter writer([this] { return write(); });
    writer.wake();
    waitFor(m_ended, 2);
    writer.stop();
    const int begun = m_begun;
    writer.wake();
    EXPECT_EQ(m_begun, begun);
}

}  // namespace vrx
