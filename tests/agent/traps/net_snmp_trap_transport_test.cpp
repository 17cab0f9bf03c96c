#include "host/agent/traps/net_snmp_trap_transport.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <net/if.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include <filesystem>
#include <map>

#include "host/agent/delivery/notification_fitting.h"
#include "host/agent/delivery/notification_pdu.h"
#include "host/base/file_descriptor.h"
#include "host/snmp/net_snmp.h"
#include "host/snmp/usm_users.h"

namespace vrx {

namespace {

constexpr std::uint32_t UP_TIME = 4711;

// A loopback UDP socket.
class Receiver {
public:
    explicit Receiver(int family) : m_socket(::socket(family, SOCK_DGRAM, 0)) {
        sockaddr_storage address{};
        socklen_t length = 0;
        if (family == AF_INET6) {
            auto* six = reinterpret_cast<sockaddr_in6*>(&address);
            six->sin6_family = AF_INET6;
            six->sin6_addr = in6addr_loopback;
            length = sizeof *six;
        } else {
            auto* four = reinterpret_cast<sockaddr_in*>(&address);
            four->sin_family = AF_INET;
            four->sin_addr.s_addr = htonl(INADDR_LOOPBACK);
            length = sizeof *four;
        }
        EXPECT_EQ(::bind(m_socket.get(), reinterpret_cast<sockaddr*>(&address), length), 0);
        EXPECT_EQ(::getsockname(m_socket.get(), reinterpret_cast<sockaddr*>(&address), &length), 0);
        m_port = ntohs(family == AF_INET6 ? reinterpret_cast<sockaddr_in6*>(&address)->sin6_port
                                          : reinterpret_cast<sockaddr_in*>(&address)->sin_port);
    }
    unsigned int port() const { return m_port; }

    // "" when nothing has come within a generous time.
    std::string receive() {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
        if (waitFor(m_socket.get(), POLLIN, deadline, -1) != Wait::Ready) return "";
        std::string bytes(LONGEST_MESSAGE, '\0');
        const ssize_t got = ::recv(m_socket.get(), bytes.data(), bytes.size(), 0);
        bytes.resize(got < 0 ? 0 : static_cast<std::size_t>(got));
        return bytes;
    }

private:
    FileDescriptor m_socket;
    unsigned int m_port = 0;
};

TrapRoute routeTo(const std::string& address, unsigned int port, unsigned int version) {
    TrapRoute route;
    route.address = address;
    route.port = port;
    route.version = version;
    route.name = "word";
    return route;
}

Notification coldStart() {
    Notification trap;
    trap.oid = {1, 3, 6, 1, 6, 3, 1, 1, 5, 1};
    return trap;
}

Notification withTexts(oid number, std::size_t length) {
    Notification trap = coldStart();
    for (oid i = 1; i <= number; ++i) {
        NotificationBinding binding;
        binding.name = {1, 3, 6, 1, 9, i};
        binding.value.type = ASN_OCTET_STR;
        binding.value.octets.assign(length, 'x');
        trap.bindings.push_back(binding);
    }
    return trap;
}

// An engine with a user of each security level, named like it.
const std::map<int, std::string>& users() {
    static const std::map<int, std::string> users = [] {
        std::string folder = (std::filesystem::temp_directory_path() / "trap_session_XXXXXX").string();
        if (mkdtemp(folder.data()) == nullptr) throw std::runtime_error("no folder");
        ::setenv("MIBS", "", 1);
        ::setenv("SNMP_PERSISTENT_DIR", (folder + "/net-snmp").c_str(), 1);
        ::setenv("SNMPCONFPATH", folder.c_str(), 1);
        init_snmp("trap_session");
        std::filesystem::remove_all(folder);
        for (std::string line : {"plain", "signed SHA-256 some-words", "secret SHA-256 some-words AES other-words"}) {
            usm_parse_create_usmUser("createUser", line.data());
        }
        return std::map<int, std::string>{{SNMP_SEC_LEVEL_NOAUTH, "plain"},
                                          {SNMP_SEC_LEVEL_AUTHNOPRIV, "signed"},
                                          {SNMP_SEC_LEVEL_AUTHPRIV, "secret"}};
    }();
    return users;
}

TrapRoute routeOf(const std::string& user, int level, unsigned int port) {
    TrapRoute route = routeTo("127.0.0.1", port, 3);
    route.name = user;
    route.level = level;
    return route;
}

// Takes elements of BER off the front.
class Elements {
public:
    explicit Elements(std::string bytes) : m_rest(std::move(bytes)) {}

