#include "platform/snmp_table_base.h"

#include <gmock/gmock.h>

#include <functional>
#include <map>
#include <new>

#include "module/vrx_exception.h"
#include "platform/vrx_utility.h"
#include "tests/fake_host/tlv_builders.h"

class CVRX_SnmpContext {};

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::SizeIs;

constexpr unsigned short SERIAL = 3;
constexpr unsigned short KIND = 0;
constexpr unsigned int GOOD = 1;
constexpr unsigned int FILTERED = 8;       // gives no cells
constexpr unsigned int UNCONVERTIBLE = 9;  // throws
constexpr int FAILURE = 0x5000101;

// A table in the backend's manner: records with a serial number and a kind, sent in batches after a position.
class TestTable : public CSnmpTableBase {
public:
    using Batch = std::vector<TlvRecord>;

    std::map<unsigned int, unsigned int> alarms;  // kind by serial number
    std::function<int(unsigned int start, unsigned int count, Batch& batch)> answer;
    std::vector<std::string> calls;  // "start+count" of each
    std::vector<std::string> order;  // operations as they are called
    bool open = true;

    TestTable() {
        answer = [this](unsigned int start, unsigned int count, Batch& batch) {
            for (auto alarm = alarms.upper_bound(start); alarm != alarms.end() && batch.size() < count; ++alarm) {
                batch.push_back(record(alarm->first, alarm->second));
            }
            return 0;
        };
    }

    static TlvRecord record(unsigned int serial, unsigned int kind = GOOD) {
        return recordOf(2001, u32(KIND, kind), u32(SERIAL, serial));
    }

    int SendBatchPackage(CR8KPackageV3& req, CR8KPackageV3& rsp) override {
        const CTLVRecordV3& asked = *req[0];
        const auto start = CTLVCell::ValueCast<unsigned int>()(&asked[3]);
        const auto count = CTLVCell::ValueCast<unsigned int>()(&asked[9]);
        calls.push_back(std::to_string(start) + "+" + std::to_string(count));
        order.push_back("send");
        Batch batch;
        const int result = answer(start, count, batch);
        appendRecords(rsp, batch);
        return result;
    }
    void fillReqRecord(CTLVRecordV3* record) override {
        order.push_back("fillReqRecord " + std::to_string(m_requestType) + " " + m_currentKey);
        unsigned int start = m_currentKey == INVALID_KEY ? 0 : StrToUint(m_currentKey);
        if (m_requestType == REQUEST_GET && start != 0) --start;
        for (const TlvCell& source : {u32(3, start), u32(9, m_requestType == REQUEST_GETBULK ? 50 : 1)}) {
            auto cell = std::make_unique<CTLVCell>();
            cell->set_i(source.type, source.tag, source.bytes.data(), source.bytes.size());
            record->append(cell.get());
            (void)cell.release();  // the record owns it from here
        }
    }
    bool queryRecordValidation(const CTLVRecordV3& record) override {
        order.push_back("validate");
        return CSnmpTableBase::queryRecordValidation(record) && (!isValid || isValid(record));
    }
    int preGetRspCell(const CTLVRecordV3& record) override {
        order.push_back("pre");
        return wanted ? wanted(record) : 0;
    }
    void postGetRspCell(const CTLVRecordV3&) override { order.push_back("post"); }
    void fillRspRecord(const CTLVRecordV3& in, CTLVRecordV3* out) override {
        order.push_back("fillRspRecord");
        const unsigned int kind = CTLVCell::ValueCast<unsigned int>()(&in[KIND]);
        if (kind == FILTERED) return;
        auto cell = std::make_unique<CTLVCell>();
        cell->set(1, in[SERIAL].toString().c_str());
        out->append(cell.get());
        (void)cell.release();  // the record owns it from here
        if (kind == UNCONVERTIBLE) throw CVRX_Exception("a cell is missing");
        if (onConversion) onConversion();
    }
    std::string getIndexOfRecord(const CTLVRecordV3& record) override { return record[SERIAL].toString(); }
    std::string getMibKey(const Agentpp::Oidx& oid) override {
        order.push_back("getMibKey");
        return oid.len() == 7 ? UintToStr(static_cast<unsigned int>(oid[6])) : INVALID_KEY;
    }
    bool checkOKBeforeQueryTable(const CVRX_SnmpContext&) override { return open; }

    std::function<bool(const CTLVRecordV3&)> isValid;
    std::function<int(const CTLVRecordV3&)> wanted;
    std::function<void()> onConversion;
};

