// The table base in its simplest form: a query is one backend call, its rows keep the backend's order.
#include <memory>

#include "platform/snmp_configuration.h"
#include "platform/snmp_table_base.h"

const std::string CSnmpTableBase::INVALID_KEY = "INVALID_KEY";

CSnmpTableBase::CSnmpTableBase() = default;
CSnmpTableBase::~CSnmpTableBase() = default;

int CSnmpTableBase::OnQueryTable(const CVRX_SnmpContext& ctx, const CR8KPackageV3& req, CR8KPackageV3& rsp) {
    if (!checkOKBeforeQueryTable(ctx)) return -1;
    const CTLVRecordV3& row = *req[0];
    if (!queryRecordValidation(row)) return -1;
    m_requestType = static_cast<long long>(CTLVCell::ValueCast<unsigned int>()(&row[REQUEST_TYPE_TAG]));
    m_currentKey =
        row.has(REQUEST_OID_TAG) ? getMibKey(Agentpp::Oidx(row[REQUEST_OID_TAG].toString().c_str())) : INVALID_KEY;
    CR8KPackageV3 request;
    std::string key = m_currentKey;
    std::string lastKey;
    unsigned long long lastIndex = 0;
    unsigned int received = 0;
    int result = 0;
    return GetBatchTableInfo_i(request, key, lastKey, lastIndex, received, result, rsp);
}

int CSnmpTableBase::preGetRspCell(const CTLVRecordV3&) {
    return 0;
}
void CSnmpTableBase::postGetRspCell(const CTLVRecordV3&) {}

int CSnmpTableBase::GetBatchTableInfo_i(CR8KPackageV3& req, std::string& key, std::string& lastKey,
                                        unsigned long long& lastIndex, unsigned int& received, int& result,
                                        CR8KPackageV3& rsp) {
    m_currentKey = key;
    auto record = std::make_unique<CTLVRecordV3>(CTLVRecordV3::NO_IDENTIFIER, CTLVRecordV3::DEFAULT_BUCKETS);
    fillReqRecord(record.get());
    req.append(std::move(record));
    m_batch.clear();
    result = SendBatchPackage(req, m_batch);
    if (result != 0) return result;
    for (const CTLVRecordV3* in : m_batch.records()) {
        ++received;
        lastKey = getIndexOfRecord(*in);
        lastIndex = std::stoull(lastKey);
        if (AppendRspPkgRecord(rsp, *in) != 0) return -1;
    }
    return 0;
}

int CSnmpTableBase::AppendRspPkgRecord(CR8KPackageV3& rsp, const CTLVRecordV3& record) {
    if (preGetRspCell(record) != 0) return 0;
    const unsigned long long index = std::stoull(getIndexOfRecord(record));
    auto row = std::make_unique<CTLVRecordV3>(index, CTLVRecordV3::DEFAULT_BUCKETS);
    fillRspRecord(record, row.get());
    postGetRspCell(record);
    if (row->count() != 0) rsp.append(std::move(row));
    return 0;
}

void CSnmpTableBase::fillReqRecord(CTLVRecordV3*) {}
void CSnmpTableBase::fillRspRecord(const CTLVRecordV3&, CTLVRecordV3*) {}
std::string CSnmpTableBase::getIndexOfRecord(const CTLVRecordV3&) {
    return INVALID_KEY;
}
std::string CSnmpTableBase::getMibKey(const Agentpp::Oidx&) {
    return INVALID_KEY;
}
bool CSnmpTableBase::queryRecordValidation(const CTLVRecordV3& record) {
    return record.has(REQUEST_TYPE_TAG);
}
bool CSnmpTableBase::checkOKBeforeQueryTable(const CVRX_SnmpContext&) {
    return true;
}

int CSnmpTableBase::SendBatchPackage(CR8KPackageV3& req, CR8KPackageV3& rsp) {
    return CSNMP_Configuration::instance()->configure(req, rsp, false);
}
