// Base of tables whose rows the backend sends in batches. Host code, derived from the module's table handler base.
//
// A query: OnQueryTable takes the request type and the row asked for from the request's record 0, asks the derived
// handler for the backend's request (fillReqRecord), sends it, turns each returned record into a row (fillRspRecord)
// and appends the rows to the response, ordered by their number. A row's record identifier is that number
// (getIndexOfRecord). One query at a time per object.
//
// Request record 0:
//   tag 1  TLV_TYPE_UINT    PDU type: 160 GET (that row), 161 GETNEXT (one row after), 165 GETBULK (up to a batch)
//   tag 2  TLV_TYPE_STRING  dotted OID of the row below 1.3.6.1.4.1.99871.2; absent or another length: from the start
#pragma once

#include <agent_pp/snmp_pp_ext.h>

#include <atomic>
#include <map>
#include <memory>
#include <string>

#include "module/snmp_handler.h"
#include "vrxpub/vrx_message_package.h"

class CSnmpTableBase : public CSnmpTableHandler {
public:
    static const std::string INVALID_KEY;  // the key of no row

    static constexpr long long REQUEST_GET = 160;
    static constexpr long long REQUEST_GETNEXT = 161;
    static constexpr long long REQUEST_GETBULK = 165;
    static constexpr unsigned short REQUEST_TYPE_TAG = 1;
    static constexpr unsigned short REQUEST_OID_TAG = 2;

    CSnmpTableBase();
    ~CSnmpTableBase() override;
    CSnmpTableBase(const CSnmpTableBase&) = delete;
    CSnmpTableBase& operator=(const CSnmpTableBase&) = delete;

    int OnQueryTable(const CVRX_SnmpContext& ctx, const CR8KPackageV3& req, CR8KPackageV3& rsp) override;
    bool isWholeTable() override { return m_wholeTable; }

    // Slots 12 to 22, in the host's order: do not reorder.
    virtual int preGetRspCell(const CTLVRecordV3& record);    // before a record becomes a row; non-zero skips it
    virtual void postGetRspCell(const CTLVRecordV3& record);  // after it
    // One backend call and its rows: from `key` on; `lastKey` becomes the key of the last record received (rows or
    // not), `lastIndex` its number, `received` their count, `result` the backend's code.
    virtual int GetBatchTableInfo_i(CR8KPackageV3& req, std::string& key, std::string& lastKey,
                                    unsigned long long& lastIndex, unsigned int& received, int& result,
                                    CR8KPackageV3& rsp);
    virtual int AppendRspPkgRecord(CR8KPackageV3& rsp, const CTLVRecordV3& record);
    virtual void fillReqRecord(CTLVRecordV3* record);
    virtual void fillRspRecord(const CTLVRecordV3& in, CTLVRecordV3* out);
    virtual std::string getIndexOfRecord(const CTLVRecordV3& record);
    virtual std::string getMibKey(const Agentpp::Oidx& oid);
    virtual bool queryRecordValidation(const CTLVRecordV3& record);
    virtual bool checkOKBeforeQueryTable(const CVRX_SnmpContext& ctx);
    virtual int SendBatchPackage(CR8KPackageV3& req, CR8KPackageV3& rsp);

    // With the flag set a GETBULK query goes on to the table's end instead of stopping after a batch.
    void setWholeTable(bool whole) { m_wholeTable = whole; }

    // The backend command that the rows come from; 0 when the handler has none.
    long long backendCommand() const { return m_commandCode; }

    // Since the object was made: records left out because a row of their number was there already, and records that
    // could not become rows. Any thread.
    unsigned long long duplicates() const { return m_duplicates; }
    unsigned long long badRecords() const { return m_badRecords; }

protected:
    long long m_requestType = REQUEST_GET;
    std::string m_currentKey = INVALID_KEY;
    bool m_wholeTable = false;
    CR8KPackageV3 m_batch;        // the backend's last answer
    long long m_commandCode = 0;  // record identifier of backend requests

private:
    using RowsByNumber = std::map<unsigned long long, std::unique_ptr<CTLVRecordV3>>;

    int collectRows(RowsByNumber& rows);
    void takeRows(CR8KPackageV3& batch, unsigned long long after, RowsByNumber& rows);
    bool wantsMore(const RowsByNumber& rows) const;
    void noteBadRecord(const char* reason);

    std::atomic<unsigned long long> m_duplicates{0};
    std::atomic<unsigned long long> m_badRecords{0};
};