class TableBase : public testing::Test {
protected:
    // The rows' numbers; each row must hold its number as text.
    std::vector<unsigned long long> query(long long type, const std::string& oid = "") {
        TestPackage request({recordOf(NO_IDENTIFIER, u64(1, static_cast<unsigned long long>(type)))});
        if (!oid.empty()) {
            auto cell = std::make_unique<CTLVCell>();
            cell->set(2, oid.c_str());
            request[0]->append(cell.get());
            (void)cell.release();  // the record owns it from here
        }
        m_response.clear();
        m_result = m_table.OnQueryTable(CVRX_SnmpContext(), request, m_response);
        std::vector<unsigned long long> numbers;
        for (const CTLVRecordV3* row : m_response.records()) {
            EXPECT_EQ(row->count(), 1U);
            EXPECT_EQ((*row)[1].toString(), std::to_string(row->identifier()));
            numbers.push_back(row->identifier());
        }
        return numbers;
    }
    std::vector<unsigned long long> get(const std::string& row) { return query(160, "91.10.1.1.1.9." + row); }
    std::vector<unsigned long long> next(const std::string& row) { return query(161, "91.10.1.1.1.9." + row); }
    std::vector<unsigned long long> bulk(const std::string& row) { return query(165, "91.10.1.1.1.9." + row); }

    void put(unsigned int first, unsigned int last, unsigned int kind = GOOD) {
        for (unsigned int serial = first; serial <= last; ++serial) m_table.alarms[serial] = kind;
    }
    void sendAlways(TestTable::Batch batch) {
        m_table.answer = [batch](unsigned int, unsigned int, TestTable::Batch& out) {
            out = batch;
            return 0;
        };
    }
    // The first calls get these batches, later ones nothing.
    void sendInTurn(std::vector<TestTable::Batch> batches) {
        m_table.answer = [batches, call = std::size_t{0}](unsigned int, unsigned int, TestTable::Batch& out) mutable {
            if (call < batches.size()) out = batches[call++];
            return 0;
        };
    }

    TestTable m_table;
    CR8KPackageV3 m_response;
    int m_result = 0;
};

TEST_F(TableBase, OperationsOfOneRowAreCalledInOrder) {
    put(7, 7);
    EXPECT_THAT(get("7"), ElementsAre(7));
    EXPECT_THAT(m_table.order,
                ElementsAre("getMibKey", "fillReqRecord 160 7", "send", "validate", "pre", "fillRspRecord", "post"));
}

TEST_F(TableBase, RequestTypeMayBeOfAnyLength) {
    put(1, 3);
    const TestPackage request({recordOf(NO_IDENTIFIER, u32(1, 165))});
    CR8KPackageV3 response;
    EXPECT_EQ(m_table.OnQueryTable(CVRX_SnmpContext(), request, response), 0);
    EXPECT_THAT(response.records(), SizeIs(3));
}

TEST_F(TableBase, GetGivesTheRow) {
    put(1, 9);
    EXPECT_THAT(get("7"), ElementsAre(7));
    EXPECT_THAT(m_table.calls, ElementsAre("6+1"));
}

TEST_F(TableBase, GetOfAMissingRowGivesNothing) {
    put(8, 9);
    EXPECT_THAT(get("7"), IsEmpty());
    EXPECT_EQ(m_result, 0);
    EXPECT_THAT(m_table.calls, ElementsAre("6+1"));
}

TEST_F(TableBase, GetOfAFilteredRowGivesNothing) {
    put(7, 7, FILTERED);
    put(8, 8);
    EXPECT_THAT(get("7"), IsEmpty());
    EXPECT_EQ(m_result, 0);
}

TEST_F(TableBase, GetWithoutARowGivesNothing) {
    put(1, 1);
    EXPECT_THAT(query(160), IsEmpty());
    EXPECT_THAT(query(160, "91.10.1.1.1.9"), IsEmpty());
    EXPECT_EQ(m_result, 0);
}

TEST_F(TableBase, GetNextGivesTheRowAfter) {
    put(1, 9);
    EXPECT_THAT(next("7"), ElementsAre(8));
    EXPECT_THAT(m_table.calls, ElementsAre("7+1"));
}

TEST_F(TableBase, GetNextWithoutARowGivesTheFirst) {
    put(4, 9);
    EXPECT_THAT(query(161), ElementsAre(4));
}

