// What happens when memory runs out: every allocation of a load, and of reading an object, fails once; and what is
// given back when it does not. In a program of its own, because it replaces the global operator new.
#include <gtest/gtest.h>

#include <algorithm>
#include <initializer_list>
#include <iterator>
#include <list>
#include <map>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "alarm/snmp_alarm_iniparser.h"
#include "alarm/snmp_alarm_repository.h"
#include "handlers/snmp_topo_handler.h"
#include "module/snmp_handler.h"
#include "module/snmp_tamrel_svc_module.h"
#include "notify/snmp_tamrel_notify_handler.h"
#include "platform/snmp_table_base.h"
#include "tests/failing_memory.h"
#include "tests/fake_host/fake_host.h"
#include "tests/module/host_setup.h"

using failing_memory::failAt;
using failing_memory::failEachAllocation;
using failing_memory::isFailureToCome;
using failing_memory::liveBlock;
using failing_memory::liveBlocks;
using failing_memory::startTracking;
using failing_memory::stopTracking;

namespace {

TEST(AllocationFailure, CreatorPassesItOnAndLosesNothing) {
    { FakeHost once; }  // allocations of a process's first host
    std::size_t registered = 0;
    unsigned int keptTheFirst = 0;
    const unsigned int failures = failEachAllocation(
        [&registered](unsigned int n) {
            FakeHost host;
            std::unique_ptr<CSNMP_Svc_Module> module;
            bool failed = false;
            failAt(n);
            try {
                module.reset(SNMP_SvcModuleCreator());
            } catch (const std::bad_alloc&) {
                failed = true;
            }
            failAt(0);
            registered = host.dispatcher().handlers().size();
            return failed;
        },
        [&registered, &keptTheFirst](unsigned int n, bool failed) {
            EXPECT_EQ(liveBlocks(), 0u) << "blocks lost when allocation " << n << " failed";
            if (failed) {
                EXPECT_LT(registered, 2u) << n;
                if (registered == 1) ++keptTheFirst;
            } else {
                EXPECT_EQ(registered, 2u);
            }
        });
    EXPECT_GE(failures, 5u);      // the module, two handlers, two list entries
    EXPECT_GE(keptTheFirst, 2u);  // it is listed before the second is made: the second, its list entry
}

TEST(AllocationFailure, ListOfHandlersKeepsTheRowsAppendedBefore) {
    { FakeHost once; }
    std::vector<std::string> oids;
    unsigned int unlisted = 0;
    const unsigned int failures = failEachAllocation(
        [&oids](unsigned int n) {
            stopTracking();
            oids.clear();
            oids.reserve(4);
            startTracking();
            FakeHost host;
            CSNMP_Tamrel_Mib_Module module;
            SNMP_HANDLER_LIST handlers;
            bool failed = false;
            failAt(n);
            try {
                module.getSvcHandler(handlers);
            } catch (const std::bad_alloc&) {
                failed = true;
            }
            failAt(0);
            stopTracking();
            for (const auto& row : handlers) {
                oids.push_back(row.first);
                delete row.second;
            }
            return failed;
        },
        [&oids, &unlisted](unsigned int n, bool failed) {
            const std::vector<std::string> all = {"1.3.6.1.4.1.99871.2.91.9.1", "1.3.6.1.4.1.99871.2.91.10.1.1",
                                                  "1.3.6.1.4.1.99871.2.91.10.1.2", "1.3.6.1.4.1.99871.2.91.10.4.1"};
            ASSERT_LE(oids.size(), all.size());
            EXPECT_TRUE(std::equal(oids.begin(), oids.end(), all.begin())) << n;
            EXPECT_EQ(oids.size() < all.size(), failed) << n;
            if (liveBlocks() == 0) return;
            // The handler of the failing row is left alone when the list has no room for it; nothing else is lost.
            ++unlisted;
            EXPECT_TRUE(failed);
            delete static_cast<CSnmpHandler*>(liveBlock(0));
            EXPECT_EQ(liveBlocks(), 0u) << n;
        });
    EXPECT_GE(failures, 8u);  // four handlers, four list entries
    EXPECT_EQ(unlisted, 4u);  // one for each row
}

TEST(AllocationFailure, ChosenDestinationsBeforeTheFailureStay) {
    const std::vector<std::string> keys = {"a", "b", "c"};
    std::map<std::string, tTrapDestInfo> destinations;
    for (const std::string& key : keys) {
        destinations[key].index = key;
        destinations[key].user = "a name that is longer than what a text keeps inside itself";
    }
    CTamrelNotifyMsgHandler fixed;
    CTamrelOIDBasedMsgHandler oidBased;
    for (INotifyMsgHandler* handler : std::initializer_list<INotifyMsgHandler*>{&fixed, &oidBased}) {
        std::vector<std::string> chosenKeys;
        const unsigned int failures = failEachAllocation(
            [&](unsigned int n) {
                std::list<tTrapDestInfo> chosen;
                bool failed = false;
                failAt(n);
                try {
                    handler->filterTrapMap(destinations, chosen);
                } catch (const std::bad_alloc&) {
                    failed = true;
                }
                failAt(0);
                stopTracking();
                chosenKeys.clear();
                for (const tTrapDestInfo& destination : chosen) chosenKeys.push_back(destination.index);
                return failed;
            },
            [&](unsigned int n, bool failed) {
                EXPECT_EQ(liveBlocks(), 0u) << n;
                ASSERT_LE(chosenKeys.size(), keys.size());
                EXPECT_TRUE(std::equal(chosenKeys.begin(), chosenKeys.end(), keys.begin())) << n;
                EXPECT_EQ(chosenKeys.size() < keys.size(), failed) << n;
            });
        EXPECT_GE(failures, 6u);  // three entries, three users
    }
}

TEST(AllocationFailure, BindingsBeforeTheFailureAreFilledInTheirOrder) {
    const std::size_t order[] = {1, 2, 3, 4, 6, 7, 8, 9, 10, 11, 5, 12, 13, 14, 15};
    const TlvRecord notification =
        recordOf(7, u64(1, 70), u32(2, 5), u32(3, 42), u64(4, 1767323045), u64(5, 0), u64(6, 0), text(8, "7,8"));
    CTamrelNotifyMsgHandler handler;
    {
        FakeHost once;  // its definitions stay loaded
        giveAlarmFiles(once, "<param eventID='70' name='n' suggestion='##00' detail='##00 ##01' location='##01'/>");
        Agentpp::Vbx* array = nullptr;
        EXPECT_EQ(handler.constructAlarmTrapVb(*makeRecord(notification), array), 0);
        delete[] array;
    }
    std::size_t filled = 0;
    std::size_t mostOfAFailure = 0;
    const unsigned int failures = failEachAllocation(
        [&](unsigned int n) {
            FakeHost host;
            const std::unique_ptr<CTLVRecordV3> record = makeRecord(notification);
            Agentpp::Vbx* array = nullptr;
            bool thrown = false;
            failAt(n);
            try {
                EXPECT_EQ(handler.constructAlarmTrapVb(*record, array), 0);
            } catch (const std::bad_alloc&) {
                thrown = true;
            }
            const bool failed = !isFailureToCome();  // a log line without memory is not thrown
            failAt(0);
            const std::unique_ptr<Agentpp::Vbx[]> bindings(array);
            filled = 0;
            const auto isFilled = [&bindings](std::size_t number) {
                return bindings[number - 1].get_syntax() != sNMP_SYNTAX_NULL;
            };
            if (bindings) {
                const auto* const gap = std::find_if_not(std::begin(order), std::end(order), isFilled);
                EXPECT_TRUE(std::none_of(gap, std::end(order), isFilled)) << n;
                filled = static_cast<std::size_t>(gap - std::begin(order));
            }
            if (thrown) {
                mostOfAFailure = std::max(mostOfAFailure, filled);
            } else {
                EXPECT_EQ(filled, std::size(order)) << n;
            }
            return failed;
        },
        [](unsigned int n, bool) { EXPECT_EQ(liveBlocks(), 0u) << "blocks lost when allocation " << n << " failed"; });
    CAlarmConfigParser::destroy();
    EXPECT_GE(failures, 16u);  // the array and what is in it
    EXPECT_GE(mostOfAFailure, 14u);
}

TEST(AllocationFailure, AddedSerialNumberIsThereWholeOrNotAtAll) {
    struct OpenRepository : CAlarmRepository_Singleton {
        using CAlarmRepository_Singleton::m_oMutex;
    };
    CAlarmRepository_Singleton* repository = nullptr;
    {
        FakeHost once;
        repository = CAlarmRepository_Singleton::getAlarmRepository();
    }
    unsigned int size = 0;
    const unsigned int failures = failEachAllocation(
        [&](unsigned int n) {
            FakeHost host;
            bool failed = false;
            failAt(n);
            try {
                EXPECT_EQ(repository->addAlarm(7), 0);
            } catch (const std::bad_alloc&) {
                failed = true;
            }
            failAt(0);
            EXPECT_EQ(OpenRepository::m_oMutex.tryacquire(), 0) << n;
            OpenRepository::m_oMutex.release();
            size = repository->getAlarmRepositorySize();
            repository->clearAllAlarmItems();
            return failed;
        },
        [&size](unsigned int n, bool failed) {
            EXPECT_EQ(liveBlocks(), 0u) << n;
            EXPECT_EQ(size, failed ? 0u : 1u) << n;
        });
    EXPECT_GE(failures, 1u);
}

// Reads an object through `query` with each of its allocations failing: the response holds nothing before the whole
// record is done, and what was made before is given back.
template <typename Query>
void expectWholeRecordOrNone(Query query) {
    {
        FakeHost once;
        CR8KPackageV3 rsp;
        EXPECT_EQ(query(rsp), 0);  // makes what a process makes once: the registry of loggers and its lock
    }
    std::size_t records = 0;
    const unsigned int failures = failEachAllocation(
        [&records, &query](unsigned int n) {
            FakeHost host;
            CR8KPackageV3 rsp;
            bool failed = false;
            failAt(n);
            try {
                EXPECT_EQ(query(rsp), 0);
            } catch (const std::bad_alloc&) {
                failed = true;
            }
            failAt(0);
            records = rsp.records().size();
            return failed;
        },
        [&records](unsigned int n, bool failed) {
            EXPECT_EQ(liveBlocks(), 0u) << "blocks lost when allocation " << n << " failed";
            EXPECT_EQ(records, failed ? 0u : 1u) << n;
        });
    EXPECT_GE(failures, 3u);  // cell, record, list entry
}

class NumberLeaf : public CSnmpLeafHandler {
public:
    int queryLeaf(const CVRX_SnmpContext&, CTLVCell*& cell) override {
        cell = new CTLVCell();
        cell->set(7, "a text that is longer than what a cell keeps inside itself");
        return 0;
    }
};

TEST(AllocationFailure, LeafQueryAppendsItsRecordWholeOrNotAtAll) {
    expectWholeRecordOrNone(
        [](CR8KPackageV3& rsp) { return NumberLeaf().OnQueryLeaf(CVRX_SnmpContext(), CR8KPackageV3(), rsp); });
}

TEST(AllocationFailure, TopologyRowIsAppendedWholeOrNotAtAll) {
    expectWholeRecordOrNone([](CR8KPackageV3& rsp) {
        FakeHost::current()->backend().answerAlways([](CR8KPackageV3&, CR8KPackageV3&) { return 0; });
        return CSnmpTopoHandler().OnQueryTable(CVRX_SnmpContext(), CR8KPackageV3(), rsp);
    });
}

// What is given back without any lack of memory: the blocks of an operation whose ends are all of them freed.
template <typename Operation>
void expectAllGivenBack(Operation operation) {
    FakeHost host;
    operation();  // makes what a process makes once
    startTracking();
    operation();
    stopTracking();
    EXPECT_EQ(liveBlocks(), 0u);
}

class FailingLeaf : public NumberLeaf {
public:
    explicit FailingLeaf(bool throws) : m_throws(throws) {}
    int queryLeaf(const CVRX_SnmpContext& ctx, CTLVCell*& cell) override {
        NumberLeaf::queryLeaf(ctx, cell);
        if (m_throws) throw 5;
        return 5;
    }

private:
    bool m_throws;
};

TEST(GivenBack, CellOfAFailedLeafQuery) {
    expectAllGivenBack([] {
        CR8KPackageV3 rsp;
        EXPECT_EQ(FailingLeaf(false).OnQueryLeaf(CVRX_SnmpContext(), CR8KPackageV3(), rsp), -1);
    });
    expectAllGivenBack([] {
        CR8KPackageV3 rsp;
        EXPECT_THROW(FailingLeaf(true).OnQueryLeaf(CVRX_SnmpContext(), CR8KPackageV3(), rsp), int);
    });
}

TEST(GivenBack, RecordsOfATablesEmbeddedPackage) {
    class TableWithBatch : public CSnmpTableBase {
    public:
        TableWithBatch() {
            appendRecords(m_batch, {recordOf(1, u32(2, 3)), recordOf(4, text(5, std::string(100, 'x')))});
        }
    };
    expectAllGivenBack([] { const TableWithBatch table; });
}

}  // namespace
