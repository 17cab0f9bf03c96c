#include <agent_pp/snmp_pp_ext.h>  // before headers of the agent: see oid_vector.h

#include "platform/notify_msg_handler.h"

#include "host/agent/notifications/notification_pipeline.h"
#include "host/agent/traps/trap_sender.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <atomic>
#include <filesystem>
#include <stdexcept>
#include <thread>

#include "module/vrx_exception.h"
#include "tests/agent/notifications/notification_records.h"
#include "tests/agent/trap_test_tools.h"

namespace vrx {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// Chooses by trap type, gives one binding, and fails in every way that a handler can.
class FakeHandler : public INotifyMsgHandler {
public:
    explicit FakeHandler(unsigned int trapType, const char* trapOid) : m_trapType(trapType), m_oid(trapOid) {}

    int constructAlarmTrapVb(const CTLVRecordV3& record, Agentpp::Vbx*& bindings) override {
        ++built;
        if (throws) throw std::runtime_error("out of luck");
        if (uint64Of(record, alarm_tag::ID) == 666) return 5;
        bindings = new Agentpp::Vbx[1];
        bindings[0].set_oid(Snmp_pp::Oid("1.3.6.1.9.1.0"));
        bindings[0].set_value(Snmp_pp::Gauge32(uint32Of(record, alarm_tag::SERIAL)));
        return 0;
    }
    Agentpp::Oidx& getTrapOid(unsigned long long alarmId) override {
        askedFor.push_back(alarmId);
        return m_oid;
    }
    Agentpp::Oidx& getBaseOid() override { return m_oid; }
    int getTrapVbLen() override { return 1; }
    void filterTrapMap(const std::map<std::string, tTrapDestInfo>& destinations,
                       std::list<tTrapDestInfo>& chosen) override {
        for (const auto& entry : destinations) {
            order.push_back(entry.second.index);
            if (entry.second.trapType == m_trapType) chosen.push_back(entry.second);
        }
    }

    int built = 0;
    bool throws = false;
    std::vector<unsigned long long> askedFor;
    std::vector<std::string> order;  // in which destinations were offered

private:
    unsigned int m_trapType;
    Agentpp::Oidx m_oid;
};

// A sink that keeps what it is given, and settles nothing by itself.
class OtherSink : public NotificationSink {
public:
    struct Submitted {
        NotificationOrigin origin;
        std::size_t considered = 0;
        std::vector<std::string> chosen;
        std::shared_ptr<const Notification> trap;
        Settled settled;
    };

    std::shared_ptr<const TrapDestinationMap> destinations() const override { return list; }
    void submit(const NotificationOrigin& origin, const TrapDestinationMap& considered,
                const std::list<tTrapDestInfo>& chosen, std::shared_ptr<const Notification> trap,
                Settled settled) override {
        Submitted one{origin, considered.size(), {}, std::move(trap), std::move(settled)};
        for (const tTrapDestInfo& info : chosen) one.chosen.push_back(info.index);
        submitted.push_back(std::move(one));
    }
    void startAfter(unsigned long long sequence) override { startedAfter.push_back(sequence); }

    void setDestinations(const std::vector<tTrapDestInfo>& infos) {
        auto map = std::make_shared<TrapDestinationMap>();
        for (const tTrapDestInfo& info : infos) map->emplace(trapDestinationKey(info.index), info);
        list = std::move(map);
    }

    std::shared_ptr<const TrapDestinationMap> list = std::make_shared<TrapDestinationMap>();
    std::vector<Submitted> submitted;
    std::vector<unsigned long long> startedAfter;
};

tTrapDestInfo withType(tTrapDestInfo info, unsigned int trapType) {
    info.trapType = trapType;
    return info;
}

class NotificationPipelineTest : public testing::Test {
protected:
    NotificationPipelineTest() {
        std::string name = (std::filesystem::temp_directory_path() / "path-XXXXXX").string();
        if (::mkdtemp(name.data()) == nullptr) throw std::runtime_error("no temporary folder");
        m_folder = name;
        m_ledger = std::make_unique<EventLedger>(m_folder + "/notifications.db");
        m_log = std::make_unique<NotificationLog>(m_folder + "/notification_log.db");
        m_delivery = std::make_unique<NotificationDelivery>(m_loop, std::vector<NotificationSink*>{&m_sender, &m_other},
                                                            *m_ledger, *m_log);
        m_pipeline = std::make_unique<NotificationPipeline>(m_handlers, m_binding, m_definitions, *m_delivery,
                                                            *m_ledger, [this] { ++m_stale; });
        m_sender.setDestinations({withType(destination("1", 1001), 1), withType(destination("4", 1004), 4)});
    }
    ~NotificationPipelineTest() override {
        m_sender.stop();
        m_pipeline.reset();
        m_delivery.reset();
        m_log.reset();
        m_ledger.reset();
        std::filesystem::remove_all(m_folder);
    }
    // As the source tells it of a store whose last event is `last`.
    void connect(unsigned long long last, const std::vector<unsigned int>& serials, const std::string& store = "") {
        BackendState state;
        state.lastSequence = state.listedUpTo = last;
        state.store = store;
        for (const unsigned int serial : serials) state.alarms.push_back({serial, 5});
        const auto before = m_pipeline->lastHandledEvent();
        state.isAnother =
            before && (before->sequence > last || (before->store != store && !before->store.empty() && !store.empty()));
        m_pipeline->onConnected(state);
    }
    std::optional<unsigned long long> handled() {
        const auto last = m_pipeline->lastHandledEvent();
        if (!last) return std::nullopt;
        return last->sequence;
    }
    void event(unsigned long long sequence, const std::unique_ptr<CTLVRecordV3>& record) {
        m_pipeline->onEvent(alarmEventOf(sequence, *record), *record);
    }
    bool turnUntilDone(unsigned long long sequence) {
        return turnUntil([&] { return m_ledger->lastDone() == sequence; });
    }

