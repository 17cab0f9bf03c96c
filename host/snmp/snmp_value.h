// A value by its type in BER, and varbinds made of it.
//
// Threads: any.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

struct variable_list;

namespace vrx {

// As Net-SNMP declares it; oid_vector.h tells why its header may be missing.
using netsnmp_variable_list = ::variable_list;

constexpr unsigned char NO_VALUE = 0x05;  // ASN_NULL

struct SnmpValue {
    unsigned char type = NO_VALUE;
    std::uint64_t number = 0;  // of numeric types; an INTEGER's bits
    std::string octets;        // of octet strings, object identifiers and addresses as their bytes
};

// Writes type and value of a varbind; false when there is no memory.
[[nodiscard]] bool setVarbind(netsnmp_variable_list* varbind, unsigned char type, std::uint64_t number,
                              std::string_view octets);
inline bool setVarbind(netsnmp_variable_list* varbind, const SnmpValue& value) {
    return setVarbind(varbind, value.type, value.number, value.octets);
}

}  // namespace vrx
