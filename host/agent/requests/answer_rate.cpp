#include "host/agent/requests/answer_rate.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <algorithm>
#include <array>
#include <cstring>

namespace vrx {

namespace {

constexpr std::size_t NETWORK = 8;        // octets of an IPv6 address that a peer is known by
constexpr std::size_t IPV4_IN_IPV6 = 12;  // octets in front of an IPv4 address that is written as one of IPv6

}  // namespace

bool AnswerRate::allows(const std::string& peer, TimePoint now) const {
    if (m_rate == 0 || peer.empty()) return true;
    const auto found = m_peers.find(peer);
    return found == m_peers.end() || aheadNow(found->second, now) < BURST * static_cast<double>(m_rate);
}

void AnswerRate::note(const std::string& peer, std::size_t octets, TimePoint now) {
    if (m_rate == 0 || peer.empty()) return;
    auto found = m_peers.find(peer);
    if (found == m_peers.end()) {
        makeRoom(now);
        found = m_peers.emplace(peer, Peer{0, now}).first;
    }
    found->second = {aheadNow(found->second, now) + static_cast<double>(octets), now};
}

double AnswerRate::aheadNow(const Peer& peer, TimePoint now) const {
    const std::chrono::duration<double> since = now - peer.at;
    return std::max(peer.ahead - since.count() * static_cast<double>(m_rate), 0.0);
}

// Forgets who is not ahead any more, and if that is nobody who is ahead least.
void AnswerRate::makeRoom(TimePoint now) {
    if (m_peers.size() < PEERS) return;
    auto least = m_peers.begin();
    for (auto at = m_peers.begin(); at != m_peers.end(); ++at) {
        if (aheadNow(at->second, now) < aheadNow(least->second, now)) least = at;
    }
    m_peers.erase(least);
}

std::string AnswerRate::peerOf(const netsnmp_pdu& request) {
    if (request.version == SNMP_VERSION_3 && request.securityLevel != SNMP_SEC_LEVEL_NOAUTH) return {};
    const void* const from = request.transport_data;
    const auto size = static_cast<std::size_t>(std::max(request.transport_data_length, 0));
    // A connection is with who answers it. What the library keeps of a datagram's sender depends on the transport.
    const bool udp =
        netsnmp_oid_equals(request.tDomain, request.tDomainLen, netsnmpUDPDomain, netsnmpUDPDomain_len) == 0;
    if (udp && from != nullptr && size == sizeof(netsnmp_indexed_addr_pair)) {
        const in_addr& address = static_cast<const netsnmp_indexed_addr_pair*>(from)->remote_addr.sin.sin_addr;
        return {reinterpret_cast<const char*>(&address), sizeof address};
    }
    if (from == nullptr || size != sizeof(sockaddr_in6)) return {};
    const in6_addr& address = static_cast<const sockaddr_in6*>(from)->sin6_addr;
    const auto* const octets = reinterpret_cast<const char*>(&address);
    if (IN6_IS_ADDR_V4MAPPED(&address)) return {octets + IPV4_IN_IPV6, sizeof(in_addr)};
    return {octets, NETWORK};
}

std::string AnswerRate::textOf(const std::string& peer) {
    std::array<char, INET6_ADDRSTRLEN> text{};
    std::array<char, sizeof(in6_addr)> octets{};
    std::memcpy(octets.data(), peer.data(), std::min(peer.size(), octets.size()));
    const bool four = peer.size() == sizeof(in_addr);
    ::inet_ntop(four ? AF_INET : AF_INET6, octets.data(), text.data(), static_cast<socklen_t>(text.size()));
    return four ? text.data() : std::string(text.data()) + "/64";
}

}  // namespace vrx
