// What SETs on the trap destination table need beyond what every table has.
//
// The check names the variable that is at fault before the handler is asked: that one answers for a whole row, and
// drops a user that is not acceptable without a word.
//
// Threads: any.
#pragma once

#include <map>
#include <memory>

#include "host/agent/set_request.h"

// All cells that a row will have, by tag: what it has and what the request sets over it.
using RowCells = std::map<unsigned short, std::shared_ptr<const CTLVCell>>;

// Whether the table with that root is checked here.
bool isDestinationTable(const OidVector& root);

// wrongValue for a variable whose value is not acceptable, inconsistentValue where it does not go with the row's other
// columns or a new row lacks one that it needs.
SetResult checkDestination(const SetRow& row, const RowCells& cells);

// The variable to name when the handler refuses the row with that result (trap_destination_result.h).
int destinationVariable(const SetRow& row, int result);
