#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>

#include "alarm/snmp_alarm_repository.h"
#include "handlers/snmp_tamrel_alarm_handler.h"
#include "module/vrx_exception.h"
#include "tests/fake_host/fake_host.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* SET_SIGNATURE =
    "virtual int CSnmpTamrelVrxClearAlarmHandler::OnSetLeaf(const CVRX_SnmpContext&, const CR8KPackageV3&, "
    "CR8KPackageV3&)";
constexpr const char* QUERY_SIGNATURE =
    "virtual int CSnmpTamrelVrxClearAlarmHandler::queryLeaf(const CVRX_SnmpContext&, CTLVCell*&)";

class ClearAlarmHandlerTest : public testing::Test {
protected:
    ClearAlarmHandlerTest() { host.setConfig("COMMAND", "CLEAR_ALARM", "2002"); }

    FakeHost host;
    CVRX_SnmpContext ctx;
    CR8KPackageV3 rsp;
    CSnmpTamrelVrxClearAlarmHandler handler;
};

TEST_F(ClearAlarmHandlerTest, SettingASerialNumberSendsTheClearRequest) {
    host.backend().answer(0);
    EXPECT_EQ(handler.OnSetLeaf(ctx, requestWith(u32(0, 42)), rsp), 0);
    EXPECT_THAT(host.backend().requests(), ElementsAre(ElementsAre(RecordIs(2002, u32(3, 42), text(7, "SNMP_AGENT")))));
    EXPECT_EQ(host.backend().sent()[0].cells[1].bytes.size(), 11u);
    EXPECT_THAT(host.backend().retryArguments(), ElementsAre(false));
    EXPECT_THAT(host.log().lines(), ElementsAre(std::string("trace enter ") + SET_SIGNATURE + "...",
                                                "warn 0x1002E clear alarm of serial number:42, ret:0.",
                                                std::string("trace leave ") + SET_SIGNATURE + ": OK"));
    EXPECT_EQ(host.log().entries()[0].module, 4u);
    EXPECT_EQ(host.log().entries()[1].function, "OnSetLeaf");
}

TEST_F(ClearAlarmHandlerTest, RequestHasTheDefaultHeaderAndNothingOfTheManagers) {
    TLVMsgHeadV3 seen;
    seen.uiVersion = 0;
    host.backend().answer([&seen](CR8KPackageV3& request, CR8KPackageV3&) {
        seen = request.head();
        return 0;
    });
    TestPackage req({recordOf(5, u32(0, 42), text(7, "manager"), u32(9, 1)), recordOf(6, u32(0, 43))});
    req.head().uiHeadParam1 = 7;
    handler.OnSetLeaf(ctx, req, rsp);
    EXPECT_THAT(host.backend().requests(), ElementsAre(ElementsAre(RecordIs(2002, u32(3, 42), text(7, "SNMP_AGENT")))));
    EXPECT_EQ(seen.uiMagic, 0x55555555u);
    EXPECT_EQ(seen.uiVersion, 3u);
    EXPECT_EQ(seen.uiHeadParam1, 0u);
    EXPECT_EQ(seen.uiHeadParam2, 0xFFFFFFFFu);
    EXPECT_EQ(seen.usHeadParam1, 0xFFFD);
    EXPECT_EQ(seen.usHeadParam2, 0xFFFF);
    EXPECT_EQ(seen.usHeadParam3, 0xFFFF);
    EXPECT_EQ(seen.usHeadParam4, 0xFFFF);
}

TEST_F(ClearAlarmHandlerTest, RepositoryOfActiveAlarmsIsLeftAlone) {
    CAlarmRepository_Singleton* const repository = CAlarmRepository_Singleton::getAlarmRepository();
    ASSERT_EQ(repository->addAlarm(42), 0);
    host.backend().answer(0);
    handler.OnSetLeaf(ctx, requestWith(u32(0, 42)), rsp);
    EXPECT_EQ(repository->deleteAlarm(42), 0);  // it was still there
}

TEST_F(ClearAlarmHandlerTest, FailureInsideTheCallPassesAndIsNotCalledAResult) {
    host.backend().answer([](CR8KPackageV3&, CR8KPackageV3&) -> int { throw std::runtime_error("backend"); });
    EXPECT_THROW(handler.OnSetLeaf(ctx, requestWith(u32(0, 42)), rsp), std::runtime_error);
    EXPECT_THAT(host.log().linesWithoutTrace(), IsEmpty());
}

TEST_F(ClearAlarmHandlerTest, BackendsRefusalIsReturnedAndLogged) {
    host.backend().answer(-7);
    EXPECT_EQ(handler.OnSetLeaf(ctx, requestWith(u32(0, 4294967295u)), rsp), -7);
    EXPECT_THAT(host.log().linesWithoutTrace(),
                ElementsAre("warn 0x1002E clear alarm of serial number:4294967295, ret:-7."));
}

