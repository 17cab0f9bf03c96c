// A trap as the bytes of a whole SNMPv1 or SNMPv2c message, the same that Net-SNMP makes of the PDUs of trap_pdu.h: but
// for each variable the library takes a kilobyte and copies it twice.
//
// Each is false where the library has to do it: a value of an unusual type or range, a message that is too long for the
// buffer. What was written then means nothing.
//
// Threads: none of their own.
#pragma once

#include <cstdint>
#include <string_view>

#include "host/agent/ber_writer.h"
#include "host/agent/trap_content.h"

// SNMPv2-Trap-PDU.
bool writeTrap(BerWriter& out, const Trap& trap, std::string_view community, unsigned long upTime, long requestId);

// Trap-PDU of SNMPv1; `agentAddress` and `leftOut` as in makeTrapPduV1().
bool writeTrapV1(BerWriter& out, const Trap& trap, std::string_view community, unsigned long upTime,
                 std::uint32_t agentAddress, unsigned int& leftOut);
