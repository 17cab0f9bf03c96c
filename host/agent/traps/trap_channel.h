// The way of traps to one destination, and who opens it. The sender decides when a trap goes out and counts what became
// of it; a channel encodes it and hands it to the network.
//
// Threads: agent thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "host/base/expected.h"
#include "host/notification_log/notification.h"

namespace vrx {

// All that makes two channels the same.
struct TrapRoute {
    std::string address;  // IPv4 or IPv6, the latter with or without a zone
    unsigned int port = 0;
    unsigned int version = 0;  // 1, 2, 3: SNMPv1, v2c, v3
    std::string name;          // the community, or the user of SNMPv3
    int level = 0;             // of SNMPv3, as Net-SNMP numbers security levels

    bool operator==(const TrapRoute& other) const {
        return address == other.address && port == other.port && version == other.version && name == other.name &&
               level == other.level;
    }
};

struct TrapSendResult {
    std::string failure;       // empty: handed to the network
    bool unsendable = false;   // no way takes a message of this trap: it is not the destination that fails
    unsigned int leftOut = 0;  // bindings that the version cannot carry
    unsigned int cut = 0;      // texts that were shortened
};

class TrapChannel {
public:
    virtual ~TrapChannel() = default;

    // In a message of at most `wanted` octets, or the shortest that can be made; see notification_fitting.h. `upTime`
    // is the sysUpTime that it carries.
    virtual TrapSendResult send(const Notification& trap, std::size_t wanted, std::uint32_t upTime) = 0;
};

// The SNMP engine that traps come from.
struct TrapEngine {
    std::string id;           // hexadecimal digits
    std::uint32_t boots = 0;  // snmpEngineBoots
};

class TrapTransport {
public:
    virtual ~TrapTransport() = default;

    virtual TrapEngine engine() = 0;

    // sysUpTime; it never goes back, but for its wrap.
    virtual std::uint32_t upTime() = 0;

    // The community of destinations that name none; empty when none is configured.
    virtual std::string community() = 0;

    // The best level that a user's keys allow; nothing when there is no such user.
    virtual std::optional<int> levelOfUser(const std::string& user) = 0;

    virtual Expected<std::unique_ptr<TrapChannel>> open(const TrapRoute& route) = 0;
};

}  // namespace vrx
