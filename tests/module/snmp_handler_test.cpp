#include "module/snmp_handler.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>
#include <string>
#include <type_traits>

#include "module/vrx_exception.h"
#include "tests/fake_host/fake_host.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using Operation = int (CSnmpHandler::*)(const CVRX_SnmpContext&, const CR8KPackageV3&, CR8KPackageV3&);

class PlainTable : public CSnmpTableHandler {};
class PlainLeaf : public CSnmpLeafHandler {};

// A scalar whose queryLeaf is a function of the test.
class LeafWith : public CSnmpLeafHandler {
public:
    explicit LeafWith(std::function<int(CTLVCell*&)> query) : m_query(std::move(query)) {}
    int queryLeaf(const CVRX_SnmpContext&, CTLVCell*& cell) override { return m_query(cell); }

private:
    std::function<int(CTLVCell*&)> m_query;
};

CTLVCell* newCell(unsigned short tag, const char* value) {
    auto* cell = new CTLVCell();
    cell->set(tag, value);
    return cell;
}

class HandlerBasesTest : public testing::Test {
protected:
    int call(CSnmpHandler& handler, Operation operation) { return (handler.*operation)(ctx, CR8KPackageV3(), rsp); }

    // The text of the CVRX_Exception that the operation throws.
    std::string thrownBy(CSnmpHandler& handler, Operation operation) {
        try {
            call(handler, operation);
        } catch (const CVRX_Exception& fault) {
            return fault.what();
        }
        return "nothing was thrown";
    }

    CVRX_SnmpContext ctx;
    CR8KPackageV3 rsp;
    PlainTable table;
    PlainLeaf leaf;
};

TEST_F(HandlerBasesTest, BaseOfAllHandlersLeavesItsOperationsToTheKinds) {
    EXPECT_TRUE(std::is_abstract_v<CSnmpHandler>);
    EXPECT_FALSE(std::is_abstract_v<CSnmpTableHandler>);
    EXPECT_FALSE(std::is_abstract_v<CSnmpLeafHandler>);
}

TEST_F(HandlerBasesTest, TableAnswersTableOperationsWithFailure) {
    for (Operation operation : {&CSnmpHandler::OnQueryTable, &CSnmpHandler::OnCreateTable, &CSnmpHandler::OnModifyTable,
                                &CSnmpHandler::OnDeleteTable}) {
        EXPECT_EQ(call(table, operation), -1);
    }
    EXPECT_THAT(recordsOf(rsp), IsEmpty());
}

TEST_F(HandlerBasesTest, TableThrowsForLeafOperations) {
    EXPECT_EQ(thrownBy(table, &CSnmpHandler::OnQueryLeaf),
              "CVRX_Exception: CSnmpTableHandler can't support leaf OnQueryLeaf!");
    EXPECT_EQ(thrownBy(table, &CSnmpHandler::OnSetLeaf),
              "CVRX_Exception: CSnmpTableHandler can't support leaf OnSetLeaf!");
}

TEST_F(HandlerBasesTest, LeafThrowsForTableOperations) {
    EXPECT_EQ(thrownBy(leaf, &CSnmpHandler::OnQueryTable),
              "CVRX_Exception: CSnmpLeafHandler can't support leaf OnQueryTable!");
    EXPECT_EQ(thrownBy(leaf, &CSnmpHandler::OnCreateTable),
              "CVRX_Exception: CSnmpLeafHandler can't support leaf OnCreateTable!");
    EXPECT_EQ(thrownBy(leaf, &CSnmpHandler::OnModifyTable),
              "CVRX_Exception: CSnmpLeafHandler can't support leaf OnModifyTable!");
    EXPECT_EQ(thrownBy(leaf, &CSnmpHandler::OnDeleteTable),
              "CVRX_Exception: CSnmpLeafHandler can't support leaf OnDeleteTable!");
}

TEST_F(HandlerBasesTest, LeafAnswersOnSetLeafWithFailure) {
    EXPECT_EQ(call(leaf, &CSnmpHandler::OnSetLeaf), -1);
}

TEST_F(HandlerBasesTest, LeafWithoutQueryLeafFailsToRead) {
    EXPECT_EQ(call(leaf, &CSnmpHandler::OnQueryLeaf), -1);
    EXPECT_THAT(recordsOf(rsp), IsEmpty());
    CTLVCell* cell = nullptr;
    EXPECT_EQ(leaf.queryLeaf(ctx, cell), -1);
    EXPECT_EQ(cell, nullptr);
}

