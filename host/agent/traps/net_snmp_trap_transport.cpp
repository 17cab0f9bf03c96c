#include "host/agent/traps/net_snmp_trap_transport.h"

#include <arpa/inet.h>
#include <sys/socket.h>

#include <algorithm>

#include "host/agent/delivery/community_trap_encoder.h"
#include "host/agent/delivery/name_resolver.h"
#include "host/agent/delivery/net_snmp_errors.h"
#include "host/agent/delivery/notification_fitting.h"
#include "host/agent/delivery/notification_pdu.h"
#include "host/base/file_descriptor.h"
#include "host/snmp/hexadecimal.h"
#include "host/snmp/limits.h"
#include "host/snmp/usm_users.h"

namespace vrx {

// What the agent library read from the configuration's trapcommunity line; it declares this in no installed header.
extern "C" char* snmp_trapcommunity;

namespace {

struct CloseSession {
    void operator()(void* session) const { snmp_sess_close(session); }
};
using SessionPointer = std::unique_ptr<void, CloseSession>;

// The IPv4 address that datagrams to the destination leave from, in network byte order; 0 when it cannot be told.
std::uint32_t localAddressTowards(const TrapRoute& route) {
    sockaddr_in remote{};
    remote.sin_family = AF_INET;
    remote.sin_port = htons(static_cast<std::uint16_t>(route.port));
    if (::inet_pton(AF_INET, route.address.c_str(), &remote.sin_addr) != 1) return 0;
    const FileDescriptor probe(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!probe || ::connect(probe.get(), reinterpret_cast<const sockaddr*>(&remote), sizeof remote) != 0) return 0;
    sockaddr_in local{};
    socklen_t length = sizeof local;
    if (::getsockname(probe.get(), reinterpret_cast<sockaddr*>(&local), &length) != 0) return 0;
    return local.sin_addr.s_addr;
}

void setTooLong(TrapSendResult& result, const FittedNotification& fitted) {
    result.unsendable = true;
    result.failure = tooLongText(fitted);
}

// A session of the library. Our own bytes leave through its socket. Whatever cannot be written or sent that way goes
// through the session after all, which says why it fails.
class SessionChannel : public TrapChannel {
protected:
    SessionChannel(SessionPointer session, std::shared_ptr<TrapBuffers> buffers)
        : m_session(std::move(session)), m_buffers(std::move(buffers)) {}

    void encodeAndSend(const Notification& trap, std::uint32_t upTime, TrapSendResult& result) {
        PduPointer pdu = makePdu(trap, upTime, result.leftOut);
        if (!pdu) {
            result.failure = "no memory";
        } else if (snmp_sess_send(m_session.get(), pdu.get()) != 0) {
            (void)pdu.release();  // the library has freed it
        } else {
            char* text = nullptr;
            int systemError = 0;
            int snmpError = 0;
            snmp_sess_error(m_session.get(), &systemError, &snmpError, &text);
            result.failure = takeErrorText(text);
            result.unsendable = isFaultOfPdu(snmpError, systemError);
        }
    }

    virtual PduPointer makePdu(const Notification& trap, std::uint32_t upTime, unsigned int& /*leftOut*/) {
        return makeTrapPdu(trap, upTime);
    }

    bool sendBytes(const void* octets, std::size_t size) {
        netsnmp_transport* const transport = snmp_sess_transport(m_session.get());
        void* toRemote = nullptr;  // the session's peer
        int length = 0;
        return netsnmp_transport_send(transport, octets, static_cast<int>(size), &toRemote, &length) > 0;
    }

    netsnmp_session* session() const { return snmp_sess_session(m_session.get()); }
    TrapBuffers& buffers() const { return *m_buffers; }

private:
    SessionPointer m_session;
    std::shared_ptr<TrapBuffers> m_buffers;
};

// SNMPv3.
class UserChannel : public SessionChannel {
public:
    // `names`: octets of all names and IDs in a message.
    UserChannel(SessionPointer session, std::size_t names, std::shared_ptr<TrapBuffers> buffers)
        : SessionChannel(std::move(session), std::move(buffers)), m_names(names) {}

