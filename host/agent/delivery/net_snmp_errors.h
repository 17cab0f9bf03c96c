// What Net-SNMP says of a session that cannot be opened, or of a PDU that cannot be sent.
//
// Threads: any.
#pragma once

#include <string>

#include "host/snmp/net_snmp.h"

namespace vrx {

// Takes over the text that snmp_error() or snmp_sess_error() has made; null is "unknown error".
std::string takeErrorText(char* text);

// Why the library did not open a session as it was `wanted`.
std::string openingError(netsnmp_session& wanted);

// Of the errors that the library leaves in a session when it cannot send a PDU: no message can be made of this one, or
// none that goes into a datagram, whatever is tried.
bool isFaultOfPdu(int snmpError, int systemError);

}  // namespace vrx
