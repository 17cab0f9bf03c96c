// Numbers of SNMP: value syntaxes, PDU types, and the integer types that the value types are made of. The integer types
// are wider than 32 bits on 64-bit machines so that overloads resolve as with the installed libraries; the value types
// keep every value to 32 bits.
#ifndef COMPAT_SNMP_PP_SMI_H
#define COMPAT_SNMP_PP_SMI_H

#include "snmp_pp/config_snmp_pp.h"

#define sNMP_SYNTAX_INT 0x02
#define sNMP_SYNTAX_INT32 sNMP_SYNTAX_INT
#define sNMP_SYNTAX_BITS 0x03
#define sNMP_SYNTAX_OCTETS 0x04
#define sNMP_SYNTAX_NULL 0x05
#define sNMP_SYNTAX_OID 0x06
#define sNMP_SYNTAX_IPADDR 0x40
#define sNMP_SYNTAX_CNTR32 0x41
#define sNMP_SYNTAX_GAUGE32 0x42
#define sNMP_SYNTAX_UINT32 sNMP_SYNTAX_GAUGE32
#define sNMP_SYNTAX_TIMETICKS 0x43
#define sNMP_SYNTAX_OPAQUE 0x44
#define sNMP_SYNTAX_CNTR64 0x46
#define sNMP_SYNTAX_NOSUCHOBJECT 0x80
#define sNMP_SYNTAX_NOSUCHINSTANCE 0x81
#define sNMP_SYNTAX_ENDOFMIBVIEW 0x82

#define sNMP_PDU_GET 0xA0
#define sNMP_PDU_GETNEXT 0xA1
#define sNMP_PDU_RESPONSE 0xA2
#define sNMP_PDU_SET 0xA3
#define sNMP_PDU_V1TRAP 0xA4
#define sNMP_PDU_GETBULK 0xA5
#define sNMP_PDU_INFORM 0xA6
#define sNMP_PDU_TRAP 0xA7
#define sNMP_PDU_REPORT 0xA8

namespace Snmp_pp {

using SmiUINT32 = unsigned long;
using SmiINT32 = long;

// What Oid::oidval() points at: the sub-identifiers themselves, not a copy.
struct SmiOID {
    SmiUINT32 len;
    SmiUINT32* ptr;
};

}  // namespace Snmp_pp

#endif
