// The two handlers that turn an alarm notification into a trap. Both build the same 15 bindings:
//
//                               trap OID                 bindings below          time as       destinations
//     CTamrelNotifyMsgHandler   one for all alarms       ...91.10.3.1.1          DateAndTime   trap type 1, 3
//     CTamrelOIDBasedMsgHandler the alarm's own          ...251.20.1.3           text          trap type 3, 4, not v1
//
// The record of a notification, by tag: 1 alarm ID, 2 level, 3 serial number, 4 time raised, 5 end time, 6 second end
// time (preferred), all numeric, times 0 while unset; 8 parameter text.
//
// Threads: the fixed handler has no state. getTrapOid of the OID-based handler gives a reference to a member that the
// next call overwrites: use it before calling again, and let calls on one handler not overlap.
#pragma once

#include <sys/types.h>

#include "platform/notify_msg_handler.h"

class CAlarmRepository_Singleton;

class CTamrelNotifyMsgHandler : public INotifyMsgHandler {
public:
    ~CTamrelNotifyMsgHandler() override;

    // 0, and `bindings` a new array of getTrapVbLen() elements, the caller's to release with delete[]. The non-zero
    // result of the rendering, or -1 for a record that lacks a cell or has one of the wrong type and for definitions
    // that cannot be loaded: `bindings` as it was, the reason logged. std::bad_alloc passes through; `bindings` is
    // then either as it was or the caller's array already.
    int constructAlarmTrapVb(const CTLVRecordV3& record, Agentpp::Vbx*& bindings) override;
    Agentpp::Oidx& getTrapOid(unsigned long long alarmId) override;
    Agentpp::Oidx& getBaseOid() override;
    int getTrapVbLen() override;
    void filterTrapMap(const std::map<std::string, tTrapDestInfo>& destinations,
                       std::list<tTrapDestInfo>& chosen) override;

    // 1: the alarm is active; 2: it has ended. Throws CVRX_Exception when a time is absent or not numeric.
    void getAlarmCategory(const CTLVRecordV3& record, unsigned int& category);

    // Logs the printable values of the bindings; `texts` has one entry each, a null one becomes "Unknown".
    void dump_alarm_info(const char** texts);

    // Bring the repository of active alarms in step with a notification: category 1 adds, 3 is left alone by the
    // first, anything else deletes. 0, or the repository's code; -1 when there is no repository. Mind the order of the
    // arguments.
    int putAlarmIntoRepository(u_int serialNo, u_int category);
    int updateRepository(u_int category, u_int serialNo, CAlarmRepository_Singleton* repository);
};

class CTamrelOIDBasedMsgHandler : public CTamrelNotifyMsgHandler {
public:
    ~CTamrelOIDBasedMsgHandler() override;
    Agentpp::Oidx& getTrapOid(unsigned long long alarmId) override;
    Agentpp::Oidx& getBaseOid() override;
    bool useDateAndTime() override;
    void filterTrapMap(const std::map<std::string, tTrapDestInfo>& destinations,
                       std::list<tTrapDestInfo>& chosen) override;

protected:
    Agentpp::Oidx m_trapOid;  // of the alarm asked for last; empty before
};
