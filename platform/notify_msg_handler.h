// A handler of alarm notifications: turns one alarm record into the parts of one trap.
#pragma once

#include <agent_pp/snmp_pp_ext.h>

#include <list>
#include <map>
#include <string>

#include "platform/trap_dest_info.h"

class CTLVRecordV3;

// The host calls through the slots in this order: do not reorder. For each notification it asks filterTrapMap, and if
// a destination was chosen constructAlarmTrapVb and getTrapOid; calls on one handler never overlap.
class INotifyMsgHandler {
public:
    virtual ~INotifyMsgHandler() = default;

    // Builds the bindings of the trap: 0 and `bindings` set to an array of getTrapVbLen() elements that the caller
    // releases with delete[]; anything else and `bindings` as it was.
    virtual int constructAlarmTrapVb(const CTLVRecordV3& record, Agentpp::Vbx*& bindings) = 0;

    // snmpTrapOID for an alarm. The next call may overwrite what the reference shows.
    virtual Agentpp::Oidx& getTrapOid(unsigned long long alarmId) = 0;

    // The OID that the bindings stand below.
    virtual Agentpp::Oidx& getBaseOid() = 0;

    // Whether times are sent as DateAndTime octets (else as text).
    virtual bool useDateAndTime() { return true; }

    virtual int getTrapVbLen() = 0;

    // Appends to `chosen` a copy of each destination that is to get this handler's traps.
    virtual void filterTrapMap(const std::map<std::string, tTrapDestInfo>& destinations,
                               std::list<tTrapDestInfo>& chosen) = 0;
};
