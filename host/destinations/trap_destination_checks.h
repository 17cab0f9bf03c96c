// What makes the values of a trap destination acceptable. docs/destinations.md tells the operator.
//
// Threads: any.
#pragma once

#include <string>

namespace vrx {

namespace destination_check {

constexpr std::size_t LONGEST_HOST_NAME = 253;  // characters
constexpr unsigned int HIGHEST_NUMBER = 65535;  // of a row of the trap destination table, the first one's is 1
constexpr const char* NO_USER = "--";

bool isIpv4Address(const std::string& text);  // four decimal numbers
bool isIpv6Address(const std::string& text);  // a link-local one may name its interface: "fe80::1%eth0"

// A name of RFC 1123: letters, digits and hyphens, in labels of 1 to 63. A name whose last label is a number
// ("0x7f000001" too) would be taken for an IPv4 address in another spelling, or a broken one, and is none.
bool isHostName(const std::string& text);

// Whether traps can be sent to it: a host name, or an address other than "0.0.0.0", "::" and "255.255.255.255".
bool isAddress(const std::string& text);

// The one spelling of an address that others are compared by: of "::ffff:192.0.2.7" that of the IPv4 address.
std::string canonicalAddress(const std::string& text);

// "192.0.2.1:162", "[2001:db8::1]:162", "nms.example.com:162"
std::string addressAndPort(const std::string& address, unsigned int port);

bool isPort(unsigned int port);
bool isVersion(unsigned int version);
bool isTrapType(unsigned int type);  // as vrxTrapDestTrapType of the MIB: no 2, which would get no trap at all

// Whether it can be a user name or a community: 1 to LONGEST_USER_NAME printable ASCII characters.
bool isUserText(const std::string& user);

}  // namespace destination_check

}  // namespace vrx
