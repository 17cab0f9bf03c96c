#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <iterator>
#include <memory>
#include <set>
#include <stdexcept>
#include <type_traits>
#include <typeinfo>
#include <vector>

#include "alarm/snmp_alarm_iniparser.h"
#include "handlers/snmp_tamrel_alarm_handler.h"
#include "handlers/snmp_tamrel_trap_addr_handler.h"
#include "handlers/snmp_topo_handler.h"
#include "module/snmp_tamrel_svc_module.h"
#include "notify/snmp_tamrel_notify_handler.h"
#include "tests/fake_host/fake_host.h"
#include "tests/module/host_setup.h"

namespace {

using testing::ElementsAre;

const std::vector<std::string> REGISTERED = {
    "1.3.6.1.4.1.99871.2.91.9.1",
    "1.3.6.1.4.1.99871.2.91.10.1.1",
    "1.3.6.1.4.1.99871.2.91.10.1.2",
    "1.3.6.1.4.1.99871.2.91.10.4.1",
};

// Whether that is its class, and not one derived from it.
template <typename Class, typename Object>
bool isA(const Object& object) {
    return typeid(object) == typeid(Class);
}

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
    EXPECT_TRUE(isA<CTamrelNotifyMsgHandler>(*registered.front()));
    EXPECT_TRUE(isA<CTamrelOIDBasedMsgHandler>(*registered.back()));
}

TEST_F(SvcModuleTest, CreationAppendsAfterHandlersOfOtherModules) {
    auto* other = new CTamrelOIDBasedMsgHandler();
    host.dispatcher().handlers().push_back(other);
    std::unique_ptr<CSNMP_Svc_Module> module(SNMP_SvcModuleCreator());
    const std::list<INotifyMsgHandler*>& registered = host.dispatcher().handlers();
    ASSERT_EQ(registered.size(), 3u);
    EXPECT_EQ(registered.front(), other);
    EXPECT_TRUE(isA<CTamrelNotifyMsgHandler>(**std::next(registered.begin())));
    EXPECT_TRUE(isA<CTamrelOIDBasedMsgHandler>(*registered.back()));
}

TEST_F(SvcModuleTest, InitReturnsTrue) {
    CSNMP_Tamrel_Mib_Module module;
    EXPECT_TRUE(module.init());
}

TEST_F(SvcModuleTest, CreatorGivesTheModulesOwnClass) {
    std::unique_ptr<CSNMP_Svc_Module> module(SNMP_SvcModuleCreator());
    EXPECT_TRUE(isA<CSNMP_Tamrel_Mib_Module>(*module));
}

TEST_F(SvcModuleTest, NewOidBasedHandlerHasNoOidYet) {
    class OpenHandler : public CTamrelOIDBasedMsgHandler {
    public:
        using CTamrelOIDBasedMsgHandler::m_trapOid;
    } handler;
    EXPECT_EQ(handler.m_trapOid.len(), 0u);
    EXPECT_STREQ(handler.m_trapOid.get_printable(), "");
}

// Hosts that are built elsewhere hold these objects by their bases: what a class adds to its base is part of its
// layout.
TEST_F(SvcModuleTest, OnlyTheOidBasedHandlerHasStateOfItsOwn) {
    EXPECT_EQ(sizeof(CSNMP_Tamrel_Mib_Module), sizeof(CSNMP_Svc_Module));
    EXPECT_EQ(sizeof(CTamrelNotifyMsgHandler), sizeof(INotifyMsgHandler));
    EXPECT_EQ(sizeof(CTamrelOIDBasedMsgHandler), sizeof(INotifyMsgHandler) + sizeof(Agentpp::Oidx));
    EXPECT_EQ(sizeof(CSnmpTableHandler), sizeof(CSnmpHandler));
    EXPECT_EQ(sizeof(CSnmpLeafHandler), sizeof(CSnmpHandler));
    EXPECT_EQ(sizeof(CSnmpTopoHandler), sizeof(CSnmpTableHandler));
    EXPECT_EQ(sizeof(CTamrelTrapAddrHandler), sizeof(CSnmpTableHandler));
    EXPECT_EQ(sizeof(CSnmpTamrelVrxAlarmHandler), sizeof(CSnmpTableBase));
    EXPECT_EQ(sizeof(CSnmpTamrelVrxClearAlarmHandler), sizeof(CSnmpLeafHandler));
}

template <typename Derived, typename Base>
constexpr bool IS_A = std::is_base_of_v<Base, Derived>;

TEST_F(SvcModuleTest, EachHandlerHasItsBase) {
    EXPECT_TRUE((IS_A<CSNMP_Tamrel_Mib_Module, CSNMP_Svc_Module>));
    EXPECT_TRUE((IS_A<CTamrelNotifyMsgHandler, INotifyMsgHandler>));
    EXPECT_TRUE((IS_A<CTamrelOIDBasedMsgHandler, CTamrelNotifyMsgHandler>));
    EXPECT_TRUE((IS_A<CSnmpTableHandler, CSnmpHandler>));
    EXPECT_TRUE((IS_A<CSnmpLeafHandler, CSnmpHandler>));
    EXPECT_TRUE((IS_A<CSnmpTableBase, CSnmpTableHandler>));
    EXPECT_TRUE((IS_A<CSnmpTopoHandler, CSnmpTableHandler>));
    EXPECT_TRUE((IS_A<CTamrelTrapAddrHandler, CSnmpTableHandler>));
    EXPECT_TRUE((IS_A<CSnmpTamrelVrxAlarmHandler, CSnmpTableBase>));
    EXPECT_TRUE((IS_A<CSnmpTamrelVrxClearAlarmHandler, CSnmpLeafHandler>));
}

