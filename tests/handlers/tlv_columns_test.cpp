#include "handlers/tlv_columns.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

#include "tests/fake_host/fake_host.h"

using namespace handlers;
using namespace tlv;

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
