// SnmpInt32 and SnmpUInt32: INTEGER and Unsigned32. Every value is kept to its low 32 bits, so pass numbers that
// already have the right width. Any of the 32-bit types takes over the bits of another one through SnmpSyntax&;
// anything else leaves it invalid, with an empty text. Threads: see SnmpSyntax.
#ifndef COMPAT_SNMP_PP_INTEGER_H
#define COMPAT_SNMP_PP_INTEGER_H

#include <cstdint>

#include "snmp_pp/compat_print_cache.h"
#include "snmp_pp/smival.h"

namespace Snmp_pp {

class SnmpUInt32 : public SnmpSyntax {
public:
    SnmpUInt32(SmiUINT32 value = 0) : m_value(static_cast<std::uint32_t>(value)) {}
    SnmpUInt32(const SnmpUInt32&) = default;
    ~SnmpUInt32() override = default;

    SnmpUInt32& operator=(SmiUINT32 value);
    SnmpUInt32& operator=(const SnmpUInt32&) = default;
    SnmpSyntax& operator=(const SnmpSyntax& other) override;

    operator SmiUINT32() const { return m_value; }

    bool valid() const override { return m_valid; }
    void clear() override { *this = SmiUINT32(0); }
    const char* get_printable() const override;
    SmiUINT32 get_syntax() const override { return sNMP_SYNTAX_UINT32; }
    SnmpSyntax* clone() const override { return new SnmpUInt32(*this); }

protected:
    // The text of a valid value.
    virtual std::string printed() const;

private:
    std::uint32_t m_value;
    bool m_valid = true;
    CompatPrintCache m_text;
};

class SnmpInt32 : public SnmpSyntax {
public:
    SnmpInt32(SmiINT32 value = 0) : m_value(static_cast<std::int32_t>(value)) {}
    SnmpInt32(const SnmpInt32&) = default;
    ~SnmpInt32() override = default;

    SnmpInt32& operator=(SmiINT32 value);
    SnmpInt32& operator=(const SnmpInt32&) = default;
    SnmpSyntax& operator=(const SnmpSyntax& other) override;

    operator SmiINT32() const { return m_value; }

    bool valid() const override { return m_valid; }
    void clear() override { *this = SmiINT32(0); }
    const char* get_printable() const override;
    SmiUINT32 get_syntax() const override { return sNMP_SYNTAX_INT32; }
    SnmpSyntax* clone() const override { return new SnmpInt32(*this); }

private:
    std::int32_t m_value;
    bool m_valid = true;
    CompatPrintCache m_text;
};

}  // namespace Snmp_pp

#endif
