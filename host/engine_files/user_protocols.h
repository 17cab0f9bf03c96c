// Protocols that an SNMPv3 user may have, by the names that the SNMP library and its tools use; the first is the
// default.
#pragma once

#include <algorithm>
#include <array>
#include <string>

namespace vrx {

inline constexpr std::array AUTHENTICATION_PROTOCOLS = {"SHA-256", "SHA-512", "SHA-384", "SHA-224", "SHA", "MD5"};
inline constexpr std::array PRIVACY_PROTOCOLS = {"AES", "AES-256", "AES-192", "DES"};

template <typename Protocols>
bool isProtocol(const Protocols& protocols, const std::string& name) {
    return std::find(protocols.begin(), protocols.end(), name) != protocols.end();
}

}  // namespace vrx
