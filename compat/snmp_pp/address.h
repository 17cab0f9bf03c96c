// IpAddress: four bytes, from dotted text. A text that is no IPv4 address makes it invalid, with an empty text form.
// Threads: see SnmpSyntax.
#ifndef COMPAT_SNMP_PP_ADDRESS_H
#define COMPAT_SNMP_PP_ADDRESS_H

#include <array>

#include "snmp_pp/compat_print_cache.h"
#include "snmp_pp/smival.h"

namespace Snmp_pp {

class IpAddress : public SnmpSyntax {
public:
    IpAddress() = default;
    IpAddress(const char* text);
    IpAddress(const IpAddress&) = default;
    ~IpAddress() override = default;

    IpAddress& operator=(const IpAddress&) = default;
    SnmpSyntax& operator=(const SnmpSyntax& other) override;  // anything but an IpAddress leaves this one invalid

    // REQUIRES: position 0 to 3.
    unsigned char operator[](int position) const { return m_bytes[static_cast<std::size_t>(position)]; }

    bool valid() const override { return m_valid; }
    void clear() override;
    const char* get_printable() const override;
    SmiUINT32 get_syntax() const override { return sNMP_SYNTAX_IPADDR; }
    SnmpSyntax* clone() const override { return new IpAddress(*this); }

private:
    std::array<unsigned char, 4> m_bytes{};
    bool m_valid = false;
    CompatPrintCache m_text;
};

}  // namespace Snmp_pp

#endif
