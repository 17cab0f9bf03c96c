#include <gmock/gmock.h>

#include <algorithm>
#include <ctime>
#include <limits>
#include <string>
#include <thread>
#include <vector>

#include "tests/alarm/alarm_files.h"
#include "tests/alarm/failing_lock.h"
#include "tests/alarm/waiting_thread.h"

namespace {

using testing::AllOf;
using testing::Each;
using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;
using testing::Pair;
using testing::SizeIs;
using testing::StartsWith;

constexpr const char* GROWTH_WARNING =
    "warn 0x1002E alarm text needs more than 10000 replacements or grows by more than 1048576 bytes, the rest stays as "
    "it is.";

class AlarmRenderingTest : public AlarmFilesTest {
protected:
    static constexpr unsigned long long ALARM = 70;

    // Renders an alarm of these templates.
    Rendered renderTemplates(const std::string& detail, const std::string& location, const std::string& suggestion,
                             const std::string& params) {
        writeDefinitions("<param eventID=\"70\" name=\"Name ##00\" detail=\"" + detail + "\" location=\"" + location +
                         "\" suggestion=\"" + suggestion + "\"/>");
        load();
        return render(ALARM, params);
    }

    std::string renderDetail(const std::string& detail, const std::string& params) {
        const Rendered r = renderTemplates(detail, "l", "s", params);
        EXPECT_EQ(r.result, 0);
        return r.detail;
    }

    // The processor's time, of several renderings the shortest.
    static double secondsOfRendering(const std::string& params) {
        const auto used = [] {
            timespec time = {};
            clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
            return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
        };
        double shortest = std::numeric_limits<double>::max();
        for (int i = 0; i < 5; ++i) {
            const double before = used();
            render(ALARM, params);
            shortest = std::min(shortest, used() - before);
        }
        return shortest;
    }

