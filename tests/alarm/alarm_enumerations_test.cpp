#include <gmock/gmock.h>
#include <tinyxml.h>

#include <filesystem>
#include <string>
#include <vector>

#include "tests/alarm/alarm_files.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

class AlarmEnumerationsTest : public AlarmFilesTest {
protected:
    std::string enumerationFailure(const std::string& content) {
        m_path = writeEnumerationFile(content);
        return loadFailure();
    }

    std::string m_path;
};

TEST_F(AlarmEnumerationsTest, MembersAreKeyedByTypeAndValue) {
    writeEnumerations(
        "<enum_type name='A'><enum_member value='2'>two</enum_member><enum_member value='02'>other"
        "</enum_member></enum_type><enum_type name='B'><enum_member value='2'>b</enum_member></enum_type>");
    EXPECT_THAT(load().enumDescMap(), ElementsAre(Pair("A_02", "other"), Pair("A_2", "two"), Pair("B_2", "b")));
}

TEST_F(AlarmEnumerationsTest, FirstDescriptionOfAValueWins) {
    writeEnumerations(
        "<enum_type name='A'><enum_member value='2'>first</enum_member>"
        "<enum_member value='2'>second</enum_member></enum_type>");
    EXPECT_THAT(load().enumDescMap(), ElementsAre(Pair("A_2", "first")));
}

TEST_F(AlarmEnumerationsTest, AcceptedMembersAreLogged) {
    writeEnumerations(
        "<enum_type name='A'><enum_member value='2'>x</enum_member><enum_member value='2'>y</enum_member>"
        "<enum_member>z</enum_member></enum_type>");
    CAlarmConfigParser& parser = load();
    std::string path = ENUMERATION_PATH;
    EXPECT_EQ(parser.parseAlarmParamEnumDesc(path), 0);
    EXPECT_EQ(path, host.root() + "/" + ENUMERATION_PATH);
    EXPECT_THAT(host.log().linesWithoutTrace(),
                ElementsAre("debug 0xFFFF EnumDescKey is (A_2)", "debug 0xFFFF EnumDescKey is (A_2)"));
}

TEST_F(AlarmEnumerationsTest, BadTypesAndMembersAreSkippedSilently) {
    writeEnumerations(
        "<!--enum_type--><enum_type><enum_member value='1'>nameless</enum_member></enum_type>"
        "<other name='A'><enum_member value='1'>other</enum_member></other>"
        "<enum_type name='A'><enum_member>no value</enum_member><enum_member value='2'/>"
        "<enum_member value='3'>  </enum_member><!--enum_member--><member value='4'>x</member>"
        "<enum_member value='5'>five</enum_member></enum_type>");
    EXPECT_THAT(CAlarmConfigParser::instance()->enumDescMap(), ElementsAre(Pair("A_5", "five")));
    EXPECT_THAT(host.log().linesWithoutTrace(),
                ElementsAre("debug 0xFFFF file path : conf/definitions.xml",
                            "debug 0xFFFF file path : conf/enumerations.xml", "debug 0xFFFF EnumDescKey is (A_5)"));
}

TEST_F(AlarmEnumerationsTest, TypeNodesWithoutUseAreSkipped) {
    CAlarmConfigParser& parser = load();
    TiXmlComment comment("enum_type");
    TiXmlElement nameless("enum_type");
    TiXmlElement named("enum_type");
    named.SetAttribute("name", "");
    EXPECT_EQ(parser.parseAlarmParamEnumType(nullptr), -1);
    EXPECT_EQ(parser.parseAlarmParamEnumType(&comment), -1);
    EXPECT_EQ(parser.parseAlarmParamEnumType(&nameless), -1);
    EXPECT_EQ(parser.parseAlarmParamEnumType(&named), 0);
    EXPECT_THAT(host.log().linesWithoutTrace(), IsEmpty());
}

TEST_F(AlarmEnumerationsTest, LaterParamEnumIsIgnored) {
    writeEnumerationFile(
        "<alarm><x/><param_enum><enum_type name='A'><enum_member value='1'>a</enum_member></enum_type>"
        "</param_enum><param_enum><enum_type name='B'><enum_member value='1'>b</enum_member></enum_type>"
        "</param_enum></alarm>");
    EXPECT_THAT(load().enumDescMap(), ElementsAre(Pair("A_1", "a")));
}

