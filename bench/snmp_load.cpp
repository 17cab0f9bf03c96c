// A manager that costs next to nothing, so that it is the agent that a benchmark measures: SNMPv2c requests are made
// byte by byte, and of answers only what is needed to go on is read.
//
//     snmp_load walk PORT OID [REPETITIONS]   GETBULK by GETBULK until the end of the subtree
//     snmp_load get PORT OID COUNT OPEN       COUNT GETs, OPEN of them under way at a time
//
// Prints one line: how many variables came, and the seconds. Asks 127.0.0.1 as community "public". An answer that does
// not come within seconds, or is none, ends it with exit code 1.
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string>

#include "bench/manager.h"

namespace {

constexpr unsigned char OID = 0x06;
constexpr unsigned char GET = 0xA0;
constexpr unsigned char RESPONSE = 0xA2;
constexpr unsigned char GETBULK = 0xA5;
constexpr unsigned char NO_SUCH_OBJECT = 0x80;
constexpr unsigned char END_OF_MIB_VIEW = 0x82;

// Making requests

Bytes element(unsigned char tag, const Bytes& content) {
    Bytes out(1, tag);
    if (content.size() < 0x80) {
        out += static_cast<unsigned char>(content.size());
    } else {
        out += static_cast<unsigned char>(0x82);
        out += static_cast<unsigned char>(content.size() >> 8);
        out += static_cast<unsigned char>(content.size() & 0xFF);
    }
    return out + content;
}

// Four octets always: request numbers can be changed in place.
Bytes integer(std::uint32_t number) {
    Bytes content;
    for (int shift = 24; shift >= 0; shift -= 8) content += static_cast<unsigned char>((number >> shift) & 0xFF);
    return element(INTEGER, content);
}

void appendSubIdentifier(Bytes& content, unsigned long number) {
    if (number >= 0x80) {
        Bytes high;
        appendSubIdentifier(high, number >> 7);
        for (unsigned char byte : high) content += static_cast<unsigned char>(byte | 0x80);
    }
    content += static_cast<unsigned char>(number & 0x7F);
}

// The content octets of "1.3.6...."
Bytes nameOf(const char* text) {
    Bytes content;
    unsigned long first = 0;
    for (int position = 0; *text != '\0'; ++position) {
        char* end = nullptr;
        const unsigned long number = std::strtoul(text, &end, 10);
        if (end == text) throw std::runtime_error("no object identifier");
        if (position == 0) {
            first = number;
        } else {
            appendSubIdentifier(content, position == 1 ? first * 40 + number : number);
        }
        text = *end == '.' ? end + 1 : end;
    }
    return content;
}

Bytes request(unsigned char kind, std::uint32_t number, std::uint32_t repetitions, const Bytes& name) {
    const Bytes varbind = element(SEQUENCE, element(OID, name) + Bytes{0x05, 0x00});
    const Bytes community{'p', 'u', 'b', 'l', 'i', 'c'};
    const Bytes pdu = integer(number) + integer(0) + integer(repetitions) + element(SEQUENCE, varbind);
    return element(SEQUENCE, integer(1) + element(OCTETS, community) + element(kind, pdu));
}

// Reading answers

// The varbinds of an answer without an error.
View varbindsOf(View message) {
    Reader outer(Reader(message).expect(SEQUENCE));
    outer.expect(INTEGER);
    outer.expect(OCTETS);
    Reader pdu(outer.expect(RESPONSE));
    pdu.expect(INTEGER);
    for (unsigned char error : pdu.expect(INTEGER)) {
        if (error != 0) throw std::runtime_error("the agent answers with an error");
    }
    pdu.expect(INTEGER);
    return pdu.expect(SEQUENCE);
}

unsigned long walk(Connection& agent, const Bytes& root, std::uint32_t repetitions) {
    unsigned long variables = 0;
    Bytes name = root;
    for (std::uint32_t number = 1;; ++number) {
        agent.send(request(GETBULK, number, repetitions, name));
        Reader varbinds(varbindsOf(agent.receive()));
        if (varbinds.done()) throw std::runtime_error("an answer is empty");
        while (!varbinds.done()) {
            Reader varbind(varbinds.expect(SEQUENCE));
            const View came = varbind.expect(OID);
            unsigned char tag = 0;
            varbind.take(tag);
            if (came.substr(0, root.size()) != View(root) || (tag >= NO_SUCH_OBJECT && tag <= END_OF_MIB_VIEW)) {
                return variables;
            }
            ++variables;
            if (varbinds.done()) name.assign(came);
        }
    }
}

// A request's number stands in the same place in all of them.
unsigned long get(Connection& agent, const Bytes& name, unsigned long count, unsigned long open) {
    const Bytes first = request(GET, 0x01020304, 0, name);
    const std::size_t place = first.find(Bytes{0x02, 0x04, 0x01, 0x02, 0x03, 0x04});
    Bytes message = first;
    const auto send = [&](unsigned long number) {
        for (std::size_t i = 0; i < 4; ++i) {
            message[place + 2 + i] = static_cast<unsigned char>((number >> (8 * (3 - i))) & 0xFF);
        }
        agent.send(message);
    };
    ask(agent, count, open, send, varbindsOf);
    return count;
}

}  // namespace

int main(int argc, char** argv) {
    const std::string mode = argc > 3 ? argv[1] : "";
    if ((mode != "walk" || argc > 5) && (mode != "get" || argc != 6)) {
        std::fprintf(stderr, "usage: snmp_load walk PORT OID [REPETITIONS] | get PORT OID COUNT OPEN\n");
        return 2;
    }
    try {
        Connection agent(std::atoi(argv[2]));
        const Bytes name = nameOf(argv[3]);
        const auto begin = std::chrono::steady_clock::now();
        const unsigned long variables =
            mode == "walk" ? walk(agent, name, argc > 4 ? static_cast<std::uint32_t>(std::atoi(argv[4])) : 50)
                           : get(agent, name, std::strtoul(argv[4], nullptr, 10), std::strtoul(argv[5], nullptr, 10));
        const std::chrono::duration<double> time = std::chrono::steady_clock::now() - begin;
        std::printf("%lu %.6f\n", variables, time.count());
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "snmp_load: %s\n", error.what());
        return 1;
    }
}
