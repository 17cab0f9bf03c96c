#include <gtest/gtest.h>
#include <snmp_pp/octet.h>
#include <snmp_pp/vb.h>

#include <memory>
#include <string>
#include <vector>

using namespace Snmp_pp;

namespace {

using Bytes = std::vector<unsigned char>;

OctetStr octetsOf(const Bytes& bytes) {
    return OctetStr(bytes.data(), static_cast<unsigned int>(bytes.size()));
}

Bytes bytesOf(const OctetStr& octets) {
    return Bytes(octets.data(), octets.data() + octets.len());
}

TEST(OctetStr, DefaultIsEmptyAndValid) {
    const OctetStr octets;
    EXPECT_TRUE(octets.valid());
    EXPECT_EQ(octets.len(), 0U);
    EXPECT_EQ(octets.data(), nullptr);
    EXPECT_STREQ(octets.get_printable(), "");
    EXPECT_EQ(octets.get_syntax(), SmiUINT32(sNMP_SYNTAX_OCTETS));
}

TEST(OctetStr, NullTextIsEmpty) {
    const OctetStr octets(static_cast<const char*>(nullptr));
    EXPECT_TRUE(octets.valid());
    EXPECT_EQ(octets.len(), 0U);
    EXPECT_EQ(octets.data(), nullptr);
}

TEST(OctetStr, TextStopsAtTheFirstZeroByte) {
    EXPECT_EQ(OctetStr("ab\0cd").len(), 2U);
}

TEST(OctetStr, HoldsAnyBytes) {
    const Bytes bytes = {0x00, 0xFF, 0x41};
    EXPECT_EQ(bytesOf(octetsOf(bytes)), bytes);
}

TEST(OctetStr, NullBytesOrNoLengthGiveAnEmptyOne) {
    const unsigned char byte = 1;
    EXPECT_EQ(OctetStr(static_cast<const unsigned char*>(nullptr), 3).len(), 0U);
    EXPECT_EQ(OctetStr(&byte, 0).len(), 0U);
}

TEST(OctetStr, CopyIsDeep) {
    OctetStr source("abc");
    const OctetStr copy(source);
    source += "d";
    EXPECT_STREQ(copy.get_printable(), "abc");
}

TEST(OctetStr, SetDataAndTextReplace) {
    const unsigned char bytes[] = {'x', 'y'};
    OctetStr octets("abc");
    octets.set_data(bytes, 2);
    EXPECT_STREQ(octets.get_printable(), "xy");
    octets = "new";
    EXPECT_STREQ(octets.get_printable(), "new");
    octets = static_cast<const char*>(nullptr);
    EXPECT_EQ(octets.len(), 0U);
    octets.set_data(bytes, 2);
    octets.set_data(nullptr, 0);
    EXPECT_EQ(octets.len(), 0U);
}

TEST(OctetStr, AppendsTextOctetsAndBytes) {
    OctetStr octets("a");
    octets += "b";
    octets += OctetStr("c");
    octets += static_cast<unsigned char>('d');
    octets += "";
    EXPECT_STREQ(octets.get_printable(), "abcd");
}

TEST(OctetStr, SetLenCutsAndExtendsWithZeroBytes) {
    OctetStr octets("abc");
    octets.set_len(2);
    EXPECT_EQ(bytesOf(octets), (Bytes{'a', 'b'}));
    octets.set_len(4);
    EXPECT_EQ(bytesOf(octets), (Bytes{'a', 'b', 0, 0}));
}

TEST(OctetStr, IndexReadsAndWrites) {
    OctetStr octets("abc");
    EXPECT_STREQ(octets.get_printable(), "abc");
    octets[1] = 'x';
    EXPECT_EQ(octets[1], 'x');
    EXPECT_STREQ(octets.get_printable(), "axc");
}

TEST(OctetStr, ComparesBytewise) {
    const OctetStr abc("abc");
    EXPECT_TRUE(abc == OctetStr("abc"));
    EXPECT_TRUE(abc == "abc");
    EXPECT_TRUE("abc" == abc);
    EXPECT_TRUE(abc != OctetStr("abd"));
    EXPECT_TRUE(abc < OctetStr("abd"));
    EXPECT_TRUE(abc < OctetStr("abcd"));
    EXPECT_TRUE(abc <= OctetStr("abc"));
    EXPECT_TRUE(abc > OctetStr("abb"));
    EXPECT_TRUE(abc >= OctetStr("abc"));
    EXPECT_TRUE(octetsOf({0xFF}) > octetsOf({0x01}));
}

TEST(OctetStr, ComparesTheFirstBytes) {
    EXPECT_EQ(OctetStr("abc").nCompare(2, OctetStr("abd")), 0);
    EXPECT_EQ(OctetStr("abc").nCompare(3, OctetStr("abd")), -1);
    EXPECT_EQ(OctetStr("abd").nCompare(3, OctetStr("abc")), 1);
}

TEST(OctetStr, TakesOverOctetsAndAnAddressThroughItsBase) {
    OctetStr octets;
    SnmpSyntax& base = octets;
    base = static_cast<const SnmpSyntax&>(OctetStr("abc"));
    EXPECT_STREQ(octets.get_printable(), "abc");
    base = static_cast<const SnmpSyntax&>(IpAddress("1.2.3.4"));
    EXPECT_EQ(bytesOf(octets), (Bytes{1, 2, 3, 4}));
}

TEST(OctetStr, IsEmptyAndInvalidAfterTakingOverAnotherType) {
    OctetStr octets("abc");
    SnmpSyntax& base = octets;
    base = static_cast<const SnmpSyntax&>(SnmpInt32(5));
    EXPECT_FALSE(octets.valid());
    EXPECT_EQ(octets.len(), 0U);
}

TEST(OctetStr, AssigningAnInvalidOneIsIgnored) {
    OctetStr invalid;
    static_cast<SnmpSyntax&>(invalid) = static_cast<const SnmpSyntax&>(SnmpInt32(5));
    OctetStr octets("abc");
    octets = invalid;
    EXPECT_STREQ(octets.get_printable(), "abc");
}

TEST(OctetStr, CopyOfAnInvalidOneIsValidAndEmpty) {
    OctetStr invalid("abc");
    static_cast<SnmpSyntax&>(invalid) = static_cast<const SnmpSyntax&>(SnmpInt32(5));
    const OctetStr copy(invalid);
    EXPECT_TRUE(copy.valid());
    EXPECT_EQ(copy.len(), 0U);
}

TEST(OctetStr, TextMakesAnInvalidOneValid) {
    OctetStr octets;
    static_cast<SnmpSyntax&>(octets) = static_cast<const SnmpSyntax&>(SnmpInt32(5));
    octets = "abc";
    EXPECT_TRUE(octets.valid());
    EXPECT_STREQ(octets.get_printable(), "abc");
}

TEST(OctetStr, ClearEmpties) {
    OctetStr octets("abc");
    octets.clear();
    EXPECT_TRUE(octets.valid());
    EXPECT_EQ(octets.len(), 0U);
    EXPECT_NE(octets.data(), nullptr);
    EXPECT_STREQ(octets.get_printable(), "");
}

TEST(OctetStr, IsMadeFromHexDigits) {
    EXPECT_EQ(bytesOf(OctetStr::from_hex_string("41 42 4")), (Bytes{0x04, 0x14, 0x24}));
    EXPECT_EQ(bytesOf(OctetStr::from_hex_string("41 42")), (Bytes{0x41, 0x42}));
}

TEST(OctetStr, CloneIsANewValue) {
    const OctetStr octets("abc");
    const std::unique_ptr<SnmpSyntax> clone(octets.clone());
    EXPECT_STREQ(clone->get_printable(), "abc");
}

struct PrintCase {
    const char* name;
    Bytes bytes;
    const char* printed;
};

class OctetStrPrinting : public testing::TestWithParam<PrintCase> {};

TEST_P(OctetStrPrinting, WholeText) {
    EXPECT_STREQ(octetsOf(GetParam().bytes).get_printable(), GetParam().printed);
}

INSTANTIATE_TEST_SUITE_P(
    Values, OctetStrPrinting,
    testing::Values(
        PrintCase{"Text", {'a', 'b'}, "ab"}, PrintCase{"LineFeedIsNotDumped", {'a', '\n', 'b'}, "a\nb"},
        PrintCase{"CarriageReturnIsNotDumped", {'a', '\r', '\n', 'b'}, "a\r\nb"},
        PrintCase{"Tab", {'a', '\t', 'b'}, "  61 09 62                                           a.b\n"},
        PrintCase{
            "ZeroByteAtTheEnd", {'a', 'b', 'c', 0}, "  61 62 63 00                                        abc.\n"},
        PrintCase{"Utf8", {'c', 'a', 'f', 0xC3, 0xA9}, "  63 61 66 C3 A9                                     caf..\n"},
        PrintCase{"DateAndTimeOf8Bytes",
                  {0x07, 0xE8, 0x03, 0x0F, 0x0D, 0x1E, 0x05, 0x00},
                  "  07 E8 03 0F 0D 1E 05 00                            ........\n"},
        PrintCase{"DateAndTimeOf11Bytes",
                  {0x07, 0xE8, 0x03, 0x0F, 0x0D, 0x1E, 0x05, 0x00, 0x2B, 0x08, 0x00},
                  "  07 E8 03 0F 0D 1E 05 00 2B 08 00                   ........+..\n"},
        PrintCase{"SecondLine",
                  {0x00, '2', '3', '4', '5', '6', '7', '8', '9', 'a', 'b', 'c', 'd', 'e', 'f', 'g', 'h'},
                  "  00 32 33 34 35 36 37 38 39 61 62 63 64 65 66 67    .23456789abcdefg\n"
                  "  68                                                 h\n"}),
    [](const auto& tested) { return std::string(tested.param.name); });

TEST(OctetStr, DumpLinesHaveTheirLength) {
    EXPECT_EQ(std::string(octetsOf(Bytes(16, 0x01)).get_printable()).size(), 70U);
    EXPECT_EQ(std::string(octetsOf(Bytes(3, 0x01)).get_printable()).size(), 57U);
}

TEST(OctetStr, HexFormAlwaysDumps) {
    EXPECT_STREQ(OctetStr("abc").get_printable_hex(), "  61 62 63                                           abc\n");
}

TEST(OctetStr, ClearFormShowsDots) {
    EXPECT_STREQ(octetsOf({'a', '\r', '\n', 0}).get_printable_clear(), "a...");
}

}  // namespace
