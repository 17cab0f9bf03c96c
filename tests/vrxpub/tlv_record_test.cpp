#include "vrxpub/vrx_tlv_record.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <cstdint>
#include <type_traits>

#include "ace_log_capture.h"
#include "module/vrx_exception.h"
#include "wire_bytes.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;

// One test asks for an index that cannot be: the sanitizers must answer as malloc does.
// NOLINTBEGIN(bugprone-reserved-identifier): the names are the sanitizers' own
extern "C" const char* __asan_default_options() {
    return "allocator_may_return_null=1";
}
extern "C" const char* __tsan_default_options() {
    return "allocator_may_return_null=1";
}
// NOLINTEND(bugprone-reserved-identifier)

namespace {

void appendNumber(CTLVRecordV3& record, unsigned short tag, unsigned char value) {
    append(record, makeCell(CTLVCell::TLV_TYPE_UINT, tag, {value}));
}

unsigned char valueAt(CTLVRecordV3::Position position) {
    return *CTLVRecordV3::cellAt(position).data();
}

std::vector<unsigned short> tagsOf(const CTLVRecordV3& record) {
    std::vector<unsigned short> tags;
    for (auto p = record.begin(); p != record.end(); p = p->next_) tags.push_back(CTLVRecordV3::cellAt(p).tag());
    return tags;
}

// Short records are searched along their list, long ones by their index: the parameter is the number of further cells,
// none of which has a tag that a test asks for.
class RecordSearch : public ::testing::TestWithParam<unsigned short> {
protected:
    RecordSearch() {
        for (unsigned short i = 0; i < GetParam(); ++i) appendNumber(m_record, static_cast<unsigned short>(100 + i), 0);
    }

    CTLVRecordV3 m_record{1, 32};
};

}  // namespace

INSTANTIATE_TEST_SUITE_P(TlvRecord, RecordSearch, ::testing::Values(0, 30, 31, 32, 100),
                         ::testing::PrintToStringParamName());

TEST(TlvRecord, CellsInAndBeyondItsRoomStandInTheOrderOfTheirInsertion) {
    const auto record = CTLVRecordV3::withRoom(7, 32, 2, 10);
    const auto set = [](unsigned short tag, const char* text) {
        return [tag, text](CTLVCell& cell) { cell.set(tag, text); };
    };
    for (int round = 0; round < 2; ++round) {
        record->appendNew(set(1, "text of 18 letters"));  // too long for the room
        appendNumber(*record, 2, 7);
        record->appendNew(set(3, "text of 9"));
        record->appendNew(set(4, "the room has no place"));
        EXPECT_THAT(tagsOf(*record), ElementsAre(1, 2, 3, 4));
        EXPECT_EQ(record->length(), (4 + 19) + (4 + 1) + (4 + 10) + (4 + 22U));
        EXPECT_EQ((*record)[1].toString(), "text of 18 letters");
        EXPECT_EQ((*record)[3].toString(), "text of 9");
        EXPECT_EQ((*record)[4].toString(), "the room has no place");
        (*record)[3].set(3, "now it is longer than before");
        (*record)[1].set(1, "short");
        EXPECT_EQ((*record)[3].toString(), "now it is longer than before");
        EXPECT_EQ((*record)[1].toString(), "short");
        EXPECT_EQ(record->length(), (4 + 6) + (4 + 1) + (4 + 29) + (4 + 22U));
        record->clear();
        EXPECT_THAT(tagsOf(*record), IsEmpty());
        EXPECT_EQ(record->length(), 0U);
    }
}

TEST(TlvRecord, ACellThatCannotBeSetIsNotAdded) {
    for (const unsigned int room : {0U, 2U}) {
        const auto record = CTLVRecordV3::withRoom(7, 32, room, 100);
        const auto fail = [](CTLVCell& cell) {
            cell.set(1, "a text that is set before");
            throw CVRX_Exception("no value");
        };
        EXPECT_THROW(record->appendNew(fail), CVRX_Exception) << room;
        EXPECT_EQ(record->count(), 0U) << room;
        EXPECT_EQ(record->length(), 0U) << room;
        record->appendNew([](CTLVCell& cell) { cell.set(2, "next"); });
        EXPECT_THAT(tagsOf(*record), ElementsAre(2)) << room;
        EXPECT_EQ(record->length(), 4 + 5U) << room;
    }
}

TEST(TlvRecord, TagOfACellInTheRoomIsTheOneThatItWasAppendedWith) {
    const auto record = CTLVRecordV3::withRoom(7, 32, 1, 0);
    record->appendNew([](CTLVCell& cell) { cell.set(1, "a"); });
    (*record)[1].setTag(2);
    EXPECT_TRUE(record->has(1));
    EXPECT_FALSE(record->has(2));
}

