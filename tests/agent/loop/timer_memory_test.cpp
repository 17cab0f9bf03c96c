// Timers and wake-ups: they end with their owner, need no memory, and an action without memory is run again.
#include "host/agent/loop/timer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <new>
#include <optional>
#include <stdexcept>
#include <thread>
#include <vector>

#include "host/agent/loop/wakeup.h"
#include "tests/failing_memory.h"

namespace vrx {

extern "C" int agent_check_and_process(int block);  // Net-SNMP's; oid_vector.h tells why its header is not included

namespace {

using std::chrono::hours;
using std::chrono::milliseconds;
using testing::ElementsAre;

class TimerTest : public testing::Test {
protected:
    // Runs what is due now, and what that asked for.
    void runShortly() {
        m_loop.runAfter(milliseconds(2), [this] { m_loop.stop(); });
        m_loop.run();
    }

    AgentLoop m_loop;
    int m_ran = 0;
};

}  // namespace

TEST_F(TimerTest, RunsItsActionOnceAfterEachStart) {
    LoopTimer timer(m_loop, [this] {
        if (++m_ran == 2) m_loop.stop();
    });
    EXPECT_FALSE(timer.isRunning());
    timer.start(milliseconds(0));
    EXPECT_TRUE(timer.isRunning());
    runShortly();
    EXPECT_EQ(m_ran, 1);
    EXPECT_FALSE(timer.isRunning());
    timer.start(milliseconds(0));
    m_loop.run();
    EXPECT_EQ(m_ran, 2);
}

TEST_F(TimerTest, AnotherStartTakesThePlaceOfTheFirst) {
    LoopTimer timer(m_loop, [this] { ++m_ran; });
    timer.start(hours(1));
    timer.start(milliseconds(0));
    runShortly();
    EXPECT_EQ(m_ran, 1);
    timer.start(milliseconds(0));
    timer.start(hours(1));
    runShortly();
    EXPECT_EQ(m_ran, 1);
}

TEST_F(TimerTest, ACancelledTimerDoesNotRun) {
    LoopTimer timer(m_loop, [this] { ++m_ran; });
    timer.start(milliseconds(0));
    timer.cancel();
    runShortly();
    EXPECT_EQ(m_ran, 0);
}

TEST_F(TimerTest, ADestroyedTimerDoesNotRunEvenWhenItIsDueTogetherWithItsEnd) {
    auto other = std::make_unique<LoopTimer>(m_loop, [this] { ++m_ran; });
    LoopTimer first(m_loop, [&other] { other.reset(); });
    first.start(milliseconds(0));
    other->start(milliseconds(0));
    runShortly();
    EXPECT_EQ(m_ran, 0);
}

TEST_F(TimerTest, AnActionMayStartOrDestroyItsTimer) {
    std::optional<LoopTimer> timer;
    timer.emplace(m_loop, [&, token = std::make_shared<int>(7)] {
        if (++m_ran < 3) {
            timer->start(milliseconds(0));
        } else {
            timer.reset();
            m_ran += *token;  // what the action holds outlives its run
            m_loop.stop();
        }
    });
    timer->start(milliseconds(0));
    m_loop.run();
    EXPECT_EQ(m_ran, 10);
}

TEST_F(TimerTest, TimersAndTasksRunInTheOrderOfTheirTimes) {
    std::vector<int> seen;
    LoopTimer second(m_loop, [&] { seen.push_back(2); });
    second.start(milliseconds(2));
    m_loop.runAfter(milliseconds(4), [&] {
        seen.push_back(3);
        m_loop.stop();
    });
    m_loop.runAfter(milliseconds(0), [&] { seen.push_back(1); });
    m_loop.run();
    EXPECT_THAT(seen, ElementsAre(1, 2, 3));
}

TEST_F(TimerTest, StartingAndWakingNeedNoMemory) {
    LoopTimer timer(m_loop, [this] { ++m_ran; });
    LoopWakeup wakeup(m_loop, [this] { ++m_ran; });
    failing_memory::failAt(1);
    timer.start(hours(1));
    timer.start(milliseconds(0));
    wakeup.request();
    while (m_ran < 2) agent_check_and_process(0);
    const bool untouched = failing_memory::isFailureToCome();
    failing_memory::failAt(0);
    EXPECT_TRUE(untouched);
}

TEST_F(TimerTest, AnActionWithoutMemoryIsRunAgain) {
    const auto needMemory = [this] {
        if (++m_ran % 3 != 0) throw std::bad_alloc();
    };
    LoopTimer timer(m_loop, needMemory);
    LoopWakeup wakeup(m_loop, needMemory);
    timer.start(milliseconds(0));
    wakeup.request();
    runShortly();
    EXPECT_EQ(m_ran, 6);
}

TEST_F(TimerTest, AnActionThatThrowsSomethingElseStopsNothing) {
    LoopTimer timer(m_loop, [] { throw std::runtime_error("told in the log"); });
    LoopWakeup wakeup(m_loop, [this] { ++m_ran; });
    timer.start(milliseconds(0));
    wakeup.request();
    runShortly();
    EXPECT_EQ(m_ran, 1);
}

TEST_F(TimerTest, AWakeUpRunsOnceHoweverOftenItIsAskedFor) {
    LoopWakeup wakeup(m_loop, [this] { ++m_ran; });
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            for (int times = 0; times < 1000; ++times) wakeup.request();
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(m_ran, 0);
    m_loop.drain();
    EXPECT_EQ(m_ran, 1);
    m_loop.drain();
    EXPECT_EQ(m_ran, 1);
}

TEST_F(TimerTest, AWakeUpThatAsksForItselfLeavesOthersTheirTurn) {
    LoopWakeup wakeup(m_loop, [&] {
        ++m_ran;
        wakeup.request();
    });
    wakeup.request();
    runShortly();  // ends
    EXPECT_GT(m_ran, 1);
}

TEST_F(TimerTest, WakeUpsMayComeAndGoWhileOthersRun) {
    auto gone = std::make_unique<LoopWakeup>(m_loop, [this] { m_ran += 100; });
    std::unique_ptr<LoopWakeup> fresh;
    std::unique_ptr<LoopWakeup> self;
    self = std::make_unique<LoopWakeup>(m_loop, [&] {
        gone.reset();
        for (int i = 0; i < 100; ++i) fresh = std::make_unique<LoopWakeup>(m_loop, [this] { ++m_ran; });
        fresh->request();
        self.reset();
    });
    self->request();
    m_loop.drain();
    m_loop.drain();
    EXPECT_EQ(m_ran, 1);
}

}  // namespace vrx
