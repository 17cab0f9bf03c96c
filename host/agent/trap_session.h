// Traps over Net-SNMP: a session of its own per destination, users and engine ID from the engine of this process.
//
// Threads: agent thread.
#pragma once

#include "host/agent/trap_channel.h"

class NetSnmpTrapTransport : public TrapTransport {
public:
    std::string community() override;
    std::optional<int> levelOfUser(const std::string& user) override;
    std::unique_ptr<TrapChannel> open(const TrapRoute& route, std::string& failure) override;
};
