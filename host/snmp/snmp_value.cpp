#include "host/snmp/snmp_value.h"

#include <cstdint>

#include "host/snmp/limits.h"
#include "host/snmp/net_snmp.h"

namespace vrx {

bool setVarbind(netsnmp_variable_list* varbind, unsigned char type, std::uint64_t number, std::string_view octets) {
    switch (type) {
        case ASN_INTEGER: {
            const auto value = static_cast<long>(number);
            return snmp_set_var_typed_value(varbind, type, &value, sizeof value) == 0;
        }
        case ASN_GAUGE:
        case ASN_COUNTER:
        case ASN_TIMETICKS: {
            const auto value = static_cast<unsigned long>(number);
            return snmp_set_var_typed_value(varbind, type, &value, sizeof value) == 0;
        }
        case ASN_COUNTER64: {
            const counter64 value{static_cast<u_long>(number >> 32), static_cast<u_long>(number & MAX_UNSIGNED32)};
            return snmp_set_var_typed_value(varbind, type, &value, sizeof value) == 0;
        }
        default:
            return snmp_set_var_typed_value(varbind, type, octets.data(), octets.size()) == 0;
    }
}

}  // namespace vrx