    // The content of the next one, whose tag is that.
    std::string next(u_char tag) {
        std::size_t length = m_rest.size();
        u_char found = 0;
        const u_char* const at = octets();
        const u_char* const content = asn_parse_header(const_cast<u_char*>(at), &length, &found);
        EXPECT_NE(content, nullptr);
        EXPECT_EQ(found, tag);
        if (content == nullptr) return "";
        const auto header = static_cast<std::size_t>(content - at);
        const std::string bytes = m_rest.substr(header, length);
        m_rest.erase(0, header + length);
        return bytes;
    }
    const std::string& rest() const { return m_rest; }

private:
    const u_char* octets() const { return reinterpret_cast<const u_char*>(m_rest.data()); }

    std::string m_rest;
};

constexpr u_char SEQUENCE = ASN_SEQUENCE | ASN_CONSTRUCTOR;

std::string padded(const std::string& number) {
    constexpr std::size_t OCTETS = 4;
    return std::string(OCTETS - std::min(OCTETS, number.size()), '\0') + number;
}

// What an SNMPv3 message of SHA-256 and AES has in common with others of the same trap, in clear. Checks its signature.
struct SecureContent {
    explicit SecureContent(const std::string& bytes) {
        Elements message(Elements(bytes).next(SEQUENCE));
        EXPECT_EQ(message.next(ASN_INTEGER), "\x03");
        Elements global(message.next(SEQUENCE));
        global.next(ASN_INTEGER);  // its number
        globalData = global.rest();
        Elements security(Elements(message.next(ASN_OCTET_STR)).next(SEQUENCE));
        engine = security.next(ASN_OCTET_STR);
        const std::string boots = padded(security.next(ASN_INTEGER));
        const std::string time = padded(security.next(ASN_INTEGER));
        user = security.next(ASN_OCTET_STR);
        const std::string signature = security.next(ASN_OCTET_STR);
        signatureSize = signature.size();
        const std::string salt = security.next(ASN_OCTET_STR);
        usmUser* const keys = usm_get_user(reinterpret_cast<const u_char*>(engine.data()), engine.size(), user.c_str());
        if (keys == nullptr) throw std::runtime_error("no user " + user);
        if (!signature.empty()) expectSigned(bytes, signature, *keys);
        scoped = salt.empty() ? message.rest() : decrypted(message.next(ASN_OCTET_STR), boots + time + salt, *keys);
        // The request's number, which differs.
        Elements pdu(Elements(Elements(scoped).next(SEQUENCE)));
        contextEngine = pdu.next(ASN_OCTET_STR);
        context = pdu.next(ASN_OCTET_STR);
        Elements fields(pdu.next(SNMP_MSG_TRAP2));
        EXPECT_LE(fields.next(ASN_INTEGER).size(), 4U);
        bindings = fields.rest();
    }

    static void expectSigned(std::string bytes, const std::string& signature, const usmUser& keys) {
        const std::size_t at = bytes.find(signature);
        bytes.replace(at, signature.size(), signature.size(), '\0');
        u_char made[64];
        std::size_t size = sizeof made;
        EXPECT_EQ(sc_generate_keyed_hash(
                      keys.authProtocol, keys.authProtocolLen, keys.authKey, static_cast<u_int>(keys.authKeyLen),
                      reinterpret_cast<const u_char*>(bytes.data()), static_cast<u_int>(bytes.size()), made, &size),
                  SNMPERR_SUCCESS);
        EXPECT_EQ(std::string(reinterpret_cast<const char*>(made), signature.size()), signature);
    }

