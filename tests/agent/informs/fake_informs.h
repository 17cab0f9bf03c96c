// A transport that keeps informs instead of sending them, and says of them what the test wants.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "host/agent/informs/inform_sender.h"
#include "host/notification_log/tamrel_notifications.h"
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
            underWay.push_back(inform.number);
            if (outcome) give(inform.number, std::move(*outcome));
        }
        bool sendAgain(std::uint64_t number) override {
            if (transport.sendsWithoutMemory > 0 && transport.sendsWithoutMemory-- > 0) throw std::bad_alloc();
            transport.sentAgain[port].push_back(number);
            return true;
        }
        const InformOutcome* outcome() override { return given.empty() ? nullptr : &given.front(); }
        void forget() override { given.pop_front(); }
        void give(std::uint64_t number, InformOutcome outcome) {
            const auto at = std::find(underWay.begin(), underWay.end(), number);
            if (at == underWay.end()) throw std::logic_error("not under way");
            underWay.erase(at);
            outcome.number = number;
            given.push_back(std::move(outcome));
            arrived();
        }
        std::string engine() const override {
            if (transport.enginesWithoutMemory > 0 && transport.enginesWithoutMemory-- > 0) throw std::bad_alloc();
            return version == 3 ? "80001f" : "";
        }
        FakeInforms& transport;
        unsigned int port;
        unsigned int version;
        std::function<void()> arrived;
        std::vector<std::uint64_t> underWay;  // numbers, in the order in which they were sent
        std::deque<InformOutcome> given;
    };

    Expected<std::unique_ptr<InformChannel>> open(const InformPeer& peer, const std::string& address,
                                                  std::function<void()> arrived) override {
        opened.push_back(address + " " + peer.name);
        if (openFails) return Unexpected{"no socket"};
        return std::make_unique<Channel>(*this, peer, std::move(arrived));
    }
    // The outcome of the inform that has been under way for longest, and the sender's turn after it.
    void finish(unsigned int port, InformOutcome::Kind kind) { finish(port, channels.at(port)->underWay.at(0), kind); }
    void finish(unsigned int port, std::uint64_t number, InformOutcome::Kind kind) {
        channels.at(port)->give(number, {kind, true, ""});
        agent_check_and_process(0);
    }
    std::vector<unsigned long> events(unsigned int port) {
        std::vector<unsigned long> all;
        for (const Sent& one : sent[port]) all.push_back(one.event);
        return all;
    }

    std::map<unsigned int, std::vector<Sent>> sent;                // by port, as the next three
    std::map<unsigned int, std::vector<std::uint64_t>> sentAgain;  // while they were under way
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

// A trap about an alarm, numbered like trapNumbered().
inline std::shared_ptr<const Notification> alarmTrap(unsigned long number, std::uint32_t serial,
                                                     const std::string& location, std::uint64_t alarm = 1) {
    auto trap = std::make_shared<Notification>(*trapNumbered(number));
    const auto bind = [&trap](unsigned int place, unsigned char type, std::uint64_t value, const std::string& octets) {
        OidVector name = parseOid(tamrel_notification::COMMON_BASE);
        name.insert(name.end(), {place, 0});
        trap->bindings.push_back({name, {type, value, octets}});
    };
    constexpr unsigned char OCTETS = 0x04;
    constexpr unsigned char UNSIGNED = 0x42;
    constexpr unsigned char COUNTER64 = 0x46;
    bind(tamrel_notification::LOCATION, OCTETS, 0, location);
    bind(tamrel_notification::SERIAL, UNSIGNED, serial, "");
    bind(tamrel_notification::ALARM, COUNTER64, alarm, "");
    return trap;
}

}  // namespace vrx
