#include "host/agent/engine/udp_listener.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <stdexcept>
#include <string>

namespace vrx {

namespace {

sockaddr_in ipv4(const char* address, unsigned int port) {
    sockaddr_in result{};
    result.sin_family = AF_INET;
    result.sin_port = htons(static_cast<std::uint16_t>(port));
    ::inet_pton(AF_INET, address, &result.sin_addr);
    return result;
}

std::string textOf(const sockaddr_in& address) {
    std::array<char, INET_ADDRSTRLEN> text{};
    ::inet_ntop(AF_INET, &address.sin_addr, text.data(), text.size());
    return text.data() + (":" + std::to_string(ntohs(address.sin_port)));
}

// A manager's socket that takes answers from that address and port only.
class Manager {
public:
    Manager(const char* asked, unsigned int port) : m_socket(::socket(AF_INET, SOCK_DGRAM, 0)) {
        const sockaddr_in own = ipv4("127.0.0.1", 0);
        const sockaddr_in agent = ipv4(asked, port);
        if (::bind(m_socket, reinterpret_cast<const sockaddr*>(&own), sizeof own) != 0 ||
            ::connect(m_socket, reinterpret_cast<const sockaddr*>(&agent), sizeof agent) != 0) {
            throw std::runtime_error("no socket");
        }
    }
    ~Manager() { ::close(m_socket); }
    Manager(const Manager&) = delete;
    Manager& operator=(const Manager&) = delete;

    void say(const std::string& text) const {
        ASSERT_EQ(::send(m_socket, text.data(), text.size(), 0), static_cast<ssize_t>(text.size()));
    }
    std::string hear() const {
        pollfd wanted{m_socket, POLLIN, 0};
        if (::poll(&wanted, 1, 5000) != 1) return "nothing";
        std::array<char, 100> text{};
        const ssize_t got = ::recv(m_socket, text.data(), text.size(), 0);
        return {text.data(), static_cast<std::size_t>(std::max<ssize_t>(got, 0))};
    }
    std::string address() const {
        sockaddr_in own{};
        socklen_t size = sizeof own;
        ::getsockname(m_socket, reinterpret_cast<sockaddr*>(&own), &size);
        return textOf(own);
    }

private:
    int m_socket;
};

class UdpListener : public ::testing::Test {
protected:
    static void SetUpTestSuite() { netsnmp_tdomain_init(); }

    ~UdpListener() override {
        std::free(m_from);
        if (m_transport == nullptr) return;
        m_transport->f_close(m_transport);
        netsnmp_transport_free(m_transport);
    }

    void listen(const std::string& address) {
        m_transport = netsnmp_transport_open_server("snmp", address.c_str());
        ASSERT_NE(m_transport, nullptr);
        receiveDirectly(*m_transport);
    }
    unsigned int port() const {
        sockaddr_in own{};
        socklen_t size = sizeof own;
        ::getsockname(m_transport->sock, reinterpret_cast<sockaddr*>(&own), &size);
        return ntohs(own.sin_port);
    }
    // The next message; who sent it is known afterwards.
    std::string receive(int room = 100) {
        pollfd wanted{m_transport->sock, POLLIN, 0};
        if (::poll(&wanted, 1, 5000) != 1) return "nothing";
        std::string text(static_cast<std::size_t>(room), '-');
        std::free(m_from);
        const int got = m_transport->f_recv(m_transport, text.data(), room, &m_from, &m_fromLength);
        return got < 0 ? "error" : text.substr(0, static_cast<std::size_t>(got));
    }
    int answer(const std::string& text) {
        return netsnmp_transport_send(m_transport, text.data(), static_cast<int>(text.size()), &m_from, &m_fromLength);
    }
    const netsnmp_indexed_addr_pair& from() const { return *static_cast<netsnmp_indexed_addr_pair*>(m_from); }

    netsnmp_transport* m_transport = nullptr;
    void* m_from = nullptr;
    int m_fromLength = 0;
};

}  // namespace

TEST_F(UdpListener, SenderAndOwnAddressAreKnownOfARequest) {
    listen("udp:127.0.0.1:0");
    const Manager manager("127.0.0.1", port());
    manager.say("question");
    EXPECT_EQ(receive(), "question");
    EXPECT_EQ(m_fromLength, static_cast<int>(sizeof(netsnmp_indexed_addr_pair)));
    EXPECT_EQ(from().remote_addr.sin.sin_family, AF_INET);
    EXPECT_EQ(textOf(from().remote_addr.sin), manager.address());
    EXPECT_EQ(from().local_addr.sin.sin_family, AF_INET);
    EXPECT_EQ(textOf(from().local_addr.sin).rfind("127.0.0.1:", 0), 0U);
}

TEST_F(UdpListener, AnAnswerComesFromTheAddressThatWasAsked) {
    listen("udp:0.0.0.0:0");
    for (const char* address : {"127.0.0.1", "127.0.0.2", "127.3.2.1"}) {
        const Manager manager(address, port());
        manager.say("question");
        ASSERT_EQ(receive(), "question");
        EXPECT_EQ(answer("answer"), 6);
        EXPECT_EQ(manager.hear(), "answer") << address;
    }
}

TEST_F(UdpListener, AnEmptyDatagramIsAMessageOfNoLength) {
    listen("udp:127.0.0.1:0");
    const Manager manager("127.0.0.1", port());
    manager.say("");
    EXPECT_EQ(receive(), "");
    EXPECT_EQ(textOf(from().remote_addr.sin), manager.address());
}

TEST_F(UdpListener, ADatagramThatIsTooLongIsCutAtItsRoom) {
    listen("udp:127.0.0.1:0");
    const Manager manager("127.0.0.1", port());
    manager.say("question");
    EXPECT_EQ(receive(3), "que");
}

TEST_F(UdpListener, WithoutAMessageNothingIsHandedOut) {
    listen("udp:127.0.0.1:0");
    char byte = '-';
    EXPECT_EQ(m_transport->f_recv(m_transport, &byte, 1, &m_from, &m_fromLength), -1);
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_EQ(m_from, nullptr);
    EXPECT_EQ(m_fromLength, 0);
}

TEST_F(UdpListener, AnAnswerToNobodyIsRefused) {
    listen("udp:127.0.0.1:0");
    EXPECT_EQ(answer("answer"), -1);
    EXPECT_EQ(errno, EDESTADDRREQ);
}

TEST_F(UdpListener, AnAnswerTooLongForADatagramIsRefused) {
    listen("udp:127.0.0.1:0");
    const Manager manager("127.0.0.1", port());
    manager.say("question");
    ASSERT_EQ(receive(), "question");
    EXPECT_EQ(answer(std::string(70'000, 'x')), -1);
    EXPECT_EQ(errno, EMSGSIZE);
}

TEST_F(UdpListener, OtherTransportsStayTheLibrarys) {
    for (const char* address : {"udp6:[::1]:0", "tcp:127.0.0.1:0"}) {
        netsnmp_transport* const transport = netsnmp_transport_open_server("snmp", address);
        ASSERT_NE(transport, nullptr) << address;
        const auto receiving = transport->f_recv;
        const auto sending = transport->f_send;
        receiveDirectly(*transport);
        EXPECT_EQ(transport->f_recv, receiving) << address;
        EXPECT_EQ(transport->f_send, sending) << address;
        transport->f_close(transport);
        netsnmp_transport_free(transport);
    }
}

}  // namespace vrx
