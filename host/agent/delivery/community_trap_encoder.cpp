#include "host/agent/delivery/community_trap_encoder.h"

#include <cstring>
#include <limits>
#include <vector>

#include "host/agent/delivery/notification_pdu.h"
#include "host/snmp/limits.h"

namespace vrx {

namespace {

constexpr unsigned char SEQUENCE = ASN_SEQUENCE | ASN_CONSTRUCTOR;

// Parts of a message at most.
constexpr std::size_t NUMBER = 6;
constexpr std::size_t HEADER = 4;

// What SNMPv3 has around a PDU beside what SNMPv2c has, names and IDs left out: RFC 3412 and 3414.
constexpr std::size_t secureParts() {
    constexpr std::size_t GLOBAL_DATA = HEADER + 2 * NUMBER + 3 + NUMBER;  // ID, size, flags, security model
    constexpr std::size_t LONGEST_SIGNATURE = 48;                          // HMAC-SHA-512
    constexpr std::size_t SALT = 8;
    constexpr std::size_t LONGEST_PADDING = 8;
    constexpr std::size_t SECURITY =  // engine ID, boots, time, user, signature, salt
        2 * HEADER + HEADER + 2 * NUMBER + HEADER + HEADER + LONGEST_SIGNATURE + HEADER + SALT;
    constexpr std::size_t SCOPED_PDU = HEADER + LONGEST_PADDING + HEADER + 2 * HEADER;
    return GLOBAL_DATA + SECURITY + SCOPED_PDU;
}

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
            const OidVector name = oidOfOctets(value.octets);
            return writeName(out, name.data(), name.size());
        }
        default:
            return false;
    }
}

bool writeBinding(BerWriter& out, const NotificationBinding& binding) {
    const std::size_t end = out.size();
    if (!writeValue(out, binding.value) || !writeName(out, binding.name.data(), binding.name.size())) return false;
    out.header(SEQUENCE, end);
    return true;
}

// All of them; the first time they are kept for other destinations.
bool writeBindings(BerWriter& out, const Notification& trap) {
    const std::string& kept = trap.encoded.octets();
    if (!kept.empty()) {
        out.bytes(kept);
        return true;
    }
    for (auto binding = trap.bindings.rbegin(); binding != trap.bindings.rend(); ++binding) {
        if (!writeBinding(out, *binding)) return false;
    }
    if (!out.overflowed()) trap.encoded.keep({reinterpret_cast<const char*>(out.data()), out.size()});
    return true;
}

// What stands around a PDU, after which nothing was written.
void finish(BerWriter& out, std::string_view community, long version) {
    out.octets(ASN_OCTET_STR, community);
    out.integer(ASN_INTEGER, version);
    out.header(SEQUENCE, 0);
}

}  // namespace

bool writeTrapPdu(BerWriter& out, const Notification& trap, unsigned long upTime, long requestId) {
    if (!writeBindings(out, trap)) return false;
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
    out.header(SNMP_MSG_TRAP2, 0);
    return true;
}

bool writeTrap(BerWriter& out, const Notification& trap, std::string_view community, unsigned long upTime,
               long requestId) {
    if (!writeTrapPdu(out, trap, upTime, requestId)) return false;
    finish(out, community, SNMP_VERSION_2c);
    return true;
}

bool writeTrapV1(BerWriter& out, const Notification& trap, std::string_view community, unsigned long upTime,
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
    if (!writeName(out, name.enterprise.data(), name.enterprise.size())) return false;
    out.header(SNMP_MSG_TRAP, 0);
    finish(out, community, SNMP_VERSION_1);
    return true;
}

std::optional<std::size_t> longestMessage(const Notification& trap, std::string_view community) {
    std::vector<unsigned char> none;  // the writer counts what finds no room
    BerWriter out(none);
    constexpr long LONGEST_NUMBER = std::numeric_limits<std::int32_t>::max();
    if (!writeTrap(out, trap, community, MAX_UNSIGNED32, LONGEST_NUMBER)) return std::nullopt;
    return out.size();
}

std::optional<std::size_t> longestMessageV3(const Notification& trap, std::size_t names) {
    const std::optional<std::size_t> plain = longestMessage(trap, "");
    if (!plain) return std::nullopt;
    return *plain + secureParts() + names;
}

std::size_t mostAroundPduV3(std::size_t names) {
    constexpr std::size_t LONGER_NUMBERS = 2 * NUMBER + 2 * HEADER;  // request ID and time, and headers for them
    constexpr std::size_t PLAIN_PARTS = HEADER + NUMBER + HEADER;    // of SNMPv2c: message, version, community
    return LONGER_NUMBERS + PLAIN_PARTS + secureParts() + names;
}

}  // namespace vrx
