// The library as a host meets it: dlopen, the one exported function, and from then on base pointers only.
#include "tests/module/loaded_module.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "module/vrx_exception.h"
#include "platform/notify_msg_handler.h"
#include "platform/snmp_table_base.h"
#include "tests/fake_host/fake_host.h"
#include "tests/module/host_setup.h"

namespace {

using testing::ElementsAre;

constexpr const char* DEFINITION =
    "<param eventID=\"7\" name=\"Fan fault\" suggestion=\"Replace fan ##00.\" detail=\"Fan ##00 failed.\""
    " location=\"Slot ##00\" alarmOid=\"0.5\"/>";

class LoadedModuleTest : public testing::Test {
protected:
    LoadedModuleTest() {
        giveCommands(host);
        giveAlarmFiles(host, DEFINITION);
        module.reset(library.create());
        module->getSvcHandler(list);
        for (const auto& row : list) handlers.push_back(row.second);
        for (INotifyMsgHandler* handler : host.dispatcher().handlers()) notifyHandlers.push_back(handler);
    }

    ~LoadedModuleTest() override {
        for (CSnmpHandler* handler : handlers) delete handler;
        host.deleteHandlers();
        module.reset();
        library.symbol<void()>("_ZN18CAlarmConfigParser7destroyEv")();  // drop the definitions before the code goes
    }

