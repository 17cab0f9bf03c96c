// A transport that keeps informs instead of sending them, and says of them what the test wants.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "host/agent/informs/inform_sender.h"
#include "tests/agent/trap_test_tools.h"

namespace vrx {

// What comes of an inform is said by the test, or is `answers`.
struct FakeInforms : InformTransport {
    struct Sent {
        std::uint64_t number;
        unsigned long event;
        std::chrono::milliseconds patience;
        std::size_t wanted;  // octets of its message
    };
    struct Channel : InformChannel {
        Channel(FakeInforms& t, const InformPeer& peer, std::function<void()> a)
            : transport(t), port(peer.port), version(peer.version), arrived(std::move(a)) {
            ++transport.openChannels;
            transport.channels[port] = this;
        }
        ~Channel() override {
            --transport.openChannels;
            if (transport.channels[port] == this) transport.channels.erase(port);
        }
        void send(const Inform& inform, std::size_t wanted, std::chrono::milliseconds patience) override {
            if (transport.sendsWithoutMemory > 0 && transport.sendsWithoutMemory-- > 0) throw std::bad_alloc();
            const auto answer = transport.answers.find(port);
            std::optional<InformOutcome> outcome;
            if (answer != transport.answers.end()) outcome = answer->second;
            transport.sent[port].push_back({inform.number, inform.trap->oid.back(), patience, wanted});
            given = std::move(outcome);
            if (given) arrived();
        }
        const InformOutcome* outcome() override { return given ? &*given : nullptr; }
        std::string engine() const override {
            if (transport.enginesWithoutMemory > 0 && transport.enginesWithoutMemory-- > 0) throw std::bad_alloc();
            return version == 3 ? "80001f" : "";
        }
        FakeInforms& transport;
        unsigned int port;
        unsigned int version;
        std::function<void()> arrived;
        std::optional<InformOutcome> given;  // of the inform that was sent last
    };

    Expected<std::unique_ptr<InformChannel>> open(const InformPeer& peer, const std::string& address,
                                                  std::function<void()> arrived) override {
        opened.push_back(address + " " + peer.name);
        if (openFails) return Unexpected{"no socket"};
        return std::make_unique<Channel>(*this, peer, std::move(arrived));
    }
    // The outcome of the inform that is under way, and the sender's turn after it.
    void finish(unsigned int port, InformOutcome::Kind kind) {
        Channel& channel = *channels.at(port);
        channel.given = {kind, true, ""};
        channel.arrived();
        agent_check_and_process(0);
    }
    std::vector<unsigned long> events(unsigned int port) {
        std::vector<unsigned long> all;
        for (const Sent& one : sent[port]) all.push_back(one.event);
        return all;
    }

    std::map<unsigned int, std::vector<Sent>> sent;  // by port, as the next two
    std::map<unsigned int, InformOutcome> answers;
    std::map<unsigned int, Channel*> channels;
    std::vector<std::string> opened;
    bool openFails = false;
    int sendsWithoutMemory = 0;  // so many from now on
    int enginesWithoutMemory = 0;
    int openChannels = 0;
};

inline InformDestination receiver(unsigned int port, const std::string& host = "127.0.0.1") {
    InformDestination destination;
    destination.peer.host = host;
    destination.peer.port = port;
    destination.peer.name = "informs";
    destination.policy.firstRetry = std::chrono::milliseconds(1);
    destination.policy.longestBackoff = std::chrono::milliseconds(4);
    return destination;
}

}  // namespace vrx
