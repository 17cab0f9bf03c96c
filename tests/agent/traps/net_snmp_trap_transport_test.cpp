#include "host/agent/traps/net_snmp_trap_transport.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <net/if.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include "host/agent/delivery/notification_fitting.h"
#include "host/base/file_descriptor.h"
#include "host/snmp/net_snmp.h"

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

// A message of SNMPv1 or v2c is counted as the library, which encodes unusual values, counts its own.
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
    Receiver receiver(AF_INET);
    NetSnmpTrapTransport transport;
    for (const unsigned int version : {1U, 2U}) {
        const auto opened = transport.open(routeTo("127.0.0.1", receiver.port(), version));
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
