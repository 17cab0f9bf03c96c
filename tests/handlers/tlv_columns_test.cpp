#include "handlers/tlv_columns.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

#include "module/vrx_exception.h"
#include "tests/fake_host/fake_host.h"

using namespace handlers;

namespace {

TEST(CommandCode, IsTheNumberAtTheStartOfTheConfiguredText) {
    FakeHost host;
    const std::pair<const char*, long long> cases[] = {
        {"12345", 12345},
        {" 7", 7},
        {"-1", -1},
        {"12abc", 12},
        {"0x10", 0},
        {"", 0},
        {"none", 0},
        {"9223372036854775807", 9223372036854775807LL},
        {"99999999999999999999", 9223372036854775807LL},
    };
    for (const auto& [configured, code] : cases) {
        host.setConfig("COMMAND", "ANY", configured);
        EXPECT_EQ(commandCode("ANY"), code) << configured;
    }
}

TEST(CommandCode, OfAMissingKeyIsZero) {
    FakeHost host;
    EXPECT_EQ(commandCode("MISSING"), 0);
}

TEST(TlvColumns, NumbersAreWrittenLittleEndian) {
    CTLVCell cell;
    setUInt32(cell, 5, 0x01020304u);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(cell.data()), cell.length()), "\x04\x03\x02\x01");
    setUInt64(cell, 5, 0x0102030405060708ull);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(cell.data()), cell.length()),
              "\x08\x07\x06\x05\x04\x03\x02\x01");
    setInt32(cell, 5, -2);
    EXPECT_EQ(cell.type(), CTLVCell::TLV_TYPE_INT);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(cell.data()), cell.length()), "\xFE\xFF\xFF\xFF");
}

TEST(TlvColumns, ReadingChecksTheKindOfTheCell) {
    const auto record = makeRecord(recordOf(1, u32(1, 7), u64(2, 1ull << 40), text(3, "abc"), octets(4, "x")));
    EXPECT_EQ(readUInt32(*record, 1), 7u);
    EXPECT_EQ(readUInt64(*record, 2), 1ull << 40);
    EXPECT_EQ(readString(*record, 3), "abc");
    EXPECT_THROW(readUInt32(*record, 3), CVRX_Exception);
    EXPECT_THROW(readUInt64(*record, 4), CVRX_Exception);
    EXPECT_THROW(readString(*record, 1), CVRX_Exception);
    EXPECT_THROW(readString(*record, 9), CVRX_Exception);
}

TEST(TlvColumns, ColumnThatThrowsLeavesTheCellsBeforeIt) {
    static constexpr tColumn<int> COLUMNS[] = {
        {1, [](CTLVCell& cell, unsigned short tag, const int& number) { setInt32(cell, tag, number); }},
        {2, [](CTLVCell&, unsigned short, const int&) { throw std::runtime_error("no value"); }},
        {3, [](CTLVCell& cell, unsigned short tag, const int& number) { setInt32(cell, tag, number); }},
    };
    const auto record = makeRow();
    EXPECT_THROW(appendColumns(*record, COLUMNS, 4), std::runtime_error);
    EXPECT_THAT(*record, RecordIs(NO_IDENTIFIER, i32(1, 4)));
}

}  // namespace
