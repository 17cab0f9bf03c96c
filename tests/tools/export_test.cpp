#include <gtest/gtest.h>

#include <string>

#include "alarm/snmp_alarm_iniparser.h"
#include "host/base/device_config.h"
#include "host/base/product_root.h"
#include "tools/definition_files.h"
#include "tools/export/catalogue.h"
#include "tools/export/plain_text.h"

namespace vrx {

namespace {

// The definitions that ship, as exports and as the module read them.
class CatalogueTest : public testing::Test {
protected:
    CatalogueTest() {
        setProductRoot(SHARE_DIR);
        reloadDeviceConfig();
        CAlarmConfigParser::destroy();
        const DefinitionFiles files = configuredDefinitionFiles();
        m_catalogue = readCatalogue(files.definitions, files.enumerations);
    }
    ~CatalogueTest() override { CAlarmConfigParser::destroy(); }

    // The parameter text of an alarm that is raised with the values of its sample.
    std::string parametersOf(const CatalogueAlarm& alarm) {
        std::string text;
        for (const CatalogueParameter& parameter : alarm.parameters) {
            EXPECT_EQ(parameter.position, &parameter - alarm.parameters.data());
            std::string value = "[" + std::to_string(parameter.position) + "]";
            if (!parameter.enumeration.empty())
                value = m_catalogue.enumerations.at(parameter.enumeration).front().code;
            else if (!parameter.shownAs.empty())
                value = parameter.shownAs.front().code;
            text += (text.empty() ? "" : ",") + value;
        }
        return text;
    }

    Catalogue m_catalogue;
};

TEST_F(CatalogueTest, HasTheAlarmsOfTheModuleByNumber) {
    const auto& items = CAlarmConfigParser::instance()->alarmItems();
    ASSERT_EQ(m_catalogue.alarms.size(), items.size());
    const CatalogueAlarm* former = nullptr;
    for (const CatalogueAlarm& alarm : m_catalogue.alarms) {
        ASSERT_EQ(items.count(alarm.identifier), 1U);
        const CAlarmConfigItem& item = *items.at(alarm.identifier);
        EXPECT_EQ(alarm.number, item.level);
        EXPECT_EQ(alarm.title, item.name);
        EXPECT_EQ(alarm.cause, item.reason);
        EXPECT_EQ(alarm.templates.detail, item.detail);
        EXPECT_EQ(alarm.alarmOid, item.alarmOid);
        EXPECT_TRUE(former == nullptr || former->number < alarm.number);
        former = &alarm;
    }
}

TEST_F(CatalogueTest, SamplesAreWhatTheModuleRenders) {
    CAlarmConfigParser& module = *CAlarmConfigParser::instance();
    for (const CatalogueAlarm& alarm : m_catalogue.alarms) {
        SCOPED_TRACE(alarm.title);
        AlarmTexts texts;
        std::string name;
        unsigned int number = 0;
        ASSERT_EQ(module.getAlarmInfo(alarm.identifier, parametersOf(alarm), texts.location, texts.detail, number, name,
                                      texts.advice),
                  0);
        EXPECT_EQ(alarm.sample.location, texts.location);
        EXPECT_EQ(alarm.sample.detail, texts.detail);
        EXPECT_EQ(alarm.sample.advice, texts.advice);
    }
}

TEST(PlainText, IsShortenedBetweenCharacters) {
    EXPECT_EQ(shortened("12345678", 8), "12345678");
    EXPECT_EQ(shortened("123456789", 8), "12345...");
    EXPECT_EQ(shortened("1234\xC3\xB6xyz", 8), "1234...");
    EXPECT_EQ(shortened("\xF0\x9F\x92\xA5\xF0\x9F\x92\xA5", 6), "...");
}

TEST(PlainText, IsOneLineInAscii) {
    EXPECT_EQ(oneLine(" \n a\t b\n\nc \n"), "a b c");
    EXPECT_EQ(oneLine("\n"), "");
    EXPECT_EQ(asciiText("a\xC3\xB6\xF0\x9F\x92\xA5z"), "a??z");
}

TEST(PlainText, IsFreeOfWhatIsReplacedAlsoWhereThatJoins) {
    EXPECT_EQ(replacedAll("a-----b", "--", "-"), "a-b");
    EXPECT_EQ(replacedAll("$$", "$", "$$"), "$$$$");
    EXPECT_EQ(replacedAll("::::==", "::=", ":="), ":==");
}

TEST(PlainText, IsMarkupWithoutWhatXmlCannotHave) {
    EXPECT_EQ(markupText("<a b=\"c\" d='e'> &amp; ]]>"), "&lt;a b=&quot;c&quot; d=&#39;e&#39;&gt; &amp;amp; ]]&gt;");
    EXPECT_EQ(markupText("a\xEF\xBF\xBE\xEF\xBF\xBF\xEF\xBF\xBDz"), "a\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBDz");
}

}  // namespace

}  // namespace vrx
