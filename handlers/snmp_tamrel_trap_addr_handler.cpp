#include <iostream>  // first: the standard streams exist before any static object of this file

#include "handlers/snmp_tamrel_trap_addr_handler.h"

#include <algorithm>
#include <list>
#include <string>

#include "handlers/tlv_columns.h"
#include "module/tamrel_log.h"
#include "module/vrx_debug_kit_guard.h"
#include "platform/snmp_trap_api.h"

using namespace handlers;
using namespace tlv;

namespace {

// Tags of requests.
constexpr unsigned short TAG_REACHABLE = 1;  // in a request: an address
constexpr unsigned short TAG_PORT = 2;
constexpr unsigned short TAG_INDEX = 4;
constexpr unsigned short TAG_VERSION = 5;
constexpr unsigned short TAG_ADDRESS = 6;
constexpr unsigned short TAG_TYPE = 7;
constexpr unsigned short TAG_USER = 8;

// What a row gets that a request says nothing about. The trap type is not the one of a default tTrapDestInfo.
constexpr unsigned int WRITTEN_VERSION = 2;
constexpr unsigned int WRITTEN_TYPE = 1;
constexpr const char* WRITTEN_USER = "--";

template <std::string tTrapDestInfo::*TEXT>
void fillText(CTLVCell& cell, unsigned short tag, const tTrapDestInfo& info) {
    cell.set(tag, (info.*TEXT).c_str());
}

template <unsigned int tTrapDestInfo::*NUMBER>
void fillNumber(CTLVCell& cell, unsigned short tag, const tTrapDestInfo& info) {
    setUint32(cell, tag, info.*NUMBER);
}

void fillReachable(CTLVCell& cell, unsigned short tag, const tTrapDestInfo& info) {
    cell.set(tag, testDomainConnectivity(info.address.c_str()) ? info.address.c_str() : "0.0.0.0");
}

constexpr tColumn<tTrapDestInfo> DESTINATION_COLUMNS[] = {
    {1, fillReachable},
    {2, fillNumber<&tTrapDestInfo::port>},
    {3, [](CTLVCell& cell, unsigned short tag, const tTrapDestInfo&) { setInt32(cell, tag, 1); }},
    {4, fillText<&tTrapDestInfo::index>},
    {5, fillNumber<&tTrapDestInfo::version>},
    {6, fillText<&tTrapDestInfo::address>},
    {7, fillNumber<&tTrapDestInfo::trapType>},
    {8, fillText<&tTrapDestInfo::user>},
};

// A column that a request may carry: how it is read, and the host's check of it.
struct tOptionalColumn {
    unsigned short tag;
    void (*read)(const CTLVRecordV3& row, unsigned short tag, tTrapDestInfo& info);
    bool (*isValid)(tTrapDestInfo& info);
};

constexpr tOptionalColumn OPTIONAL_COLUMNS[] = {
    {TAG_VERSION,
     [](const CTLVRecordV3& row, unsigned short tag, tTrapDestInfo& info) { info.version = uint32Of(row, tag); },
     CheckTrapVerOK},
    {TAG_ADDRESS,
     [](const CTLVRecordV3& row, unsigned short tag, tTrapDestInfo& info) { info.address = textOf(row, tag); },
     [](tTrapDestInfo& info) { return CheckIPAddrOK(info.address); }},
    {TAG_TYPE,
     [](const CTLVRecordV3& row, unsigned short tag, tTrapDestInfo& info) { info.trapType = uint32Of(row, tag); },
     CheckTrapTypeOK},
    {TAG_USER,
     [](const CTLVRecordV3& row, unsigned short tag, tTrapDestInfo& info) { info.user = row[tag].toString(); },
     CheckTrapUserOK},
};

// Whether the row has no such column or a valid one.
bool isAbsentOrValid(const CTLVRecordV3& row, unsigned short tag) {
    for (const tOptionalColumn& column : OPTIONAL_COLUMNS) {
        if (column.tag != tag || !row.has(tag)) continue;
        tTrapDestInfo candidate;
        column.read(row, tag, candidate);
        return column.isValid(candidate);
    }
    return true;
}

// A destination as a create or modify starts with: the request's port, and nothing optional yet.
tTrapDestInfo writtenDestination(const CTLVRecordV3& row) {
    tTrapDestInfo info;
    info.port = uint32Of(row, TAG_PORT);
    info.trapType = WRITTEN_TYPE;
    info.version = WRITTEN_VERSION;
    info.user = WRITTEN_USER;
    return info;
}

bool isComplete(tTrapDestInfo& info) {
    return CheckIPAddrOK(info.address) && CheckTrapPortOK(info) && CheckTrapVerOK(info) && CheckTrapTypeOK(info);
}

}  // namespace

CTamrelTrapAddrHandler::~CTamrelTrapAddrHandler() = default;

bool CTamrelTrapAddrHandler::CheckParam(const CR8KPackageV3& req) {
    const CTLVRecordV3& row = *req[0];
    if (!isAbsentOrValid(row, TAG_VERSION) || !isAbsentOrValid(row, TAG_TYPE)) return false;
    if (row.has(TAG_REACHABLE)) return true;  // an address in tag 6 is then optional, and dropped when it is invalid
    return row.has(TAG_ADDRESS) && isAbsentOrValid(row, TAG_ADDRESS);
}

void CTamrelTrapAddrHandler::CommonOperation(const CR8KPackageV3& req, tTrapDestInfo& info) {
    const CTLVRecordV3& row = *req[0];
    tTrapDestInfo candidate;  // one for all columns: the check of a user looks at the version too
    for (const tOptionalColumn& column : OPTIONAL_COLUMNS) {
        if (!row.has(column.tag)) continue;
        column.read(row, column.tag, candidate);
        if (column.isValid(candidate)) column.read(row, column.tag, info);
    }
}

