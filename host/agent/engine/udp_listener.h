// Receiving and sending of IPv4 listeners, in place of the library's: a system call for each message instead of two.
// The library asks the socket for its name with every request, and for its device with every answer.
//
// An answer leaves from the address that its request came to, also where the listener has all addresses of the system.
#pragma once

#include "host/snmp/net_snmp.h"

namespace vrx {

// Takes the transport over, if it is a listener for UDP over IPv4. Its data stay as the library has them.
void receiveDirectly(netsnmp_transport& transport);

}  // namespace vrx
