// What a notification handler gives, as SNMP++ values, into the sender's neutral form.
//
// Include this before headers of the agent, and none of Net-SNMP's in the same source: oid_vector.h tells why.
//
// Threads: any; the arguments belong to the caller.
#pragma once

#include <agent_pp/snmp_pp_ext.h>

#include "host/notification_log/notification.h"

namespace vrx {

// The trap of a handler's OID and bindings. A binding whose name is no object identifier is left out and counted in
// `leftOut`; a value that no SNMP message can carry becomes NO_VALUE.
Notification trapOf(const Snmp_pp::Oid& trapOid, const Agentpp::Vbx* bindings, int count, int& leftOut);

// The sub-identifiers, or an empty vector unless there are 2 to 128 of 32 bits each.
OidVector oidOf(const Snmp_pp::Oid& name);

}  // namespace vrx
