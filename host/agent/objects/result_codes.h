// The results of handlers' operations: what a manager is told, and what the log says. Those listed here are of every
// handler; what a table's own mean is registered with the table (table_rules.h).
#pragma once

#include <string>

#include "host/snmp/oid_vector.h"

namespace vrx {

// The SNMP error for a write operation's result that is not 0. `root`: the object's.
int snmpErrorOf(const OidVector& root, int result);

// The result for a log line: its number and what is known about it.
std::string resultText(const OidVector& root, int result);

}  // namespace vrx
