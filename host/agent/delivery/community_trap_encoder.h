// A trap as the bytes of a whole SNMPv1 or SNMPv2c message, or of a PDU for SNMPv3, the same that Net-SNMP makes of the
// PDUs of notification_pdu.h: but for each variable the library takes a kilobyte and copies it twice.
//
// Each is false where the library has to do it: a value of an unusual type or range. What was written then means
// nothing. A message that is too long for the buffer is an overflow of the writer, whose size tells how long it is.
//
// The bindings of SNMPv2-Trap-PDUs are encoded once, and kept with the trap.
//
// Threads: agent thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

#include "host/notification_log/notification.h"
#include "host/snmp/ber_writer.h"

namespace vrx {

// SNMPv2-Trap-PDU, for a message of SNMPv3.
bool writeTrapPdu(BerWriter& out, const Notification& trap, unsigned long upTime, long requestId);

// With one.
bool writeTrap(BerWriter& out, const Notification& trap, std::string_view community, unsigned long upTime,
               long requestId);

// Trap-PDU of SNMPv1; `agentAddress` and `leftOut` as in makeTrapPduV1().
bool writeTrapV1(BerWriter& out, const Notification& trap, std::string_view community, unsigned long upTime,
                 std::uint32_t agentAddress, unsigned int& leftOut);

// Octets of the longest SNMPv2c message of the trap, as a trap or as an inform, and of an SNMPv3 message at most: of
// any security level, with names and IDs that have `names` octets together. Nothing where writeTrap() is false.
std::optional<std::size_t> longestMessage(const Notification& trap, std::string_view community);
std::optional<std::size_t> longestMessageV3(const Notification& trap, std::size_t names);

// longestMessageV3() is below the octets of any of the trap's PDUs and these.
std::size_t mostAroundPduV3(std::size_t names);

}  // namespace vrx
