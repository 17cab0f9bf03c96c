#include "host/agent/notifications/notification_delivery.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>

#include "host/notification_log/notification_codec.h"
#include "tests/agent/trap_test_tools.h"

namespace vrx {

namespace {

using std::chrono::seconds;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

// Keeps what it gets; settles nothing by itself.
class RecordingSink : public NotificationSink {
public:
    struct Submitted {
        NotificationOrigin origin;
        std::vector<std::string> considered;
        std::vector<std::string> chosen;
        Settled settled;
    };

    RecordingSink(const std::vector<std::string>& numbers, bool late) : m_late(late) {
        auto map = std::make_shared<TrapDestinationMap>();
        for (const std::string& number : numbers) map->emplace(trapDestinationKey(number), destination(number, 162));
        list = std::move(map);
    }

    std::shared_ptr<const TrapDestinationMap> destinations() const override { return list; }
    void submit(const NotificationOrigin& origin, const TrapDestinationMap& considered,
                const std::list<tTrapDestInfo>& chosen, std::shared_ptr<const Notification> trap,
                Settled settled) override {
        Submitted one{origin, {}, {}, std::move(settled)};
        for (const auto& entry : considered) one.considered.push_back(entry.second.index);
        for (const tTrapDestInfo& info : chosen) {
            if (considered.count(trapDestinationKey(info.index)) != 0) one.chosen.push_back(info.index);
        }
        if (trap != nullptr) ++traps;
        submitted.push_back(std::move(one));
    }
    bool takesLate() const override { return m_late; }

    // Sequences of the events whose traps went to a destination.
    std::vector<unsigned long long> events(const std::string& number) const {
        std::vector<unsigned long long> sequences;
        for (const Submitted& one : submitted) {
            if (std::count(one.chosen.begin(), one.chosen.end(), number) > 0) sequences.push_back(one.origin.sequence);
        }
        return sequences;
    }

    std::shared_ptr<const TrapDestinationMap> list;
    std::vector<Submitted> submitted;
    int traps = 0;

private:
    const bool m_late;
};

class NotificationDeliveryTest : public testing::Test {
protected:
    NotificationDeliveryTest() {
        std::string name = (std::filesystem::temp_directory_path() / "delivery-XXXXXX").string();
        if (::mkdtemp(name.data()) == nullptr) throw std::runtime_error("no temporary folder");
        m_folder = name;
        m_ledger = std::make_unique<EventLedger>(m_folder + "/notifications.db");
        m_log = std::make_unique<NotificationLog>(m_folder + "/notification_log.db");
        m_delivery = std::make_unique<NotificationDelivery>(
            m_loop, std::vector<NotificationSink*>{&m_traps, &m_informs}, *m_ledger, *m_log);
        m_ledger->startAfter(0);
    }
    ~NotificationDeliveryTest() override {
        m_delivery.reset();
        m_log.reset();
        m_ledger.reset();
        std::filesystem::remove_all(m_folder);
    }

    void deliver(const NotificationDelivery::Begun& begun, std::list<tTrapDestInfo> chosen,
                 std::shared_ptr<const Notification> trap) {
        const std::vector<NotificationDelivery::Destinations> offered{m_traps.destinations(), m_informs.destinations()};
        NotificationDelivery::Delivery delivery{begun, 0, offered, std::move(chosen), std::move(trap)};
        m_delivery->deliver(delivery);
    }
    // One event of alarm 7, its trap for the destinations.
    void event(unsigned int serial, bool raised, const std::vector<std::string>& numbers = {"1", "2"}) {
        const auto ticket = m_ledger->begin(++m_sequence);
        const AlarmEvent event{m_sequence, 7, serial, raised, 5, ""};
        const NotificationDelivery::Begun begun = m_delivery->begin(event, ticket);
        std::list<tTrapDestInfo> chosen;
        for (const std::string& number : numbers) chosen.push_back(destination(number, 162));
        deliver(begun, std::move(chosen), std::make_shared<Notification>(Notification{{1, 3, 6, m_sequence}, {}}));
        m_ledger->settle(ticket);
    }
    // Events 1 to 4: raised, ended, raised, and the end is held.
    void flap(seconds interval) {
        m_delivery->setLimits({3, seconds(60), interval});
        event(1, true);
        event(1, false);
        event(2, true);
        event(2, false);
    }
    void settleAll() {
        for (RecordingSink* sink : {&m_traps, &m_informs}) {
            for (RecordingSink::Submitted& one : sink->submitted) {
                if (one.settled) std::exchange(one.settled, nullptr)();
            }
        }
    }
    std::vector<LoggedNotification> logged() {
        m_log->flush();
        std::vector<LoggedNotification> entries;
        NotificationLogReader(m_log->path()).list({}, [&](const LoggedNotification& e) { entries.push_back(e); });
        return entries;
    }

