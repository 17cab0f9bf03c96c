#include "host/agent/delivery/notification_pdu.h"

#include <cstring>

namespace vrx {

const OidVector SYS_UP_TIME = {1, 3, 6, 1, 2, 1, 1, 3, 0};
const OidVector SNMP_TRAP_OID = {1, 3, 6, 1, 6, 3, 1, 1, 4, 1, 0};

namespace {

const OidVector SNMP_TRAPS = {1, 3, 6, 1, 6, 3, 1, 1, 5};  // coldStart is .1, egpNeighborLoss .6
constexpr oid LAST_STANDARD_TRAP = 6;

bool append(netsnmp_pdu* pdu, const OidVector& name, const SnmpValue& value) {
    netsnmp_variable_list* varbind = snmp_pdu_add_variable(pdu, name.data(), name.size(), ASN_NULL, nullptr, 0);
    return varbind != nullptr && setVarbind(varbind, value);
}

SnmpValue timeTicks(unsigned long ticks) {
    SnmpValue value;
    value.type = ASN_TIMETICKS;
    value.number = ticks;
    return value;
}

SnmpValue objectId(const OidVector& name) {
    SnmpValue value;
    value.type = ASN_OBJECT_ID;
    value.octets = octetsOfOid(name);
    return value;
}

}  // namespace

TrapNameV1 trapNameV1(const OidVector& trapOid) {
    TrapNameV1 name;
    const oid last = trapOid.back();
    const bool standard = trapOid.size() == SNMP_TRAPS.size() + 1 &&
                          isBelow(trapOid.data(), trapOid.size(), SNMP_TRAPS) && last >= 1 &&
                          last <= LAST_STANDARD_TRAP;
    if (standard) {
        name.enterprise = SNMP_TRAPS;
        name.genericTrap = static_cast<long>(last) - 1;
        return name;
    }
    name.genericTrap = SNMP_TRAP_ENTERPRISESPECIFIC;
    // The last sub-identifier may exceed the signed 32 bits of the field; its bits go there, as other agents do it.
    name.specificTrap = static_cast<std::int32_t>(static_cast<std::uint32_t>(last));
    name.enterprise.assign(trapOid.begin(), trapOid.end() - 1);
    if (name.enterprise.size() > 1 && name.enterprise.back() == 0) name.enterprise.pop_back();
    return name;
}

PduPointer makeTrapPdu(const Notification& trap, unsigned long upTime) {
    PduPointer pdu(snmp_pdu_create(SNMP_MSG_TRAP2));
    if (!pdu || !append(pdu.get(), SYS_UP_TIME, timeTicks(upTime)) ||
        !append(pdu.get(), SNMP_TRAP_OID, objectId(trap.oid))) {
        return nullptr;
    }
    for (const NotificationBinding& binding : trap.bindings) {
        if (!append(pdu.get(), binding.name, binding.value)) return nullptr;
    }
    return pdu;
}

PduPointer makeTrapPduV1(const Notification& trap, unsigned long upTime, std::uint32_t agentAddress,
                         unsigned int& leftOut) {
    leftOut = 0;
    PduPointer pdu(snmp_pdu_create(SNMP_MSG_TRAP));
    if (!pdu) return nullptr;
    const TrapNameV1 name = trapNameV1(trap.oid);
    pdu->enterprise = snmp_duplicate_objid(name.enterprise.data(), name.enterprise.size());
    if (pdu->enterprise == nullptr) return nullptr;
    pdu->enterprise_length = name.enterprise.size();
    pdu->trap_type = name.genericTrap;
    pdu->specific_type = name.specificTrap;
    pdu->time = upTime;
    std::memcpy(pdu->agent_addr, &agentAddress, sizeof agentAddress);
    for (const NotificationBinding& binding : trap.bindings) {
        if (binding.value.type == ASN_COUNTER64) {
            ++leftOut;
        } else if (!append(pdu.get(), binding.name, binding.value)) {
            return nullptr;
        }
    }
    return pdu;
}

}  // namespace vrx
