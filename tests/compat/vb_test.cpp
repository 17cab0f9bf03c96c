#include <gtest/gtest.h>
#include <snmp_pp/vb.h>

#include <memory>
#include <string>

using namespace Snmp_pp;

namespace {

const Oid SYS_NAME("1.3.6.1.2.1.1.5.0");

void expectVb(const Vb& vb, bool valid, unsigned long syntax, const char* printed) {
    EXPECT_EQ(static_cast<bool>(vb.valid()), valid);
    EXPECT_EQ(vb.get_syntax(), syntax);
    EXPECT_STREQ(vb.get_printable_value(), printed);
}

template <typename Value>
Vb vbWith(const Value& value) {
    Vb vb(SYS_NAME);
    vb.set_value(value);
    return vb;
}

TEST(Vb, DefaultIsInvalidAndNull) {
    expectVb(Vb(), false, sNMP_SYNTAX_NULL, "");
}

TEST(Vb, OidAloneIsValidAndNull) {
    expectVb(Vb(SYS_NAME), true, sNMP_SYNTAX_NULL, "");
    Vb vb;
    vb.set_oid(SYS_NAME);
    expectVb(vb, true, sNMP_SYNTAX_NULL, "");
}

TEST(Vb, ValueWithoutOidIsInvalid) {
    Vb vb;
    vb.set_value(SnmpInt32(5));
    expectVb(vb, false, sNMP_SYNTAX_INT32, "5");
    vb.set_oid(Oid());
    expectVb(vb, false, sNMP_SYNTAX_INT32, "5");
}

TEST(Vb, TextIsAnOctetString) {
    expectVb(vbWith<const char*>("text"), true, sNMP_SYNTAX_OCTETS, "text");
    expectVb(vbWith<const char*>(""), true, sNMP_SYNTAX_OCTETS, "");
}

TEST(Vb, NullTextIsAnEmptyOctetString) {
    expectVb(vbWith<const char*>(nullptr), true, sNMP_SYNTAX_OCTETS, "");
}

TEST(Vb, BytesAreAnOctetString) {
    const unsigned char bytes[] = {'a', 0, 'b'};
    Vb vb(SYS_NAME);
    vb.set_value(bytes, 3);
    expectVb(vb, true, sNMP_SYNTAX_OCTETS, "  61 00 62                                           a.b\n");
}

TEST(Vb, SignedNumbersAreIntegers) {
    expectVb(vbWith(5), true, sNMP_SYNTAX_INT32, "5");
    expectVb(vbWith(-5), true, sNMP_SYNTAX_INT32, "-5");
    expectVb(vbWith(5L), true, sNMP_SYNTAX_INT32, "5");
    expectVb(vbWith(true), true, sNMP_SYNTAX_INT32, "1");
    expectVb(vbWith('A'), true, sNMP_SYNTAX_INT32, "65");
}

TEST(Vb, UnsignedNumbersAreUnsigned32) {
    expectVb(vbWith(5U), true, sNMP_SYNTAX_UINT32, "5");
    expectVb(vbWith(5UL), true, sNMP_SYNTAX_UINT32, "5");
}

TEST(Vb, ValuesKeepTheirType) {
    expectVb(vbWith(OctetStr("o")), true, 0x04, "o");
    expectVb(vbWith(Gauge32(1)), true, 0x42, "1");
    expectVb(vbWith(SnmpInt32(-2)), true, 0x02, "-2");
    expectVb(vbWith(SnmpUInt32(3)), true, 0x42, "3");
    expectVb(vbWith(Counter32(4)), true, 0x41, "4");
    expectVb(vbWith(Counter64(1, 2)), true, 0x46, "4294967298");
    expectVb(vbWith(TimeTicks(100)), true, 0x43, "0:00:01.00");
    expectVb(vbWith(IpAddress("1.2.3.4")), true, 0x40, "1.2.3.4");
    expectVb(vbWith(Oid("1.3.6")), true, 0x06, "1.3.6");
}

TEST(Vb, EmptyOidAsValueIsInvalid) {
    expectVb(vbWith(Oid()), false, sNMP_SYNTAX_OID, "");
}

TEST(Vb, SetNullRemovesTheValue) {
    Vb vb = vbWith(5);
    vb.set_null();
    expectVb(vb, true, sNMP_SYNTAX_NULL, "");
}

TEST(Vb, ExceptionReplacesTheValueUntilTheNextOne) {
    Vb vb(SYS_NAME);
    vb.set_exception_status(sNMP_SYNTAX_NOSUCHINSTANCE);
    expectVb(vb, true, sNMP_SYNTAX_NOSUCHINSTANCE, "");
    vb.set_value(5);
    expectVb(vb, true, sNMP_SYNTAX_INT32, "5");
}

TEST(Vb, ClearRemovesOidAndValue) {
    Vb vb = vbWith(5);
    vb.clear();
    expectVb(vb, false, sNMP_SYNTAX_NULL, "");
    EXPECT_EQ(vb.get_oid().len(), 0U);
}

TEST(Vb, KeepsACloneOfItsValue) {
    OctetStr source("before");
    const Vb vb = vbWith(source);
    source = "after";
    EXPECT_STREQ(vb.get_printable_value(), "before");
}

TEST(Vb, CopyAndAssignmentAreDeep) {
    Vb source = vbWith(OctetStr("text"));
    const Vb copy(source);
    Vb assigned;
    assigned = source;
    source.set_value(5);
    source.set_oid(Oid("1"));
    expectVb(copy, true, sNMP_SYNTAX_OCTETS, "text");
    expectVb(assigned, true, sNMP_SYNTAX_OCTETS, "text");
    EXPECT_STREQ(copy.get_printable_oid(), "1.3.6.1.2.1.1.5.0");
    EXPECT_STREQ(assigned.get_printable_oid(), "1.3.6.1.2.1.1.5.0");
}

TEST(Vb, CopyKeepsTheException) {
    Vb source(SYS_NAME);
    source.set_exception_status(sNMP_SYNTAX_ENDOFMIBVIEW);
    const Vb copy(source);
    EXPECT_EQ(copy.get_syntax(), SmiUINT32(sNMP_SYNTAX_ENDOFMIBVIEW));
}

TEST(Vb, SelfAssignmentChangesNothing) {
    Vb vb = vbWith(OctetStr("text"));
    const Vb& same = vb;
    vb = same;
    expectVb(vb, true, sNMP_SYNTAX_OCTETS, "text");
}

TEST(Vb, GivesItsOid) {
    const Vb vb(SYS_NAME);
    Oid oid;
    vb.get_oid(oid);
    EXPECT_TRUE(oid == SYS_NAME);
    EXPECT_TRUE(vb.get_oid() == SYS_NAME);
}

TEST(Vb, IntComesFromAnIntegerOnly) {
    int value = 77;
    EXPECT_EQ(vbWith(SnmpInt32(-5)).get_value(value), SNMP_CLASS_SUCCESS);
    EXPECT_EQ(value, -5);
    value = 77;
    EXPECT_EQ(vbWith(Gauge32(5)).get_value(value), SNMP_CLASS_INVALID);
    EXPECT_EQ(vbWith(OctetStr("5")).get_value(value), SNMP_CLASS_INVALID);
    EXPECT_EQ(value, 77);
}

TEST(Vb, UnsignedComesFromTheUnsignedTypes) {
    unsigned int value = 0;
    EXPECT_EQ(vbWith(Gauge32(1)).get_value(value), SNMP_CLASS_SUCCESS);
    EXPECT_EQ(value, 1U);
    EXPECT_EQ(vbWith(Counter32(2)).get_value(value), SNMP_CLASS_SUCCESS);
    EXPECT_EQ(value, 2U);
    EXPECT_EQ(vbWith(TimeTicks(3)).get_value(value), SNMP_CLASS_SUCCESS);
    EXPECT_EQ(value, 3U);
    EXPECT_EQ(vbWith(SnmpInt32(4)).get_value(value), SNMP_CLASS_INVALID);
    EXPECT_EQ(value, 3U);
}

// A deprecated overload of the libraries, which code that is written for them may use.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

TEST(Vb, TextComesFromOctetsWithAZeroByteAfter) {
    char text[8] = "xxxxxxx";
    EXPECT_EQ(vbWith(OctetStr("abc")).get_value(text), SNMP_CLASS_SUCCESS);
    EXPECT_STREQ(text, "abc");
    EXPECT_EQ(vbWith(SnmpInt32(5)).get_value(text), SNMP_CLASS_INVALID);
    EXPECT_STREQ(text, "");
}

TEST(Vb, TextOfANullVbIsEmpty) {
    char text[4] = "xxx";
    EXPECT_EQ(Vb(SYS_NAME).get_value(text), SNMP_CLASS_INVALID);
    EXPECT_STREQ(text, "");
}

#pragma GCC diagnostic pop

TEST(Vb, OctetsComeFromOctetsAndAddress) {
    OctetStr octets;
    EXPECT_EQ(vbWith(OctetStr("abc")).get_value(octets), SNMP_CLASS_SUCCESS);
    EXPECT_STREQ(octets.get_printable(), "abc");
    EXPECT_EQ(vbWith(IpAddress("1.2.3.4")).get_value(octets), SNMP_CLASS_SUCCESS);
    EXPECT_EQ(octets.len(), 4U);
}

TEST(Vb, OctetsAreEmptyAndInvalidAfterARefusal) {
    OctetStr octets("abc");
    EXPECT_EQ(vbWith(SnmpInt32(5)).get_value(octets), SNMP_CLASS_INVALID);
    EXPECT_EQ(octets.len(), 0U);
    EXPECT_FALSE(octets.valid());
}

TEST(Vb, OidComesFromAnOidOnly) {
    Oid oid;
    EXPECT_EQ(vbWith(Oid("1.3.6")).get_value(oid), SNMP_CLASS_SUCCESS);
    EXPECT_TRUE(oid == "1.3.6");
    EXPECT_EQ(vbWith(OctetStr("1.3.6")).get_value(oid), SNMP_CLASS_INVALID);
    EXPECT_EQ(oid.len(), 0U);
}

TEST(Vb, Number32ComesFromAnyNumber32) {
    Gauge32 gauge;
    EXPECT_EQ(vbWith(TimeTicks(7)).get_value(gauge), SNMP_CLASS_SUCCESS);
    EXPECT_STREQ(gauge.get_printable(), "7");
    EXPECT_EQ(vbWith(OctetStr("7")).get_value(gauge), SNMP_CLASS_INVALID);
    EXPECT_FALSE(gauge.valid());
}

TEST(Vb, Counter64WidensNumbersAndIsZeroForTheRest) {
    Counter64 counter;
    EXPECT_EQ(vbWith(Counter64(1, 2)).get_value(counter), SNMP_CLASS_SUCCESS);
    EXPECT_STREQ(counter.get_printable(), "4294967298");
    EXPECT_EQ(vbWith(Gauge32(7)).get_value(counter), SNMP_CLASS_SUCCESS);
    EXPECT_STREQ(counter.get_printable(), "7");
    EXPECT_EQ(vbWith(OctetStr("7")).get_value(counter), SNMP_CLASS_SUCCESS);
    EXPECT_STREQ(counter.get_printable(), "0");
}

TEST(Vb, NullVbLeavesTargetsAlone) {
    const Vb vb(SYS_NAME);
    int number = 77;
    unsigned int unsignedNumber = 78;
    OctetStr octets("abc");
    Counter64 counter(1, 2);
    EXPECT_EQ(vb.get_value(number), SNMP_CLASS_INVALID);
    EXPECT_EQ(vb.get_value(unsignedNumber), SNMP_CLASS_INVALID);
    EXPECT_EQ(vb.get_value(octets), SNMP_CLASS_INVALID);
    EXPECT_EQ(vb.get_value(counter), SNMP_CLASS_INVALID);
    EXPECT_EQ(number, 77);
    EXPECT_EQ(unsignedNumber, 78U);
    EXPECT_STREQ(octets.get_printable(), "abc");
    EXPECT_STREQ(counter.get_printable(), "4294967298");
}

TEST(Vb, CloneValueIsNullOrTheCallers) {
    EXPECT_EQ(Vb(SYS_NAME).clone_value(), nullptr);
    const std::unique_ptr<SnmpSyntax> value(vbWith(SnmpInt32(5)).clone_value());
    ASSERT_NE(value, nullptr);
    EXPECT_STREQ(value->get_printable(), "5");
}

}  // namespace
