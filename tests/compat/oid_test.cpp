#include <gtest/gtest.h>
#include <snmp_pp/oid.h>
#include <snmp_pp/vb.h>

#include <map>
#include <memory>
#include <string>

using namespace Snmp_pp;

namespace {

std::string textOf(const Oid& oid) {
    return oid.get_printable();
}

struct ParseCase {
    const char* name;
    const char* text;
    bool valid;
    unsigned long length;
    const char* printed;
};

class OidParsing : public testing::TestWithParam<ParseCase> {};

TEST_P(OidParsing, ConstructorAndAssignmentAgree) {
    const ParseCase& expected = GetParam();
    const Oid constructed(expected.text);
    Oid assigned("1.2.3.4");
    assigned = expected.text;
    for (const Oid* oid : {&constructed, static_cast<const Oid*>(&assigned)}) {
        EXPECT_EQ(oid->valid(), expected.valid);
        EXPECT_EQ(oid->len(), expected.length);
        EXPECT_STREQ(oid->get_printable(), expected.printed);
    }
}

constexpr ParseCase PARSE_CASES[] = {
    {"Plain", "1.3.6", true, 3, "1.3.6"},
    {"LeadingDot", ".1.3.6", true, 3, "1.3.6"},
    {"TrailingDot", "1.3.6.", true, 3, "1.3.6"},
    {"TwoDots", "1.3..6", true, 3, "1.3.6"},
    {"ThreeDots", "1.3...6", true, 3, "1.3.6"},
    {"SuffixOfABinding", ".1.0", true, 2, "1.0"},
    {"TwoLeadingDots", "..1", true, 1, "1"},
    {"Zero", "0", true, 1, "0"},
    {"ZeroZero", "0.0", true, 2, "0.0"},
    {"LeadingZerosAreDropped", "01.002", true, 2, "1.2"},
    {"LargestSubIdentifier", "4294967295", true, 1, "4294967295"},
    {"Empty", "", false, 0, ""},
    {"Null", nullptr, false, 0, ""},
    {"Word", "None", false, 0, ""},
    {"WordAfterNumbers", "1.2.None", false, 0, ""},
    {"WordAfterANumber", "5.None", false, 0, ""},
    {"DollarNotClosed", "1.$ab", false, 0, ""},
    {"DollarFollowedByALetter", "1.$a$b", false, 0, ""},
    {"LetterAfterANumber", "1.3.6a", false, 0, ""},
    {"LetterFirst", "a1", false, 0, ""},
    {"Comma", "1,3", false, 0, ""},
    {"Plus", "+1", false, 0, ""},
    {"Minus", "1.-3", false, 0, ""},
    {"LeadingBlank", " 1.3", false, 0, ""},
    {"TrailingBlank", "1.3 ", false, 0, ""},
    {"BlankInside", "1 .3", false, 0, ""},
    {"OneDotOnly", ".", true, 0, ""},
    {"TwoDotsOnly", "..", true, 0, ""},
    {"ThreeDotsOnly", "...", true, 0, ""},
    {"DollarBytes", "1.2.$ab$.3", true, 5, "1.2.97.98.3"},
    {"DollarNothing", "1.$$", true, 1, "1"},
    {"DollarNothingThenNumber", "1.$$.3", true, 2, "1.3"},
    {"TrapPrefixWithDot", "1.3.6.1.4.1.99871.2.91.10.2.1.1.", true, 13, "1.3.6.1.4.1.99871.2.91.10.2.1.1"},
    {"TrapPrefixWithNone", "1.3.6.1.4.1.99871.2.91.10.2.1.1.None", false, 0, ""},
    {"TrapOfAnAlarm", "1.3.6.1.4.1.99871.2.91.10.2.1.1.5.7", true, 15, "1.3.6.1.4.1.99871.2.91.10.2.1.1.5.7"},
    {"TrapOfAnAlarmWithTwoDots", "1.3.6.1.4.1.99871.2.91.10.2.1.1..5.7", true, 15,
     "1.3.6.1.4.1.99871.2.91.10.2.1.1.5.7"},
};

INSTANTIATE_TEST_SUITE_P(Texts, OidParsing, testing::ValuesIn(PARSE_CASES),
                         [](const auto& tested) { return std::string(tested.param.name); });

TEST(Oid, HasNoLimitOnSubIdentifiers) {
    std::string text = "4294967295";
    for (int i = 1; i < 5000; ++i) {
        text += ".4294967295";
    }
    const Oid oid(text.c_str());
    EXPECT_EQ(oid.len(), 5000U);
    EXPECT_EQ(textOf(oid), text);
}

TEST(Oid, CharactersBecomeSubIdentifiersWhenTheTextIsNotDotted) {
    EXPECT_EQ(textOf(Oid("public", false)), "112.117.98.108.105.99");
    EXPECT_EQ(textOf(Oid("1.3", false)), "49.46.51");
}

TEST(Oid, IsBuiltFromAnArray) {
    const SmiUINT32 raw[] = {1, 3, 6};
    EXPECT_EQ(textOf(Oid(raw, 3)), "1.3.6");
    EXPECT_EQ(textOf(Oid(raw, 2)), "1.3");
}

TEST(Oid, NullArrayOrNoCountGivesAnEmptyOne) {
    const SmiUINT32 raw[] = {1, 3, 6};
    EXPECT_EQ(Oid(static_cast<const SmiUINT32*>(nullptr), 3).len(), 0U);
    EXPECT_EQ(Oid(raw, 0).len(), 0U);
    EXPECT_EQ(Oid(raw, -1).len(), 0U);
    EXPECT_FALSE(Oid(raw, 0).valid());
}

TEST(Oid, DefaultIsEmptyAndInvalid) {
    const Oid oid;
    EXPECT_FALSE(oid.valid());
    EXPECT_EQ(oid.len(), 0U);
    EXPECT_STREQ(oid.get_printable(), "");
    EXPECT_EQ(oid.get_syntax(), SmiUINT32(sNMP_SYNTAX_OID));
}

TEST(Oid, CopyIsDeep) {
    Oid source("1.3.6");
    Oid copy(source);
    copy += ".1";
    EXPECT_EQ(textOf(source), "1.3.6");
    EXPECT_EQ(textOf(copy), "1.3.6.1");
    source = "2";
    EXPECT_EQ(textOf(copy), "1.3.6.1");
}

TEST(Oid, CopyOfDotsOnlyIsAnOrdinaryEmptyOne) {
    const Oid dots("...");
    const Oid copy(dots);  // NOLINT(performance-unnecessary-copy-initialization): the copy is what is tested
    EXPECT_FALSE(copy.valid());
    EXPECT_EQ(copy.len(), 0U);
}

TEST(Oid, SelfAssignmentChangesNothing) {
    Oid oid("1.3.6");
    const Oid& same = oid;
    oid = same;
    EXPECT_EQ(textOf(oid), "1.3.6");
}

TEST(Oid, AssigningAnEmptyOneEmpties) {
    Oid oid("1.3.6");
    oid = Oid();
    EXPECT_EQ(oid.len(), 0U);
    EXPECT_FALSE(oid.valid());
}

TEST(Oid, TakesOverAnOidThroughItsBase) {
    Oid oid("1");
    SnmpSyntax& base = oid;
    base = static_cast<const SnmpSyntax&>(Oid("1.3.6"));
    EXPECT_EQ(textOf(oid), "1.3.6");
}

TEST(Oid, IsEmptyAfterTakingOverAnotherTypeThroughItsBase) {
    Oid oid("1");
    SnmpSyntax& base = oid;
    base = static_cast<const SnmpSyntax&>(OctetStr("1.3.6"));
    EXPECT_EQ(oid.len(), 0U);
    EXPECT_FALSE(oid.valid());
}

TEST(Oid, AppendsTextWithDotsAsInParsing) {
    const struct {
        const char* added;
        const char* printed;
    } cases[] = {{"6.1", "1.3.6.1"}, {".4", "1.3.4"}, {"..5", "1.3.5"}, {"7.", "1.3.7"}};
    for (const auto& tested : cases) {
        Oid oid("1.3");
        oid += tested.added;
        EXPECT_EQ(textOf(oid), tested.printed);
    }
}

TEST(Oid, AppendingNothingChangesNothing) {
    Oid oid("1.3");
    oid += "";
    oid += ".";
    oid += static_cast<const char*>(nullptr);
    oid += Oid();
    EXPECT_EQ(textOf(oid), "1.3");
}

TEST(Oid, AppendingABadTextEmptiesTheWhole) {
    Oid oid("1.3");
    oid += "None";
    EXPECT_EQ(oid.len(), 0U);
    EXPECT_FALSE(oid.valid());
}

TEST(Oid, AppendsANumber) {
    Oid oid("1.3");
    oid += SmiUINT32(0);
    oid += SmiUINT32(4294967295UL);
    EXPECT_EQ(textOf(oid), "1.3.0.4294967295");
}

TEST(Oid, AppendsAnOidAndItself) {
    Oid oid("1.3");
    oid += Oid("6.1");
    EXPECT_EQ(textOf(oid), "1.3.6.1");
    const Oid& same = oid;
    oid += same;
    EXPECT_EQ(textOf(oid), "1.3.6.1.1.3.6.1");
}

TEST(Oid, SumLeavesItsOperandsAlone) {
    const Oid left("1.3.6");
    EXPECT_EQ(textOf(left + Oid(".1.0")), "1.3.6.1.0");
    EXPECT_EQ(textOf(left + ".1.0"), "1.3.6.1.0");
    EXPECT_EQ(textOf(left), "1.3.6");
}

TEST(Oid, SumWithABadTextAddsNothing) {
    EXPECT_EQ(textOf(Oid("1.3.6") + "None"), "1.3.6");
}

TEST(Oid, SumOfEmptyOnes) {
    EXPECT_EQ(textOf(Oid() + Oid("1")), "1");
    EXPECT_EQ((Oid() + Oid()).len(), 0U);
}

TEST(Oid, ReadsByIndexAndGivesZeroAfterTheEnd) {
    const Oid oid("1.3.6");
    EXPECT_EQ(oid[0], 1U);
    EXPECT_EQ(oid[2], 6U);
    EXPECT_EQ(oid[3], 0U);
}

TEST(Oid, WritesByIndexAndPrintsTheNewValue) {
    Oid oid("1.3.6");
    EXPECT_EQ(textOf(oid), "1.3.6");
    oid[2] = 42;
    EXPECT_EQ(textOf(oid), "1.3.42");
}

TEST(Oid, TrimsFromTheRight) {
    Oid oid("1.3.6.1");
    oid.trim();
    EXPECT_EQ(textOf(oid), "1.3.6");
    oid.trim(2);
    EXPECT_EQ(textOf(oid), "1");
}

TEST(Oid, TrimOfNothingOrTooManyDoesNothing) {
    Oid oid("1.3.6");
    oid.trim(0);
    oid.trim(4);
    EXPECT_EQ(textOf(oid), "1.3.6");
}

TEST(Oid, TrimOfAllEmpties) {
    Oid oid("1.3.6");
    oid.trim(3);
    EXPECT_EQ(oid.len(), 0U);
    EXPECT_FALSE(oid.valid());
    EXPECT_STREQ(oid.get_printable(), "");
}

TEST(Oid, SetDataReplaces) {
    const SmiUINT32 raw[] = {2, 7};
    Oid oid("1.3.6");
    EXPECT_EQ(textOf(oid), "1.3.6");
    oid.set_data(raw, 2);
    EXPECT_EQ(textOf(oid), "2.7");
}

TEST(Oid, OidvalIsTheLiveData) {
    Oid oid("1.3.6");
    ASSERT_EQ(oid.oidval()->len, 3U);
    EXPECT_EQ(oid.oidval()->ptr[2], 6U);
}

TEST(Oid, CloneIsANewOid) {
    const Oid oid("1.3.6");
    const std::unique_ptr<SnmpSyntax> clone(oid.clone());
    EXPECT_STREQ(clone->get_printable(), "1.3.6");
    EXPECT_EQ(clone->get_syntax(), SmiUINT32(sNMP_SYNTAX_OID));
}

TEST(Oid, ClearEmpties) {
    Oid oid("1.3.6");
    oid.clear();
    EXPECT_EQ(oid.len(), 0U);
    EXPECT_FALSE(oid.valid());
    EXPECT_STREQ(oid.get_printable(), "");
}

struct CompareCase {
    const char* left;
    const char* right;
    bool equal;
    bool less;
    int first;
    int firstTwo;
    int whole;
};

class OidComparison : public testing::TestWithParam<CompareCase> {};

TEST_P(OidComparison, AllOperatorsAgree) {
    const CompareCase& expected = GetParam();
    const Oid left(expected.left);
    const Oid right(expected.right);
    EXPECT_EQ(static_cast<bool>(left == right), expected.equal);
    EXPECT_EQ(static_cast<bool>(left != right), !expected.equal);
    EXPECT_EQ(static_cast<bool>(left < right), expected.less);
    EXPECT_EQ(static_cast<bool>(left <= right), expected.less || expected.equal);
    EXPECT_EQ(static_cast<bool>(left > right), !expected.less && !expected.equal);
    EXPECT_EQ(static_cast<bool>(left >= right), !expected.less);
    EXPECT_EQ(left.nCompare(0, right), 0);
    EXPECT_EQ(left.nCompare(1, right), expected.first);
    EXPECT_EQ(left.nCompare(2, right), expected.firstTwo);
    EXPECT_EQ(left.nCompare(std::max(left.len(), right.len()), right), expected.whole);
}

INSTANTIATE_TEST_SUITE_P(Pairs, OidComparison,
                         testing::Values(CompareCase{"1.3", "1.4", false, true, 0, -1, -1},
                                         CompareCase{"1.3", "1.3.1", false, true, 0, 0, -1},
                                         CompareCase{"1.3.1", "1.3", false, false, 0, 0, 1},
                                         CompareCase{"1.4", "1.3.9", false, false, 0, 1, 1},
                                         CompareCase{"", "1", false, true, -1, -1, -1},
                                         CompareCase{"1.3.6", "1.3.6", true, false, 0, 0, 0},
                                         CompareCase{"", "", true, false, 0, 0, 0},
                                         CompareCase{"...", "", true, false, 0, 0, 0},
                                         CompareCase{"4294967295", "0", false, false, 1, 1, 1}));

TEST(Oid, ComparesWithText) {
    const Oid oid("1.3.6");
    EXPECT_TRUE(oid == "1.3.6");
    EXPECT_TRUE(oid != "1.3");
    EXPECT_TRUE(oid < "1.4");
}

TEST(Oid, IsAMapKeyInTreeOrder) {
    const std::map<Oid, int> map = {{Oid("1.10"), 3}, {Oid("1.9"), 2}, {Oid("1"), 1}};
    std::string order;
    for (const auto& [oid, number] : map) {
        order += std::to_string(number);
    }
    EXPECT_EQ(order, "123");
}

TEST(Oid, PrintingTwiceGivesTheSamePointer) {
    const Oid oid("1.3.6");
    EXPECT_EQ(oid.get_printable(), oid.get_printable());
}

TEST(Oid, PrintsTheLastOnes) {
    const Oid oid("1.3.6.1.4");
    EXPECT_STREQ(oid.get_printable(2), "1.4");
    EXPECT_STREQ(oid.get_printable(5), "1.3.6.1.4");
    EXPECT_STREQ(oid.get_printable(0), "");
    EXPECT_STREQ(oid.get_printable(6), "");
}

TEST(Oid, PrintsARange) {
    const Oid oid("1.3.6.1.4");
    EXPECT_STREQ(oid.get_printable(2, 3), "3.6.1");
    EXPECT_STREQ(oid.get_printable(1, 1), "1");
    EXPECT_STREQ(oid.get_printable(0, 2), "");
    EXPECT_STREQ(oid.get_printable(4, 5), "");
}

}  // namespace
