// Numbers that SNMP and UDP set: what is checked where it is configured is the same where it is used.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>

namespace vrx {

constexpr unsigned int SNMPV3 = 3;  // as destinations count versions, from 1 on; Net-SNMP's SNMP_VERSION_1 is 0

constexpr std::uint64_t MAX_UNSIGNED32 = std::numeric_limits<std::uint32_t>::max();

constexpr unsigned int HIGHEST_PORT = 65535;

constexpr std::size_t SHORTEST_ENGINE_ID = 5;  // octets: RFC 3411, SnmpEngineID
constexpr std::size_t LONGEST_ENGINE_ID = 32;
constexpr std::size_t SHORTEST_PASSPHRASE = 8;  // characters: RFC 3414, 11.2
constexpr std::size_t LONGEST_USER_NAME = 32;   // characters, of a community too: RFC 3414, usmUserName
constexpr std::size_t LONGEST_OID = 128;        // sub-identifiers: RFC 2578, 3.5

constexpr std::size_t LONGEST_MESSAGE = 65507;     // octets of a UDP datagram's largest payload over IPv4
constexpr std::size_t SHORTEST_MAX_MESSAGE = 484;  // RFC 3412: each engine takes as much

}  // namespace vrx
