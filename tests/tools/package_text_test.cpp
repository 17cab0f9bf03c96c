#include "tools/package_text.h"

#include <gmock/gmock.h>

#include <sstream>

namespace vrx {

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

const char* const EMPTY_PACKAGE = "55555555 03000000 00000000 FFFFFFFF FDFF FFFF FFFF FFFF 00000000";
const char* const ONE_RECORD =
    "55 55 55 55 03 00 00 00 00 00 00 00 FF FF FF FF FD FF FF FF FF FF FF FF 11 00 00 00 "
    "01 00 00 00 00 00 00 00 07 00 52 00 03 00 61 62 00";

TEST(BytesOfHex, SkipsBlanksColonsCommasAndLineEnds) {
    EXPECT_THAT(bytesOfHex(" 0a:1B,ff\n00 "), ElementsAre(0x0A, 0x1B, 0xFF, 0x00));
}

TEST(BytesOfHex, NamesThePlaceOfWhatIsNoHexByte) {
    try {
        bytesOfHex("0a 1g");
        FAIL() << "no exception";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "no hex byte at character 4");
    }
}

TEST(BytesOfHex, ASingleDigitIsNoByte) {
    EXPECT_THROW(bytesOfHex("0a 1"), std::runtime_error);
}

TEST(PrintPackage, ShowsTheHeaderOfAnEmptyPackage) {
    std::ostringstream out;
    EXPECT_TRUE(printPackage(out, bytesOfHex(EMPTY_PACKAGE)));
    EXPECT_EQ(out.str(),
              "header: magic 0x55555555, version 3, parameters 0 0xFFFFFFFF 0xFFFD 0xFFFF 0xFFFF 0xFFFF, "
              "0 bytes of records\n");
}

TEST(PrintPackage, ShowsRecordsAndCells) {
    std::ostringstream out;
    EXPECT_TRUE(printPackage(out, bytesOfHex(ONE_RECORD)));
    EXPECT_THAT(out.str(), HasSubstr("record 0: identifier 1 (0x1), 1 cells, 7 bytes\n"
                                     "  tag    5  string     3 bytes  \"ab\"\n"));
}

TEST(PrintPackage, SaysWhatStandsAfterThePackage) {
    std::ostringstream out;
    EXPECT_TRUE(printPackage(out, bytesOfHex(std::string(EMPTY_PACKAGE) + " 00 01")));
    EXPECT_THAT(out.str(), HasSubstr("2 bytes after the package\n"));
}

TEST(PrintPackage, GivesTheDecodersReasonForWhatIsNoPackage) {
    std::ostringstream out;
    EXPECT_FALSE(printPackage(out, bytesOfHex("55 55")));
    EXPECT_THAT(out.str(), HasSubstr("not a package (2 bytes):\n"));
    EXPECT_THAT(out.str(), HasSubstr("invalid MSG header!\n"));
}

}  // namespace

}  // namespace vrx
