#include <agent_pp/snmp_pp_ext.h>
#include <gtest/gtest.h>

#include <memory>

using namespace Snmp_pp;
using Agentpp::Oidx;
using Agentpp::Vbx;

namespace {

TEST(Vbx, IsBuiltFromVbOidAndValue) {
    const Oid oid("1.3.6");
    Vb vb(oid);
    vb.set_value("text");
    EXPECT_STREQ(Vbx(vb).get_printable_value(), "text");
    EXPECT_STREQ(Vbx(oid).get_printable_oid(), "1.3.6");
    const Vbx both(oid, SnmpInt32(5));
    EXPECT_STREQ(both.get_printable_oid(), "1.3.6");
    EXPECT_STREQ(both.get_printable_value(), "5");
    EXPECT_FALSE(Vbx().valid());
}

TEST(Vbx, IsAssignedToAndFromAVb) {
    Vb vb(Oid("1.3.6"));
    vb.set_value(5);
    Vbx vbx;
    vbx = vb;
    EXPECT_STREQ(vbx.get_printable_value(), "5");
    vbx.set_value(6);
    vb = vbx;
    EXPECT_STREQ(vb.get_printable_value(), "6");
}

TEST(Vbx, GivesItsOidAsOidx) {
    const Vbx vbx(Oid("1.3.6"));
    const Oidx byValue = vbx.get_oid();
    Oidx target;
    vbx.get_oid(target);
    EXPECT_EQ(byValue.last(), 6U);
    EXPECT_TRUE(target == "1.3.6");
}

TEST(Vbx, ClearKeepsTheOid) {
    Vbx vbx(Oid("1.3.6"), SnmpInt32(5));
    vbx.clear();
    EXPECT_STREQ(vbx.get_printable_oid(), "1.3.6");
    EXPECT_EQ(vbx.get_syntax(), SmiUINT32(sNMP_SYNTAX_NULL));
}

TEST(Vbx, ClearThroughVbRemovesTheOidToo) {
    Vbx vbx(Oid("1.3.6"), SnmpInt32(5));
    static_cast<Vb&>(vbx).clear();
    EXPECT_STREQ(vbx.get_printable_oid(), "");
}

TEST(Vbx, EqualityLooksAtTheTextOnly) {
    const Vbx number(Oid("1.3.6"), SnmpInt32(5));
    const Vbx text(Oid("1.4"), OctetStr("5"));
    const Vbx other(Oid("1.3.6"), SnmpInt32(6));
    EXPECT_TRUE(number == text);
    EXPECT_FALSE(number == other);
}

TEST(Vbx, EqualOfArraysLooksAtSyntaxAndText) {
    Vbx left[] = {Vbx(Oid("1"), SnmpInt32(5)), Vbx(Oid("2"), OctetStr("a"))};
    Vbx right[] = {Vbx(Oid("3"), SnmpInt32(5)), Vbx(Oid("4"), OctetStr("a"))};
    EXPECT_TRUE(Vbx::equal(left, right, 2));
    right[0].set_value(OctetStr("5"));
    EXPECT_FALSE(Vbx::equal(left, right, 2));
}

TEST(Vbx, ArrayIsReleasedThroughVbx) {
    const std::unique_ptr<Vbx[]> array(new Vbx[15]);
    array[14].set_oid(Oid("1.3"));
    array[14].set_value("last");
    EXPECT_STREQ(array[14].get_printable_value(), "last");
}

}  // namespace
