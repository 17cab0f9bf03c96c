#include <gtest/gtest.h>
#include <snmp_pp/vb.h>

#include <cstdint>

using namespace Snmp_pp;

namespace {

TEST(Counter64, PrintsInDecimal) {
    EXPECT_STREQ(Counter64().get_printable(), "0");
    EXPECT_STREQ(Counter64(0, 4294967295UL).get_printable(), "4294967295");
    EXPECT_STREQ(Counter64(1, 0).get_printable(), "4294967296");
    EXPECT_STREQ(Counter64(1, 2).get_printable(), "4294967298");
    EXPECT_STREQ(Counter64(0xF0001, 0x150006).get_printable(), "4222128947003398");
    EXPECT_STREQ(Counter64(4294967295UL, 4294967295UL).get_printable(), "18446744073709551615");
}

TEST(Counter64, GivesItsWords) {
    const Counter64 counter(0xF0001, 0x150006);
    EXPECT_EQ(counter.high(), 0xF0001U);
    EXPECT_EQ(counter.low(), 0x150006U);
    EXPECT_EQ((static_cast<std::uint64_t>(counter.high()) << 32U) | counter.low(), 4222128947003398ULL);
}

TEST(Counter64, WordsCanBeSet) {
    Counter64 counter(1, 2);
    counter.set_high(3);
    counter.set_low(4);
    EXPECT_EQ(counter.high(), 3U);
    EXPECT_EQ(counter.low(), 4U);
    EXPECT_STREQ(counter.get_printable(), "12884901892");
}

TEST(Counter64, IsAlwaysValid) {
    Counter64 counter(1, 2);
    EXPECT_TRUE(counter.valid());
    counter.clear();
    EXPECT_TRUE(counter.valid());
    EXPECT_STREQ(counter.get_printable(), "0");
    EXPECT_EQ(counter.get_syntax(), SmiUINT32(0x46));
}

}  // namespace
