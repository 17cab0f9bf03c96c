// Names the variable that is at fault in a SET on the trap destination table, before its handler is asked: the handler
// answers for a whole row, and drops a user that is not acceptable without a word.
//
// Any thread.
#pragma once

#include <map>

#include "host/agent/set_request.h"

// All cells that a row will have, by tag: what it has and what the request sets over it.
using RowCells = std::map<unsigned short, std::shared_ptr<const CTLVCell>>;

// Whether the table with that root is checked here.
bool isDestinationTable(const OidVector& root);

// wrongValue for a variable whose value is not acceptable, inconsistentValue where it does not go with the row's other
// columns or a new row lacks one that it needs.
SetResult checkDestination(const SetRow& row, const RowCells& cells);
