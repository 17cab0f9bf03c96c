#include "host/agent/loop/agent_loop.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <thread>
#include <vector>

namespace vrx {

using std::chrono::milliseconds;
using testing::ElementsAre;

TEST(AgentLoop, RunsPostedTasksInOrderOnTheLoopsThread) {
    AgentLoop loop;
    std::vector<int> seen;
    std::thread::id where;
    std::thread other([&] {
        loop.post([&] { seen.push_back(1); });
        loop.post([&] {
            seen.push_back(2);
            where = std::this_thread::get_id();
        });
        loop.post([&] { loop.stop(); });
    });
    loop.run();
    other.join();
    EXPECT_THAT(seen, ElementsAre(1, 2));
    EXPECT_EQ(where, std::this_thread::get_id());
}

TEST(AgentLoop, RunsTimersInTheOrderOfTheirTimes) {
    AgentLoop loop;
    std::vector<int> seen;
    loop.runAfter(milliseconds(30), [&] {
        seen.push_back(3);
        loop.stop();
    });
    loop.runAfter(milliseconds(0), [&] {
        seen.push_back(1);
        loop.runAfter(milliseconds(1), [&] { seen.push_back(2); });
    });
    loop.run();
    EXPECT_THAT(seen, ElementsAre(1, 2, 3));
}

TEST(AgentLoop, DoesNotRunATimerBeforeItsTime) {
    AgentLoop loop;
    const auto start = std::chrono::steady_clock::now();
    auto end = start;
    loop.runAfter(milliseconds(20), [&] {
        end = std::chrono::steady_clock::now();
        loop.stop();
    });
    loop.run();
    EXPECT_GE(end - start, milliseconds(20));
}

TEST(AgentLoop, ATaskThatThrowsStopsNothing) {
    AgentLoop loop;
    bool ran = false;
    loop.post([] { throw std::runtime_error("a task that fails"); });
    loop.post([&] {
        ran = true;
        loop.stop();
    });
    loop.run();
    EXPECT_TRUE(ran);
}

TEST(AgentLoop, StopBeforeRunLetsItReturnAtOnce) {
    AgentLoop loop;
    bool ran = false;
    loop.post([&ran] { ran = true; });
    loop.stop();
    loop.run();
    EXPECT_FALSE(ran);
}

TEST(AgentLoop, RunsAgainAfterAStop) {
    AgentLoop loop;
    loop.stop();
    loop.run();
    bool ran = false;
    loop.post([&] {
        ran = true;
        loop.stop();
    });
    loop.run();
    EXPECT_TRUE(ran);
}

TEST(AgentLoop, TasksThatNeverRanAreDestroyedWithTheLoop) {
    auto token = std::make_shared<int>(1);
    {
        AgentLoop loop;
        loop.post([token] {});
        loop.runAfter(milliseconds(100000), [token] {});
        EXPECT_EQ(token.use_count(), 3);
    }
    EXPECT_EQ(token.use_count(), 1);
}

}  // namespace vrx
