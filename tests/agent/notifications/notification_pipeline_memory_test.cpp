// Alarm events without memory at any one place: each trap is handed to each sink once, in order, and logged once.
#include <agent_pp/snmp_pp_ext.h>  // before headers of the agent: see oid_vector.h

#include "platform/notify_msg_handler.h"

#include "host/agent/notifications/notification_pipeline.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <new>
#include <stdexcept>

#include "tests/agent/notifications/notification_records.h"
#include "tests/agent/trap_test_tools.h"
#include "tests/failing_memory.h"

namespace vrx {

namespace {

using std::chrono::seconds;
using testing::ElementsAre;

// Of all destinations.
class FakeHandler : public INotifyMsgHandler {
public:
    int constructAlarmTrapVb(const CTLVRecordV3& record, Agentpp::Vbx*& bindings) override {
        bindings = new Agentpp::Vbx[1];
        bindings[0].set_oid(Snmp_pp::Oid("1.3.6.1.9.1.0"));
        bindings[0].set_value(Snmp_pp::Gauge32(uint32Of(record, alarm_tag::SERIAL)));
        return 0;
    }
    Agentpp::Oidx& getTrapOid(unsigned long long) override { return m_oid; }
    Agentpp::Oidx& getBaseOid() override { return m_oid; }
    int getTrapVbLen() override { return 1; }
    void filterTrapMap(const std::map<std::string, tTrapDestInfo>& destinations,
                       std::list<tTrapDestInfo>& chosen) override {
        for (const auto& entry : destinations) chosen.push_back(entry.second);
    }

private:
    Agentpp::Oidx m_oid{"1.3.6.1.9.0.1"};
};

class KeepingSink : public NotificationSink {
public:
    KeepingSink(const std::string& number, bool late) : m_late(late) {
        m_list->emplace(trapDestinationKey(number), destination(number, 162));
    }
    std::shared_ptr<const TrapDestinationMap> destinations() const override { return m_list; }
    void submit(const NotificationOrigin& origin, const TrapDestinationMap&, const std::list<tTrapDestInfo>& chosen,
                std::shared_ptr<const Notification> trap, Settled settled) override {
        if (trap == nullptr || chosen.empty()) throw std::runtime_error("nothing to send");
        traps.push_back({origin.sequence, origin.handler});
        settled();
    }
    bool takesLate() const override { return m_late; }

    struct Trap {
        unsigned long long event;
        unsigned int handler;
        bool operator==(const Trap& other) const { return event == other.event && handler == other.handler; }
    };
    std::vector<unsigned long long> eventsOf(unsigned int handler) const {
        std::vector<unsigned long long> events;
        for (const Trap& trap : traps) {
            if (trap.handler == handler) events.push_back(trap.event);
        }
        return events;
    }
    std::vector<Trap> traps;

private:
    const std::shared_ptr<TrapDestinationMap> m_list = std::make_shared<TrapDestinationMap>();
    const bool m_late;
};

class NotificationPipelineMemoryTest : public testing::Test {
protected:
    NotificationPipelineMemoryTest() {
        std::string name = (std::filesystem::temp_directory_path() / "path-XXXXXX").string();
        if (::mkdtemp(name.data()) == nullptr) throw std::runtime_error("no temporary folder");
        m_folder = name;
        m_ledger = std::make_unique<EventLedger>(m_folder + "/notifications.db");
        m_log = std::make_unique<NotificationLog>(m_folder + "/notification_log.db");
        m_delivery = std::make_unique<NotificationDelivery>(
            m_loop, std::vector<NotificationSink*>{&m_traps, &m_informs}, *m_ledger, *m_log);
        m_pipeline =
            std::make_unique<NotificationPipeline>(m_handlers, m_binding, m_definitions, *m_delivery, *m_ledger, [] {});
        BackendState state;
        m_pipeline->onConnected(state);
    }
    ~NotificationPipelineMemoryTest() override {
        m_pipeline.reset();
        m_delivery.reset();
        m_log.reset();
        m_ledger.reset();
        std::filesystem::remove_all(m_folder);
    }

