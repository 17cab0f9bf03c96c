// A host with a definition file and an enumeration file, and the parser that reads them.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "alarm/snmp_alarm_iniparser.h"
#include "module/vrx_exception.h"
#include "tests/fake_host/fake_host.h"

constexpr unsigned long long DISK_FAULT = 4295229443ULL;  // its low 32 bits are 262147, its low 16 bits 3
constexpr u_int DISK_FAULT_LEVEL = 262147;

constexpr const char* XML_DECLARATION = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";

// One alarm with a placeholder of each kind; parameter 2 is a number that the enumerations name.
constexpr const char* DISK_FAULT_DEFINITION =
    "<param eventID=\"4295229443\" name=\"Disk fault\" reason=\"A disk failed.\" suggestion=\"Replace disk ##00.\""
    " detail=\"Disk ##00 in enclosure ##01 is ##02{offline:not reachable;degraded:partly working}.\""
    " location=\"Enclosure ##01, slot ##00\" alarmOid=\"5.7\" paramDesc=\"2=DiskState\"/>\n";
constexpr const char* DISK_STATES =
    "<enum_type name=\"DiskState\"><enum_member value=\"1\">offline</enum_member>"
    "<enum_member value=\"2\">degraded</enum_member></enum_type>\n";

// Opens the locks of the class.
struct OpenParser : CAlarmConfigParser {
    using CAlarmConfigParser::_oSingletonMutex;
    using CAlarmConfigParser::m_oMutex;
};

struct Rendered {
    int result = 0;
    std::string location = "location before";
    std::string detail = "detail before";
    u_int level = 77;
    std::string name = "name before";
    std::string suggestion = "suggestion before";
};

class AlarmFilesTest : public testing::Test {
protected:
    static constexpr const char* DEFINITION_PATH = "conf/definitions.xml";
    static constexpr const char* ENUMERATION_PATH = "conf/enumerations.xml";

    AlarmFilesTest() {
        CAlarmConfigParser::destroy();
        host.setConfig("SNMP_CONF", "ALARM_INI_PATH", DEFINITION_PATH);
        host.setConfig("SNMP_CONF", "ALARM_PARAM_ENUM_PATH", ENUMERATION_PATH);
        writeDefinitions(DISK_FAULT_DEFINITION);
        writeEnumerations(DISK_STATES);
        host.log().clear();
    }
    ~AlarmFilesTest() override { CAlarmConfigParser::destroy(); }

    std::string writeDefinitionFile(const std::string& content) { return host.writeFile(DEFINITION_PATH, content); }
    std::string writeEnumerationFile(const std::string& content) { return host.writeFile(ENUMERATION_PATH, content); }

    void writeDefinitions(const std::string& params) {
        writeDefinitionFile(XML_DECLARATION + ("<root><eventDefinition>\n" + params) + "</eventDefinition></root>\n");
    }
    void writeEnumerations(const std::string& types) {
        writeEnumerationFile(XML_DECLARATION + ("<alarm><param_enum>\n" + types) + "</param_enum></alarm>\n");
    }

    // The parser with the files as they are now, its log lines dropped.
    CAlarmConfigParser& load() {
        CAlarmConfigParser::destroy();
        CAlarmConfigParser& parser = *CAlarmConfigParser::instance();
        host.log().clear();
        return parser;
    }

    // what() of the load's exception, without "CVRX_Exception: "; "" when the load succeeds.
    static std::string loadFailure() {
        const std::string prefix = "CVRX_Exception: ";
        try {
            CAlarmConfigParser::instance();
        } catch (const CVRX_Exception& e) {
            const std::string what = e.what();
            EXPECT_EQ(what.substr(0, prefix.size()), prefix);
            return what.substr(prefix.size());
        }
        return "";
    }

    static Rendered render(unsigned long long alarmId, const std::string& params) {
        Rendered r;
        r.result = CAlarmConfigParser::instance()->getAlarmInfo(alarmId, params, r.location, r.detail, r.level, r.name,
                                                                r.suggestion);
        return r;
    }

    FakeHost host;
};
