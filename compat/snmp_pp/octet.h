// OctetStr: a string of any bytes.
//
//     Snmp_pp::OctetStr text("Disk 7");
//     text += " failed";
//     std::string copy(reinterpret_cast<const char*>(text.data()), text.len());
//
// Bytes are not terminated. No operation throws anything but std::bad_alloc. Threads: see SnmpSyntax.
#ifndef COMPAT_SNMP_PP_OCTET_H
#define COMPAT_SNMP_PP_OCTET_H

#include <string>
#include <vector>

#include "snmp_pp/compat_print_cache.h"
#include "snmp_pp/smival.h"

namespace Snmp_pp {

class OctetStr : public SnmpSyntax {
public:
    OctetStr() = default;

    // Up to the first zero byte; null gives an empty value.
    OctetStr(const char* text);

    // A null pointer or length 0 gives an empty value.
    OctetStr(const unsigned char* bytes, unsigned long length);

    // A copy of an invalid value is valid and empty.
    OctetStr(const OctetStr& other);
    ~OctetStr() override = default;

    OctetStr& operator=(const char* text);
    OctetStr& operator=(const OctetStr& other);  // an invalid one is ignored

    // Takes over octets and the bytes of an IpAddress; anything else leaves this value empty and invalid.
    SnmpSyntax& operator=(const SnmpSyntax& other) override;

    OctetStr& operator+=(const char* text);
    OctetStr& operator+=(const OctetStr& other);
    OctetStr& operator+=(unsigned char byte);

    friend bool operator==(const OctetStr& left, const OctetStr& right) { return left.m_bytes == right.m_bytes; }
    bool operator!=(const OctetStr& other) const { return m_bytes != other.m_bytes; }
    bool operator<(const OctetStr& other) const { return m_bytes < other.m_bytes; }
    bool operator<=(const OctetStr& other) const { return m_bytes <= other.m_bytes; }
    bool operator>(const OctetStr& other) const { return m_bytes > other.m_bytes; }
    bool operator>=(const OctetStr& other) const { return m_bytes >= other.m_bytes; }

    // -1, 0 or 1 for the first `count` bytes; the shorter value is less.
    int nCompare(unsigned long count, const OctetStr& other) const;

    // REQUIRES: index below len().
    unsigned char operator[](int index) const { return m_bytes[static_cast<std::size_t>(index)]; }
    unsigned char& operator[](int index);

    void set_data(const unsigned char* bytes, unsigned long length);

    // Cuts, or extends with zero bytes.
    void set_len(unsigned long length);

    // Null while there are no bytes, except after clear().
    const unsigned char* data() const { return m_bytes.capacity() == 0 ? nullptr : m_bytes.data(); }
    unsigned long len() const { return m_bytes.size(); }

    bool valid() const override { return m_valid; }
    void clear() override;

    // The bytes as they are when all of them are printable, CR or LF; otherwise the hex dump.
    const char* get_printable() const override;

    // The hex dump; and the bytes with "." for every one that is not printable. Both share one text, which the next of
    // these calls replaces.
    const char* get_printable_hex() const;
    const char* get_printable_clear() const;

    SmiUINT32 get_syntax() const override { return sNMP_SYNTAX_OCTETS; }
    SnmpSyntax* clone() const override { return new OctetStr(*this); }

    // Bytes from hexadecimal digits. Spaces are dropped first; with an odd count of digits a leading 0 is supplied.
    static OctetStr from_hex_string(const OctetStr& digits);

private:
    std::vector<unsigned char> m_bytes;
    bool m_valid = true;
    CompatPrintCache m_text;
    mutable std::string m_otherText;
};

}  // namespace Snmp_pp

#endif
