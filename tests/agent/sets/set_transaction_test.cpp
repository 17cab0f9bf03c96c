#include "host/agent/sets/set_transaction.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <condition_variable>
#include <future>
#include <list>
#include <map>
#include <mutex>
#include <thread>

#include "handlers/snmp_tamrel_trap_addr_handler.h"
#include "host/agent/tamrel/destination_rules.h"
#include "host/destinations/trap_api.h"
#include "host/snmp/net_snmp.h"
#include "platform/snmp_trap_api.h"
#include "tests/agent/mib_samples.h"
#include "tests/base/temporary_root.h"

namespace vrx {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

enum : unsigned short { PORT = 2, ADDRESS = 6 };

// The scalar that clears an alarm; can be held up in its call.
class ClearHandler : public CSnmpLeafHandler {
public:
    int OnSetLeaf(const CVRX_SnmpContext&, const CR8KPackageV3& request, CR8KPackageV3&) override {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_cleared.push_back((*request[0])[0].toString());
        m_changed.notify_all();
        m_changed.wait(lock, [this] { return !m_held; });
        return m_result;
    }

    void hold() {
        set([this] { m_held = true; });
    }
    void release() {
        set([this] { m_held = false; });
    }
    void failWith(int result) {
        set([&] { m_result = result; });
    }
    void waitForCall() {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_changed.wait(lock, [this] { return !m_cleared.empty(); });
    }
    std::vector<std::string> cleared() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_cleared;
    }

private:
    template <typename Action>
    void set(Action action) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        action();
        m_changed.notify_all();
    }

    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::vector<std::string> m_cleared;
    bool m_held = false;
    int m_result = 0;
};

class SetTransactionTest : public testing::Test {
protected:
    SetTransactionTest() : model(MibModel::load(TAMREL_MIB_FILE)) {
        registerDestinationRules();
        for (unsigned int port = 1; port <= 2; ++port) {
            tTrapDestInfo made;
            made.address = "192.0.2.1";
            made.port = port;
            EXPECT_EQ(CSNMP_TrapApi::createTrapAddr(made), 0);
        }
    }
    ~SetTransactionTest() override {
        clear.release();
        for (ManagedObject* object : {&table, &scalar}) object->worker().requestStop();
        for (ManagedObject* object : {&table, &scalar}) {
            EXPECT_TRUE(object->worker().waitStopped(std::chrono::steady_clock::now() + std::chrono::minutes(1)));
        }
        closeTrapDestinations();
    }

    static SetCell number(unsigned short tag, int variable, unsigned int value) {
        return {tag, variable, std::shared_ptr<const CTLVCell>(numberCell(tag, value, CTLVCell::TLV_TYPE_UINT, 4))};
    }
    static SetCell text(unsigned short tag, int variable, const char* value) {
        return {tag, variable, std::shared_ptr<const CTLVCell>(textCell(tag, value))};
    }
    static SetRow port(std::uint32_t row, int variable, unsigned int value) {
        return {row, {number(PORT, variable, value)}, 0, 0};
    }
    SetStep rows(std::vector<SetRow> rows) { return {&table, std::move(rows)}; }
    SetStep clearing(int variable, unsigned int serial) {
        return {&scalar, {{0, {number(0, variable, serial)}, 0, 0}}};
    }

    // Enters the SET; its end is in `results`.
    std::shared_ptr<SetTransaction> enter(std::uint64_t id, std::vector<SetStep> steps) {
        auto set = std::make_shared<SetTransaction>(std::move(steps), [this, id](const SetResult& result) {
            results[id] = result;
            queue.ended(id);
            loop.stop();
        });
        queue.add(id, set);
        return set;
    }
    SetResult resultOf(std::uint64_t id) {
        while (results.count(id) == 0) loop.run();
        return results[id];
    }
    SetResult apply(std::vector<SetStep> steps) {
        results.erase(0);
        enter(0, std::move(steps));
        return resultOf(0);
    }

    static std::vector<std::string> stored() {
        std::list<tTrapDestInfo> all;
        EXPECT_EQ(CSNMP_TrapApi::getAllTrapAddr(all), 0);
        std::vector<std::string> texts;
        for (const tTrapDestInfo& row : all)
            texts.push_back(row.index + " " + row.address + ":" + std::to_string(row.port));
        return texts;
    }
    const std::vector<std::string> BEFORE = {"1 192.0.2.1:1", "2 192.0.2.1:2"};

