#include "host/agent/delivery/sender_turns.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <new>
#include <thread>
#include <utility>
#include <vector>

#include "tests/agent/trap_test_tools.h"

namespace {

using Clock = SenderTurns::Clock;
using std::chrono::hours;
using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr milliseconds SHORTEST{1};
constexpr seconds RARELY{3600};

std::string noAddress(const std::string& /*name*/) {
    return "";
}

// Counts the turns, and does in each what the test wants.
class SenderTurnsTest : public testing::Test {
protected:
    SenderTurns& start(milliseconds shortestSleep = SHORTEST, seconds resolveInterval = RARELY,
                       TrapResolver::Lookup lookup = noAddress) {
        m_turns = std::make_unique<SenderTurns>(
            m_loop,
            [this] {
                ++m_taken;
                if (m_inTurn) m_inTurn();
            },
            shortestSleep, resolveInterval, std::move(lookup));
        return *m_turns;
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
    std::unique_ptr<SenderTurns> m_turns;
};

}  // namespace

TEST_F(SenderTurnsTest, NoTurnIsTakenByItself) {
    start();
    turnOn();
    EXPECT_EQ(m_taken, 0);
}

TEST_F(SenderTurnsTest, HoweverOftenItIsWokenOneTurnIsOnItsWay) {
    SenderTurns& turns = start();
    for (int i = 0; i < 10; ++i) turns.wake();
    EXPECT_EQ(m_taken, 0) << "the loop has not run";
    turnOn();
    EXPECT_EQ(m_taken, 1);
}

TEST_F(SenderTurnsTest, AWakeUpInATurnGivesAnother) {
    SenderTurns& turns = start();
    m_inTurn = [&] {
        if (m_taken < 3) turns.wake();
    };
    turns.wake();
    turnOn();
    EXPECT_EQ(m_taken, 3);
}

TEST_F(SenderTurnsTest, WhatAThreadDidBeforeItWokeIsSeenByATurn) {
    constexpr int THREADS = 4;
    constexpr int WAKES = 2000;
    SenderTurns& turns = start();
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
                turns.wake();
            }
        });
    }
    EXPECT_TRUE(turnUntil([&] {
        const std::lock_guard<std::mutex> lock(mutex);
        return seen == THREADS * WAKES;
    }));
    for (std::thread& thread : threads) thread.join();
}

TEST_F(SenderTurnsTest, WithoutALockToo) {
    constexpr int WAKES = 20000;
    SenderTurns& turns = start();
    int last = 0;
    std::atomic<int> done{0};
    m_inTurn = [&] { last = done; };
    std::thread thread([&] {
        for (int i = 0; i < WAKES; ++i) {
            done = i + 1;
            turns.wake();
        }
    });
    EXPECT_TRUE(turnUntil([&] { return last == WAKES; }));
    thread.join();
}

TEST_F(SenderTurnsTest, ATurnThatFindsNoMemoryIsTakenAgain) {
    SenderTurns& turns = start();
    m_inTurn = [this] {
        if (m_taken < 3) throw std::bad_alloc();
    };
    turns.wake();
    turnOn();
    EXPECT_EQ(m_taken, 3);
}

TEST_F(SenderTurnsTest, ATurnIsTakenWhenItsTimeHasCome) {
    SenderTurns& turns = start();
    Clock::time_point taken{};
    m_inTurn = [&taken] { taken = Clock::now(); };
    const Clock::time_point when = Clock::now() + milliseconds(20);
    turns.sleepUntil(when);
    ASSERT_TRUE(turnUntilTaken(1));
    EXPECT_GE(taken, when);
}

TEST_F(SenderTurnsTest, AnEarlierTimeCountsMoreThanALaterOne) {
    SenderTurns& turns = start();
    turns.sleepUntil(Clock::now() + hours(1));
    turns.sleepUntil(Clock::now() + milliseconds(1));
    turns.sleepUntil(Clock::now() + hours(2));
    ASSERT_TRUE(turnUntilTaken(1));
    turns.sleepUntil(Clock::now() + milliseconds(1));
    EXPECT_TRUE(turnUntilTaken(2));
}

TEST_F(SenderTurnsTest, ATimeThatIsOverIsSleptForTheShortestTime) {
    SenderTurns& turns = start(milliseconds(20));
    Clock::time_point taken{};
    m_inTurn = [&taken] { taken = Clock::now(); };
    const Clock::time_point start = Clock::now();
    turns.sleepUntil(start - hours(1));
    ASSERT_TRUE(turnUntilTaken(1));
    EXPECT_GE(taken, start + milliseconds(20));
}

TEST_F(SenderTurnsTest, AnAddressThatCameGivesATurn) {
    SenderTurns& turns = start(SHORTEST, RARELY, [](const std::string& name) { return "address of " + name; });
    turns.watch({"a", "b"});
    EXPECT_EQ(turns.addressOf("a"), "") << "it is looked up in the background";
    m_inTurn = [&] {
        if (turns.addressOf("a") == "address of a" && turns.addressOf("b") == "address of b") turns.stop();
    };
    EXPECT_TRUE(turnUntil([&] { return turns.stopped(); }));
}

