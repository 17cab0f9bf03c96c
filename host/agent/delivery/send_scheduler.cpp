#include "host/agent/delivery/send_scheduler.h"

#include <algorithm>
#include <utility>

namespace vrx {

namespace {

using std::chrono::milliseconds;

bool isAddress(const std::string& host) {
    return isIpv4Address(host) || isIpv6Address(host);
}

}  // namespace

SendScheduler::SendScheduler(AgentLoop& loop, std::function<void()> turn, milliseconds shortestSleep,
                             std::chrono::seconds resolveInterval, NameResolver::Lookup lookup)
    : m_turn(std::move(turn)),
      m_shortestSleep(shortestSleep),
      m_turnWanted(loop,
                   [this] {
                       if (!m_stopped) m_turn();
                   }),
      m_answered(loop, [this] { takeAnswers(); }),
      m_timer(loop, [this] { wake(); }) {
    m_resolver = std::make_unique<NameResolver>(
        resolveInterval,
        [this](const std::string& name, const std::string& address) {
            {
                const MutexLock lock(m_mutex);
                std::string& answer = m_answers[name];  // the loop may not have come for the last one
                if (!address.empty()) answer = address;
            }
            m_answered.request();
        },
        std::move(lookup));
}

void SendScheduler::wake() noexcept {
    if (!m_stopped) m_turnWanted.request();
}

void SendScheduler::sleepUntil(Clock::time_point when) noexcept {
    const Clock::time_point now = Clock::now();
    when = std::max(when, now + m_shortestSleep);
    if (m_timer.isRunning() && m_wakeAt <= when) return;
    m_timer.start(std::chrono::ceil<milliseconds>(when - now));
    m_wakeAt = when;
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

void SendScheduler::takeAnswers() {
    std::map<std::string, std::string> answers;
    {
        const MutexLock lock(m_mutex);
        answers.swap(m_answers);
    }
    for (auto& [name, address] : answers) {
        const auto watched = m_addresses.find(name);
        if (watched == m_addresses.end()) continue;
        if (!address.empty()) watched->second.swap(address);
        wake();
    }
}

void SendScheduler::stop() {
    m_stopped = true;
    m_resolver.reset();
}

}  // namespace vrx
