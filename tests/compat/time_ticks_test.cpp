#include <gtest/gtest.h>
#include <snmp_pp/timetick.h>

#include <cstdint>
#include <memory>

using namespace Snmp_pp;

namespace {

TEST(TimeTicks, PrintsHundredthsOfASecond) {
    EXPECT_STREQ(TimeTicks(0).get_printable(), "0:00:00.00");
    EXPECT_STREQ(TimeTicks(100).get_printable(), "0:00:01.00");
}

TEST(TimeTicks, PrintsOneDayWithoutAComma) {
    EXPECT_STREQ(TimeTicks(8640000).get_printable(), "1 day 0:00:00.00");
}

TEST(TimeTicks, PrintsSeveralDaysWithAComma) {
    EXPECT_STREQ(TimeTicks(17280001).get_printable(), "2 days, 0:00:00.01");
    EXPECT_STREQ(TimeTicks(UINT32_MAX).get_printable(), "497 days, 2:27:52.95");
}

TEST(TimeTicks, HasItsOwnSyntaxAlsoAsAClone) {
    const TimeTicks ticks(100);
    EXPECT_EQ(ticks.get_syntax(), SmiUINT32(0x43));
    const std::unique_ptr<SnmpSyntax> clone(ticks.clone());
    EXPECT_STREQ(clone->get_printable(), "0:00:01.00");
}

}  // namespace