    static std::string decrypted(const std::string& bytes, std::string start, const usmUser& keys) {
        std::string clear(bytes.size() + 16, '\0');
        std::size_t size = clear.size();
        EXPECT_EQ(sc_decrypt(keys.privProtocol, keys.privProtocolLen, keys.privKey, static_cast<u_int>(keys.privKeyLen),
                             reinterpret_cast<u_char*>(start.data()), static_cast<u_int>(start.size()),
                             reinterpret_cast<u_char*>(const_cast<char*>(bytes.data())),
                             static_cast<u_int>(bytes.size()), reinterpret_cast<u_char*>(clear.data()), &size),
                  SNMPERR_SUCCESS);
        clear.resize(size);
        return clear;
    }

    std::string scoped;
    std::string globalData;  // size, flags, model
    std::string engine;
    std::string user;
    std::size_t signatureSize = 0;
    std::string contextEngine;
    std::string context;
    std::string bindings;  // after the fields for errors
};

void expectArrives(int family, const std::string& address, unsigned int version) {
    Receiver receiver(family);
    NetSnmpTrapTransport transport;
    const auto opened = transport.open(routeTo(address, receiver.port(), version));
    ASSERT_TRUE(opened) << opened.failure();
    TrapChannel* const channel = (*opened).get();
    const TrapSendResult result = channel->send(coldStart(), LONGEST_MESSAGE, UP_TIME);
    EXPECT_EQ(result.failure, "");
    const std::string message = receiver.receive();
    ASSERT_GT(message.size(), 10U);
    EXPECT_EQ(message[4], version == 1 ? 0 : 1);  // version of SNMP, after sequence and type
    EXPECT_NE(message.find("word"), std::string::npos);
}

}  // namespace

TEST(TrapSession, SnmpV1ReachesAnIpv4Address) {
    expectArrives(AF_INET, "127.0.0.1", 1);
}

TEST(TrapSession, SnmpV2cReachesAnIpv4Address) {
    expectArrives(AF_INET, "127.0.0.1", 2);
}

TEST(TrapSession, SnmpV1ReachesAnIpv6Address) {
    expectArrives(AF_INET6, "::1", 1);
}

TEST(TrapSession, SnmpV2cReachesAnIpv6AddressWithAZone) {
    expectArrives(AF_INET6, "::1%lo", 2);
}

// A message is counted as the library, which encodes unusual values, counts its own.
TEST(TrapSession, MessagesAreCountedAsTheLibraryCountsThem) {
    const auto counted = [](TrapChannel& channel, const Notification& trap) {
        std::vector<u_int> counts;
        for (int which = 0; which <= NETSNMP_STAT_MAX_STATS - 1; ++which) counts.push_back(snmp_get_statistic(which));
        EXPECT_EQ(channel.send(trap, LONGEST_MESSAGE, UP_TIME).failure, "");
        for (int which = 0; which <= NETSNMP_STAT_MAX_STATS - 1; ++which) {
            u_int& count = counts[static_cast<std::size_t>(which)];
            count = snmp_get_statistic(which) - count;
        }
        return counts;
    };
    ASSERT_EQ(users().at(SNMP_SEC_LEVEL_NOAUTH), "plain");
    Receiver receiver(AF_INET);
    NetSnmpTrapTransport transport;
    for (const unsigned int version : {1U, 2U, 3U}) {
        const auto opened = transport.open(version == 3 ? routeOf("plain", SNMP_SEC_LEVEL_NOAUTH, receiver.port())
                                                        : routeTo("127.0.0.1", receiver.port(), version));
        ASSERT_TRUE(opened) << opened.failure();
        TrapChannel* const channel = (*opened).get();
        Notification unusual = coldStart();
        NotificationBinding binding;
        binding.name = {1, 3, 6, 1, 9, 1};
        binding.value.type = ASN_OPAQUE;
        binding.value.octets = "x";
        unusual.bindings.push_back(binding);
        EXPECT_EQ(counted(*channel, coldStart()), counted(*channel, unusual)) << version;
        EXPECT_NE(receiver.receive(), "");
        EXPECT_NE(receiver.receive(), "");
    }
}

TEST(TrapSession, SecureMessagesHaveWhatTheLibraryPutsIntoThem) {
    for (const auto& [level, user] : users()) {
        SCOPED_TRACE(user);
        Receiver receiver(AF_INET);
        NetSnmpTrapTransport transport;
        EXPECT_EQ(transport.levelOfUser(user), level);
        const auto opened = transport.open(routeOf(user, level, receiver.port()));
        ASSERT_TRUE(opened) << opened.failure();

        std::string peer = "udp:127.0.0.1:" + std::to_string(receiver.port());
        std::string name = user;
        std::string engine = ownEngineId();
        netsnmp_session wanted;
        snmp_sess_init(&wanted);
        wanted.peername = peer.data();
        wanted.version = SNMP_VERSION_3;
        wanted.flags |= SNMP_FLAGS_DONT_PROBE;
        wanted.sndMsgMaxSize = LONGEST_MESSAGE;
        wanted.securityModel = USM_SEC_MODEL_NUMBER;
        wanted.securityLevel = level;
        wanted.securityName = name.data();
        wanted.securityNameLen = name.size();
        wanted.securityEngineID = reinterpret_cast<u_char*>(engine.data());
        wanted.securityEngineIDLen = engine.size();
        const std::unique_ptr<void, int (*)(void*)> library(snmp_sess_open(&wanted), snmp_sess_close);
        ASSERT_NE(library, nullptr);

        for (const Notification& trap : {coldStart(), withTexts(3, 50), withTexts(15, 1000)}) {
            EXPECT_EQ((*opened)->send(trap, LONGEST_MESSAGE, UP_TIME).failure, "");
            PduPointer pdu = makeTrapPdu(trap, UP_TIME);
            ASSERT_NE(snmp_sess_send(library.get(), pdu.get()), 0);
            (void)pdu.release();  // the library has freed it
            const SecureContent ours(receiver.receive());
            const SecureContent theirs(receiver.receive());
            EXPECT_EQ(ours.globalData, theirs.globalData);
            EXPECT_EQ(ours.engine, theirs.engine);
            EXPECT_EQ(ours.user, theirs.user);
            EXPECT_EQ(ours.signatureSize, theirs.signatureSize);
            EXPECT_EQ(ours.contextEngine, theirs.contextEngine);
            EXPECT_EQ(ours.context, theirs.context);
            EXPECT_EQ(ours.bindings, theirs.bindings);
            EXPECT_NE(ours.bindings, "");
        }
    }
}

// When the library makes it after us, it takes another number for request and message.
TEST(TrapSession, ASecureTrapIsNotMadeByTheLibraryToo) {
    for (const auto& [level, user] : users()) {
        SCOPED_TRACE(user);
        Receiver receiver(AF_INET);
        NetSnmpTrapTransport transport;
        const auto opened = transport.open(routeOf(user, level, receiver.port()));
        ASSERT_TRUE(opened) << opened.failure();
        const long number = snmp_get_next_reqid();
        const long message = snmp_get_next_msgid();
        EXPECT_EQ((*opened)->send(withTexts(3, 50), LONGEST_MESSAGE, UP_TIME).failure, "");
        EXPECT_EQ(snmp_get_next_reqid(), number + 2);
        EXPECT_EQ(snmp_get_next_msgid(), message + 2);
        EXPECT_NE(receiver.receive(), "");
    }
}

TEST(TrapSession, ASecureMessageThatIsTooLongIsSentWithShorterTexts) {
    const auto& [level, user] = *users().rbegin();
    Receiver receiver(AF_INET);
    NetSnmpTrapTransport transport;
    const auto opened = transport.open(routeOf(user, level, receiver.port()));
    ASSERT_TRUE(opened) << opened.failure();
    for (const std::size_t wanted : {LONGEST_MESSAGE, std::size_t{1400}}) {
        const TrapSendResult result = (*opened)->send(withTexts(2, 40000), wanted, UP_TIME);
        EXPECT_EQ(result.failure, "");
        EXPECT_EQ(result.cut, 2U);
        const std::string message = receiver.receive();
        EXPECT_LE(message.size(), wanted);
        EXPECT_GT(message.size(), wanted - 200);
        EXPECT_NE(SecureContent(message).bindings.find("x..."), std::string::npos);
    }
    const TrapSendResult tooLong = (*opened)->send(withTexts(2000, LONGEST_WHOLE_TEXT), LONGEST_MESSAGE, UP_TIME);
    EXPECT_TRUE(tooLong.unsendable);
    EXPECT_NE(tooLong.failure.find(" octets, with all texts shortened"), std::string::npos) << tooLong.failure;
}

// Whatever its length is: near the limit the library counts and cuts.
TEST(TrapSession, SecureMessagesOfAnyLengthAreWithinTheLimit) {
    constexpr std::size_t LIMIT = 1400;
    const auto& [level, user] = *users().rbegin();
    Receiver receiver(AF_INET);
    NetSnmpTrapTransport transport;
    const auto opened = transport.open(routeOf(user, level, receiver.port()));
    ASSERT_TRUE(opened) << opened.failure();
    bool cut = false;
    for (std::size_t length = 900; length < LIMIT; ++length) {
        const TrapSendResult result = (*opened)->send(withTexts(1, length), LIMIT, UP_TIME);
        EXPECT_EQ(result.failure, "");
        EXPECT_LE(receiver.receive().size(), LIMIT);
        EXPECT_TRUE(!cut || result.cut == 1) << length;  // none is whole again
        cut = result.cut != 0;
    }
    EXPECT_TRUE(cut);
}

TEST(TrapSession, WhyASecureTrapCannotBeSentIsWhatTheLibrarySays) {
    const int level = users().rbegin()->first;
    std::string line = "leaving SHA-256 some-words AES other-words";
    usm_parse_create_usmUser("createUser", line.data());
    NetSnmpTrapTransport transport;
    const auto opened = transport.open(routeOf("leaving", level, 9));
    ASSERT_TRUE(opened) << opened.failure();
    const std::string engine = ownEngineId();
    usmUser* const user = usm_get_user(reinterpret_cast<const u_char*>(engine.data()), engine.size(), "leaving");
    ASSERT_NE(user, nullptr);
    usm_remove_user(user);
    usm_free_user(user);
    const TrapSendResult result = (*opened)->send(coldStart(), LONGEST_MESSAGE, UP_TIME);
    EXPECT_EQ(result.failure, "USM unknown security name (no such user exists)");
    EXPECT_FALSE(result.unsendable);
}

TEST(TrapSession, AZoneThatDoesNotExistIsAFailure) {
    NetSnmpTrapTransport transport;
    EXPECT_EQ(transport.open(routeTo("fe80::1%nozone", 9, 2)).failure(),
              "no network interface has the zone of fe80::1%nozone");
}

TEST(TrapSession, ALinkLocalAddressWithoutAZoneIsAFailure) {
    NetSnmpTrapTransport transport;
    for (const std::string address : {"fe80::1", "ff02::1"}) {
        EXPECT_EQ(transport.open(routeTo(address, 9, 2)).failure(),
                  address + " is link-local and names no interface (" + address + "%eth0)");
    }
}

TEST(TrapSession, AZoneMayBeANumber) {
    expectArrives(AF_INET6, "::1%" + std::to_string(if_nametoindex("lo")), 2);
}

TEST(TrapSession, AMessageThatIsTooLongIsSentWithShorterTexts) {
    for (const unsigned int version : {1U, 2U}) {
        for (const std::size_t wanted : {LONGEST_MESSAGE, std::size_t{1400}}) {
            SCOPED_TRACE(std::to_string(version) + " " + std::to_string(wanted));
            Receiver receiver(AF_INET);
            NetSnmpTrapTransport transport;
            const auto opened = transport.open(routeTo("127.0.0.1", receiver.port(), version));
            ASSERT_TRUE(opened) << opened.failure();
            TrapChannel* const channel = (*opened).get();
            const TrapSendResult result = channel->send(withTexts(2, 40000), wanted, UP_TIME);
            EXPECT_EQ(result.failure, "");
            EXPECT_EQ(result.cut, 2U);
            const std::string message = receiver.receive();
            EXPECT_LE(message.size(), wanted);
            EXPECT_GT(message.size(), wanted - 20);
            EXPECT_NE(message.find("x..."), std::string::npos);
        }
    }
}

TEST(TrapSession, AMessageThatFitsExactlyIsSentWhole) {
    Receiver receiver(AF_INET);
    NetSnmpTrapTransport transport;
    const auto opened = transport.open(routeTo("127.0.0.1", receiver.port(), 2));
    ASSERT_TRUE(opened) << opened.failure();
    TrapChannel* const channel = (*opened).get();
    EXPECT_EQ(channel->send(withTexts(1, 65000), LONGEST_MESSAGE, UP_TIME).cut, 0U);
    const std::size_t around = receiver.receive().size() - 65000;
    for (const std::size_t more : {0U, 1U}) {
        const TrapSendResult result =
            channel->send(withTexts(1, LONGEST_MESSAGE - around + more), LONGEST_MESSAGE, UP_TIME);
        EXPECT_EQ(result.failure, "");
        EXPECT_EQ(result.cut, more);
        EXPECT_EQ(receiver.receive().size(), LONGEST_MESSAGE);
    }
}

TEST(TrapSession, ATrapThatNoMessageCanBeMadeOfIsUnsendableAndTheNextOneGoes) {
    for (const unsigned int version : {1U, 2U}) {
        SCOPED_TRACE(version);
        Receiver receiver(AF_INET);
        NetSnmpTrapTransport transport;
        const auto opened = transport.open(routeTo("127.0.0.1", receiver.port(), version));
        ASSERT_TRUE(opened) << opened.failure();
        TrapChannel* const channel = (*opened).get();
        const TrapSendResult tooLong = channel->send(withTexts(2000, LONGEST_WHOLE_TEXT), LONGEST_MESSAGE, UP_TIME);
        EXPECT_TRUE(tooLong.unsendable);
        EXPECT_NE(tooLong.failure.find(" octets, with all texts shortened"), std::string::npos) << tooLong.failure;
        Notification wrongName = withTexts(1, 1);
        wrongName.bindings.front().name = {3, 1, 2};
        const TrapSendResult wrong = channel->send(wrongName, LONGEST_MESSAGE, UP_TIME);
        EXPECT_TRUE(wrong.unsendable) << wrong.failure;
        const TrapSendResult next = channel->send(coldStart(), LONGEST_MESSAGE, UP_TIME);
        EXPECT_EQ(next.failure, "");
        EXPECT_FALSE(next.unsendable);
        EXPECT_LT(receiver.receive().size(), 200U);
    }
}

TEST(TrapSession, AUserThatNobodyCreatedIsUnknown) {
    NetSnmpTrapTransport transport;
    EXPECT_EQ(transport.levelOfUser("nobody"), std::nullopt);
}

TEST(TrapSession, WithoutConfigurationThereIsNoCommunity) {
    NetSnmpTrapTransport transport;
    EXPECT_EQ(transport.community(), "");
}

}  // namespace vrx
