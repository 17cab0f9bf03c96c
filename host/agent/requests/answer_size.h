// Keeps each answer within what its sender and the transport take.
//
// The engine's library has ways of its own to deal with an answer that is too long: it stops gathering values, encodes
// into a buffer that is too small for the result, loses the variables that it drops, or gives no answer. None of them
// is to be reached. So the engine is told of no bound, and the sessions of our listeners encode with buildMessage(),
// which knows the real one and does what RFC 3416 (4.2) asks for: an answer to a GETBULK loses variables at its end,
// any other becomes tooBig, and one that does not fit even so is dropped and counted (snmpSilentDrops).
//
// Threads: agent thread only.
#pragma once

#include <cstddef>

#include "host/snmp/net_snmp.h"

namespace vrx {

constexpr std::size_t MOST_VARIABLES = 10'000;  // of an answer: the library's copies of a PDU have no more

// Octets of the longest message that the session sends and who asked takes.
std::size_t longestAnswer(const netsnmp_session& session, const netsnmp_pdu& request);

// The variables that the repetitions of a GETBULK are answered with at most, as the engine has it.
long mostBulkResponses();

// Takes the bound of the answer to a request over from the engine. A GETBULK asks for no more repetitions than can fit,
// and becomes a GETNEXT where the engine would not give it one: without any a walk would end there. Once for each
// request, before anybody makes a copy of it.
void boundAnswer(const netsnmp_session& session, netsnmp_pdu& request);

// Whether the answer to a SET can be sent whatever becomes of it: known before anything is changed (RFC 3416, 4.2.5).
[[nodiscard]] bool answerFits(netsnmp_session& session, netsnmp_pdu& set);

// Answers a request with tooBig instead of looking at it further. False when that cannot be sent.
[[nodiscard]] bool answerTooBig(netsnmp_session& session, netsnmp_pdu& request);

// A session's hook (snmp_add_full) that encodes what it sends.
int buildMessage(netsnmp_session* session, netsnmp_pdu* pdu, unsigned char** buffer, std::size_t* size,
                 std::size_t* used);

}  // namespace vrx