TEST_F(SenderTurnsTest, ANameWithoutAddressGivesATurnAndHasNone) {
    SenderTurns& turns = start();
    turns.watch({"nobody"});
    ASSERT_TRUE(turnUntilTaken(1));
    EXPECT_EQ(turns.addressOf("nobody"), "");
}

TEST_F(SenderTurnsTest, AddressesAreTheirOwnAndNeverLookedUp) {
    SenderTurns& turns = start(SHORTEST, RARELY, [this](const std::string& name) {
        m_lookups += name == "last" ? 0 : 1;
        return name;
    });
    for (const char* const address : {"192.0.2.7", "::1", "fe80::1%lo"}) {
        EXPECT_EQ(turns.addressOf(address), address);
    }
    turns.watch({"192.0.2.7", "::1", "fe80::1%lo", "last"});
    ASSERT_TRUE(turnUntil([&turns] { return turns.addressOf("last") == "last"; }));
    EXPECT_EQ(m_lookups, 0);
}

TEST_F(SenderTurnsTest, ANameKeepsItsAddressWhileTheNameServerIsAway) {
    SenderTurns& turns = start(SHORTEST, seconds(0), [this](const std::string&) {
        static const char* const ANSWERS[] = {"192.0.2.7", "", "192.0.2.8"};
        return std::string(ANSWERS[std::min(m_lookups++, 2)]);
    });
    std::vector<std::string> addresses;
    m_inTurn = [&] {
        const std::string address = turns.addressOf("nms");
        if (addresses.empty() || addresses.back() != address) addresses.push_back(address);
    };
    turns.watch({"nms"});
    ASSERT_TRUE(turnUntil([&] { return !addresses.empty() && addresses.back() == "192.0.2.8"; }));
    EXPECT_EQ(addresses, (std::vector<std::string>{"192.0.2.7", "192.0.2.8"}));
}

TEST_F(SenderTurnsTest, ANameThatIsStillWatchedKeepsItsAddress) {
    SenderTurns& turns = start(SHORTEST, RARELY, [](const std::string& name) { return "address of " + name; });
    turns.watch({"a", "b"});
    ASSERT_TRUE(turnUntil([&] { return !turns.addressOf("a").empty() && !turns.addressOf("b").empty(); }));
    turns.watch({"b", "c"});
    EXPECT_EQ(turns.addressOf("a"), "");
    EXPECT_EQ(turns.addressOf("b"), "address of b");
    EXPECT_EQ(turns.addressOf("c"), "");
}

TEST_F(SenderTurnsTest, ANameThatComesBackIsLookedUpAnew) {
    SenderTurns& turns = start(SHORTEST, RARELY, [this](const std::string&) { return std::to_string(++m_lookups); });
    turns.watch({"a"});
    ASSERT_TRUE(turnUntil([&] { return turns.addressOf("a") == "1"; }));
    turns.watch({});
    EXPECT_EQ(turns.addressOf("a"), "");
    turns.watch({"a"});
    EXPECT_TRUE(turnUntil([&] { return turns.addressOf("a") == "2"; }));
}

TEST_F(SenderTurnsTest, AnAnswerForANameThatIsWatchedNoMoreIsNone) {
    SenderTurns& turns = start(SHORTEST, RARELY, [this](const std::string& name) {
        if (name == "b") ++m_lookups;  // that of "a" is in the loop
        return std::string("192.0.2.7");
    });
    turns.watch({"a", "b"});
    while (m_lookups == 0) std::this_thread::yield();
    turns.watch({"b"});
    ASSERT_TRUE(turnUntil([&] { return turns.addressOf("b") == "192.0.2.7"; }));
    EXPECT_EQ(turns.addressOf("a"), "");
}

TEST_F(SenderTurnsTest, AfterAStopNoTurnIsTaken) {
    SenderTurns& turns = start(SHORTEST, seconds(0), [](const std::string&) { return "192.0.2.7"; });
    turns.watch({"nms"});
    ASSERT_TRUE(turnUntilTaken(1));
    turns.wake();
    turns.sleepUntil(Clock::now());
    EXPECT_FALSE(turns.stopped());
    turns.stop();
    EXPECT_TRUE(turns.stopped());
    const int taken = m_taken;
    turnOn();
    turns.wake();
    turnOn();
    EXPECT_EQ(m_taken, taken);
}

TEST_F(SenderTurnsTest, AfterAStopNoNameIsLookedUp) {
    SenderTurns& turns = start(SHORTEST, seconds(0), [this](const std::string&) {
        ++m_lookups;
        return "192.0.2.7";
    });
    turns.watch({"nms"});
    ASSERT_TRUE(turnUntilTaken(2));
    turns.stop();
    const int before = m_lookups;
    turnOn();
    EXPECT_EQ(m_lookups, before);
}

TEST_F(SenderTurnsTest, WhatIsOnItsWayWhenItIsDestroyedDoesNothing) {
    SenderTurns& turns = start(SHORTEST, seconds(0), [](const std::string&) { return "192.0.2.7"; });
    turns.watch({"nms"});
    ASSERT_TRUE(turnUntilTaken(1));
    turns.wake();
    turns.sleepUntil(Clock::now());
    m_turns.reset();
    const int taken = m_taken;
    turnOn();
    EXPECT_EQ(m_taken, taken);
}