// A cell that is appended while another one is made gets a place of its own, and stands before it.
TEST(TlvRecord, CellsMayBeAppendedWhileAnotherIsMade) {
    for (const unsigned int room : {0U, 1U, 2U, 3U, 4U}) {
        const auto record = CTLVRecordV3::withRoom(7, 32, room, 100);
        record->appendNew([&record](CTLVCell& outer) {
            outer.set(1, "outer value");
            record->appendNew([&record](CTLVCell& middle) {
                record->appendNew([](CTLVCell& inner) { inner.set(3, "inner value"); });
                middle.set(2, "middle value");
            });
            outer.set(1, "outer value, at last");
        });
        record->appendNew([](CTLVCell& cell) { cell.set(4, "next"); });
        EXPECT_THAT(tagsOf(*record), ElementsAre(3, 2, 1, 4)) << room;
        EXPECT_EQ((*record)[1].toString(), "outer value, at last") << room;
        EXPECT_EQ((*record)[2].toString(), "middle value") << room;
        EXPECT_EQ((*record)[3].toString(), "inner value") << room;
        EXPECT_EQ(record->length(), (4 + 21) + (4 + 13) + (4 + 12) + (4 + 5U)) << room;
    }
}

TEST(TlvRecord, CellAppendedWhileAnotherFailsStays) {
    for (const unsigned int room : {0U, 1U, 2U, 3U}) {
        const auto record = CTLVRecordV3::withRoom(7, 32, room, 100);
        EXPECT_THROW(record->appendNew([&record](CTLVCell& outer) {
            outer.set(1, "outer value");
            record->appendNew([](CTLVCell& inner) { inner.set(2, "inner value"); });
            throw CVRX_Exception("no value");
        }),
                     CVRX_Exception);
        record->appendNew([](CTLVCell& cell) { cell.set(3, "next value"); });
        record->appendNew([](CTLVCell& cell) { cell.set(4, "last value"); });
        EXPECT_THAT(tagsOf(*record), ElementsAre(2, 3, 4)) << room;
        EXPECT_EQ((*record)[2].toString(), "inner value") << room;
        EXPECT_EQ((*record)[3].toString(), "next value") << room;
        EXPECT_EQ((*record)[4].toString(), "last value") << room;
        EXPECT_EQ(record->length(), (4 + 12) + 2 * (4 + 11U)) << room;
        record->clear();
        EXPECT_EQ(record->length(), 0U);
    }
}

TEST(TlvRecord, IsNotCopyable) {
    EXPECT_FALSE(std::is_copy_constructible_v<CTLVRecordV3>);
    EXPECT_FALSE(std::is_copy_assignable_v<CTLVRecordV3>);
}

TEST(TlvRecord, NewRecordHasItsIdentifierAndNoCells) {
    const CTLVRecordV3 record(CTLVRecordV3::NO_IDENTIFIER, 32);
    EXPECT_EQ(record.identifier(), 0xFFFFFFFFFFFFFFFF);
    EXPECT_EQ(record.count(), 0U);
    EXPECT_EQ(record.length(), 0U);
    EXPECT_EQ(record.begin(), record.end());
}

TEST(TlvRecord, CellsKeepTheOrderOfInsertion) {
    CTLVRecordV3 record(1, 32);
    for (const unsigned short tag : std::vector<unsigned short>{12, 8, 4095, 0, 1}) appendNumber(record, tag, 1);
    EXPECT_THAT(tagsOf(record), ElementsAre(12, 8, 4095, 0, 1));
    EXPECT_EQ(record.count(), 5U);
}

TEST(TlvRecord, LengthIsFourBytesAndTheValueForEachCell) {
    CTLVRecordV3 record(1, 32);
    append(record, makeCell(CTLVCell::TLV_TYPE_UINT, 1, Bytes(4, 0)));
    append(record, makeCell(CTLVCell::TLV_TYPE_STRING, 2, {}));
    append(record, makeCell(CTLVCell::TLV_TYPE_OCTETS, 3, Bytes(100, 7)));
    EXPECT_EQ(record.length(), (4U + 4) + (4 + 0) + (4 + 100));
}

TEST(TlvRecord, LengthBeyond65535IsNotCut) {
    CTLVRecordV3 record(1, 32);
    append(record, makeCell(CTLVCell::TLV_TYPE_OCTETS, 3, Bytes(65535, 7)));
    append(record, makeCell(CTLVCell::TLV_TYPE_OCTETS, 3, Bytes(65535, 7)));
    EXPECT_EQ(record.length(), 2U * (4 + 65535));
}

