#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <typeinfo>
#include <vector>

#include "handlers/snmp_tamrel_alarm_handler.h"
#include "handlers/snmp_tamrel_trap_addr_handler.h"
#include "handlers/snmp_topo_handler.h"
#include "module/snmp_tamrel_svc_module.h"
#include "notify/snmp_tamrel_notify_handler.h"
#include "tests/fake_host/fake_host.h"

namespace {

using testing::ElementsAre;

const std::vector<std::string> REGISTERED = {
    "1.3.6.1.4.1.99871.2.91.9.1",
    "1.3.6.1.4.1.99871.2.91.10.1.1",
    "1.3.6.1.4.1.99871.2.91.10.1.2",
    "1.3.6.1.4.1.99871.2.91.10.4.1",
};

class SvcModuleTest : public testing::Test {
protected:
    ~SvcModuleTest() override {
        for (const auto& row : handlers) delete row.second;
    }

    std::vector<std::string> oids() const {
        std::vector<std::string> found;
        for (const auto& row : handlers) found.push_back(row.first);
        return found;
    }

    FakeHost host;
    SNMP_HANDLER_LIST handlers;
};

template <typename Handler>
bool is(const CSnmpHandler* handler) {
    return typeid(*handler) == typeid(Handler);
}

TEST_F(SvcModuleTest, CreationAppendsBothNotificationHandlersInOrder) {
    std::unique_ptr<CSNMP_Svc_Module> module(SNMP_SvcModuleCreator());
    ASSERT_NE(module, nullptr);
    const std::list<INotifyMsgHandler*>& registered = host.dispatcher().handlers();
    ASSERT_EQ(registered.size(), 2u);
    EXPECT_TRUE(typeid(*registered.front()) == typeid(CTamrelNotifyMsgHandler));
    EXPECT_TRUE(typeid(*registered.back()) == typeid(CTamrelOIDBasedMsgHandler));
}

TEST_F(SvcModuleTest, CreationAppendsBehindHandlersOfOtherModules) {
    auto* other = new CTamrelOIDBasedMsgHandler();
    host.dispatcher().handlers().push_back(other);
    std::unique_ptr<CSNMP_Svc_Module> module(SNMP_SvcModuleCreator());
    ASSERT_EQ(host.dispatcher().handlers().size(), 3u);
    EXPECT_EQ(host.dispatcher().handlers().front(), other);
}

TEST_F(SvcModuleTest, InitReturnsTrue) {
    CSNMP_Tamrel_Mib_Module module;
    EXPECT_TRUE(module.init());
}

TEST_F(SvcModuleTest, CreatorGivesTheModulesOwnClass) {
    std::unique_ptr<CSNMP_Svc_Module> module(SNMP_SvcModuleCreator());
    EXPECT_TRUE(typeid(*module.get()) == typeid(CSNMP_Tamrel_Mib_Module));
}

TEST_F(SvcModuleTest, NewOidBasedHandlerHasNoOidYet) {
    CTamrelOIDBasedMsgHandler handler;
    EXPECT_FALSE(handler.useDateAndTime());
    EXPECT_EQ(handler.getTrapVbLen(), 15);
}

TEST_F(SvcModuleTest, FourHandlersAreHandedOverInOrder) {
    CSNMP_Tamrel_Mib_Module().getSvcHandler(handlers);
    ASSERT_EQ(oids(), REGISTERED);
    std::vector<const CSnmpHandler*> found;
    for (const auto& row : handlers) found.push_back(row.second);
    EXPECT_TRUE(is<CSnmpTopoHandler>(found[0]));
    EXPECT_TRUE(is<CSnmpTamrelVrxAlarmHandler>(found[1]));
    EXPECT_TRUE(is<CSnmpTamrelVrxClearAlarmHandler>(found[2]));
    EXPECT_TRUE(is<CTamrelTrapAddrHandler>(found[3]));
}

TEST_F(SvcModuleTest, HandlersAreAppendedBehindEntriesOfOthers) {
    auto* other = new CSnmpTopoHandler();
    handlers.emplace_back("1.3.6.1", other);
    CSNMP_Tamrel_Mib_Module().getSvcHandler(handlers);
    ASSERT_EQ(handlers.size(), 5u);
    EXPECT_EQ(handlers.front().first, "1.3.6.1");
    EXPECT_EQ(handlers.front().second, other);
    EXPECT_EQ(handlers.back().first, REGISTERED.back());
}

TEST_F(SvcModuleTest, SecondCallAppendsASecondSetOfNewHandlers) {
    CSNMP_Tamrel_Mib_Module module;
    module.getSvcHandler(handlers);
    module.getSvcHandler(handlers);
    ASSERT_EQ(handlers.size(), 8u);
    EXPECT_NE(handlers.front().second, std::next(handlers.begin(), 4)->second);
    EXPECT_EQ(std::next(handlers.begin(), 4)->first, REGISTERED.front());
}

TEST_F(SvcModuleTest, MibFileNameIsExact) {
    EXPECT_EQ(CSNMP_Tamrel_Mib_Module().getMibFileName(), "VRX-TAMREL-MIB.xml");
    EXPECT_EQ(CSNMP_Tamrel_Mib_Module().getMibFileName().size(), 18u);
}

TEST_F(SvcModuleTest, HandlersOutliveTheModule) {
    host.setConfig("COMMAND", "GET_SYSTEM_WWN", "1001");
    host.backend().answer(0);
    std::unique_ptr<CSNMP_Svc_Module> module(SNMP_SvcModuleCreator());
    module->getSvcHandler(handlers);
    module.reset();

    CVRX_SnmpContext ctx;
    CR8KPackageV3 rsp;
    EXPECT_EQ(handlers.front().second->OnQueryTable(ctx, CR8KPackageV3(), rsp), 0);
    EXPECT_EQ(rsp.records().size(), 1u);
    for (INotifyMsgHandler* handler : host.dispatcher().handlers()) EXPECT_EQ(handler->getTrapVbLen(), 15);
    EXPECT_EQ(host.dispatcher().handlers().size(), 2u);
}

TEST_F(SvcModuleTest, DispatcherThatFailsAtOnceFailsTheLoadAndHoldsNothing) {
    host.failDispatcherAtCall(1);
    EXPECT_THROW(SNMP_SvcModuleCreator(), std::runtime_error);
    EXPECT_TRUE(host.dispatcher().handlers().empty());
}

TEST_F(SvcModuleTest, DispatcherThatFailsLaterFailsTheLoadAndKeepsTheFirstHandler) {
    host.failDispatcherAtCall(2);
    EXPECT_THROW(SNMP_SvcModuleCreator(), std::runtime_error);
    ASSERT_EQ(host.dispatcher().handlers().size(), 1u);
    EXPECT_TRUE(typeid(*host.dispatcher().handlers().front()) == typeid(CTamrelNotifyMsgHandler));
}

TEST_F(SvcModuleTest, NothingIsLoggedAndNothingButTheAlarmCommandIsConfigured) {
    std::unique_ptr<CSNMP_Svc_Module> module(SNMP_SvcModuleCreator());
    module->getSvcHandler(handlers);
    EXPECT_TRUE(host.log().lines().empty());
    EXPECT_THAT(host.configReads(), ElementsAre("COMMAND/GET_CURRENT_ALARM"));
}

}  // namespace