TEST_F(TableBase, GetNextSkipsFilteredRows) {
    put(1, 5, FILTERED);
    put(6, 6);
    EXPECT_THAT(next("0"), ElementsAre(6));
    EXPECT_THAT(m_table.calls, ElementsAre("0+1", "1+1", "2+1", "3+1", "4+1", "5+1"));
}

TEST_F(TableBase, GetNextAfterTheLastRowGivesNothing) {
    put(1, 9);
    EXPECT_THAT(next("9"), IsEmpty());
    EXPECT_EQ(m_result, 0);
}

TEST_F(TableBase, GetNextAfterTheLargestNumberGivesNothing) {
    put(4294967295U, 4294967295U - 1);
    EXPECT_THAT(next("4294967295"), IsEmpty());
    EXPECT_EQ(m_result, 0);
}

TEST_F(TableBase, GetNextGivesOneRowAlsoWhenTheBackendSendsMore) {
    sendAlways({TestTable::record(9), TestTable::record(8)});
    EXPECT_THAT(next("7"), ElementsAre(8));
}

TEST_F(TableBase, GetBulkGivesOneBatch) {
    put(1, 120);
    EXPECT_THAT(bulk("0"), SizeIs(50));
    EXPECT_THAT(m_table.calls, ElementsAre("0+50"));
}

TEST_F(TableBase, StretchOfFilteredRowsDoesNotEndTheTable) {
    put(1, 500, FILTERED);
    put(501, 503);
    EXPECT_THAT(bulk("0"), ElementsAre(501, 502, 503));
    EXPECT_THAT(m_table.calls, SizeIs(11));
}

TEST_F(TableBase, TableOfFilteredRowsIsEmpty) {
    put(1, 500, FILTERED);
    EXPECT_THAT(bulk("0"), IsEmpty());
    EXPECT_EQ(m_result, 0);
}

TEST_F(TableBase, EmptyTableIsEmpty) {
    m_table.setWholeTable(true);
    EXPECT_THAT(query(165), IsEmpty());
    EXPECT_EQ(m_result, 0);
    EXPECT_THAT(m_table.calls, ElementsAre("0+50"));
}

TEST_F(TableBase, WholeTableGoesOnToItsEnd) {
    put(1, 10000);
    m_table.setWholeTable(true);
    const auto rows = query(165);
    ASSERT_THAT(rows, SizeIs(10000));
    for (std::size_t i = 0; i < rows.size(); ++i) ASSERT_EQ(rows[i], i + 1);
    EXPECT_THAT(m_table.calls, SizeIs(201));
}

TEST_F(TableBase, WholeTableFlagIsReported) {
    EXPECT_FALSE(m_table.isWholeTable());
    m_table.setWholeTable(true);
    EXPECT_TRUE(m_table.isWholeTable());
}

TEST_F(TableBase, WholeTableFlagLeavesGetNextAtOneRow) {
    put(1, 9);
    m_table.setWholeTable(true);
    EXPECT_THAT(next("1"), ElementsAre(2));
}

TEST_F(TableBase, RowsAreOrderedAsUnsignedNumbers) {
    sendInTurn({{TestTable::record(4294967295U), TestTable::record(9), TestTable::record(10),
                 TestTable::record(2147483648U)}});
    EXPECT_THAT(bulk("0"), ElementsAre(9, 10, 2147483648U, 4294967295U));
}

TEST_F(TableBase, DuplicatesAreLeftOutAndCounted) {
    m_table.setWholeTable(true);
    sendInTurn({{TestTable::record(1), TestTable::record(2), TestTable::record(2)},
                {TestTable::record(1), TestTable::record(3)}});
    EXPECT_THAT(query(165), ElementsAre(1, 2, 3));
    EXPECT_EQ(m_table.duplicates(), 2U);
    EXPECT_EQ(m_table.badRecords(), 0U);
}

TEST_F(TableBase, RowsBeforeTheOneAskedForAreLeftOut) {
    sendAlways({TestTable::record(3), TestTable::record(8)});
    EXPECT_THAT(bulk("7"), ElementsAre(8));
    EXPECT_EQ(m_table.badRecords(), 1U);
}

TEST_F(TableBase, BackendThatMakesNoProgressEndsTheQuery) {
    m_table.setWholeTable(true);
    sendAlways({TestTable::record(5), TestTable::record(6)});
    testing::internal::CaptureStderr();
    EXPECT_THAT(query(165), IsEmpty());
    EXPECT_THAT(
        testing::internal::GetCapturedStderr(),
        MatchesRegex(".* error .module 0. 0x1002E OnQueryTable:[0-9]+ the backend sends no records after number "
                     "6, the query ends[.]\n"));
    EXPECT_EQ(m_result, -1);
    EXPECT_THAT(m_table.calls, ElementsAre("0+50", "6+50"));
}