void CTamrelTrapAddrHandler::makeIntTrapPackage(const tTrapDestInfo& info, CTLVRecordV3& rec) {
    appendColumns(rec, DESTINATION_COLUMNS, info);
}

int CTamrelTrapAddrHandler::OnCreateTable(const CVRX_SnmpContext&, const CR8KPackageV3& req, CR8KPackageV3&) {
    CVRXDebugKitGuard guard(TAMREL_LOG_MODULE,
                            "virtual int CTamrelTrapAddrHandler::OnCreateTable(const CVRX_SnmpContext&, const "
                            "CR8KPackageV3&, CR8KPackageV3&)"_scope);
    const CTLVRecordV3& row = *req[0];
    tTrapDestInfo info = writtenDestination(row);
    if (CheckParam(req)) {
        if (row.has(TAG_REACHABLE)) info.address = textOf(row, TAG_REACHABLE);
        CommonOperation(req, info);
        if (isComplete(info)) return CSNMP_TrapApi::createTrapAddr(info);
    }
    guard.setResult(false);
    guard.error(LOGCODE_GENERAL, __FUNCTION__, __LINE__, "failed to create trap, unknown parameter.");
    return PARAM_ERROR;
}

int CTamrelTrapAddrHandler::OnModifyTable(const CVRX_SnmpContext&, const CR8KPackageV3& req, CR8KPackageV3&) {
    CVRXDebugKitGuard guard(TAMREL_LOG_MODULE,
                            "virtual int CTamrelTrapAddrHandler::OnModifyTable(const CVRX_SnmpContext&, const "
                            "CR8KPackageV3&, CR8KPackageV3&)"_scope);
    const CTLVRecordV3& row = *req[0];
    if (!row.has(TAG_INDEX)) {
        guard.setResult(false);
        // Rules of log collectors match "supporttd".
        guard.error(LOGCODE_GENERAL, __FUNCTION__, __LINE__, "can't find trap index, old method is not supporttd.");
        return PARAM_ERROR;
    }
    const std::string index = textOf(row, TAG_INDEX);
    tTrapDestInfo info = writtenDestination(row);
    info.index = index;
    if (CheckParam(req)) {
        if (row.has(TAG_REACHABLE)) info.address = textOf(row, TAG_REACHABLE);
        CommonOperation(req, info);
        if (CheckTrapIndOK(info) && isComplete(info)) return CSNMP_TrapApi::modifyTrapAddr(info);
    }
    guard.setResult(false);
    guard.error(LOGCODE_GENERAL, __FUNCTION__, __LINE__, "failed to modify trap, unknown parameter.");
    return PARAM_ERROR;
}

int CTamrelTrapAddrHandler::OnDeleteTable(const CVRX_SnmpContext&, const CR8KPackageV3& req, CR8KPackageV3&) {
    CVRXDebugKitGuard guard(TAMREL_LOG_MODULE,
                            "virtual int CTamrelTrapAddrHandler::OnDeleteTable(const CVRX_SnmpContext&, const "
                            "CR8KPackageV3&, CR8KPackageV3&)"_scope);
    std::list<tTrapDestInfo> destinations;
    if (CSNMP_TrapApi::getAllTrapAddr(destinations) != 0) {
        guard.setResult(false);
        guard.error(LOGCODE_GENERAL, __FUNCTION__, __LINE__, "failed to get all trap.");
        return -1;
    }

    const CTLVRecordV3& row = *req[0];
    tTrapDestInfo info;
    if (row.has(TAG_REACHABLE) && row.has(TAG_PORT)) {
        info.address = textOf(row, TAG_REACHABLE);
        info.port = uint32Of(row, TAG_PORT);
        const auto found = std::find_if(destinations.begin(), destinations.end(), [&info](const tTrapDestInfo& entry) {
            return entry.address == info.address && entry.port == info.port;
        });
        if (found != destinations.end()) {
            info.index = found->index;
            return CSNMP_TrapApi::deleteTrapAddr(info);
        }
    }

    if (!row.has(TAG_INDEX)) {
        guard.setResult(false);
        guard.error(LOGCODE_NO_OBJECT, __FUNCTION__, __LINE__, "failed to delete trap, unresolvable argument.");
        return PARAM_ERROR;
    }
    info.index = textOf(row, TAG_INDEX);
    if (!CheckTrapIndOK(info)) {
        guard.setResult(false);
        guard.error(LOGCODE_GENERAL, __FUNCTION__, __LINE__, "unknown trap index:%s.", info.index.c_str());
        return PARAM_ERROR;
    }
    return CSNMP_TrapApi::deleteTrapAddr(info);
}

int CTamrelTrapAddrHandler::OnQueryTable(const CVRX_SnmpContext&, const CR8KPackageV3&, CR8KPackageV3& rsp) {
    CVRXDebugKitGuard guard(TAMREL_LOG_MODULE,
                            "virtual int CTamrelTrapAddrHandler::OnQueryTable(const CVRX_SnmpContext&, const "
                            "CR8KPackageV3&, CR8KPackageV3&)"_scope);
    std::list<tTrapDestInfo> destinations;
    if (CSNMP_TrapApi::getAllTrapAddr(destinations) != 0) {
        guard.setResult(false);
        guard.error(LOGCODE_GENERAL, __FUNCTION__, __LINE__, "failed to get all trap.");
        return -1;
    }
    for (const tTrapDestInfo& destination : destinations) {
        std::unique_ptr<CTLVRecordV3> row = makeRow();
        makeIntTrapPackage(destination, *row);
        rsp.append(std::move(row));
    }
    return 0;
}
