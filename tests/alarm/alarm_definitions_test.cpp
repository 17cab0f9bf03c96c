#include <gmock/gmock.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <thread>
#include <vector>

#include <tinyxml.h>

#include "tests/alarm/alarm_files.h"
#include "tests/alarm/failing_lock.h"
#include "tests/alarm/waiting_thread.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;
using testing::Pair;
using testing::StartsWith;

class AlarmDefinitionsTest : public AlarmFilesTest {
protected:
    const CAlarmConfigItem& only() {
        const CAlarmConfigParser& parser = load();
        EXPECT_EQ(parser.alarmItems().size(), 1U);
        return *parser.alarmItems().begin()->second;
    }

    // Every text is `text`, and no parameter has an enumeration.
    static void expectTexts(const CAlarmConfigItem& item, const std::string& text) {
        EXPECT_EQ(item.name, text);
        EXPECT_EQ(item.reason, text);
        EXPECT_EQ(item.suggestion, text);
        EXPECT_EQ(item.detail, text);
        EXPECT_EQ(item.location, text);
        EXPECT_EQ(item.alarmOid, text);
        EXPECT_THAT(item.paramEnumDescs, IsEmpty());
    }
};

TEST_F(AlarmDefinitionsTest, DefinitionKeepsItsTexts) {
    const CAlarmConfigItem& item = only();
    EXPECT_EQ(item.alarmId, DISK_FAULT);
    EXPECT_EQ(item.level, DISK_FAULT_LEVEL);
    EXPECT_EQ(item.name, "Disk fault");
    EXPECT_EQ(item.reason, "A disk failed.");
    EXPECT_EQ(item.suggestion, "Replace disk ##00.");
    EXPECT_EQ(item.detail, "Disk ##00 in enclosure ##01 is ##02{offline:not reachable;degraded:partly working}.");
    EXPECT_EQ(item.location, "Enclosure ##01, slot ##00");
    EXPECT_EQ(item.alarmOid, "5.7");
    EXPECT_THAT(item.paramEnumDescs, ElementsAre(Pair(2U, "DiskState")));
}

TEST_F(AlarmDefinitionsTest, AbsentTextsAreNoneAndEmptyOnesStayEmpty) {
    writeDefinitions(
        "<param eventID='7'/>"
        "<param eventID='8' name='' reason='' suggestion='' detail='' location='' alarmOid='' paramDesc=''/>");
    const auto& items = load().alarmItems();
    expectTexts(*items.at(7), "None");
    expectTexts(*items.at(8), "");
}

TEST_F(AlarmDefinitionsTest, ElementWithoutAttributesDefinesAlarmZero) {
    writeDefinitions("<param/>");
    const CAlarmConfigItem& item = only();
    EXPECT_EQ(item.alarmId, 0U);
    EXPECT_EQ(item.level, 0U);
    expectTexts(item, "None");
    EXPECT_EQ(render(0, "").result, -1);
}

TEST_F(AlarmDefinitionsTest, FirstDefinitionOfAnIdentifierWins) {
    writeDefinitions(
        "<param eventID='-1' name='first'/><param eventID='-1' name='second'/><param eventID='-1' name='third'/>");
    CAlarmConfigParser::instance();
    EXPECT_THAT(host.log().lines("warn"),
                ElementsAre("warn 0x1002E repeated alarm 18446744073709551615, so ignore it.",
                            "warn 0x1002E repeated alarm 18446744073709551615, so ignore it."));
    EXPECT_EQ(only().name, "first");
}

TEST_F(AlarmDefinitionsTest, RepeatedDefinitionDoesNotStopTheLoad) {
    writeDefinitions("<param eventID='7'/><param eventID='7'/><param eventID='8'/>");
    EXPECT_THAT(load().alarmItems(), ElementsAre(Pair(7U, testing::_), Pair(8U, testing::_)));
}

