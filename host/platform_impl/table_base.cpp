// The batch query of tables. Depends on platform/, module/snmp_handler.h, vrxpub/ and a header that stands alone only,
// so that other hosts can use it too.
#include <ace/Singleton.h>
#include <ace/Thread_Mutex.h>

#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <new>
#include <optional>
#include <utility>

#include "host/transport/batch_reader.h"
#include "module/vrx_exception.h"
#include "platform/snmp_configuration.h"
#include "platform/snmp_table_base.h"
#include "platform/vrx_debug_kit.h"
#include "vrxpub/record_access.h"

const std::string CSnmpTableBase::INVALID_KEY = "INVALID_KEY";

namespace {

constexpr unsigned int HOST_LOG_MODULE = 0;
constexpr unsigned long long LOGCODE_TABLE = 0x1002E;

constexpr int TABLE_FAILED = -1;

// Room that a row has from the start: few rows take more.
constexpr unsigned int USUAL_CELLS = 12;
constexpr unsigned int USUAL_VALUES = 512;  // bytes

enum class Severity { Warning, Error };

__attribute__((format(printf, 3, 4))) void log(Severity severity, unsigned int line, const char* format, ...) {
    CVRXDebugKit* const logger =
        ACE_Unmanaged_Singleton<CVRXDebugKitMgr, ACE_Thread_Mutex>::instance()->find(HOST_LOG_MODULE);
    va_list args;
    va_start(args, format);
    if (severity == Severity::Error) {
        logger->error(LOGCODE_TABLE, "OnQueryTable", line, format, args);
    } else {
        logger->warn(LOGCODE_TABLE, "OnQueryTable", line, format, args);
    }
    va_end(args);
}

// A key as the number of a row; nothing for INVALID_KEY and whatever else is no number.
std::optional<unsigned long long> numberOfKey(const std::string& key) {
    if (key.empty() || key.find_first_not_of("0123456789") != std::string::npos) return std::nullopt;
    errno = 0;
    const unsigned long long number = std::strtoull(key.c_str(), nullptr, 10);
    if (errno == ERANGE) return std::nullopt;
    return number;
}

std::unique_ptr<CTLVRecordV3> takeFirst(CR8KPackageV3& package) {
    std::unique_ptr<CTLVRecordV3> record(package.records().front());
    package.records().pop_front();
    return record;
}

}  // namespace

CSnmpTableBase::CSnmpTableBase() = default;
CSnmpTableBase::~CSnmpTableBase() = default;

int CSnmpTableBase::OnQueryTable(const CVRX_SnmpContext& ctx, const CR8KPackageV3& req, CR8KPackageV3& rsp) {
    if (!checkOKBeforeQueryTable(ctx)) return TABLE_FAILED;
    const CTLVRecordV3& asked = *req[0];
    m_requestType = static_cast<long long>(tlv::uint64Of(asked, REQUEST_TYPE_TAG));
    m_currentKey =
        asked.has(REQUEST_OID_TAG) ? getMibKey(Agentpp::Oidx(asked[REQUEST_OID_TAG].toString().c_str())) : INVALID_KEY;

    RowsByNumber rows;
    const int result = collectRows(rows);
    m_batch.clear();
    if (result != 0) return result;
    for (auto& [number, row] : rows) {
        rsp.append(std::move(row));
        if (m_requestType == REQUEST_GETNEXT) break;
    }
    return 0;
}

// Calls the backend until the rows asked for are there, or the table ends. Records that are no rows do not end it: the
// next call goes on after the last record received.
int CSnmpTableBase::collectRows(RowsByNumber& rows) {
    const auto asked = numberOfKey(m_currentKey);
    const unsigned long long first = asked.value_or(0);  // numbers begin at 1
    std::string key = m_currentKey;
    int failure = 0;
    const auto readBatch = [&](unsigned long long position) -> std::optional<vrx::Batch> {
        CR8KPackageV3 request;
        CR8KPackageV3 batch;
        std::string lastKey;
        unsigned long long lastIndex = position;
        unsigned int received = 0;
        int result = 0;
        const int status = GetBatchTableInfo_i(request, key, lastKey, lastIndex, received, result, batch);
        failure = result != 0 ? result : status;
        if (failure != 0) return std::nullopt;

        if (m_requestType == REQUEST_GET) {
            takeRows(batch, 0, rows);
            for (auto row = rows.begin(); row != rows.end();) row = row->first == asked ? ++row : rows.erase(row);
            return std::nullopt;
        }
        takeRows(batch, first, rows);
        if (received == 0 || !wantsMore(rows)) return std::nullopt;
        if (lastKey.empty()) return std::nullopt;  // records without a number tell of no place to go on after
        key = lastKey;
        return vrx::Batch{received, lastIndex};
    };
    const vrx::BatchesRead read = vrx::readBatches(first, readBatch);
    switch (read.end) {
        case vrx::BatchEnd::NoProgress:
            log(Severity::Error, __LINE__, "the backend sends no records after number %llu, the query ends.",
                read.after);
            return TABLE_FAILED;
        case vrx::BatchEnd::TooMany:
            log(Severity::Error, __LINE__, "the table has more than %zu records, the query ends.", vrx::LONGEST_LIST);
            return TABLE_FAILED;
        case vrx::BatchEnd::Complete:
            break;
    }
    return failure;
}

