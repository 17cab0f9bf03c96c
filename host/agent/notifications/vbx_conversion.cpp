#include "host/agent/notifications/vbx_conversion.h"

#include <algorithm>
#include <limits>

#include "host/snmp/limits.h"

namespace vrx {

namespace {

constexpr Snmp_pp::SmiUINT32 SHORTEST_NAME = 2;  // BER puts the first two sub-identifiers into one number

constexpr std::size_t USUAL_OCTETS = 1024;  // fewer are in nearly every text

bool readInteger(const Agentpp::Vbx& binding, SnmpValue& value) {
    int number = 0;
    if (binding.get_value(number) != SNMP_CLASS_SUCCESS) return false;
    value.number = static_cast<std::uint64_t>(static_cast<std::int64_t>(number));
    return true;
}

bool readUnsigned(const Agentpp::Vbx& binding, SnmpValue& value) {
    unsigned int number = 0;
    if (binding.get_value(number) != SNMP_CLASS_SUCCESS) return false;
    value.number = number;
    return true;
}

bool readCounter64(const Agentpp::Vbx& binding, SnmpValue& value) {
    using namespace Snmp_pp;  // the real library has pp_uint64 outside its namespace
    pp_uint64 number = 0;
    if (binding.get_value(number) != SNMP_CLASS_SUCCESS) return false;
    value.number = number;
    return true;
}

bool readOctets(const Agentpp::Vbx& binding, SnmpValue& value) {
    unsigned char usual[USUAL_OCTETS];
    Snmp_pp::SmiUINT32 length = 0;
    if (binding.get_value(usual, length, sizeof usual) == SNMP_CLASS_SUCCESS && length < sizeof usual) {
        value.octets.assign(reinterpret_cast<const char*>(usual), length);
        return true;
    }
    Snmp_pp::OctetStr octets;
    if (binding.get_value(octets) != SNMP_CLASS_SUCCESS || !octets.valid()) return false;
    value.octets.assign(reinterpret_cast<const char*>(octets.data()), octets.len());
    return true;
}

bool readAddress(const Agentpp::Vbx& binding, SnmpValue& value) {
    Snmp_pp::IpAddress address;
    if (binding.get_value(address) != SNMP_CLASS_SUCCESS || !address.valid()) return false;
    constexpr int BYTES = 4;
    for (int i = 0; i < BYTES; ++i) value.octets += static_cast<char>(address[i]);
    return true;
}

bool readOid(const Agentpp::Vbx& binding, SnmpValue& value) {
    Snmp_pp::Oid name;
    if (binding.get_value(name) != SNMP_CLASS_SUCCESS) return false;
    const OidVector ids = oidOf(name);
    if (ids.empty()) return false;
    value.octets = octetsOfOid(ids);
    return true;
}

bool readValue(const Agentpp::Vbx& binding, SnmpValue& value) {
    value.type = static_cast<unsigned char>(binding.get_syntax());  // in both libraries the tag that BER has for it
    switch (binding.get_syntax()) {
        case sNMP_SYNTAX_INT:
            return readInteger(binding, value);
        case sNMP_SYNTAX_CNTR32:
        case sNMP_SYNTAX_GAUGE32:
        case sNMP_SYNTAX_TIMETICKS:
            return readUnsigned(binding, value);
        case sNMP_SYNTAX_CNTR64:
            return readCounter64(binding, value);
        case sNMP_SYNTAX_OCTETS:
            return readOctets(binding, value);
        case sNMP_SYNTAX_IPADDR:
            return readAddress(binding, value);
        case sNMP_SYNTAX_OID:
            return readOid(binding, value);
        default:
            return false;
    }
}

}  // namespace

OidVector oidOf(const Snmp_pp::Oid& name) {
    const Snmp_pp::SmiUINT32 length = name.len();
    if (length < SHORTEST_NAME || length > LONGEST_OID) return {};
    OidVector ids(length);
    oid all = 0;
    for (Snmp_pp::SmiUINT32 i = 0; i < length; ++i) {
        ids[i] = name[i];
        all |= ids[i];
    }
    if (all > std::numeric_limits<std::uint32_t>::max()) return {};
    return ids;
}

Notification trapOf(const Snmp_pp::Oid& trapOid, const Agentpp::Vbx* bindings, int count, int& leftOut) {
    Notification trap;
    trap.oid = oidOf(trapOid);
    leftOut = 0;
    trap.bindings.reserve(static_cast<std::size_t>(std::max(count, 0)));
    for (int i = 0; i < count; ++i) {
        NotificationBinding binding;
        binding.name = oidOf(static_cast<const Snmp_pp::Vb&>(bindings[i]).get_oid());  // Vbx's gives a copy
        if (binding.name.empty()) {
            ++leftOut;
            continue;
        }
        if (!readValue(bindings[i], binding.value)) binding.value = SnmpValue();
        trap.bindings.push_back(std::move(binding));
    }
    return trap;
}

}  // namespace vrx