    std::string m_folder;
    AgentLoop m_loop;
    FakeTransport m_transport;
    TrapSender m_sender{m_loop, TrapOptions(), m_transport};
    OtherSink m_other;
    std::unique_ptr<EventLedger> m_ledger;
    std::unique_ptr<NotificationLog> m_log;
    std::unique_ptr<NotificationDelivery> m_delivery;
    FakeHandler m_first{1, "1.3.6.1.9.0.1"};
    FakeHandler m_second{4, "1.3.6.1.9.0.4"};
    std::list<INotifyMsgHandler*> m_handlers{&m_first, &m_second};
    TamrelBinding m_binding{{}};
    std::atomic<bool> m_definitionsAway{false};
    AlarmDefinitions m_definitions{[this] {
                                       if (m_definitionsAway) throw std::runtime_error("no file");
                                   },
                                   [] {}, std::chrono::milliseconds(1)};
    int m_stale = 0;
    std::unique_ptr<NotificationPipeline> m_pipeline;
};

}  // namespace

TEST_F(NotificationPipelineTest, EachHandlersTrapGoesToTheDestinationsThatItChose) {
    connect(0, {});
    event(1, alarmRecord(7, 70));
    ASSERT_TRUE(turnUntilDone(1));
    EXPECT_THAT(m_transport.sent[1001], ElementsAre("1.3.6.1.9.0.1"));
    EXPECT_THAT(m_transport.sent[1004], ElementsAre("1.3.6.1.9.0.4"));
    EXPECT_THAT(m_first.askedFor, ElementsAre(7));
}

TEST_F(NotificationPipelineTest, NothingIsBuiltWhenNoDestinationWasChosen) {
    m_sender.setDestinations({});
    connect(0, {});
    event(1, alarmRecord(7, 70));
    EXPECT_EQ(m_first.built, 0);
    EXPECT_THAT(m_first.askedFor, IsEmpty());
    EXPECT_EQ(m_ledger->lastDone(), 1U);
}

TEST_F(NotificationPipelineTest, DestinationsAreOfferedInTheOrderOfTheirNumbers) {
    m_sender.setDestinations({destination("10", 1010), destination("9", 1009), destination("100", 1100)});
    connect(0, {});
    event(1, alarmRecord(7, 70));
    EXPECT_THAT(m_first.order, ElementsAre("9", "10", "100"));
}

TEST_F(NotificationPipelineTest, AnEventIsDoneOnlyWhenItsTrapsAreSent) {
    connect(10, {});
    event(11, alarmRecord(7, 70));
    EXPECT_EQ(m_ledger->lastDone(), 10U);
    EXPECT_EQ(handled(), 11U);  // of this life: it must not come again
    ASSERT_TRUE(turnUntilDone(11));
}

TEST_F(NotificationPipelineTest, ABadRecordIsSkippedCountedAndDone) {
    connect(0, {});
    event(1, emptyRecord());
    event(2, alarmRecord(666, 70));
    event(3, alarmRecord(7, 71));
    ASSERT_TRUE(turnUntilDone(3));
    EXPECT_EQ(m_transport.sent[1001].size(), 1U);
    EXPECT_EQ(m_pipeline->counters().events, 3U);
    EXPECT_EQ(m_pipeline->counters().notBuilt, 4U);  // two handlers each
    const TrapCounters counters = m_sender.status().destinations[0].counters;
    EXPECT_EQ(counters.considered, 6U);
    EXPECT_EQ(counters.dropped[static_cast<std::size_t>(TrapDrop::NotBuilt)], 2U);
    EXPECT_EQ(counters.filtered, 3U);
}