    std::vector<std::string> logged() { return host.log().linesWithoutTrace(); }
};

void expectUntouched(const Rendered& r) {
    const Rendered before;
    EXPECT_EQ(r.location, before.location);
    EXPECT_EQ(r.detail, before.detail);
    EXPECT_EQ(r.level, before.level);
    EXPECT_EQ(r.name, before.name);
    EXPECT_EQ(r.suggestion, before.suggestion);
}

// --- whole alarms

TEST_F(AlarmRenderingTest, WorkedExample) {
    load();
    const Rendered r = render(DISK_FAULT, "7,CTE0&#44;A,1");
    EXPECT_EQ(r.result, 0);
    EXPECT_EQ(r.location, "Enclosure CTE0,A, slot 7");
    EXPECT_EQ(r.detail, "Disk 7 in enclosure CTE0,A is not reachable.");
    EXPECT_EQ(r.suggestion, "Replace disk 7.");
    EXPECT_EQ(r.name, "Disk fault");
    EXPECT_EQ(r.level, DISK_FAULT_LEVEL);
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(AlarmRenderingTest, WorkedExampleWithTooFewParameters) {
    load();
    const Rendered r = render(DISK_FAULT, "7");
    EXPECT_EQ(r.result, 0);
    EXPECT_EQ(r.location, "Enclosure --, slot 7");
    EXPECT_EQ(r.detail, "Disk 7 in enclosure -- is --.");
    EXPECT_EQ(r.suggestion, "Replace disk 7.");
    EXPECT_THAT(logged(), ElementsAre("warn 0x1002E alarm 4295229443 parameter enume value 2 is out of rang[0, 1]"));
}

TEST_F(AlarmRenderingTest, IdentifierZeroIsRefused) {
    load();
    const Rendered r = render(0, "7");
    EXPECT_EQ(r.result, -1);
    expectUntouched(r);
    EXPECT_THAT(logged(), ElementsAre("error 0x1002E invalid alarm id 0"));
}

TEST_F(AlarmRenderingTest, UnknownIdentifierLeavesEveryOutputUntouched) {
    load();
    const Rendered r = render(0xFFFFFFFFFFFFFFFFULL, "7");
    EXPECT_EQ(r.result, -1);
    expectUntouched(r);
    EXPECT_THAT(logged(), ElementsAre("warn 0x1002E alarm 18446744073709551615 desn't need to be parsed."));
}

TEST_F(AlarmRenderingTest, EmptyDefinitionsAreReportedBeforeTheIdentifier) {
    writeDefinitions("");
    load();
    const Rendered r = render(0, "7");
    EXPECT_EQ(r.result, -1);
    expectUntouched(r);
    EXPECT_THAT(logged(), ElementsAre("error 0x1002E alarm config info is empty."));
}

TEST_F(AlarmRenderingTest, DetailWithoutPlaceholderLeavesAllTemplatesAsWritten) {
    const Rendered r = renderTemplates("Fault", "slot ##00", "replace ##01 ##", "7,8");
    EXPECT_EQ(r.result, 0);
    EXPECT_EQ(r.detail, "Fault");
    EXPECT_EQ(r.location, "slot ##00");
    EXPECT_EQ(r.suggestion, "replace ##01 ##");
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(AlarmRenderingTest, NameIsNotATemplate) {
    EXPECT_EQ(renderTemplates("##00", "l", "s", "7").name, "Name ##00");
}

TEST_F(AlarmRenderingTest, EmptyParameterTextGivesHyphens) {
    EXPECT_EQ(renderDetail("Disk ##00 in ##01 is ##02{a:b}.", ""), "Disk -- in -- is --.");
}

TEST_F(AlarmRenderingTest, EmptyParameterBecomesHyphens) {
    EXPECT_EQ(renderDetail("##00|##01|##02", ",b,"), "--|b|--");
}

TEST_F(AlarmRenderingTest, EscapedTextsAreUnescapedOnce) {
    EXPECT_EQ(renderDetail("##00|##01", "&#38;#44;,a&#44;b&#38;"), "&#44;|a,b&");
}

TEST_F(AlarmRenderingTest, IndexBeyondThePlaceholdersOfTheDetailIsNone) {
    const Rendered r = renderTemplates("##00 ##01 ##02", "at ##05", "s", "a,b,c,d,e,f");
    EXPECT_EQ(r.location, "at None");
    EXPECT_THAT(logged(), ElementsAre("warn 0x1002E alarm parameter pos 5 is out of range[0, 3]"));
}

TEST_F(AlarmRenderingTest, IndexThatTheDetailLacksIsHyphens) {
    const Rendered r = renderTemplates("##00 ##01 ##02 ##03 ##05", "l", "part ##04", "a,b,c,d,e,f");
    EXPECT_EQ(r.suggestion, "part --");
    EXPECT_THAT(logged(), ElementsAre("warn 0x1002E alarm parameter pos 5 is out of range[0, 5]",
                                      "warn 0x1002E alarm parameter pos 4 is not in the parameters of the detail"));
}

TEST_F(AlarmRenderingTest, LocationEndingInAMarkFails) {
    const Rendered r = renderTemplates("##00", "slot ##", "s ##00", "7&#44;,");
    EXPECT_EQ(r.result, 16793615);
    Rendered expected;
    expected.level = 70;
    EXPECT_EQ(r.level, expected.level);
    EXPECT_EQ(r.location, expected.location);
    EXPECT_EQ(r.detail, expected.detail);
    EXPECT_EQ(r.suggestion, expected.suggestion);
    EXPECT_EQ(r.name, expected.name);
    EXPECT_THAT(logged(), ElementsAre("error 0x1002E no alarm parameter pos",
                                      "error 0x1002E parse alarm location slot ## using parameter 7&#44;, failed. "
                                      "parsed location is location before."));
}

TEST_F(AlarmRenderingTest, DetailEndingInAMarkFails) {
    const Rendered r = renderTemplates("##00 {x} ##", "slot ##00", "s", "7&#44;,");
    EXPECT_EQ(r.result, 16793615);
    EXPECT_EQ(r.level, 70U);
    EXPECT_EQ(r.location, "slot 7,");
    EXPECT_EQ(r.detail, "detail before");
    EXPECT_EQ(r.suggestion, "suggestion before");
    EXPECT_EQ(r.name, "name before");
    EXPECT_THAT(logged(), ElementsAre("error 0x1002E no alarm parameter pos",
                                      "error 0x1002E parse alarm detail ##00 {x} ## using parameter 7&#44;, failed, "
                                      "parsed detail is detail before."));
}

TEST_F(AlarmRenderingTest, SuggestionEndingInAMarkFailsAfterLocationAndDetail) {
    const Rendered r = renderTemplates("##00", "slot ##00", "replace ##", "7&#44;,");
    EXPECT_EQ(r.result, 16793615);
    EXPECT_EQ(r.level, 70U);
    EXPECT_EQ(r.location, "slot 7,");
    EXPECT_EQ(r.detail, "7,");
    EXPECT_EQ(r.suggestion, "suggestion before");
    EXPECT_EQ(r.name, "name before");
    EXPECT_THAT(logged(), ElementsAre("error 0x1002E no alarm parameter pos",
                                      "error 0x1002E parse alarm suggestion replace ## using parameter 7&#44;, failed, "
                                      "parsed detail is suggestion before."));
}

TEST_F(AlarmRenderingTest, TextsThatFailAreTracedAsFailed) {
    for (const char* failing : {"detail", "location", "suggestion"}) {
        const auto text = [failing](const std::string& part) { return part == failing ? "##" : "##00"; };
        renderTemplates(std::string("##00 ") + text("detail"), text("location"), text("suggestion"), "7");
        EXPECT_THAT(host.log().lines().back(), EndsWith(": NOK")) << failing;
    }
}

TEST_F(AlarmRenderingTest, EveryResultLeavesTheLockFree) {
    const auto expectFree = [](CAlarmConfigParser& parser) {
        ACE_Thread_Mutex& mutex = parser.*(&OpenParser::m_oMutex);
        ASSERT_EQ(mutex.tryacquire(), 0);
        mutex.release();
    };
    const char* const texts[][3] = {
        {"##00", "l", "s"}, {"##00", "##", "s"}, {"##00 ##", "l", "s"}, {"##00", "l", "##"}};
    for (const auto& [detail, location, suggestion] : texts) {
        renderTemplates(detail, location, suggestion, "7");
        expectFree(*CAlarmConfigParser::instance());
    }
    const auto lookUp = [&expectFree](CAlarmConfigParser& parser, unsigned long long alarmId) {
        render(alarmId, "7");
        expectFree(parser);
        std::string oid;
        parser.getAlarmOidInfo(alarmId, oid);
        expectFree(parser);
    };
    for (unsigned long long alarmId : {0ULL, 5ULL, ALARM}) lookUp(load(), alarmId);
    writeDefinitions("");
    lookUp(load(), ALARM);
}

TEST_F(AlarmRenderingTest, UnclosedMapStopsTheValues) {
    const Rendered r = renderTemplates("##00 ##01{a:b ##02", "##01 ##02", "s", "x,y,z");
    EXPECT_EQ(r.result, 0);
    EXPECT_EQ(r.location, "None None");
    EXPECT_EQ(r.detail, "x None{a:b None");
    EXPECT_THAT(logged(), ElementsAre("debug 0xFFFF parserParmeterByDetail error",
                                      "debug 0xFFFF replaceBraceWithEmptyString error",
                                      "warn 0x1002E alarm parameter pos 1 is out of range[0, 1]",
                                      "warn 0x1002E alarm parameter pos 2 is out of range[0, 1]",
                                      "warn 0x1002E alarm parameter pos 1 is out of range[0, 1]",
                                      "warn 0x1002E alarm parameter pos 2 is out of range[0, 1]"));
}

TEST_F(AlarmRenderingTest, ValueBroughtInIsSearchedAgain) {
    EXPECT_EQ(renderDetail("##00 ##01", "##01,end"), "end end");
}

TEST_F(AlarmRenderingTest, ValueMayCompleteAPlaceholderWithTheTextAfterIt) {
    EXPECT_EQ(renderDetail("##0001 ##01", "##,end"), "end end");
}

TEST_F(AlarmRenderingTest, ValueThatNamesItselfEndsWithOneWarning) {
    const std::string detail = renderDetail("a ##00 b", "##00");
    EXPECT_EQ(detail, "a ##00 b");
    EXPECT_THAT(logged(), ElementsAre(GROWTH_WARNING));
}

TEST_F(AlarmRenderingTest, ValueThatDoublesItselfIsBounded) {
    const std::string detail = renderDetail("##00", "##00##00");
    EXPECT_EQ(detail.size(), 4 + 10000UL * 4);
    EXPECT_THAT(logged(), ElementsAre(GROWTH_WARNING));
}

TEST_F(AlarmRenderingTest, LongValueThatRepeatsItselfIsBounded) {
    const std::string filler(60000, 'x');
    const std::string detail = renderDetail("##00", "##00" + filler);
    EXPECT_GT(detail.size(), 1024UL * 1024);
    EXPECT_LT(detail.size(), 1024UL * 1024 + 2 * filler.size());
    EXPECT_THAT(detail, AllOf(StartsWith("##00x"), EndsWith("x")));
    EXPECT_THAT(logged(), ElementsAre(GROWTH_WARNING));
}

// As many replacements as the other one makes, of as much text; but here what was put in is searched again, and stands
// before all that came earlier. Moving that text with each replacement would take some hundred times as long.
TEST_F(AlarmRenderingTest, ValueThatNamesItselfBeforeALongTextCostsNoMoreThanManyPlaceholders) {
    constexpr std::size_t REPLACEMENTS = 10000;
    host.log().refuse({"trace"});
    std::string manyPlaceholders;
    for (std::size_t i = 0; i < REPLACEMENTS; ++i) manyPlaceholders += "##00";
    const std::string value(100, 'x');
    EXPECT_EQ(renderTemplates("##00", manyPlaceholders, "s", value).location.size(), REPLACEMENTS * value.size());
    const double plain = secondsOfRendering(value);

    const std::string valueThatNamesItself = "##00" + std::string(96, 'x');
    EXPECT_EQ(renderTemplates("##00", "l", "s", valueThatNamesItself).detail.size(), 4 + REPLACEMENTS * 96);
    EXPECT_LT(secondsOfRendering(valueThatNamesItself), 20 * plain);
}

TEST_F(AlarmRenderingTest, ReplacementsOfADetailWithVeryManyPlaceholdersAreBounded) {
    std::string detail;
    for (int i = 0; i < 10000; ++i) detail += "##00";
    EXPECT_EQ(renderDetail(detail, "7"), std::string(10000, '7'));
    EXPECT_THAT(logged(), IsEmpty());

    // All placeholders have values: the location shows that of the last one.
    detail += "##01";
    const Rendered r = renderTemplates(detail, "##01", "s", "7,8");
    EXPECT_EQ(r.result, 0);
    EXPECT_EQ(r.location, "8");
    EXPECT_EQ(r.detail, std::string(10000, '7') + "##01");
    EXPECT_THAT(logged(), ElementsAre(GROWTH_WARNING));
}

TEST_F(AlarmRenderingTest, ManyThreadsRenderAlike) {
    load();
    std::vector<std::thread> threads;
    std::vector<int> wrong(6);
    threads.reserve(wrong.size());
    for (int& count : wrong) {
        threads.emplace_back([&count] {
            for (int i = 0; i < 200; ++i) {
                const std::string disk = std::to_string(i);
                const Rendered r = render(DISK_FAULT, disk + ",A,2");
                std::string oid;
                if (r.detail != "Disk " + disk + " in enclosure A is partly working." ||
                    CAlarmConfigParser::instance()->getAlarmOidInfo(DISK_FAULT, oid) != 0 || oid != "5.7") {
                    ++count;
                }
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_THAT(wrong, Each(0));
}

// What is traced of an operation: its line when it is entered, what happens inside, its line when it is left.
std::vector<std::string> traced(const std::string& signature, const std::vector<std::vector<std::string>>& inside = {},
                                const std::string& outcome = "OK") {
    std::vector<std::string> lines{"trace enter " + signature + "..."};
    for (const std::vector<std::string>& step : inside) lines.insert(lines.end(), step.begin(), step.end());
    lines.push_back("trace leave " + signature + ": " + outcome);
    return lines;
}

// The steps of a look-up as they are traced.
const std::string GET_ALARM_INFO =
    "int CAlarmConfigParser::getAlarmInfo(long long unsigned int, const std::string&, std::string&, std::string&, "
    "u_int&, std::string&, std::string&)";
const std::string PARAM_LIST = "void CAlarmConfigParser::parseAlarmParamList(std::string, std::vector<std::string>&)";
const std::string RELPACESTR = "std::string relpacestr(std::string, std::string, std::string)";
const std::string ENUM_VALUES =
    "void CAlarmConfigParser::replaceAlarmParamEnumValueDesc(long long unsigned int, std::vector<std::string>&, "
    "const POSITION_LIST&)";
const std::string BY_DETAIL =
    "void parserParmeterByDetail(std::vector<std::string>&, POSITION_LIST&, const std::string&)";
const std::string WITHOUT_BRACES = "void replaceBraceWithEmptyString(std::string&)";
const std::string PARAM_INFO =
    "int CAlarmConfigParser::replaceAlarmParamInfo(std::string, std::string&, const POSITION_LIST&)";
const std::string BRACE_VALUE =
    "bool CAlarmConfigParser::replaceParaWithBraceValue(std::string&, int, std::size_t, std::size_t, "
    "const POSITION_LIST&)";

TEST_F(AlarmRenderingTest, EachStepOfARenderingIsTraced) {
    CAlarmConfigParser& parser = load();
    Rendered r;
    EXPECT_EQ(parser.getAlarmInfo(DISK_FAULT, "7,A,1", r.location, r.detail, r.level, r.name, r.suggestion), 0);
    const std::vector<std::string> value = traced(BRACE_VALUE);
    const std::vector<std::string> unescaped = traced(RELPACESTR);
    EXPECT_EQ(
        host.log().lines(),
        traced(GET_ALARM_INFO, {traced(PARAM_LIST, {unescaped, unescaped, unescaped, unescaped, unescaped, unescaped}),
                                traced(ENUM_VALUES), traced(BY_DETAIL), traced(WITHOUT_BRACES),
                                traced(PARAM_INFO, {value, value}),         // location
                                traced(PARAM_INFO, {value, value, value}),  // detail
                                traced(PARAM_INFO, {value})}));             // suggestion
    for (const FakeLogLine& line : host.log().entries()) EXPECT_EQ(line.module, 4U);
}

TEST_F(AlarmRenderingTest, StepsThatAnAlarmDoesNotNeedAreNotTraced) {
    renderTemplates("Fault", "l", "s", "");
    host.log().clear();
    Rendered r;
    EXPECT_EQ(
        CAlarmConfigParser::instance()->getAlarmInfo(ALARM, "", r.location, r.detail, r.level, r.name, r.suggestion),
        0);
    std::vector<std::string> lines = host.log().lines();
    lines.erase(lines.begin(), lines.begin() + 2);  // instance()
    EXPECT_EQ(lines, traced(GET_ALARM_INFO, {traced(PARAM_LIST), traced(BY_DETAIL), traced(WITHOUT_BRACES),
                                             traced(PARAM_INFO), traced(PARAM_INFO), traced(PARAM_INFO)}));
}

TEST_F(AlarmRenderingTest, StepsThatFailAreTracedAsFailed) {
    renderTemplates("##00 ##01 ##02", "##01", "##00 ##", "a,b");
    CAlarmConfigParser& parser = *CAlarmConfigParser::instance();
    host.log().clear();
    Rendered r;
    EXPECT_EQ(parser.getAlarmInfo(ALARM, "", r.location, r.detail, r.level, r.name, r.suggestion), 0x100400F);
    const std::vector<std::string> value = traced(BRACE_VALUE);
    EXPECT_EQ(host.log().lines(),
              traced(GET_ALARM_INFO,
                     {traced(PARAM_LIST),
                      traced(BY_DETAIL),
                      traced(WITHOUT_BRACES),
                      traced(PARAM_INFO, {value}),
                      traced(PARAM_INFO, {value, value, value}),
                      traced(PARAM_INFO, {value, {"error 0x1002E no alarm parameter pos"}}, "NOK"),
                      {"error 0x1002E parse alarm suggestion ##00 ## using parameter  failed, parsed detail is "
                       "suggestion before."}},
                     "NOK"));

    host.log().clear();
    std::string out;
    EXPECT_EQ(parser.replaceAlarmParamInfo("##01", out, {{0, "x"}, {2, "y"}}), 0);
    EXPECT_EQ(host.log().lines(),
              traced(PARAM_INFO, {traced(BRACE_VALUE, {}, "NOK"),
                                  {"warn 0x1002E alarm parameter pos 1 is not in the parameters of the detail"}}));
}

// Lines of the steps carry the names of the operations that write them.
TEST_F(AlarmRenderingTest, LinesOfTheStepsNameTheirOperations) {
    renderTemplates("##00 ##09 ##00{", "##07 ##01", "##", "7");
    std::vector<std::pair<std::string, std::string>> lines;
    for (const FakeLogLine& line : host.log().entries()) {
        if (line.kind != "trace" && line.text.find("file path") == std::string::npos) {
            lines.emplace_back(line.function, line.text);
        }
    }
    EXPECT_THAT(lines, ElementsAre(Pair("parserParmeterByDetail", "parserParmeterByDetail error"),
                                   Pair("replaceBraceWithEmptyString", "replaceBraceWithEmptyString error"),
                                   Pair("replaceAlarmParamInfo", "alarm parameter pos 7 is out of range[0, 2]"),
                                   Pair("replaceAlarmParamInfo",
                                        "alarm parameter pos 1 is not in the parameters of the detail"),
                                   Pair("replaceAlarmParamInfo", "alarm parameter pos 9 is out of range[0, 2]"),
                                   Pair("replaceAlarmParamInfo", "no alarm parameter pos"),
                                   Pair("getAlarmInfo",
                                        "parse alarm suggestion ## using parameter 7 failed, parsed detail is "
                                        "suggestion before.")));
}

TEST_F(AlarmRenderingTest, StepsThatNobodyTracesGiveTheSame) {
    load();
    host.log().refuse({"trace"});
    EXPECT_EQ(render(DISK_FAULT, "7,CTE0&#44;A,1").detail, "Disk 7 in enclosure CTE0,A is not reachable.");
    EXPECT_THAT(host.log().lines(), IsEmpty());
}

TEST_F(AlarmRenderingTest, RefusedLookUpsAreTracedAsFailedUnderTheirOwnNames) {
    CAlarmConfigParser& parser = load();
    render(5, "");
    std::string oid;
    parser.getAlarmOidInfo(5, oid);
    const std::vector<FakeLogLine> entries = host.log().entries();
    ASSERT_EQ(entries.size(), 8U);
    EXPECT_EQ(entries[3].function, "getAlarmInfo");
    EXPECT_EQ(entries[4].toString(),
              "trace leave int CAlarmConfigParser::getAlarmInfo(long long unsigned int, const std::string&, "
              "std::string&, std::string&, u_int&, std::string&, std::string&): NOK");
    EXPECT_EQ(entries[5].toString(),
              "trace enter int CAlarmConfigParser::getAlarmOidInfo(long long unsigned int, std::string&)...");
    EXPECT_EQ(entries[6].function, "getAlarmOidInfo");
    EXPECT_EQ(entries[7].toString(),
              "trace leave int CAlarmConfigParser::getAlarmOidInfo(long long unsigned int, std::string&): NOK");
}

TEST_F(AlarmRenderingTest, StepsCalledAloneAreTraced) {
    CAlarmConfigParser& parser = load();
    std::vector<std::string> params;
    POSITION_LIST pairs;
    std::string text;
    const auto linesOf = [this](const auto& step) {
        host.log().clear();
        step();
        return host.log().lines();
    };
    EXPECT_EQ(linesOf([&] { parserParmeterByDetail(params, pairs, ""); }), traced(BY_DETAIL));
    EXPECT_EQ(linesOf([&] { replaceBraceWithEmptyString(text); }), traced(WITHOUT_BRACES));
    EXPECT_EQ(linesOf([&] {
                  parser.replaceAlarmParamInfo("##", text, {{0, "x"}});
              }),
              traced(PARAM_INFO, {{"error 0x1002E no alarm parameter pos"}}, "NOK"));
    EXPECT_EQ(linesOf([&] { parser.parseAlarmParamList("", params); }), traced(PARAM_LIST));
    EXPECT_EQ(linesOf([&] { relpacestr("a", "a", "b"); }), traced(RELPACESTR));
    EXPECT_EQ(linesOf([&] { parser.replaceParaWithBraceValue(text, 0, 0, 0, {{0, "x"}}); }), traced(BRACE_VALUE));
    EXPECT_EQ(linesOf([&] {
                  parser.replaceParaWithBraceValue(text, 1, 0, 0, {{0, "x"}});
              }),
              traced(BRACE_VALUE, {}, "NOK"));
}

TEST_F(AlarmRenderingTest, LookUpsAndDestructionWaitForTheLookUpThatRuns) {
    ACE_Thread_Mutex& mutex = load().*(&OpenParser::m_oMutex);
    const std::pair<const char*, void (*)()> operations[] = {
        {"getAlarmInfo(", [] { render(DISK_FAULT, "7"); }},
        {"getAlarmOidInfo(",
         [] {
             std::string oid;
             CAlarmConfigParser::instance()->getAlarmOidInfo(DISK_FAULT, oid);
         }},
        {"~CAlarmConfigParser(", [] { CAlarmConfigParser::destroy(); }}};
    for (const auto& [name, operation] : operations) {
        SCOPED_TRACE(name);
        ASSERT_EQ(mutex.acquire(), 0);
        WaitingThread thread(operation);
        EXPECT_TRUE(thread.waits());
        mutex.release();
    }
}

TEST_F(AlarmRenderingTest, RenderingGoesOnWhenTheLockFails) {
    const FailingLock failing(load().*(&OpenParser::m_oMutex));
    EXPECT_EQ(render(DISK_FAULT, "7,A,2").detail, "Disk 7 in enclosure A is partly working.");
}

// --- OID text

TEST_F(AlarmRenderingTest, OidTextIsAsDefined) {
    std::string oid = "before";
    EXPECT_EQ(load().getAlarmOidInfo(DISK_FAULT, oid), 0);
    EXPECT_EQ(oid, "5.7");
}

TEST_F(AlarmRenderingTest, OidTextIsNoneWhereTheAttributeIsAbsent) {
    writeDefinitions("<param eventID='70'/>");
    std::string oid = "before";
    EXPECT_EQ(load().getAlarmOidInfo(ALARM, oid), 0);
    EXPECT_EQ(oid, "None");
}

TEST_F(AlarmRenderingTest, OidTextOfAnUnknownAlarmStaysAsItWas) {
    std::string oid = "before";
    CAlarmConfigParser& parser = load();
    EXPECT_EQ(parser.getAlarmOidInfo(0xFFFFFFFFFFFFFFFFULL, oid), -1);
    EXPECT_EQ(parser.getAlarmOidInfo(0, oid), -1);
    EXPECT_THAT(logged(), ElementsAre("warn 0x1002E alarm 18446744073709551615 desn't need to be parsed.",
                                      "error 0x1002E invalid alarm id 0"));
    EXPECT_EQ(oid, "before");
}

TEST_F(AlarmRenderingTest, OidTextOfEmptyDefinitionsIsRefused) {
    writeDefinitions("");
    std::string oid = "before";
    EXPECT_EQ(load().getAlarmOidInfo(DISK_FAULT, oid), -1);
    EXPECT_THAT(logged(), ElementsAre("error 0x1002E alarm config info is empty."));
    EXPECT_EQ(oid, "before");
}

// --- steps

TEST_F(AlarmRenderingTest, ParameterListIsAppended) {
    std::vector<std::string> list{"before"};
    load().parseAlarmParamList("a,,b&#44;c,", list);
    EXPECT_THAT(list, ElementsAre("before", "a", "", "b,c", ""));
    load().parseAlarmParamList("", list);
    EXPECT_THAT(list, SizeIs(5));
}

TEST(Relpacestr, InsertedTextIsNotSearchedAgain) {
    const FakeHost host;
    EXPECT_EQ(relpacestr("a.b.", ".", ".."), "a..b..");
    EXPECT_EQ(relpacestr("aaa", "aa", "a"), "aa");
    EXPECT_EQ(relpacestr("abc", "b", ""), "ac");
    EXPECT_EQ(relpacestr("abc", "x", "y"), "abc");
    EXPECT_EQ(relpacestr("", "x", "y"), "");
}

TEST(Relpacestr, EmptySearchTextOccursNowhere) {
    const FakeHost host;
    EXPECT_EQ(relpacestr("abc", "", "y"), "abc");
}

struct BraceCase {
    const char* name;
    const char* text;
    const char* result;
};

void PrintTo(const BraceCase& c, std::ostream* os) {
    *os << c.text;
}

class BraceTest : public testing::TestWithParam<BraceCase> {};

TEST_P(BraceTest, GroupsAreRemoved) {
    FakeHost host;
    std::string text = GetParam().text;
    replaceBraceWithEmptyString(text);
    EXPECT_EQ(text, GetParam().result);
}

INSTANTIATE_TEST_SUITE_P(Texts, BraceTest,
                         testing::Values(BraceCase{"None", "abc", "abc"}, BraceCase{"Empty", "", ""},
                                         BraceCase{"One", "a{b}c", "ac"}, BraceCase{"EmptyGroup", "a{}c", "ac"},
                                         BraceCase{"Several", "{a}b{c}{d}e", "be"}, BraceCase{"WholeText", "{a}", ""},
                                         BraceCase{"CloseFirst", "a}b{c}d", "a}bd"},
                                         BraceCase{"NestedEndsAtTheFirstClose", "a{b{c}d}e", "ad}e"},
                                         BraceCase{"Unclosed", "a{b", "a{b"},
                                         BraceCase{"UnclosedAfterAGroup", "a{b}c{d", "ac{d"}),
                         [](const testing::TestParamInfo<BraceCase>& test) { return test.param.name; });

TEST(Brace, UnclosedGroupIsLogged) {
    FakeHost host;
    std::string text = "a{b";
    replaceBraceWithEmptyString(text);
    EXPECT_THAT(host.log().linesWithoutTrace(), ElementsAre("debug 0xFFFF replaceBraceWithEmptyString error"));
}

struct ValueCase {
    const char* name;
    const char* detail;
    std::vector<std::string> params;
    POSITION_LIST pairs;
};

void PrintTo(const ValueCase& c, std::ostream* os) {
    *os << c.detail;
}

class PlaceholderValuesTest : public testing::TestWithParam<ValueCase> {};

TEST_P(PlaceholderValuesTest, AreFoundInOrder) {
    FakeHost host;
    std::vector<std::string> params = GetParam().params;
    POSITION_LIST pairs;
    parserParmeterByDetail(params, pairs, GetParam().detail);
    EXPECT_EQ(pairs, GetParam().pairs);
    EXPECT_EQ(params, GetParam().params);
    EXPECT_THAT(host.log().linesWithoutTrace(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(
    Details, PlaceholderValuesTest,
    testing::Values(
        ValueCase{"None", "abc #", {"x"}, {}}, ValueCase{"Plain", "##01 ##00", {"x", "y"}, {{1, "y"}, {0, "x"}}},
        ValueCase{"TwoDigits",
                  "##10 ##21",
                  {"a", "b", "c", "d", "e", "f", "g", "h", "i", "j", "k", "l"},
                  {{10, "k"}, {21, "--"}}},
        ValueCase{"Twice", "##00 ##00", {"x"}, {{0, "x"}, {0, "x"}}}, ValueCase{"Missing", "##01", {"x"}, {{1, "--"}}},
        ValueCase{"NoParameters", "##00", {}, {{0, "--"}}}, ValueCase{"MarkAtTheEnd", "##00 ##", {"x"}, {{0, "x"}}},
        ValueCase{"OneDigitAtTheEnd", "##1", {"x", "y"}, {{1, "y"}}},
        ValueCase{"OneDigitAndABlank", "##1 ", {"x", "y"}, {{1, "y"}}},
        ValueCase{"NoDigits", "##ab", {"x", "y"}, {{0, "x"}}},
        ValueCase{"MarksInARow", "#####", {"x"}, {{0, "x"}, {0, "x"}}},
        ValueCase{"SignIsNoDigit", "##-1", {"x", "y"}, {{0, "x"}}},
        ValueCase{"MapMatches", "##00{a:one;b:two}", {"b"}, {{0, "two"}}},
        ValueCase{"FirstMatchWins", "##00{a:one;a:two}", {"a"}, {{0, "one"}}},
        ValueCase{"MapWithoutMatchKeepsTheValue", "##00{a:one}", {"x"}, {{0, "x"}}},
        ValueCase{"MatchIsExact", "##00{a :one;A:two}", {"a"}, {{0, "a"}}},
        ValueCase{"MapOfAMissingParameter", "##01{a:one}", {"a"}, {{1, "--"}}},
        ValueCase{"MapThatNamesTheMissingOne", "##01{--:none}", {"a"}, {{1, "--"}}},
        ValueCase{"EmptyMap", "##00{}", {"a"}, {{0, "a"}}}, ValueCase{"EmptyMapMissing", "##01{}", {"a"}, {{1, "--"}}},
        ValueCase{"EntryWithThreePartsIsSkipped", "##00{a:b:c;a:one}", {"a"}, {{0, "one"}}},
        ValueCase{"EntryWithTwoColonsInARowIsSkipped", "##00{a::b;a:one}", {"a"}, {{0, "one"}}},
        ValueCase{"EntryWithOnePartIsSkipped", "##00{a;a:one}", {"a"}, {{0, "one"}}},
        ValueCase{"EntryWithEmptyText", "##00{a:}", {"a"}, {{0, ""}}},
        ValueCase{"EntryForTheEmptyValue", "##00{:empty}", {""}, {{0, "empty"}}},
        ValueCase{"MapSevenAfter", "##00 ab{x:y}", {"x"}, {{0, "y"}}},
        ValueCase{"MapEightAfterIsNone", "##00 abc{x:y}", {"x"}, {{0, "x"}}},
        ValueCase{"MapAfterALaterMark", "##00##01{x:y}", {"x", "x"}, {{0, "x"}, {1, "y"}}},
        ValueCase{"MapOfTheNextPlaceholderWithinReach", "##0##1{x:y}", {"x", "x"}, {{0, "y"}, {1, "y"}}},
        ValueCase{"MarkInsideAMap", "##00{a:##01}", {"a", "b"}, {{0, "##01"}, {1, "b"}}},
        ValueCase{"CloseBeforeOpen", "##00}{a:b", {"a"}, {{0, "a"}}},
        ValueCase{"CloseBeforeOpenMissing", "##01}{a:b", {"a"}, {{1, "--"}}},
        ValueCase{"CloseBeforeMarkIsIgnored", "} ##00{a:b}", {"a"}, {{0, "b"}}}),
    [](const testing::TestParamInfo<ValueCase>& test) { return test.param.name; });

// The pieces of a map are the host's, as those of the parameters are.
TEST(PlaceholderValues, MapIsSplitAsTheHostSplits) {
    FakeHost host;
    std::vector<std::string> params{"a", "b", ""};
    const auto valueOf = [&params](const std::string& detail) {
        POSITION_LIST pairs;
        parserParmeterByDetail(params, pairs, detail);
        return pairs.at(0).second;
    };
    EXPECT_EQ(valueOf("##00{a:}"), "");
    EXPECT_EQ(valueOf("##01{b::two;b:one}"), "one");
    EXPECT_EQ(valueOf("##02{:empty}"), "empty");
    host.dropEmptyPieces();
    EXPECT_EQ(valueOf("##00{a:}"), "a");
    EXPECT_EQ(valueOf("##01{b::two;b:one}"), "two");
    EXPECT_EQ(valueOf("##02{:empty}"), "");
}

TEST(PlaceholderValues, UnclosedMapKeepsThePairsFoundSoFar) {
    FakeHost host;
    std::vector<std::string> params{"x", "y"};
    POSITION_LIST pairs{{9, "before"}};
    parserParmeterByDetail(params, pairs, "##00 ##01{a:b ##00");
    EXPECT_THAT(pairs, ElementsAre(Pair(9U, "before"), Pair(0U, "x")));
    EXPECT_THAT(host.log().linesWithoutTrace(), ElementsAre("debug 0xFFFF parserParmeterByDetail error"));
}

struct TemplateCase {
    const char* name;
    const char* text;
    POSITION_LIST pairs;
    const char* result;
    std::vector<std::string> warnings;
};

void PrintTo(const TemplateCase& c, std::ostream* os) {
    *os << c.text;
}

class TemplateTest : public AlarmFilesTest, public testing::WithParamInterface<TemplateCase> {};

TEST_P(TemplateTest, IsExpanded) {
    std::string out = "before";
    EXPECT_EQ(load().replaceAlarmParamInfo(GetParam().text, out, GetParam().pairs), 0);
    EXPECT_EQ(out, GetParam().result);
    EXPECT_EQ(host.log().linesWithoutTrace(), GetParam().warnings);
}

constexpr const char* MINUS_ONE_WARNING = "warn 0x1002E alarm parameter pos -1 is out of range[0, 1]";

INSTANTIATE_TEST_SUITE_P(
    Templates, TemplateTest,
    testing::Values(TemplateCase{"NoPairs", "a ##00 ##", {}, "a ##00 ##", {}},
                    TemplateCase{"NoPlaceholder", "a", {{0, "x"}}, "a", {}},
                    TemplateCase{"Empty", "", {{0, "x"}}, "", {}}, TemplateCase{"One", "a##00b", {{0, "x"}}, "axb", {}},
                    TemplateCase{"FirstPairOfAnIndex", "##00", {{0, "x"}, {0, "y"}}, "x", {}},
                    TemplateCase{"ThreeDigits", "##001", {{0, "x"}}, "x1", {}},
                    TemplateCase{"TwoDigits",
                                 "##10",
                                 {{0, "a"},
                                  {1, "b"},
                                  {2, "c"},
                                  {3, "d"},
                                  {4, "e"},
                                  {5, "f"},
                                  {6, "g"},
                                  {7, "h"},
                                  {8, "i"},
                                  {9, "j"},
                                  {10, "k"}},
                                 "k",
                                 {}},
                    TemplateCase{"BlankIsPartOfTheIndex", "##1 b", {{0, "x"}, {1, "y"}}, "yb", {}},
                    TemplateCase{"BlankBeforeTheDigit", "## 1b", {{0, "x"}, {1, "y"}}, "yb", {}},
                    TemplateCase{"LettersAreIndexZero", "##abc", {{0, "x"}}, "xc", {}},
                    TemplateCase{"OneDigitAtTheEnd", "a##1", {{0, "x"}, {1, "y"}}, "ay", {}},
                    TemplateCase{"EmptyValue", "a##00b", {{0, ""}}, "ab", {}},
                    TemplateCase{"NegativeIndex", "a##-1b", {{0, "x"}}, "aNoneb", {MINUS_ONE_WARNING}},
                    TemplateCase{"OneDigitOutOfRange",
                                 "a##7",
                                 {{0, "x"}},
                                 "aNone",
                                 {"warn 0x1002E alarm parameter pos 7 is out of range[0, 1]"}},
                    TemplateCase{"OneDigitNotInTheDetail",
                                 "a##1",
                                 {{0, "x"}, {0, "y"}},
                                 "a--",
                                 {"warn 0x1002E alarm parameter pos 1 is not in the parameters of the detail"}},
                    TemplateCase{"MarksInARow", "####", {{0, "x"}}, "x", {}}),
    [](const testing::TestParamInfo<TemplateCase>& test) { return test.param.name; });

TEST_F(AlarmRenderingTest, MarkWithoutIndexLeavesTheOutputAsItWas) {
    std::string out = "before";
    EXPECT_EQ(load().replaceAlarmParamInfo("##00 ##", out, {{0, "x"}}), 0x100400F);
    EXPECT_EQ(out, "before");
    EXPECT_THAT(logged(), ElementsAre("error 0x1002E no alarm parameter pos"));
}

TEST_F(AlarmRenderingTest, ReplacementWithoutAPairLeavesTheText) {
    CAlarmConfigParser& parser = load();
    std::string text = "a##00b";
    EXPECT_FALSE(parser.replaceParaWithBraceValue(text, 1, 1, 4, {{0, "x"}}));
    EXPECT_FALSE(parser.replaceParaWithBraceValue(text, 0, 7, 4, {{0, "x"}}));  // after the end
    EXPECT_EQ(text, "a##00b");
    EXPECT_TRUE(parser.replaceParaWithBraceValue(text, 0, 1, 4, {{0, "x"}, {0, "y"}}));
    EXPECT_EQ(text, "axb");
    EXPECT_TRUE(parser.replaceParaWithBraceValue(text, 0, 2, 4, {{0, "z"}}));
    EXPECT_EQ(text, "axz");
    EXPECT_TRUE(parser.replaceParaWithBraceValue(text, 0, 3, 0, {{0, "!"}}));  // nothing at the end
    EXPECT_EQ(text, "axz!");
}

}  // namespace