TEST_F(AlarmDefinitionsTest, ElementIsStoredOnce) {
    CAlarmConfigParser& parser = load();
    TiXmlElement element("param");
    element.SetAttribute("eventID", "9");
    EXPECT_EQ(parser.parseAlarmItem(&element), 0);
    EXPECT_EQ(parser.parseAlarmItem(&element), -1);
    EXPECT_THAT(host.log().lines(), ElementsAre("trace enter int CAlarmConfigParser::parseAlarmItem(TiXmlNode*)...",
                                                "trace leave int CAlarmConfigParser::parseAlarmItem(TiXmlNode*): OK",
                                                "trace enter int CAlarmConfigParser::parseAlarmItem(TiXmlNode*)...",
                                                "warn 0x1002E repeated alarm 9, so ignore it.",
                                                "trace leave int CAlarmConfigParser::parseAlarmItem(TiXmlNode*): NOK"));
    EXPECT_EQ(parser.alarmItems().count(9), 1U);
}

TEST_F(AlarmDefinitionsTest, ItemTakesItsTextsInOrder) {
    const CAlarmConfigItem item(0x100000002ULL, 3, "n", "r", "s", "d", "l", "o");
    EXPECT_EQ(item.alarmId, 0x100000002ULL);
    EXPECT_EQ(item.level, 3U);
    EXPECT_EQ(item.name + item.reason + item.suggestion + item.detail + item.location + item.alarmOid, "nrsdlo");
    EXPECT_THAT(item.paramEnumDescs, IsEmpty());
}

TEST_F(AlarmDefinitionsTest, EntriesOfParamDescKeepTheirOrder) {
    writeDefinitions("<param eventID='7' paramDesc='4=B,2=A,4=C'/>");
    EXPECT_THAT(only().paramEnumDescs, ElementsAre(Pair(4U, "B"), Pair(2U, "A"), Pair(4U, "C")));
}

TEST_F(AlarmDefinitionsTest, LevelIsNotReadFromTheFile) {
    writeDefinitions("<param eventID='4294967301' level='9'/>");
    EXPECT_EQ(only().level, 5U);
}

TEST_F(AlarmDefinitionsTest, IdentifierBeyondTheRangeIsTheLargest) {
    writeDefinitions("<param eventID='99999999999999999999'/>");
    EXPECT_EQ(only().alarmId, 9223372036854775807ULL);
}

TEST_F(AlarmDefinitionsTest, IdentifierIsDecimal) {
    writeDefinitions("<param eventID='010'/><param eventID='0x10'/>");
    EXPECT_THAT(load().alarmItems(), ElementsAre(Pair(0U, testing::_), Pair(10U, testing::_)));
}

TEST_F(AlarmDefinitionsTest, IdentifierEndsAtTheFirstNonDigit) {
    writeDefinitions("<param eventID='12abc'/>");
    EXPECT_EQ(only().alarmId, 12U);
}

TEST_F(AlarmDefinitionsTest, AbsentIdentifierDefinesAlarmZero) {
    writeDefinitions("<param name='a'/>");
    EXPECT_EQ(only().alarmId, 0U);
}

TEST_F(AlarmDefinitionsTest, IdentifierWithoutDigitsDefinesAlarmZero) {
    writeDefinitions("<param eventID='abc'/>");
    EXPECT_EQ(only().alarmId, 0U);
}

TEST_F(AlarmDefinitionsTest, IdentifierMayHaveBlanksAndASign) {
    writeDefinitions("<param eventID='  +9'/>");
    EXPECT_EQ(only().alarmId, 9U);
}

TEST_F(AlarmDefinitionsTest, NegativeIdentifierKeepsItsBits) {
    writeDefinitions("<param eventID='-1'/>");
    const CAlarmConfigItem& item = only();
    EXPECT_EQ(item.alarmId, 0xFFFFFFFFFFFFFFFFULL);
    EXPECT_EQ(item.level, 0xFFFFFFFFU);
}

TEST_F(AlarmDefinitionsTest, OtherChildrenAttributesAndLaterEventDefinitionsAreIgnored) {
    writeDefinitionFile(
        "<!-- alarms --><root version='2'><other/><eventDefinition id='a'><!--param--><group><param "
        "eventID='1'/></group>"
        "param<param eventID='2' color='red'/></eventDefinition><eventDefinition><param eventID='3'/></eventDefinition>"
        "</root>");
    EXPECT_EQ(only().alarmId, 2U);
}

