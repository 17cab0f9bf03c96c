// A thread that the system gives no signals to: those of the process are the business of the thread that watches for
// them (host/agent/loop/signal_watch.h).
#pragma once

#include <pthread.h>

#include <csignal>
#include <thread>
#include <utility>

namespace vrx {

// Throws std::system_error when there is no thread to be had.
template <typename Work>
std::thread threadWithoutSignals(Work&& work) {
    // A new thread inherits the mask of the one that makes it.
    struct Blocked {
        Blocked() {
            sigset_t all;
            sigfillset(&all);
            pthread_sigmask(SIG_SETMASK, &all, &before);
        }
        ~Blocked() { pthread_sigmask(SIG_SETMASK, &before, nullptr); }
        Blocked(const Blocked&) = delete;
        Blocked& operator=(const Blocked&) = delete;
        sigset_t before{};
    };
    const Blocked blocked;
    return std::thread(std::forward<Work>(work));
}

}  // namespace vrx
