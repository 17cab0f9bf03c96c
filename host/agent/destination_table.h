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
#include "vrxpub/vrx_tlv_record.h"

// Whether the cell is a community: whoever knows it can send traps in this agent's name, or more.
bool isSecret(const MibObject& object, const MibColumn& column, const CTLVRecordV3& record);

// Whether the sender of a read request sees the object's secrets: who may write them does.
bool seesSecrets(netsnmp_pdu& pdu, const MibObject& object);

// All cells that a row will have, by tag: what it has and what the request sets over it.
using RowCells = std::map<unsigned short, std::shared_ptr<const CTLVCell>>;

// Whether the table with that root is checked here.
bool isDestinationTable(const OidVector& root);

// wrongValue for a variable whose value is not acceptable, inconsistentValue where it does not go with the row's other
// columns or a new row lacks one that it needs. `before`: the row's cells as they are, none for a new row.
SetResult checkDestination(const SetRow& row, const RowCells& before, const RowCells& after);

// The variable to name when the handler refuses the row with that result (trap_destination_result.h).
int destinationVariable(const SetRow& row, int result);
