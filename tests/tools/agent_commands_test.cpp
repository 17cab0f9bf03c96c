#include "tools/agent_commands.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <utility>

#include "tools/agent_call.h"

namespace vrx {

namespace {

std::string tablesOf(const std::string& answer) {
    std::ostringstream out;
    printStatusTables(out, answer);
    return out.str();
}

std::string summaryOf(const std::string& answer) {
    std::ostringstream out;
    printStatusSummary(out, answer);
    return out.str();
}

std::string linesAfter(const std::string& text, const std::string& mark) {
    return text.substr(text.find(mark) + mark.size());
}

const std::string STATUS =
    R"({"agent":{"version":"1.2","engine_id":"8001861f05","uptime_seconds":93784,"last_reload_taken":true},)"
    R"("backend":{"connected":true,"since_seconds":1600.5},)"
    R"("alarms":{"active":3,"by_level":{"critical":1,"major":0,"minor":2,"warning":0},)"
    R"("last_change":"2026-11-21T09:14:03Z"},)"
    R"("events":{"handled":40,"definitions_loaded":true,"last":41,"last_done":39},"notification_log":{"fault":""},)"
    R"("objects":[{"name":"vrxAlarmTable","readable":true}],"informs":[],)"
    R"("destinations":[{"number":"7","address":"192.0.2.1","port":162,"version":3,"state":"ready","reason":"",)"
    R"("sent":17,"filtered":3,"suppressed":4,"waiting":1,"dropped":{"queue full":2,"bad OID":1}}]})";

// With one blank between two.
std::string wordsOf(const std::string& line) {
    std::istringstream in(line);
    std::string words;
    for (std::string word; in >> word;) words += (words.empty() ? "" : " ") + word;
    return words;
}

}  // namespace

// A reason may quote a name or an answer of somebody else.
TEST(StatusTables, TextsOfOthersDoNotReachTheTerminalAsTheyAre) {
    EXPECT_EQ(tablesOf(R"({"agent":{"note":"red \u001b[31m\nline"}})"),
              "agent\n"
              "  note                 red \\x1B[31m\\x0Aline\n");
}

TEST(StatusTables, ASectionIsALineForEachField) {
    EXPECT_EQ(tablesOf(R"({"agent":{"version":"1.2","modules":["/a.so","/b.so"],"uptime_seconds":7,"age":0.123456,)"
                       R"("taken":true,"at":null,"note":""}})"),
              "agent\n"
              "  version              1.2\n"
              "  modules              /a.so /b.so\n"
              "  uptime_seconds       7\n"
              "  age                  0.1235\n"
              "  taken                yes\n"
              "  at                   -\n"
              "  note                 -\n");
}

TEST(StatusTables, CountsAreAddedUpAndThoseAboveZeroNamed) {
    EXPECT_EQ(tablesOf(R"({"traps":{"dropped":{"queue full":2,"unresolved":0,"bad OID":1},"lost":{"x":0}}})"),
              "traps\n"
              "  dropped              3 (queue full 2, bad OID 1)\n"
              "  lost                 0\n");
}

TEST(StatusTables, AListHasItsRowsBelowTheirNames) {
    EXPECT_EQ(tablesOf(R"({"objects":[{"name":"a","rows":1},{"name":"b","rows":null}],"others":[]})"),
              "objects\n"
              "  a\n"
              "    rows                 1\n"
              "  b\n"
              "    rows                 -\n"
              "others\n");
}

TEST(StatusTables, TimesAreOneLine) {
    EXPECT_EQ(tablesOf(R"({"calls":{"latency":{"count":3,"sum_seconds":0.5,"max_seconds":0.25,)"
                       R"("p50_seconds":0.000016384,"p90_seconds":0.1,"p99_seconds":0.2,"buckets":[]},)"
                       R"("other":{"count":0,"p99_seconds":0}}})"),
              "calls\n"
              "  latency              3; half within 0.0164 ms, 90 % 100 ms, 99 % 200 ms, longest 250 ms\n"
              "  other                -\n");
}

TEST(StatusTables, DestinationsAreOneLineEach) {
    const std::string tables =
        tablesOf(R"({"destinations":[{"number":"7","address":"192.0.2.1","port":162,"version":3,"state":"ready",)"
                 R"("reason":"","sent":12,"filtered":3,"suppressed":4,"waiting":1,)"
                 R"("dropped":{"queue full":2,"bad OID":0}}]})");
    std::istringstream lines(tables);
    std::string line;
    std::getline(lines, line);
    EXPECT_EQ(line, "destinations");
    std::getline(lines, line);
    EXPECT_EQ(wordsOf(line), "number address ver state sent filtered suppressed waiting dropped reason");
    std::getline(lines, line);
    EXPECT_EQ(wordsOf(line), "7 192.0.2.1 162 3 ready 12 3 4 1 2 (queue full 2) -");
    EXPECT_FALSE(std::getline(lines, line));
}

TEST(StatusSummary, OpensWithTheVerdictAndTheFiguresThatMatter) {
    EXPECT_EQ(summaryOf(STATUS),
              "vrx-agentd 1.2, up 1 d 2 h: all is well\n"
              "  backend      connected for 26 min\n"
              "  alarms       3 (critical 1, minor 2) active, last change 2026-11-21T09:14:03Z\n"
              "  events       40 handled; the last is 41, done up to 39\n"
              "  traps        17 sent, 1 waiting, 3 dropped\n"
              "  informs      0 acknowledged, 0 waiting, 0 dropped\n"
              "  engine ID    8001861f05\n"
              "trap destinations\n" +
                  linesAfter(tablesOf(STATUS), "destinations\n"));
}

TEST(StatusSummary, SaysEachThingThatIsWrong) {
    const std::pair<const char*, std::string> faults[] = {
        {R"({"backend":{"connected":false}})", "the backend is away"},
        {R"({"events":{"definitions_loaded":false}})", "the alarm definitions cannot be loaded, alarm events wait"},
        {R"({"agent":{"last_reload_taken":false}})", "the last reload was refused"},
        {R"({"notification_log":{"fault":"disk full"}})", "the notification log cannot be written: disk full"},
        {R"({"objects":[{"name":"vrxAlarmTable","readable":false}]})", "object vrxAlarmTable cannot be read"},
    };
    for (const auto& [change, text] : faults) {
        nlohmann::json status = nlohmann::json::parse(STATUS);
        status.merge_patch(nlohmann::json::parse(change));
        const std::string summary = summaryOf(status.dump());
        EXPECT_EQ(summary.substr(0, summary.find('\n')), "vrx-agentd 1.2, up 1 d 2 h: " + text);
    }
}

TEST(StatusSummary, NamesDestinationsThatGetNothing) {
    nlohmann::json status = nlohmann::json::parse(STATUS);
    status["destinations"][0]["state"] = "sending fails";
    status["destinations"].push_back(status["destinations"][0]);
    status["destinations"][1]["number"] = "8";
    status["destinations"][1]["state"] = "not used yet";
    status["informs"].push_back({{"destination", "192.0.2.9:162"},
                                 {"version", 2},
                                 {"state", "does not answer"},
                                 {"acknowledged", 5},
                                 {"waiting", 6},
                                 {"dropped", {{"refused", 7}}},
                                 {"last_failure", "no answer"}});
    const std::string summary = summaryOf(status.dump());
    EXPECT_EQ(summary.substr(0, summary.find('\n')),
              "vrx-agentd 1.2, up 1 d 2 h: trap destination 7 sending fails; inform destination 192.0.2.9:162 does not "
              "answer");
    EXPECT_NE(summary.find("  informs      5 acknowledged, 6 waiting, 7 dropped\n"), std::string::npos) << summary;
    EXPECT_EQ(wordsOf(linesAfter(summary, "last failure\n")),
              "192.0.2.9:162 2 does not answer 5 6 7 (refused 7) no answer");
}

TEST(StatusSummary, TakesTheAnswerOfAnOlderAgent) {
    const std::string summary = summaryOf("{}");
    EXPECT_EQ(summary.substr(0, summary.find('\n')), "vrx-agentd -, up -: all is well");
    EXPECT_THROW(summaryOf("nothing here"), AgentCallError);
}

TEST(StatusTables, WhatIsNoJsonIsSaid) {
    EXPECT_THROW(tablesOf("nothing here"), AgentCallError);
}

}  // namespace vrx
