#include "host/agent/delivery/name_resolver.h"

#include <arpa/inet.h>
#include <net/if.h>
#include <netdb.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstdlib>
#include <map>
#include <new>
#include <system_error>
#include <thread>

#include "host/base/memory_retry.h"
#include "host/base/mutex.h"
#include "host/base/thread_without_signals.h"

namespace vrx {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::seconds;

constexpr seconds FIRST_PAUSE{1};
constexpr seconds LONGEST_PAUSE{60};

// How long the end of the program waits for a look-up that is under way.
constexpr seconds SHUTDOWN_GRACE{2};

// "" when there is none.
std::string faultOfZone(const std::string& address) {
    const std::size_t percent = address.find('%');
    if (percent == std::string::npos) {
        in6_addr v6{};
        if (::inet_pton(AF_INET6, address.c_str(), &v6) != 1) return "";
        if (!IN6_IS_ADDR_LINKLOCAL(&v6) && !IN6_IS_ADDR_MC_LINKLOCAL(&v6)) return "";
        return address + " is link-local and names no interface (" + address + "%eth0)";
    }
    const std::string zone = address.substr(percent + 1);
    if (::if_nametoindex(zone.c_str()) != 0) return "";
    char name[IF_NAMESIZE];
    const bool isNumber = zone.find_first_not_of("0123456789") == std::string::npos;
    const bool exists = isNumber && ::if_indextoname(static_cast<unsigned int>(std::strtoul(zone.c_str(), nullptr, 10)),
                                                     name) != nullptr;
    return exists ? "" : "no network interface has the zone of " + address;
}

}  // namespace

struct NameResolver::State {
    struct Name {
        Clock::time_point due;
        seconds pause = FIRST_PAUSE;  // after the next failure
    };

    seconds interval;
    Answer answer;
    Lookup lookup;

    Mutex mutex;
    ConditionVariable changed;
    std::map<std::string, Name> names GUARDED_BY(mutex);
    bool stopping GUARDED_BY(mutex) = false;
    bool running GUARDED_BY(mutex) = false;  // the thread

    void run();
    bool serve();
    std::map<std::string, Name>::iterator firstDue() REQUIRES(mutex);
    void lookUp(const std::string& name) REQUIRES(mutex);
};

std::map<std::string, NameResolver::State::Name>::iterator NameResolver::State::firstDue() {
    return std::min_element(names.begin(), names.end(),
                            [](const auto& a, const auto& b) { return a.second.due < b.second.due; });
}

void NameResolver::State::run() {
    while (retryForever([this] { return serve(); })) {
    }
}

// Waits for a name's time, or looks it up; false when there is none to wait for any more. What finds no memory leaves
// the name due, and it is looked up again.
bool NameResolver::State::serve() {
    MutexLock lock(mutex);
    if (stopping || names.empty()) {
        running = false;
        changed.notify_all();
        return false;
    }
    const auto next = firstDue();
    if (next->second.due > Clock::now()) {
        const Clock::time_point due = next->second.due;  // the entry may go while this waits
        changed.wait_until(lock, due);
    } else {
        lookUp(std::string(next->first));
    }
    return true;
}

void NameResolver::State::lookUp(const std::string& name) {
    std::string address;
    {
        const MutexUnlock unlocked(mutex);
        address = lookup(name);
    }
    const auto found = names.find(name);
    if (stopping || found == names.end()) return;
    answer(name, address);  // under the lock: the destructor waits for it
    Name& state = found->second;
    if (address.empty()) {
        state.due = Clock::now() + state.pause;
        state.pause = std::min(2 * state.pause, LONGEST_PAUSE);
    } else {
        state.due = Clock::now() + interval;
        state.pause = FIRST_PAUSE;
    }
}

NameResolver::NameResolver(seconds interval, Answer answer, Lookup lookup) : m_state(std::make_shared<State>()) {
    m_state->interval = interval;
    m_state->answer = std::move(answer);
    m_state->lookup = std::move(lookup);
}

NameResolver::~NameResolver() {
    MutexLock lock(m_state->mutex);
    m_state->stopping = true;
    m_state->changed.notify_all();
    m_state->changed.wait_for(lock, SHUTDOWN_GRACE, [this]() REQUIRES(m_state->mutex) { return !m_state->running; });
}

void NameResolver::watch(const std::set<std::string>& names) {
    const MutexLock lock(m_state->mutex);
    auto& known = m_state->names;
    for (auto name = known.begin(); name != known.end();) {
        name = names.count(name->first) == 0 ? known.erase(name) : std::next(name);
    }
    for (const std::string& name : names) {
        State::Name fresh;
        fresh.due = Clock::now();
        known.emplace(name, fresh);
    }
    m_state->changed.notify_all();
    if (known.empty() || m_state->running) return;
    try {
        threadWithoutSignals([state = m_state] { state->run(); }).detach();
        m_state->running = true;
    } catch (const std::system_error&) {
        throw std::bad_alloc();  // for whoever waits until there is memory: it is the same shortage
    }
}

std::string NameResolver::systemLookup(const std::string& name) {
    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_DGRAM;
    addrinfo* found = nullptr;
    if (::getaddrinfo(name.c_str(), nullptr, &hints, &found) != 0) return "";
    std::string address;
    for (const addrinfo* at = found; at != nullptr; at = at->ai_next) {
        if (!address.empty() && at->ai_family != AF_INET) continue;
        char text[NI_MAXHOST];
        if (::getnameinfo(at->ai_addr, at->ai_addrlen, text, sizeof text, nullptr, 0, NI_NUMERICHOST) != 0) continue;
        address = text;
        if (at->ai_family == AF_INET) break;
    }
    ::freeaddrinfo(found);
    return address;
}

bool isIpv4Address(const std::string& text) {
    in_addr address{};
    return ::inet_pton(AF_INET, text.c_str(), &address) == 1;
}

bool isIpv6Address(const std::string& text) {
    in6_addr address{};
    const std::string withoutZone = text.substr(0, text.find('%'));
    return ::inet_pton(AF_INET6, withoutZone.c_str(), &address) == 1 && text.back() != '%';
}

Expected<std::string> peerName(const std::string& address, unsigned int port) {
    const std::string fault = faultOfZone(address);
    if (!fault.empty()) return Unexpected{fault};
    return (isIpv6Address(address) ? "udp6:[" + address + "]:" : "udp:" + address + ":") + std::to_string(port);
}

}  // namespace vrx
