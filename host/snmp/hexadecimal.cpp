#include "host/snmp/hexadecimal.h"

namespace vrx {

std::string hexadecimal(const std::string& octets) {
    constexpr const char* DIGITS = "0123456789abcdef";
    std::string text;
    for (const char c : octets) {
        const auto octet = static_cast<unsigned char>(c);
        text += DIGITS[octet >> 4U];
        text += DIGITS[octet & 0xFU];
    }
    return text;
}

}  // namespace vrx
