#include "vrxpub/record_access.h"

#include <gtest/gtest.h>

#include "module/vrx_exception.h"

namespace {

std::string textOfCell(const CTLVCell& cell) {
    return {reinterpret_cast<const char*>(cell.data()), cell.length()};
}

TEST(RecordAccess, NumbersAreWrittenLittleEndian) {
    CTLVCell cell;
    tlv::setUint32(cell, 5, 0x01020304u);
    EXPECT_EQ(cell.tag(), 5);
    EXPECT_EQ(cell.type(), CTLVCell::TLV_TYPE_UINT);
    EXPECT_EQ(textOfCell(cell), "\x04\x03\x02\x01");
    tlv::setUint64(cell, 6, 0x0102030405060708ull);
    EXPECT_EQ(cell.tag(), 6);
    EXPECT_EQ(cell.type(), CTLVCell::TLV_TYPE_UINT);
    EXPECT_EQ(textOfCell(cell), "\x08\x07\x06\x05\x04\x03\x02\x01");
    tlv::setInt32(cell, 7, -2);
    EXPECT_EQ(cell.tag(), 7);
    EXPECT_EQ(cell.type(), CTLVCell::TLV_TYPE_INT);
    EXPECT_EQ(textOfCell(cell), "\xFE\xFF\xFF\xFF");
}

TEST(RecordAccess, CellsAreAppendedInOrder) {
    CTLVRecordV3 record(1, CTLVRecordV3::DEFAULT_BUCKETS);
    tlv::appendUint64(record, 2, 1ull << 40);
    tlv::appendUint32(record, 1, 7);
    tlv::appendText(record, 3, "abc");
    ASSERT_EQ(record.count(), 3u);
    const CTLVRecordV3::Position first = record.begin();
    EXPECT_EQ(CTLVRecordV3::cellAt(first).tag(), 2);
    EXPECT_EQ(CTLVRecordV3::cellAt(first).length(), 8);
    EXPECT_EQ(CTLVRecordV3::cellAt(first->next_).tag(), 1);
    EXPECT_EQ(CTLVRecordV3::cellAt(first->next_).length(), 4);
    EXPECT_EQ(textOfCell(record[3]), std::string("abc\0", 4));
    EXPECT_EQ(record[3].type(), CTLVCell::TLV_TYPE_STRING);
}

TEST(RecordAccess, ReadingChecksTheKindOfTheCell) {
    CTLVRecordV3 record(1, CTLVRecordV3::DEFAULT_BUCKETS);
    tlv::appendUint32(record, 1, 7);
    tlv::appendUint64(record, 2, 1ull << 40 | 5);
    tlv::appendText(record, 3, "abc");
    record.appendNew([](CTLVCell& cell) { cell.set_i(CTLVCell::TLV_TYPE_OCTETS, 4, "x", 1); });
    EXPECT_EQ(tlv::uint32Of(record, 1), 7u);
    EXPECT_EQ(tlv::uint64Of(record, 1), 7u);
    EXPECT_EQ(tlv::uint32Of(record, 2), 5u);
    EXPECT_EQ(tlv::uint64Of(record, 2), 1ull << 40 | 5);
    EXPECT_EQ(tlv::textOf(record, 3), "abc");
    EXPECT_THROW((void)tlv::uint32Of(record, 3), CVRX_Exception);
    EXPECT_THROW((void)tlv::uint32Of(record, 9), CVRX_Exception);
    EXPECT_THROW((void)tlv::uint64Of(record, 4), CVRX_Exception);
    EXPECT_THROW((void)tlv::uint64Of(record, 9), CVRX_Exception);
    EXPECT_THROW((void)tlv::textOf(record, 1), CVRX_Exception);
    EXPECT_THROW((void)tlv::textOf(record, 4), CVRX_Exception);
    EXPECT_THROW((void)tlv::textOf(record, 9), CVRX_Exception);
}

}  // namespace