    // The next event, with the n-th allocation failing. Whether there was one.
    bool eventFails(unsigned int n, unsigned int serial, bool raised = true) {
        const auto record = alarmRecord(7, serial, raised ? 0 : 2000);
        const AlarmEvent event = alarmEventOf(++m_sequence, *record);
        failing_memory::failAt(n);
        m_pipeline->onEvent(event, *record);
        const bool failed = !failing_memory::isFailureToCome();
        failing_memory::failAt(0);
        return failed;
    }
    std::vector<unsigned long long> loggedEvents() {
        m_log->flush();
        std::vector<unsigned long long> events;
        NotificationLogReader(m_log->path()).list({}, [&](const LoggedNotification& one) {
            events.push_back(one.sequence);
        });
        std::sort(events.begin(), events.end());
        return events;
    }

    std::string m_folder;
    AgentLoop m_loop;
    KeepingSink m_traps{"1", true};
    KeepingSink m_informs{"65536", false};
    std::unique_ptr<EventLedger> m_ledger;
    std::unique_ptr<NotificationLog> m_log;
    std::unique_ptr<NotificationDelivery> m_delivery;
    FakeHandler m_first;
    FakeHandler m_second;
    std::list<INotifyMsgHandler*> m_handlers{&m_first, &m_second};
    TamrelBinding m_binding{{}};
    AlarmDefinitions m_definitions{[] {}, [] {}, std::chrono::milliseconds(1)};
    std::unique_ptr<NotificationPipeline> m_pipeline;
    unsigned long long m_sequence = 0;
};

}  // namespace

TEST_F(NotificationPipelineMemoryTest, EachTrapIsHandedOnAndLoggedOnce) {
    bool failed = true;
    for (unsigned int n = 1; failed; ++n) failed = eventFails(n, n);
    EXPECT_GT(m_sequence, 20U) << "allocations fail";
    std::vector<KeepingSink::Trap> all;
    std::vector<unsigned long long> logged;
    for (unsigned long long event = 1; event <= m_sequence; ++event) {
        all.push_back({event, 0});
        all.push_back({event, 1});
        logged.insert(logged.end(), 2, event);
    }
    EXPECT_TRUE(m_traps.traps == all);
    EXPECT_TRUE(m_informs.traps == all);
    EXPECT_EQ(loggedEvents(), logged);
    EXPECT_EQ(m_ledger->lastDone(), m_sequence);
    EXPECT_EQ(m_pipeline->counters().events, m_sequence);
    EXPECT_EQ(m_pipeline->counters().notBuilt, 0U);
    EXPECT_EQ(m_pipeline->counters().badRecords, 0U);
}

TEST_F(NotificationPipelineMemoryTest, OfAnAlarmThatFlapsEachTrapIsSentOrHeldOrSupersededOnce) {
    m_delivery->setLimits({3, seconds(3600), seconds(3600)});
    const std::string key = trapDestinationKey("1");
    bool failed = true;
    for (unsigned int n = 1; failed; ++n) {
        // The end of the second raise is held; each raise after it, with its own end, is superseded.
        for (unsigned int step = 0; step < 4; ++step) {
            failed =
                eventFails(n, static_cast<unsigned int>(m_sequence / 2) + 1, step % 2 == 0) || (step > 0 && failed);
        }
        const auto paced = m_delivery->paced();
        const auto one = paced.find(key);
        ASSERT_NE(one, paced.end());
        ASSERT_EQ(m_traps.traps.size() + one->second.held + one->second.suppressed, 2 * m_sequence) << n;
    }
    EXPECT_GT(m_sequence, 80U) << "allocations fail";
    EXPECT_EQ(m_informs.traps.size(), 2 * m_sequence) << "nothing is held for those that take nothing late";
    for (unsigned int n = 1; m_delivery->paced()[key].held > 0 && n < 100; ++n) {
        failing_memory::failAt(n);
        try {
            m_delivery->setLimits({});
        } catch (const std::bad_alloc&) {
        }
        failing_memory::failAt(0);
    }
    ASSERT_TRUE(turnUntil([&] { return m_ledger->lastDone() == m_sequence; }));
    for (const unsigned int handler : {0U, 1U}) EXPECT_THAT(m_traps.eventsOf(handler), ElementsAre(1, 2, 3, 4));
    EXPECT_EQ(m_pipeline->counters().notBuilt, 0U);
    EXPECT_EQ(loggedEvents().size(), 2 * m_sequence + 2) << "each to the informs' sink, and what was held";
}

}  // namespace vrx
