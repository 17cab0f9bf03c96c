#include "host/snmp/secure_message.h"

#include "host/snmp/limits.h"

namespace vrx {

std::string_view SecureMessage::around(const BerWriter& pdu, netsnmp_session* session, netsnmp_pdu* header) {
    if (m_octets == nullptr) {
        m_octets = static_cast<unsigned char*>(std::malloc(LONGEST_MESSAGE));
        if (m_octets == nullptr) return {};
        m_size = LONGEST_MESSAGE;
    }
    std::size_t used = 0;
    const int result = snmpv3_packet_realloc_rbuild(&m_octets, &m_size, &used, session, header,
                                                    const_cast<unsigned char*>(pdu.data()), pdu.size());
    if (result != SNMPERR_SUCCESS) return {};
    return {reinterpret_cast<const char*>(m_octets) + (m_size - used), used};
}

}  // namespace vrx