TEST_F(ClearAlarmHandlerTest, BackendsAnswerGoesToTheResponse) {
    host.backend().answer(0, {recordOf(2002, u32(3, 42))});
    handler.OnSetLeaf(ctx, requestWith(u32(0, 42)), rsp);
    EXPECT_THAT(recordsOf(rsp), ElementsAre(RecordIs(2002, u32(3, 42))));
}

TEST_F(ClearAlarmHandlerTest, ChangedCommandCodeTakesEffectOnTheNextSet) {
    host.backend().answer(0);
    host.backend().answer(0);
    handler.OnSetLeaf(ctx, requestWith(u32(0, 1)), rsp);
    host.setConfig("COMMAND", "CLEAR_ALARM", "9");
    handler.OnSetLeaf(ctx, requestWith(u32(0, 2)), rsp);
    EXPECT_THAT(host.backend().sent(), ElementsAre(RecordIs(2002, u32(3, 1), text(7, "SNMP_AGENT")),
                                                   RecordIs(9, u32(3, 2), text(7, "SNMP_AGENT"))));
}

TEST_F(ClearAlarmHandlerTest, CommandCodeThatIsNoNumberIsZero) {
    host.setConfig("COMMAND", "CLEAR_ALARM", "clear");
    host.backend().answer(0);
    handler.OnSetLeaf(ctx, requestWith(u32(0, 1)), rsp);
    EXPECT_THAT(host.backend().sent(), ElementsAre(RecordIs(0, u32(3, 1), text(7, "SNMP_AGENT"))));
}

TEST_F(ClearAlarmHandlerTest, EmptyRequestThrowsAndTheBackendIsNotCalled) {
    try {
        handler.OnSetLeaf(ctx, CR8KPackageV3(), rsp);
        FAIL() << "no exception";
    } catch (const CVRX_Exception& fault) {
        EXPECT_STREQ(fault.what(), "CVRX_Exception: record don't exist, index is 0");
    }
    EXPECT_THAT(host.backend().requests(), IsEmpty());
    EXPECT_THAT(host.configReads(), ElementsAre("COMMAND/CLEAR_ALARM"));
    EXPECT_EQ(host.log().lines().back(), std::string("trace leave ") + SET_SIGNATURE + ": OK");
}

TEST_F(ClearAlarmHandlerTest, RequestWithoutSerialNumberThrowsAndTheBackendIsNotCalled) {
    try {
        handler.OnSetLeaf(ctx, requestWith(u32(1, 42)), rsp);
        FAIL() << "no exception";
    } catch (const CVRX_Exception& fault) {
        EXPECT_STREQ(fault.what(), "CVRX_Exception: record has no cell, tag equal to 0");
    }
    EXPECT_THAT(host.backend().requests(), IsEmpty());
}

TEST_F(ClearAlarmHandlerTest, SerialNumberAsTextThrowsAndTheBackendIsNotCalled) {
    try {
        handler.OnSetLeaf(ctx, requestWith(text(0, "42")), rsp);
        FAIL() << "no exception";
    } catch (const CVRX_Exception& fault) {
        EXPECT_STREQ(fault.what(), "CVRX_Exception: CTLVCell isn't numerical type! tag equal to 0");
    }
    EXPECT_THAT(host.backend().requests(), IsEmpty());
}

TEST_F(ClearAlarmHandlerTest, ReadingGivesZeroWhateverWasWritten) {
    host.backend().answer(0);
    handler.OnSetLeaf(ctx, requestWith(u32(0, 42)), rsp);
    EXPECT_EQ(handler.OnQueryLeaf(ctx, CR8KPackageV3(), rsp), 0);
    EXPECT_THAT(recordsOf(rsp), ElementsAre(RecordIs(NO_IDENTIFIER, u32(0, 0))));
}

TEST_F(ClearAlarmHandlerTest, QueryLeafHandsOverANewCell) {
    CTLVCell* raw = nullptr;
    EXPECT_EQ(handler.queryLeaf(ctx, raw), 0);
    std::unique_ptr<CTLVCell> cell(raw);
    ASSERT_NE(cell, nullptr);
    EXPECT_EQ(cell->tag(), 0);
    EXPECT_EQ(cell->type(), CTLVCell::TLV_TYPE_UINT);
    EXPECT_EQ(cell->length(), 4);
    EXPECT_EQ(CTLVCell::ValueCast<unsigned int>()(cell.get()), 0u);
    EXPECT_THAT(host.log().lines(), ElementsAre(std::string("trace enter ") + QUERY_SIGNATURE + "...",
                                                std::string("trace leave ") + QUERY_SIGNATURE + ": OK"));
}

TEST_F(ClearAlarmHandlerTest, TableOperationsThrow) {
    EXPECT_THROW(handler.OnQueryTable(ctx, CR8KPackageV3(), rsp), CVRX_Exception);
    EXPECT_THROW(handler.OnCreateTable(ctx, CR8KPackageV3(), rsp), CVRX_Exception);
    EXPECT_THROW(handler.OnModifyTable(ctx, CR8KPackageV3(), rsp), CVRX_Exception);
    EXPECT_THROW(handler.OnDeleteTable(ctx, CR8KPackageV3(), rsp), CVRX_Exception);
}

}  // namespace
