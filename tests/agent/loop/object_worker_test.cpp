#include "host/agent/loop/object_worker.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <future>
#include <memory>
#include <vector>

namespace vrx {

using testing::ElementsAre;
using Clock = std::chrono::steady_clock;

namespace {

constexpr std::chrono::seconds LONG{60};

}  // namespace

TEST(ObjectWorker, RunsJobsOneAfterTheOtherInTheirOrder) {
    std::vector<int> seen;
    std::promise<void> done;
    ObjectWorker worker("test");
    for (int job = 0; job < 3; ++job) worker.submit([&seen, job] { seen.push_back(job); });
    worker.submit([&done] { done.set_value(); });
    done.get_future().wait();
    EXPECT_THAT(seen, ElementsAre(0, 1, 2));
}

TEST(ObjectWorker, RunsThemOnAThreadOfItsOwnWithAllSignalsBlocked) {
    std::promise<std::pair<std::thread::id, bool>> told;
    ObjectWorker worker("test");
    worker.submit([&told] {
        sigset_t blocked;
        pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
        told.set_value({std::this_thread::get_id(), sigismember(&blocked, SIGTERM) == 1});
    });
    const auto [thread, blocked] = told.get_future().get();
    EXPECT_NE(thread, std::this_thread::get_id());
    EXPECT_TRUE(blocked);
}

TEST(ObjectWorker, ItsThreadEndsWhenNoJobHasComeForAWhileAndIsMadeAgain) {
    ObjectWorker worker("test", std::chrono::milliseconds(0));
    for (int round = 0; round < 3; ++round) {
        std::promise<void> done;
        worker.submit([&done] { done.set_value(); });
        EXPECT_EQ(done.get_future().wait_for(LONG), std::future_status::ready);
        EXPECT_TRUE(worker.waitStopped(Clock::now() + LONG)) << "the thread goes on, round " << round;
    }
}

TEST(ObjectWorker, NoJobIsLostBetweenTheEndOfAThreadAndTheNext) {
    constexpr int JOBS = 2000;
    int ran = 0;
    std::promise<void> done;
    ObjectWorker worker("test", std::chrono::milliseconds(0));
    for (int job = 1; job <= JOBS; ++job) {
        worker.submit([&] {
            if (++ran == JOBS) done.set_value();
        });
        std::this_thread::yield();
    }
    EXPECT_EQ(done.get_future().wait_for(LONG), std::future_status::ready);
    EXPECT_EQ(ran, JOBS);
}

TEST(ObjectWorker, AStopLetsTheRunningJobEndAndDropsTheOthers) {
    std::promise<void> begun;
    std::promise<void> goOn;
    bool ended = false;
    auto dropped = std::make_shared<bool>(false);
    ObjectWorker worker("test");
    worker.submit([&] {
        begun.set_value();
        goOn.get_future().wait();
        ended = true;
    });
    worker.submit([dropped] { *dropped = true; });
    begun.get_future().wait();
    worker.requestStop();
    worker.submit([dropped] { *dropped = true; });
    EXPECT_FALSE(worker.waitStopped(Clock::now())) << "the job still runs";
    goOn.set_value();
    EXPECT_TRUE(worker.waitStopped(Clock::now() + LONG));
    EXPECT_TRUE(ended);
    EXPECT_FALSE(*dropped);
    EXPECT_EQ(dropped.use_count(), 1) << "dropped jobs are destroyed";
}

TEST(ObjectWorker, AWorkerWithoutJobsStopsAtOnce) {
    ObjectWorker worker("test");
    worker.requestStop();
    EXPECT_TRUE(worker.waitStopped(Clock::now() + LONG));
}

}  // namespace vrx
