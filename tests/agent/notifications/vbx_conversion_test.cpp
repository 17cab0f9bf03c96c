#include "host/agent/notifications/vbx_conversion.h"

#include <gtest/gtest.h>

namespace vrx {

namespace {

Notification convert(const Agentpp::Vbx& binding, int& leftOut) {
    return trapOf(Snmp_pp::Oid("1.3.6.1.9.0.7"), &binding, 1, leftOut);
}

SnmpValue convertValue(const Snmp_pp::SnmpSyntax& value) {
    int leftOut = -1;
    const Notification trap = convert(Agentpp::Vbx(Snmp_pp::Oid("1.3.6.1"), value), leftOut);
    EXPECT_EQ(leftOut, 0);
    EXPECT_EQ(trap.bindings.size(), 1U);
    return trap.bindings.empty() ? SnmpValue() : trap.bindings.front().value;
}

}  // namespace

TEST(TrapConversion, KeepsEachTypeAndValue) {
    EXPECT_EQ(convertValue(Snmp_pp::SnmpInt32(-5)).type, sNMP_SYNTAX_INT32);
    EXPECT_EQ(static_cast<std::int64_t>(convertValue(Snmp_pp::SnmpInt32(-5)).number), -5);
    EXPECT_EQ(convertValue(Snmp_pp::Gauge32(4294967295U)).type, sNMP_SYNTAX_GAUGE32);
    EXPECT_EQ(convertValue(Snmp_pp::Gauge32(4294967295U)).number, 4294967295U);
    EXPECT_EQ(convertValue(Snmp_pp::Counter32(9)).type, sNMP_SYNTAX_CNTR32);
    EXPECT_EQ(convertValue(Snmp_pp::TimeTicks(9)).type, sNMP_SYNTAX_TIMETICKS);
    EXPECT_EQ(convertValue(Snmp_pp::Counter64(0xFFFFFFFF, 0xFFFFFFFE)).type, sNMP_SYNTAX_CNTR64);
    EXPECT_EQ(convertValue(Snmp_pp::Counter64(0xFFFFFFFF, 0xFFFFFFFE)).number, 0xFFFFFFFFFFFFFFFEULL);
    EXPECT_EQ(convertValue(Snmp_pp::IpAddress("10.1.2.255")).octets, std::string("\x0A\x01\x02\xFF"));
    EXPECT_EQ(convertValue(Snmp_pp::Oid("1.3.6")).octets.size(), 3 * sizeof(oid));
}

TEST(TrapConversion, OctetsKeepZeroBytes) {
    const unsigned char bytes[] = {0, 1, 0, 255};
    const SnmpValue value = convertValue(Snmp_pp::OctetStr(bytes, sizeof bytes));
    EXPECT_EQ(value.type, sNMP_SYNTAX_OCTETS);
    EXPECT_EQ(value.octets, std::string("\0\x01\0\xFF", 4));
}

TEST(TrapConversion, AnEmptyTextIsAnEmptyOctetString) {
    Agentpp::Vbx binding(Snmp_pp::Oid("1.3.6.1"));
    binding.set_value("");
    int leftOut = 0;
    const Notification trap = convert(binding, leftOut);
    ASSERT_EQ(trap.bindings.size(), 1U);
    EXPECT_EQ(trap.bindings[0].value.type, sNMP_SYNTAX_OCTETS);
    EXPECT_EQ(trap.bindings[0].value.octets, "");
}

TEST(TrapConversion, ABindingWithoutValueBecomesNull) {
    int leftOut = 0;
    const Notification trap = convert(Agentpp::Vbx(Snmp_pp::Oid("1.3.6.1")), leftOut);
    ASSERT_EQ(trap.bindings.size(), 1U);
    EXPECT_EQ(trap.bindings[0].value.type, NO_VALUE);
    EXPECT_EQ(leftOut, 0);
}

TEST(TrapConversion, ABindingWithoutNameIsLeftOutAndCounted) {
    int leftOut = 0;
    const Notification trap = convert(Agentpp::Vbx(), leftOut);
    EXPECT_TRUE(trap.bindings.empty());
    EXPECT_EQ(leftOut, 1);
}

TEST(TrapConversion, NamesOutsideTwoTo128SubIdentifiersAreNone) {
    EXPECT_TRUE(oidOf(Snmp_pp::Oid()).empty());
    EXPECT_TRUE(oidOf(Snmp_pp::Oid("...")).empty());
    EXPECT_TRUE(oidOf(Snmp_pp::Oid("1")).empty());
    EXPECT_EQ(oidOf(Snmp_pp::Oid("1.3")), (OidVector{1, 3}));
    std::string longest = "1";
    for (int i = 1; i < 128; ++i) longest += ".2";
    EXPECT_EQ(oidOf(Snmp_pp::Oid(longest.c_str())).size(), 128U);
    EXPECT_TRUE(oidOf(Snmp_pp::Oid((longest + ".2").c_str())).empty());
}

TEST(TrapConversion, ATrapOidThatIsNoneGivesATrapWithoutOid) {
    int leftOut = 0;
    const Notification trap = trapOf(Snmp_pp::Oid("1.3.6.1.4.1.99871.2.91.10.2.1.1.None"), nullptr, 0, leftOut);
    EXPECT_TRUE(trap.oid.empty());
}

}  // namespace vrx