TEST_F(AlarmDefinitionsTest, NullAndNonElementNodesAreSkippedSilently) {
    CAlarmConfigParser& parser = load();
    TiXmlComment comment("param");
    for (TiXmlNode* node : {static_cast<TiXmlNode*>(nullptr), static_cast<TiXmlNode*>(&comment)}) {
        EXPECT_EQ(parser.parseAlarmItem(node), -1);
        EXPECT_EQ(host.log().lines().back(), "trace leave int CAlarmConfigParser::parseAlarmItem(TiXmlNode*): NOK");
    }
    EXPECT_THAT(host.log().linesWithoutTrace(), IsEmpty());
    EXPECT_EQ(parser.alarmItems().size(), 1U);
}

TEST_F(AlarmDefinitionsTest, WrongRootElementFails) {
    writeDefinitionFile("<alarms/>");
    EXPECT_EQ(loadFailure(), "root element(alarms) is invalid, should be (root).");
}

TEST_F(AlarmDefinitionsTest, NameOfTheRootElementIsExact) {
    for (const std::string name : {"Root", "rootX", "roo", "root.", "Xroot"}) {
        writeDefinitionFile("<" + name + "><eventDefinition/></" + name + ">");
        EXPECT_EQ(loadFailure(), "root element(" + name + ") is invalid, should be (root).");
    }
}

TEST_F(AlarmDefinitionsTest, NamesBelowTheRootElementAreExact) {
    writeDefinitionFile(
        "<root><eventDefinitionX><param eventID='1'/></eventDefinitionX><eventDefinition><paramX eventID='2'/>"
        "<para eventID='3'/><param eventID='4'/></eventDefinition></root>");
    EXPECT_EQ(only().alarmId, 4U);
}

TEST_F(AlarmDefinitionsTest, CommentsNamedLikeTheElementsAreIgnored) {
    writeDefinitionFile(
        "<!--root--><root><!--eventDefinition--><eventDefinition><!--param--><param eventID='4'/><!--param-->"
        "</eventDefinition></root>");
    EXPECT_EQ(only().alarmId, 4U);
}

TEST_F(AlarmDefinitionsTest, RootWithoutEventDefinitionFails) {
    writeDefinitionFile("<root><params/></root>");
    EXPECT_EQ(loadFailure(), "parse eventDefinition element failed!");
}

TEST_F(AlarmDefinitionsTest, DocumentWithoutElementFails) {
    writeDefinitionFile("<!-- nothing -->");
    EXPECT_EQ(loadFailure(), "parse root element failed!");
}

TEST_F(AlarmDefinitionsTest, MissingFileFails) {
    host.setConfig("SNMP_CONF", "ALARM_INI_PATH", "conf/absent.xml");
    EXPECT_EQ(loadFailure(), "open config file(" + host.root() +
                                 "/conf/absent.xml) failed.\nFailed to open file. Location(row:0,col:0).");
}

TEST_F(AlarmDefinitionsTest, BrokenFileFailsWithItsPlace) {
    const std::string path = writeDefinitionFile("<root>\n<eventDefinition></root>");
    EXPECT_EQ(loadFailure(), "open config file(" + path + ") failed.\nError reading end tag.. Location(row:2,col:18).");
}

TEST_F(AlarmDefinitionsTest, TabReachesTheNextFourthColumn) {
    const std::string path = writeDefinitionFile("<root>\n\t<eventDefinition></root>");
    EXPECT_EQ(loadFailure(), "open config file(" + path + ") failed.\nError reading end tag.. Location(row:2,col:22).");
}

TEST_F(AlarmDefinitionsTest, EmptyFileFails) {
    const std::string path = writeDefinitionFile("");
    EXPECT_EQ(loadFailure(), "open config file(" + path + ") failed.\nError document empty.. Location(row:0,col:0).");
}

TEST_F(AlarmDefinitionsTest, UnsetPathNamesTheRootDirectoryAndFails) {
    host.setConfig("SNMP_CONF", "ALARM_INI_PATH", "");
    EXPECT_EQ(loadFailure(), "open config file(" + host.root() + "/) failed.\nIs a directory. Location(row:0,col:0).");
    EXPECT_THAT(host.log().lines("debug"), IsEmpty());
}

