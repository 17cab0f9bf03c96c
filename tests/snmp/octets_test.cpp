#include <gtest/gtest.h>

#include "host/snmp/hexadecimal.h"
#include "host/snmp/oid_vector.h"

namespace vrx {

namespace {

TEST(Octets, AreWrittenAsTwoDigitsEach) {
    EXPECT_EQ(hexadecimal(""), "");
    EXPECT_EQ(hexadecimal(std::string("\x80\x00\x1f\xff\x0a", 5)), "80001fff0a");
}

TEST(Octets, HoldAnObjectIdentifierWhole) {
    const OidVector name = {1, 3, 6, 1, 4, 1, 99871, 4294967295, 0};
    EXPECT_EQ(octetsOfOid(name).size(), name.size() * sizeof(oid));
    EXPECT_EQ(oidOfOctets(octetsOfOid(name)), name);
    EXPECT_EQ(octetsOfOid({}), "");
    EXPECT_TRUE(oidOfOctets("").empty());
}

TEST(Octets, AfterTheLastWholeSubIdentifierAreLeftOut) {
    const OidVector name = {1, 3};
    EXPECT_EQ(oidOfOctets(octetsOfOid(name) + "xyz"), name);
}

}  // namespace

}  // namespace vrx
