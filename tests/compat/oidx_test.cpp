#include <agent_pp/snmp_pp_ext.h>
#include <gtest/gtest.h>

#include <string>

using namespace Snmp_pp;
using Agentpp::Oidx;

namespace {

std::string printed(const Oid& oid) {
    return oid.get_printable();
}

std::string rawTextOf(const OctetStr& octets) {
    return std::string(reinterpret_cast<const char*>(octets.data()), octets.len());
}

TEST(Oidx, IsBuiltFromTextArrayAndOid) {
    const SmiUINT32 raw[] = {1, 3};
    EXPECT_EQ(printed(Oidx("1.3.6")), "1.3.6");
    EXPECT_EQ(printed(Oidx(raw, 2)), "1.3");
    EXPECT_EQ(printed(Oidx(Oid("1.3.6"))), "1.3.6");
    EXPECT_EQ(Oidx().len(), 0U);
}

TEST(Oidx, TakesOverTextAndOid) {
    Oidx oid;
    oid = "1.3.6";
    EXPECT_EQ(printed(oid), "1.3.6");
    oid = Oid("1.2");
    EXPECT_EQ(printed(oid), "1.2");
    oid = Oidx("1");
    EXPECT_EQ(printed(oid), "1");
}

TEST(Oidx, BadTextEmpties) {
    Oidx oid("1.3.6");
    oid = "1.3.None";
    EXPECT_EQ(oid.len(), 0U);
}

TEST(Oidx, TakesOverAnOidThroughItsBase) {
    Oidx oid;
    SnmpSyntax& base = oid;
    base = static_cast<const SnmpSyntax&>(Oid("1.3.6"));
    EXPECT_EQ(printed(oid), "1.3.6");
}

TEST(Oidx, AppendsTextNumberAndOid) {
    Oidx oid("1");
    oid += ".3";
    oid += SmiUINT32(6);
    oid += Oid("1.4");
    EXPECT_EQ(printed(oid), "1.3.6.1.4");
}

TEST(Oidx, AppendsTheBytesOfAnAddress) {
    Oidx oid("1.3");
    oid += IpAddress("192.168.2.10");
    EXPECT_EQ(printed(oid), "1.3.192.168.2.10");
}

TEST(Oidx, SumCanBeKeptAsOidx) {
    const Oidx base("1.3.6");
    const Oidx sum = base + Oidx(".1.0");
    EXPECT_EQ(printed(sum), "1.3.6.1.0");
    EXPECT_EQ(printed(base + ".15.0"), "1.3.6.15.0");
}

TEST(Oidx, CutsOnBothSides) {
    const Oidx oid("1.3.6.1");
    EXPECT_EQ(printed(oid.cut_left(1)), "3.6.1");
    EXPECT_EQ(printed(oid.cut_right(1)), "1.3.6");
    EXPECT_EQ(printed(oid), "1.3.6.1");
}

TEST(Oidx, CuttingAllOrMoreGivesAnEmptyOne) {
    const Oidx oid("1.3.6.1");
    EXPECT_EQ(oid.cut_left(4).len(), 0U);
    EXPECT_EQ(oid.cut_left(5).len(), 0U);
    EXPECT_EQ(oid.cut_right(4).len(), 0U);
    EXPECT_EQ(oid.cut_right(5).len(), 0U);
}

TEST(Oidx, LastSubIdentifierIsZeroWhenEmpty) {
    EXPECT_EQ(Oidx("1.3.7").last(), 7U);
    EXPECT_EQ(Oidx().last(), 0U);
}

TEST(Oidx, RootIsAProperPrefix) {
    EXPECT_TRUE(Oidx("1.3").is_root_of(Oidx("1.3.6")));
    EXPECT_FALSE(Oidx("1.3").is_root_of(Oidx("1.3")));
    EXPECT_FALSE(Oidx("1.3").is_root_of(Oidx("1.4.6")));
    EXPECT_FALSE(Oidx("1.3.6").is_root_of(Oidx("1.3")));
    EXPECT_TRUE(Oidx().is_root_of(Oidx("1.3")));
}

TEST(Oidx, SubtreeIsTheMirrorImageOfRoot) {
    EXPECT_TRUE(Oidx("1.3.6").in_subtree_of(Oidx("1.3")));
    EXPECT_FALSE(Oidx("1.3").in_subtree_of(Oidx("1.3")));
    EXPECT_TRUE(Oidx("1.3").in_subtree_of(Oidx()));
}

TEST(Oidx, BecomesAStringOfItsLowBytes) {
    EXPECT_EQ(rawTextOf(Oidx("3.97.98.99").as_string()),
              "\x03"
              "abc");
    EXPECT_EQ(Oidx().as_string().len(), 0U);
}

TEST(Oidx, IsMadeFromAString) {
    EXPECT_EQ(printed(Oidx::from_string("abc")), "3.97.98.99");
    EXPECT_EQ(printed(Oidx::from_string("abc", false)), "97.98.99");
    EXPECT_EQ(printed(Oidx::from_string("")), "0");
    EXPECT_EQ(Oidx::from_string("", false).len(), 0U);
    EXPECT_EQ(printed(Oidx::from_string("\xE9")), "1.233");
}

TEST(Oidx, SuccessorIsOneLevelDeeper) {
    EXPECT_EQ(printed(Oidx("1.3").successor()), "1.3.0");
    EXPECT_EQ(printed(Oidx().successor()), "0");
}

TEST(Oidx, NextPeerRaisesTheLast) {
    EXPECT_EQ(printed(Oidx("1.3").next_peer()), "1.4");
}

TEST(Oidx, PredecessorOfAZeroIsItsParent) {
    EXPECT_EQ(printed(Oidx("1.3.0").predecessor()), "1.3");
}

TEST(Oidx, PredecessorIsTheLongestOneBelowTheLowerPeer) {
    const Oidx before = Oidx("1.3.6").predecessor();
    ASSERT_EQ(before.len(), 128U);
    EXPECT_EQ(printed(before.cut_right(125)), "1.3.5");
    for (unsigned int i = 3; i < 128; ++i) {
        EXPECT_EQ(before[i], 4294967295U);
    }
}

TEST(Oidx, PredecessorOfAnEmptyOneIsEmpty) {
    EXPECT_EQ(Oidx().predecessor().len(), 0U);
}

TEST(Oidx, MaskZeroesWhereTheBitIsZero) {
    const unsigned char bits[] = {0xA0};
    Oidx oid("1.3.6.1");
    oid.mask(OctetStr(bits, 1));
    EXPECT_EQ(printed(oid), "1.0.6.0");
}

TEST(Oidx, ComparisonCanIgnoreOnePosition) {
    const Oidx oid("1.3.6");
    EXPECT_EQ(oid.compare(Oidx("1.9.6"), 1), 0);
    EXPECT_EQ(oid.compare(Oidx("1.9.6.1"), 1), 1);
    EXPECT_EQ(oid.compare(Oidx("2.3.6"), 1), -1);
}

TEST(Oidx, ComparesAsOidDoes) {
    EXPECT_TRUE(Oidx("1.3") == "1.3");
    EXPECT_TRUE(Oidx("1.3") < Oid("1.3.1"));
}

}  // namespace