TEST_F(NotificationPipelineTest, AHandlerThatThrowsDoesNotKeepTheOtherFromItsTrap) {
    m_first.throws = true;
    connect(0, {});
    event(1, alarmRecord(7, 70));
    ASSERT_TRUE(turnUntilDone(1));
    EXPECT_THAT(m_transport.sent[1001], IsEmpty());
    EXPECT_EQ(m_transport.sent[1004].size(), 1U);
    EXPECT_EQ(m_pipeline->counters().notBuilt, 1U);
}

TEST_F(NotificationPipelineTest, ATrapOidThatIsNoneIsDroppedWithItsReason) {
    FakeHandler bad(1, "1.3.6.1.9.None");
    m_handlers = {&bad};
    connect(0, {});
    event(1, alarmRecord(7, 70));
    EXPECT_EQ(m_ledger->lastDone(), 1U);
    EXPECT_EQ(m_sender.status().destinations[0].counters.dropped[static_cast<std::size_t>(TrapDrop::BadOid)], 1U);
}

TEST_F(NotificationPipelineTest, AnEventWaitsForTheDefinitionsAndIsToldThen) {
    m_definitionsAway = true;
    connect(0, {});
    std::thread source([this] {
        event(1, alarmRecord(7, 70));
        event(2, alarmRecord(7, 71));
    });
    ASSERT_TRUE(turnUntil([this] { return m_definitions.lastFault().has_value(); }));
    EXPECT_EQ(handled(), 0U) << "a restart now must bring it again";
    EXPECT_EQ(m_first.built, 0);
    {
        const MutexLock held(m_pipeline->handling());  // a reload need not wait for what waits for it
        m_definitionsAway = false;
    }
    source.join();
    ASSERT_TRUE(turnUntilDone(2));
    EXPECT_EQ(m_transport.sent[1001].size(), 2U);
    EXPECT_EQ(m_pipeline->counters().notBuilt, 0U);
}

TEST_F(NotificationPipelineTest, AnEventThatNobodyIsToBeToldOfWaitsForNothing) {
    m_definitionsAway = true;
    m_sender.setDestinations({});
    connect(0, {});
    event(1, alarmRecord(7, 70));
    EXPECT_EQ(m_ledger->lastDone(), 1U);
}

TEST_F(NotificationPipelineTest, TheEndLeavesAnEventThatWaitsForTheNextLife) {
    m_definitionsAway = true;
    connect(0, {});
    std::thread source([this] {
        event(1, alarmRecord(7, 70));
        event(2, alarmRecord(7, 71));
    });
    ASSERT_TRUE(turnUntil([this] { return m_definitions.lastFault().has_value(); }));
    m_pipeline->stop();
    source.join();
    EXPECT_EQ(m_ledger->lastBegun(), 0U);
    m_definitionsAway = false;
    event(3, alarmRecord(7, 72));
    EXPECT_EQ(m_ledger->lastBegun(), 0U) << "it would be taken for told";
}

TEST_F(NotificationPipelineTest, TheFirstContactCountsFromTheStoresLastEvent) {
    EXPECT_EQ(handled(), std::nullopt);
    connect(500, {});
    EXPECT_EQ(handled(), 500U);
    EXPECT_EQ(m_ledger->lastDone(), 500U);
}

TEST_F(NotificationPipelineTest, AReconnectGoesOnAfterTheLastEvent) {
    connect(5, {});
    event(6, alarmRecord(7, 70));
    m_pipeline->onDisconnected();
    EXPECT_EQ(handled(), 6U);
    connect(9, {});
    EXPECT_EQ(handled(), 6U);
}

TEST_F(NotificationPipelineTest, AYoungerStoreIsTakenFromItsFirstEvent) {
    connect(100, {});
    m_pipeline->onDisconnected();
    connect(3, {});
    EXPECT_EQ(handled(), 0U);
    event(1, alarmRecord(7, 70));
    ASSERT_TRUE(turnUntilDone(1));
}

TEST_F(NotificationPipelineTest, TheStoreIsRememberedWithTheNumber) {
    connect(100, {}, "a");
    EXPECT_EQ(m_pipeline->lastHandledEvent()->store, "a");
    m_pipeline->onDisconnected();
    connect(200, {}, "b");
    EXPECT_EQ(m_pipeline->lastHandledEvent()->sequence, 0U);
    EXPECT_EQ(m_pipeline->lastHandledEvent()->store, "b");
    EXPECT_THAT(m_other.startedAfter, ElementsAre(100, 0));
}

