#include "tools/alarm_commands.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <sstream>
#include <stdexcept>

#include "host/command_line/option_parser.h"

namespace vrx {

namespace {

TEST(JoinParameters, JoinsWithCommas) {
    EXPECT_EQ(joinParameters({"7", "CTE0", ""}), "7,CTE0,");
}

TEST(JoinParameters, EscapesCommasAndAmpersandsInsideValues) {
    EXPECT_EQ(joinParameters({"a,b", "R&D", "&#44;"}), "a&#44;b,R&#38;D,&#38;#44;");
}

TEST(JoinParameters, NoParametersAreAnEmptyText) {
    EXPECT_EQ(joinParameters({}), "");
}

TEST(RaiseCommand, TakesParametersAsTheyAre) {
    const std::vector<std::string> words = {"[::1]", "[7,8]", "[]", "a]", "{}", "%%", "", "clear"};
    RaiseCommand command;
    OptionParser parser;
    command.define(parser);
    std::vector<std::string> line = {"4295229443"};
    line.insert(line.end(), words.begin(), words.end());
    parser.parse(line);
    EXPECT_EQ(command.request.parameters, words);
}

TEST(RaiseCommand, TakesAParameterThatIsABracketedOrEmptyText) {
    for (const std::string word : {"[::1]", "[]", "{}", "%%", ""}) {
        RaiseCommand command;
        OptionParser parser;
        command.define(parser);
        parser.parse({"4295229443", word});
        EXPECT_EQ(command.request.parameters, std::vector<std::string>{word});
    }
}

TEST(RaiseCommand, SaysWhichNumberIsNone) {
    RaiseCommand command;
    OptionParser parser;
    command.define(parser);
    try {
        parser.parse({"[4]"});
        FAIL() << "taken as a number";
    } catch (const std::invalid_argument& fault) {
        EXPECT_STREQ(fault.what(), "Could not convert: ALARM-ID = [4]");
    }
}

ListedAlarm listed() {
    ListedAlarm alarm;
    alarm.serial = 42;
    alarm.alarmId = 4295229443ULL;
    alarm.level = 6;
    alarm.raisedAt = 1700000000;
    alarm.parameters = "7";
    alarm.name = "Disk fault";
    alarm.location = "Enclosure 1";
    alarm.detail = "Disk \xFF";  // no UTF-8
    return alarm;
}

TEST(PrintAlarms, SaysThatThereAreNone) {
    std::ostringstream out;
    printAlarms(out, {});
    EXPECT_EQ(out.str(), "no active alarms\n");
}

TEST(PrintAlarms, ShowsOneLineAnAlarm) {
    std::ostringstream out;
    printAlarms(out, {listed()});
    EXPECT_NE(out.str().find("        42  "), std::string::npos);
    EXPECT_NE(out.str().find("4295229443"), std::string::npos);
    EXPECT_NE(out.str().find("Disk fault"), std::string::npos);
    EXPECT_NE(out.str().find("Enclosure 1\n"), std::string::npos);
}

TEST(PrintAlarms, NamesTheLevelAsEverybodyElseDoes) {
    std::vector<ListedAlarm> alarms(5, listed());
    for (std::size_t i = 0; i < alarms.size(); ++i) alarms[i].level = static_cast<std::uint32_t>(i + 3);
    std::ostringstream out;
    printAlarms(out, alarms);
    std::istringstream lines(out.str());
    std::string line;
    std::getline(lines, line);
    for (const char* level : {"warning", "minor", "major", "critical", "critical"}) {
        std::getline(lines, line);
        EXPECT_NE(line.find(std::string("  ") + level + "  "), std::string::npos) << line;
    }
}

TEST(PrintAlarms, LetsNoControlCharacterOfATextThrough) {
    ListedAlarm alarm = listed();
    alarm.name = "a\x1b[2Jb\rc\nd";
    alarm.location =
        "e\xC2\x9B"
        "31mf\x9Bg";
    std::ostringstream out;
    printAlarms(out, {alarm});
    EXPECT_NE(out.str().find("a\\x1B[2Jb\\x0Dc\\x0Ad  "), std::string::npos) << out.str();
    EXPECT_NE(out.str().find("e\\xC2\\x9B31mf\\x9Bg\n"), std::string::npos) << out.str();
}

TEST(PrintAlarmsAsJson, LetsNoControlCharacterOfATextThrough) {
    ListedAlarm alarm = listed();
    alarm.name =
        "a\x1b[2Jb\xC2\x9B"
        "31mc";
    std::ostringstream out;
    printAlarmsAsJson(out, {alarm});
    EXPECT_EQ(out.str().find('\x1b'), std::string::npos);
    EXPECT_EQ(out.str().find("\xC2\x9B"), std::string::npos);
    EXPECT_EQ(nlohmann::json::parse(out.str())[0]["name"], alarm.name);
}

TEST(PrintAlarmsAsJson, KeepsEveryFieldAndReplacesBytesThatAreNoUtf8) {
    std::ostringstream out;
    printAlarmsAsJson(out, {listed()});
    const nlohmann::json rows = nlohmann::json::parse(out.str());
    ASSERT_EQ(rows.size(), 1U);
    EXPECT_EQ(rows[0]["serial"], 42);
    EXPECT_EQ(rows[0]["alarmId"], 4295229443ULL);
    EXPECT_EQ(rows[0]["level"], 6);
    EXPECT_EQ(rows[0]["levelName"], "critical");
    EXPECT_EQ(rows[0]["raisedAt"], 1700000000);
    EXPECT_EQ(rows[0]["parameters"], "7");
    EXPECT_EQ(rows[0]["name"], "Disk fault");
    EXPECT_EQ(rows[0]["location"], "Enclosure 1");
    EXPECT_EQ(rows[0]["detail"], "Disk \xEF\xBF\xBD");
}

}  // namespace

}  // namespace vrx
