#include "host/agent/delivery/send_scheduler.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <new>
#include <thread>
#include <utility>
#include <vector>

#include "tests/agent/trap_test_tools.h"

namespace vrx {

namespace {

using Clock = SendScheduler::Clock;
using std::chrono::hours;
using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr milliseconds SHORTEST{1};
constexpr seconds RARELY{3600};

std::string noAddress(const std::string& /*name*/) {
    return "";
}

// Counts the turns, and does in each what the test wants.
class SendSchedulerTest : public testing::Test {
protected:
    SendScheduler& start(milliseconds shortestSleep = SHORTEST, seconds resolveInterval = RARELY,
                         NameResolver::Lookup lookup = noAddress) {
        m_scheduler = std::make_unique<SendScheduler>(
            m_loop,
            [this] {
                ++m_taken;
                if (m_inTurn) m_inTurn();
            },
            shortestSleep, resolveInterval, std::move(lookup));
        return *m_scheduler;
    }
    bool turnUntilTaken(int turns) {
        return turnUntil([this, turns] { return m_taken >= turns; });
    }
    // Until all that is on its way now has run, and what that led to.
    void turnOn() {
        bool done = false;
        m_loop.runAfter(milliseconds(20), [&done] { done = true; });
        ASSERT_TRUE(turnUntil([&done] { return done; }));
    }

