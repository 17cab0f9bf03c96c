#include "host/agent/traps/heartbeat_traps.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <fstream>

#include "host/notification_log/heartbeat_notification.h"
#include "tests/agent/trap_test_tools.h"

namespace vrx {

namespace {

using namespace heartbeat_notification;
using std::chrono::seconds;

const std::string HEARTBEAT = oidText(NOTIFICATION);

const SnmpValue& valueOf(const Notification& heartbeat, Binding number) {
    return heartbeat.bindings.at(number - 1).value;
}

// A sender with heartbeats an hour apart: those of a test come for other reasons.
class HeartbeatTrapsTest : public testing::Test {
protected:
    HeartbeatTrapsTest() {
        char folder[] = "heartbeats-XXXXXX";
        m_folder = ::mkdtemp(folder);
        m_path = m_folder + "/heartbeats";
        start();
    }
    ~HeartbeatTrapsTest() override {
        stop();
        std::remove(m_path.c_str());
        ::rmdir(m_folder.c_str());
    }

    void start(seconds interval = std::chrono::hours(1)) {
        m_sender = std::make_unique<TrapSender>(m_loop, TrapOptions(), m_transport);
        m_sender->setHeartbeats(interval, m_path);
    }
    void stop() {
        if (m_sender) m_sender->stop();
        m_sender.reset();
    }
    // As an orderly end and the start after it.
    void restart(seconds interval = std::chrono::hours(1)) {
        stop();
        ++m_transport.agent.boots;
        start(interval);
    }

    void submit(unsigned long count) {
        std::list<tTrapDestInfo> chosen;
        for (const auto& entry : *m_sender->destinations()) chosen.push_back(entry.second);
        for (unsigned long i = 1; i <= count; ++i) {
            m_sender->submit(NotificationOrigin(), *m_sender->destinations(), chosen, trapNumbered(i), nullptr);
        }
    }
    void turnUntilSent(std::size_t count) {
        ASSERT_TRUE(turnUntil([&] { return m_transport.messages.size() >= count; })) << m_transport.messages.size();
    }
    std::vector<FakeTransport::Message> heartbeats(unsigned int port = 1001) const {
        std::vector<FakeTransport::Message> found;
        for (const FakeTransport::Message& one : m_transport.messages) {
            if (one.port == port && oidText(one.trap.oid) == HEARTBEAT) found.push_back(one);
        }
        return found;
    }
    // In words: "5.1 #2: 30 traps, next 3600".
    std::vector<std::string> told(unsigned int port = 1001) const {
        std::vector<std::string> texts;
        for (const FakeTransport::Message& one : heartbeats(port)) {
            texts.push_back(valueOf(one.trap, SERIES).octets + " #" + std::to_string(valueOf(one.trap, NUMBER).number) +
                            ": " + std::to_string(valueOf(one.trap, TRAPS).number) + " traps, next " +
                            std::to_string(valueOf(one.trap, NEXT).number));
        }
        return texts;
    }