TEST_F(AlarmEnumerationsTest, SkippedTypeIsTracedAsFailed) {
    CAlarmConfigParser& parser = load();
    EXPECT_EQ(parser.parseAlarmParamEnumType(nullptr), -1);
    EXPECT_THAT(host.log().lines(),
                ElementsAre("trace enter int CAlarmConfigParser::parseAlarmParamEnumType(TiXmlNode*)...",
                            "trace leave int CAlarmConfigParser::parseAlarmParamEnumType(TiXmlNode*): NOK"));
}

TEST_F(AlarmEnumerationsTest, PathIsAsConfigured) {
    std::string path = "before";
    load().getAlarmParamEnumFilePath(path);
    EXPECT_EQ(path, ENUMERATION_PATH);
    EXPECT_THAT(host.log().linesWithoutTrace(), ElementsAre("debug 0xFFFF file path : conf/enumerations.xml"));
}

TEST_F(AlarmEnumerationsTest, DescriptionsGoWithTheInstance) {
    load();
    writeEnumerations("<enum_type name='A'><enum_member value='1'>a</enum_member></enum_type>");
    EXPECT_THAT(load().enumDescMap(), ElementsAre(Pair("A_1", "a")));
}

TEST_F(AlarmEnumerationsTest, NameOfTheRootElementIsExact) {
    for (const std::string name : {"Alarm", "alarmX", "alar", "alarm.", "Xalarm"}) {
        EXPECT_EQ(enumerationFailure("<" + name + "><param_enum/></" + name + ">"),
                  "root element(" + name + ") is invalid, should be (alarm).");
    }
}

TEST_F(AlarmEnumerationsTest, NamesBelowTheRootElementAreExact) {
    writeEnumerationFile(
        "<alarm><param_enumX><enum_type name='A'><enum_member value='1'>a</enum_member></enum_type></param_enumX>"
        "<param_enum><enum_typeX name='B'><enum_member value='1'>b</enum_member></enum_typeX>"
        "<enum_type name='C'><enum_memberX value='1'>x</enum_memberX><enum_member value='2'>c</enum_member>"
        "</enum_type></param_enum></alarm>");
    EXPECT_THAT(load().enumDescMap(), ElementsAre(Pair("C_2", "c")));
}

TEST_F(AlarmEnumerationsTest, CommentsNamedLikeTheElementsAreIgnored) {
    writeEnumerationFile(
        "<!--alarm--><alarm><!--param_enum--><param_enum><!--enum_type--><enum_type name='A'><!--enum_member-->"
        "<enum_member value='1'>a</enum_member><!--enum_member--></enum_type><!--enum_type--></param_enum></alarm>");
    EXPECT_THAT(load().enumDescMap(), ElementsAre(Pair("A_1", "a")));
}

TEST_F(AlarmEnumerationsTest, EmptyNamesAndValuesArePartOfTheKey) {
    writeEnumerations(
        "<enum_type name='A'><enum_member value=''>nothing</enum_member></enum_type>"
        "<enum_type name=''><enum_member value='1'>one</enum_member></enum_type>");
    EXPECT_THAT(load().enumDescMap(), ElementsAre(Pair("A_", "nothing"), Pair("_1", "one")));
}

TEST_F(AlarmEnumerationsTest, WrongRootElementFails) {
    EXPECT_EQ(enumerationFailure("<root/>"), "root element(root) is invalid, should be (alarm).");
}

TEST_F(AlarmEnumerationsTest, RootWithoutParamEnumFails) {
    EXPECT_EQ(enumerationFailure("<alarm/>"), "parse param_enum element failed!");
}

TEST_F(AlarmEnumerationsTest, DocumentWithoutElementFails) {
    EXPECT_EQ(enumerationFailure("<!-- nothing -->"), "parse root element failed!");
}

TEST_F(AlarmEnumerationsTest, BrokenFileFailsWithItsPlace) {
    const std::string message = enumerationFailure("<alarm>\n<param_enum a/></alarm>");
    EXPECT_EQ(message,
              "open alarm config file(" + m_path + ") failed.\nError reading Attributes.. Location(row:2,col:14).");
}

TEST_F(AlarmEnumerationsTest, TabReachesTheNextFourthColumn) {
    const std::string message = enumerationFailure("<alarm>\n\t<param_enum a/></alarm>");
    EXPECT_EQ(message,
              "open alarm config file(" + m_path + ") failed.\nError reading Attributes.. Location(row:2,col:18).");
}

