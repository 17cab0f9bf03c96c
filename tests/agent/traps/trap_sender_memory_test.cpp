// Traps on their way out without memory at any one place: each is counted and settled once.
#include <gtest/gtest.h>

#include <functional>

#include "host/notification_log/heartbeat_notification.h"
#include "tests/agent/trap_test_tools.h"
#include "tests/failing_memory.h"

namespace vrx {

namespace {

constexpr int TRAPS = 3;

class TrapSenderMemoryTest : public testing::Test {
protected:
    // Submits traps to one destination and runs the loop with the n-th allocation failing, for n = 1, 2, ... until
    // there are no more of them.
    void failEach(const tTrapDestInfo& info, const std::function<void(FakeTransport& transport)>& prepare,
                  const std::function<void(const TrapCounters& counters)>& check) {
        bool failed = true;
        unsigned int n = 0;
        while (failed) {
            SCOPED_TRACE(++n);
            FakeTransport transport;
            prepare(transport);
            TrapSender sender(m_loop, m_options, transport, [](const std::string&) { return std::string(); });
            sender.setDestinations({info});
            int settled = 0;
            for (int i = 1; i <= TRAPS; ++i) {
                sender.submit(NotificationOrigin(), *sender.destinations(), {info}, trapNumbered(1),
                              [&] { ++settled; });
            }
            failing_memory::failAt(n);
            agent_check_and_process(0);
            failed = !failing_memory::isFailureToCome();
            failing_memory::failAt(0);
            ASSERT_TRUE(turnUntil([&] { return sender.totals().waiting == 0; }));
            EXPECT_EQ(settled, TRAPS);
            EXPECT_EQ(sender.totals().considered, static_cast<std::uint64_t>(TRAPS));
            check(sender.totals());
            sender.stop();
        }
        EXPECT_GT(n, 5U) << "allocations fail";
    }

    AgentLoop m_loop;
    TrapOptions m_options;
};

}  // namespace

TEST_F(TrapSenderMemoryTest, EachTrapIsSentAndSettledOnce) {
    failEach(
        destination("1", 1001, "127.0.0.1", 1), [](FakeTransport& transport) { transport.leftOut = 1; },
        [](const TrapCounters& counters) {
            EXPECT_EQ(counters.sent, static_cast<std::uint64_t>(TRAPS));
            EXPECT_EQ(counters.droppedInAll(), 0U);
        });
}

// Whatever finds no memory.
TEST_F(TrapSenderMemoryTest, AHeartbeatCountsWhatWasSentBeforeIt) {
    bool failed = true;
    unsigned int n = 0;
    while (failed) {
        SCOPED_TRACE(++n);
        FakeTransport transport;
        TrapSender sender(m_loop, m_options, transport);
        sender.setHeartbeats(std::chrono::hours(1), "no-such-folder/heartbeats");
        sender.setDestinations({destination("1", 1001)});
        for (int i = 1; i <= TRAPS; ++i) {
            sender.submit(NotificationOrigin(), *sender.destinations(), {destination("1", 1001)}, trapNumbered(1),
                          nullptr);
        }
        failing_memory::failAt(n);
        agent_check_and_process(0);
        failed = !failing_memory::isFailureToCome();
        failing_memory::failAt(0);
        ASSERT_TRUE(turnUntil([&] { return sender.totals().sent == static_cast<std::uint64_t>(TRAPS); }));
        sender.stop();
        std::uint64_t traps = 0;
        for (const FakeTransport::Message& one : transport.messages) {
            if (one.trap.bindings.empty()) {
                ++traps;
                continue;
            }
            EXPECT_EQ(one.trap.bindings.at(heartbeat_notification::TRAPS - 1).value.number, traps);
        }
        EXPECT_EQ(traps, static_cast<std::uint64_t>(TRAPS));
        EXPECT_FALSE(transport.messages.back().trap.bindings.empty()) << "the last one";
    }
    EXPECT_GT(n, 5U) << "allocations fail";
}

TEST_F(TrapSenderMemoryTest, ATrapWaitsForTheMemoryOfItsMessageHoweverLong) {
    FakeTransport transport;
    m_options.rate = m_options.burst = 1;
    TrapSender sender(m_loop, m_options, transport);
    sender.setDestinations({destination("1", 1001)});
    transport.sendsWithoutMemory = 101;  // a second and more
    int settled = 0;
    sender.submit(NotificationOrigin(), *sender.destinations(), {destination("1", 1001)}, trapNumbered(1),
                  [&] { ++settled; });
    ASSERT_TRUE(turnUntil([&] { return sender.totals().waiting == 0; }));
    EXPECT_EQ(transport.sendsWithoutMemory, 0);
    EXPECT_EQ(sender.totals().sent, 1U) << sender.totals().text();
    EXPECT_EQ(sender.totals().paced, 0U) << "an attempt costs no token";
    EXPECT_EQ(settled, 1);
    sender.stop();
}

TEST_F(TrapSenderMemoryTest, ATrapThatFindsNoMemoryWhileItsDestinationGoesIsDroppedOnce) {
    FakeTransport transport;
    TrapSender sender(m_loop, m_options, transport);
    sender.setDestinations({destination("1", 1001)});
    transport.sendsWithoutMemory = 1;
    transport.onLackOfMemory = [&] { sender.setDestinations({}); };
    int settled = 0;
    for (int i = 1; i <= TRAPS; ++i) {
        sender.submit(NotificationOrigin(), *sender.destinations(), {destination("1", 1001)}, trapNumbered(1),
                      [&] { ++settled; });
    }
    ASSERT_TRUE(turnUntil([&] { return settled == TRAPS; }));
    EXPECT_EQ(sender.totals().dropped[static_cast<std::size_t>(TrapDrop::Removed)], static_cast<std::uint64_t>(TRAPS));
    EXPECT_EQ(sender.totals().droppedInAll(), sender.totals().considered);
    sender.stop();
}

TEST_F(TrapSenderMemoryTest, ATrapIsTakenByAllItsDestinationsOrByNone) {
    FakeTransport transport;
    TrapSender sender(m_loop, m_options, transport, NameResolver::Lookup());
    const std::list<tTrapDestInfo> all = {destination("1", 1001), destination("2", 1002)};
    sender.setDestinations(all);
    std::uint64_t taken = 0;
    bool failed = true;
    unsigned int n = 0;
    for (; failed; ++n) {
        const auto considered = sender.destinations();
        const auto trap = trapNumbered(1);
        const NotificationSink::Settled settled = [] {};
        try {
            failing_memory::failAt(n + 1);
            sender.submit(NotificationOrigin(), *considered, all, trap, settled);
            failed = false;
        } catch (const std::bad_alloc&) {
        }
        failing_memory::failAt(0);
        if (!failed) taken += all.size();
        ASSERT_EQ(sender.totals().considered, taken);
        ASSERT_EQ(sender.totals().waiting, taken);
        ASSERT_EQ(sender.totals().droppedInAll(), 0U);
    }
    EXPECT_GT(n, 5U) << "allocations fail";
    ASSERT_TRUE(turnUntil([&] { return sender.totals().sent == taken; }));
    sender.stop();
}

TEST_F(TrapSenderMemoryTest, EachTrapIsDroppedAndSettledOnce) {
    failEach(
        destination("1", 1001), [](FakeTransport& transport) { transport.configuredCommunity = ""; },
        [](const TrapCounters& counters) {
            EXPECT_EQ(counters.sent, 0U);
            EXPECT_EQ(counters.droppedInAll(), static_cast<std::uint64_t>(TRAPS));
        });
}

}  // namespace vrx