TEST_F(NotificationPipelineTest, AStoreThatTellsItsIdentityLaterIsTheSame) {
    connect(100, {});
    m_pipeline->onDisconnected();
    connect(100, {}, "a");
    EXPECT_EQ(m_pipeline->lastHandledEvent()->sequence, 100U);
    EXPECT_EQ(m_pipeline->lastHandledEvent()->store, "a");
    m_pipeline->onDisconnected();
    connect(100, {});  // a backend that does not tell is no other store
    EXPECT_EQ(m_pipeline->lastHandledEvent()->store, "a");
}

TEST_F(NotificationPipelineTest, WhatWasReadBeforeIsStaleOnceAnEventCame) {
    connect(0, {});
    EXPECT_EQ(m_stale, 1);
    event(1, alarmRecord(7, 70));
    EXPECT_EQ(m_stale, 2);
    m_pipeline->onDisconnected();
    EXPECT_EQ(m_stale, 3);
}

TEST_F(NotificationPipelineTest, HandlersChooseOnceAmongTheDestinationsOfAllSinks) {
    m_other.setDestinations({withType(destination("70001", 2001), 1), withType(destination("70004", 2004), 4)});
    connect(0, {});
    event(1, alarmRecord(7, 70));
    EXPECT_THAT(m_first.order, ElementsAre("1", "4", "70001", "70004"));
    EXPECT_EQ(m_first.built, 1);
    ASSERT_EQ(m_other.submitted.size(), 2U);
    EXPECT_THAT(m_other.submitted[0].chosen, testing::Contains("70001"));
    EXPECT_THAT(m_other.submitted[0].chosen, testing::Not(testing::Contains("70004")));
    EXPECT_EQ(m_other.submitted[0].considered, 2U);  // its own
    EXPECT_EQ(oidText(m_other.submitted[0].trap->oid), "1.3.6.1.9.0.1");
    EXPECT_EQ(oidText(m_other.submitted[1].trap->oid), "1.3.6.1.9.0.4");
    ASSERT_TRUE(turnUntil([&] { return m_transport.sent[1004].size() == 1; }));
    EXPECT_THAT(m_transport.sent[1001], ElementsAre("1.3.6.1.9.0.1"));
    EXPECT_EQ(m_sender.status().destinations[0].counters.considered, 2U);
    EXPECT_EQ(m_sender.status().destinations[0].counters.filtered, 1U);
}

TEST_F(NotificationPipelineTest, ListsThatChangeAreSeenByTheNextEvent) {
    connect(0, {});
    m_other.setDestinations({destination("70001", 2001)});
    event(1, alarmRecord(7, 70));
    m_sender.setDestinations({destination("2", 1002)});
    event(2, alarmRecord(7, 71));
    m_other.setDestinations({destination("70002", 2002)});
    event(3, alarmRecord(7, 72));
    m_other.setDestinations({});
    event(4, alarmRecord(7, 73));
    EXPECT_THAT(m_first.order, ElementsAre("1", "4", "70001", "2", "70001", "2", "70002", "2"));
    EXPECT_EQ(m_other.submitted.size(), 6U);
}

TEST_F(NotificationPipelineTest, AnEventIsDoneWhenEverySinkHasSettledIt) {
    m_other.setDestinations({destination("70001", 2001)});
    connect(10, {});
    event(11, alarmRecord(7, 70));
    ASSERT_TRUE(turnUntil([&] { return m_transport.sent[1004].size() == 1; }));
    EXPECT_EQ(m_ledger->lastDone(), 10U);
    m_other.submitted[0].settled();
    EXPECT_EQ(m_ledger->lastDone(), 10U);
    m_other.submitted[1].settled();
    EXPECT_EQ(m_ledger->lastDone(), 11U);
}

TEST_F(NotificationPipelineTest, ATrapKnowsItsEventAndItsHandlersPlace) {
    m_other.setDestinations({destination("70001", 2001)});
    connect(10, {});
    event(11, alarmRecord(7, 70));
    event(12, alarmRecord(7, 71));
    std::vector<std::pair<unsigned long long, unsigned int>> origins;
    for (const auto& one : m_other.submitted) origins.emplace_back(one.origin.sequence, one.origin.handler);
    using Pair = std::pair<unsigned long long, unsigned int>;
    EXPECT_THAT(origins, ElementsAre(Pair(11, 0), Pair(11, 1), Pair(12, 0), Pair(12, 1)));
}

TEST_F(NotificationPipelineTest, SinksLearnThatEventsAreNumberedAnew) {
    connect(500, {});
    connect(600, {});
    connect(3, {});
    EXPECT_THAT(m_other.startedAfter, ElementsAre(500, 0));
}

}  // namespace vrx
