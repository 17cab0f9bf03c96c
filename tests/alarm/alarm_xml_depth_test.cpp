#include "alarm/alarm_xml_depth.h"

#include <gtest/gtest.h>
#include <tinyxml.h>

#include <algorithm>
#include <random>
#include <string>
#include <utility>

namespace {

std::size_t scannedDepth(const std::string& xml) {
    std::size_t levels = 0;
    while (isNestedDeeperThan(xml, levels)) ++levels;
    return levels;
}

std::size_t treeDepth(const TiXmlNode& node) {
    std::size_t deepest = 0;
    for (const TiXmlNode* child = node.FirstChild(); child != nullptr; child = child->NextSibling()) {
        deepest = std::max(deepest, treeDepth(*child));
    }
    return deepest + (node.ToElement() != nullptr ? 1 : 0);
}

// Zeros at the end: TinyXML steps over the end of a text that ends within a character.
void parse(TiXmlDocument& document, const std::string& xml) {
    document.Parse((xml + std::string(3, '\0')).c_str());
}

// The scan finds the depth, and TinyXML, which has no objection to the text, as well.
void expectDepth(const std::string& xml, std::size_t depth) {
    SCOPED_TRACE(xml);
    EXPECT_EQ(scannedDepth(xml), depth);
    TiXmlDocument document;
    parse(document, xml);
    EXPECT_STREQ(document.ErrorDesc(), "");
    EXPECT_EQ(treeDepth(document), depth);
}

struct DepthCase {
    const char* name;
    const char* xml;
    std::size_t depth;
};

void PrintTo(const DepthCase& c, std::ostream* os) {
    *os << c.xml;
}

class AlarmXmlDepthTest : public testing::TestWithParam<DepthCase> {};

TEST_P(AlarmXmlDepthTest, CountsLevelsOfElements) {
    EXPECT_EQ(scannedDepth(GetParam().xml), GetParam().depth);
}

INSTANTIATE_TEST_SUITE_P(
    Texts, AlarmXmlDepthTest,
    testing::Values(
        DepthCase{"Empty", "", 0}, DepthCase{"TextOnly", "a > b", 0}, DepthCase{"OneElement", "<a></a>", 1},
        DepthCase{"SelfClosing", "<a/>", 1}, DepthCase{"SelfClosingCountsAsALevel", "<a><b/></a>", 2},
        DepthCase{"Siblings", "<a><b></b><c><d/></c><e/></a>", 3},
        DepthCase{"SecondRootStartsAnew", "<a></a><b><c/></b>", 2},
        DepthCase{"Comment", "<a><!-- <b><c><d> --></a>", 1},
        DepthCase{"CommentEndsAtItsEndOnly", "<a><!-- > <b> -- ></a> --><b/></a>", 2},
        DepthCase{"ShortestComment", "<a><!--><b><c>--></a>", 1},
        DepthCase{"Cdata", "<a><![CDATA[<b><c></a>]]><d/></a>", 2},
        DepthCase{"CdataInLowerCaseIsMarkupUpToItsEnd", "<a><![cdata[<b><c/>]]></a>", 2},
        DepthCase{"QuotedBrackets", "<a t='<b>' u=\"<c/>\"><d/></a>", 2},
        DepthCase{"OtherQuoteInside", "<a t='\"' u=\"'\"><b v='>'/></a>", 2},
        DepthCase{"QuotedSlash", "<a t='/'><b/></a>", 2}, DepthCase{"SlashBeforeQuote", "<a t='/>'><b/></a>", 2},
        DepthCase{"UnquotedValue", "<a t=1><b/></a>", 2}, DepthCase{"UnquotedBracket", "<a t=<b><c/></a>", 2},
        DepthCase{"UnquotedSelfClosing", "<a><b t=1/><c/></a>", 2},
        DepthCase{"Declaration", "<?xml version='1.0' encoding='UTF-8'?><a/>", 1},
        DepthCase{"DeclarationWithQuotedBracket", "<?xml version='>'?><a/>", 1},
        DepthCase{"DeclarationEndsAfterOtherWords", "<?xml t='><a><b/></a>", 2},
        DepthCase{"DeclarationWithUnquotedValue", "<?xml version=1 t='><a><b/></a>", 2},
        DepthCase{"ProcessingInstruction", "<?go t='><a/>'?>", 1},
        DepthCase{"Doctype", "<!DOCTYPE root SYSTEM 'a'><a/>", 1},
        DepthCase{"EndTagWithBlank", "<a><b></b ><c></c\n></a>", 2}, DepthCase{"EndTagFirst", "</a><b/>", 1},
        DepthCase{"OpenComment", "<a><!-- <b><c>", 1}, DepthCase{"OpenTag", "<a><b t='<c><d>", 2},
        DepthCase{"OpenBracket", "<a><", 1}, DepthCase{"NameStarts", "<_><é></é></_>", 2},
        DepthCase{"NumberIsNoName", "<a><1><2></a>", 1}, DepthCase{"ByteOrderMark", "\xEF\xBB\xBF<a><b/></a>", 2}),
    [](const testing::TestParamInfo<DepthCase>& test) { return test.param.name; });

TEST(AlarmXmlDepth, ZeroByteEndsTheText) {
    EXPECT_EQ(scannedDepth(std::string("<a>\0<b><c>", 10)), 1U);
    // Whatever is open there.
    const std::string after = std::string(1, '\0') + "'?>--><b><c>";
    for (const std::string open : {"<a", "<a t='", "<a><!--", "<a><![CDATA[", "<a></", "<a><", "<a><1"}) {
        EXPECT_EQ(scannedDepth(open + after), 1U) << open;
    }
    for (const std::string open : {"<?xml", "<?xml version", "<?xml version=", "<?xml version='", "<?xml encoding=x"}) {
        EXPECT_EQ(scannedDepth(open + after), 0U) << open;
    }
}

TEST(AlarmXmlDepth, BrokenUtf8HidesWhatFollowsItOnlyWhereTinyXmlSaysSo) {
    // In UTF-8 the quote belongs to the broken character; without a declared encoding it ends the value.
    EXPECT_EQ(scannedDepth("<?xml version='1.0'?><a t='\xC3' u='><b><c/></b></a>"), 3U);
    EXPECT_EQ(scannedDepth("<a t='\xC3' u='><b><c/></b></a>"), 1U);
    EXPECT_EQ(scannedDepth("<?xml version='1.0' encoding='GBK'?><a t='\xC3' u='><b><c/></b></a>"), 1U);
}

// The first byte says how many belong to a character; those hide a quote, the one after them ends the value.
TEST(AlarmXmlDepth, FirstByteOfACharacterSaysHowManyItHides) {
    const std::pair<char, std::size_t> characters[] = {{'x', 1},    {'\x80', 1}, {'\xC1', 1}, {'\xC2', 2},
                                                       {'\xDF', 2}, {'\xE0', 3}, {'\xEF', 3}, {'\xF0', 4},
                                                       {'\xF4', 4}, {'\xF5', 1}, {'\xFF', 1}};
    for (const auto& [first, length] : characters) {
        for (std::size_t between = 0; between < 4; ++between) {
            const bool isHidden = between + 1 < length;
            const std::string xml = std::string("<?xml version='1.0'?><a t='") + first + std::string(between, 'x') +
                                    "' u='><b><c/></b></a>";
            EXPECT_EQ(scannedDepth(xml), isHidden ? 3U : 1U) << xml;
        }
    }
}

TEST(AlarmXmlDepth, ElementBeginsWithALetterAnUnderscoreOrAByteFrom127On) {
    for (const char* start : {"a", "Z", "_", "\x7F", "\x80", "\xFF"}) {
        expectDepth(std::string("<r><") + start + "/></r>", 2);
    }
    for (const char* start : {"~", "1", "-", ".", ":", "@", "[", "{"}) {
        expectDepth(std::string("<r><") + start + "></r>", 1);
    }
}

TEST(AlarmXmlDepth, TagEndsItselfWithASlashRightBeforeItsEnd) {
    expectDepth("<a><b/><b/></a>", 2);
    expectDepth("<a t='1'/><b/>", 1);
    expectDepth("<a t='/'><b/></a>", 2);
    expectDepth("<a t='>'/><b/>", 1);
    expectDepth("<a t=1/><b/>", 1);
    expectDepth("<a t='>' u=\"'>\"><b v=\">'\"/></a>", 2);
}

TEST(AlarmXmlDepth, ValuesOfADeclarationsOwnAttributesMayHoldMarkup) {
    for (const std::string name : {"version", "VERSION", "standalone", "encoding", "version1", "version_", "version-x",
                                   "version.x", "version:x", "version\xE4", "version-.:1_x", "standalone-x"}) {
        for (const char* equals : {"=", " = ", "\t=\n"}) {
            expectDepth("<?xml " + name + equals + "'><a><b/></a>'?><c/>", 1);
            expectDepth("<?xml " + name + equals + "\"'><a><b/></a>\"?><c/>", 1);
        }
    }
    for (const std::string name : {"versio", "xversion", "standalon", "encodin", "t"}) {
        expectDepth("<?xml " + name + "='><a><b/></a><!-- '?> -->", 2);
    }
}

TEST(AlarmXmlDepth, EncodingIsTheOneThatTinyXmlFinds) {
    const std::pair<const char*, bool> cases[] = {
        {"", false},
        {"\xEF\xBB\xBF", true},
        {"\xEF\xBB\xBF<?xml encoding='GBK'?>", true},
        {"<?xml?>", true},
        {"<?xml version='1.0'?>", true},
        {"<?xml version='1.0' standalone='yes'?>", true},
        {"<?xml encoding='UTF-8'?>", true},
        {"<?xml encoding=\"UTF-8\"?>", true},
        {"<?XML ENCODING='utf-8'?>", true},
        {"<?xml encoding='UTF-8x'?>", true},
        {"<?xml encoding='UTF-16'?>", false},
        {"<?xml encoding='UTF-'?>", false},
        {"<?xml encoding='utf8'?>", true},
        {"<?xml encoding='UTF8'?>", true},
        {"<?xml encoding='UTF8x'?>", true},
        {"<?xml encoding='UTF'?>", false},
        {"<?xml encoding='ISO-8859-1'?>", false},
        {"<?xml version='1.0' encoding='GBK' standalone='yes'?>", false},
        {"<?xml encoding = 'GBK'?>", false},
        {"<?xml encoding=''?>", true},
        {"<?xml encoding=\"\"?>", true},
        {"<?xml encoding=' UTF-8'?>", false},
        {"<?xml encoding='x'?>", false},
        {"<?xml encoding=UTF-8 ?>", true},
        {"<?xml encoding=UTF-8?>", true},
        {"<?xml encoding=GBK ?>", false},
        {"<?xml encoding=GBK version='><d/>'?>", false},
        {"<?xml encoding=>", true},
        {"<?xml encoding=/GBK?>", true},
        {"<?xml encoding= GBK>", false},
        {"<?xml encoding-x='GBK'?>", false},
        {"<?xml xencoding='GBK'?>", true},
        {"<?xml encoding='GBK' encoding='UTF-8'?>", true},
        {"<?xml encoding='UTF-8' encoding='GBK'?>", false},
        {"<?xml encoding='GBK'?><?xml encoding='UTF-8'?>", false},
        {"<?xml encoding='UTF-8'?><?xml encoding='GBK'?>", true},
        {"<!-- x --><?xml encoding='UTF-8'?>", true},
        {"<d><?xml encoding='UTF-8'?></d>", false},
    };
    for (const auto& [head, isUtf8] : cases) {
        // In UTF-8 the broken character hides the quote after it, and the value of `t` ends before the next one.
        expectDepth(head + std::string("<a t='\xC3' u='><b><c/></b></a><!-- '/> -->"), isUtf8 ? 3 : 1);
    }
}

TEST(AlarmXmlDepth, BrokenCharacterCountsWhereverItStands) {
    for (std::size_t before = 0; before <= 16; ++before) {
        expectDepth("<?xml?><a t='" + std::string(before, 'x') + "\xC3' u='><b/></a><!--'/>-->", 2);
    }
}

TEST(AlarmXmlDepth, NeverBelowTheTreeThatTinyXmlBuilds) {
    const char* const pieces[] = {"<a>",   "<a>",       "</a>",  "</a>",        "<b/>", "<a t='1'>", "<",
                                  ">",     "/",         "'",     "\"",          "=",    " ",         "<!--",
                                  "-->",   "<![CDATA[", "]]>",   "<?xml ",      "?>",   "version=",  "encoding='GBK'",
                                  "<!D",   "</",        "<a u=", "x",           "\xC3", "\xE4",      "&amp;",
                                  "&#60;", "\n",        "_",     "\xEF\xBB\xBF"};
    std::mt19937 random(20260102);  // always the same texts
    std::uniform_int_distribution<std::size_t> piece(0, std::size(pieces) - 1);
    std::uniform_int_distribution<int> count(1, 24);
    int exact = 0;
    for (int round = 0; round < 60000; ++round) {
        std::string xml = round % 3 == 0 ? "<?xml version='1.0'?>" : "";
        for (int i = count(random); i > 0; --i) xml += pieces[piece(random)];
        xml += "\n\n\n";  // TinyXML steps over the end of a text that ends in a broken UTF-8 character
        TiXmlDocument document;
        parse(document, xml);
        const std::size_t scanned = scannedDepth(xml);
        ASSERT_GE(scanned, treeDepth(document)) << xml;
        if (scanned == treeDepth(document)) ++exact;
    }
    EXPECT_GT(exact, 1000);
}

}  // namespace
