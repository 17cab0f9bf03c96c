// What vrxctl doctor makes of figures that no test can have the machine give, of lines, and of its findings as text.
// tests/e2e/doctor_test.py breaks whole product roots.
#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "tools/doctor/checks.h"
#include "tools/doctor/facts.h"
#include "tools/doctor/report.h"

namespace vrx {

namespace {

constexpr std::uint64_t MEBIBYTE = std::uint64_t{1} << 20U;

std::string findingsOf(const Report& report) {
    std::string text;
    for (const Finding& finding : report.findings())
        text += (finding.severity == Severity::Fault ? "fault " : "warning ") + finding.subject + ": " + finding.what;
    return text;
}

TEST(DoctorDiskSpace, IsJudgedByBytesAndByFiles) {
    const struct {
        std::uint64_t bytes;
        std::uint64_t files;
        const char* findings;
    } cases[] = {
        {100 * MEBIBYTE, 100, ""},
        {100 * MEBIBYTE - 1, 100, "warning /state: The disk is nearly full: 99 MiB are free."},
        {10 * MEBIBYTE, 100, "warning /state: The disk is nearly full: 10 MiB are free."},
        {10 * MEBIBYTE - 1, 100, "fault /state: The disk is full: 9 MiB are free."},
        {0, 0, "fault /state: The disk is full: 0 MiB are free."},
        {1000 * MEBIBYTE, 99, "fault /state: The file system has room for 99 more files only."},
    };
    for (const auto& one : cases) {
        Report report;
        judgeSpace("/state", one.bytes, one.files, report);
        EXPECT_EQ(findingsOf(report), one.findings);
    }
}

TEST(DoctorMessageSize, IsComparedWithThePathAndTheLimit) {
    const struct {
        bool isIpv6;
        std::size_t mtu;
        std::size_t longest;
        std::size_t limit;
        bool found;
    } cases[] = {
        {false, 1500, 1472, 65507, false}, {false, 1500, 1473, 65507, true}, {true, 1500, 1452, 65507, false},
        {true, 1500, 1453, 65507, true},   {false, 1500, 9000, 1472, false}, {false, 1500, 9000, 1473, true},
        {false, 0, 9000, 65507, false},  // the system does not know the path
    };
    for (const auto& one : cases) {
        Report report;
        judgeMessageSize("d", one.isIpv6, one.mtu, one.longest, one.limit, report);
        EXPECT_EQ(!report.findings().empty(), one.found) << one.mtu << " " << one.longest << " " << one.limit;
    }
}

TEST(DoctorDirectives, AreReadAsTheAgentReadsThem) {
    const std::vector<Directive> lines = parseDirectives(
        "# a comment\n\nRWUser admin priv .1\n  createUser \"a b\" SHA-256 'pass phrase'\n[snmp] sendMessageMaxSize "
        "9\n");
    ASSERT_EQ(lines.size(), 3U);
    EXPECT_EQ(lines[0].word, "rwuser");
    EXPECT_EQ(lines[0].line, 3U);
    EXPECT_EQ(lines[1].arguments, (std::vector<std::string>{"a b", "SHA-256", "pass phrase"}));
    EXPECT_EQ(lines[2].word, "sendmessagemaxsize");
}

TEST(DoctorUsers, AreReadFromKeysAndFromLinesThatMakeThem) {
    const std::vector<KeptUser> users = usersOf(parseDirectives(
        "usmUser 1 3 0x8001861F05AB \"admin\" \"admin\" NULL .1 0x00 .1 0x00 \"\"\n"
        "usmUser 1 3 0x80 0x6f7073 0x6f7073 NULL\ncreateUser late SHA-256 x\ncreateUser -e 0x8002 far SHA x\n"
        "usmUser cut\nengineBoots 3\n"));
    ASSERT_EQ(users.size(), 4U);
    EXPECT_EQ(users[0].name, "admin");
    EXPECT_EQ(users[0].engineId, "8001861f05ab");
    EXPECT_EQ(users[1].name, "ops");
    EXPECT_EQ(users[2].name, "late");
    EXPECT_EQ(users[2].engineId, "");
    EXPECT_EQ(users[3].name, "far");
    EXPECT_EQ(users[3].engineId, "8002");
}

TEST(DoctorReceivers, AreTakenFromTheirLines) {
    const struct {
        const char* line;
        const char* receiver;
    } cases[] = {
        {"informsink nms.example.com word 1162", "nms.example.com"},
        {"informsink udp:192.0.2.1:162 word", "192.0.2.1"},
        {"informsink udp6:[2001:db8::1]:1162", "2001:db8::1"},
        {"informsink 2001:db8::1", "2001:db8::1"},
        {"trapsess -Ci -v3 -u informer 192.0.2.10:162", "192.0.2.10"},
        {"trapcommunity word", ""},
        {"informsink", ""},
    };
    for (const auto& one : cases) EXPECT_EQ(receiverOf(parseDirectives(one.line).at(0)), one.receiver) << one.line;
}

TEST(DoctorReport, KnowsWhatItHasNamed) {
    Report report;
    report.begin("files");
    report.fault("/etc/a.conf:7", "", "", "");
    report.warning("trap destination 1, nms:162", "", "", "");
    EXPECT_TRUE(report.names("/etc/a.conf"));
    EXPECT_TRUE(report.names("trap destination 1"));
    EXPECT_FALSE(report.names("/etc/a"));
    EXPECT_FALSE(report.names("trap destination"));
    EXPECT_FALSE(report.names("/etc/a.conf:70"));
}

TEST(DoctorReport, IsTextOf80ColumnsWithWholeCommands) {
    Report report;
    report.begin("users");
    report.fault("user \x1b[2J", std::string(6, 'w') + " " + std::string(70, 'x'), "why",
                 "vrxctl --root /a/path/that/is/longer/than/a/line/of/a/terminal/can/be/and/a/bit/more user add");
    report.notChecked("clock", "no source");
    std::ostringstream out;
    printReport(out, report);
    EXPECT_EQ(out.str(), R"(FAULT   user \x1B[2J
        wwwwww
        xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx
  why   why
  mend  vrxctl --root /a/path/that/is/longer/than/a/line/of/a/terminal/can/be/and/a/bit/more user add

Not checked:
  - clock: no source

1 fault, 0 warnings in 1 check; begin with user \x1B[2J
)");
    EXPECT_EQ(exitCodeOf(report), 2);
}

TEST(DoctorReport, HasFaultsBeforeWarningsInTheOrderOfTheChecks) {
    Report report;
    report.begin("all");
    report.warning("w1", "", "", "");
    report.fault("f1", "", "", "");
    report.warning("w2", "", "", "");
    report.fault("f2", "", "", "");
    report.putFaultsFirst();
    std::string order;
    for (const Finding& finding : report.findings()) order += finding.subject + " ";
    EXPECT_EQ(order, "f1 f2 w1 w2 ");
}

TEST(DoctorReport, ShowsPathsAsOperatorsKnowThem) {
    Report report;
    report.begin("files");
    report.fault("/usr/share/vrx/etc/a:1", "see /usr/share/vrx/etc/a and /usr/share/vrx/etc/b", "",
                 "vi /usr/share/vrx/etc/a");
    report.notChecked("/usr/share/vrx/etc/c", "no reason");
    report.show("/usr/share/vrx/etc/", "/etc/vrx/");
    EXPECT_EQ(findingsOf(report), "fault /etc/vrx/a:1: see /etc/vrx/a and /etc/vrx/b");
    EXPECT_EQ(report.findings()[0].remedy, "vi /etc/vrx/a");
    EXPECT_EQ(report.unchecked()[0].subject, "/etc/vrx/c");
}

TEST(DoctorReport, SaysThatThereIsNothing) {
    Report report;
    report.begin("a");
    report.begin("b");
    std::ostringstream out;
    printReport(out, report);
    EXPECT_EQ(out.str(), "no findings in 2 checks\n");
    EXPECT_EQ(exitCodeOf(report), 0);
    report.notChecked("clock", "no source");
    out.str("");
    printReport(out, report);
    EXPECT_NE(out.str().find("\nno findings in 2 checks, not all of which could be made in full\n"), std::string::npos);
    EXPECT_EQ(exitCodeOf(report), 0);
    report.warning("s", "w", "y", "r");
    EXPECT_EQ(exitCodeOf(report), 1);
}

}  // namespace

}  // namespace vrx
