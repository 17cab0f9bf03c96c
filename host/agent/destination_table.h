// What SETs on the trap destination table need beyond what every table has.
//
// The check names the variable that is at fault before the handler is asked: that one answers for a whole row, and
// drops a user that is not acceptable without a word. The changes make the rows of one request one transaction of the
// destination store, and give a new row the number in its name.
//
// Threads: any; the changes belong to the thread that made them.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>

#include "host/agent/set_request.h"
#include "host/services/trap_api.h"

// All cells that a row will have, by tag: what it has and what the request sets over it.
using RowCells = std::map<unsigned short, std::shared_ptr<const CTLVCell>>;

// Whether the table with that root is checked here.
bool isDestinationTable(const OidVector& root);

// wrongValue for a variable whose value is not acceptable, inconsistentValue where it does not go with the row's other
// columns or a new row lacks one that it needs.
SetResult checkDestination(const SetRow& row, const RowCells& cells);

// Of one request on one table: all of what its handler does meanwhile takes effect at commit(), or nothing. For other
// tables it does nothing.
class TableChanges {
public:
    explicit TableChanges(const OidVector& root);

    void nextRow(std::uint32_t number);  // the number of the row that the handler creates next
    int commit();                        // 0, or a result as handlers return it

    bool takesBack() const { return m_transaction.has_value(); }  // what is not committed is undone

private:
    std::optional<TrapDestinationTransaction> m_transaction;
};
