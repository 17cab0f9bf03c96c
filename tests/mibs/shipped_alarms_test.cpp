// The definitions that ship, through the module's own renderer.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "alarm/snmp_alarm_iniparser.h"
#include "platform/vrx_utility.h"
#include "tests/fake_host/fake_host.h"

using testing::AnyOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace {

struct Texts {
    int result = 0;
    std::string location;
    std::string detail;
    u_int level = 0;
    std::string name;
    std::string suggestion;
};

class ShippedAlarms : public testing::Test {
protected:
    static constexpr unsigned long long DISK_FAILED = 4295229443ULL;
    static constexpr unsigned int MOST_PARAMETERS = 10;

    ShippedAlarms() {
        CAlarmConfigParser::destroy();
        host.setRoot(SHARE_DIR);
        host.setConfig("SNMP_CONF", "ALARM_INI_PATH", "conf/alarm_definitions.xml");
        host.setConfig("SNMP_CONF", "ALARM_PARAM_ENUM_PATH", "conf/alarm_enumerations.xml");
        parser = CAlarmConfigParser::instance();
    }
    ~ShippedAlarms() override { CAlarmConfigParser::destroy(); }

    Texts render(unsigned long long alarm, const std::string& parameters) {
        Texts texts;
        texts.result = parser->getAlarmInfo(alarm, parameters, texts.location, texts.detail, texts.level, texts.name,
                                            texts.suggestion);
        return texts;
    }

    // A value for every parameter that a detail could show: "1", the first code, where an enumeration is expected.
    static std::string sampleParameters(const CAlarmConfigItem& alarm) {
        std::string parameters;
        for (unsigned int position = 0; position < MOST_PARAMETERS; ++position) {
            std::string value = "value" + std::to_string(position);
            for (const auto& [typed, type] : alarm.paramEnumDescs) {
                if (typed == position) value = "1";
            }
            parameters += (position == 0 ? "" : ",") + value;
        }
        return parameters;
    }

    FakeHost host;
    CAlarmConfigParser* parser = nullptr;
};

TEST_F(ShippedAlarms, LoadWithoutAWarning) {
    EXPECT_THAT(host.log().lines("warn"), IsEmpty());
    EXPECT_THAT(host.log().lines("error"), IsEmpty());
    EXPECT_GE(parser->alarmItems().size(), 80U);
}

TEST_F(ShippedAlarms, AllRenderCompletely) {
    const auto complete = Not(AnyOf(HasSubstr("##"), HasSubstr("None"), HasSubstr("--"), HasSubstr("{"), IsEmpty()));
    host.log().clear();
    for (const auto& [id, alarm] : parser->alarmItems()) {
        SCOPED_TRACE(alarm->name);
        const Texts texts = render(id, sampleParameters(*alarm));
        EXPECT_EQ(texts.result, 0);
        EXPECT_EQ(texts.level, static_cast<u_int>(id & 0xFFFFFFFFU));
        EXPECT_EQ(texts.name, alarm->name);
        EXPECT_THAT(texts.location, complete);
        EXPECT_THAT(texts.detail, complete);
        EXPECT_THAT(texts.suggestion, complete);
    }
    EXPECT_THAT(host.log().lines("warn"), IsEmpty());
    EXPECT_THAT(host.log().lines("error"), IsEmpty());
}

TEST_F(ShippedAlarms, AllRenderWithoutParameters) {
    for (const auto& [id, alarm] : parser->alarmItems()) {
        SCOPED_TRACE(alarm->name);
        const Texts texts = render(id, "");
        EXPECT_EQ(texts.result, 0);
        EXPECT_THAT(texts.detail, HasSubstr("--"));
    }
}

// A value is searched for placeholders again: at the end of a text a mark would end the rendering. Anywhere else it
// names parameter 0, and a value of that parameter so puts itself in up to the end of the text.
TEST_F(ShippedAlarms, AreRenderedThoughAValueEndsInAMarkWhereItIsNotTheFirst) {
    for (const auto& [id, alarm] : parser->alarmItems()) {
        SCOPED_TRACE(alarm->name);
        std::vector<std::string> values;
        SplitToStr(sampleParameters(*alarm), ',', values);
        for (std::size_t position = 1; position < values.size(); ++position) {
            SCOPED_TRACE(position);
            std::string parameters = values[0];
            for (std::size_t i = 1; i < values.size(); ++i) parameters += "," + (i == position ? "a##" : values[i]);
            EXPECT_EQ(render(id, parameters).result, 0);
        }
    }
    EXPECT_EQ(render(DISK_FAILED, "a##,CTE0,1").result, 16793615);
}

// The worked example of docs/alarm-definitions.md.

TEST_F(ShippedAlarms, ExampleOfThePage) {
    const Texts texts = render(DISK_FAILED, "7,CTE0&#44;A,1");
    EXPECT_EQ(texts.location, "Enclosure CTE0,A, slot 7.");
    EXPECT_EQ(texts.detail, "The disk in slot 7 of enclosure CTE0,A cannot be used any more: it is not reachable.");
    EXPECT_EQ(texts.suggestion, "Replace the disk in slot 7 of enclosure CTE0,A.");
}

TEST_F(ShippedAlarms, ExampleOfThePageWithTooFewParameters) {
    host.log().clear();
    const Texts texts = render(DISK_FAILED, "7");
    EXPECT_EQ(texts.location, "Enclosure --, slot 7.");
    EXPECT_EQ(texts.detail, "The disk in slot 7 of enclosure -- cannot be used any more: it is --.");
    EXPECT_EQ(texts.suggestion, "Replace the disk in slot 7 of enclosure --.");
    EXPECT_THAT(host.log().lines("warn"), ElementsAre(HasSubstr("parameter enume value 2 is out of rang[0, 1]")));
}

TEST_F(ShippedAlarms, ExampleOfThePageWithAnUnknownCode) {
    host.log().clear();
    EXPECT_EQ(render(DISK_FAILED, "7,CTE0,9").detail,
              "The disk in slot 7 of enclosure CTE0 cannot be used any more: it is 9.");
    EXPECT_THAT(host.log().lines("warn"),
                ElementsAre(HasSubstr("not found enum value literal desc of key DiskState_9 in map")));
}

}  // namespace
