#include "snmp_pp/address.h"

#include <arpa/inet.h>

namespace Snmp_pp {

IpAddress::IpAddress(const char* text) : m_valid(text != nullptr && inet_pton(AF_INET, text, m_bytes.data()) == 1) {}

SnmpSyntax& IpAddress::operator=(const SnmpSyntax& other) {
    const auto* address = dynamic_cast<const IpAddress*>(&other);
    *this = address != nullptr ? *address : IpAddress();
    return *this;
}

void IpAddress::clear() {
    *this = IpAddress();
}

const char* IpAddress::get_printable() const {
    return m_text.text([this]() -> std::string {
        std::array<char, INET_ADDRSTRLEN> text{};
        return m_valid ? inet_ntop(AF_INET, m_bytes.data(), text.data(), text.size()) : "";
    });
}

}  // namespace Snmp_pp