TEST(TlvRecord, LengthFollowsValuesThatAreReplaced) {
    CTLVRecordV3 record(1, 32);
    appendNumber(record, 1, 5);
    appendNumber(record, 2, 5);
    record[1].set(1, "a text that needs memory of its own");
    EXPECT_EQ(record.length(), 4U + 36 + 4 + 1);
    record[1].set_i(CTLVCell::TLV_TYPE_NONE, 1, nullptr, 0);
    EXPECT_EQ(record.length(), 4U + 4 + 1);
    record.clear();
    EXPECT_EQ(record.length(), 0U);
}

TEST_P(RecordSearch, AbsentTagIsEndAndENOENT) {
    appendNumber(m_record, 5, 1);
    for (const unsigned short tag : std::vector<unsigned short>{6, 37, 4101}) {
        errno = 0;
        EXPECT_EQ(m_record.find(tag), m_record.end()) << tag;
        EXPECT_EQ(errno, ENOENT) << tag;
        EXPECT_FALSE(m_record.has(tag));
    }
}

TEST_P(RecordSearch, TagsOfOneBucketAreEachFound) {
    appendNumber(m_record, 5, 50);
    appendNumber(m_record, 37, 51);
    EXPECT_EQ(valueAt(m_record.find(5)), 50);
    EXPECT_EQ(valueAt(m_record.find(37)), 51);
}

TEST_P(RecordSearch, FoundTagLeavesErrnoAlone) {
    appendNumber(m_record, 5, 50);
    errno = EINTR;
    EXPECT_NE(m_record.find(5), m_record.end());
    EXPECT_NE(m_record.find(5), m_record.end());
    EXPECT_EQ(errno, EINTR);
}

TEST_P(RecordSearch, CellAppendedAfterASearchIsFound) {
    EXPECT_FALSE(m_record.has(5));
    appendNumber(m_record, 5, 50);
    EXPECT_TRUE(m_record.has(5));
    appendNumber(m_record, 37, 51);
    EXPECT_EQ(valueAt(m_record.find(37)), 51);
    EXPECT_EQ(valueAt(m_record.find(5)), 50);
}

TEST_P(RecordSearch, RepeatedTagFindsItsFirstCellAndKeepsBoth) {
    appendNumber(m_record, 5, 1);
    appendNumber(m_record, 5, 2);
    EXPECT_EQ(valueAt(m_record.find(5)), 1);
    appendNumber(m_record, 5, 3);
    EXPECT_EQ(valueAt(m_record.find(5)), 1);
    EXPECT_EQ(m_record.count(), GetParam() + 3U);
}

// The index knows a cell by the tag that it was appended with; short records are searched alike.
TEST_P(RecordSearch, TagIsTheOneThatTheCellWasAppendedWith) {
    appendNumber(m_record, 5, 50);
    appendNumber(m_record, 7, 70);
    EXPECT_TRUE(m_record.has(5));
    m_record[5].setTag(6);
    m_record[7].set(8, "text");
    appendNumber(m_record, 6, 60);
    EXPECT_EQ(valueAt(m_record.find(5)), 50);
    EXPECT_EQ(valueAt(m_record.find(6)), 60);
    EXPECT_EQ(m_record[7].toString(), "text");
    EXPECT_FALSE(m_record.has(8));
    EXPECT_EQ(m_record[5].tag(), 6);
}

TEST_P(RecordSearch, ClearEmptiesListAndIndex) {
    appendNumber(m_record, 5, 50);
    EXPECT_TRUE(m_record.has(5));
    m_record.clear();
    EXPECT_EQ(m_record.count(), 0U);
    EXPECT_EQ(m_record.length(), 0U);
    EXPECT_FALSE(m_record.has(5));
    EXPECT_EQ(m_record.identifier(), 1U);
    for (unsigned short i = 0; i < GetParam(); ++i) appendNumber(m_record, static_cast<unsigned short>(100 + i), 0);
    EXPECT_FALSE(m_record.has(5));
    appendNumber(m_record, 5, 60);
    EXPECT_EQ(valueAt(m_record.find(5)), 60);
}

TEST(TlvRecord, EmptyRecordFindsNothing) {
    const CTLVRecordV3 record(1, 32);
    errno = 0;
    EXPECT_EQ(record.find(5), record.end());
    EXPECT_EQ(errno, ENOENT);
}