TEST_F(AlarmEnumerationsTest, MissingFileFailsEvenWhenNoAlarmNeedsIt) {
    writeDefinitions("<param eventID='1'/>");
    std::filesystem::remove(host.root() + "/" + ENUMERATION_PATH);
    EXPECT_EQ(loadFailure(), "open alarm config file(" + host.root() +
                                 "/conf/enumerations.xml) failed.\nFailed to open file. Location(row:0,col:0).");
}

TEST_F(AlarmEnumerationsTest, UnsetPathNamesTheRootDirectoryAndFails) {
    host.setConfig("SNMP_CONF", "ALARM_PARAM_ENUM_PATH", "");
    EXPECT_EQ(loadFailure(),
              "open alarm config file(" + host.root() + "/) failed.\nIs a directory. Location(row:0,col:0).");
    EXPECT_THAT(host.log().lines("debug"), ElementsAre("debug 0xFFFF file path : conf/definitions.xml"));
}

TEST_F(AlarmEnumerationsTest, DeepFileFails) {
    std::string content;
    for (int i = 0; i < 65; ++i) content += "<alarm>";
    const std::string message = enumerationFailure(content);
    EXPECT_EQ(message, "open alarm config file(" + m_path +
                           ") failed.\nElements are nested more than 64 levels deep. Location(row:0,col:0).");
}

struct PairCase {
    const char* name;
    const char* text;
    POSITION_LIST pairs;
};

void PrintTo(const PairCase& c, std::ostream* os) {
    *os << c.text;
}

class ParamDescTest : public AlarmFilesTest, public testing::WithParamInterface<PairCase> {};

TEST_P(ParamDescTest, GivesItsPairs) {
    POSITION_LIST pairs;
    EXPECT_EQ(load().parseAlarmParamEnumDescPair(GetParam().text, pairs), 0);
    EXPECT_EQ(pairs, GetParam().pairs);
}

INSTANTIATE_TEST_SUITE_P(Texts, ParamDescTest,
                         testing::Values(PairCase{"Empty", "", {}}, PairCase{"CommasOnly", ",,,", {}},
                                         PairCase{"Two", "2=DiskState,4=PortType", {{2, "DiskState"}, {4, "PortType"}}},
                                         PairCase{"ExtraCommas", ",,3=PortType,,", {{3, "PortType"}}},
                                         PairCase{"NoEqualsSign", "abc", {}},
                                         PairCase{"NoEqualsSignAmongOthers", "abc,1=A", {{1, "A"}}},
                                         PairCase{"NoDigits", "x=PortType", {{0, "PortType"}}},
                                         PairCase{"NoPosition", "=A", {{0, "A"}}}, PairCase{"NoType", "5=", {{5, ""}}},
                                         PairCase{"FurtherEqualsSigns", "5=a=b", {{5, "a=b"}}},
                                         PairCase{"BlanksStay", "1= DiskState", {{1, " DiskState"}}},
                                         PairCase{"Negative", "-1=A", {{4294967295U, "A"}}},
                                         PairCase{"BeyondThirtyTwoBits", "4294967298=A", {{2, "A"}}},
                                         PairCase{"SamePositionTwice", "1=A,1=B", {{1, "A"}, {1, "B"}}}),
                         [](const testing::TestParamInfo<PairCase>& test) { return test.param.name; });

TEST_F(AlarmEnumerationsTest, PairsAreAppended) {
    POSITION_LIST pairs{{9, "before"}};
    load().parseAlarmParamEnumDescPair("1=A", pairs);
    EXPECT_THAT(pairs, ElementsAre(Pair(9U, "before"), Pair(1U, "A")));
}

TEST_F(AlarmEnumerationsTest, ParamDescIsTracedAndReadFromACopyOfTheHosts) {
    const std::string signature = "int CAlarmConfigParser::parseAlarmParamEnumDescPair(const char*, POSITION_LIST&)";
    CAlarmConfigParser& parser = load();
    const char text[] = "1=A,2=B";
    POSITION_LIST pairs;
    EXPECT_EQ(parser.parseAlarmParamEnumDescPair(text, pairs), 0);
    EXPECT_STREQ(text, "1=A,2=B");
    EXPECT_THAT(host.log().lines(),
                ElementsAre("trace enter " + signature + "...", "trace leave " + signature + ": OK"));
    host.refuseCopies();
    pairs.clear();
    EXPECT_THROW(parser.parseAlarmParamEnumDescPair(text, pairs), CVRX_Exception);
    EXPECT_THAT(pairs, IsEmpty());
    EXPECT_EQ(host.log().lines().back(), "trace leave " + signature + ": NOK");
    EXPECT_THROW(parser.parseAlarmParamEnumDescPair(nullptr, pairs), CVRX_Exception);
    EXPECT_EQ(host.log().lines().size(), 6U);
    EXPECT_EQ(host.log().lines().back(), "trace leave " + signature + ": NOK");
}

