// Keeps the answer to a GETBULK below what its sender takes.
//
// The engine's library cuts an answer that is too long for an SNMPv3 sender's msgMaxSize by encoding it again and
// again, and with some sizes never comes to an end. So a request whose answer might be too long asks for less before
// the engine sees it, which RFC 3416 (4.2.3) leaves to the agent: for fewer repetitions, and where even one may be too
// many for GETNEXT, whose too long answer is a plain tooBig.
//
// Threads: agent thread only.
#pragma once

#include <cstddef>

#include "host/agent/net_snmp.h"

constexpr std::size_t LONG_VARIABLE = 640;     // octets of one, name and value, as long as nothing is known of it
constexpr std::size_t VARIABLE_OVERHEAD = 80;  // octets around a value of ours: its name, tags and lengths
constexpr std::size_t MESSAGE_OVERHEAD = 256;  // octets around the variables of an SNMPv3 message, security included

// `longestValue`: octets of the longest one that may be in the answer, as far as values are known.
void boundAnswer(netsnmp_pdu& pdu, std::size_t longestValue = 0);
