// What one notification gives the bindings of its trap: the record's cells and the rendered texts.
#pragma once

#include <snmp_pp/octet.h>
#include <sys/types.h>

#include <string>

class CTLVRecordV3;
class CTamrelNotifyMsgHandler;

struct tAlarmTrapValues {
    unsigned long long alarmId = 0;
    std::string location;
    std::string detail;
    u_int level = 0;  // of the definition
    std::string name;
    std::string suggestion;
    int faultLevel = 0;  // of the record, on the management system's scale
    unsigned int category = 0;
    unsigned int serialNo = 0;
    Snmp_pp::OctetStr time;      // as the handler sends it
    Snmp_pp::OctetStr timeText;  // as it is logged
};

// Reads the record and renders the alarm. 0, or the non-zero result of the rendering, with `alarmId` set. Throws
// CVRX_Exception for a cell that is absent or of the wrong type and for definitions that cannot be loaded.
int readAlarmTrapValues(CTamrelNotifyMsgHandler& handler, const CTLVRecordV3& record, tAlarmTrapValues& values);