    std::string m_folder;
    AgentLoop m_loop;
    RecordingSink m_traps{{"1", "2"}, true};
    RecordingSink m_informs{{"65536"}, false};
    std::unique_ptr<EventLedger> m_ledger;
    std::unique_ptr<NotificationLog> m_log;
    std::unique_ptr<NotificationDelivery> m_delivery;
    unsigned long long m_sequence = 0;
};

std::string faultOf(const std::function<void()>& action) {
    try {
        action();
    } catch (const SendAgainFault& fault) {
        return fault.what();
    }
    return "";
}

}  // namespace

TEST_F(NotificationDeliveryTest, EverySinkIsOfferedTheTrapAndTheLogNamesWhereItWent) {
    event(5, true, {"1", "65536"});
    ASSERT_THAT(m_traps.submitted, SizeIs(1));
    EXPECT_THAT(m_traps.submitted[0].considered, ElementsAre("1", "2"));
    EXPECT_THAT(m_traps.submitted[0].chosen, ElementsAre("1"));
    EXPECT_THAT(m_informs.submitted.at(0).chosen, ElementsAre("65536"));
    const std::vector<LoggedNotification> entries = logged();
    ASSERT_THAT(entries, SizeIs(1));
    EXPECT_EQ(entries[0].because, SentBecause::Event);
    EXPECT_EQ(entries[0].sequence, 1U);
    EXPECT_EQ(entries[0].alarmId, 7U);
    EXPECT_EQ(entries[0].serial, 5U);
    EXPECT_TRUE(entries[0].raised);
    EXPECT_EQ(entries[0].level, 5U);
    EXPECT_EQ(entries[0].trapOid, "1.3.6.1");
    EXPECT_THAT(entries[0].destinations, ElementsAre("1", "127.0.0.1:162"));
}

TEST_F(NotificationDeliveryTest, AnEventIsDoneWhenEverySinkHasSettledIt) {
    event(5, true);
    EXPECT_EQ(m_ledger->lastDone(), 0U);
    m_traps.submitted[0].settled();
    EXPECT_EQ(m_ledger->lastDone(), 0U);
    m_informs.submitted[0].settled();
    EXPECT_EQ(m_ledger->lastDone(), 1U);
}

TEST_F(NotificationDeliveryTest, ATrapIsLoggedForItsOwnEvent) {
    const AlarmEvent first{1, 7, 21, true, 5, ""};
    const AlarmEvent second{2, 8, 22, false, 5, ""};
    const NotificationDelivery::Begun begunFirst = m_delivery->begin(first, m_ledger->begin(1));
    const NotificationDelivery::Begun begunSecond = m_delivery->begin(second, m_ledger->begin(2));
    const auto trap = std::make_shared<Notification>(Notification{{1, 3}, {}});
    deliver(begunFirst, {destination("1", 162)}, trap);
    deliver(begunSecond, {destination("1", 162)}, trap);
    std::vector<std::string> entries;
    for (const LoggedNotification& entry : logged()) {
        entries.push_back(std::to_string(entry.sequence) + ": alarm " + std::to_string(entry.alarmId) + " serial " +
                          std::to_string(entry.serial) + (entry.raised ? " raised" : " ended"));
    }
    EXPECT_THAT(entries, testing::UnorderedElementsAre("1: alarm 7 serial 21 raised", "2: alarm 8 serial 22 ended"));
}

TEST_F(NotificationDeliveryTest, WhatCouldNotBeBuiltOrGoesNowhereIsNotLogged) {
    const auto ticket = m_ledger->begin(++m_sequence);
    const AlarmEvent event{m_sequence, 7, 1, true, 5, ""};
    const NotificationDelivery::Begun begun = m_delivery->begin(event, ticket);
    deliver(begun, {destination("1", 162)}, nullptr);
    deliver(begun, {destination("1", 162)}, std::make_shared<Notification>());
    deliver(begun, {}, std::make_shared<Notification>(Notification{{1, 3}, {}}));
    EXPECT_THAT(m_traps.submitted, SizeIs(3));
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(NotificationDeliveryTest, ASinkWithoutDestinationsIsLeftAlone) {
    m_informs.list = std::make_shared<TrapDestinationMap>();
    event(5, true);
    EXPECT_THAT(m_informs.submitted, IsEmpty());
}

TEST_F(NotificationDeliveryTest, AHeldTrapIsNeitherSentNorCountedNorLoggedAndItsEventStaysOpen) {
    flap(seconds(3600));
    EXPECT_THAT(m_traps.events("1"), ElementsAre(1, 2, 3));
    EXPECT_THAT(m_traps.events("2"), ElementsAre(1, 2, 3));
    EXPECT_THAT(m_traps.submitted, SizeIs(3));
    EXPECT_THAT(logged(), SizeIs(3));
    settleAll();
    EXPECT_EQ(m_ledger->lastDone(), 3U);
    const auto paced = m_delivery->paced();
    EXPECT_EQ(paced.at(trapDestinationKey("1")).held, 1U);
    EXPECT_EQ(paced.at(trapDestinationKey("2")).held, 1U);
}

TEST_F(NotificationDeliveryTest, ASinkThatTakesNothingLateGetsEveryTrapAtOnce) {
    flap(seconds(3600));
    event(3, true, {"1", "65536"});
    EXPECT_THAT(m_informs.events("65536"), ElementsAre(5));
    EXPECT_THAT(logged().back().destinations, ElementsAre("127.0.0.1:162"));
}

TEST_F(NotificationDeliveryTest, WhatIsNotHeldOfAnEventGoesAtOnce) {
    m_delivery->setLimits({3, seconds(60), seconds(3600)});
    event(1, true, {"1"});
    event(1, false, {"1"});
    event(2, true, {"1"});
    event(2, false, {"1", "2"});  // 2 hears of the alarm for the first time
    EXPECT_THAT(m_traps.events("1"), ElementsAre(1, 2, 3));
    EXPECT_THAT(m_traps.events("2"), ElementsAre(4));
    EXPECT_THAT(m_traps.submitted.back().considered, ElementsAre("2"));
    EXPECT_THAT(logged().back().destinations, ElementsAre("2"));
}

TEST_F(NotificationDeliveryTest, SupersededTrapsAreCountedAndTheirEventsDone) {
    flap(seconds(3600));
    event(3, true);
    event(3, false);
    settleAll();
    EXPECT_EQ(m_ledger->lastDone(), 3U);  // the end of 2 is still held
    EXPECT_EQ(m_delivery->paced().at(trapDestinationKey("1")).suppressed, 2U);
    EXPECT_EQ(m_delivery->paced().at(trapDestinationKey("1")).held, 1U);
    m_delivery->setLimits({});
    settleAll();
    EXPECT_EQ(m_ledger->lastDone(), 6U);
}

TEST_F(NotificationDeliveryTest, WhatWasHeldIsSentAndLoggedWhenItsIntervalEnds) {
    flap(seconds(1));
    ASSERT_TRUE(turnUntil([&] { return m_traps.events("2").size() == 4; }));
    EXPECT_THAT(m_traps.events("1"), ElementsAre(1, 2, 3, 4));
    EXPECT_THAT(m_traps.submitted.back().considered, SizeIs(1));
    const std::vector<LoggedNotification> entries = logged();
    ASSERT_THAT(entries, SizeIs(5));
    EXPECT_EQ(entries[3].because, SentBecause::Held);
    EXPECT_EQ(entries[3].sequence, 4U);
    EXPECT_FALSE(entries[3].raised);
    EXPECT_THAT(entries[3].destinations, ElementsAre("1"));
    EXPECT_THAT(entries[4].destinations, ElementsAre("2"));
    EXPECT_EQ(m_ledger->lastDone(), 0U);
    settleAll();
    EXPECT_EQ(m_ledger->lastDone(), 4U);
}

TEST_F(NotificationDeliveryTest, TurnedOffItSendsWhatItHolds) {
    flap(seconds(3600));
    m_delivery->setLimits({});
    EXPECT_THAT(m_traps.events("1"), ElementsAre(1, 2, 3, 4));
    EXPECT_EQ(m_delivery->paced().count(trapDestinationKey("1")), 0U);
}

TEST_F(NotificationDeliveryTest, AShorterIntervalIsTakenOver) {
    flap(seconds(3600));
    m_delivery->setLimits({3, seconds(60), seconds(1)});
    EXPECT_TRUE(turnUntil([&] { return m_traps.events("1").size() == 4; }));
}

TEST_F(NotificationDeliveryTest, StoppedItSendsNothingAndTheEventsOfWhatIsHeldComeAgain) {
    flap(seconds(3600));
    logged();
    m_delivery->stop();
    m_delivery->setLimits({});
    EXPECT_EQ(faultOf([&] { m_delivery->sendAgain(1, ""); }), "the agent is ending");
    EXPECT_THAT(m_traps.submitted, SizeIs(3));
    settleAll();
    EXPECT_EQ(m_ledger->lastDone(), 3U);
}

TEST_F(NotificationDeliveryTest, ATrapIsSentAgainWhereItWentAndThatIsLoggedAndCounted) {
    event(5, false, {"1", "65536"});
    logged();
    const NotificationDelivery::SentAgain sent = m_delivery->sendAgain(1, "");
    EXPECT_THAT(sent.destinations, ElementsAre("1", "127.0.0.1:162"));
    EXPECT_THAT(sent.missing, IsEmpty());
    EXPECT_EQ(m_traps.submitted.back().origin.sequence, 0U);
    EXPECT_THAT(m_traps.submitted.back().considered, ElementsAre("1"));
    EXPECT_THAT(m_informs.submitted.back().chosen, ElementsAre("65536"));
    const LoggedNotification entry = logged().back();
    EXPECT_EQ(entry.because, SentBecause::Asked);
    EXPECT_EQ(entry.again, 1U);
    EXPECT_EQ(entry.serial, 5U);
    EXPECT_FALSE(entry.raised);
    EXPECT_EQ(entry.trap, logged().front().trap);
    EXPECT_EQ(m_log->counters().askedFor, 1U);
}

TEST_F(NotificationDeliveryTest, ATrapIsSentAgainToTheDestinationThatIsNamed) {
    event(5, true, {"1"});
    logged();
    EXPECT_THAT(m_delivery->sendAgain(1, "2").destinations, ElementsAre("2"));
    EXPECT_THAT(m_delivery->sendAgain(1, "127.0.0.1:162").destinations, ElementsAre("127.0.0.1:162"));
    EXPECT_THAT(m_traps.events("2"), ElementsAre(0));
    EXPECT_THAT(m_informs.events("65536"), ElementsAre(0));
}

TEST_F(NotificationDeliveryTest, DestinationsThatAreGoneAreTold) {
    event(5, true, {"1", "2"});
    logged();
    m_traps.list = RecordingSink({"2"}, true).list;
    const NotificationDelivery::SentAgain sent = m_delivery->sendAgain(1, "");
    EXPECT_THAT(sent.destinations, ElementsAre("2"));
    EXPECT_THAT(sent.missing, ElementsAre("1"));
    m_traps.list = std::make_shared<TrapDestinationMap>();
    EXPECT_EQ(faultOf([&] { m_delivery->sendAgain(1, ""); }), "the destinations of entry 1 are gone: 1, 2");
}

TEST_F(NotificationDeliveryTest, WhatCannotBeSentAgainIsToldWithItsReason) {
    event(5, true);
    logged();
    EXPECT_EQ(faultOf([&] { m_delivery->sendAgain(9, ""); }), "the notification log has no entry 9");
    EXPECT_EQ(faultOf([&] { m_delivery->sendAgain(1, "17"); }), "there is no trap destination 17");
    SqliteDatabase(m_log->path()).execute("UPDATE notifications SET trap = 'x'");
    EXPECT_EQ(faultOf([&] { m_delivery->sendAgain(1, ""); }), "entry 1 of the notification log cannot be read");
}

TEST_F(NotificationDeliveryTest, WithoutALogNothingIsSentAgain) {
    NotificationLog none(m_folder + "/missing/notification_log.db");
    NotificationDelivery delivery(m_loop, {&m_traps}, *m_ledger, none);
    EXPECT_THAT(faultOf([&] { delivery.sendAgain(1, ""); }), HasSubstr("the notification log cannot be read: "));
}

}  // namespace vrx