TEST_F(SvcModuleTest, HostDeletesThroughTheVirtualDestructorsOfTheBases) {
    EXPECT_TRUE(std::has_virtual_destructor_v<CSNMP_Svc_Module>);
    EXPECT_TRUE(std::has_virtual_destructor_v<CSnmpHandler>);
    EXPECT_TRUE(std::has_virtual_destructor_v<INotifyMsgHandler>);
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

TEST_F(SvcModuleTest, HandlersAreAppendedAfterEntriesOfOthers) {
    auto* other = new CSnmpTopoHandler();
    handlers.emplace_back("1.3.6.1", other);
    CSNMP_Tamrel_Mib_Module().getSvcHandler(handlers);
    std::vector<std::string> expected = REGISTERED;
    expected.insert(expected.begin(), "1.3.6.1");
    EXPECT_EQ(oids(), expected);
    EXPECT_EQ(handlers.front().second, other);
}

TEST_F(SvcModuleTest, SecondCallAppendsASecondSetOfNewHandlers) {
    CSNMP_Tamrel_Mib_Module module;
    module.getSvcHandler(handlers);
    module.getSvcHandler(handlers);
    ASSERT_EQ(handlers.size(), 8u);
    std::set<const CSnmpHandler*> objects;
    for (const auto& row : handlers) objects.insert(row.second);
    EXPECT_EQ(objects.size(), 8u);
    std::vector<std::string> twice = REGISTERED;
    twice.insert(twice.end(), REGISTERED.begin(), REGISTERED.end());
    EXPECT_EQ(oids(), twice);
}

TEST_F(SvcModuleTest, MibFileNameIsExact) {
    EXPECT_EQ(CSNMP_Tamrel_Mib_Module().getMibFileName(), "VRX-TAMREL-MIB.xml");
    EXPECT_EQ(CSNMP_Tamrel_Mib_Module().getMibFileName().size(), 18u);
}

TEST_F(SvcModuleTest, HandlersOutliveTheModule) {
    giveCommands(host);
    giveAlarmFiles(
        host, "<param eventID='5' name='Title' detail='Part ##00' location='Here' suggestion='Look' alarmOid='0.1'/>");
    tTrapDestInfo destination;
    destination.index = "7";
    destination.address = "10.0.0.1";
    destination.port = 162;
    host.trapApi().destinations = {destination};
    std::unique_ptr<CSNMP_Svc_Module> module(SNMP_SvcModuleCreator());
    module->getSvcHandler(handlers);
    module.reset();
    ASSERT_EQ(oids(), REGISTERED);

    CVRX_SnmpContext ctx;
    auto next = handlers.begin();
    CSnmpHandler& topology = *(next++)->second;
    host.backend().answer(0);
    CR8KPackageV3 row;
    EXPECT_EQ(topology.OnQueryTable(ctx, CR8KPackageV3(), row), 0);
    EXPECT_THAT(recordsOf(row),
                ElementsAre(RecordIs(NO_IDENTIFIER, text(1, "NODE0001"), u32(2, 1), i32(3, 1), text(4, "192.168.2.10"),
                                     text(5, "Array"), text(6, " "), text(7, " "), i32(8, 1))));

    CSnmpHandler& alarms = *(next++)->second;
    host.backend().answer(0, {recordOf(2001, u32(0, 1), u64(1, 5), u32(2, 3), u32(3, 17), u64(4, 0), text(8, "A"))});
    CR8KPackageV3 alarmRows;
    EXPECT_EQ(alarms.OnQueryTable(ctx, requestWith(u32(1, 161), text(2, "91.10.1.1.1.9.16")), alarmRows), 0);
    const std::vector<TlvRecord> rows = recordsOf(alarmRows);
    ASSERT_EQ(rows.size(), 1u);
    EXPECT_EQ(rows[0].identifier, 17u);
    EXPECT_THAT(rows[0].cells, testing::IsSupersetOf({text(4, "Title"), u32(9, 17), text(10, "Part A")}));
    CAlarmConfigParser::destroy();

    CSnmpHandler& clear = *(next++)->second;
    host.backend().answer(0);
    CR8KPackageV3 nothing;
    EXPECT_EQ(clear.OnSetLeaf(ctx, requestWith(u32(0, 17)), nothing), 0);
    EXPECT_EQ(host.backend().sent().back(), recordOf(2002, u32(3, 17), text(7, "SNMP_AGENT")));
    CR8KPackageV3 scalar;
    EXPECT_EQ(clear.OnQueryLeaf(ctx, CR8KPackageV3(), scalar), 0);
    EXPECT_THAT(recordsOf(scalar), ElementsAre(RecordIs(NO_IDENTIFIER, u32(0, 0))));

    CSnmpHandler& destinations = *(next++)->second;
    CR8KPackageV3 list;
    EXPECT_EQ(destinations.OnQueryTable(ctx, CR8KPackageV3(), list), 0);
    EXPECT_THAT(recordsOf(list),
                ElementsAre(RecordIs(NO_IDENTIFIER, text(1, "10.0.0.1"), u32(2, 162), i32(3, 1), text(4, "7"),
                                     u32(5, 2), text(6, "10.0.0.1"), u32(7, 3), text(8, "--"))));

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
    EXPECT_TRUE(isA<CTamrelNotifyMsgHandler>(*host.dispatcher().handlers().front()));
}

TEST_F(SvcModuleTest, NothingIsLoggedAndNothingButTheAlarmCommandIsConfigured) {
    std::unique_ptr<CSNMP_Svc_Module> module(SNMP_SvcModuleCreator());
    module->getSvcHandler(handlers);
    EXPECT_TRUE(host.log().lines().empty());
    EXPECT_THAT(host.configReads(), ElementsAre("COMMAND/GET_CURRENT_ALARM"));
}

}  // namespace
