// The batch query of tables, through a small table whose rows are the records' tag 1.
#include <gmock/gmock.h>

#include <new>
#include <stdexcept>

#include "module/vrx_exception.h"
#include "platform/snmp_table_base.h"
#include "tests/fake_host/fake_host.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr unsigned short NUMBER = 3;
constexpr unsigned short VALUE = 1;
constexpr unsigned short HIDDEN = 9;   // a record with this cell gives no row
constexpr unsigned short MARKER = 10;  // a record with this cell is none of the table's and needs no number

class NumberTable : public CSnmpTableBase {
public:
    void fillReqRecord(CTLVRecordV3* record) override {
        auto cell = std::make_unique<CTLVCell>();
        const unsigned int start =
            m_currentKey == INVALID_KEY ? 0 : static_cast<unsigned int>(std::stoul(m_currentKey));
        cell->set_i(CTLVCell::TLV_TYPE_UINT, NUMBER, &start, sizeof start);
        record->append(cell.get());
        (void)cell.release();
    }
    void fillRspRecord(const CTLVRecordV3& in, CTLVRecordV3* out) override {
        if (onFill) onFill();
        if (in.has(MARKER) || in.has(HIDDEN)) return;
        auto cell = std::make_unique<CTLVCell>();
        cell->set(VALUE, in[VALUE].toString().c_str());
        out->append(cell.get());
        (void)cell.release();
    }
    std::string getIndexOfRecord(const CTLVRecordV3& record) override { return record[NUMBER].toString(); }
    std::string getMibKey(const Agentpp::Oidx& oid) override {
        return oid.len() == 0 ? INVALID_KEY : std::to_string(oid.last());
    }
    std::function<void()> onFill;
};

class TableBase : public testing::Test {
protected:
    // Rows as "number value" after a query.
    std::vector<std::string> rows(unsigned int type, const std::string& row, int expected = 0) {
        CVRX_SnmpContext ctx;
        CR8KPackageV3 rsp;
        const TestPackage request = row.empty() ? requestWith(u32(1, type)) : requestWith(u32(1, type), text(2, row));
        EXPECT_EQ(table.OnQueryTable(ctx, request, rsp), expected);
        std::vector<std::string> found;
        for (const CTLVRecordV3* record : rsp.records())
            found.push_back(std::to_string(record->identifier()) + " " + (*record)[VALUE].toString());
        return found;
    }
    // The start numbers that the backend was asked for.
    std::vector<std::string> starts() {
        std::vector<std::string> found;
        for (const TlvRecord& record : host.backend().sent())
            found.push_back(makeRecord(record)->operator[](NUMBER).toString());
        return found;
    }
    static TlvRecord row(unsigned int number, const std::string& value = "v") {
        return recordOf(7, u32(NUMBER, number), text(VALUE, value));
    }
    static TlvRecord hidden(unsigned int number) { return recordOf(7, u32(NUMBER, number), u32(HIDDEN, 1)); }
    static TlvRecord marker() { return recordOf(7, u32(MARKER, 1)); }
    void endOfTable() {
        host.backend().answerAlways([](CR8KPackageV3&, CR8KPackageV3&) { return 0; });
    }

    FakeHost host;
    NumberTable table;
};

constexpr unsigned int GET = CSnmpTableBase::REQUEST_GET;
constexpr unsigned int GETNEXT = CSnmpTableBase::REQUEST_GETNEXT;
constexpr unsigned int GETBULK = CSnmpTableBase::REQUEST_GETBULK;

TEST_F(TableBase, GetGivesTheRowAskedFor) {
    host.backend().answer(0, {row(7, "seven")});
    EXPECT_THAT(rows(GET, "1.7"), ElementsAre("7 seven"));
}

TEST_F(TableBase, GetOfARowThatVanishedGivesNoRowAndNotTheNextOne) {
    host.backend().answer(0, {row(8)});
    EXPECT_THAT(rows(GET, "1.7"), IsEmpty());
}

TEST_F(TableBase, GetNextGivesOneRow) {
    host.backend().answer(0, {row(8), row(9)});
    EXPECT_THAT(rows(GETNEXT, "1.7"), ElementsAre("8 v"));
}

TEST_F(TableBase, WithoutARowTheQueryBeginsAtTheStart) {
    host.backend().answer(0, {row(1)});
    EXPECT_THAT(rows(GETBULK, ""), ElementsAre("1 v"));
    EXPECT_THAT(starts(), ElementsAre("0"));
}

TEST_F(TableBase, RowsAreInTheOrderOfTheirUnsignedNumbers) {
    host.backend().answer(0, {row(4000000000U), row(2), row(10)});
    EXPECT_THAT(rows(GETBULK, ""), ElementsAre("2 v", "10 v", "4000000000 v"));
}

