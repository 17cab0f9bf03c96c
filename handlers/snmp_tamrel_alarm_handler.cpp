#include <iostream>  // first: the standard streams exist before any static object of this file

#include "handlers/snmp_tamrel_alarm_handler.h"

#include "alarm/alarm_grading.h"
#include "alarm/alarm_record.h"
#include "alarm/snmp_alarm_iniparser.h"
#include "handlers/tlv_columns.h"
#include "module/tamrel_log.h"
#include "module/vrx_debug_kit_guard.h"
#include "module/vrx_exception.h"
#include "platform/snmp_basic_impl.h"
#include "platform/snmp_configuration.h"
#include "platform/snmp_util.h"
#include "platform/vrx_utility.h"

using namespace handlers;
using namespace tlv;

namespace {

constexpr unsigned int ROW_OID_LENGTH = 7;  // of a whole row's OID: 91.10.1.1.1.COLUMN.SERIAL
constexpr unsigned int BULK_COUNT = 50;     // alarms in one batch

struct tAlarmRange {
    unsigned int start;
    unsigned int count;
};

constexpr tColumn<tAlarmRange> REQUEST_CELLS[] = {
    {alarm_tag::SERIAL,
     [](CTLVCell& cell, unsigned short tag, const tAlarmRange& range) { setUint32(cell, tag, range.start); }},
    {alarm_tag::COUNT,
     [](CTLVCell& cell, unsigned short tag, const tAlarmRange& range) { setUint32(cell, tag, range.count); }},
};

struct tAlarmRow {
    tAlarmRow(CSnmpTamrelVrxAlarmHandler& rowsHandler, const CTLVRecordV3& record) : handler(rowsHandler), in(record) {}

    CSnmpTamrelVrxAlarmHandler& handler;
    const CTLVRecordV3& in;
    int level = 0;
    unsigned int serial = 0;
    unsigned int number = 0;
    unsigned long long alarmId = 0;
    std::string location;
    std::string detail;
    std::string title;
    std::string suggestion;
};

template <std::string tAlarmRow::*TEXT>
void fillText(CTLVCell& cell, unsigned short tag, const tAlarmRow& row) {
    cell.set(tag, (row.*TEXT).c_str());
}

template <int NUMBER>
void fillConst(CTLVCell& cell, unsigned short tag, const tAlarmRow&) {
    setInt32(cell, tag, NUMBER);
}

void fillRaised(CTLVCell& cell, unsigned short tag, const tAlarmRow& row) {
    const auto seconds = static_cast<long>(uint64Of(row.in, alarm_tag::RAISED));
    Snmp_pp::OctetStr time;
    if (row.handler.useDateAndTime()) {
        CSnmpUtil::convertTime2DateTime(time, seconds);
    } else {
        CSnmpUtil::convertTime2DateTimeStr(time, seconds);
    }
    cell.set_i(CTLVCell::TLV_TYPE_OCTETS, tag, time.data(), time.len());
}

constexpr tColumn<tAlarmRow> ALARM_COLUMNS[] = {
    {1, [](CTLVCell& cell, unsigned short tag, const tAlarmRow&) { cell.set(tag, CSNMPBasicImpl::getNodeCode()); }},
    {2, fillText<&tAlarmRow::location>},
    {3, fillText<&tAlarmRow::suggestion>},
    {4, fillText<&tAlarmRow::title>},
    {5, fillConst<2>},
    {6, [](CTLVCell& cell, unsigned short tag, const tAlarmRow& row) { setInt32(cell, tag, row.level); }},
    {7, [](CTLVCell& cell, unsigned short tag, const tAlarmRow& row) { setUint32(cell, tag, row.number); }},
    // Before column 8: the order of the record, which readers of its bytes know, is not that of the tags.
    {12, [](CTLVCell& cell, unsigned short tag, const tAlarmRow& row) { setUint64(cell, tag, row.alarmId); }},
    {8, fillRaised},
    {9, [](CTLVCell& cell, unsigned short tag, const tAlarmRow& row) { setUint32(cell, tag, row.serial); }},
    {10, fillText<&tAlarmRow::detail>},
    {11, fillConst<1>},
};

struct tClearRequest {
    unsigned int serial;
};

constexpr tColumn<tClearRequest> CLEAR_CELLS[] = {
    {alarm_tag::SERIAL,
     [](CTLVCell& cell, unsigned short tag, const tClearRequest& clear) { setUint32(cell, tag, clear.serial); }},
    {alarm_tag::CLEARED_BY,
     [](CTLVCell& cell, unsigned short tag, const tClearRequest&) { cell.set(tag, "SNMP_AGENT"); }},
};

}  // namespace

CSnmpTamrelVrxAlarmHandler::CSnmpTamrelVrxAlarmHandler() {
    m_commandCode = commandCode("GET_CURRENT_ALARM");
}

CSnmpTamrelVrxAlarmHandler::~CSnmpTamrelVrxAlarmHandler() = default;

int CSnmpTamrelVrxAlarmHandler::preGetRspCell(const CTLVRecordV3&) {
    return 0;
}

void CSnmpTamrelVrxAlarmHandler::postGetRspCell(const CTLVRecordV3&) {}

bool CSnmpTamrelVrxAlarmHandler::useDateAndTime() {
    return true;
}

