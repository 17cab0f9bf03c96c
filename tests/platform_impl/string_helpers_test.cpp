#include <gmock/gmock.h>

#include "platform/vrx_utility.h"

namespace {

using testing::ElementsAre;

std::vector<std::string> split(const std::string& text) {
    std::vector<std::string> pieces;
    SplitToStr(text, ',', pieces);
    return pieces;
}

TEST(SplitToStr, KeepsEmptyPiecesEverywhere) {
    EXPECT_THAT(split(",a,,b,"), ElementsAre("", "a", "", "b", ""));
}

TEST(SplitToStr, EmptyTextGivesNothing) {
    EXPECT_THAT(split(""), ElementsAre());
}

TEST(SplitToStr, LoneSeparatorGivesTwoEmptyPieces) {
    EXPECT_THAT(split(","), ElementsAre("", ""));
}

TEST(SplitToStr, TextWithoutSeparatorIsOnePiece) {
    EXPECT_THAT(split("abc"), ElementsAre("abc"));
}

TEST(SplitToStr, AppendsAfterWhatIsThere) {
    std::vector<std::string> pieces = {"first"};
    SplitToStr("a,b", ',', pieces);
    EXPECT_THAT(pieces, ElementsAre("first", "a", "b"));
}

TEST(StrToUint, ReadsDecimalDigits) {
    EXPECT_EQ(StrToUint("0"), 0U);
    EXPECT_EQ(StrToUint("42"), 42U);
    EXPECT_EQ(StrToUint("007"), 7U);
    EXPECT_EQ(StrToUint("4294967295"), 4294967295U);
}

TEST(StrToUint, SkipsLeadingBlanksAndStopsAtOtherCharacters) {
    EXPECT_EQ(StrToUint(" \t42abc"), 42U);
    EXPECT_EQ(StrToUint("4 2"), 4U);
}

TEST(StrToUint, GivesZeroWithoutDigits) {
    EXPECT_EQ(StrToUint(""), 0U);
    EXPECT_EQ(StrToUint("abc"), 0U);
    EXPECT_EQ(StrToUint("   "), 0U);
}

TEST(StrToUint, SignIsNoDigit) {
    EXPECT_EQ(StrToUint("-5"), 0U);
    EXPECT_EQ(StrToUint("+5"), 0U);
}

TEST(StrToUint, TooLargeANumberGivesTheLargest) {
    EXPECT_EQ(StrToUint("4294967296"), 4294967295U);
    EXPECT_EQ(StrToUint("99999999999999999999999999999999"), 4294967295U);
}

TEST(UintToStr, WritesDecimalDigits) {
    EXPECT_EQ(UintToStr(0), "0");
    EXPECT_EQ(UintToStr(4294967295U), "4294967295");
}

TEST(MemcpyS, CopiesUpToTheDestinationsSize) {
    char to[4] = "...";
    EXPECT_EQ(memcpy_s(to, sizeof to, "abc", 4), 0);
    EXPECT_STREQ(to, "abc");
}

TEST(MemcpyS, RefusesMoreThanTheDestinationHoldsAndCopiesNothing) {
    char to[4] = "...";
    EXPECT_NE(memcpy_s(to, sizeof to, "abcd", 5), 0);
    EXPECT_STREQ(to, "...");
}

TEST(MemcpyS, RefusesNullPointers) {
    char to[4] = "...";
    EXPECT_NE(memcpy_s(nullptr, 4, "abc", 4), 0);
    EXPECT_NE(memcpy_s(to, sizeof to, nullptr, 4), 0);
    EXPECT_STREQ(to, "...");
}

}  // namespace
