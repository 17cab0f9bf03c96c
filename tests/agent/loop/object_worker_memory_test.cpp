// A worker whose thread cannot be made when a job comes.
#include <gtest/gtest.h>

#include <future>
#include <memory>
#include <new>

#include "host/agent/loop/object_worker.h"
#include "tests/failing_memory.h"

namespace vrx {

using Clock = std::chrono::steady_clock;

namespace {

constexpr std::chrono::seconds LONG{60};

void expectThatItRuns(ObjectWorker& worker) {
    std::promise<void> done;
    worker.submit([&done] { done.set_value(); });
    EXPECT_EQ(done.get_future().wait_for(LONG), std::future_status::ready);
}

}  // namespace

TEST(ObjectWorkerMemory, WithoutAThreadAJobIsRefusedAsIfMemoryWereMissing) {
    const auto refused = std::make_shared<bool>(false);
    ObjectWorker worker("test");
    failing_memory::failThreads(true);
    EXPECT_THROW(worker.submit([refused] { *refused = true; }), std::bad_alloc);
    EXPECT_THROW(worker.submit([refused] { *refused = true; }), std::bad_alloc);
    EXPECT_EQ(refused.use_count(), 1);
    failing_memory::failThreads(false);
    expectThatItRuns(worker);
    EXPECT_FALSE(*refused) << "it is asked again, and must not run twice";
}

TEST(ObjectWorkerMemory, AThreadThatIsThereTakesJobsWhileNoOtherCanBeMade) {
    ObjectWorker worker("test");
    expectThatItRuns(worker);
    failing_memory::failThreads(true);
    expectThatItRuns(worker);
    failing_memory::failThreads(false);
}

TEST(ObjectWorkerMemory, AThreadThatHasEndedAndCannotBeMadeAgainRefuses) {
    ObjectWorker worker("test", std::chrono::milliseconds(0));
    expectThatItRuns(worker);
    ASSERT_TRUE(worker.waitStopped(Clock::now() + LONG));
    failing_memory::failThreads(true);
    EXPECT_THROW(worker.submit([] {}), std::bad_alloc);
    failing_memory::failThreads(false);
    expectThatItRuns(worker);
}

TEST(ObjectWorkerMemory, AJobIsTakenWholeOrRefused) {
    for (unsigned int number = 1;; ++number) {
        const auto ran = std::make_shared<int>(0);
        ObjectWorker worker("test");
        failing_memory::failAt(number);
        bool taken = true;
        try {
            worker.submit([ran] { ++*ran; });
        } catch (const std::bad_alloc&) {
            taken = false;
        }
        const bool failed = !failing_memory::isFailureToCome();
        failing_memory::failAt(0);
        EXPECT_EQ(taken, !failed) << number;
        expectThatItRuns(worker);
        EXPECT_EQ(*ran, taken ? 1 : 0) << number;
        if (!failed) {
            EXPECT_GT(number, 1U);
            return;
        }
    }
}

}  // namespace vrx
