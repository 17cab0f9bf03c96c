// Signals as events of the agent's loop: no code of ours runs in a signal handler.
//
// Threads: agent thread; made before any other thread, which then leave the signals to it.
#pragma once

#include <functional>
#include <map>

namespace vrx {

class SignalWatch {
public:
    // Blocks the signals and calls their function from the loop. Throws std::system_error.
    explicit SignalWatch(std::map<int, std::function<void()>> actions);
    ~SignalWatch();  // the signals stay blocked
    SignalWatch(const SignalWatch&) = delete;
    SignalWatch& operator=(const SignalWatch&) = delete;

private:
    void deliver();

    std::map<int, std::function<void()>> m_actions;
    int m_descriptor;
};

}  // namespace vrx
