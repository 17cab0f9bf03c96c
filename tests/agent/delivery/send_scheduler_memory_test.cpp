// A sender's turns without memory at any one place: no wake-up is lost, and no name.
#include <gtest/gtest.h>

#include <condition_variable>
#include <mutex>
#include <new>
#include <string>

#include "host/agent/delivery/send_scheduler.h"
#include "tests/agent/trap_test_tools.h"
#include "tests/failing_memory.h"

namespace vrx {

namespace {

using Clock = SendScheduler::Clock;
using std::chrono::hours;
using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr const char* LONG_ADDRESS = "2001:db8:1111:2222:3333:4444:5555:6666";  // no string holds it without memory

// The look-up of "gate" comes to an end when the test says so: until then the resolver's thread needs no memory.
class SendSchedulerMemoryTest : public testing::Test {
protected:
    ~SendSchedulerMemoryTest() override { openGate(); }

    std::string lookUp(const std::string& name) {
        if (name != "gate") return LONG_ADDRESS;
        std::unique_lock<std::mutex> lock(m_mutex);
        m_atGate = true;
        m_changed.notify_all();
        m_changed.wait(lock, [this] { return m_gateOpen; });
        return "";
    }
    void waitForGate() {
        std::unique_lock<std::mutex> lock(m_mutex);
        ASSERT_TRUE(m_changed.wait_for(lock, seconds(60), [this] { return m_atGate; }));
    }
    void openGate() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_gateOpen = true;
        m_changed.notify_all();
    }

    // With the n-th allocation failing, for n = 1, 2, ... until there are no more of them; `check` looks each time what
    // came of it. Gives their number.
    template <typename Action, typename Check>
    static unsigned int failEach(Action action, Check check) {
        for (unsigned int n = 1;; ++n) {
            failing_memory::failAt(n);
            action();
            const bool failed = !failing_memory::isFailureToCome();
            failing_memory::failAt(0);
            check();
            if (!failed) return n - 1;
        }
    }
    // Since failAt(1), which ends.
    static bool allocatedNothing() {
        const bool nothing = failing_memory::isFailureToCome();
        failing_memory::failAt(0);
        return nothing;
    }
    // Whether it threw std::bad_alloc.
    template <typename Action>
    static bool lacksMemory(Action action) {
        try {
            action();
            return false;
        } catch (const std::bad_alloc&) {
            return true;
        }
    }

    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_atGate = false;  // guarded by m_mutex, as the next
    bool m_gateOpen = false;

    AgentLoop m_loop;
    int m_taken = 0;
    int m_needs = 0;  // so many turns find no memory, but for the last of them
    SendScheduler m_scheduler{m_loop,
                              [this] {
                                  ++m_taken;
                                  if (m_needs > 0 && --m_needs > 0) throw std::bad_alloc();
                              },
                              milliseconds(1), seconds(3600), [this](const std::string& name) { return lookUp(name); }};
};

}  // namespace

TEST_F(SendSchedulerMemoryTest, AWakeUpNeedsNoMemory) {
    failing_memory::failAt(1);
    m_scheduler.wake();
    agent_check_and_process(0);
    EXPECT_TRUE(allocatedNothing());
    EXPECT_EQ(m_taken, 1);
}

TEST_F(SendSchedulerMemoryTest, ATimeIsSetWithoutMemory) {
    failing_memory::failAt(1);
    m_scheduler.sleepUntil(Clock::now() + hours(1));
    m_scheduler.sleepUntil(Clock::now() + milliseconds(1));
    m_scheduler.sleepUntil(Clock::now() + hours(2));
    EXPECT_TRUE(turnUntil([this] { return m_taken == 1; }));
    EXPECT_TRUE(allocatedNothing());
}

TEST_F(SendSchedulerMemoryTest, ATurnWithoutMemoryIsTakenAgain) {
    m_needs = 3;
    m_scheduler.wake();
    EXPECT_TRUE(turnUntil([this] { return m_taken == 3; }));
    EXPECT_EQ(m_needs, 0);
}

TEST_F(SendSchedulerMemoryTest, ANameIsLookedUpWhereverMemoryWasMissing) {
    m_scheduler.watch({"gate"});
    waitForGate();
    const std::set<std::string> hosts = {"gate", "nms", "192.0.2.7"};
    const unsigned int failures = failEach([&] { lacksMemory([&] { m_scheduler.watch(hosts); }); }, [] {});
    EXPECT_GT(failures, 0U);
    openGate();
    EXPECT_TRUE(turnUntil([this] { return m_scheduler.addressOf("nms") == LONG_ADDRESS; }));
}

TEST_F(SendSchedulerMemoryTest, AnAddressThatCameNeedsNoMemory) {
    m_scheduler.watch({"a", "gate"});
    waitForGate();  // the answer for "a" is in the loop
    failing_memory::failAt(1);
    agent_check_and_process(0);
    EXPECT_TRUE(allocatedNothing());
    EXPECT_EQ(m_scheduler.addressOf("a"), LONG_ADDRESS);
    EXPECT_TRUE(turnUntil([this] { return m_taken == 1; }));
}

}  // namespace vrx
