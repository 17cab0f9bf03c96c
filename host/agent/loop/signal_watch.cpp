#include "host/agent/loop/signal_watch.h"

#include <pthread.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <system_error>
#include <utility>

#include "host/snmp/net_snmp.h"

namespace vrx {

SignalWatch::SignalWatch(std::map<int, std::function<void()>> actions) : m_actions(std::move(actions)) {
    sigset_t signals;
    sigemptyset(&signals);
    for (const auto& [signal, action] : m_actions) sigaddset(&signals, signal);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    m_descriptor = ::signalfd(-1, &signals, SFD_NONBLOCK | SFD_CLOEXEC);
    if (m_descriptor < 0) throw std::system_error(errno, std::generic_category(), "signalfd");
    register_readfd(
        m_descriptor, [](int, void* self) { static_cast<SignalWatch*>(self)->deliver(); }, this);
}

SignalWatch::~SignalWatch() {
    unregister_readfd(m_descriptor);
    ::close(m_descriptor);
}

void SignalWatch::deliver() {
    signalfd_siginfo info{};
    while (::read(m_descriptor, &info, sizeof info) == static_cast<ssize_t>(sizeof info)) {
        const auto action = m_actions.find(static_cast<int>(info.ssi_signo));
        if (action != m_actions.end()) action->second();
    }
}

}  // namespace vrx
