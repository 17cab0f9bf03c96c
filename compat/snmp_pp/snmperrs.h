// Return codes of the value types' operations.
#ifndef COMPAT_SNMP_PP_SNMPERRS_H
#define COMPAT_SNMP_PP_SNMPERRS_H

#define SNMP_CLASS_SUCCESS 0
#define SNMP_CLASS_ERROR (-1)
#define SNMP_CLASS_INVALID (-10)

#endif
