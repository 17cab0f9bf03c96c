#include "handlers/snmp_topo_handler.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

#include "tests/fake_host/fake_host.h"

namespace {

using testing::ElementsAre;

constexpr const char* SIGNATURE =
    "virtual int CSnmpTopoHandler::OnQueryTable(const CVRX_SnmpContext&, const CR8KPackageV3&, CR8KPackageV3&)";

class TopoHandlerTest : public testing::Test {
protected:
    TopoHandlerTest() { host.setConfig("COMMAND", "GET_SYSTEM_WWN", "1001"); }

    int query(CR8KPackageV3& rsp) { return handler.OnQueryTable(ctx, CR8KPackageV3(), rsp); }

    FakeHost host;
    CVRX_SnmpContext ctx;
    CSnmpTopoHandler handler;
};

auto rowIs(const TlvCell& nodeCode, unsigned int nodeType, int status) {
    return RecordIs(NO_IDENTIFIER, nodeCode, u32(2, nodeType), i32(3, 1), text(4, "192.168.2.10"), text(5, "Array"),
                    text(6, " "), text(7, " "), i32(8, status));
}

TEST_F(TopoHandlerTest, QueryGivesOneRowOfEightColumnsInOrder) {
    host.backend().answer(0);
    CR8KPackageV3 rsp;
    EXPECT_EQ(query(rsp), 0);
    EXPECT_THAT(recordsOf(rsp), ElementsAre(rowIs(text(1, "NODE0001"), 1, 1)));
}

TEST_F(TopoHandlerTest, ProbeIsOneRecordWithTheCommandCodeAndNoCells) {
    host.backend().answer(0);
    CR8KPackageV3 rsp;
    query(rsp);
    EXPECT_THAT(host.backend().requests(), ElementsAre(ElementsAre(RecordIs(1001))));
    EXPECT_THAT(host.backend().retryArguments(), ElementsAre(false));
}

TEST_F(TopoHandlerTest, ProbeHasTheDefaultHeader) {
    TLVMsgHeadV3 seen;
    seen.uiVersion = 0;
    host.backend().answer([&seen](CR8KPackageV3& request, CR8KPackageV3&) {
        seen = request.head();
        return 0;
    });
    CR8KPackageV3 rsp;
    query(rsp);
    EXPECT_EQ(seen.uiMagic, 0x55555555u);
    EXPECT_EQ(seen.uiVersion, 3u);
    EXPECT_EQ(seen.uiHeadParam1, 0u);
    EXPECT_EQ(seen.uiHeadParam2, 0xFFFFFFFFu);
    EXPECT_EQ(seen.usHeadParam1, 0xFFFD);
    EXPECT_EQ(seen.usHeadParam2, 0xFFFF);
    EXPECT_EQ(seen.usHeadParam3, 0xFFFF);
    EXPECT_EQ(seen.usHeadParam4, 0xFFFF);
}

TEST_F(TopoHandlerTest, AnyFailureOfTheProbeGivesStatusTwo) {
    for (int result : {-1, 1, 0x3000003}) {
        host.backend().answer(result);
        CR8KPackageV3 rsp;
        EXPECT_EQ(query(rsp), 0);
        EXPECT_THAT(recordsOf(rsp), ElementsAre(rowIs(text(1, "NODE0001"), 1, 2))) << result;
    }
}

TEST_F(TopoHandlerTest, RecordsOfTheProbesAnswerAreNotUsed) {
    host.backend().answer(0, {recordOf(1001, text(1, "other"), u32(8, 9))});
    CR8KPackageV3 rsp;
    EXPECT_EQ(query(rsp), 0);
    EXPECT_THAT(recordsOf(rsp), ElementsAre(rowIs(text(1, "NODE0001"), 1, 1)));
}

TEST_F(TopoHandlerTest, NodeCodeOfEightCharactersIsANineByteString) {
    host.setNodeCode("ABCDEFGH");
    host.backend().answer(0);
    CR8KPackageV3 rsp;
    query(rsp);
    EXPECT_EQ((*rsp[0])[1].length(), 9);
    EXPECT_THAT(recordsOf(rsp), ElementsAre(rowIs(text(1, "ABCDEFGH"), 1, 1)));
}

TEST_F(TopoHandlerTest, UnknownNodeCodeIsAStringOfLengthZero) {
    host.setNodeCode({});
    host.backend().answer(0);
    CR8KPackageV3 rsp;
    query(rsp);
    EXPECT_THAT(recordsOf(rsp), ElementsAre(rowIs(noText(1), 1, 1)));
}

TEST_F(TopoHandlerTest, NodeTypeIsTheHosts) {
    host.setNodeType(4294967295u);
    host.backend().answer(0);
    CR8KPackageV3 rsp;
    query(rsp);
    EXPECT_THAT(recordsOf(rsp), ElementsAre(rowIs(text(1, "NODE0001"), 4294967295u, 1)));
}

TEST_F(TopoHandlerTest, AddressKindAndBlanksDoNotDependOnConfiguration) {
    host.setConfig("NODE", "ADDRESS", "10.0.0.1");
    host.setConfig("NODE", "TYPE", "Other");
    host.setSystemName("other");
    host.backend().answer(0);
    CR8KPackageV3 rsp;
    query(rsp);
    EXPECT_THAT(recordsOf(rsp), ElementsAre(rowIs(text(1, "NODE0001"), 1, 1)));
    EXPECT_THAT(host.configReads(), ElementsAre("COMMAND/GET_SYSTEM_WWN"));
}

TEST_F(TopoHandlerTest, CommandCodeIsReadOnEveryQuery) {
    host.backend().answer(0);
    host.backend().answer(0);
    CR8KPackageV3 rsp;
    query(rsp);
    host.setConfig("COMMAND", "GET_SYSTEM_WWN", "77");
    query(rsp);
    EXPECT_THAT(host.backend().sent(), ElementsAre(RecordIs(1001), RecordIs(77)));
}

TEST_F(TopoHandlerTest, CommandCodeThatIsNoNumberIsZero) {
    host.setConfig("COMMAND", "GET_SYSTEM_WWN", "none");
    host.backend().answer(0);
    CR8KPackageV3 rsp;
    EXPECT_EQ(query(rsp), 0);
    EXPECT_THAT(host.backend().sent(), ElementsAre(RecordIs(0)));
}

TEST_F(TopoHandlerTest, EveryQueryGetsTheWholeRowWhateverItNames) {
    host.backend().answer(0);
    CR8KPackageV3 rsp;
    EXPECT_EQ(handler.OnQueryTable(ctx, requestWith(u32(1, 160), text(2, "91.9.1.1.3.7")), rsp), 0);
    EXPECT_THAT(recordsOf(rsp), ElementsAre(rowIs(text(1, "NODE0001"), 1, 1)));
}

TEST_F(TopoHandlerTest, RowIsAppendedAfterRecordsThatTheResponseHolds) {
    host.backend().answer(0);
    TestPackage rsp({recordOf(5, u32(1, 2))});
    EXPECT_EQ(query(rsp), 0);
    EXPECT_THAT(recordsOf(rsp), ElementsAre(RecordIs(5, u32(1, 2)), rowIs(text(1, "NODE0001"), 1, 1)));
}

TEST_F(TopoHandlerTest, FailureInsideTheProbeLeavesTheResponseAsItWas) {
    host.backend().answer([](CR8KPackageV3&, CR8KPackageV3&) -> int { throw std::bad_alloc(); });
    CR8KPackageV3 rsp;
    EXPECT_THROW(query(rsp), std::bad_alloc);
    EXPECT_TRUE(rsp.records().empty());
}

TEST_F(TopoHandlerTest, LogsEntryAndExitAndNothingElse) {
    host.backend().answer(-1);
    CR8KPackageV3 rsp;
    query(rsp);
    EXPECT_THAT(host.log().lines(), ElementsAre(std::string("trace enter ") + SIGNATURE + "...",
                                                std::string("trace leave ") + SIGNATURE + ": OK"));
    EXPECT_EQ(host.log().entries()[0].module, 4u);
}

TEST_F(TopoHandlerTest, TableIsReadOnlyAndNoScalar) {
    CR8KPackageV3 rsp;
    EXPECT_EQ(handler.OnCreateTable(ctx, CR8KPackageV3(), rsp), -1);
    EXPECT_EQ(handler.OnModifyTable(ctx, CR8KPackageV3(), rsp), -1);
    EXPECT_EQ(handler.OnDeleteTable(ctx, CR8KPackageV3(), rsp), -1);
    EXPECT_ANY_THROW(handler.OnQueryLeaf(ctx, CR8KPackageV3(), rsp));
    EXPECT_ANY_THROW(handler.OnSetLeaf(ctx, CR8KPackageV3(), rsp));
}

}  // namespace
