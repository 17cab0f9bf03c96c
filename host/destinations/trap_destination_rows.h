// The rows of the trap destinations' file, for its store and for those who only look: the agent may run or not.
//
// Threads: any. Errors: SqliteError.
#pragma once

#include <map>
#include <string>

#include "platform/trap_dest_info.h"

namespace vrx {

class SqliteDatabase;

using TrapDestinationRows = std::map<unsigned int, tTrapDestInfo>;  // by number

TrapDestinationRows readTrapDestinationRows(SqliteDatabase& database);

// Of a file that is there; nothing is written, and nothing made beside it.
TrapDestinationRows readTrapDestinationFile(const std::string& path);

}  // namespace vrx