    TrapSendResult send(const Notification& trap, std::size_t wanted, std::uint32_t upTime) override {
        TrapSendResult result;
        BerWriter pdu(buffers().plain);
        const bool written = writeTrapPdu(pdu, trap, upTime, snmp_get_next_reqid());
        if (written && pdu.size() + mostAroundPduV3(m_names) <= std::min(wanted, LONGEST_MESSAGE)) {
            if (!sendPdu(pdu)) encodeAndSend(trap, upTime, result);
            return result;
        }
        const FittedNotification fitted(trap, longestMessageV3(trap, m_names).value_or(0), wanted);
        result.cut = fitted.cut();
        if (fitted.size() > LONGEST_MESSAGE) {
            setTooLong(result, fitted);
        } else {
            encodeAndSend(fitted.trap(), upTime, result);
        }
        return result;
    }

private:
    // The session has what the library puts around its own PDUs.
    bool sendPdu(const BerWriter& pdu) {
        netsnmp_session* const own = session();
        netsnmp_pdu header{};
        header.version = SNMP_VERSION_3;
        header.command = SNMP_MSG_TRAP2;
        header.msgid = snmp_get_next_msgid();
        header.securityModel = own->securityModel;
        header.securityLevel = own->securityLevel;
        header.securityName = own->securityName;
        header.securityNameLen = own->securityNameLen;
        header.securityEngineID = own->securityEngineID;
        header.securityEngineIDLen = own->securityEngineIDLen;
        header.contextEngineID = own->contextEngineID;
        header.contextEngineIDLen = own->contextEngineIDLen;
        header.contextName = own->contextName;
        header.contextNameLen = own->contextNameLen;
        const std::string_view message = buffers().secure.around(pdu, own, &header);
        return !message.empty() && sendBytes(message.data(), message.size());
    }

    const std::size_t m_names;
};

// SNMPv1 and SNMPv2c.
class CommunityChannel : public SessionChannel {
public:
    CommunityChannel(SessionPointer session, std::string community, std::shared_ptr<TrapBuffers> buffers)
        : SessionChannel(std::move(session), std::move(buffers)), m_community(std::move(community)) {}

    TrapSendResult send(const Notification& trap, std::size_t wanted, std::uint32_t upTime) override {
        TrapSendResult result;
        BerWriter whole(buffers().plain);
        if (!write(whole, trap, upTime, result.leftOut)) {
            encodeAndSend(trap, upTime, result);
        } else if (whole.size() <= wanted && !whole.overflowed()) {
            if (!sendBytes(whole.data(), whole.size())) encodeAndSend(trap, upTime, result);
        } else {
            sendShorter(FittedNotification(trap, whole.size(), wanted), upTime, result);
        }
        return result;
    }

protected:
    const std::string& community() const { return m_community; }

    virtual bool write(BerWriter& out, const Notification& trap, std::uint32_t upTime, unsigned int& /*leftOut*/) {
        return writeTrap(out, trap, m_community, upTime, snmp_get_next_reqid());
    }

private:
    void sendShorter(const FittedNotification& fitted, std::uint32_t upTime, TrapSendResult& result) {
        BerWriter out(buffers().plain);
        (void)write(out, fitted.trap(), upTime, result.leftOut);  // it could be written
        result.cut = fitted.cut();
        if (out.overflowed()) {
            setTooLong(result, fitted);
        } else if (!sendBytes(out.data(), out.size())) {
            encodeAndSend(fitted.trap(), upTime, result);
        }
    }

