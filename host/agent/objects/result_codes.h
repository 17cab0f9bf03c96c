// The results of handlers' operations: what a manager is told, and what the log says.
#pragma once

#include <string>

#include "host/snmp/oid_vector.h"

namespace vrx {

// The SNMP error for a write operation's result that is not 0.
int snmpErrorOf(int result);

// The result for a log line: its number and what is known about it.
std::string resultText(int result);

}  // namespace vrx
