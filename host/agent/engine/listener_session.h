// A session of the engine on a transport that requests come in on: the same for datagrams and for connections.
//
// Threads: agent thread only.
#pragma once

#include "host/agent/requests/request_dispatcher.h"
#include "host/base/expected.h"
#include "host/snmp/net_snmp.h"

namespace vrx {

// The dispatcher gets its requests and outlives it. `lengthOfMessage` cuts a stream into messages; without it the
// library's does. When the library refuses, it has closed the transport.
Expected<netsnmp_session*> openSession(netsnmp_transport* transport, RequestDispatcher& dispatcher,
                                       int (*lengthOfMessage)(u_char*, std::size_t) = nullptr);

}  // namespace vrx
