// Whether addresses can be reached, as far as this machine can tell: a host name has an address, and there is a route
// to it. Nothing is sent.
//
//     Connectivity connectivity;
//     if (connectivity.isReachable("nms.example.com")) ...
//
// Answers come from a cache that a thread of its own keeps fresh; it starts with the first question. That about a
// numeric address looks at the routes at once; a host name counts as not reachable until it is resolved. Addresses that
// nobody asks for are forgotten.
//
// Threads: isReachable() and size() from any, they never wait for the network; stop() while nobody asks.
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>

namespace vrx {

class Connectivity {
public:
    struct Options {
        std::chrono::milliseconds refreshed{30'000};   // age at which an answer is looked up again
        std::chrono::milliseconds forgotten{600'000};  // time without a question after which an address is dropped
        std::size_t capacity = 1024;                   // addresses; beyond it the one not asked for the longest goes

        // Looks at the network; may block for host names. For a numeric address it must not.
        std::function<bool(const std::string& address)> look = lookAtNetwork;
    };

    Connectivity();
    explicit Connectivity(Options options);
    ~Connectivity();  // as stop()
    Connectivity(const Connectivity&) = delete;
    Connectivity& operator=(const Connectivity&) = delete;

    // The thread ends; one that hangs in a look-up is left to end by itself after a moment. A later question starts
    // another one.
    void stop();

    bool isReachable(const std::string& address);
    std::size_t size() const;  // addresses in the cache

    // Resolves a host name (blocking) and asks the system for a route.
    static bool lookAtNetwork(const std::string& address);

private:
    struct State;

    const std::shared_ptr<State> m_state;  // shared with the thread, which may outlive this object
};

// The one after testDomainConnectivity.
Connectivity& processConnectivity();

}  // namespace vrx
