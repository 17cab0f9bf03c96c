// Net-SNMP's headers, in their order, and without the short macros that other libraries' headers trip over.
#pragma once

#include <net-snmp/net-snmp-config.h>
// The configuration header comes first.
#include <net-snmp/net-snmp-includes.h>

#include <net-snmp/agent/net-snmp-agent-includes.h>
#include <net-snmp/library/fd_event_manager.h>
#include <net-snmp/library/snmp_transport.h>

#undef RESERVE1
#undef RESERVE2
#undef ACTION
#undef COMMIT
#undef FREE
#undef UNDO