    TemporaryRoot root;
    const MibModel model;
    CTamrelTrapAddrHandler destinations;
    ClearHandler clear;
    AgentLoop loop;
    ManagedObject table{*model.find(parseOid("1.3.6.1.4.1.99871.2.91.10.4.1")), destinations, loop, {}};
    ManagedObject scalar{*model.find(parseOid("1.3.6.1.4.1.99871.2.91.10.1.2")), clear, loop, {}};
    SetQueue queue{loop};
    std::map<std::uint64_t, SetResult> results;
};

TEST_F(SetTransactionTest, RowsAreDeletedThenModifiedThenCreated) {
    const SetRow made{3, {text(ADDRESS, 1, "192.0.2.1"), number(PORT, 2, 2)}, RS_CREATEANDGO, 3};
    EXPECT_TRUE(apply({rows({made, port(2, 4, 1), {1, {}, RS_DESTROY, 5}})}).ok());  // each takes what the next leaves
    EXPECT_THAT(stored(), ElementsAre("2 192.0.2.1:1", "3 192.0.2.1:2"));
}

TEST_F(SetTransactionTest, RowsOfASetWithARefusedOneAreAsBefore) {
    const SetResult result = apply({rows({{1, {}, RS_DESTROY, 1}, port(2, 2, 0)})});
    EXPECT_EQ(result.error, SNMP_ERR_WRONGVALUE);
    EXPECT_EQ(result.variable, 2);
    EXPECT_EQ(stored(), BEFORE);
    const SetRow taken{3, {text(ADDRESS, 3, "192.0.2.1"), number(PORT, 4, 7)}, RS_CREATEANDGO, 5};
    const SetResult late = apply({rows({port(1, 1, 7), taken})});  // the store refuses the second change
    EXPECT_EQ(late.error, SNMP_ERR_INCONSISTENTVALUE);
    EXPECT_EQ(late.variable, 5);
    EXPECT_EQ(stored(), BEFORE);
}

TEST_F(SetTransactionTest, AClearIsAskedForOnceAllRowsAreGood) {
    EXPECT_FALSE(apply({rows({port(1, 1, 0)}), clearing(2, 42)}).ok());
    EXPECT_FALSE(apply({rows({port(1, 1, 2)}), clearing(2, 42)}).ok());
    EXPECT_THAT(clear.cleared(), IsEmpty());
    EXPECT_TRUE(apply({rows({port(1, 1, 3)}), clearing(2, 42)}).ok());
    EXPECT_THAT(clear.cleared(), ElementsAre("42"));
    EXPECT_THAT(stored(), ElementsAre("1 192.0.2.1:3", "2 192.0.2.1:2"));
}

TEST_F(SetTransactionTest, ARefusedClearLeavesTheRowsAndIsTheVariableAtFault) {
    clear.failWith(0x5000006);
    const SetResult result = apply({rows({port(1, 1, 3), {2, {}, RS_DESTROY, 2}}), clearing(3, 42)});
    EXPECT_EQ(result.error, SNMP_ERR_GENERR);
    EXPECT_EQ(result.variable, 3);
    EXPECT_EQ(stored(), BEFORE);
}

TEST_F(SetTransactionTest, AClearWithoutAnAnswerSaysThatItMayBeDone) {
    clear.failWith(0x5000101);
    const SetResult result = apply({clearing(1, 42)});
    EXPECT_EQ(result.error, SNMP_ERR_RESOURCEUNAVAILABLE);
    EXPECT_THAT(result.reason, HasSubstr("whether the backend has carried it out is not known"));
    clear.failWith(0x5000006);
    EXPECT_EQ(apply({clearing(1, 42)}).reason.find("not known"), std::string::npos);
}

TEST_F(SetTransactionTest, NobodySeesItWhileTheClearIsUnderWay) {
    clear.hold();
    enter(1, {rows({port(1, 1, 3)}), clearing(2, 42)});
    std::thread other([this] {
        clear.waitForCall();
        EXPECT_EQ(stored(), BEFORE);
        std::promise<void> seen;
        table.worker().submit([&] {  // the thread that has made the changes, which reads for managers, too
            EXPECT_EQ(stored(), BEFORE);
            seen.set_value();
        });
        seen.get_future().wait();
        clear.release();
    });
    EXPECT_TRUE(resultOf(1).ok());
    other.join();
    EXPECT_THAT(stored(), ElementsAre("1 192.0.2.1:3", "2 192.0.2.1:2"));
}