TEST_F(AlarmEnumerationsTest, NullParamDescIsRefused) {
    POSITION_LIST pairs;
    try {
        load().parseAlarmParamEnumDescPair(nullptr, pairs);
        FAIL() << "no exception";
    } catch (const CVRX_Exception& e) {
        EXPECT_STREQ(e.what(), "CVRX_Exception: Null pointer.");
    }
}

class ReplaceEnumTest : public AlarmFilesTest {
protected:
    std::vector<std::string> replaced(std::vector<std::string> params, const POSITION_LIST& enumDescs) {
        load().replaceAlarmParamEnumValueDesc(70, params, enumDescs);
        return params;
    }
};

TEST_F(ReplaceEnumTest, ValueBecomesItsDescription) {
    EXPECT_THAT(replaced({"1", "2"}, {{1, "DiskState"}}), ElementsAre("1", "degraded"));
    EXPECT_THAT(host.log().linesWithoutTrace(), IsEmpty());
}

TEST_F(ReplaceEnumTest, PositionAtTheCountIsLoggedAndChangesNothing) {
    EXPECT_THAT(replaced({"1", "1", "1"}, {{3, "DiskState"}}), ElementsAre("1", "1", "1"));
    EXPECT_THAT(host.log().linesWithoutTrace(),
                ElementsAre("warn 0x1002E alarm 70 parameter enume value 3 is out of rang[0, 3]"));
}

TEST_F(ReplaceEnumTest, LargePositionIsComparedUnsigned) {
    EXPECT_THAT(replaced({"1"}, {{4294967295U, "DiskState"}, {0, "DiskState"}}), ElementsAre("offline"));
    EXPECT_THAT(host.log().linesWithoutTrace(),
                ElementsAre("warn 0x1002E alarm 70 parameter enume value -1 is out of rang[0, 1]"));
}

TEST_F(ReplaceEnumTest, UnknownValueStaysAndIsLogged) {
    EXPECT_THAT(replaced({"9"}, {{0, "DiskState"}}), ElementsAre("9"));
    EXPECT_THAT(host.log().linesWithoutTrace(),
                ElementsAre("warn 0x1002E not found enum value literal desc of key DiskState_9 in map"));
}

TEST_F(ReplaceEnumTest, AValueLongerThanItsTypeIsLookedUpWhole) {
    const std::string value(300, '1');
    writeEnumerations("<enum_type name='A'><enum_member value='1'>short</enum_member><enum_member value='" + value +
                      "'>long</enum_member></enum_type>");
    EXPECT_THAT(replaced({value}, {{0, "A"}}), ElementsAre("long"));
}

TEST_F(ReplaceEnumTest, EntriesOfOnePositionApplyInOrder) {
    writeEnumerations(
        "<enum_type name='A'><enum_member value='1'>2</enum_member></enum_type>"
        "<enum_type name='B'><enum_member value='2'>three</enum_member></enum_type>");
    EXPECT_THAT(replaced({"1"}, {{0, "A"}, {0, "B"}}), ElementsAre("three"));
}

TEST_F(ReplaceEnumTest, IsTracedWhenCalledAlone) {
    replaced({"1"}, {{0, "DiskState"}});
    EXPECT_THAT(host.log().lines(),
                ElementsAre("trace enter void CAlarmConfigParser::replaceAlarmParamEnumValueDesc(long long unsigned "
                            "int, std::vector<std::string>&, const POSITION_LIST&)...",
                            "trace leave void CAlarmConfigParser::replaceAlarmParamEnumValueDesc(long long unsigned "
                            "int, std::vector<std::string>&, const POSITION_LIST&): OK"));
}

TEST_F(ReplaceEnumTest, EmptyParameterIsLookedUpAsTwoHyphens) {
    writeEnumerations("<enum_type name='DiskState'><enum_member value='--'>unknown state</enum_member></enum_type>");
    load();
    EXPECT_EQ(render(DISK_FAULT, "7,A,").detail, "Disk 7 in enclosure A is unknown state.");
}

}  // namespace
