#include "host/agent/destination_table.h"

#include <utility>

#include "host/agent/net_snmp.h"
#include "host/agent/snmp_value.h"
#include "host/services/trap_api.h"
#include "host/services/trap_destination_checks.h"
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

tTrapDestInfo infoOf(const RowCells& cells) {
    tTrapDestInfo info;
    info.port = numberOf(cells, PORT, 0);
    info.version = numberOf(cells, VERSION, info.version);
    info.trapType = numberOf(cells, TRAP_TYPE, info.trapType);
    info.address = textOf(cells, ADDRESS, "");
    info.user = textOf(cells, USER, info.user);
    return info;
}

// Why a column's value is not acceptable; null when it is.
const char* faultOf(unsigned short tag, tTrapDestInfo& info) {
    switch (tag) {
        case PORT:
            return CheckTrapPortOK(info) ? nullptr : "a port is 1 to 65535";
        case VERSION:
            return CheckTrapVerOK(info) ? nullptr : "a version is 1, 2 or 3";
        case ADDRESS:
            return CheckIPAddrOK(info.address) ? nullptr
                                               : "neither an address nor a host name that traps can be sent to";
        case TRAP_TYPE:
            return CheckTrapTypeOK(info) ? nullptr : "a trap type is 1, 3 or 4";
        case USER:
            return CheckTrapUserOK(info) ? nullptr : "1 to 32 printable characters; version 3 needs a user";
        default:
            return nullptr;
    }
}

}  // namespace

bool isDestinationTable(const OidVector& root) {
    static const OidVector TABLE = parseOid(ROOT);
    return root == TABLE;
}

bool isSecret(const MibObject& object, const MibColumn& column, const CTLVRecordV3& record) {
    if (column.number != USER || !isDestinationTable(object.root) || !record.has(USER)) return false;
    const auto user = textOfCell(record[USER]);
    const bool isCommunity = !record.has(VERSION) || CTLVCell::ValueCast<unsigned int>()(&record[VERSION]) != 3;
    return isCommunity && user != destination_check::NO_USER;
}

bool seesSecrets(netsnmp_pdu& pdu, const MibObject& object) {
    if (!isDestinationTable(object.root)) return true;
    OidVector column = object.root;
    column.insert(column.end(), {MibObject::ENTRY, USER});
    const int command = std::exchange(pdu.command, SNMP_MSG_SET);  // the view for writing
    const bool may = netsnmp_acm_check_subtree(&pdu, column.data(), column.size()) == VACM_SUCCESS;
    pdu.command = command;
    return may;
}

SetResult checkDestination(const SetRow& row, const RowCells& before, const RowCells& after) {
    if (row.rowStatus == RS_CREATEANDGO && (after.count(ADDRESS) == 0 || after.count(PORT) == 0)) {
        return {SNMP_ERR_INCONSISTENTVALUE, row.rowStatusVariable, "a new row needs address and port"};
    }
    tTrapDestInfo info = infoOf(after);
    const tTrapDestInfo had = infoOf(before);
    const bool sameUser = !before.empty() && info.user == had.user && info.version == had.version;
    for (const SetCell& cell : row.cells) {
        const char* const fault = faultOf(cell.tag, info);
        if (fault != nullptr) return {SNMP_ERR_WRONGVALUE, cell.variable, fault};
        if (cell.tag == USER && !sameUser && !isTrapUserKnown(info)) {
            return {SNMP_ERR_WRONGVALUE, cell.variable, "this agent has no such user"};
        }
    }
    for (const SetCell& cell : row.cells) {  // a version that the row's user does not go with; it may be a community
        if (cell.tag == VERSION && (!CheckTrapUserOK(info) || (!sameUser && !isTrapUserKnown(info)))) {
            return {SNMP_ERR_INCONSISTENTVALUE, cell.variable, "the row names no user that this agent has"};
        }
    }
    if (faultOf(ADDRESS, info) != nullptr) {  // of an earlier version of this agent, which took it
        return {SNMP_ERR_INCONSISTENTVALUE, row.anyVariable(),
                "the row's address " + info.address + " is not acceptable: set it, too"};
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
