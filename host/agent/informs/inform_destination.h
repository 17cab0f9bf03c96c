// A receiver of informs as the configuration has it.
//
// Threads: constant once made.
#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>

#include "host/destinations/trap_destination_checks.h"

namespace vrx {

// How the receiver is reached and spoken to.
struct InformPeer {
    std::string host;  // IPv4 or IPv6 address, or a host name
    unsigned int port = 162;
    unsigned int version = 2;  // 2 or 3: SNMPv2c, SNMPv3
    std::string name;          // the community, or the user of SNMPv3

    // SNMPv3 only. Level and protocols as Net-SNMP numbers them, IDs as their bytes. The keys are made from the
    // passphrases alone, not yet for one engine; empty ones: the engine has a user with keys for the receiver.
    int level = 1;
    int authentication = 0;
    int privacy = 0;
    std::string authenticationKey;
    std::string privacyKey;
    std::string engineId;         // of the receiver; empty: it is asked
    std::string contextEngineId;  // empty: that of this agent
    std::string contextName;

    bool operator==(const InformPeer& other) const {
        return host == other.host && port == other.port && version == other.version && name == other.name &&
               level == other.level && hasKeysOf(other) && engineId == other.engineId &&
               contextEngineId == other.contextEngineId && contextName == other.contextName;
    }

    bool hasKeysOf(const InformPeer& other) const {
        return authentication == other.authentication && privacy == other.privacy &&
               authenticationKey == other.authenticationKey && privacyKey == other.privacyKey;
    }
};

// So many informs of a receiver are looked at, to find the next one to send.
constexpr unsigned int LARGEST_INFORM_WINDOW = 256;

struct InformPolicy {
    unsigned int trapType = 1;                         // which traps, as in the trap destination table
    std::size_t queueLimit = 20000;                    // informs that wait
    unsigned int window = 32;                          // of these so many are under way at most
    std::chrono::milliseconds firstRetry{5000};        // how long the first answer is waited for; then twice as long
    std::chrono::milliseconds longestBackoff{30'000};  // and so on, up to this
    std::optional<unsigned int> retries;               // nothing: until it is acknowledged
};

struct InformDestination {
    InformPeer peer;
    InformPolicy policy;

    // What it is known by, also on disk: "192.0.2.1:162", "[2001:db8::1]:162", "nms.example.com:162".
    std::string name() const { return destination_check::addressAndPort(peer.host, peer.port); }
};

}  // namespace vrx
