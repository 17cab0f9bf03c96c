// Refuses messages with a number that does not fit its type (RFC 2578, 7.1: Integer32, Unsigned32 and its relatives).
//
// The library cuts such a number to 32 bits without a word: clearing alarm 2^32 + 2 cleared alarm 2. So each message is
// looked at before the library reads it, and what is encrypted when it has been decrypted. One that does not hold is
// malformed as others are: it gets no answer and counts as snmpInASNParseErrs. What else may be wrong with a message is
// the library's to find.
//
// Threads: agent thread only.
#pragma once

#include <cstddef>

#include "host/snmp/net_snmp.h"

namespace vrx {

// Of a whole message; of an SNMPv3 one only what is around its scoped PDU.
[[nodiscard]] bool messageNumbersFit(const unsigned char* message, std::size_t size);

// Of a scoped PDU in clear text (RFC 3412, 6).
[[nodiscard]] bool scopedPduNumbersFit(const unsigned char* scopedPdu, std::size_t size);

// A session's hook (snmp_add_full) that reads what comes in.
int parseMessage(netsnmp_session* session, netsnmp_pdu* pdu, unsigned char* message, std::size_t size);

// From now on the engine's user-based security looks at scoped PDUs. After init_snmp().
void checkScopedPdus();

}  // namespace vrx
