// A transport that keeps traps instead of sending them, and a loop that is turned by the test.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <map>
#include <new>
#include <set>
#include <string>
#include <vector>

#include "host/agent/loop/agent_loop.h"
#include "host/agent/traps/trap_sender.h"

namespace vrx {

extern "C" int agent_check_and_process(int block);  // Net-SNMP's; oid_vector.h tells why its header is not included

// Turns the loop until the condition holds; false when it does not within a generous time.
template <typename Condition>
bool turnUntil(Condition condition) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) return false;
        agent_check_and_process(0);
    }
    return true;
}

struct FakeTransport : TrapTransport {
    struct Channel : TrapChannel {
        Channel(FakeTransport& t, const TrapRoute& r) : transport(t), route(r) { ++transport.openChannels; }
        ~Channel() override { --transport.openChannels; }
        TrapSendResult send(const Notification& trap, std::size_t most, std::uint32_t upTime) override {
            if (transport.sendsWithoutMemory > 0) {
                --transport.sendsWithoutMemory;
                if (transport.onLackOfMemory) transport.onLackOfMemory();
                throw std::bad_alloc();
            }
            TrapSendResult result;
            transport.wanted = most;
            if (transport.sendFails) {
                result.failure = "network is unreachable";
                result.unsendable = transport.unsendable;
            } else {
                transport.sent[route.port].push_back(oidText(trap.oid));
                transport.messages.push_back({route.port, upTime, trap});
                result.leftOut = route.version == 1 ? transport.leftOut : 0;
                result.cut = transport.cut;
            }
            return result;
        }
        FakeTransport& transport;
        TrapRoute route;
    };

    TrapEngine engine() override { return agent; }
    std::uint32_t upTime() override { return ticks; }
    std::string community() override { return configuredCommunity; }
    std::optional<int> levelOfUser(const std::string& user) override {
        const auto found = users.find(user);
        return found == users.end() ? std::nullopt : std::optional<int>(found->second);
    }
    Expected<std::unique_ptr<TrapChannel>> open(const TrapRoute& route) override {
        routes.push_back(route);
        if (openFails) return Unexpected{"no socket"};
        return std::make_unique<Channel>(*this, route);
    }

    struct Message {
        unsigned int port;
        std::uint32_t upTime;
        Notification trap;
    };

    TrapEngine agent{"80ab", 5};
    std::uint32_t ticks = 100;  // sysUpTime
    std::string configuredCommunity = "traps";
    std::map<std::string, int> users;
    bool openFails = false;
    bool sendFails = false;
    bool unsendable = false;     // because of what is in the trap
    int sendsWithoutMemory = 0;  // so many from now on
    std::function<void()> onLackOfMemory;
    unsigned int leftOut = 0;
    unsigned int cut = 0;
    std::size_t wanted = 0;  // octets of a message, last
    int openChannels = 0;
    std::vector<TrapRoute> routes;                          // opened
    std::map<unsigned int, std::vector<std::string>> sent;  // trap OIDs by port
    std::vector<Message> messages;                          // in their order, to all ports
};

inline tTrapDestInfo destination(const std::string& index, unsigned int port, const std::string& address = "127.0.0.1",
                                 unsigned int version = 2, const std::string& user = "--") {
    tTrapDestInfo info;
    info.index = index;
    info.address = address;
    info.port = port;
    info.version = version;
    info.user = user;
    return info;
}

inline std::shared_ptr<const Notification> trapNumbered(unsigned long number) {
    auto trap = std::make_shared<Notification>();
    trap->oid = {1, 3, 6, 1, 9, 0, number};
    return trap;
}

}  // namespace vrx
