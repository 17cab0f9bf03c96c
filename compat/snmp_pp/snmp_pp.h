// All value types at once.
#ifndef COMPAT_SNMP_PP_SNMP_PP_H
#define COMPAT_SNMP_PP_SNMP_PP_H

#include "snmp_pp/vb.h"

#endif
