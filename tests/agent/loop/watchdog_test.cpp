#include "host/agent/loop/watchdog.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "tests/base/fake_service_manager.h"

namespace vrx {

namespace {

using std::chrono::milliseconds;
using testing::Each;
using testing::IsEmpty;
using testing::SizeIs;

constexpr milliseconds INTERVAL{5};

class WatchdogTest : public testing::Test {
protected:
    WatchdogTest() : m_fake("@vrx-watchdog-test-" + std::to_string(getpid())) { setTimeout(2 * INTERVAL); }
    ~WatchdogTest() override { unsetenv("WATCHDOG_USEC"); }

    static void setTimeout(std::chrono::microseconds patience) {
        setenv("WATCHDOG_USEC", std::to_string(patience.count()).c_str(), 1);
    }

    // Runs the loop until so many messages have come.
    std::vector<std::string> runUntil(AgentLoop& loop, std::size_t count) {
        std::vector<std::string> all;
        std::function<void()> look = [&] {
            for (const std::string& message : m_fake.messages()) all.push_back(message);
            all.size() < count ? loop.runAfter(milliseconds(1), look) : loop.stop();
        };
        look();
        loop.run();
        return all;
    }

    FakeServiceManager m_fake;
    AgentLoop m_loop;
};

TEST_F(WatchdogTest, PingsAsLongAsTheLoopRuns) {
    const ServiceManager manager = ServiceManager::fromEnvironment();
    const Watchdog watchdog(m_loop, manager);
    EXPECT_THAT(runUntil(m_loop, 5), Each(std::string("WATCHDOG=1")));
}

TEST_F(WatchdogTest, AnAgentThreadThatHangsIsSilent) {
    const ServiceManager manager = ServiceManager::fromEnvironment();
    const Watchdog watchdog(m_loop, manager);
    std::vector<std::string> meanwhile;
    m_loop.post([&] {
        m_fake.messages();
        std::this_thread::sleep_for(10 * INTERVAL);
        meanwhile = m_fake.messages();
    });
    runUntil(m_loop, 2);  // and it is heard again when it goes on
    EXPECT_THAT(meanwhile, IsEmpty());
}

TEST_F(WatchdogTest, IsSilentWhenNobodyExpectsAnything) {
    setTimeout(milliseconds(0));
    const ServiceManager manager = ServiceManager::fromEnvironment();
    const Watchdog watchdog(m_loop, manager);
    m_loop.runAfter(4 * INTERVAL, [this] { m_loop.stop(); });
    m_loop.run();
    EXPECT_THAT(m_fake.messages(), IsEmpty());
}

TEST_F(WatchdogTest, IsSilentAfterItsEnd) {
    const ServiceManager manager = ServiceManager::fromEnvironment();
    { const Watchdog watchdog(m_loop, manager); }
    EXPECT_THAT(m_fake.messages(), SizeIs(1));
    m_loop.runAfter(4 * INTERVAL, [this] { m_loop.stop(); });
    m_loop.run();
    EXPECT_THAT(m_fake.messages(), IsEmpty());
}

TEST_F(WatchdogTest, AnIntervalBelowAMillisecondIsOneMillisecond) {
    setTimeout(std::chrono::microseconds(2));
    const ServiceManager manager = ServiceManager::fromEnvironment();
    const Watchdog watchdog(m_loop, manager);
    EXPECT_THAT(runUntil(m_loop, 3), Each(std::string("WATCHDOG=1")));
}

}  // namespace

}  // namespace vrx
