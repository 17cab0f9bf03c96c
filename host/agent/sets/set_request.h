// What a SET request asks of our objects, checked as far as the MIB tells: rows and cells, and scalars' values.
//
// Threads: parsed on the agent thread; constant afterwards, carried to the workers.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "host/agent/objects/managed_object.h"
#include "vrxpub/vrx_tlv_cell.h"

namespace vrx {

class TableRules;

// A result: SNMP_ERR_NOERROR, or an error, the variable that it is about (from 1, as in a response), and for the log
// what the error does not say.
struct SetResult {
    int error = SNMP_ERR_NOERROR;
    int variable = 0;
    std::string reason{};

    bool ok() const { return error == SNMP_ERR_NOERROR; }
};

// The object that a variable belongs to; null for a name that is none of ours.
using ObjectFinder = std::function<ManagedObject*(const netsnmp_variable_list& variable)>;

struct SetCell {
    unsigned short tag = 0;  // column number, 0 for a scalar
    int variable = 0;        // position in the request, from 1
    std::shared_ptr<const CTLVCell> cell;
};

// All cells of one row, without its RowStatus; of a scalar its one value.
struct SetRow {
    std::uint32_t number = 0;
    std::vector<SetCell> cells;
    int rowStatus = 0;          // 0: the request leaves it alone
    int rowStatusVariable = 0;  // where the request sets it

    // The variable to name when the fault lies with the row as a whole.
    int anyVariable() const { return rowStatusVariable != 0 ? rowStatusVariable : cells.front().variable; }
};

// What one object is to do.
struct SetStep {
    ManagedObject* object = nullptr;
    std::vector<SetRow> rows;

    // Whether what was done of it, but not told, can be taken back: of a table with rules, a transaction.
    bool revocable() const;
    const TableRules* rules() const;  // of the object, null when it has none
};

// Steps for the varbinds of `pdu`, in the order in which objects and rows first appear, but the one that cannot be
// taken back last; a second such one is a fault. On a fault the result names the first variable with one, and `steps`
// is of no use.
SetResult parseSet(netsnmp_pdu* pdu, const ObjectFinder& objectOf, std::vector<SetStep>& steps);

// The error that an SNMPv1 manager knows, for one of SNMPv2's (RFC 3584, 4.4).
int v1Error(int error);

}  // namespace vrx