TEST_F(AlarmDefinitionsTest, PipeIsRefusedWithoutWaitingForIt) {
    const std::string path = host.root() + "/conf/pipe";
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    host.setConfig("SNMP_CONF", "ALARM_INI_PATH", "conf/pipe");
    EXPECT_EQ(loadFailure(), "open config file(" + path + ") failed.\nNot a regular file. Location(row:0,col:0).");
}

TEST_F(AlarmDefinitionsTest, FileThatCannotBeReadFails) {
    std::filesystem::create_symlink("/proc/self/mem", host.root() + "/conf/unreadable");
    host.setConfig("SNMP_CONF", "ALARM_INI_PATH", "conf/unreadable");
    EXPECT_EQ(loadFailure(), "open config file(" + host.root() +
                                 "/conf/unreadable) failed.\nFailed to read file. Location(row:0,col:0).");
}

TEST_F(AlarmDefinitionsTest, FileBeyondTheConfiguredSizeFails) {
    host.setConfig("SNMP_CONF", "ALARM_FILE_LIMIT_MIB", "1");
    const std::string document = "<root><eventDefinition/></root>";
    writeDefinitionFile(document + std::string(1024UL * 1024 - document.size(), ' '));
    EXPECT_EQ(loadFailure(), "");
    CAlarmConfigParser::destroy();
    const std::string path = writeDefinitionFile(document + std::string(1024UL * 1024 + 1 - document.size(), ' '));
    EXPECT_EQ(loadFailure(),
              "open config file(" + path + ") failed.\nFile is larger than 1 MiB. Location(row:0,col:0).");
}

TEST_F(AlarmDefinitionsTest, FileBeyondTheDefaultSizeFails) {
    const std::string path = writeDefinitionFile("<root/>");
    std::filesystem::resize_file(path, 64ULL * 1024 * 1024 + 1);
    EXPECT_EQ(loadFailure(),
              "open config file(" + path + ") failed.\nFile is larger than 64 MiB. Location(row:0,col:0).");
}

std::string nested(std::size_t levels) {  // below root and eventDefinition
    std::string text = "<root><eventDefinition>";
    for (std::size_t i = 2; i < levels; ++i) text += "<a>";
    for (std::size_t i = 2; i < levels; ++i) text += "</a>";
    return text + "</eventDefinition></root>";
}

TEST_F(AlarmDefinitionsTest, SixtyFourLevelsLoad) {
    writeDefinitionFile(nested(64));
    EXPECT_EQ(loadFailure(), "");
}

TEST_F(AlarmDefinitionsTest, SixtyFiveLevelsFail) {
    const std::string path = writeDefinitionFile(nested(65));
    EXPECT_EQ(loadFailure(), "open config file(" + path +
                                 ") failed.\nElements are nested more than 64 levels deep. Location(row:0,col:0).");
}

TEST_F(AlarmDefinitionsTest, HundredThousandLevelsFailOnASmallStack) {
    const std::string path = writeDefinitionFile(nested(100000));
    std::string message;
    pthread_attr_t attributes;
    ASSERT_EQ(pthread_attr_init(&attributes), 0);
    ASSERT_EQ(pthread_attr_setstacksize(&attributes, 1024UL * 1024), 0);
    pthread_t thread;
    ASSERT_EQ(pthread_create(
                  &thread, &attributes,
                  [](void* out) -> void* {
                      *static_cast<std::string*>(out) = loadFailure();
                      return nullptr;
                  },
                  &message),
              0);
    ASSERT_EQ(pthread_join(thread, nullptr), 0);
    pthread_attr_destroy(&attributes);
    EXPECT_EQ(message, "open config file(" + path +
                           ") failed.\nElements are nested more than 64 levels deep. Location(row:0,col:0).");
}

TEST_F(AlarmDefinitionsTest, TextEndsAtAZeroByteAlsoAfterABrokenCharacter) {
    std::string content = XML_DECLARATION + std::string("<root><eventDefinition/>\xE4");
    content += std::string(2, '\0');
    for (int i = 0; i < 100000; ++i) content += "<a>";
    const std::string path = writeDefinitionFile(content);
    EXPECT_THAT(loadFailure(),
                StartsWith("open config file(" + path + ") failed.\nError reading Element value.. Location(row:"));
}