    std::string m_community;
};

class V1Channel : public CommunityChannel {
public:
    V1Channel(SessionPointer session, std::string community, std::shared_ptr<TrapBuffers> buffers,
              std::uint32_t agentAddress)
        : CommunityChannel(std::move(session), std::move(community), std::move(buffers)),
          m_agentAddress(agentAddress) {}

protected:
    PduPointer makePdu(const Notification& trap, std::uint32_t upTime, unsigned int& leftOut) override {
        return makeTrapPduV1(trap, upTime, m_agentAddress, leftOut);
    }
    bool write(BerWriter& out, const Notification& trap, std::uint32_t upTime, unsigned int& leftOut) override {
        return writeTrapV1(out, trap, community(), upTime, m_agentAddress, leftOut);
    }

private:
    std::uint32_t m_agentAddress;
};

bool hasKey(const oid* protocol, std::size_t length, const oid* none, std::size_t noneLength, std::size_t keyLength) {
    return protocol != nullptr && snmp_oid_compare(protocol, length, none, noneLength) != 0 && keyLength > 0;
}

Expected<std::unique_ptr<TrapChannel>> openUser(const TrapRoute& route, netsnmp_session& wanted,
                                                const std::shared_ptr<TrapBuffers>& buffers) {
    std::string user = route.name;
    std::string engine = ownEngineId();
    auto* const engineId = reinterpret_cast<u_char*>(engine.data());
    wanted.version = SNMP_VERSION_3;
    wanted.flags |= SNMP_FLAGS_DONT_PROBE;  // the sender of a trap is the authority: there is nobody to ask
    wanted.securityModel = USM_SEC_MODEL_NUMBER;
    wanted.securityLevel = route.level;
    wanted.securityName = user.data();
    wanted.securityNameLen = user.size();
    wanted.securityEngineID = engineId;
    wanted.securityEngineIDLen = engine.size();
    wanted.contextEngineID = engineId;
    wanted.contextEngineIDLen = engine.size();
    SessionPointer session(snmp_sess_open(&wanted));
    if (!session) return Unexpected{openingError(wanted)};
    return std::make_unique<UserChannel>(std::move(session), user.size() + 2 * engine.size(), buffers);
}

}  // namespace

TrapEngine NetSnmpTrapTransport::engine() {
    return {hexadecimal(ownEngineId()), static_cast<std::uint32_t>(snmpv3_local_snmpEngineBoots())};
}

std::uint32_t NetSnmpTrapTransport::upTime() {
    return static_cast<std::uint32_t>(netsnmp_get_agent_uptime());
}

std::string NetSnmpTrapTransport::community() {
    return snmp_trapcommunity != nullptr ? snmp_trapcommunity : "";
}

std::optional<int> NetSnmpTrapTransport::levelOfUser(const std::string& user) {
    const std::string engine = ownEngineId();
    const usmUser* found = usm_get_user(reinterpret_cast<const u_char*>(engine.data()), engine.size(), user.c_str());
    if (found == nullptr || found->userStatus != RS_ACTIVE) return std::nullopt;
    constexpr std::size_t NONE_LENGTH = 10;  // 1.3.6.1.6.3.10.1.1.1 and 1.3.6.1.6.3.10.1.2.1
    if (!hasKey(found->authProtocol, found->authProtocolLen, usmNoAuthProtocol, NONE_LENGTH, found->authKeyLen)) {
        return SNMP_SEC_LEVEL_NOAUTH;
    }
    if (!hasKey(found->privProtocol, found->privProtocolLen, usmNoPrivProtocol, NONE_LENGTH, found->privKeyLen)) {
        return SNMP_SEC_LEVEL_AUTHNOPRIV;
    }
    return SNMP_SEC_LEVEL_AUTHPRIV;
}

// What all versions have in common is in `wanted`; the library copies what it points to.
Expected<std::unique_ptr<TrapChannel>> NetSnmpTrapTransport::openCommunity(const TrapRoute& route,
                                                                           netsnmp_session& wanted) {
    std::string community = route.name;
    wanted.version = route.version == 1 ? SNMP_VERSION_1 : SNMP_VERSION_2c;
    wanted.community = reinterpret_cast<u_char*>(community.data());
    wanted.community_len = community.size();
    SessionPointer session(snmp_sess_open(&wanted));
    if (!session) return Unexpected{openingError(wanted)};
    if (route.version != 1) return std::make_unique<CommunityChannel>(std::move(session), route.name, m_buffers);
    return std::make_unique<V1Channel>(std::move(session), route.name, m_buffers,
                                       isIpv6Address(route.address) ? 0 : localAddressTowards(route));
}

Expected<std::unique_ptr<TrapChannel>> NetSnmpTrapTransport::open(const TrapRoute& route) {
    Expected<std::string> peer = peerName(route.address, route.port);
    if (!peer) return Unexpected{peer.failure()};
    netsnmp_session wanted;
    snmp_sess_init(&wanted);
    wanted.peername = peer->data();
    wanted.sndMsgMaxSize = LONGEST_MESSAGE;
    if (m_buffers == nullptr) m_buffers = std::make_shared<TrapBuffers>();
    return route.version == SNMPV3 ? openUser(route, wanted, m_buffers) : openCommunity(route, wanted);
}

}  // namespace vrx
