#include <gtest/gtest.h>
#include <snmp_pp/vb.h>

#include <cstdint>
#include <memory>

using namespace Snmp_pp;

namespace {

TEST(SnmpInt32, DefaultIsZeroAndValid) {
    const SnmpInt32 number;
    EXPECT_TRUE(number.valid());
    EXPECT_EQ(static_cast<long>(number), 0);
    EXPECT_STREQ(number.get_printable(), "0");
    EXPECT_EQ(number.get_syntax(), SmiUINT32(0x02));
}

TEST(SnmpInt32, PrintsItsWholeRange) {
    EXPECT_STREQ(SnmpInt32(-1).get_printable(), "-1");
    EXPECT_STREQ(SnmpInt32(INT32_MIN).get_printable(), "-2147483648");
    EXPECT_STREQ(SnmpInt32(INT32_MAX).get_printable(), "2147483647");
}

TEST(SnmpInt32, AssignmentReplacesThePrintedText) {
    SnmpInt32 number(5);
    EXPECT_STREQ(number.get_printable(), "5");
    number = -6;
    EXPECT_STREQ(number.get_printable(), "-6");
    number.clear();
    EXPECT_STREQ(number.get_printable(), "0");
}

TEST(SnmpUInt32, DefaultIsZeroAndValid) {
    const SnmpUInt32 number;
    EXPECT_TRUE(number.valid());
    EXPECT_STREQ(number.get_printable(), "0");
    EXPECT_EQ(number.get_syntax(), SmiUINT32(0x42));
}

TEST(SnmpUInt32, PrintsItsWholeRange) {
    EXPECT_STREQ(SnmpUInt32(UINT32_MAX).get_printable(), "4294967295");
}

TEST(Gauge32, SharesItsSyntaxWithUnsigned32) {
    EXPECT_EQ(Gauge32().get_syntax(), SmiUINT32(0x42));
    EXPECT_STREQ(Gauge32(UINT32_MAX).get_printable(), "4294967295");
}

TEST(Gauge32, ComparesWithNumbers) {
    EXPECT_TRUE(Gauge32(5) == 5U);
    EXPECT_FALSE(Gauge32(5) == 6U);
}

TEST(Gauge32, TakesANumber) {
    Gauge32 number;
    number = 7;
    EXPECT_STREQ(number.get_printable(), "7");
    const Gauge32 copy(number);
    number = 8;
    EXPECT_STREQ(copy.get_printable(), "7");
}

TEST(Counter32, HasItsOwnSyntax) {
    EXPECT_EQ(Counter32().get_syntax(), SmiUINT32(0x41));
    EXPECT_STREQ(Counter32(9).get_printable(), "9");
}

template <typename Target, typename Source>
void expectTakesOver() {
    Target target(7);
    static_cast<SnmpSyntax&>(target) = static_cast<const SnmpSyntax&>(Source(5));
    EXPECT_TRUE(target.valid());
    EXPECT_STREQ(target.get_printable(), "5");
}

TEST(Numbers, TakeOneAnothersValueThroughTheBase) {
    expectTakesOver<SnmpInt32, Gauge32>();
    expectTakesOver<SnmpInt32, Counter32>();
    expectTakesOver<SnmpInt32, SnmpUInt32>();
    expectTakesOver<SnmpInt32, SnmpInt32>();
    expectTakesOver<Gauge32, SnmpInt32>();
    expectTakesOver<Gauge32, TimeTicks>();
    expectTakesOver<Counter32, SnmpInt32>();
}

TEST(Numbers, AreInvalidWithoutTextAfterTakingOverAnotherType) {
    Gauge32 gauge(5);
    SnmpInt32 integer(5);
    static_cast<SnmpSyntax&>(gauge) = static_cast<const SnmpSyntax&>(OctetStr("5"));
    static_cast<SnmpSyntax&>(integer) = static_cast<const SnmpSyntax&>(Oid("1.3"));
    EXPECT_FALSE(gauge.valid());
    EXPECT_STREQ(gauge.get_printable(), "");
    EXPECT_FALSE(integer.valid());
    EXPECT_STREQ(integer.get_printable(), "");
}

TEST(Numbers, ClonesKeepTheirClass) {
    const std::unique_ptr<SnmpSyntax> gauge(Gauge32(1).clone());
    const std::unique_ptr<SnmpSyntax> counter(Counter32(2).clone());
    const std::unique_ptr<SnmpSyntax> integer(SnmpInt32(-3).clone());
    EXPECT_EQ(gauge->get_syntax(), SmiUINT32(0x42));
    EXPECT_EQ(counter->get_syntax(), SmiUINT32(0x41));
    EXPECT_EQ(integer->get_syntax(), SmiUINT32(0x02));
    EXPECT_STREQ(integer->get_printable(), "-3");
}

}  // namespace