TEST_F(AlarmDefinitionsTest, LineEndsAreLineFeeds) {
    writeDefinitionFile(
        "<root>\r\n<eventDefinition>\r<param eventID='7' name='a\r\nb\rc\nd\r\re'/>\r\n\r\n"
        "</eventDefinition></root>\r\n");
    EXPECT_EQ(only().name, "a\nb\nc\nd\n\ne");
    const std::string path = writeDefinitionFile("<root>\r\n\r<eventDefinition></root>");
    CAlarmConfigParser::destroy();
    EXPECT_EQ(loadFailure(), "open config file(" + path + ") failed.\nError reading end tag.. Location(row:3,col:18).");
}

TEST_F(AlarmDefinitionsTest, EncodingIsTheDeclaredOne) {
    const std::string root = "<root><eventDefinition><param eventID='7' name='&#228;'/></eventDefinition></root>";
    const std::pair<const char*, const char*> cases[] = {{"", "\xE4"},
                                                         {"\xEF\xBB\xBF", "\xC3\xA4"},
                                                         {"<?xml version='1.0'?>", "\xC3\xA4"},
                                                         {"<?xml version='1.0' encoding='UTF-8'?>", "\xC3\xA4"},
                                                         {"<?xml version='1.0' encoding='ISO-8859-1'?>", "\xE4"}};
    for (const auto& [head, name] : cases) {
        writeDefinitionFile(head + root);
        EXPECT_EQ(only().name, name) << head;
    }
}

TEST_F(AlarmDefinitionsTest, FailedLoadIsTriedAgain) {
    host.setConfig("SNMP_CONF", "ALARM_INI_PATH", "conf/later.xml");
    EXPECT_THAT(loadFailure(), StartsWith("open config file("));
    host.writeFile("conf/later.xml", "<root><eventDefinition><param eventID='8'/></eventDefinition></root>");
    EXPECT_EQ(loadFailure(), "");
    EXPECT_THAT(CAlarmConfigParser::instance()->alarmItems(), Contains(Pair(8U, testing::_)));
}

TEST_F(AlarmDefinitionsTest, FailingEnumerationFileFailsTheWholeLoad) {
    std::filesystem::remove(host.root() + "/" + ENUMERATION_PATH);
    EXPECT_THAT(loadFailure(), StartsWith("open alarm config file("));
    EXPECT_THAT(loadFailure(), EndsWith(",col:0)."));
    writeDefinitions("<param eventID='8'/>");
    writeEnumerations("<enum_type name='A'><enum_member value='1'>a</enum_member></enum_type>");
    EXPECT_EQ(loadFailure(), "");
    const CAlarmConfigParser& parser = *CAlarmConfigParser::instance();
    EXPECT_THAT(parser.alarmItems(), ElementsAre(Pair(8U, testing::_)));
    EXPECT_THAT(parser.enumDescMap(), ElementsAre(Pair("A_1", "a")));
}

TEST_F(AlarmDefinitionsTest, FilesAreReadOncePerInstance) {
    load();
    writeDefinitions("<param eventID='7'/>");
    EXPECT_EQ(CAlarmConfigParser::instance()->alarmItems().count(7), 0U);
    CAlarmConfigParser::destroy();
    EXPECT_EQ(CAlarmConfigParser::instance()->alarmItems().count(7), 1U);
}

TEST_F(AlarmDefinitionsTest, DestroyWithoutAnInstanceDoesNothing) {
    CAlarmConfigParser::destroy();
    CAlarmConfigParser::destroy();
    EXPECT_EQ(loadFailure(), "");
}

