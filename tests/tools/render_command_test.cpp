#include "tools/render_command.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "alarm/snmp_alarm_iniparser.h"
#include "host/base/device_config.h"
#include "host/base/product_root.h"

namespace vrx {

namespace {

// A product root with one alarm, whose texts use a value map and an enumeration.
class RenderCommand : public testing::Test {
protected:
    static void SetUpTestSuite() {
        char name[] = "/tmp/render-command-XXXXXX";
        s_root = mkdtemp(name);
        std::filesystem::create_directories(s_root + "/conf");
        std::ofstream(s_root + "/conf/device.xml")
            << "<device><section name='SNMP_CONF'><item key='ALARM_INI_PATH' value='conf/definitions.xml'/>"
               "<item key='ALARM_PARAM_ENUM_PATH' value='conf/enumerations.xml'/></section></device>";
        std::ofstream(s_root + "/conf/definitions.xml")
            << "<root><eventDefinition><param eventID='4295229443' name='Disk fault' reason='A disk failed.' "
               "suggestion='Replace disk ##00.' detail='Disk ##00 in enclosure ##01 is ##02{offline:not "
               "reachable;degraded:partly working}.' location='Enclosure ##01, slot ##00' alarmOid='0.5' "
               "paramDesc='2=DiskState'/></eventDefinition></root>";
        std::ofstream(s_root + "/conf/enumerations.xml")
            << "<alarm><param_enum><enum_type name='DiskState'><enum_member value='1'>offline</enum_member>"
               "</enum_type></param_enum></alarm>";
        setProductRoot(s_root);
        reloadDeviceConfig();
    }
    static void TearDownTestSuite() {
        CAlarmConfigParser::destroy();
        std::filesystem::remove_all(s_root);
    }

    static std::string s_root;
};

std::string RenderCommand::s_root;

TEST_F(RenderCommand, ShowsTheTextsOfAnAlarm) {
    std::ostringstream out;
    EXPECT_EQ(renderAlarm(out, 4295229443ULL, "7,CTE0&#44;A,1", false), 0);
    EXPECT_EQ(out.str(),
              "  name        \"Disk fault\"\n"
              "  location    \"Enclosure CTE0,A, slot 7\"\n"
              "  detail      \"Disk 7 in enclosure CTE0,A is not reachable.\"\n"
              "  suggestion  \"Replace disk 7.\"\n"
              "  number      262147\n"
              "  trap OID    1.3.6.1.4.1.99871.2.91.10.2.1.1.0.5\n");
}

TEST_F(RenderCommand, ExplainsEachStep) {
    std::ostringstream out;
    EXPECT_EQ(renderAlarm(out, 4295229443ULL, "7,CTE0&#44;A,1", true), 0);
    const std::string steps =
        "parameter text: \"7,CTE0&#44;A,1\"\n"
        "parameter list:\n"
        "  00  \"7\"\n"
        "  01  \"CTE0,A\"\n"
        "  02  \"1\"\n"
        "enumeration types by position (paramDesc):\n"
        "  ##02  \"DiskState\"\n"
        "parameter list with enumeration descriptions:\n"
        "  00  \"7\"\n"
        "  01  \"CTE0,A\"\n"
        "  02  \"offline\"\n"
        "placeholders of the detail and their values:\n"
        "  ##00  \"7\"\n"
        "  ##01  \"CTE0,A\"\n"
        "  ##02  \"not reachable\"\n"
        "templates:\n"
        "  location    \"Enclosure ##01, slot ##00\"\n"
        "  detail      \"Disk ##00 in enclosure ##01 is ##02.\"\n"
        "  suggestion  \"Replace disk ##00.\"\n"
        "texts:\n";
    EXPECT_EQ(out.str().substr(0, steps.size()), steps);
}

TEST_F(RenderCommand, LetsNoControlCharacterOfAParameterThrough) {
    std::ostringstream out;
    EXPECT_EQ(renderAlarm(out, 4295229443ULL,
                          "7\x1b[2J,\xC2\x9B"
                          "31m\r,\x9B",
                          true),
              0);
    for (const char control : {'\x1b', '\r', '\x9B'})
        EXPECT_EQ(out.str().find(control), std::string::npos) << out.str();
    EXPECT_NE(out.str().find("  location    \"Enclosure \\xC2\\x9B31m\\x0D, slot 7\\x1B[2J\""), std::string::npos)
        << out.str();
}

TEST_F(RenderCommand, SaysThatAnAlarmIsNotDefined) {
    std::ostringstream out;
    EXPECT_EQ(renderAlarm(out, 5, "", true), -1);
    EXPECT_EQ(out.str(), "alarm 5 is not defined\n");
}

}  // namespace

}  // namespace vrx
