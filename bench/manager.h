// What the managers of the benchmarks have in common: reading BER, and a socket to an agent of this machine.
#pragma once

#include <arpa/inet.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>

using Bytes = std::basic_string<unsigned char>;
using View = std::basic_string_view<unsigned char>;

constexpr unsigned char INTEGER = 0x02;
constexpr unsigned char OCTETS = 0x04;
constexpr unsigned char SEQUENCE = 0x30;

constexpr std::size_t LARGEST_MESSAGE = 65536;
constexpr int ANSWER_SECONDS = 30;

class Reader {
public:
    explicit Reader(View bytes) : m_rest(bytes) {}

    bool done() const { return m_rest.empty(); }

    View take(unsigned char& tag) {
        tag = byte();
        std::size_t length = byte();
        if (length >= 0x80) {
            std::size_t octets = length & 0x7F;
            for (length = 0; octets > 0; --octets) length = (length << 8) | byte();
        }
        if (length > m_rest.size()) throw std::runtime_error("an answer is cut");
        const View content = m_rest.substr(0, length);
        m_rest.remove_prefix(length);
        return content;
    }

    View expect(unsigned char wanted) {
        unsigned char tag = 0;
        const View content = take(tag);
        if (tag != wanted) throw std::runtime_error("an answer has an unexpected element");
        return content;
    }

private:
    unsigned char byte() {
        if (m_rest.empty()) throw std::runtime_error("an answer is cut");
        const unsigned char value = m_rest.front();
        m_rest.remove_prefix(1);
        return value;
    }

    View m_rest;
};

class Connection {
public:
    explicit Connection(int port) : m_socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in agent{};
        agent.sin_family = AF_INET;
        agent.sin_port = htons(static_cast<std::uint16_t>(port));
        agent.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        const timeval wait{ANSWER_SECONDS, 0};
        if (m_socket < 0 || ::setsockopt(m_socket, SOL_SOCKET, SO_RCVTIMEO, &wait, sizeof wait) != 0 ||
            ::connect(m_socket, reinterpret_cast<const sockaddr*>(&agent), sizeof agent) != 0) {
            throw std::runtime_error("no socket");
        }
    }
    ~Connection() { ::close(m_socket); }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    void send(const Bytes& message) {
        if (::send(m_socket, message.data(), message.size(), 0) < 0) throw std::runtime_error("cannot send");
    }

    View receive() {
        const ssize_t size = ::recv(m_socket, m_buffer, sizeof m_buffer, 0);
        if (size <= 0) throw std::runtime_error("no answer");
        return {m_buffer, static_cast<std::size_t>(size)};
    }

private:
    int m_socket;
    unsigned char m_buffer[LARGEST_MESSAGE];
};

// Sends `count` requests, each of which `send` is to send, `open` of them under way at a time; `check` gets the
// answers.
template <typename Send, typename Check>
void ask(Connection& agent, unsigned long count, unsigned long open, const Send& send, const Check& check) {
    unsigned long sent = 0;
    while (sent < open && sent < count) send(sent++);
    for (unsigned long answered = 0; answered < count; ++answered) {
        check(agent.receive());
        if (sent < count) send(sent++);
    }
}