TEST_F(TableBase, BackendThatSendsFilteredRowsOverAndOverEndsTheQuery) {
    sendAlways({TestTable::record(5, FILTERED)});
    EXPECT_THAT(next("0"), IsEmpty());
    EXPECT_EQ(m_result, -1);
    EXPECT_THAT(m_table.calls, SizeIs(2));
}

TEST_F(TableBase, BatchWithoutAnyNumberEndsTheTable) {
    m_table.setWholeTable(true);
    sendInTurn({{TestTable::record(1)}, {recordOf(2001, u32(KIND, GOOD))}, {TestTable::record(2)}});
    EXPECT_THAT(query(165), ElementsAre(1));
    EXPECT_EQ(m_result, 0);
    EXPECT_THAT(m_table.calls, ElementsAre("0+50", "1+50"));
}

TEST_F(TableBase, RecordThatIsNoneOfTheTablesNeedsNoNumber) {
    sendInTurn({{TestTable::record(1), recordOf(2001, u32(KIND, FILTERED)), TestTable::record(2)}});
    EXPECT_THAT(bulk("0"), ElementsAre(1, 2));
    EXPECT_EQ(m_table.badRecords(), 0U);
}

TEST_F(TableBase, OnlyRecordThatIsNoneOfTheTablesIsAnEmptyTable) {
    sendAlways({recordOf(2001, u32(KIND, FILTERED))});
    EXPECT_THAT(query(161), IsEmpty());
    EXPECT_EQ(m_result, 0);
    EXPECT_EQ(m_table.badRecords(), 0U);
}

TEST_F(TableBase, TableThatNeverEndsIsRefused) {
    unsigned int last = 0;
    m_table.answer = [&last](unsigned int, unsigned int, TestTable::Batch& batch) {
        for (int i = 0; i < 20000; ++i) batch.push_back(TestTable::record(++last, FILTERED));
        return 0;
    };
    EXPECT_THAT(bulk("0"), IsEmpty());
    EXPECT_EQ(m_result, -1);
    EXPECT_THAT(m_table.calls, SizeIs(51));
}

TEST_F(TableBase, RecordWhoseConversionThrowsIsSkippedLoggedAndCounted) {
    put(1, 3);
    m_table.alarms[2] = UNCONVERTIBLE;
    testing::internal::CaptureStderr();
    EXPECT_THAT(bulk("0"), ElementsAre(1, 3));
    EXPECT_THAT(
        testing::internal::GetCapturedStderr(),
        MatchesRegex(".* warning .module 0. 0x1002E OnQueryTable:[0-9]+ a record is left out: CVRX_Exception: a "
                     "cell is missing[.]\n"));
    EXPECT_EQ(m_result, 0);
    EXPECT_EQ(m_table.badRecords(), 1U);
}

TEST_F(TableBase, QueryGoesOnAfterALastRecordThatDoesNotConvert) {
    put(1, 50);
    m_table.alarms[50] = UNCONVERTIBLE;
    put(51, 52);
    m_table.setWholeTable(true);
    EXPECT_THAT(query(165), SizeIs(51));
    EXPECT_THAT(m_table.calls, ElementsAre("0+50", "50+50", "52+50"));
}

TEST_F(TableBase, IndexThatIsNoNumberMakesABadRecord) {
    sendInTurn({{recordOf(2001, u32(KIND, GOOD), text(SERIAL, "x1")), TestTable::record(2),
                 recordOf(2001, u32(KIND, GOOD), text(SERIAL, "99999999999999999999"))}});
    EXPECT_THAT(bulk("0"), ElementsAre(2));
    EXPECT_EQ(m_table.badRecords(), 2U);
}

TEST_F(TableBase, InvalidRecordsAreNoRows) {
    put(1, 3);
    m_table.isValid = [](const CTLVRecordV3& record) { return record[SERIAL].toString() != "2"; };
    EXPECT_THAT(bulk("0"), ElementsAre(1, 3));
    EXPECT_EQ(m_table.badRecords(), 0U);
}

TEST_F(TableBase, RecordsThatPreGetRspCellRefusesAreNoRows) {
    put(1, 3);
    m_table.wanted = [](const CTLVRecordV3& record) { return record[SERIAL].toString() == "2" ? 1 : 0; };
    EXPECT_THAT(bulk("0"), ElementsAre(1, 3));
}

