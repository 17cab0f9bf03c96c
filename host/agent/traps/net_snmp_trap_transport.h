// Traps over Net-SNMP: a session of its own per destination, users and engine ID from the engine of this process.
// Messages of SNMPv1 and SNMPv2c are written here (community_trap_encoder.h) and leave through the session's socket.
//
// Threads: agent thread.
#pragma once

#include <vector>

#include "host/agent/traps/trap_channel.h"
#include "host/snmp/net_snmp.h"

namespace vrx {

// Room for the longest message.
using TrapBuffer = std::vector<unsigned char>;

class NetSnmpTrapTransport : public TrapTransport {
public:
    TrapEngine engine() override;
    std::uint32_t upTime() override;
    std::string community() override;
    std::optional<int> levelOfUser(const std::string& user) override;
    Expected<std::unique_ptr<TrapChannel>> open(const TrapRoute& route) override;

private:
    Expected<std::unique_ptr<TrapChannel>> openCommunity(const TrapRoute& route, netsnmp_session& wanted);

    std::shared_ptr<TrapBuffer> m_buffer;  // one for all channels: they send one after the other
};

}  // namespace vrx