void CSnmpTamrelVrxAlarmHandler::fillReqRecord(CTLVRecordV3* record) {
    tAlarmRange range{0, 1};
    if (m_currentKey != INVALID_KEY && m_currentKey != "0") range.start = StrToUint(m_currentKey);
    if (m_requestType == REQUEST_GET && range.start != 0) {
        --range.start;  // the backend starts after the position
    } else if (m_requestType == REQUEST_GETBULK) {
        range.count = BULK_COUNT;
    }
    record->setIdentifier(static_cast<unsigned long long>(m_commandCode));
    appendColumns(*record, REQUEST_CELLS, range);
}

void CSnmpTamrelVrxAlarmHandler::fillRspRecord(const CTLVRecordV3& in, CTLVRecordV3* out) {
    CVRXDebugKitGuard guard(
        TAMREL_LOG_MODULE,
        "virtual void CSnmpTamrelVrxAlarmHandler::fillRspRecord(const CTLVRecordV3&, CTLVRecordV3*)"_scope);
    if (in.has(alarm_tag::NO_ALARM)) return;

    tAlarmRow row(*this, in);
    row.serial = uint32Of(in, alarm_tag::SERIAL);
    const unsigned int type = uint32Of(in, alarm_tag::TYPE) & 0xFFFF;  // 16 bits wide, whatever the cell is
    row.alarmId = uint64Of(in, alarm_tag::ID);
    if (type == ALARM_TYPE_CLEAR) {
        guard.debug(LOGCODE_DEBUG, __FUNCTION__, __LINE__, "ignore clear type alarm %llu", row.alarmId);
        return;
    }

    CAlarmConfigParser* parser = nullptr;
    try {
        parser = CAlarmConfigParser::instance();
    } catch (const CVRX_Exception& fault) {
        // One table without a row beats a request without an answer; the next alarm tries the load again.
        guard.setResult(false);
        guard.error(LOGCODE_GENERAL, __FUNCTION__, __LINE__, "failed to render alarm %llu: %s", row.alarmId,
                    fault.what());
        return;
    }
    const std::string parameters = in[alarm_tag::PARAMETERS].toString();
    if (parser->getAlarmInfo(row.alarmId, parameters, row.location, row.detail, row.number, row.title,
                             row.suggestion) != 0) {
        guard.setResult(false);
        return;  // the renderer has said why
    }
    if (reportsNoFault(row.number)) {
        guard.debug(LOGCODE_DEBUG, __FUNCTION__, __LINE__, "ignore non-fault alarm %llu", row.alarmId);
        return;
    }

    row.level = parser->converToQ7700AlarmLevel(static_cast<int>(uint32Of(in, alarm_tag::LEVEL)));
    appendColumns(*out, ALARM_COLUMNS, row);
}

std::string CSnmpTamrelVrxAlarmHandler::getIndexOfRecord(const CTLVRecordV3& record) {
    CVRXDebugKitGuard guard(
        TAMREL_LOG_MODULE,
        "virtual std::string CSnmpTamrelVrxAlarmHandler::getIndexOfRecord(const CTLVRecordV3&)"_scope);
    return record[alarm_tag::SERIAL].toString();
}

std::string CSnmpTamrelVrxAlarmHandler::getMibKey(const Agentpp::Oidx& oid) {
    CVRXDebugKitGuard guard(TAMREL_LOG_MODULE,
                            "virtual std::string CSnmpTamrelVrxAlarmHandler::getMibKey(const Agentpp::Oidx&)"_scope);
    if (oid.len() != ROW_OID_LENGTH) return INVALID_KEY;
    return UintToStr(static_cast<unsigned int>(oid[ROW_OID_LENGTH - 1]));
}

CSnmpTamrelVrxClearAlarmHandler::~CSnmpTamrelVrxClearAlarmHandler() = default;

int CSnmpTamrelVrxClearAlarmHandler::OnSetLeaf(const CVRX_SnmpContext&, const CR8KPackageV3& req, CR8KPackageV3& rsp) {
    CVRXDebugKitGuard guard(TAMREL_LOG_MODULE,
                            "virtual int CSnmpTamrelVrxClearAlarmHandler::OnSetLeaf(const CVRX_SnmpContext&, const "
                            "CR8KPackageV3&, CR8KPackageV3&)"_scope);
    CR8KPackageV3 request;
    const auto code = static_cast<unsigned long long>(commandCode("CLEAR_ALARM"));
    const tClearRequest clear{uint32Of(*req[0], 0)};
    auto record = std::make_unique<CTLVRecordV3>(code, CTLVRecordV3::DEFAULT_BUCKETS);
    appendColumns(*record, CLEAR_CELLS, clear);
    request.append(std::move(record));

    const int result = CSNMP_Configuration::instance()->configure(request, rsp, false);
    guard.setResult(result == 0);
    guard.warn(LOGCODE_GENERAL, __FUNCTION__, __LINE__, "clear alarm of serial number:%u, ret:%d.", clear.serial,
               result);
    return result;
}

int CSnmpTamrelVrxClearAlarmHandler::queryLeaf(const CVRX_SnmpContext&, CTLVCell*& cell) {
    CVRXDebugKitGuard guard(
        TAMREL_LOG_MODULE,
        "virtual int CSnmpTamrelVrxClearAlarmHandler::queryLeaf(const CVRX_SnmpContext&, CTLVCell*&)"_scope);
    auto zero = std::make_unique<CTLVCell>();
    setUint32(*zero, 0, 0);
    cell = zero.release();  // the caller's
    return 0;
}
