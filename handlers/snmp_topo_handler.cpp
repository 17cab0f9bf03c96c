#include <iostream>  // first: the standard streams exist before any static object of this file

#include "handlers/snmp_topo_handler.h"

#include "handlers/tlv_columns.h"
#include "module/tamrel_log.h"
#include "module/vrx_debug_kit_guard.h"
#include "platform/snmp_basic_impl.h"
#include "platform/snmp_configuration.h"

using namespace handlers;
using namespace tlv;

namespace {

constexpr int STATUS_ANSWERED = 1;
constexpr int STATUS_SILENT = 2;

struct tTopoRow {
    int status;
};

// The address, the kind and the two blank columns are the same for every system.
constexpr tColumn<tTopoRow> TOPO_COLUMNS[] = {
    {1, [](CTLVCell& cell, unsigned short tag, const tTopoRow&) { cell.set(tag, CSNMPBasicImpl::getNodeCode()); }},
    {2,
     [](CTLVCell& cell, unsigned short tag, const tTopoRow&) { setUint32(cell, tag, CSNMPBasicImpl::getNodeType()); }},
    {3, [](CTLVCell& cell, unsigned short tag, const tTopoRow&) { setInt32(cell, tag, 1); }},
    {4, [](CTLVCell& cell, unsigned short tag, const tTopoRow&) { cell.set(tag, "192.168.2.10"); }},
    {5, [](CTLVCell& cell, unsigned short tag, const tTopoRow&) { cell.set(tag, "Array"); }},
    {6, [](CTLVCell& cell, unsigned short tag, const tTopoRow&) { cell.set(tag, " "); }},
    {7, [](CTLVCell& cell, unsigned short tag, const tTopoRow&) { cell.set(tag, " "); }},
    {8, [](CTLVCell& cell, unsigned short tag, const tTopoRow& row) { setInt32(cell, tag, row.status); }},
};

// Whether the backend answers a command without arguments.
int probeBackend() {
    CR8KPackageV3 request;
    CR8KPackageV3 response;
    const auto code = static_cast<unsigned long long>(commandCode("GET_SYSTEM_WWN"));
    request.append(std::make_unique<CTLVRecordV3>(code, CTLVRecordV3::DEFAULT_BUCKETS));
    const int result = CSNMP_Configuration::instance()->configure(request, response, false);
    return result == 0 ? STATUS_ANSWERED : STATUS_SILENT;
}

}  // namespace

CSnmpTopoHandler::~CSnmpTopoHandler() = default;

int CSnmpTopoHandler::OnQueryTable(const CVRX_SnmpContext&, const CR8KPackageV3&, CR8KPackageV3& rsp) {
    CVRXDebugKitGuard guard(TAMREL_LOG_MODULE,
                            "virtual int CSnmpTopoHandler::OnQueryTable(const CVRX_SnmpContext&, const CR8KPackageV3&, "
                            "CR8KPackageV3&)"_scope);
    const tTopoRow source{probeBackend()};
    std::unique_ptr<CTLVRecordV3> row = makeRow();
    appendColumns(*row, TOPO_COLUMNS, source);
    rsp.append(std::move(row));
    return 0;
}
