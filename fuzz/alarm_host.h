// What the targets of the alarm definitions share: a host whose two files are in memory, and a parser that reads them.
// One per input, so that nothing of an input stays behind.
#pragma once

#include <string>

#include "alarm/snmp_alarm_iniparser.h"
#include "fuzz/memory_file.h"
#include "module/vrx_exception.h"
#include "tests/fake_host/fake_host.h"

constexpr const char* NO_DEFINITIONS = "<root><eventDefinition/></root>";
constexpr const char* NO_ENUMERATIONS = "<alarm><param_enum/></alarm>";

class AlarmHost {
public:
    AlarmHost() {
        m_host.setRoot(MemoryFile::FOLDER);
        m_host.setConfig("SNMP_CONF", "ALARM_INI_PATH", definitions().name());
        m_host.setConfig("SNMP_CONF", "ALARM_PARAM_ENUM_PATH", enumerations().name());
        definitions().write(NO_DEFINITIONS);
        enumerations().write(NO_ENUMERATIONS);
    }
    ~AlarmHost() { CAlarmConfigParser::destroy(); }
    AlarmHost(const AlarmHost&) = delete;
    AlarmHost& operator=(const AlarmHost&) = delete;

    FakeHost& host() { return m_host; }

    static MemoryFile& definitions() {
        static MemoryFile file;
        return file;
    }
    static MemoryFile& enumerations() {
        static MemoryFile file;
        return file;
    }

    // The loaded parser, or null and the exception's text.
    static CAlarmConfigParser* load(std::string& failure) {
        try {
            return CAlarmConfigParser::instance();
        } catch (const CVRX_Exception& fault) {
            failure = fault.what();
            return nullptr;
        }
    }

private:
    FakeHost m_host;
};
