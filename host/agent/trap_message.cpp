#include "host/agent/trap_message.h"

#include <cstring>
#include <limits>

#include "host/agent/trap_pdu.h"

namespace {

constexpr unsigned char SEQUENCE = ASN_SEQUENCE | ASN_CONSTRUCTOR;
constexpr std::uint64_t MAX_UNSIGNED32 = std::numeric_limits<std::uint32_t>::max();

// The library checks the first two sub-identifiers, which share a number, and the size of the others.
bool writeName(BerWriter& out, const oid* name, std::size_t length) {
    constexpr oid ROOTS = 2;  // ccitt, iso and, with any number of children, joint-iso-ccitt
    constexpr oid MOST_CHILDREN = 40;
    if (length < 2 || length > MAX_OID_LEN || name[0] > ROOTS || name[1] >= MOST_CHILDREN) return false;
    for (std::size_t i = 0; i < length; ++i) {
        if (name[i] > MAX_UNSIGNED32) return false;
    }
    out.name(name, length);
    return true;
}

bool writeValue(BerWriter& out, const SnmpValue& value) {
    const auto number = static_cast<std::int64_t>(value.number);
    switch (value.type) {
        case ASN_INTEGER:
            if (number < std::numeric_limits<std::int32_t>::min() || number > std::numeric_limits<std::int32_t>::max())
                return false;
            out.integer(value.type, number);
            return true;
        case ASN_GAUGE:
        case ASN_COUNTER:
        case ASN_TIMETICKS:
            if (value.number > MAX_UNSIGNED32) return false;
            out.unsignedInteger(value.type, value.number);
            return true;
        case ASN_COUNTER64:
            out.unsignedInteger(value.type, value.number);
            return true;
        case ASN_OCTET_STR:
        case ASN_IPADDRESS:
        case ASN_NULL:
            out.octets(value.type, value.type == ASN_NULL ? std::string_view() : value.octets);
            return true;
        case ASN_OBJECT_ID: {
            OidVector name(value.octets.size() / sizeof(oid));
            if (!name.empty()) std::memcpy(name.data(), value.octets.data(), name.size() * sizeof(oid));
            return writeName(out, name.data(), name.size());
        }
        default:
            return false;
    }
}

bool writeBinding(BerWriter& out, const TrapBinding& binding) {
    const std::size_t end = out.size();
    if (!writeValue(out, binding.value) || !writeName(out, binding.name.data(), binding.name.size())) return false;
    out.header(SEQUENCE, end);
    return true;
}

// What stands around every PDU, behind which nothing was written.
bool finish(BerWriter& out, unsigned char command, std::string_view community, long version) {
    out.header(command, 0);
    out.octets(ASN_OCTET_STR, community);
    out.integer(ASN_INTEGER, version);
    out.header(SEQUENCE, 0);
    return !out.overflowed();
}

}  // namespace

bool writeTrap(BerWriter& out, const Trap& trap, std::string_view community, unsigned long upTime, long requestId) {
    for (auto binding = trap.bindings.rbegin(); binding != trap.bindings.rend(); ++binding) {
        if (!writeBinding(out, *binding)) return false;
    }
    std::size_t end = out.size();
    if (!writeName(out, trap.oid.data(), trap.oid.size())) return false;
    out.name(SNMP_TRAP_OID.data(), SNMP_TRAP_OID.size());
    out.header(SEQUENCE, end);
    end = out.size();
    out.unsignedInteger(ASN_TIMETICKS, upTime & MAX_UNSIGNED32);
    out.name(SYS_UP_TIME.data(), SYS_UP_TIME.size());
    out.header(SEQUENCE, end);
    out.header(SEQUENCE, 0);
    out.integer(ASN_INTEGER, 0);  // error index
    out.integer(ASN_INTEGER, 0);  // error status
    out.integer(ASN_INTEGER, requestId);
    return finish(out, SNMP_MSG_TRAP2, community, SNMP_VERSION_2c);
}

bool writeTrapV1(BerWriter& out, const Trap& trap, std::string_view community, unsigned long upTime,
                 std::uint32_t agentAddress, unsigned int& leftOut) {
    leftOut = 0;
    for (auto binding = trap.bindings.rbegin(); binding != trap.bindings.rend(); ++binding) {
        if (binding->value.type == ASN_COUNTER64) {
            ++leftOut;
        } else if (!writeBinding(out, *binding)) {
            return false;
        }
    }
    out.header(SEQUENCE, 0);
    const TrapNameV1 name = trapNameV1(trap.oid);
    out.unsignedInteger(ASN_TIMETICKS, upTime & MAX_UNSIGNED32);
    out.integer(ASN_INTEGER, name.specificTrap);
    out.integer(ASN_INTEGER, name.genericTrap);
    char address[sizeof agentAddress];
    std::memcpy(address, &agentAddress, sizeof address);
    out.octets(ASN_IPADDRESS, {address, sizeof address});
    return writeName(out, name.enterprise.data(), name.enterprise.size()) &&
           finish(out, SNMP_MSG_TRAP, community, SNMP_VERSION_1);
}
