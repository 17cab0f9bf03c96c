#include "host/agent/objects/mib_model.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/agent/mib_samples.h"

namespace vrx {

using testing::HasSubstr;

namespace {

std::string replaced(std::string text, const std::string& what, const std::string& with) {
    const auto at = text.find(what);
    EXPECT_NE(at, std::string::npos) << what;
    return text.replace(at, what.size(), with);
}

std::string refusal(const std::string& mib) {
    try {
        loadMib(mib);
    } catch (const MibError& error) {
        return error.what();
    }
    return "loaded";
}

}  // namespace

TEST(MibModel, KnowsTableColumnsInTheOrderOfTheirNumbers) {
    const MibModel model = loadMib(sampleMib());
    ASSERT_EQ(model.size(), 2U);
    const MibObject* const table = model.find(SAMPLE_TABLE);
    ASSERT_NE(table, nullptr);
    EXPECT_EQ(table->name, "sampleTable");
    EXPECT_TRUE(table->table);
    EXPECT_TRUE(table->creatable);
    std::string columns;
    for (const MibColumn& column : table->columns) columns += std::to_string(column.number) + column.name + " ";
    EXPECT_EQ(columns, "1sampleName 2sampleSize 3sampleStatus 4sampleCount 5sampleHeard 9sampleNumber ");
}

TEST(MibModel, KnowsTypesOfItsOwnOfTheSmiAndOfTextualConventions) {
    const MibModel model = loadMib(sampleMib());
    const MibObject& table = *model.find(SAMPLE_TABLE);
    EXPECT_EQ(table.column(1)->syntax.type, ASN_OCTET_STR);
    EXPECT_EQ(table.column(2)->syntax.type, ASN_GAUGE);
    EXPECT_EQ(table.column(3)->syntax.type, ASN_INTEGER);
    EXPECT_EQ(table.column(3)->syntax.name, "RowStatus");
    EXPECT_EQ(table.column(4)->syntax.type, ASN_COUNTER64);
    EXPECT_EQ(table.column(5)->syntax.type, ASN_INTEGER);
    EXPECT_EQ(table.rowStatus(), table.column(3));
}

TEST(MibModel, KnowsWhatMayBeReadAndWritten) {
    const MibModel model = loadMib(sampleMib());
    const MibObject& table = *model.find(SAMPLE_TABLE);
    EXPECT_TRUE(table.column(1)->readable());
    EXPECT_TRUE(table.column(1)->writable());
    EXPECT_TRUE(table.column(4)->readable());
    EXPECT_FALSE(table.column(4)->writable());
    EXPECT_FALSE(table.column(5)->readable()) << "accessible for notifications only";
    EXPECT_FALSE(table.column(9)->readable()) << "not accessible";
    EXPECT_EQ(table.column(6), nullptr);
}

TEST(MibModel, ARefinedRangeReplacesThatOfTheType) {
    const MibModel model = loadMib(sampleMib());
    const MibSyntax& name = model.find(SAMPLE_TABLE)->column(1)->syntax;
    EXPECT_FALSE(name.allows(0));
    EXPECT_TRUE(name.allows(1));
    EXPECT_TRUE(name.allows(8));
    EXPECT_FALSE(name.allows(9));
}

TEST(MibModel, ARangeMayHaveSeveralParts) {
    const MibModel model = loadMib(sampleMib());
    const MibSyntax& size = model.find(SAMPLE_TABLE)->column(2)->syntax;
    EXPECT_TRUE(size.allows(10));
    EXPECT_FALSE(size.allows(11));
    EXPECT_FALSE(size.allows(19));
    EXPECT_TRUE(size.allows(20));
}

TEST(MibModel, AnEnumerationAllowsItsNumbersOnly) {
    const MibModel model = loadMib(sampleMib());
    const MibSyntax& level = model.find(SAMPLE_TABLE)->column(5)->syntax;
    EXPECT_TRUE(level.allows(1));
    EXPECT_FALSE(level.allows(2));
    EXPECT_TRUE(level.allows(3));
}

TEST(MibModel, TheIndexColumnsRangeIsThatOfRowNumbers) {
    const MibModel model = loadMib(sampleMib());
    EXPECT_EQ(model.find(SAMPLE_TABLE)->index.min, 1);
    EXPECT_EQ(model.find(SAMPLE_TABLE)->index.max, 65535);
}

TEST(MibModel, AScalarIsOneColumnOfNumberZero) {
    const MibModel model = loadMib(sampleMib());
    const MibObject* const scalar = model.find(SAMPLE_SCALAR);
    ASSERT_NE(scalar, nullptr);
    EXPECT_FALSE(scalar->table);
    ASSERT_EQ(scalar->columns.size(), 1U);
    EXPECT_EQ(scalar->columns.front().number, 0U);
    EXPECT_TRUE(scalar->columns.front().writable());
}

TEST(MibModel, AnUnknownOidHasNoObject) {
    EXPECT_EQ(loadMib(sampleMib()).find({1, 3, 6}), nullptr);
}

TEST(MibModel, AMissingFileIsRefusedWithItsName) {
    try {
        MibModel::load("/no/such/file.xml");
        FAIL();
    } catch (const MibError& error) {
        EXPECT_THAT(error.what(), HasSubstr("/no/such/file.xml: "));
    }
}

TEST(MibModel, AFileThatIsNoXmlIsRefused) {
    EXPECT_THAT(refusal("no xml at all"), HasSubstr("agent-test-"));
}

TEST(MibModel, OtherXmlIsRefused) {
    EXPECT_THAT(refusal("<mib/>"), HasSubstr(": no <smi>: not the output of smidump -f xml"));
}

TEST(MibModel, AnUnknownTypeIsRefusedWithColumnAndType) {
    EXPECT_THAT(refusal(replaced(sampleMib(), "name=\"Counter64\"", "name=\"Colour\"")),
                HasSubstr("sampleCount: type \"Colour\" is not known"));
}

TEST(MibModel, AnUnknownAccessIsRefused) {
    EXPECT_THAT(refusal(replaced(sampleMib(), "<access>readonly</access>", "<access>sometimes</access>")),
                HasSubstr("sampleCount: access \"sometimes\" is not known"));
}

TEST(MibModel, ATableWithTwoIndexColumnsIsRefused) {
    EXPECT_THAT(
        refusal(replaced(sampleMib(), "</linkage>", "<index module=\"SAMPLE-MIB\" name=\"sampleSize\"/></linkage>")),
        HasSubstr("sampleTable: served are tables with one index column"));
}

TEST(MibModel, AnIndexOfAnotherTypeIsRefused) {
    EXPECT_THAT(refusal(replaced(sampleMib(), "name=\"sampleNumber\"/>", "name=\"sampleName\"/>")),
                HasSubstr("sampleTable: the index column is not an Unsigned32 column of the table"));
}

TEST(MibModel, ARangeThatIsNoNumberIsRefused) {
    EXPECT_THAT(refusal(replaced(sampleMib(), "max=\"8\"", "max=\"many\"")),
                HasSubstr("sampleName: <range>: \"many\" is no number"));
}

TEST(MibModel, ANameIsToldByItsColumn) {
    const MibModel model = loadMib(sampleMib());
    const auto told = [](const MibObject& object, const char* below) {
        OidVector name = object.root;
        const OidVector rest = parseOid(below);
        name.insert(name.end(), rest.begin(), rest.end());
        return object.nameOf(name.data(), name.size());
    };
    const MibObject& table = *model.find(SAMPLE_TABLE);
    EXPECT_EQ(told(table, "1.2.7"), "sampleSize.7");
    EXPECT_EQ(told(table, "1.2"), "sampleSize");
    EXPECT_EQ(told(table, "1.2.7.8"), "sampleSize.7.8");
    EXPECT_EQ(told(table, "1.20.7"), oidText(SAMPLE_TABLE) + ".1.20.7");
    EXPECT_EQ(told(table, "2.2.7"), oidText(SAMPLE_TABLE) + ".2.2.7");
    EXPECT_EQ(told(table, "1"), oidText(SAMPLE_TABLE) + ".1");
    EXPECT_EQ(table.nameOf(SAMPLE_TABLE.data(), SAMPLE_TABLE.size()), oidText(SAMPLE_TABLE));
    EXPECT_EQ(told(*model.find(SAMPLE_SCALAR), "0"), "sampleScalar.0");
}

TEST(OidVector, ReadsAndWritesDottedText) {
    EXPECT_EQ(oidText(parseOid("1.3.6.1")), "1.3.6.1");
    EXPECT_EQ(oidText(parseOid(".1.3.4294967295")), "1.3.4294967295");
}

TEST(OidVector, RefusesWhatIsNone) {
    for (const char* text : {"", ".", "1.", "1..2", "1.a", "1.-2", "1.4294967296", "1 .2", "1.2 "}) {
        EXPECT_THROW(parseOid(text), std::invalid_argument) << text;
    }
}

}  // namespace vrx
