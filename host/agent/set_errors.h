// What a manager is told for the results of handlers' write operations.
#pragma once

#include <string>

#include "host/agent/oid_vector.h"

// The SNMP error for a result that is not 0.
int setError(int result);

// The result for a log line: its number and what is known about it.
std::string setResultText(int result);
