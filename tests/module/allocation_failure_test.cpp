// What happens when memory runs out while the module is loaded: every allocation of the load fails once. In a program
// of its own, because it replaces the global operator new.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <new>
#include <vector>

#include "module/snmp_handler.h"
#include "module/snmp_tamrel_svc_module.h"
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

}  // namespace