TEST_F(TableBase, OfTwoRowsWithOneNumberTheFirstStaysAndTheOtherIsCounted) {
    host.backend().answer(0, {row(2, "first"), row(2, "second"), row(3)});
    EXPECT_THAT(rows(GETBULK, ""), ElementsAre("2 first", "3 v"));
    EXPECT_EQ(table.duplicates(), 1U);
}

TEST_F(TableBase, AStretchOfHiddenRecordsDoesNotEndTheTable) {
    for (unsigned int begin = 1; begin <= 451; begin += 50) {
        std::vector<TlvRecord> batch;
        for (unsigned int number = begin; number < begin + 50; ++number) batch.push_back(hidden(number));
        host.backend().answer(0, batch);
    }
    host.backend().answer(0, {row(501, "behind")});
    EXPECT_THAT(rows(GETNEXT, ""), ElementsAre("501 behind"));
    EXPECT_THAT(starts(), ElementsAre("0", "50", "100", "150", "200", "250", "300", "350", "400", "450", "500"));
}

TEST_F(TableBase, TheWholeTableIsReadBatchByBatchToItsEnd) {
    table.setWholeTable(true);
    host.backend().answer(0, {row(1), hidden(2)});
    host.backend().answer(0, {hidden(3)});
    host.backend().answer(0, {row(4)});
    endOfTable();
    EXPECT_THAT(rows(GETBULK, ""), ElementsAre("1 v", "4 v"));
    EXPECT_THAT(starts(), ElementsAre("0", "2", "3", "4"));
}

TEST_F(TableBase, ARecordThatIsNoneOfTheTablesNeedsNoNumber) {
    table.setWholeTable(true);
    host.backend().answer(0, {row(1), marker(), row(2)});
    endOfTable();
    EXPECT_THAT(rows(GETBULK, ""), ElementsAre("1 v", "2 v"));
    EXPECT_EQ(table.badRecords(), 0U);
}

TEST_F(TableBase, ABatchOfRecordsWithoutNumberEndsTheTable) {
    table.setWholeTable(true);
    host.backend().answer(0, {row(1)});
    host.backend().answer(0, {marker()});
    EXPECT_THAT(rows(GETBULK, ""), ElementsAre("1 v"));
    EXPECT_EQ(table.badRecords(), 0U);
}

TEST_F(TableBase, AnOnlyRecordWithoutNumberIsAnEmptyTable) {
    host.backend().answer(0, {marker()});
    EXPECT_THAT(rows(GETNEXT, ""), IsEmpty());
}

TEST_F(TableBase, ARecordThatCannotBeReadIsLeftOutAndCounted) {
    host.backend().answer(0, {recordOf(7, u32(NUMBER, 1)), row(2)});
    EXPECT_THAT(rows(GETBULK, ""), ElementsAre("2 v"));
    EXPECT_EQ(table.badRecords(), 1U);
    EXPECT_THAT(host.log().lines("warn"),
                ElementsAre("warn 0x1002E a record is left out: CVRX_Exception: record has no cell, tag equal to 1."));
}

TEST_F(TableBase, MemoryThatRunsOutIsNoRecordsFault) {
    host.backend().answer(0, {row(1)});
    table.onFill = [] { throw std::bad_alloc(); };
    CVRX_SnmpContext ctx;
    CR8KPackageV3 rsp;
    EXPECT_THROW(table.OnQueryTable(ctx, requestWith(u32(1, GETBULK)), rsp), std::bad_alloc);
    EXPECT_THAT(rsp.records(), IsEmpty());
}

TEST_F(TableBase, ABackendThatFailsInTheSecondBatchFailsTheQueryAndLeavesTheResponseAsItWas) {
    table.setWholeTable(true);
    host.backend().answer(0, {row(1)});
    host.backend().answer(42);
    EXPECT_THAT(rows(GETBULK, "", 42), IsEmpty());
}

TEST_F(TableBase, ABackendThatDoesNotGoOnFailsTheQuery) {
    table.setWholeTable(true);
    host.backend().answerAlways([](CR8KPackageV3&, CR8KPackageV3& answer) {
        appendRecords(answer, {row(5)});
        return 0;
    });
    EXPECT_THAT(rows(GETBULK, "", -1), IsEmpty());
    EXPECT_THAT(host.log().lines("error"),
                ElementsAre("error 0x1002E the backend sends no records behind number 5, the query ends."));
}

TEST_F(TableBase, ARequestWithoutATypeIsRefused) {
    CVRX_SnmpContext ctx;
    CR8KPackageV3 rsp;
    EXPECT_THROW(table.OnQueryTable(ctx, requestWith(text(2, "1.7")), rsp), CVRX_Exception);
}

}  // namespace