TEST_F(AlarmDefinitionsTest, LoadIsTracedInItsOrder) {
    CAlarmConfigParser::instance();
    EXPECT_THAT(host.log().lines(),
                ElementsAre("trace enter static CAlarmConfigParser* CAlarmConfigParser::instance()...",
                            "trace enter void CAlarmConfigParser::init()...",
                            "trace enter void CAlarmConfigParser::getAlarmFilePath(std::string&)...",
                            "debug 0xFFFF file path : conf/definitions.xml",
                            "trace leave void CAlarmConfigParser::getAlarmFilePath(std::string&): OK",
                            "trace enter void CAlarmConfigParser::parse(std::string&)...",
                            "trace enter int CAlarmConfigParser::parseAlarmItem(TiXmlNode*)...",
                            "trace enter int CAlarmConfigParser::parseAlarmParamEnumDescPair(const char*, "
                            "POSITION_LIST&)...",
                            "trace leave int CAlarmConfigParser::parseAlarmParamEnumDescPair(const char*, "
                            "POSITION_LIST&): OK",
                            "trace leave int CAlarmConfigParser::parseAlarmItem(TiXmlNode*): OK",
                            "trace leave void CAlarmConfigParser::parse(std::string&): OK",
                            "trace enter void CAlarmConfigParser::getAlarmParamEnumFilePath(std::string&)...",
                            "debug 0xFFFF file path : conf/enumerations.xml",
                            "trace leave void CAlarmConfigParser::getAlarmParamEnumFilePath(std::string&): OK",
                            "trace enter int CAlarmConfigParser::parseAlarmParamEnumDesc(std::string&)...",
                            "trace enter int CAlarmConfigParser::parseAlarmParamEnumType(TiXmlNode*)...",
                            "debug 0xFFFF EnumDescKey is (DiskState_1)", "debug 0xFFFF EnumDescKey is (DiskState_2)",
                            "trace leave int CAlarmConfigParser::parseAlarmParamEnumType(TiXmlNode*): OK",
                            "trace leave int CAlarmConfigParser::parseAlarmParamEnumDesc(std::string&): OK",
                            "trace leave void CAlarmConfigParser::init(): OK",
                            "trace leave static CAlarmConfigParser* CAlarmConfigParser::instance(): OK"));
}

TEST_F(AlarmDefinitionsTest, DestructionAndConversionsAreTraced) {
    CAlarmConfigParser& parser = load();
    u_int shortId = 0;
    parser.resolveAlarmId(1, shortId);
    parser.converToQ7700AlarmLevel(1);
    CAlarmConfigParser::destroy();
    EXPECT_THAT(host.log().lines(),
                ElementsAre("trace enter void CAlarmConfigParser::resolveAlarmId(long long unsigned int, u_int&)...",
                            "trace leave void CAlarmConfigParser::resolveAlarmId(long long unsigned int, u_int&): OK",
                            "trace enter int CAlarmConfigParser::converToQ7700AlarmLevel(int)...",
                            "trace leave int CAlarmConfigParser::converToQ7700AlarmLevel(int): OK",
                            "trace enter static void CAlarmConfigParser::destroy()...",
                            "trace enter CAlarmConfigParser::~CAlarmConfigParser()...",
                            "trace leave CAlarmConfigParser::~CAlarmConfigParser(): OK",
                            "trace leave static void CAlarmConfigParser::destroy(): OK"));
    for (const FakeLogLine& line : host.log().entries()) EXPECT_EQ(line.module, 4U);
}

TEST_F(AlarmDefinitionsTest, FilePathsAreAskedForInTheOrderOfTheLoad) {
    CAlarmConfigParser::instance();
    std::vector<std::string> paths;
    for (const std::string& key : host.configReads()) {
        if (key.find("_PATH") != std::string::npos) paths.push_back(key);
    }
    EXPECT_THAT(paths, ElementsAre("SNMP_CONF/ALARM_INI_PATH", "SNMP_CONF/ALARM_PARAM_ENUM_PATH"));
}

TEST_F(AlarmDefinitionsTest, PathsAreRewrittenInPlace) {
    CAlarmConfigParser& parser = load();
    std::string path = "before";
    parser.getAlarmFilePath(path);
    EXPECT_EQ(path, DEFINITION_PATH);
    parser.parse(path);
    EXPECT_EQ(path, host.root() + "/" + DEFINITION_PATH);
}

TEST_F(AlarmDefinitionsTest, ShortIdIsTheLowSixteenBits) {
    u_int shortId = 0;
    load().resolveAlarmId(0x100040003ULL, shortId);
    EXPECT_EQ(shortId, 3U);
    load().resolveAlarmId(0xFFFFFFFFFFFFFFFFULL, shortId);
    EXPECT_EQ(shortId, 0xFFFFU);
}

