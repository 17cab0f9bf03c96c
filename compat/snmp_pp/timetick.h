// TimeTicks: hundredths of a second, printed as days, hours, minutes and seconds.
#ifndef COMPAT_SNMP_PP_TIMETICK_H
#define COMPAT_SNMP_PP_TIMETICK_H

#include "snmp_pp/integer.h"

namespace Snmp_pp {

class TimeTicks : public SnmpUInt32 {
public:
    using SnmpUInt32::SnmpUInt32;
    using SnmpUInt32::operator=;

    SmiUINT32 get_syntax() const override { return sNMP_SYNTAX_TIMETICKS; }
    SnmpSyntax* clone() const override { return new TimeTicks(*this); }

protected:
    std::string printed() const override;
};

}  // namespace Snmp_pp

#endif
