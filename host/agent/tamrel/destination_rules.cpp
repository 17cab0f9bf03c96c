#include "host/agent/tamrel/destination_rules.h"

#include <utility>

#include "host/agent/objects/cell_value.h"
#include "host/agent/objects/table_rules.h"
#include "host/agent/sets/set_request.h"
#include "host/destinations/trap_api.h"
#include "host/destinations/trap_destination_checks.h"
#include "host/destinations/trap_destination_result.h"
#include "host/snmp/limits.h"
#include "host/snmp/net_snmp.h"
#include "platform/snmp_trap_api.h"

namespace vrx {

namespace {

// Columns, see CTamrelTrapAddrHandler.
enum : unsigned short { PORT = 2, INDEX = 4, VERSION = 5, ADDRESS = 6, TRAP_TYPE = 7, USER = 8 };

constexpr const char* ROOT = "1.3.6.1.4.1.99871.2.91.10.4.1";

// What a manager is told of a change that the list refuses.
constexpr std::pair<TrapDestinationResult, int> RESULTS[] = {
    {TRAP_DESTINATION_LIMIT, SNMP_ERR_RESOURCEUNAVAILABLE},
    {TRAP_DESTINATION_DUPLICATE, SNMP_ERR_INCONSISTENTVALUE},
    {TRAP_DESTINATION_NO_ROW, SNMP_ERR_INCONSISTENTNAME},
    {TRAP_DESTINATION_NUMBER_TAKEN, SNMP_ERR_INCONSISTENTVALUE},
    {TRAP_DESTINATION_BAD_VALUE, SNMP_ERR_INCONSISTENTVALUE},
    {TRAP_DESTINATION_STORE_FAILED, SNMP_ERR_RESOURCEUNAVAILABLE},
};

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

// Of one SET: a transaction of the destinations' store.
class DestinationChanges : public RowChanges {
public:
    void assignNext(std::uint32_t number) override { m_transaction.assignNext(number); }
    void leave() override { m_transaction.leave(); }
    int commit() override { return m_transaction.commit(); }

private:
    TrapDestinationTransaction m_transaction;
};

// The check names the variable that is at fault before the handler is asked: that one answers for a whole row, and
// drops a user that is not acceptable without a word. A community is a secret: whoever knows it can send traps in this
// agent's name, or more.
class DestinationRules : public TableRules {
public:
    std::unique_ptr<RowChanges> begin() const override { return std::make_unique<DestinationChanges>(); }
    SetResult check(const SetRow& row, const RowCells& before, const RowCells& after) const override;
    int variableOf(const SetRow& row, int result) const override;
    bool isSecret(const MibColumn& column, const CTLVRecordV3& record) const override;
    bool seesSecrets(netsnmp_pdu& pdu, const MibObject& object) const override;
};

SetResult DestinationRules::check(const SetRow& row, const RowCells& before, const RowCells& after) const {
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

int DestinationRules::variableOf(const SetRow& row, int result) const {
    if (row.rowStatus == RS_CREATEANDGO) return row.anyVariable();
    for (const SetCell& cell : row.cells) {
        const bool together = cell.tag == ADDRESS || cell.tag == PORT || cell.tag == USER;
        if (result == TRAP_DESTINATION_DUPLICATE && together) return cell.variable;
        if (result == TRAP_DESTINATION_BAD_VALUE && (cell.tag == VERSION || cell.tag == USER)) return cell.variable;
    }
    return row.anyVariable();
}

bool DestinationRules::isSecret(const MibColumn& column, const CTLVRecordV3& record) const {
    if (column.number != USER || !record.has(USER)) return false;
    const auto user = textOfCell(record[USER]);
    const bool isCommunity = !record.has(VERSION) || CTLVCell::ValueCast<unsigned int>()(&record[VERSION]) != SNMPV3;
    return isCommunity && user != destination_check::NO_USER;
}

bool DestinationRules::seesSecrets(netsnmp_pdu& pdu, const MibObject& object) const {
    OidVector column = object.root;
    column.insert(column.end(), {MibObject::ENTRY, USER});
    const int command = std::exchange(pdu.command, SNMP_MSG_SET);  // the view for writing
    const bool may = netsnmp_acm_check_subtree(&pdu, column.data(), column.size()) == VACM_SUCCESS;
    pdu.command = command;
    return may;
}

}  // namespace

void registerDestinationRules() {
    static const DestinationRules rules;
    TableTraits traits;
    traits.numberColumn = INDEX;
    traits.rules = &rules;
    for (const auto& [result, error] : RESULTS) {
        traits.results.push_back({result, error, trapDestinationResultText(result)});
    }
    registerTable(parseOid(ROOT), std::move(traits));
}

}  // namespace vrx
