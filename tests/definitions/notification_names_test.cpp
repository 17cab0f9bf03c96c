#include "host/definitions/notification_names.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>

namespace vrx {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

std::string nameOf(const std::string& title) {
    return notificationNames({{title, "0.7"}}).front();
}

TEST(NotificationNames, AreTheWordsOfTheTitle) {
    EXPECT_EQ(nameOf("Disk Failed"), "vrxDiskFailed");
    EXPECT_EQ(nameOf("  disk-to-disk copy: 2nd try. "), "vrxDiskToDiskCopy2ndTry");
    EXPECT_EQ(nameOf("3 Fans"), "vrx3Fans");
}

TEST(NotificationNames, AreTheNumberWhereTheTitleMakesNone) {
    for (const std::string& title : {std::string(), std::string("--"),
                                     std::string("Gr\xC3\xB6\xC3\x9F"
                                                 "e"),
                                     std::string(62, 'a')}) {
        SCOPED_TRACE(title);
        EXPECT_EQ(nameOf(title), "vrxAlarm7");
    }
    EXPECT_EQ(nameOf(std::string(61, 'a')), "vrxA" + std::string(60, 'a'));
}

TEST(NotificationNames, AreTheNumberWhereTheModuleHasTheNameAlready) {
    for (const char* title : {"Tamrel", "Tamrel Alarm MIB", "named alarm serial no", "Alarm 3", "alarm 44"}) {
        SCOPED_TRACE(title);
        EXPECT_EQ(nameOf(title), "vrxAlarm7");
    }
    EXPECT_EQ(nameOf("Alarm 3 x"), "vrxAlarm3X");
    EXPECT_EQ(nameOf("Alarm"), "vrxAlarm");
}

TEST(NotificationNames, OfTheSameWordsAreAllNumbersSoThatTheirOrderIsNoMatter) {
    EXPECT_THAT(notificationNames({{"Disk Failed", "0.1"}, {"Fan Failed", "0.2"}, {"DISK FAILED", "0.3"}}),
                ElementsAre("vrxAlarm1", "vrxFanFailed", "vrxAlarm3"));
}

TEST(NotificationNames, AreNoneWithoutANumber) {
    EXPECT_THAT(notificationNames({{"Disk Failed", "5.7"}, {"", "5.8"}}), ElementsAre("vrxDiskFailed", ""));
}

TEST(NotificationNames, NumberIsTheNOfAnOidOfTheForm0N) {
    EXPECT_EQ(notificationNumber("0.1"), 1U);
    EXPECT_EQ(notificationNumber("0.4294967295"), 4294967295U);
    for (const char* oid : {"", "0", "0.", "0.0", "0.01", "1.1", "0.1.2", "0.x", "0.-1", "0. 1", "0.4294967296",
                            "0.18446744073709551617", "00.1"}) {
        EXPECT_EQ(notificationNumber(oid), std::nullopt) << oid;
    }
}

TEST(NotificationNames, RevisionIsADateOrTheFixedOne) {
    for (const char* date : {"202411210000Z", "202402292359Z", "200002290000Z"}) EXPECT_EQ(moduleRevision(date), date);
    for (const char* date :
         {"", "202411210000", "2411210000Z", "202413010000Z", "202300290000Z", "202302290000Z", "202411002400Z",
          "202411212400Z", "202411210060Z", "202411200x00Z", "198901010000Z", "202411210000ZZ"}) {
        EXPECT_EQ(moduleRevision(date), "200001010000Z") << date;
    }
}

// Rules with their lines, of a definition file with these alarms.
std::vector<std::string> rulesOf(const std::string& attributes, const std::string& alarms) {
    char path[] = "/tmp/notification-names-XXXXXX";
    close(mkstemp(path));
    std::ofstream(path) << "<root>\n<eventDefinition " + attributes + ">\n" + alarms + "</eventDefinition></root>";
    std::vector<std::string> rules;
    for (const LintFinding& finding : lintForMib(path)) {
        EXPECT_EQ(finding.severity, LintSeverity::Warning);
        rules.push_back(std::to_string(finding.line) + " " + finding.rule);
    }
    std::remove(path);
    return rules;
}

TEST(LintForMib, SaysWhatTheModuleHasToMakeUp) {
    EXPECT_THAT(rulesOf("mibRevision='202411210000Z'", "<param name='Disk Failed' alarmOid='0.1'/>"), IsEmpty());
    EXPECT_THAT(rulesOf("", ""), ElementsAre("2 mib-revision"));
    EXPECT_THAT(
        rulesOf("mibRevision='today'",
                "<param name='Disk Failed' alarmOid='0.1'/>\n<param name='Disk failed' alarmOid='0.2'/>\n"
                "<param name='Some Part Of The System Has Failed Again' alarmOid='0.3'/>\n<param alarmOid='0.4'/>\n"
                "<param name='Without A Number' alarmOid='4'/>\n"),
        ElementsAre("2 mib-revision", "3 notification-name", "4 notification-name", "5 long-notification-name",
                    "6 notification-name"));
}

TEST(LintForMib, LeavesFilesThatCannotBeReadToTheOtherRules) {
    EXPECT_THAT(lintForMib("/nonexistent/file.xml"), IsEmpty());
}

}  // namespace

}  // namespace vrx