    FakeHost host;
    LoadedModule library;
    std::unique_ptr<CSNMP_Svc_Module> module;
    SNMP_HANDLER_LIST list;
    std::vector<CSnmpHandler*> handlers;
    std::vector<INotifyMsgHandler*> notifyHandlers;
    CVRX_SnmpContext ctx;
    CR8KPackageV3 rsp;
};

void expectThrow(CSnmpHandler* handler,
                 int (CSnmpHandler::*operation)(const CVRX_SnmpContext&, const CR8KPackageV3&, CR8KPackageV3&),
                 const std::string& text) {
    CVRX_SnmpContext ctx;
    CR8KPackageV3 rsp;
    try {
        (handler->*operation)(ctx, CR8KPackageV3(), rsp);
        ADD_FAILURE() << "no exception";
    } catch (const CVRX_Exception& fault) {
        EXPECT_EQ(fault.what(), "CVRX_Exception: " + text);
    }
}

TlvRecord fanFault() {
    return recordOf(2001, u32(0, 1), u64(1, 7), u32(2, 5), u32(3, 12), u64(4, 1767323045), u64(5, 0), u64(6, 0),
                    text(8, "3"));
}

TEST_F(LoadedModuleTest, ModuleSlots) {
    EXPECT_EQ(module->getMibFileName(), "VRX-TAMREL-MIB.xml");
    std::vector<std::string> oids;
    for (const auto& row : list) oids.push_back(row.first);
    EXPECT_THAT(oids, ElementsAre("1.3.6.1.4.1.99871.2.91.9.1", "1.3.6.1.4.1.99871.2.91.10.1.1",
                                  "1.3.6.1.4.1.99871.2.91.10.1.2", "1.3.6.1.4.1.99871.2.91.10.4.1"));
    EXPECT_EQ(notifyHandlers.size(), 2u);
}

TEST_F(LoadedModuleTest, TopologySlots) {
    CSnmpHandler* handler = handlers[0];
    host.backend().answer(0);
    expectThrow(handler, &CSnmpHandler::OnQueryLeaf, "CSnmpTableHandler can't support leaf OnQueryLeaf!");
    EXPECT_EQ(handler->OnQueryTable(ctx, CR8KPackageV3(), rsp), 0);
    expectThrow(handler, &CSnmpHandler::OnSetLeaf, "CSnmpTableHandler can't support leaf OnSetLeaf!");
    EXPECT_EQ(handler->OnCreateTable(ctx, CR8KPackageV3(), rsp), -1);
    EXPECT_EQ(handler->OnModifyTable(ctx, CR8KPackageV3(), rsp), -1);
    EXPECT_EQ(handler->OnDeleteTable(ctx, CR8KPackageV3(), rsp), -1);
    EXPECT_EQ(handler->strategy(), 0);
    EXPECT_TRUE(handler->isWholeTable());
    EXPECT_EQ(handler->getSnmpOIDVersion(), 1);
    EXPECT_THAT(recordsOf(rsp),
                ElementsAre(RecordIs(NO_IDENTIFIER, text(1, "NODE0001"), u32(2, 1), i32(3, 1), text(4, "192.168.2.10"),
                                     text(5, "Array"), text(6, " "), text(7, " "), i32(8, 1))));
}

TEST_F(LoadedModuleTest, AlarmTableSlots) {
    auto* table = dynamic_cast<CSnmpTableBase*>(handlers[1]);
    ASSERT_NE(table, nullptr);
    expectThrow(table, &CSnmpHandler::OnQueryLeaf, "CSnmpTableHandler can't support leaf OnQueryLeaf!");
    expectThrow(table, &CSnmpHandler::OnSetLeaf, "CSnmpTableHandler can't support leaf OnSetLeaf!");
    EXPECT_EQ(table->OnCreateTable(ctx, CR8KPackageV3(), rsp), -1);
    EXPECT_EQ(table->OnModifyTable(ctx, CR8KPackageV3(), rsp), -1);
    EXPECT_EQ(table->OnDeleteTable(ctx, CR8KPackageV3(), rsp), -1);
    EXPECT_EQ(table->strategy(), 0);
    EXPECT_FALSE(table->isWholeTable());
    EXPECT_EQ(table->getSnmpOIDVersion(), 1);

    const auto record = makeRecord(fanFault());
    EXPECT_EQ(table->preGetRspCell(*record), 0);
    table->postGetRspCell(*record);
    CTLVRecordV3 request(NO_IDENTIFIER, CTLVRecordV3::DEFAULT_BUCKETS);
    table->fillReqRecord(&request);
    EXPECT_THAT(request, RecordIs(2001, u32(3, 0), u32(9, 1)));
    CTLVRecordV3 row(12, CTLVRecordV3::DEFAULT_BUCKETS);
    table->fillRspRecord(*record, &row);
    EXPECT_EQ(row.count(), 12u);
    EXPECT_EQ(row[10].toString(), "Fan 3 failed.");
    EXPECT_EQ(table->getIndexOfRecord(*record), "12");
    EXPECT_EQ(table->getMibKey(Agentpp::Oidx("91.10.1.1.1.9.12")), "12");
    EXPECT_TRUE(table->checkOKBeforeQueryTable(ctx));

    host.backend().answer(0, {fanFault()});
    host.backend().answerAlways([](CR8KPackageV3&, CR8KPackageV3&) { return 0; });
    EXPECT_EQ(table->OnQueryTable(ctx, requestWith(u32(1, 160), text(2, "91.10.1.1.1.9.12")), rsp), 0);
    ASSERT_EQ(rsp.records().size(), 1u);
    EXPECT_EQ(rsp[0]->identifier(), 12u);
    EXPECT_EQ(rsp[0]->count(), 12u);
}

TEST_F(LoadedModuleTest, AlarmTableSlotsOfTheBatchQuery) {
    auto* table = dynamic_cast<CSnmpTableBase*>(handlers[1]);
    ASSERT_NE(table, nullptr);
    host.backend().answer(0, {fanFault()});
    host.backend().answer(3);
    CR8KPackageV3 request;
    std::string key = CSnmpTableBase::INVALID_KEY;
    std::string lastKey;
    unsigned long long lastIndex = 0;
    unsigned int received = 0;
    int result = -1;
    table->GetBatchTableInfo_i(request, key, lastKey, lastIndex, received, result, rsp);
    EXPECT_EQ(result, 0);
    EXPECT_EQ(lastKey, "12");
    EXPECT_EQ(lastIndex, 12u);
    EXPECT_EQ(received, 1u);

    CR8KPackageV3 rows;
    EXPECT_EQ(table->AppendRspPkgRecord(rows, *makeRecord(fanFault())), 0);
    EXPECT_EQ(rows.records().size(), 1u);
    EXPECT_TRUE(table->queryRecordValidation(*makeRecord(recordOf(0, u32(1, 160)))));
    CR8KPackageV3 answer;
    EXPECT_EQ(table->SendBatchPackage(request, answer), 3);
}

TEST_F(LoadedModuleTest, ClearAlarmSlots) {
    auto* leaf = dynamic_cast<CSnmpLeafHandler*>(handlers[2]);
    ASSERT_NE(leaf, nullptr);
    host.backend().answer(9);
    EXPECT_EQ(leaf->OnQueryLeaf(ctx, CR8KPackageV3(), rsp), 0);
    EXPECT_THAT(recordsOf(rsp), ElementsAre(RecordIs(NO_IDENTIFIER, u32(0, 0))));
    expectThrow(leaf, &CSnmpHandler::OnQueryTable, "CSnmpLeafHandler can't support leaf OnQueryTable!");
    EXPECT_EQ(leaf->OnSetLeaf(ctx, requestWith(u32(0, 42)), rsp), 9);
    expectThrow(leaf, &CSnmpHandler::OnCreateTable, "CSnmpLeafHandler can't support leaf OnCreateTable!");
    expectThrow(leaf, &CSnmpHandler::OnModifyTable, "CSnmpLeafHandler can't support leaf OnModifyTable!");
    expectThrow(leaf, &CSnmpHandler::OnDeleteTable, "CSnmpLeafHandler can't support leaf OnDeleteTable!");
    EXPECT_EQ(leaf->strategy(), 0);
    EXPECT_TRUE(leaf->isWholeTable());
    EXPECT_EQ(leaf->getSnmpOIDVersion(), 1);
    CTLVCell* raw = nullptr;
    EXPECT_EQ(leaf->queryLeaf(ctx, raw), 0);
    std::unique_ptr<CTLVCell> cell(raw);
    ASSERT_NE(cell, nullptr);
    EXPECT_EQ(cell->toString(), "0");
}

TEST_F(LoadedModuleTest, TrapDestinationSlots) {
    CSnmpHandler* handler = handlers[3];
    tTrapDestInfo destination;
    destination.index = "1";
    destination.address = "10.0.0.1";
    destination.port = 162;
    host.trapApi().destinations = {destination};
    expectThrow(handler, &CSnmpHandler::OnQueryLeaf, "CSnmpTableHandler can't support leaf OnQueryLeaf!");
    EXPECT_EQ(handler->OnQueryTable(ctx, CR8KPackageV3(), rsp), 0);
    EXPECT_EQ(rsp.records().size(), 1u);
    expectThrow(handler, &CSnmpHandler::OnSetLeaf, "CSnmpTableHandler can't support leaf OnSetLeaf!");
    EXPECT_EQ(handler->OnCreateTable(ctx, requestWith(text(1, "10.0.0.2"), u32(2, 162)), rsp), 0);
    EXPECT_EQ(handler->OnModifyTable(ctx, requestWith(text(4, "1"), text(1, "10.0.0.3"), u32(2, 162)), rsp), 0);
    EXPECT_EQ(handler->OnDeleteTable(ctx, requestWith(text(4, "1")), rsp), 0);
    std::vector<std::string> operations;
    for (const FakeTrapApi::Call& call : host.trapApi().changes()) operations.push_back(call.operation);
    EXPECT_THAT(operations, ElementsAre("create", "modify", "delete"));
    EXPECT_EQ(handler->strategy(), 0);
    EXPECT_TRUE(handler->isWholeTable());
    EXPECT_EQ(handler->getSnmpOIDVersion(), 1);
}

TEST_F(LoadedModuleTest, NotificationHandlerSlots) {
    struct Case {
        const char* trapOid;
        const char* baseOid;
        bool dateAndTime;
        std::vector<std::string> chosen;
    };
    const Case cases[] = {
        {"1.3.6.1.4.1.99871.2.91.10.2.1.0.1", "1.3.6.1.4.1.99871.2.91.10.3.1.1", true, {"fixed", "both"}},
        {"1.3.6.1.4.1.99871.2.91.10.2.1.1.0.5", "1.3.6.1.4.1.99871.2.251.20.1.3", false, {"own", "both"}},
    };
    std::map<std::string, tTrapDestInfo> destinations;
    destinations["1"].index = "fixed";
    destinations["1"].trapType = 1;
    destinations["2"].index = "own";
    destinations["2"].trapType = 4;
    destinations["3"].index = "both";
    destinations["3"].trapType = 3;

    for (std::size_t i = 0; i < 2; ++i) {
        SCOPED_TRACE(i);
        INotifyMsgHandler* handler = notifyHandlers[i];
        EXPECT_EQ(handler->getTrapVbLen(), 15);
        Agentpp::Vbx* raw = nullptr;
        ASSERT_EQ(handler->constructAlarmTrapVb(*makeRecord(fanFault()), raw), 0);
        std::unique_ptr<Agentpp::Vbx[]> bindings(raw);
        EXPECT_EQ(std::string(bindings[0].get_printable_oid()), std::string(cases[i].baseOid) + ".1.0");
        EXPECT_EQ(std::string(bindings[14].get_printable_oid()), std::string(cases[i].baseOid) + ".15.0");
        EXPECT_EQ(std::string(handler->getTrapOid(7).get_printable()), cases[i].trapOid);
        EXPECT_EQ(std::string(handler->getBaseOid().get_printable()), cases[i].baseOid);
        EXPECT_EQ(handler->useDateAndTime(), cases[i].dateAndTime);
        std::list<tTrapDestInfo> chosen;
        handler->filterTrapMap(destinations, chosen);
        std::vector<std::string> names;
        for (const tTrapDestInfo& destination : chosen) names.push_back(destination.index);
        EXPECT_EQ(names, cases[i].chosen);
    }
}

TEST_F(LoadedModuleTest, HandlersOutliveTheModuleObject) {
    module.reset();
    host.backend().answer(0);
    EXPECT_EQ(handlers[0]->OnQueryTable(ctx, CR8KPackageV3(), rsp), 0);
    EXPECT_EQ(notifyHandlers[1]->getTrapVbLen(), 15);
}

}  // namespace