TEST_F(SetTransactionTest, ThoseThatTouchTheSameObjectComeInTheirOrder) {
    clear.hold();
    enter(1, {rows({port(1, 1, 3)}), clearing(2, 42)});
    enter(2, {rows({port(2, 1, 4)})});
    enter(3, {clearing(1, 43)});
    clear.failWith(0x5000006);
    std::thread release([this] {
        clear.waitForCall();
        EXPECT_EQ(stored(), BEFORE);
        clear.release();
    });
    EXPECT_FALSE(resultOf(1).ok());
    release.join();
    EXPECT_TRUE(resultOf(2).ok());
    EXPECT_FALSE(resultOf(3).ok());
    EXPECT_THAT(clear.cleared(), ElementsAre("42", "43"));
    EXPECT_THAT(stored(), ElementsAre("1 192.0.2.1:1", "2 192.0.2.1:4"));
}

TEST_F(SetTransactionTest, OneThatIsCancelledBeforeItsTurnNeverHappens) {
    clear.hold();
    enter(1, {rows({port(1, 1, 3)}), clearing(2, 42)});
    const auto late = enter(2, {rows({port(1, 1, 4)})});
    EXPECT_TRUE(late->cancel());
    queue.withdraw(2);
    clear.release();
    EXPECT_TRUE(resultOf(1).ok());
    EXPECT_TRUE(apply({rows({port(2, 1, 5)})}).ok());  // after it
    EXPECT_EQ(results.count(2), 0U);
    EXPECT_THAT(stored(), ElementsAre("1 192.0.2.1:3", "2 192.0.2.1:5"));
}

TEST_F(SetTransactionTest, OneThatIsCancelledBeforeItsClearGivesItsRowsUp) {
    std::mutex gate;
    gate.lock();
    scalar.worker().submit([&gate] { const std::lock_guard<std::mutex> wait(gate); });
    const auto set = enter(1, {rows({port(1, 1, 3)}), clearing(2, 42)});
    const auto next = enter(2, {rows({port(1, 1, 4)})});
    EXPECT_TRUE(set->cancel());
    queue.withdraw(1);
    gate.unlock();
    EXPECT_FALSE(resultOf(1).ok());
    EXPECT_TRUE(resultOf(2).ok());
    EXPECT_THAT(clear.cleared(), IsEmpty());
    EXPECT_THAT(stored(), ElementsAre("1 192.0.2.1:4", "2 192.0.2.1:2"));
}

TEST_F(SetTransactionTest, OneWhoseClearHasBegunCannotBeCancelled) {
    clear.hold();
    const auto set = enter(1, {rows({port(1, 1, 3)}), clearing(2, 42)});
    std::thread cancels([&] {
        clear.waitForCall();
        EXPECT_FALSE(set->cancel());
        clear.release();
    });
    EXPECT_TRUE(resultOf(1).ok());
    cancels.join();
    EXPECT_THAT(stored(), ElementsAre("1 192.0.2.1:3", "2 192.0.2.1:2"));
}

// Parsing

struct FreePdu {
    void operator()(netsnmp_pdu* pdu) const { snmp_free_pdu(pdu); }
};

TEST(SetRequest, TwoObjectsThatCannotBeTakenBackAreNotSetAsOne) {
    const MibModel model = loadMib(sampleMib());
    ClearHandler handler;
    AgentLoop loop;
    ManagedObject table(*model.find(SAMPLE_TABLE), handler, loop, {});
    ManagedObject scalar(*model.find(SAMPLE_SCALAR), handler, loop, {});
    const std::unique_ptr<netsnmp_pdu, FreePdu> pdu(snmp_pdu_create(SNMP_MSG_SET));
    pdu->flags |= UCD_MSG_FLAG_ALWAYS_IN_VIEW;
    const auto add = [&pdu](const char* name) {
        const OidVector oids = parseOid(name);
        const unsigned long five = 5;
        snmp_pdu_add_variable(pdu.get(), oids.data(), oids.size(), ASN_GAUGE, &five, sizeof five);
    };
    const ObjectFinder finder = [&](const netsnmp_variable_list& variable) {
        return isBelow(variable.name, variable.name_length, SAMPLE_TABLE) ? &table : &scalar;
    };
    std::vector<SetStep> steps;
    add("1.3.6.1.4.1.99871.2.7.1.1.2.1");
    EXPECT_TRUE(parseSet(pdu.get(), finder, steps).ok());
    steps.clear();
    add("1.3.6.1.4.1.99871.2.7.2.0");
    const SetResult result = parseSet(pdu.get(), finder, steps);
    EXPECT_EQ(result.error, SNMP_ERR_GENERR);
    EXPECT_EQ(result.variable, 2);
    EXPECT_EQ(result.reason, "it cannot be set together with sampleTable");
}

}  // namespace

}  // namespace vrx
