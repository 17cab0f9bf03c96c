// What a table wants beyond its MIB: the column that numbers its rows, what its handler's results mean, checks of the
// rows that a SET makes, changes that can be given up, values that not every reader sees. The room that knows a module
// (host/agent/tamrel/) registers it under the table's root, and nobody else here knows a table by its name.
//
// Threads: registration before any other thread; the rules are asked from any.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <vector>

#include "host/agent/objects/mib_model.h"
#include "host/snmp/net_snmp.h"
#include "vrxpub/vrx_tlv_record.h"

namespace vrx {

struct SetResult;  // of host/agent/sets/set_request.h, as the next
struct SetRow;

// All cells that a row will have, by tag: what it has and what the request sets over it.
using RowCells = std::map<unsigned short, std::shared_ptr<const CTLVCell>>;

// What handlers change of a table while it is open, on the thread that opened it: all of it takes effect at commit(),
// or nothing.
class RowChanges {
public:
    virtual ~RowChanges() = default;  // gives up what is not committed

    virtual void assignNext(std::uint32_t number) = 0;  // the number of the row that the handler creates next
    virtual void leave() = 0;                           // the thread's other changes are none of these from here on
    virtual int commit() = 0;                           // 0, or a result as handlers return it
};

class TableRules {
public:
    virtual ~TableRules() = default;

    virtual std::unique_ptr<RowChanges> begin() const = 0;

    // wrongValue for a variable whose value is not acceptable, inconsistentValue where it does not go with the row's
    // other columns or a new row lacks one that it needs. `before`: the row's cells as they are, none for a new row.
    virtual SetResult check(const SetRow& row, const RowCells& before, const RowCells& after) const = 0;

    // The variable to name when the handler refuses the row with that result.
    virtual int variableOf(const SetRow& row, int result) const = 0;

    // Whether the value is for those alone who may write it.
    virtual bool isSecret(const MibColumn& column, const CTLVRecordV3& record) const = 0;

    // Whether the sender of a read request may write such values.
    virtual bool seesSecrets(netsnmp_pdu& pdu, const MibObject& object) const = 0;
};

// A result that means more than genErr.
struct ResultMeaning {
    int result;
    int error;  // that a manager is told
    const char* text;
};

struct TableTraits {
    // Spells the number of a row whose record has no identifier; the handler is told the number of a row under this
    // tag. 0: there is no such column.
    unsigned short numberColumn = 0;
    const TableRules* rules = nullptr;   // null: none; they live as long as the process
    std::vector<ResultMeaning> results;  // of the handler and of commit(), beside those of every handler
};

// The first one of a root stays.
void registerTable(const OidVector& root, TableTraits traits);

// Those of a table that nobody has registered are the defaults.
const TableTraits& tableTraits(const OidVector& root);

// Null for a table without rules.
inline const TableRules* tableRules(const OidVector& root) {
    return tableTraits(root).rules;
}

}  // namespace vrx
