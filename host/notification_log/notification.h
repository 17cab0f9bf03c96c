// A trap as the sender keeps it: what a notification handler built, in a neutral form that any number of destinations
// share and any protocol version is encoded from.
//
// Threads: constant once made.
#pragma once

#include <string>
#include <vector>

#include "host/snmp/oid_vector.h"
#include "host/snmp/snmp_value.h"

namespace vrx {

struct NotificationBinding {
    OidVector name;
    SnmpValue value;  // NO_VALUE where the handler gave none
};

struct Notification {
    OidVector oid;  // snmpTrapOID; empty when the handler's was no object identifier
    std::vector<NotificationBinding> bindings;
};

}  // namespace vrx
