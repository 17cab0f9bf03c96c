// A trap as an SNMP message: SNMPv2-Trap-PDU, and Trap-PDU of SNMPv1 by the rules of RFC 3584, section 3.2.
//
// Threads: agent thread.
#pragma once

#include <net-snmp/net-snmp-config.h>
// The configuration header comes first.
#include <net-snmp/net-snmp-includes.h>

#include <cstdint>
#include <memory>

#include "host/notification_log/notification.h"

namespace vrx {

struct FreePdu {
    void operator()(netsnmp_pdu* pdu) const { snmp_free_pdu(pdu); }
};
using PduPointer = std::unique_ptr<netsnmp_pdu, FreePdu>;

// What SNMPv1 has in place of snmpTrapOID.
struct TrapNameV1 {
    OidVector enterprise;
    long genericTrap = 0;
    long specificTrap = 0;
};

extern const OidVector SYS_UP_TIME;    // sysUpTime.0
extern const OidVector SNMP_TRAP_OID;  // snmpTrapOID.0

// REQUIRES: at least two sub-identifiers.
TrapNameV1 trapNameV1(const OidVector& trapOid);

// sysUpTime.0 and snmpTrapOID.0, then the bindings. Null when there is no memory.
PduPointer makeTrapPdu(const Notification& trap, unsigned long upTime);

// The bindings without those of type Counter64, which SNMPv1 cannot carry; `leftOut` tells how many. `agentAddress` in
// network byte order, 0 when the agent has no IPv4 address towards the destination. Null when there is no memory.
PduPointer makeTrapPduV1(const Notification& trap, unsigned long upTime, std::uint32_t agentAddress,
                         unsigned int& leftOut);

}  // namespace vrx