TEST_F(AlarmDefinitionsTest, LevelsBecomeLevelsOfTheManagementSystem) {
    CAlarmConfigParser& parser = load();
    std::vector<int> levels;
    for (int level = -1; level <= 9; ++level) levels.push_back(parser.converToQ7700AlarmLevel(level));
    EXPECT_THAT(levels, ElementsAre(4, 4, 4, 4, 4, 3, 2, 1, 1, 4, 4));
}

TEST_F(AlarmDefinitionsTest, ConstantsHaveTheirValues) {
    EXPECT_EQ(CAlarmConfigParser::COMMA, ",");
    EXPECT_EQ(CAlarmConfigParser::ESC_COMMA, "&#44;");
    EXPECT_EQ(CAlarmConfigParser::AMPERSAND, "&");
    EXPECT_EQ(CAlarmConfigParser::ECS_AMPERSAND, "&#38;");
}

TEST_F(AlarmDefinitionsTest, ManyThreadsGetTheSameInstance) {
    std::vector<std::thread> threads;
    std::vector<CAlarmConfigParser*> seen(8);
    threads.reserve(seen.size());
    for (CAlarmConfigParser*& parser : seen) {
        threads.emplace_back([&parser] { parser = CAlarmConfigParser::instance(); });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_THAT(seen, testing::Each(CAlarmConfigParser::instance()));
    EXPECT_EQ(host.log().lines("debug").size(), 4U);  // loaded once
}

TEST_F(AlarmDefinitionsTest, CreationAndDestructionWaitForTheLock) {
    ASSERT_EQ(OpenParser::_oSingletonMutex.acquire(), 0);
    {
        CAlarmConfigParser* seen[2] = {};
        WaitingThread first([&seen] { seen[0] = CAlarmConfigParser::instance(); });
        WaitingThread second([&seen] { seen[1] = CAlarmConfigParser::instance(); });
        EXPECT_TRUE(first.waits());
        EXPECT_TRUE(second.waits());
        EXPECT_THAT(host.configReads(), IsEmpty());
        OpenParser::_oSingletonMutex.release();
        first.join();
        second.join();
        EXPECT_NE(seen[0], nullptr);
        EXPECT_EQ(seen[0], seen[1]);
        EXPECT_EQ(host.log().lines("debug").size(), 4U);  // the second finds what the first has loaded
    }
    ASSERT_EQ(OpenParser::_oSingletonMutex.acquire(), 0);
    WaitingThread destruction([] { CAlarmConfigParser::destroy(); });
    EXPECT_TRUE(destruction.waits());
    EXPECT_EQ(CAlarmConfigParser::instance()->alarmItems().size(), 1U);  // it is still there
    OpenParser::_oSingletonMutex.release();
    destruction.join();
}

TEST_F(AlarmDefinitionsTest, CreationGoesOnWhenTheLockFails) {
    const FailingLock failing(OpenParser::_oSingletonMutex);
    EXPECT_EQ(loadFailure(), "");
    CAlarmConfigParser::destroy();
    EXPECT_EQ(loadFailure(), "");
    CAlarmConfigParser::destroy();
}

TEST_F(AlarmDefinitionsTest, LoadedInstanceNeedsNoLock) {
    CAlarmConfigParser& parser = load();
    ASSERT_EQ(OpenParser::_oSingletonMutex.acquire(), 0);
    EXPECT_EQ(CAlarmConfigParser::instance(), &parser);  // would wait for this very thread
    OpenParser::_oSingletonMutex.release();
}

TEST_F(AlarmDefinitionsTest, DestructionGoesOnWhenTheLockFails) {
    ACE_Thread_Mutex& mutex = load().*(&OpenParser::m_oMutex);
    makeEveryLockFail(mutex);
    CAlarmConfigParser::destroy();
    EXPECT_EQ(host.log().lines().back(), "trace leave static void CAlarmConfigParser::destroy(): OK");
    EXPECT_EQ(loadFailure(), "");
}

TEST_F(AlarmDefinitionsTest, FailedLoadLeavesTheLockFree) {
    writeDefinitionFile("<alarms/>");
    loadFailure();
    ASSERT_EQ(OpenParser::_oSingletonMutex.tryacquire(), 0);
    OpenParser::_oSingletonMutex.release();
}

}  // namespace
