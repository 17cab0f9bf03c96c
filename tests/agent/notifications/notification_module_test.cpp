#include "host/agent/tamrel/tamrel_binding.h"

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <agent_pp/snmp_pp_ext.h>

#include <algorithm>
#include <memory>
#include <random>
#include <vector>

#include "module/vrx_exception.h"
#include "platform/notify_handler.h"
#include "platform/notify_msg_handler.h"
#include "platform/snmp_svc_module.h"
#include "tests/agent/notifications/notification_records.h"

namespace vrx {

namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

// The real module, loaded as the agent loads it; its library stays mapped because the dispatcher keeps its handlers.
class NotificationModuleTest : public testing::Test {
protected:
    static void SetUpTestSuite() {
        void* library = dlopen(TAMREL_MODULE, RTLD_NOW | RTLD_LOCAL);
        ASSERT_NE(library, nullptr) << dlerror();
        void* symbol = dlsym(library, "SNMP_SvcModuleCreator");
        ASSERT_NE(symbol, nullptr);
        const auto create = reinterpret_cast<CSNMP_Svc_Module* (*)()>(symbol);
        s_module.reset(create());
        ASSERT_NE(s_module, nullptr);
    }
    static void TearDownTestSuite() {
        s_module.reset();
        for (INotifyMsgHandler* handler : CNotifyHandler::instance()->handlers()) delete handler;
        CNotifyHandler::instance()->handlers().clear();
    }
    void SetUp() override { m_binding.compare({}); }  // an empty repository

    static std::unique_ptr<CSNMP_Svc_Module> s_module;
    TamrelBinding m_binding{CNotifyHandler::instance()->handlers()};
};

std::unique_ptr<CSNMP_Svc_Module> NotificationModuleTest::s_module;

// A handler that this host knows nothing of.
class OtherHandler : public INotifyMsgHandler {
public:
    int constructAlarmTrapVb(const CTLVRecordV3&, Agentpp::Vbx*&) override { return -1; }
    Agentpp::Oidx& getTrapOid(unsigned long long) override { return m_oid; }
    Agentpp::Oidx& getBaseOid() override { return m_oid; }
    int getTrapVbLen() override { return 0; }
    void filterTrapMap(const std::map<std::string, tTrapDestInfo>&, std::list<tTrapDestInfo>&) override {}

private:
    Agentpp::Oidx m_oid;
};

}  // namespace

TEST_F(NotificationModuleTest, FindsTheOperationsOfTheLoadedModule) {
    EXPECT_TRUE(m_binding.found());
}

TEST_F(NotificationModuleTest, ARaisedAlarmEntersTheRepositoryAndAnEndedOneLeavesIt) {
    m_binding.follow(*alarmRecord(1, 70));
    m_binding.follow(*alarmRecord(1, 71));
    EXPECT_THAT(m_binding.repository(), ElementsAre(70, 71));
    m_binding.follow(*alarmRecord(1, 70, 2000));
    EXPECT_THAT(m_binding.repository(), ElementsAre(71));
}

TEST_F(NotificationModuleTest, ComparingAddsWhatIsMissingAndDeletesWhatIsSuperfluous) {
    m_binding.compare({1, 2, 3});
    const TamrelBinding::Difference difference = m_binding.compare({2, 3, 4, 5});
    EXPECT_EQ(difference.added, 2U);
    EXPECT_EQ(difference.deleted, 1U);
    EXPECT_THAT(m_binding.repository(), UnorderedElementsAre(2, 3, 4, 5));
}

TEST_F(NotificationModuleTest, ComparingRandomListsDeletesInTheRepositorysOrderAndAddsInTheBackends) {
    std::mt19937 random(15);  // NOLINT(cert-msc32-c, cert-msc51-cpp): the same lists each time
    std::vector<unsigned int> held;
    for (int i = 0; i < 200; ++i) {
        std::vector<unsigned int> active;
        for (unsigned int serial = 1; serial <= 60; ++serial) {
            if (random() % 3 == 0) active.push_back(serial);
        }
        std::vector<unsigned int> expected;
        for (const unsigned int serial : held) {
            if (std::count(active.begin(), active.end(), serial) > 0) expected.push_back(serial);
        }
        const std::size_t kept = expected.size();
        for (const unsigned int serial : active) {
            if (std::count(held.begin(), held.end(), serial) == 0) expected.push_back(serial);
        }
        const TamrelBinding::Difference difference = m_binding.compare(active);
        ASSERT_EQ(difference.deleted, held.size() - kept) << i;
        ASSERT_EQ(difference.added, expected.size() - kept) << i;
        ASSERT_THAT(m_binding.repository(), ElementsAreArray(expected)) << i;
        held = expected;
    }
}

TEST_F(NotificationModuleTest, ComparingEqualSetsChangesNothing) {
    m_binding.compare({4, 9});
    const TamrelBinding::Difference difference = m_binding.compare({4, 9});
    EXPECT_EQ(difference.added + difference.deleted, 0U);
}

TEST_F(NotificationModuleTest, ARecordThatLacksWhatIsNeededIsAnException) {
    EXPECT_THROW(m_binding.follow(*emptyRecord()), CVRX_Exception);
    EXPECT_THAT(m_binding.repository(), IsEmpty());
}

TEST_F(NotificationModuleTest, ARaisedAlarmThatIsKnownChangesNothing) {
    m_binding.follow(*alarmRecord(1, 70));
    m_binding.follow(*alarmRecord(1, 70));
    EXPECT_THAT(m_binding.repository(), ElementsAre(70));
}

TEST(NotificationModule, WithoutAModuleNothingHappens) {
    OtherHandler other;
    const TamrelBinding binding({&other, nullptr});
    EXPECT_FALSE(binding.found());
    binding.follow(*alarmRecord(1, 70));
    EXPECT_EQ(binding.compare({1, 2}).added, 0U);
    EXPECT_THAT(binding.repository(), IsEmpty());
}

}  // namespace vrx
