#include "tools/syslog_line.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

namespace vrx {

using nlohmann::json;

namespace {

constexpr const char* TIME = "2026-11-22T09:14:03.120Z";

json entry(const char* kind, const json& level) {
    return {{"number", 7}, {"kind", kind}, {"levelName", level}, {"text", "It's down."}, {"time", TIME}};
}

std::string headOf(const json& fields, const std::string& type = "notification") {
    const std::string line = syslogLine("array7", type, TIME, fields);
    return line.substr(0, line.find('['));
}

}  // namespace

TEST(SyslogLine, HasTimeOriginAndWhatHappened) {
    EXPECT_EQ(syslogLine("array7", "notification", TIME, entry("raise", "major")),
              "<131>1 2026-11-22T09:14:03.120Z array7 vrx - raise "
              R"([vrx@99871 kind="raise" levelName="major" number="7"] It's down.)");
    EXPECT_EQ(syslogLine("array7", "gap", TIME, {{"after", 7}, {"gone", 2}, {"next", 10}}),
              "<132>1 2026-11-22T09:14:03.120Z array7 vrx - gap "
              R"([vrx@99871 after="7" gone="2" next="10"])");
}

TEST(SyslogLine, HasTheSeverityOfTheLevel) {
    EXPECT_EQ(headOf(entry("raise", "critical")).substr(0, 5), "<130>");
    EXPECT_EQ(headOf(entry("raise", "minor")).substr(0, 5), "<132>");
    EXPECT_EQ(headOf(entry("raise", "warning")).substr(0, 5), "<133>");
    EXPECT_EQ(headOf(entry("raise", nullptr)).substr(0, 5), "<132>");
    EXPECT_EQ(headOf(entry("clear", "critical")).substr(0, 5), "<133>");
}

TEST(SyslogLine, EscapesWhatEndsAParameterOrALine) {
    json fields = entry("raise", nullptr);
    fields["other"] = "a \"b\" \\ [c]\nd\x7F";
    const std::string line = syslogLine("array7", "notification", TIME, fields);
    EXPECT_NE(line.find(R"( other="a \"b\" \\ [c\] d ")"), std::string::npos) << line;
}

TEST(SyslogLine, HasTheAlarmsTextsOfEitherNotification) {
    for (const char* base : {"1.3.6.1.4.1.99871.2.91.10.3.1.1", "1.3.6.1.4.1.99871.2.251.20.1.3"}) {
        json fields = entry("raise", nullptr);
        const auto binding = [base](int number, const json& value) {
            return json{{"name", std::string(base) + "." + std::to_string(number) + ".0"}, {"value", value}};
        };
        fields["bindings"] = {binding(1, "VRX-0001"),    binding(2, "Slot 7"), binding(3, "Replace it."),
                              binding(4, "Disk Failed"), binding(9, 77),       {{"name", "1.3.6.1"}, {"value", "x"}}};
        fields["destinations"] = {"1", "192.0.2.1:162"};
        EXPECT_EQ(syslogLine("array7", "notification", TIME, fields).substr(headOf(fields).size()),
                  R"([vrx@99871 node="VRX-0001" location="Slot 7" advice="Replace it." title="Disk Failed")"
                  R"( destinations="1,192.0.2.1:162" kind="raise" number="7"] It's down.)");
    }
}

TEST(SyslogLine, TakesHostNamesOfTheFormatOnly) {
    EXPECT_TRUE(isSyslogHost("array7.example.net"));
    EXPECT_TRUE(isSyslogHost(std::string(255, 'a')));
    EXPECT_FALSE(isSyslogHost(std::string(256, 'a')));
    EXPECT_FALSE(isSyslogHost(""));
    EXPECT_FALSE(isSyslogHost("two words"));
    EXPECT_FALSE(isSyslogHost("ä"));
}

}  // namespace vrx
