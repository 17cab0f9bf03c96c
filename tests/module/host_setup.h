// What a whole module needs of the host before its handlers work.
#pragma once

#include <string>

#include "tests/fake_host/fake_host.h"

// Alarm files with these <param> elements and without enumerations, and where the module finds them.
inline void giveAlarmFiles(FakeHost& host, const std::string& definitions) {
    host.setConfig("SNMP_CONF", "ALARM_INI_PATH", "definitions.xml");
    host.setConfig("SNMP_CONF", "ALARM_PARAM_ENUM_PATH", "enumerations.xml");
    host.writeFile("definitions.xml", "<root><eventDefinition>" + definitions + "</eventDefinition></root>");
    host.writeFile("enumerations.xml", "<alarm><param_enum/></alarm>");
}

inline void giveCommands(FakeHost& host) {
    host.setConfig("COMMAND", "GET_SYSTEM_WWN", "1001");
    host.setConfig("COMMAND", "GET_CURRENT_ALARM", "2001");
    host.setConfig("COMMAND", "CLEAR_ALARM", "2002");
}
