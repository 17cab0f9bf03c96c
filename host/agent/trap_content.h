// A trap as the sender keeps it: what a notification handler built, in a neutral form that any number of destinations
// share and any protocol version is encoded from.
//
// Threads: constant once made.
#pragma once

#include <agent_pp/snmp_pp_ext.h>

#include <string>
#include <vector>

#include "host/agent/oid_vector.h"
#include "host/agent/snmp_value.h"

struct TrapBinding {
    OidVector name;
    SnmpValue value;  // ASN_NULL where the handler gave none
};

struct Trap {
    OidVector oid;  // snmpTrapOID; empty when the handler's was no object identifier
    std::vector<TrapBinding> bindings;
};

// The trap of a handler's OID and bindings. A binding whose name is no object identifier is left out and counted in
// `leftOut`; a value that no SNMP message can carry becomes ASN_NULL.
Trap trapOf(const Snmp_pp::Oid& oid, const Agentpp::Vbx* bindings, int count, int& leftOut);

// The sub-identifiers, or an empty vector unless there are 2 to 128 of 32 bits each.
OidVector oidOf(const Snmp_pp::Oid& oid);