    AgentLoop m_loop;
    int m_taken = 0;
    std::atomic<int> m_lookups{0};
    std::function<void()> m_inTurn;
    std::unique_ptr<SendScheduler> m_scheduler;
};

}  // namespace

TEST_F(SendSchedulerTest, NoTurnIsTakenByItself) {
    start();
    turnOn();
    EXPECT_EQ(m_taken, 0);
}

TEST_F(SendSchedulerTest, HoweverOftenItIsWokenOneTurnIsOnItsWay) {
    SendScheduler& scheduler = start();
    for (int i = 0; i < 10; ++i) scheduler.wake();
    EXPECT_EQ(m_taken, 0) << "the loop has not run";
    turnOn();
    EXPECT_EQ(m_taken, 1);
}

TEST_F(SendSchedulerTest, AWakeUpInATurnGivesAnother) {
    SendScheduler& scheduler = start();
    m_inTurn = [&] {
        if (m_taken < 3) scheduler.wake();
    };
    scheduler.wake();
    turnOn();
    EXPECT_EQ(m_taken, 3);
}

TEST_F(SendSchedulerTest, WhatAThreadDidBeforeItWokeIsSeenByATurn) {
    constexpr int THREADS = 4;
    constexpr int WAKES = 2000;
    SendScheduler& scheduler = start();
    std::mutex mutex;
    int waiting = 0;  // guarded by mutex, as the next
    int seen = 0;
    m_inTurn = [&] {
        const std::lock_guard<std::mutex> lock(mutex);
        seen += std::exchange(waiting, 0);
    };
    std::vector<std::thread> threads;
    for (int thread = 0; thread < THREADS; ++thread) {
        threads.emplace_back([&] {
            for (int i = 0; i < WAKES; ++i) {
                const std::lock_guard<std::mutex> lock(mutex);
                ++waiting;
                scheduler.wake();
            }
        });
    }
    EXPECT_TRUE(turnUntil([&] {
        const std::lock_guard<std::mutex> lock(mutex);
        return seen == THREADS * WAKES;
    }));
    for (std::thread& thread : threads) thread.join();
}

TEST_F(SendSchedulerTest, WithoutALockToo) {
    constexpr int WAKES = 20000;
    SendScheduler& scheduler = start();
    int last = 0;
    std::atomic<int> done{0};
    m_inTurn = [&] { last = done; };
    std::thread thread([&] {
        for (int i = 0; i < WAKES; ++i) {
            done = i + 1;
            scheduler.wake();
        }
    });
    EXPECT_TRUE(turnUntil([&] { return last == WAKES; }));
    thread.join();
}

TEST_F(SendSchedulerTest, ATurnThatFindsNoMemoryIsTakenAgain) {
    SendScheduler& scheduler = start();
    m_inTurn = [this] {
        if (m_taken < 3) throw std::bad_alloc();
    };
    scheduler.wake();
    turnOn();
    EXPECT_EQ(m_taken, 3);
}

TEST_F(SendSchedulerTest, ATurnIsTakenWhenItsTimeHasCome) {
    SendScheduler& scheduler = start();
    Clock::time_point taken{};
    m_inTurn = [&taken] { taken = Clock::now(); };
    const Clock::time_point when = Clock::now() + milliseconds(20);
    scheduler.sleepUntil(when);
    ASSERT_TRUE(turnUntilTaken(1));
    EXPECT_GE(taken, when);
}

TEST_F(SendSchedulerTest, AnEarlierTimeCountsMoreThanALaterOne) {
    SendScheduler& scheduler = start();
    scheduler.sleepUntil(Clock::now() + hours(1));
    scheduler.sleepUntil(Clock::now() + milliseconds(1));
    scheduler.sleepUntil(Clock::now() + hours(2));
    ASSERT_TRUE(turnUntilTaken(1));
    scheduler.sleepUntil(Clock::now() + milliseconds(1));
    EXPECT_TRUE(turnUntilTaken(2));
}

TEST_F(SendSchedulerTest, ATimeThatIsOverIsSleptForTheShortestTime) {
    SendScheduler& scheduler = start(milliseconds(20));
    Clock::time_point taken{};
    m_inTurn = [&taken] { taken = Clock::now(); };
    const Clock::time_point start = Clock::now();
    scheduler.sleepUntil(start - hours(1));
    ASSERT_TRUE(turnUntilTaken(1));
    EXPECT_GE(taken, start + milliseconds(20));
}

TEST_F(SendSchedulerTest, AnAddressThatCameGivesATurn) {
    SendScheduler& scheduler = start(SHORTEST, RARELY, [](const std::string& name) { return "address of " + name; });
    scheduler.watch({"a", "b"});
    EXPECT_EQ(scheduler.addressOf("a"), "") << "it is looked up in the background";
    m_inTurn = [&] {
        if (scheduler.addressOf("a") == "address of a" && scheduler.addressOf("b") == "address of b") scheduler.stop();
    };
    EXPECT_TRUE(turnUntil([&] { return scheduler.stopped(); }));
}

TEST_F(SendSchedulerTest, ANameWithoutAddressGivesATurnAndHasNone) {
    SendScheduler& scheduler = start();
    scheduler.watch({"nobody"});
    ASSERT_TRUE(turnUntilTaken(1));
    EXPECT_EQ(scheduler.addressOf("nobody"), "");
}

TEST_F(SendSchedulerTest, AddressesAreTheirOwnAndNeverLookedUp) {
    SendScheduler& scheduler = start(SHORTEST, RARELY, [this](const std::string& name) {
        m_lookups += name == "last" ? 0 : 1;
        return name;
    });
    for (const char* const address : {"192.0.2.7", "::1", "fe80::1%lo"}) {
        EXPECT_EQ(scheduler.addressOf(address), address);
    }
    scheduler.watch({"192.0.2.7", "::1", "fe80::1%lo", "last"});
    ASSERT_TRUE(turnUntil([&scheduler] { return scheduler.addressOf("last") == "last"; }));
    EXPECT_EQ(m_lookups, 0);
}

TEST_F(SendSchedulerTest, ANameKeepsItsAddressWhileTheNameServerIsAway) {
    SendScheduler& scheduler = start(SHORTEST, seconds(0), [this](const std::string&) {
        static const char* const ANSWERS[] = {"192.0.2.7", "", "192.0.2.8"};
        return std::string(ANSWERS[std::min(m_lookups++, 2)]);
    });
    std::vector<std::string> addresses;
    m_inTurn = [&] {
        const std::string address = scheduler.addressOf("nms");
        if (addresses.empty() || addresses.back() != address) addresses.push_back(address);
    };
    scheduler.watch({"nms"});
    ASSERT_TRUE(turnUntil([&] { return !addresses.empty() && addresses.back() == "192.0.2.8"; }));
    EXPECT_EQ(addresses, (std::vector<std::string>{"192.0.2.7", "192.0.2.8"}));
}

TEST_F(SendSchedulerTest, ANameThatIsStillWatchedKeepsItsAddress) {
    SendScheduler& scheduler = start(SHORTEST, RARELY, [](const std::string& name) { return "address of " + name; });
    scheduler.watch({"a", "b"});
    ASSERT_TRUE(turnUntil([&] { return !scheduler.addressOf("a").empty() && !scheduler.addressOf("b").empty(); }));
    scheduler.watch({"b", "c"});
    EXPECT_EQ(scheduler.addressOf("a"), "");
    EXPECT_EQ(scheduler.addressOf("b"), "address of b");
    EXPECT_EQ(scheduler.addressOf("c"), "");
}

TEST_F(SendSchedulerTest, ANameThatComesBackIsLookedUpAnew) {
    SendScheduler& scheduler =
        start(SHORTEST, RARELY, [this](const std::string&) { return std::to_string(++m_lookups); });
    scheduler.watch({"a"});
    ASSERT_TRUE(turnUntil([&] { return scheduler.addressOf("a") == "1"; }));
    scheduler.watch({});
    EXPECT_EQ(scheduler.addressOf("a"), "");
    scheduler.watch({"a"});
    EXPECT_TRUE(turnUntil([&] { return scheduler.addressOf("a") == "2"; }));
}

TEST_F(SendSchedulerTest, AnAnswerForANameThatIsWatchedNoMoreIsNone) {
    SendScheduler& scheduler = start(SHORTEST, RARELY, [this](const std::string& name) {
        if (name == "b") ++m_lookups;  // that of "a" is in the loop
        return std::string("192.0.2.7");
    });
    scheduler.watch({"a", "b"});
    while (m_lookups == 0) std::this_thread::yield();
    scheduler.watch({"b"});
    ASSERT_TRUE(turnUntil([&] { return scheduler.addressOf("b") == "192.0.2.7"; }));
    EXPECT_EQ(scheduler.addressOf("a"), "");
}

TEST_F(SendSchedulerTest, AfterAStopNoTurnIsTaken) {
    SendScheduler& scheduler = start(SHORTEST, seconds(0), [](const std::string&) { return "192.0.2.7"; });
    scheduler.watch({"nms"});
    ASSERT_TRUE(turnUntilTaken(1));
    scheduler.wake();
    scheduler.sleepUntil(Clock::now());
    EXPECT_FALSE(scheduler.stopped());
    scheduler.stop();
    EXPECT_TRUE(scheduler.stopped());
    const int taken = m_taken;
    turnOn();
    scheduler.wake();
    turnOn();
    EXPECT_EQ(m_taken, taken);
}

TEST_F(SendSchedulerTest, AfterAStopNoNameIsLookedUp) {
    SendScheduler& scheduler = start(SHORTEST, seconds(0), [this](const std::string&) {
        ++m_lookups;
        return "192.0.2.7";
    });
    scheduler.watch({"nms"});
    ASSERT_TRUE(turnUntilTaken(2));
    scheduler.stop();
    const int before = m_lookups;
    turnOn();
    EXPECT_EQ(m_lookups, before);
}

TEST_F(SendSchedulerTest, WhatIsOnItsWayWhenItIsDestroyedDoesNothing) {
    SendScheduler& scheduler = start(SHORTEST, seconds(0), [](const std::string&) { return "192.0.2.7"; });
    scheduler.watch({"nms"});
    ASSERT_TRUE(turnUntilTaken(1));
    scheduler.wake();
    scheduler.sleepUntil(Clock::now());
    m_scheduler.reset();
    const int taken = m_taken;
    turnOn();
    EXPECT_EQ(m_taken, taken);
}

}  // namespace vrx