    AgentLoop m_loop;
    FakeTransport m_transport;
    std::string m_folder;
    std::string m_path;
    std::unique_ptr<TrapSender> m_sender;
};

using Texts = std::vector<std::string>;

}  // namespace

TEST_F(HeartbeatTrapsTest, TheFirstGoesBeforeTheFirstTrapAndTheLastCountsAll) {
    m_sender->setDestinations({destination("1", 1001), destination("7", 1002, "127.0.0.2", 1)});
    submit(3);
    turnUntilSent(8);
    EXPECT_EQ(m_transport.sent[1001].front(), HEARTBEAT);
    EXPECT_EQ(m_sender->status().destinations.front().heartbeats, 1U);
    EXPECT_EQ(m_sender->status().destinations.front().counters.sent, 3U);
    stop();
    EXPECT_EQ(told(), (Texts{"5.1 #1: 0 traps, next 3600", "5.1 #2: 3 traps, next 0"}));
    EXPECT_EQ(told(1002), (Texts{"5.2 #1: 0 traps, next 3600", "5.2 #2: 3 traps, next 0"}));
    const Notification first = heartbeats(1002).front().trap;
    ASSERT_EQ(first.bindings.size(), BINDINGS);
    EXPECT_EQ(oidText(first.bindings.back().name), oidText(OBJECTS) + ".9.0");
    EXPECT_EQ(valueOf(first, ENGINE).octets, "80ab");
    EXPECT_EQ(valueOf(first, DESTINATION).number, 7U);
    EXPECT_EQ(valueOf(first, BOOTS).number, 5U);
    EXPECT_EQ(valueOf(first, LAST_TRAP).octets, std::string(8, '\0'));
    EXPECT_EQ(valueOf(heartbeats(1002).back().trap, LAST_TRAP).octets.size(), 11U);
}

// Receivers tell by sysUpTime which traps are in the count, in whatever order they arrive.
TEST_F(HeartbeatTrapsTest, ItsUpTimeIsAfterThatOfTheTrapsItCountsAndNotAfterThatOfOthers) {
    m_sender->setDestinations({destination("1", 1001)});
    submit(40);  // more than a turn's worth, all at the same time
    turnUntilSent(41);
    m_sender->setHeartbeats(seconds(1800), m_path);  // one at once
    submit(40);
    turnUntilSent(82);
    m_transport.ticks = 5000;
    submit(1);
    turnUntilSent(83);
    stop();
    for (const FakeTransport::Message& beat : heartbeats()) {
        std::uint64_t before = 0;
        for (const FakeTransport::Message& one : m_transport.messages) {
            if (oidText(one.trap.oid) != HEARTBEAT && one.upTime < beat.upTime) ++before;
        }
        EXPECT_EQ(before, valueOf(beat.trap, TRAPS).number);
    }
    EXPECT_EQ(heartbeats().size(), 3U);
    EXPECT_EQ(m_transport.messages.at(m_transport.messages.size() - 2).upTime, 5000U);  // the clock's again
}

TEST_F(HeartbeatTrapsTest, UpTimeIsTheClocksWhereNoneWasSentForLong) {
    m_sender->setDestinations({destination("1", 1001)});
    turnUntilSent(1);
    m_transport.ticks = 3'000'000'000;  // 347 days
    submit(1);
    turnUntilSent(2);
    EXPECT_EQ(m_transport.messages.back().upTime, 3'000'000'000U);
    m_sender->setDestinations({destination("1", 1001), destination("2", 1002)});
    turnUntilSent(3);
    submit(1);
    turnUntilSent(5);
    for (std::size_t i = 2; i < 5; ++i) EXPECT_NEAR(m_transport.messages.at(i).upTime, 3'000'000'000.0, 2) << i;
    m_transport.ticks = 7;  // it has wrapped
    submit(1);
    turnUntilSent(7);
    EXPECT_EQ(m_transport.messages.back().upTime, 7U);
}

TEST_F(HeartbeatTrapsTest, OneComesAtEachInterval) {
    m_sender->setHeartbeats(seconds(1), m_path);
    m_sender->setDestinations({destination("1", 1001)});
    turnUntilSent(3);
    EXPECT_EQ(told(), (Texts{"5.1 #1: 0 traps, next 1", "5.1 #2: 0 traps, next 1", "5.1 #3: 0 traps, next 1"}));
}

TEST_F(HeartbeatTrapsTest, TrapsThatDoNotGetOutAreNotCounted) {
    m_sender->setDestinations({destination("1", 1001)});
    submit(2);
    turnUntilSent(3);
    m_transport.sendFails = true;
    submit(5);
    ASSERT_TRUE(turnUntil([this] { return m_sender->totals().droppedInAll() == 5; }));
    m_transport.sendFails = false;
    submit(1);  // gets out, and a heartbeat follows on the new channel
    turnUntilSent(5);
    stop();
    EXPECT_EQ(told(), (Texts{"5.1 #1: 0 traps, next 3600", "5.1 #2: 3 traps, next 3600", "5.1 #3: 3 traps, next 0"}));
}

TEST_F(HeartbeatTrapsTest, HeartbeatsThatDoNotGetOutHoldNoTrapUp) {
    m_transport.sendFails = true;
    m_sender->setDestinations({destination("1", 1001)});
    submit(5);
    ASSERT_TRUE(turnUntil([this] { return m_sender->totals().droppedInAll() == 5; }));
    EXPECT_EQ(m_sender->status().destinations.front().state, DestinationState::Failing);
    EXPECT_EQ(m_sender->status().destinations.front().heartbeats, 0U);
}

TEST_F(HeartbeatTrapsTest, ADeletedDestinationGetsItsLastOneAndBeginsAnew) {
    m_sender->setDestinations({destination("1", 1001)});
    submit(4);
    turnUntilSent(5);
    m_sender->setDestinations({});
    turnUntilSent(6);
    m_sender->setDestinations({destination("1", 1001)});
    submit(1);
    turnUntilSent(8);
    EXPECT_EQ(told(), (Texts{"5.1 #1: 0 traps, next 3600", "5.1 #2: 4 traps, next 0", "5.2 #1: 0 traps, next 3600"}));
}

TEST_F(HeartbeatTrapsTest, AnotherAddressIsAnotherSeriesAndAnotherVersionIsNot) {
    m_sender->setDestinations({destination("1", 1001)});
    submit(4);
    turnUntilSent(5);
    m_sender->setDestinations({destination("1", 1001, "127.0.0.1", 1)});
    turnUntilSent(6);
    m_sender->setDestinations({destination("1", 1002)});
    turnUntilSent(8);
    EXPECT_EQ(told(), (Texts{"5.1 #1: 0 traps, next 3600", "5.1 #2: 4 traps, next 3600", "5.1 #3: 4 traps, next 0"}));
    EXPECT_EQ(told(1002), (Texts{"5.2 #1: 0 traps, next 3600"}));
}

TEST_F(HeartbeatTrapsTest, ASeriesGoesOnAfterAnOrderlyEnd) {
    m_sender->setDestinations({destination("1", 1001), destination("2", 1002)});
    submit(4);
    turnUntilSent(10);
    restart();
    m_sender->setDestinations({destination("1", 1001), destination("2", 1003)});
    turnUntilSent(14);
    EXPECT_EQ(told(), (Texts{"5.1 #1: 0 traps, next 3600", "5.1 #2: 4 traps, next 0", "5.1 #3: 4 traps, next 3600"}));
    EXPECT_EQ(valueOf(heartbeats().back().trap, BOOTS).number, 6U);
    EXPECT_EQ(valueOf(heartbeats().back().trap, LAST_TRAP).octets.size(), 11U);
    EXPECT_EQ(told(1003), (Texts{"6.1 #1: 0 traps, next 3600"}));  // the same number, another receiver
}

TEST_F(HeartbeatTrapsTest, ARunThatDidNotEndInOrderOrDidNotCountEndsASeries) {
    m_sender->setDestinations({destination("1", 1001)});
    turnUntilSent(1);
    stop();
    m_transport.agent.boots += 2;  // the run in between crashed: it stored nothing
    start();
    m_sender->setDestinations({destination("1", 1001)});
    turnUntilSent(3);
    EXPECT_EQ(told().back(), "7.1 #1: 0 traps, next 3600");
    restart(seconds(0));
    m_sender->setHeartbeats(seconds(60), m_path);  // traps may have been sent before
    m_sender->setDestinations({destination("1", 1001)});
    turnUntilSent(5);
    EXPECT_EQ(told().back(), "8.1 #1: 0 traps, next 60");
}

TEST_F(HeartbeatTrapsTest, AFileOfAnythingElseIsNone) {
    for (const char* content : {"", "rubbish", "5", "5 0\n1 x", "5 0\n1 5.1 127.0.0.1 1001 many", "5 0\n\xFF\xFF"}) {
        std::ofstream(m_path) << content;
        m_transport.messages.clear();
        HeartbeatTraps heartbeats;
        heartbeats.start(m_path, {"80ab", 6});
        EXPECT_EQ(heartbeats.seriesOf(1, "127.0.0.1", 1001).name, "6.1") << content;
    }
}

TEST_F(HeartbeatTrapsTest, NoneIsSentWithoutAnInterval) {
    m_sender->setHeartbeats(seconds(0), m_path);
    m_sender->setDestinations({destination("1", 1001)});
    submit(2);
    turnUntilSent(2);
    stop();
    EXPECT_TRUE(heartbeats().empty());
    EXPECT_FALSE(std::ifstream(m_path).good());
}

TEST_F(HeartbeatTrapsTest, TurnedOffTheyEndInOrder) {
    m_sender->setDestinations({destination("1", 1001)});
    submit(2);
    turnUntilSent(3);
    m_sender->setHeartbeats(seconds(0), m_path);
    submit(2);
    turnUntilSent(6);
    stop();
    EXPECT_EQ(told(), (Texts{"5.1 #1: 0 traps, next 3600", "5.1 #2: 2 traps, next 0"}));
}

}  // namespace vrx