TEST_F(TableBase, MemoryThatRunsOutEndsTheQueryInsteadOfLeavingAHole) {
    put(1, 3);
    m_table.onConversion = [] { throw std::bad_alloc(); };
    EXPECT_THROW(bulk("0"), std::bad_alloc);
    EXPECT_THAT(m_response.records(), IsEmpty());
}

TEST_F(TableBase, FailureOfTheBackendIsReturned) {
    m_table.answer = [](unsigned int, unsigned int, TestTable::Batch&) { return FAILURE; };
    EXPECT_THAT(bulk("0"), IsEmpty());
    EXPECT_EQ(m_result, FAILURE);
}

TEST_F(TableBase, FailureInTheMiddleLeavesTheResponseUnchanged) {
    m_table.setWholeTable(true);
    m_table.answer = [this](unsigned int start, unsigned int, TestTable::Batch& batch) {
        if (m_table.calls.size() == 2) return FAILURE;
        batch = {TestTable::record(start + 1)};
        return 0;
    };
    m_response.append(makeRecord(recordOf(1, text(1, "1"))));
    const TestPackage request({recordOf(NO_IDENTIFIER, u64(1, 165))});
    EXPECT_EQ(m_table.OnQueryTable(CVRX_SnmpContext(), request, m_response), FAILURE);
    EXPECT_THAT(m_response.records(), SizeIs(1));
}

TEST_F(TableBase, ExceptionOfTheTransportLeavesTheResponseUnchanged) {
    m_table.answer = [](unsigned int, unsigned int, TestTable::Batch&) -> int { throw CVRX_Exception("broken"); };
    EXPECT_THROW(bulk("0"), CVRX_Exception);
    EXPECT_THAT(m_response.records(), IsEmpty());
}

TEST_F(TableBase, QueryAfterAFailureBeginsAnew) {
    m_table.answer = [](unsigned int, unsigned int, TestTable::Batch&) { return FAILURE; };
    bulk("7");
    sendInTurn({{TestTable::record(1)}});
    EXPECT_THAT(query(165), ElementsAre(1));
}

TEST_F(TableBase, ClosedTableAsksNobody) {
    m_table.open = false;
    EXPECT_THAT(bulk("0"), IsEmpty());
    EXPECT_EQ(m_result, -1);
    EXPECT_THAT(m_table.calls, IsEmpty());
}

TEST_F(TableBase, RequestWithoutRecordThrows) {
    const TestPackage request;
    EXPECT_THROW(m_table.OnQueryTable(CVRX_SnmpContext(), request, m_response), CVRX_Exception);
}

TEST_F(TableBase, RequestWithoutTypeThrows) {
    const TestPackage request({recordOf(NO_IDENTIFIER, text(2, "91.10.1.1.1.9.7"))});
    EXPECT_THROW(m_table.OnQueryTable(CVRX_SnmpContext(), request, m_response), CVRX_Exception);
}

TEST_F(TableBase, RequestWhoseTypeIsNoNumberThrows) {
    const TestPackage request({recordOf(NO_IDENTIFIER, text(1, "165"))});
    EXPECT_THROW(m_table.OnQueryTable(CVRX_SnmpContext(), request, m_response), CVRX_Exception);
}

TEST_F(TableBase, OidThatIsNoneAsksFromTheStart) {
    put(1, 2);
    EXPECT_THAT(query(165, "no.oid"), ElementsAre(1, 2));
}

// The defaults of the slots, through a table that overrides nothing.
class PlainTable : public CSnmpTableBase {};

TEST(PlainTableBase, HasNoKeysAndNoRows) {
    PlainTable table;
    EXPECT_EQ(table.getMibKey(Agentpp::Oidx("1.2.3")), CSnmpTableBase::INVALID_KEY);
    const auto record = makeRecord(recordOf(1, u32(SERIAL, 1)));
    EXPECT_EQ(table.getIndexOfRecord(*record), CSnmpTableBase::INVALID_KEY);
    EXPECT_EQ(table.preGetRspCell(*record), 0);
    EXPECT_TRUE(table.queryRecordValidation(*record));
    EXPECT_FALSE(table.queryRecordValidation(*makeRecord(recordOf(1))));
    EXPECT_TRUE(table.checkOKBeforeQueryTable(CVRX_SnmpContext()));
    CTLVRecordV3 row(1, CTLVRecordV3::DEFAULT_BUCKETS);
    table.fillRspRecord(*record, &row);
    EXPECT_EQ(row.count(), 0U);
}

}  // namespace
