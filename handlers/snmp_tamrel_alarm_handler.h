// Current alarms: the table of active alarms, and the scalar that clears one.
//
// Threads: no locks; the host runs one operation at a time on an object.
#pragma once

#include <agent_pp/snmp_pp_ext.h>

#include <string>

#include "module/snmp_handler.h"
#include "platform/snmp_table_base.h"

// One row for each active alarm, named by its serial number and fetched from the backend in batches. What this class
// adds to the batch query of the host's table base is what to ask for and what a row is.
class CSnmpTamrelVrxAlarmHandler : public CSnmpTableBase {
public:
    // Reads the backend's command code; a configuration that changes later is not seen.
    CSnmpTamrelVrxAlarmHandler();
    ~CSnmpTamrelVrxAlarmHandler() override;

    int preGetRspCell(const CTLVRecordV3& record) override;
    void postGetRspCell(const CTLVRecordV3& record) override;

    // The range to ask for, from request type and current key: GET the alarm `key`, GETBULK up to 50 after it, else
    // the one after it.
    void fillReqRecord(CTLVRecordV3* record) override;

    // Turns a backend alarm into the 12 cells of its row, or leaves `out` empty when the alarm is no row: the marker
    // record, a clear alarm, one that cannot be rendered, a number that is no fault. Throws CVRX_Exception when a cell
    // is missing or of the wrong kind; cells appended before stay.
    void fillRspRecord(const CTLVRecordV3& in, CTLVRecordV3* out) override;

    std::string getIndexOfRecord(const CTLVRecordV3& record) override;  // the serial number
    std::string getMibKey(const Agentpp::Oidx& oid) override;           // INVALID_KEY unless it names a whole row

    virtual bool useDateAndTime();  // slot 23: whether times are DateAndTime octets (else text)
};

// Writing an alarm's serial number clears the alarm at the backend; reading gives 0.
class CSnmpTamrelVrxClearAlarmHandler : public CSnmpLeafHandler {
public:
    ~CSnmpTamrelVrxClearAlarmHandler() override;

    // Tag 0 of record 0 is the serial number. Returns the backend's result. Throws CVRX_Exception, and asks nothing of
    // the backend, when the number is missing.
    int OnSetLeaf(const CVRX_SnmpContext& ctx, const CR8KPackageV3& req, CR8KPackageV3& rsp) override;
    int queryLeaf(const CVRX_SnmpContext& ctx, CTLVCell*& cell) override;
};
