#include <gtest/gtest.h>
#include <snmp_pp/address.h>

#include <memory>

using namespace Snmp_pp;

namespace {

TEST(IpAddress, PrintsDottedText) {
    const IpAddress address("192.168.2.10");
    EXPECT_TRUE(address.valid());
    EXPECT_STREQ(address.get_printable(), "192.168.2.10");
    EXPECT_EQ(address.get_syntax(), SmiUINT32(0x40));
}

TEST(IpAddress, GivesItsBytes) {
    const IpAddress address("192.168.2.10");
    EXPECT_EQ(address[0], 192);
    EXPECT_EQ(address[3], 10);
}

TEST(IpAddress, CloneIsANewAddress) {
    const IpAddress address("1.2.3.4");
    const std::unique_ptr<SnmpSyntax> clone(address.clone());
    EXPECT_STREQ(clone->get_printable(), "1.2.3.4");
}

}  // namespace