TEST_F(HandlerBasesTest, BothKindsInheritTheDefaultsOfAllHandlers) {
    for (CSnmpHandler* handler : {static_cast<CSnmpHandler*>(&table), static_cast<CSnmpHandler*>(&leaf)}) {
        EXPECT_EQ(handler->strategy(), 0);
        EXPECT_TRUE(handler->isWholeTable());
        EXPECT_EQ(handler->getSnmpOIDVersion(), 1);
    }
}

TEST_F(HandlerBasesTest, CellOfQueryLeafBecomesOneRecordUnderTagZero) {
    LeafWith seven([](CTLVCell*& cell) {
        cell = newCell(7, "value");
        return 0;
    });
    EXPECT_EQ(call(seven, &CSnmpHandler::OnQueryLeaf), 0);
    EXPECT_THAT(recordsOf(rsp), ElementsAre(RecordIs(NO_IDENTIFIER, text(0, "value"))));
    EXPECT_EQ((*rsp[0])[0].toString(), "value");
}

TEST_F(HandlerBasesTest, RecordOfALeafGoesAfterThoseThatTheResponseHolds) {
    LeafWith seven([](CTLVCell*& cell) {
        cell = newCell(7, "value");
        return 0;
    });
    appendRecords(rsp, {recordOf(1, u32(2, 3))});
    EXPECT_EQ(call(seven, &CSnmpHandler::OnQueryLeaf), 0);
    EXPECT_THAT(recordsOf(rsp), ElementsAre(RecordIs(1, u32(2, 3)), RecordIs(NO_IDENTIFIER, text(0, "value"))));
}

TEST_F(HandlerBasesTest, CellKeepsItsTypeAndValueUnderTagZero) {
    for (int type = 0; type <= 15; ++type) {
        LeafWith any([type](CTLVCell*& cell) {
            cell = new CTLVCell();
            cell->set_i(static_cast<CTLVCell::ETLVType>(type), 4095, "\1\2\3", 3);
            return 0;
        });
        rsp.clear();
        EXPECT_EQ(call(any, &CSnmpHandler::OnQueryLeaf), 0);
        EXPECT_THAT(recordsOf(rsp), ElementsAre(RecordIs(NO_IDENTIFIER, rawCell(0, type, "\1\2\3"))));
    }
}

TEST_F(HandlerBasesTest, LeafWithoutCellFailsAndLeavesTheResponseAsItWas) {
    LeafWith none([](CTLVCell*&) { return 0; });
    appendRecords(rsp, {recordOf(1, u32(2, 3))});
    EXPECT_EQ(call(none, &CSnmpHandler::OnQueryLeaf), -1);
    EXPECT_THAT(recordsOf(rsp), ElementsAre(RecordIs(1, u32(2, 3))));
}

TEST_F(HandlerBasesTest, FailedQueryLeafReleasesItsCell) {
    LeafWith failing([](CTLVCell*& cell) {
        cell = newCell(7, "value");
        return 5;
    });
    EXPECT_EQ(call(failing, &CSnmpHandler::OnQueryLeaf), -1);  // the leak check of the sanitizers sees the cell
    EXPECT_THAT(recordsOf(rsp), IsEmpty());
}

TEST_F(HandlerBasesTest, FailedQueryLeafWithoutCellFails) {
    LeafWith failing([](CTLVCell*&) { return 5; });
    EXPECT_EQ(call(failing, &CSnmpHandler::OnQueryLeaf), -1);
}

TEST_F(HandlerBasesTest, ExceptionOfQueryLeafPassesAndItsCellIsReleased) {
    LeafWith throwing([](CTLVCell*& cell) -> int {
        cell = newCell(7, "value");
        throw std::runtime_error("no value");
    });
    EXPECT_THROW(call(throwing, &CSnmpHandler::OnQueryLeaf), std::runtime_error);
    EXPECT_THAT(recordsOf(rsp), IsEmpty());
}

TEST_F(HandlerBasesTest, ExceptionOfQueryLeafWithoutCellPassesWithItsText) {
    LeafWith throwing([](CTLVCell*&) -> int { throw CVRX_Exception("the same"); });
    EXPECT_EQ(thrownBy(throwing, &CSnmpHandler::OnQueryLeaf), "CVRX_Exception: the same");
}

}  // namespace
