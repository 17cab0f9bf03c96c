// Bounds what a peer gets that has not proved who it is: a datagram of SNMPv1, v2c or an SNMPv3 user without
// authentication may carry another's address, who would then get answers that are a thousand times as long.
//
//     if (!rate.allows(peer, now)) return;  // the request is dropped
//     rate.note(peer, octets, now);         // of its answer
//
// A peer is an IPv4 address, or half an IPv6 address: its ports are as easily made up. It may be ahead by BURST
// seconds' octets, so that nobody notices who walks whole tables now and then.
//
// Threads: agent thread only.
#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <unordered_map>

#include "host/snmp/net_snmp.h"

namespace vrx {

class AnswerRate {
public:
    using TimePoint = std::chrono::steady_clock::time_point;

    static constexpr double BURST = 10;          // seconds
    static constexpr std::size_t PEERS = 1'000;  // remembered at a time

    explicit AnswerRate(std::size_t octetsPerSecond) : m_rate(octetsPerSecond) {}
    void setRate(std::size_t octetsPerSecond) { m_rate = octetsPerSecond; }  // 0: no bound

    bool allows(const std::string& peer, TimePoint now) const;
    void note(const std::string& peer, std::size_t octets, TimePoint now);

    // Who gets the answer to a request, if it has to be bounded, else "".
    static std::string peerOf(const netsnmp_pdu& request);
    static std::string textOf(const std::string& peer);

private:
    struct Peer {
        double ahead = 0;  // octets, at the time
        TimePoint at;
    };

    double aheadNow(const Peer& peer, TimePoint now) const;
    void makeRoom(TimePoint now);

    std::size_t m_rate;
    std::unordered_map<std::string, Peer> m_peers;
};

}  // namespace vrx
