#include "host/definitions/definition_lint.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <set>
#include <sstream>

namespace vrx {

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

const std::string DEFINITIONS = std::string(SEEDED_FILES_DIR) + "/seeded_definitions.xml";
const std::string ENUMERATIONS = std::string(SEEDED_FILES_DIR) + "/seeded_enumerations.xml";

std::vector<std::string> rulesWithLines(const std::vector<LintFinding>& findings) {
    std::vector<std::string> rules;
    for (const LintFinding& finding : findings) rules.push_back(std::to_string(finding.line) + " " + finding.rule);
    return rules;
}

// A file of the given text, gone with the test.
class ScratchFile {
public:
    explicit ScratchFile(const std::string& text) {
        char name[] = "/tmp/definition-lint-XXXXXX";
        const int fd = mkstemp(name);
        path = name;
        std::ofstream(path) << text;
        close(fd);
    }
    ~ScratchFile() { std::remove(path.c_str()); }
    ScratchFile(const ScratchFile&) = delete;
    ScratchFile& operator=(const ScratchFile&) = delete;
    std::string path;
};

TEST(DefinitionLint, FindsEachSeededFaultOfTheEnumerationFileAtItsLine) {
    EXPECT_THAT(rulesWithLines(lintDefinitions("", ENUMERATIONS)),
                ElementsAre("7 repeated-member", "8 member-without-value", "9 member-without-text",
                            "11 type-without-name", "14 repeated-type", "17 empty-type", "18 unknown-element"));
}

TEST(DefinitionLint, FindsEachSeededFaultOfTheDefinitionFileAtItsLine) {
    std::vector<LintFinding> findings = lintDefinitions(DEFINITIONS, ENUMERATIONS);
    findings.erase(std::remove_if(findings.begin(), findings.end(),
                                  [](const LintFinding& finding) { return finding.file != DEFINITIONS; }),
                   findings.end());
    EXPECT_THAT(
        rulesWithLines(findings),
        ElementsAre("4 no-event-id", "5 bad-event-id", "6 zero-event-id", "8 repeated-event-id", "9 repeated-number",
                    "10 hidden-alarm", "11 missing-text", "12 empty-text", "13 no-oid", "14 bad-oid", "15 oid-form",
                    "16 repeated-oid", "17 cut-off-placeholder", "18 bad-placeholder", "19 placeholder-out-of-range",
                    "20 placeholder-out-of-range", "21 placeholder-out-of-range", "21 placeholder-not-in-detail",
                    "22 placeholder-not-replaced", "23 unclosed-brace", "24 bad-map-entry", "24 repeated-map-value",
                    "25 empty-map", "26 stray-brace", "27 unknown-type", "28 bad-param-desc", "29 bad-param-position",
                    "30 repeated-param-position", "31 unused-param-position", "32 map-value-unknown",
                    "33 map-outside-detail", "34 unknown-attribute", "34 cut-off-placeholder", "35 unknown-element",
                    "36 large-event-id", "38 second-list", "39 unknown-element"));
}

TEST(DefinitionLint, TheSeededFilesHoldMoreThanTwentyKindsOfFaults) {
    std::set<std::string> rules;
    for (const LintFinding& finding : lintDefinitions(DEFINITIONS, ENUMERATIONS)) rules.insert(finding.rule);
    EXPECT_GE(rules.size(), 20U);
}

TEST(DefinitionLint, FindsNothingInTheShippedFiles) {
    const std::string share = SHARE_DIR;
    std::ostringstream lines;
    printFindings(lines,
                  lintDefinitions(share + "/conf/alarm_definitions.xml", share + "/conf/alarm_enumerations.xml"));
    EXPECT_EQ(lines.str(), "");
}

TEST(DefinitionLint, MissingFileIsOneFindingWithoutLine) {
    EXPECT_THAT(rulesWithLines(lintDefinitions("/nonexistent/file.xml", "")), ElementsAre("0 unreadable"));
}

TEST(DefinitionLint, BrokenXmlIsNamedWithItsLine) {
    const ScratchFile file("<root>\n<eventDefinition>\n<param eventID='1' name></param></eventDefinition></root>");
    const std::vector<LintFinding> findings = lintDefinitions(file.path, "");
    EXPECT_THAT(rulesWithLines(findings), ElementsAre("3 unreadable"));
}

TEST(DefinitionLint, WrongRootIsNamed) {
    const ScratchFile file("<alarms/>");
    const std::vector<LintFinding> findings = lintDefinitions(file.path, "");
    ASSERT_THAT(rulesWithLines(findings), ElementsAre("1 wrong-root"));
    EXPECT_EQ(findings[0].text, "the root element is (alarms), should be (root)");
}

TEST(DefinitionLint, RootWithoutListIsNamed) {
    const ScratchFile file("<root/>");
    EXPECT_THAT(rulesWithLines(lintDefinitions(file.path, "")), ElementsAre("1 no-list"));
}

TEST(DefinitionLint, FileWithoutAlarmsIsNamed) {
    const ScratchFile file("<root>\n<eventDefinition/>\n</root>");
    EXPECT_THAT(rulesWithLines(lintDefinitions(file.path, "")), ElementsAre("2 no-alarms"));
}

TEST(DefinitionLint, FileOfDeeplyNestedElementsIsRefusedNotParsed) {
    std::string deep;
    for (int i = 0; i < 100000; ++i) deep += "<root>";
    const ScratchFile file(deep);
    EXPECT_THAT(rulesWithLines(lintDefinitions(file.path, "")), ElementsAre("0 unreadable"));
}

TEST(DefinitionLint, WithoutEnumerationFileTypesAreNotChecked) {
    const ScratchFile file(
        "<root><eventDefinition><param eventID='1' name='A' reason='R' suggestion='S' detail='##00.' location='L' "
        "alarmOid='0.1' paramDesc='0=Unknown'/></eventDefinition></root>");
    EXPECT_THAT(lintDefinitions(file.path, ""), IsEmpty());
}

TEST(DefinitionLint, PlaceholderThatEndsATextIsNamed) {
    const auto rulesOf = [](const std::string& detail, const std::string& location) {
        const ScratchFile file(
            "<root><eventDefinition><param eventID='1' name='A' reason='R' suggestion='S ##00.' detail='" + detail +
            "' location='" + location + "' alarmOid='0.1'/></eventDefinition></root>");
        return rulesWithLines(lintDefinitions(file.path, ""));
    };
    EXPECT_THAT(rulesOf("D ##00.", "L ##00."), IsEmpty());
    EXPECT_THAT(rulesOf("D ##00.", "L ##00"), ElementsAre("1 placeholder-at-end"));
    EXPECT_THAT(rulesOf("D ##00", "L"), ElementsAre("1 placeholder-at-end"));
    EXPECT_THAT(rulesOf("D ##00{a:b}", "L"), ElementsAre("1 placeholder-at-end"));
    EXPECT_THAT(rulesOf("D ##00{a:b}.", "L"), IsEmpty());
    EXPECT_THAT(rulesOf("D ##00{a:b", "L"), ElementsAre("1 unclosed-brace"));
    EXPECT_THAT(rulesOf("D ##00 ##0", "L"), ElementsAre("1 bad-placeholder"));
}

TEST(DefinitionLint, PrintsFileLineSeverityTextAndRule) {
    std::ostringstream out;
    printFindings(out, {{"a.xml", 3, LintSeverity::Error, "no-oid", "the text"},
                        {"a.xml", 4, LintSeverity::Warning, "oid-form", "another"}});
    EXPECT_EQ(out.str(), "a.xml:3: error: the text [no-oid]\na.xml:4: warning: another [oid-form]\n");
}

}  // namespace

}  // namespace vrx
