// SETs without memory at any one place of the agent thread: each step is carried out once, each end is told once.
#include "host/agent/sets/set_transaction.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>

#include "host/snmp/net_snmp.h"
#include "tests/agent/mib_samples.h"
#include "tests/failing_memory.h"

namespace vrx {

namespace {

// More than a string holds without memory.
constexpr const char* LONG_REASON = "set failed: the backend does not know what this is about";

class CountingHandler : public CSnmpLeafHandler {
public:
    int OnSetLeaf(const CVRX_SnmpContext&, const CR8KPackageV3&, CR8KPackageV3&) override {
        ++calls;
        return result;
    }
    std::atomic<int> calls{0};
    std::atomic<int> result{0};
};

class SetTransactionMemoryTest : public testing::Test {
protected:
    ~SetTransactionMemoryTest() override {
        m_scalar.worker().requestStop();
        EXPECT_TRUE(m_scalar.worker().waitStopped(std::chrono::steady_clock::now() + std::chrono::minutes(1)));
    }

    std::shared_ptr<SetTransaction> setting() {
        const SetCell cell{0, 1, std::shared_ptr<const CTLVCell>(numberCell(0, 7, CTLVCell::TLV_TYPE_UINT, 4))};
        return std::make_shared<SetTransaction>(std::vector<SetStep>{{&m_scalar, {{0, {cell}, 0, 0}}}},
                                                [this](const SetResult& result) {
                                                    const std::string told = LONG_REASON + result.reason;
                                                    m_queue.ended(m_id);
                                                    m_error = result.error;
                                                    ++m_ends;
                                                });
    }
    // One SET after the other with the n-th allocation failing, for n = 1, 2, ... until there are no more of them.
    void failEach(int error) {
        bool failed = true;
        int n = 0;
        while (failed) {
            SCOPED_TRACE(++n);
            m_queue.add(++m_id, setting());
            failing_memory::failAt(static_cast<unsigned int>(n));
            const auto end = std::chrono::steady_clock::now() + std::chrono::minutes(1);
            while (m_ends < n && std::chrono::steady_clock::now() < end) agent_check_and_process(0);
            failed = !failing_memory::isFailureToCome();
            failing_memory::failAt(0);
            ASSERT_EQ(m_ends, n);
            EXPECT_EQ(m_error, error);
            EXPECT_EQ(m_handler.calls, n);
        }
        EXPECT_GT(n, 2) << "allocations fail";
    }

    const MibModel m_model = loadMib(sampleMib());
    CountingHandler m_handler;
    AgentLoop m_loop;
    ManagedObject m_scalar{*m_model.find(SAMPLE_SCALAR), m_handler, m_loop, {}};
    SetQueue m_queue{m_loop};
    std::uint64_t m_id = 0;
    int m_ends = 0;
    int m_error = -1;
};

}  // namespace

TEST_F(SetTransactionMemoryTest, EachIsCarriedOutAndToldOnce) {
    failEach(SNMP_ERR_NOERROR);
}

TEST_F(SetTransactionMemoryTest, EachThatIsRefusedIsGivenUpAndToldOnce) {
    m_handler.result = 0x5000006;
    failEach(SNMP_ERR_GENERR);
}

}  // namespace vrx
