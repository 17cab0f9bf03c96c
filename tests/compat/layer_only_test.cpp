// What the project's own value types promise where releases of the installed libraries differ or write out of bounds.
#include <agent_pp/snmp_pp_ext.h>
#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

using namespace Snmp_pp;
using Agentpp::Oidx;

namespace {

TEST(LayerOnly, SubIdentifiersKeepTheirLow32Bits) {
    EXPECT_STREQ(Oid("1.4294967297").get_printable(), "1.1");
    EXPECT_STREQ(Oid("99999999999999999999999999").get_printable(), "3825205247");
}

TEST(LayerOnly, OidxPrintsTheNumberItWasGiven) {
    Oidx oid("1.3");
    EXPECT_STREQ(oid.get_printable(), "1.3");
    oid = SmiUINT32(5);
    EXPECT_STREQ(oid.get_printable(), "5");
}

TEST(LayerOnly, NumbersKeepTheirLow32Bits) {
    EXPECT_STREQ(Gauge32(static_cast<SmiUINT32>(-1)).get_printable(), "4294967295");
    EXPECT_STREQ(SnmpUInt32(ULONG_MAX).get_printable(), "4294967295");
    EXPECT_STREQ(Gauge32(4294967296UL).get_printable(), "0");
    EXPECT_STREQ(SnmpInt32(4294967295L).get_printable(), "-1");
}

TEST(LayerOnly, GaugeTakesTheBitsOfANegativeInteger) {
    Gauge32 gauge;
    static_cast<SnmpSyntax&>(gauge) = static_cast<const SnmpSyntax&>(SnmpInt32(-1));
    EXPECT_STREQ(gauge.get_printable(), "4294967295");
}

TEST(LayerOnly, Counter64IsMadeFromOneNumberAndGivesIt) {
    const Counter64 counter(18446744073709551615ULL);
    EXPECT_EQ(counter.high(), 4294967295UL);
    EXPECT_EQ(static_cast<pp_uint64>(counter), 18446744073709551615ULL);
}

TEST(LayerOnly, Counter64WordsAreMasked) {
    EXPECT_STREQ(Counter64(0x100000001UL, 0x100000002UL).get_printable(), "4294967298");
}

TEST(LayerOnly, OctetsCanBeAppendedToThemselves) {
    OctetStr octets("ab");
    const OctetStr& same = octets;
    octets += same;
    EXPECT_STREQ(octets.get_printable(), "abab");
}

TEST(LayerOnly, HexFormOfAnEmptyValueIsEmpty) {
    EXPECT_STREQ(OctetStr().get_printable_hex(), "");
}

TEST(LayerOnly, WholeComparisonNeedsNoLength) {
    EXPECT_EQ(Oid("1.3").nCompare(Oid("1.3.1")), -1);
    EXPECT_EQ(Oid("1.3").nCompare(Oid("1.3")), 0);
}

TEST(LayerOnly, StringWithoutItsCount) {
    EXPECT_STREQ(Oidx("3.97.98.99").as_string(true).get_printable(), "abc");
    EXPECT_STREQ(Oidx("97.98").as_string(true).get_printable(), "ab");
}

TEST(LayerOnly, BytesAreCutAtTheCapacity) {
    Vb vb(Oid("1.3"));
    vb.set_value("abcdef");
    unsigned char bytes[4] = {'x', 'x', 'x', 'x'};
    unsigned long length = 0;
    EXPECT_EQ(vb.get_value(bytes, length, 3), SNMP_CLASS_SUCCESS);
    EXPECT_EQ(length, 3U);
    EXPECT_EQ(std::string(bytes, bytes + 4), "abcx");
}

TEST(LayerOnly, ZeroByteTakesTheLastPlaceOfAFullBuffer) {
    Vb vb(Oid("1.3"));
    vb.set_value("abcdef");
    unsigned char bytes[4] = {'x', 'x', 'x', 'x'};
    unsigned long length = 0;
    EXPECT_EQ(vb.get_value(bytes, length, 3, true), SNMP_CLASS_SUCCESS);
    EXPECT_EQ(length, 3U);
    EXPECT_EQ(std::string(bytes, bytes + 4), std::string("ab\0x", 4));
}

TEST(LayerOnly, BytesOfAnotherTypeAreOneZeroByte) {
    Vb vb(Oid("1.3"));
    vb.set_value(5);
    unsigned char bytes[2] = {'x', 'x'};
    unsigned long length = 7;
    EXPECT_EQ(vb.get_value(bytes, length), SNMP_CLASS_INVALID);
    EXPECT_EQ(length, 0U);
    EXPECT_EQ(bytes[0], 0);
}

TEST(LayerOnly, SixtyFourBitValueComesFromACounter64Only) {
    Vb vb(Oid("1.3"));
    vb.set_value(Counter64(1, 2));
    pp_uint64 value = 0;
    EXPECT_EQ(vb.get_value(value), SNMP_CLASS_SUCCESS);
    EXPECT_EQ(value, 4294967298ULL);
    vb.set_value(Gauge32(3));
    EXPECT_EQ(vb.get_value(value), SNMP_CLASS_INVALID);
    EXPECT_EQ(value, 4294967298ULL);
}

TEST(LayerOnly, TextThatIsNoAddressIsInvalid) {
    const IpAddress address("1.2.3.400");
    EXPECT_FALSE(address.valid());
    EXPECT_STREQ(address.get_printable(), "");
}

// What the installed library refuses to compile is refused here too.
template <typename Left, typename Right, typename = void>
struct CanAdd : std::false_type {};
template <typename Left, typename Right>
struct CanAdd<Left, Right, std::void_t<decltype(std::declval<Left>() + std::declval<Right>())>> : std::true_type {};

TEST(LayerOnly, OffersNothingThatTheLibraryLacks) {
    EXPECT_FALSE((std::is_constructible_v<Oid, std::string>));
    EXPECT_FALSE((std::is_assignable_v<Oid&, std::string>));
    EXPECT_FALSE((CanAdd<Oid, unsigned int>::value));
    EXPECT_TRUE((CanAdd<Oidx, const char*>::value));
    EXPECT_FALSE((std::is_constructible_v<OctetStr, std::string>));
    EXPECT_FALSE((std::is_constructible_v<OctetStr, const char*, unsigned int>));
    EXPECT_FALSE((std::is_convertible_v<OctetStr, const char*>));
    EXPECT_FALSE((CanAdd<OctetStr, const char*>::value));
    EXPECT_FALSE((std::is_polymorphic_v<Agentpp::Vbx>));
    EXPECT_EQ(sizeof(Agentpp::Vbx), sizeof(Vb));
    EXPECT_EQ(sizeof(Oidx), sizeof(Oid));
}

TEST(LayerOnly, CopiesOfASharedValueCanBePrintedByManyThreads) {
    const Oid shared("1.3.6.1.4.1.99871");
    std::vector<std::thread> threads;
    std::vector<std::string> texts(4);
    for (std::string& text : texts) {
        threads.emplace_back([&shared, &text] {
            const Oid copy(shared);
            text = copy.get_printable();
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(texts, std::vector<std::string>(4, "1.3.6.1.4.1.99871"));
}

}  // namespace
