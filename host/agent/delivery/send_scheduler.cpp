#include "host/agent/delivery/send_scheduler.h"

#include <algorithm>
#include <utility>

#include "host/base/memory_retry.h"

namespace vrx {

namespace {

using std::chrono::milliseconds;

bool isAddress(const std::string& host) {
    return isIpv4Address(host) || isIpv6Address(host);
}

}  // namespace

SendScheduler::SendScheduler(AgentLoop& loop, std::function<void()> turn, milliseconds shortestSleep,
                             std::chrono::seconds resolveInterval, NameResolver::Lookup lookup)
    : m_loop(loop), m_turn(std::move(turn)), m_shortestSleep(shortestSleep) {
    m_resolver = std::make_unique<NameResolver>(
        resolveInterval,
        [this](const std::string& name, const std::string& address) {
            m_loop.post(whileAlive([this, name, address] { takeAddress(name, address); }));
        },
        std::move(lookup));
}

// The action as a task of the loop, which may outlive this object.
template <typename Action>
AgentLoop::Task SendScheduler::whileAlive(Action action) const {
    return [alive = std::weak_ptr<int>(m_alive), action = std::move(action)] {
        if (!alive.expired()) action();
    };
}

void SendScheduler::wake() {
    if (m_stopped || m_posted.exchange(true)) return;
    retryForever([this] { m_loop.post(whileAlive([this] { takeTurn(); })); });
}

void SendScheduler::takeTurn() {
    m_posted.exchange(false);  // what was done before a wake() that found a turn on its way is seen by this one
    retryForever([this] {
        if (!m_stopped) m_turn();
    });
}

void SendScheduler::sleepUntil(Clock::time_point when) {
    const Clock::time_point now = Clock::now();
    when = std::max(when, now + m_shortestSleep);
    if (m_wakeAt > now && m_wakeAt <= when) return;  // a timer is on its way
    m_loop.runAfter(std::chrono::ceil<milliseconds>(when - now), whileAlive([this, when] {
                        if (m_wakeAt == when) m_wakeAt = Clock::time_point::max();
                        wake();
                    }));
    m_wakeAt = when;  // the timer is set, and not before
}

void SendScheduler::watch(const std::set<std::string>& hosts) {
    if (hosts == m_hosts) return;
    std::set<std::string> names;
    std::map<std::string, std::string> addresses;
    for (const std::string& host : hosts) {
        if (isAddress(host)) continue;
        names.insert(host);
        addresses.emplace(host, addressOf(host));
    }
    m_resolver->watch(names);
    m_addresses = std::move(addresses);
    m_hosts = hosts;  // last: what memory was not there for is done again
}

std::string SendScheduler::addressOf(const std::string& host) const {
    if (isAddress(host)) return host;
    const auto found = m_addresses.find(host);
    return found == m_addresses.end() ? "" : found->second;
}

void SendScheduler::takeAddress(const std::string& name, const std::string& address) {
    const auto watched = m_addresses.find(name);
    if (watched == m_addresses.end()) return;
    if (!address.empty()) retryForever([&] { watched->second = address; });
    wake();
}

void SendScheduler::stop() {
    m_stopped = true;
    m_resolver.reset();
}

}  // namespace vrx
