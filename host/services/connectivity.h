// Whether addresses can be reached, as far as this machine can tell: a host name has an address, and there is a route
// to it. Nothing is sent.
//
//     Connectivity connectivity;
//     connectivity.start();
//     if (connectivity.isReachable("nms.example.com")) ...
//
// Answers come from a cache that a thread of its own keeps fresh. The first question about a numeric address looks at
// the routes at once; a host name counts as not reachable until it is resolved. Addresses that nobody asks for are
// forgotten. Without the thread numeric addresses are looked at anew each time, and names are never reachable.
//
// Threads: isReachable() from any, it never waits for the network; start() and stop() from one.
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <thread>

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

    void start();
    // The thread ends; one that hangs in a look-up is left to end by itself after a moment.
    void stop();

    bool isReachable(const std::string& address);
    std::size_t size() const;  // addresses in the cache

    // Resolves a host name (blocking) and asks the system for a route.
    static bool lookAtNetwork(const std::string& address);

private:
    struct State;
    const std::shared_ptr<State> m_state;  // shared with the thread, which may outlive this object
    std::thread m_thread;
};

// The one behind testDomainConnectivity. Start it when the process has its threads, stop it before the process ends.
Connectivity& processConnectivity();
