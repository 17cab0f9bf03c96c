// Version, namespace switch and the 64-bit number of the SNMP value types. The release whose behaviour these types give
// is the one named here; the switch says that everything lives in namespace Snmp_pp.
#ifndef COMPAT_SNMP_PP_CONFIG_SNMP_PP_H
#define COMPAT_SNMP_PP_CONFIG_SNMP_PP_H

#define SNMP_PP_NAMESPACE
#define SNMP_PP_VERSION 3
#define SNMP_PP_RELEASE 4
#define SNMP_PP_PATCHLEVEL 6
#define SNMP_PP_VERSION_STRING "3.4.6"

namespace Snmp_pp {
using pp_uint64 = unsigned long long;
}

#endif
