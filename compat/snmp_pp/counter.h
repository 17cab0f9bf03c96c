// Counter32: a 32-bit count that wraps.
#ifndef COMPAT_SNMP_PP_COUNTER_H
#define COMPAT_SNMP_PP_COUNTER_H

#include "snmp_pp/integer.h"

namespace Snmp_pp {

class Counter32 : public SnmpUInt32 {
public:
    using SnmpUInt32::SnmpUInt32;
    using SnmpUInt32::operator=;

    SmiUINT32 get_syntax() const override { return sNMP_SYNTAX_CNTR32; }
    SnmpSyntax* clone() const override { return new Counter32(*this); }
};

}  // namespace Snmp_pp

#endif
