// Counter64, the only 64-bit number of SNMP. Portable code builds it from two 32-bit words:
//
//     Snmp_pp::Counter64 id(static_cast<uint32_t>(alarmId >> 32), static_cast<uint32_t>(alarmId));
//
// Always valid. Through SnmpSyntax& it widens the 32-bit types and is 0 for everything else.
#ifndef COMPAT_SNMP_PP_CTR64_H
#define COMPAT_SNMP_PP_CTR64_H

#include "snmp_pp/compat_print_cache.h"
#include "snmp_pp/smival.h"

namespace Snmp_pp {

class Counter64 : public SnmpSyntax {
public:
    Counter64(pp_uint64 value = 0) : m_value(value) {}

    // Two words, of which the low 32 bits count.
    Counter64(unsigned long high, unsigned long low);
    Counter64(const Counter64&) = default;
    ~Counter64() override = default;

    Counter64& operator=(pp_uint64 value);
    Counter64& operator=(const Counter64&) = default;
    SnmpSyntax& operator=(const SnmpSyntax& other) override;

    operator pp_uint64() const { return m_value; }

    unsigned long high() const { return static_cast<unsigned long>(m_value >> 32U); }
    unsigned long low() const { return static_cast<unsigned long>(m_value & 0xFFFFFFFFU); }
    void set_high(unsigned long high);
    void set_low(unsigned long low);

    bool valid() const override { return true; }
    void clear() override { *this = pp_uint64(0); }
    const char* get_printable() const override;
    SmiUINT32 get_syntax() const override { return sNMP_SYNTAX_CNTR64; }
    SnmpSyntax* clone() const override { return new Counter64(*this); }

private:
    pp_uint64 m_value;
    CompatPrintCache m_text;
};

}  // namespace Snmp_pp

#endif
