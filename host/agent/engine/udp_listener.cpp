#include "host/agent/engine/udp_listener.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/uio.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace vrx {

namespace {

using Pair = netsnmp_indexed_addr_pair;

// Room for one IP_PKTINFO (ip(7)): which address a request came to, which one an answer leaves from.
union tControl {
    cmsghdr alignment;
    unsigned char bytes[CMSG_SPACE(sizeof(in_pktinfo))];
};

msghdr messageOf(iovec& part, sockaddr_in& peer, tControl& control) {
    msghdr message{};
    message.msg_name = &peer;
    message.msg_namelen = sizeof peer;
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = &control;
    message.msg_controllen = sizeof control;
    return message;
}

// The address that an answer has to come from: of the broadcast or multicast addresses a request may be sent to, one of
// the system's own.
void noteLocalAddress(msghdr& message, Pair& pair) {
    for (cmsghdr* entry = CMSG_FIRSTHDR(&message); entry != nullptr; entry = CMSG_NXTHDR(&message, entry)) {
        if (entry->cmsg_level != IPPROTO_IP || entry->cmsg_type != IP_PKTINFO) continue;
        in_pktinfo info{};
        std::memcpy(&info, CMSG_DATA(entry), sizeof info);
        pair.local_addr.sin.sin_addr = info.ipi_spec_dst;
        pair.if_index = info.ipi_ifindex;
    }
}

// The library frees what `opaque` gets; it hands it to fmtaddr, to the access check and to send().
int receive(netsnmp_transport* transport, void* buffer, int size, void** opaque, int* length) {
    *opaque = nullptr;
    *length = 0;
    auto* const pair = static_cast<Pair*>(std::calloc(1, sizeof(Pair)));
    if (pair == nullptr) return -1;
    pair->local_addr.sin.sin_family = AF_INET;
    // The transport's own name, four octets and a port, says where it is bound.
    if (transport->local_length >= 6) {
        const auto* const local = static_cast<const unsigned char*>(transport->local);
        std::memcpy(&pair->local_addr.sin.sin_addr, local, 4);
        std::memcpy(&pair->local_addr.sin.sin_port, local + 4, 2);
    }
    iovec part{buffer, static_cast<std::size_t>(size)};
    tControl control;
    msghdr message = messageOf(part, pair->remote_addr.sin, control);
    ssize_t got = 0;
    do {
        got = ::recvmsg(transport->sock, &message, MSG_DONTWAIT);
    } while (got < 0 && errno == EINTR);
    if (got < 0) {
        std::free(pair);
        return -1;
    }
    noteLocalAddress(message, *pair);
    *opaque = pair;
    *length = sizeof(Pair);
    return static_cast<int>(got);
}

int send(netsnmp_transport* transport, const void* buffer, int size, void** opaque, int* length) {
    if (opaque == nullptr || *opaque == nullptr || length == nullptr || *length != sizeof(Pair)) {
        errno = EDESTADDRREQ;
        return -1;
    }
    Pair pair;
    std::memcpy(&pair, *opaque, sizeof pair);
    iovec part{const_cast<void*>(buffer), static_cast<std::size_t>(size)};
    tControl control{};
    msghdr message = messageOf(part, pair.remote_addr.sin, control);
    cmsghdr* const entry = CMSG_FIRSTHDR(&message);
    entry->cmsg_level = IPPROTO_IP;
    entry->cmsg_type = IP_PKTINFO;
    entry->cmsg_len = CMSG_LEN(sizeof(in_pktinfo));
    in_pktinfo info{};
    info.ipi_spec_dst = pair.local_addr.sin.sin_addr;
    std::memcpy(CMSG_DATA(entry), &info, sizeof info);
    ssize_t sent = 0;
    do {
        sent = ::sendmsg(transport->sock, &message, MSG_DONTWAIT | MSG_NOSIGNAL);
    } while (sent < 0 && errno == EINTR);
    return static_cast<int>(sent);
}

}  // namespace

void receiveDirectly(netsnmp_transport& transport) {
    const bool udp = netsnmp_oid_equals(transport.domain, static_cast<std::size_t>(transport.domain_length),
                                        netsnmpUDPDomain, netsnmpUDPDomain_len) == 0;
    if (!udp) return;
    transport.f_recv = receive;
    transport.f_send = send;
}

}  // namespace vrx