bool CSnmpTableBase::wantsMore(const RowsByNumber& rows) const {
    return rows.empty() || (m_requestType == REQUEST_GETBULK && m_wholeTable);
}

// Moves the rows of a batch that stand after the row asked for; of two with one number the first stays.
void CSnmpTableBase::takeRows(CR8KPackageV3& batch, unsigned long long after, RowsByNumber& rows) {
    while (!batch.records().empty()) {
        std::unique_ptr<CTLVRecordV3> row = takeFirst(batch);
        const unsigned long long number = row->identifier();
        if (m_requestType != REQUEST_GET && number <= after) {
            noteBadRecord("it stands before the row asked for");
        } else if (!rows.emplace(number, std::move(row)).second) {
            ++m_duplicates;
        }
    }
}

void CSnmpTableBase::noteBadRecord(const char* reason) {
    ++m_badRecords;
    log(Severity::Warning, __LINE__, "a record is left out: %s.", reason);
}

int CSnmpTableBase::preGetRspCell(const CTLVRecordV3&) {
    return 0;
}

void CSnmpTableBase::postGetRspCell(const CTLVRecordV3&) {}

int CSnmpTableBase::GetBatchTableInfo_i(CR8KPackageV3& req, std::string& key, std::string& lastKey,
                                        unsigned long long& lastIndex, unsigned int& received, int& result,
                                        CR8KPackageV3& rsp) {
    m_currentKey = key;
    auto asked = std::make_unique<CTLVRecordV3>(CTLVRecordV3::NO_IDENTIFIER, CTLVRecordV3::DEFAULT_BUCKETS);
    fillReqRecord(asked.get());
    req.append(std::move(asked));
    m_batch.clear();
    result = SendBatchPackage(req, m_batch);
    if (result != 0) return result;

    for (const CTLVRecordV3* record : m_batch.records()) {
        ++received;
        try {
            const int status = AppendRspPkgRecord(rsp, *record);
            if (status != 0) return status;
        } catch (const std::bad_alloc&) {
            throw;  // not the record's fault: a table with holes would be shown as whole
        } catch (const std::exception& error) {
            noteBadRecord(error.what());
        }
        try {
            const std::string recordKey = getIndexOfRecord(*record);
            if (const auto number = numberOfKey(recordKey)) {
                lastKey = recordKey;
                lastIndex = *number;
            }
        } catch (const CVRX_Exception&) {  // a record that is no row need not have a number
        }
    }
    return 0;
}

int CSnmpTableBase::AppendRspPkgRecord(CR8KPackageV3& rsp, const CTLVRecordV3& record) {
    if (!queryRecordValidation(record) || preGetRspCell(record) != 0) return 0;
    auto row =
        CTLVRecordV3::withRoom(CTLVRecordV3::NO_IDENTIFIER, CTLVRecordV3::DEFAULT_BUCKETS, USUAL_CELLS, USUAL_VALUES);
    fillRspRecord(record, row.get());
    postGetRspCell(record);
    if (row->count() == 0) return 0;  // no row: it may lack a number, too
    const auto number = numberOfKey(getIndexOfRecord(record));
    if (!number) {
        noteBadRecord("its index is no number");
        return 0;
    }
    row->setIdentifier(*number);
    rsp.append(std::move(row));
    return 0;
}

void CSnmpTableBase::fillReqRecord(CTLVRecordV3* record) {
    record->setIdentifier(static_cast<unsigned long long>(m_commandCode));
}

void CSnmpTableBase::fillRspRecord(const CTLVRecordV3&, CTLVRecordV3*) {}

std::string CSnmpTableBase::getIndexOfRecord(const CTLVRecordV3&) {
    return INVALID_KEY;
}

std::string CSnmpTableBase::getMibKey(const Agentpp::Oidx&) {
    return INVALID_KEY;
}

bool CSnmpTableBase::queryRecordValidation(const CTLVRecordV3& record) {
    return record.count() != 0;
}

bool CSnmpTableBase::checkOKBeforeQueryTable(const CVRX_SnmpContext&) {
    return true;
}

int CSnmpTableBase::SendBatchPackage(CR8KPackageV3& req, CR8KPackageV3& rsp) {
    return CSNMP_Configuration::instance()->configure(req, rsp, false);
}
