// Gauge32: it shares its syntax with Unsigned32.
#ifndef COMPAT_SNMP_PP_GAUGE_H
#define COMPAT_SNMP_PP_GAUGE_H

#include "snmp_pp/integer.h"

namespace Snmp_pp {

class Gauge32 : public SnmpUInt32 {
public:
    using SnmpUInt32::SnmpUInt32;
    using SnmpUInt32::operator=;

    SmiUINT32 get_syntax() const override { return sNMP_SYNTAX_GAUGE32; }
    SnmpSyntax* clone() const override { return new Gauge32(*this); }
};

}  // namespace Snmp_pp

#endif
