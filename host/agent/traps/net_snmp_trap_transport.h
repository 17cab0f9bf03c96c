// Traps over Net-SNMP: a session of its own per destination, users and engine ID from the engine of this process.
// Messages of SNMPv1 and SNMPv2c and the PDUs of SNMPv3 are written here (community_trap_encoder.h); the library's
// security model makes messages of the latter. All leave through the session's socket.
//
// Threads: agent thread.
#pragma once

#include <vector>

#include "host/agent/traps/trap_channel.h"
#include "host/snmp/limits.h"
#include "host/snmp/net_snmp.h"
#include "host/snmp/secure_message.h"

namespace vrx {

// Room for the longest message, and for one around it.
struct TrapBuffers {
    std::vector<unsigned char> plain = std::vector<unsigned char>(LONGEST_MESSAGE);
    SecureMessage secure;
};

class NetSnmpTrapTransport : public TrapTransport {
public:
    TrapEngine engine() override;
    std::uint32_t upTime() override;
    std::string community() override;
    std::optional<int> levelOfUser(const std::string& user) override;
    Expected<std::unique_ptr<TrapChannel>> open(const TrapRoute& route) override;

private:
    Expected<std::unique_ptr<TrapChannel>> openCommunity(const TrapRoute& route, netsnmp_session& wanted);

    std::shared_ptr<TrapBuffers> m_buffers;  // one for all channels: they send one after the other
};

}  // namespace vrx
