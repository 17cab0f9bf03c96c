#include "host/agent/destination_table.h"

#include "host/services/trap_destination_result.h"
#include "platform/snmp_trap_api.h"

namespace {

// Columns, see CTamrelTrapAddrHandler.
enum : unsigned short { PORT = 2, VERSION = 5, ADDRESS = 6, TRAP_TYPE = 7, USER = 8 };

constexpr const char* ROOT = "1.3.6.1.4.1.99871.2.91.10.4.1";

unsigned int numberOf(const RowCells& cells, unsigned short tag, unsigned int absent) {
    const auto found = cells.find(tag);
    return found == cells.end() ? absent : CTLVCell::ValueCast<unsigned int>()(found->second.get());
}

std::string textOf(const RowCells& cells, unsigned short tag, const std::string& absent) {
    const auto found = cells.find(tag);
    return found == cells.end() ? absent : found->second->toString();
}

bool acceptable(unsigned short tag, tTrapDestInfo& info) {
    switch (tag) {
        case PORT:
            return CheckTrapPortOK(info);
        case VERSION:
            return CheckTrapVerOK(info);
        case ADDRESS:
            return CheckIPAddrOK(info.address);
        case TRAP_TYPE:
            return CheckTrapTypeOK(info);
        case USER:
            return CheckTrapUserOK(info);
        default:
            return true;
    }
}

}  // namespace

bool isDestinationTable(const OidVector& root) {
    return oidText(root) == ROOT;
}

SetResult checkDestination(const SetRow& row, const RowCells& cells) {
    if (row.rowStatus == RS_CREATEANDGO && (cells.count(ADDRESS) == 0 || cells.count(PORT) == 0)) {
        return {SNMP_ERR_INCONSISTENTVALUE, row.rowStatusVariable};
    }
    tTrapDestInfo info;
    info.port = numberOf(cells, PORT, 0);
    info.version = numberOf(cells, VERSION, info.version);
    info.trapType = numberOf(cells, TRAP_TYPE, info.trapType);
    info.address = textOf(cells, ADDRESS, "");
    info.user = textOf(cells, USER, info.user);
    for (const SetCell& cell : row.cells) {
        if (!acceptable(cell.tag, info)) return {SNMP_ERR_WRONGVALUE, cell.variable};
    }
    for (const SetCell& cell : row.cells) {  // a version that the row's user does not go with
        if (cell.tag == VERSION && !CheckTrapUserOK(info)) return {SNMP_ERR_INCONSISTENTVALUE, cell.variable};
    }
    if (row.rowStatus == RS_CREATEANDGO && !CheckTrapUserOK(info)) {
        return {SNMP_ERR_INCONSISTENTVALUE, row.rowStatusVariable};
    }
    return {};
}

int destinationVariable(const SetRow& row, int result) {
    if (row.rowStatus == RS_CREATEANDGO) return row.anyVariable();
    for (const SetCell& cell : row.cells) {
        const bool together = cell.tag == ADDRESS || cell.tag == PORT || cell.tag == USER;
        if (result == TRAP_DESTINATION_DUPLICATE && together) return cell.variable;
        if (result == TRAP_DESTINATION_BAD_VALUE && (cell.tag == VERSION || cell.tag == USER)) return cell.variable;
    }
    return row.anyVariable();
}
