// SNMPv3 messages around PDUs that are encoded already: the library's security model encrypts and signs them.
//
//     SecureMessage message;
//     const std::string_view octets = message.around(pduInBer, session, &header);
//
// Threads: agent thread.
#pragma once

#include <cstddef>
#include <cstdlib>
#include <string_view>

#include "host/snmp/ber_writer.h"
#include "host/snmp/net_snmp.h"

namespace vrx {

class SecureMessage {
public:
    SecureMessage() = default;
    ~SecureMessage() { std::free(m_octets); }
    SecureMessage(const SecureMessage&) = delete;
    SecureMessage& operator=(const SecureMessage&) = delete;

    // The whole message, valid until the next one; empty where the library cannot make it. `header` has what stands
    // around the PDU, and its type.
    std::string_view around(const BerWriter& pdu, netsnmp_session* session, netsnmp_pdu* header);

private:
    unsigned char* m_octets = nullptr;  // of the library's kind: it may grow it
    std::size_t m_size = 0;
};

}  // namespace vrx