TEST(TlvRecord, EveryTagIsFound) {
    for (const unsigned long buckets : {1UL, 31UL, 32UL, 33UL, 4096UL}) {
        CTLVRecordV3 record(1, buckets);
        for (unsigned short tag = 0; tag < 4096; ++tag) appendNumber(record, tag, static_cast<unsigned char>(tag));
        for (unsigned short tag = 0; tag < 4096; ++tag) {
            ASSERT_EQ(CTLVRecordV3::cellAt(record.find(tag)).tag(), tag) << buckets;
        }
    }
}

TEST(TlvRecord, SubscriptGivesTheCell) {
    CTLVRecordV3 record(1, 32);
    appendNumber(record, 5, 1);
    CTLVRecordV3 other(1, 32);
    auto adopted = makeCell(CTLVCell::TLV_TYPE_UINT, 6, {2});
    const CTLVCell* const address = adopted.get();
    append(other, std::move(adopted));
    EXPECT_EQ(&other[6], address);
    EXPECT_EQ(record[5].tag(), 5);
}

TEST(TlvRecord, SubscriptOfAbsentTagThrowsAndNamesIt) {
    const CTLVRecordV3 record(1, 32);
    try {
        (void)record[4095];
        FAIL() << "nothing thrown";
    } catch (const CVRX_Exception& e) {
        EXPECT_STREQ(e.what(), "CVRX_Exception: record has no cell, tag equal to 4095");
    }
}

TEST(TlvRecord, NullCellIsRefused) {
    CTLVRecordV3 record(1, 32);
    EXPECT_THROW(record.append(nullptr), CVRX_Exception);
    EXPECT_EQ(record.count(), 0U);
}

// 0 buckets, the first count that no address space holds and a larger one, and counts whose table size in bytes wraps
// to a small number.
TEST(TlvRecord, WithoutUsableIndexLogsAndFindsNothing) {
    const unsigned long tooMany = SIZE_MAX / 32 + 1;
    for (const unsigned long buckets : {0UL, (1UL << 47) / 32 + 1, 1UL << 55, tooMany, tooMany + 1, ~0UL}) {
        const AceLogCapture log;
        CTLVRecordV3 record(1, buckets);
        EXPECT_THAT(log.errors(), ElementsAre("ACE_Hash_Map_Manager_Ex\n")) << buckets;
        for (unsigned short tag = 0; tag < 100; ++tag) {
            appendNumber(record, tag, 1);
            errno = 0;
            EXPECT_EQ(record.find(tag), record.end()) << tag;
            EXPECT_EQ(errno, ENOENT) << tag;
        }
        EXPECT_THROW((void)record[5], CVRX_Exception);
        EXPECT_EQ(tagsOf(record).size(), 100U);
        EXPECT_EQ(record.length(), 500U);
        record.clear();
        EXPECT_EQ(record.count(), 0U);
    }
}

TEST(TlvRecord, UsableIndexLogsNothing) {
    const AceLogCapture log;
    for (const unsigned long buckets : {1UL, 32UL, 33UL}) {
        CTLVRecordV3 record(1, buckets);
        for (unsigned short tag = 0; tag < 100; ++tag) appendNumber(record, tag, 1);
        EXPECT_TRUE(record.has(5));
    }
    EXPECT_THAT(log.errors(), IsEmpty());
}

TEST(TlvRecord, DumpShowsIdentifierAndCellsInOrder) {
    CTLVRecordV3 record(CTLVRecordV3::NO_IDENTIFIER, 32);
    append(record, makeCell(CTLVCell::TLV_TYPE_STRING, 7, {'S', 'N', 'M', 'P', 0}));
    append(record, makeCell(CTLVCell::TLV_TYPE_UINT, 3, {42, 0, 0, 0}));
    append(record, makeCell(CTLVCell::TLV_TYPE_INT, 4, {0xFE, 0xFF}));
    append(record, makeCell(CTLVCell::TLV_TYPE_OCTETS, 5, {0x00, 0xAF}));
    append(record, makeCell(CTLVCell::TLV_TYPE_NONE, 6, {}));
    append(record, makeCell(static_cast<CTLVCell::ETLVType>(9), 8, Bytes(9, 0x10)));
    std::ostringstream os;
    os << std::hex;  // a caller's flags change nothing
    record.dump(os);
    EXPECT_EQ(os.str(),
              "record 18446744073709551615: 6 cells, 46 bytes\n"
              "  tag 7 type 2 length 5: \"SNMP\"\n"
              "  tag 3 type 3 length 4: 42\n"
              "  tag 4 type 4 length 2: -2\n"
              "  tag 5 type 1 length 2: 00 AF\n"
              "  tag 6 type 0 length 0: \n"
              "  tag 8 type 9 length 9: 10 10 10 10 10 10 10 10 10\n");
}
