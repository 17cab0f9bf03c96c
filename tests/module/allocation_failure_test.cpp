// What happens when memory runs out: every allocation of a load, and of reading an object, fails once; and what is
// given back when it does not. In a program of its own, because it replaces the global operator new.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <initializer_list>
#include <list>
#include <map>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "alarm/snmp_alarm_repository.h"
#include "handlers/snmp_topo_handler.h"
#include "module/snmp_handler.h"
#include "module/snmp_tamrel_svc_module.h"
#include "notify/snmp_tamrel_notify_handler.h"
#include "platform/snmp_table_base.h"
#include "tests/fake_host/fake_host.h"

namespace {

// Blocks allocated while s_tracking is set and not freed yet, in the order of their allocation.
constexpr std::size_t MAX_BLOCKS = 4096;
void* s_blocks[MAX_BLOCKS];
std::size_t s_blockCount = 0;
bool s_tracking = false;
unsigned int s_failAt = 0;  // the n-th allocation from now on fails; 0: none

void* allocate(std::size_t size) {
    if (s_failAt != 0 && --s_failAt == 0) return nullptr;
    void* block = std::malloc(size == 0 ? 1 : size);
    if (s_tracking && block != nullptr) {
        if (s_blockCount == MAX_BLOCKS) std::abort();
        s_blocks[s_blockCount++] = block;
    }
    return block;
}

void release(void* block) {
    void** const end = s_blocks + s_blockCount;
    void** const found = std::find(s_blocks, end, block);
    if (found != end) {
        std::copy(found + 1, end, found);
        --s_blockCount;
    }
    std::free(block);
}

}  // namespace

void* operator new(std::size_t size) {
    if (void* block = allocate(size)) return block;
    throw std::bad_alloc();
}
void* operator new[](std::size_t size) {
    return operator new(size);
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return allocate(size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    return allocate(size);
}
void operator delete(void* block) noexcept {
    release(block);
}
void operator delete[](void* block) noexcept {
    release(block);
}
void operator delete(void* block, std::size_t) noexcept {
    release(block);
}
void operator delete[](void* block, std::size_t) noexcept {
    release(block);
}
void operator delete(void* block, const std::nothrow_t&) noexcept {
    release(block);
}
void operator delete[](void* block, const std::nothrow_t&) noexcept {
    release(block);
}

namespace {

// Runs `load` with the n-th allocation failing, for n = 1, 2, ... until none fails. `load` returns whether memory ran
// out; `check` sees what is left when everything that the host owns is gone.
template <typename Load, typename Check>
unsigned int failEachAllocation(Load load, Check check) {
    for (unsigned int n = 1;; ++n) {
        s_blockCount = 0;
        s_tracking = true;
        const bool failed = load(n);
        s_failAt = 0;
        s_tracking = false;
        check(n, failed);
        if (!failed) return n - 1;
    }
}

TEST(AllocationFailure, CreatorPassesItOnAndLosesNothing) {
    { FakeHost once; }  // allocations of a process's first host
    std::size_t registered = 0;
    const unsigned int failures = failEachAllocation(
        [&registered](unsigned int n) {
            FakeHost host;
            std::unique_ptr<CSNMP_Svc_Module> module;
            bool failed = false;
            s_failAt = n;
            try {
                module.reset(SNMP_SvcModuleCreator());
            } catch (const std::bad_alloc&) {
                failed = true;
            }
            s_failAt = 0;
            registered = host.dispatcher().handlers().size();
            return failed;
        },
        [&registered](unsigned int n, bool failed) {
            EXPECT_EQ(s_blockCount, 0u) << "blocks lost when allocation " << n << " failed";
            if (failed) {
                EXPECT_LT(registered, 2u) << n;
            } else {
                EXPECT_EQ(registered, 2u);
            }
        });
    EXPECT_GE(failures, 5u);  // the module, two handlers, two list entries
}

TEST(AllocationFailure, ListOfHandlersKeepsTheRowsAppendedBefore) {
    { FakeHost once; }
    std::vector<std::string> oids;
    unsigned int unlisted = 0;
    const unsigned int failures = failEachAllocation(
        [&oids](unsigned int n) {
            s_tracking = false;
            oids.clear();
            oids.reserve(4);
            s_tracking = true;
            FakeHost host;
            CSNMP_Tamrel_Mib_Module module;
            SNMP_HANDLER_LIST handlers;
            bool failed = false;
            s_failAt = n;
            try {
                module.getSvcHandler(handlers);
            } catch (const std::bad_alloc&) {
                failed = true;
            }
            s_failAt = 0;
            s_tracking = false;
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
            if (s_blockCount == 0) return;
            // The handler of the failing row is left alone when the list has no room for it; nothing else is lost.
            ++unlisted;
            EXPECT_TRUE(failed);
            delete static_cast<CSnmpHandler*>(s_blocks[0]);
            EXPECT_EQ(s_blockCount, 0u) << n;
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
                s_failAt = n;
                try {
                    handler->filterTrapMap(destinations, chosen);
                } catch (const std::bad_alloc&) {
                    failed = true;
                }
                s_failAt = 0;
                s_tracking = false;
                chosenKeys.clear();
                for (const tTrapDestInfo& destination : chosen) chosenKeys.push_back(destination.index);
                return failed;
            },
            [&](unsigned int n, bool failed) {
                EXPECT_EQ(s_blockCount, 0u) << n;
                ASSERT_LE(chosenKeys.size(), keys.size());
                EXPECT_TRUE(std::equal(chosenKeys.begin(), chosenKeys.end(), keys.begin())) << n;
                EXPECT_EQ(chosenKeys.size() < keys.size(), failed) << n;
            });
        EXPECT_GE(failures, 6u);  // three entries, three users
    }
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
            s_failAt = n;
            try {
                EXPECT_EQ(repository->addAlarm(7), 0);
            } catch (const std::bad_alloc&) {
                failed = true;
            }
            s_failAt = 0;
            EXPECT_EQ(OpenRepository::m_oMutex.tryacquire(), 0) << n;
            OpenRepository::m_oMutex.release();
            size = repository->getAlarmRepositorySize();
            repository->clearAllAlarmItems();
            return failed;
        },
        [&size](unsigned int n, bool failed) {
            EXPECT_EQ(s_blockCount, 0u) << n;
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
            s_failAt = n;
            try {
                EXPECT_EQ(query(rsp), 0);
            } catch (const std::bad_alloc&) {
                failed = true;
            }
            s_failAt = 0;
            records = rsp.records().size();
            return failed;
        },
        [&records](unsigned int n, bool failed) {
            EXPECT_EQ(s_blockCount, 0u) << "blocks lost when allocation " << n << " failed";
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
    s_blockCount = 0;
    s_tracking = true;
    operation();
    s_tracking = false;
    EXPECT_EQ(s_blockCount, 0u);
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
