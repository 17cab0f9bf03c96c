#include "host/destinations/trap_destination_checks.h"

#include <gtest/gtest.h>

namespace vrx {

namespace {

using namespace destination_check;

void expectAll(bool expected, bool (*check)(const std::string&), const std::vector<std::string>& texts) {
    for (const std::string& text : texts) EXPECT_EQ(check(text), expected) << "\"" << text << "\"";
}

TEST(DestinationAddress, Ipv4IsFourDecimalNumbers) {
    expectAll(true, isIpv4Address, {"192.0.2.7", "0.0.0.0", "255.255.255.255", "127.0.0.1"});
    expectAll(false, isIpv4Address,
              {"", "1", "1.2.3", "1.2.3.4.5", "256.1.1.1", "1.2.3.-4", "0x7f.0.0.1", " 1.2.3.4", "1.2.3.4 ",
               std::string("1.2.3.4\0", 8)});
}

TEST(DestinationAddress, Ipv6HasItsSpellings) {
    expectAll(true, isIpv6Address, {"::1", "::", "2001:db8::7", "2001:DB8:0:0:0:0:0:7", "::ffff:192.0.2.7"});
    expectAll(false, isIpv6Address, {"", ":", ":::", "1:2:3:4:5:6:7", "1:2:3:4:5:6:7:8:9", "g::1", "[::1]", "1.2.3.4"});
}

TEST(DestinationAddress, IsShownWithItsPort) {
    EXPECT_EQ(addressAndPort("192.0.2.7", 162), "192.0.2.7:162");
    EXPECT_EQ(addressAndPort("2001:db8::7", 65535), "[2001:db8::7]:65535");
    EXPECT_EQ(addressAndPort("fe80::1%eth0", 1), "[fe80::1%eth0]:1");
    EXPECT_EQ(addressAndPort("nms.example.com", 162), "nms.example.com:162");
}

TEST(DestinationAddress, ZoneGoesWithLinkLocalAddressesOnly) {
    expectAll(true, isIpv6Address, {"fe80::1%eth0", "ff02::1%lo", "fe80::1%2", "fe80::1%abcdefghijklmno"});
    expectAll(false, isIpv6Address,
              {"fe80::1%", "2001:db8::1%eth0", "fe80::1%abcdefghijklmnop", "fe80::1%e th", "fe80::1%a/b", "fe80::1%a%b",
               "fe80::1%..", "192.0.2.1%eth0"});
}

TEST(DestinationAddress, HostNameIsLabelsOfLettersDigitsAndHyphens) {
    expectAll(
        true, isHostName,
        {"nms", "nms.example.com", "nms.example.com.", "3com", "a-b.c", "1.2.example", "X", std::string(63, 'a')});
    expectAll(false, isHostName,
              {"", ".", ".com", "a..b", "-a.b", "a-.b", "a_b", "a b", "a.b/c", "a\nb", "n\xC3\xA4me", "a..",
               std::string(64, 'a')});
}

TEST(DestinationAddress, HostNameHasAtMost253Characters) {
    const std::string label63 = std::string(63, 'a') + ".";
    const std::string name253 = label63 + label63 + label63 + std::string(61, 'b');
    ASSERT_EQ(name253.size(), 253U);
    EXPECT_TRUE(isHostName(name253));
    EXPECT_TRUE(isHostName(name253 + "."));
    EXPECT_FALSE(isHostName(name253 + "b"));
}

TEST(DestinationAddress, NameWhoseLastLabelIsANumberIsABrokenAddress) {
    expectAll(false, isHostName, {"256.1.1.1", "1.2.3", "12", "host.1"});
}

TEST(DestinationAddress, NameWhoseLastLabelReadsAsAHexadecimalNumberIsOneToo) {
    expectAll(false, isHostName, {"0x7f000001", "0X7F000001", "0x0", "0x", "0x7f000001.", "127.0x1", "nms.0xA"});
    expectAll(true, isHostName, {"0xfg", "0x1.example.com", "x7f000001", "a0x1", "0x7f-1"});
    expectAll(false, isAddress, {"0x7f000001", "0x0", "2130706433", "127.1", "0177.0.0.1", "127.0.0.0x1"});
}

TEST(DestinationAddress, NamesAndAddressesAreAcceptable) {
    expectAll(true, isAddress, {"192.0.2.7", "::1", "fe80::1%eth0", "nms.example.com"});
}

TEST(DestinationAddress, AddressesOfNobodyAreNot) {
    expectAll(false, isAddress,
              {"0.0.0.0", "::", "255.255.255.255", "::ffff:0.0.0.0", "::ffff:255.255.255.255", "::FFFF:0:0", "",
               "256.1.1.1", "a_b"});
}

TEST(DestinationAddress, OneAddressHasOneCanonicalSpelling) {
    EXPECT_EQ(canonicalAddress("2001:DB8:0:0:0:0:0:7"), "2001:db8::7");
    EXPECT_EQ(canonicalAddress("FE80:0::1%Eth0"), "fe80::1%Eth0");
    EXPECT_EQ(canonicalAddress("NMS.Example.com."), "nms.example.com");
    EXPECT_EQ(canonicalAddress("192.0.2.7"), "192.0.2.7");
    EXPECT_EQ(canonicalAddress("::ffff:192.0.2.7"), "192.0.2.7");
    EXPECT_EQ(canonicalAddress("0:0:0:0:0:FFFF:C000:0207"), "192.0.2.7");
    EXPECT_EQ(canonicalAddress("::192.0.2.7"), "::192.0.2.7");
}

TEST(DestinationNumbers, PortIs1To65535) {
    EXPECT_FALSE(isPort(0));
    EXPECT_TRUE(isPort(1));
    EXPECT_TRUE(isPort(65535));
    EXPECT_FALSE(isPort(65536));
    EXPECT_FALSE(isPort(4294967295U));
}

TEST(DestinationNumbers, VersionIs1To3) {
    EXPECT_FALSE(isVersion(0));
    EXPECT_TRUE(isVersion(1));
    EXPECT_TRUE(isVersion(3));
    EXPECT_FALSE(isVersion(4));
}

TEST(DestinationNumbers, TrapTypeIs1Or3Or4) {
    EXPECT_FALSE(isTrapType(0));
    EXPECT_TRUE(isTrapType(1));
    EXPECT_FALSE(isTrapType(2));
    EXPECT_TRUE(isTrapType(3));
    EXPECT_TRUE(isTrapType(4));
    EXPECT_FALSE(isTrapType(5));
    EXPECT_FALSE(isTrapType(4294967295U));
}

TEST(DestinationUser, IsUpTo32PrintableCharacters) {
    expectAll(true, isUserText, {"--", "operator", "with blank", "!~", std::string(32, 'x')});
    expectAll(false, isUserText, {"", std::string(33, 'x'), "tab\t", "line\n", "n\xC3\xA4me", std::string("a\0b", 3)});
}

}  // namespace

}  // namespace vrx
