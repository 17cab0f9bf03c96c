#include "host/destinations/connectivity.h"

#include <netdb.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <exception>
#include <map>
#include <system_error>
#include <thread>
#include <utility>

#include "host/base/file_descriptor.h"
#include "host/base/log_line.h"
#include "host/base/mutex.h"
#include "host/destinations/trap_destination_checks.h"
#include "host/log_lines/traps.h"
#include "platform/snmp_trap_api.h"

namespace vrx {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds STOP_TIMEOUT{2};
constexpr const char* SNMP_TRAP_PORT = "162";  // a route does not depend on the port

bool isNumeric(const std::string& address) {
    return destination_check::isIpv4Address(address) || destination_check::isIpv6Address(address);
}

// Connecting a UDP socket sends nothing and does not wait: the system looks for a route and a source address.
bool hasRoute(const addrinfo& address) {
    const FileDescriptor socket(::socket(address.ai_family, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    return socket && connect(socket.get(), address.ai_addr, address.ai_addrlen) == 0;
}

}  // namespace

struct Connectivity::State {
    explicit State(Options given) : options(std::move(given)) {}

    struct Entry {
        bool reachable = false;
        Clock::time_point due;    // when it is looked up again
        Clock::time_point asked;  // last time somebody wanted to know
    };
    using Entries = std::map<std::string, Entry>;

    const Options options;

    mutable Mutex mutex;
    ConditionVariable changed;
    Entries entries GUARDED_BY(mutex);
    std::thread thread GUARDED_BY(mutex);
    unsigned int generation GUARDED_BY(mutex) = 0;  // of the thread that is to run; one of another generation ends
    unsigned int ended GUARDED_BY(mutex) = 0;       // the last generation that has ended

    static void start(const std::shared_ptr<State>& state) REQUIRES(state->mutex);
    void run(unsigned int ownGeneration) EXCLUDES(mutex);
    Entries::iterator nextDue() REQUIRES(mutex);
    void refresh(const std::string& address) REQUIRES(mutex);  // lets go of it during the look-up
    bool look(const std::string& address) const;
    void makeRoom() REQUIRES(mutex);
};

bool Connectivity::State::look(const std::string& address) const {
    try {
        return options.look(address);
    } catch (const std::exception& error) {
        logLine<lines::LOOK_UP_FAILED>(address, error.what());
        return false;
    }
}

Connectivity::State::Entries::iterator Connectivity::State::nextDue() {
    return std::min_element(entries.begin(), entries.end(),
                            [](const auto& a, const auto& b) { return a.second.due < b.second.due; });
}

void Connectivity::State::makeRoom() {
    if (entries.empty() || entries.size() < options.capacity) return;
    entries.erase(std::min_element(entries.begin(), entries.end(),
                                   [](const auto& a, const auto& b) { return a.second.asked < b.second.asked; }));
}

void Connectivity::State::refresh(const std::string& address) {
    bool reachable = false;
    {
        const MutexUnlock unlocked(mutex);
        reachable = look(address);
    }
    const auto entry = entries.find(address);
    if (entry == entries.end()) return;  // forgotten meanwhile
    entry->second.reachable = reachable;
    entry->second.due = Clock::now() + options.refreshed;
}

void Connectivity::State::run(unsigned int ownGeneration) {
    MutexLock lock(mutex);
    while (generation == ownGeneration) {
        const auto next = nextDue();
        const auto now = Clock::now();
        if (next == entries.end()) {
            changed.wait(lock);
        } else if (next->second.due > now) {
            const auto due = next->second.due;
            changed.wait_until(lock, due);
        } else if (now - next->second.asked > options.forgotten) {
            entries.erase(next);
        } else {
            const std::string address = next->first;
            refresh(address);
        }
    }
    ended = ownGeneration;
    changed.notify_all();
}

Connectivity::Connectivity() : Connectivity(Options()) {}

Connectivity::Connectivity(Options options) : m_state(std::make_shared<State>(std::move(options))) {}

Connectivity::~Connectivity() {
    stop();
}

void Connectivity::State::start(const std::shared_ptr<State>& state) {
    const unsigned int generation = ++state->generation;
    try {
        state->thread = std::thread([state, generation] { state->run(generation); });
    } catch (const std::system_error& error) {  // the next question tries again
        logLine<lines::NO_LOOK_UP_THREAD>(error.what());
    }
}

void Connectivity::stop() {
    MutexLock lock(m_state->mutex);
    if (!m_state->thread.joinable()) return;
    std::thread thread = std::move(m_state->thread);
    const unsigned int generation = m_state->generation++;
    m_state->changed.notify_all();
    const bool ended = m_state->changed.wait_for(
        lock, STOP_TIMEOUT, [&]() REQUIRES(m_state->mutex) { return m_state->ended == generation; });
    lock.unlock();
    ended ? thread.join() : thread.detach();
}

std::size_t Connectivity::size() const {
    const MutexLock lock(m_state->mutex);
    return m_state->entries.size();
}

bool Connectivity::isReachable(const std::string& address) {
    const bool numeric = isNumeric(address);
    if (!numeric && !destination_check::isHostName(address)) return false;
    const MutexLock lock(m_state->mutex);
    if (!m_state->thread.joinable()) State::start(m_state);
    const auto now = Clock::now();
    const auto found = m_state->entries.find(address);
    if (found != m_state->entries.end()) {
        found->second.asked = now;
        return found->second.reachable;
    }

    m_state->makeRoom();
    State::Entry& entry = m_state->entries[address];
    entry.asked = now;
    entry.due = now;
    if (numeric) {
        entry.reachable = m_state->look(address);
        entry.due += m_state->options.refreshed;
    }
    m_state->changed.notify_all();
    return entry.reachable;
}

bool Connectivity::lookAtNetwork(const std::string& address) {
    addrinfo hints{};
    hints.ai_socktype = SOCK_DGRAM;
    hints.ai_flags = isNumeric(address) ? AI_NUMERICHOST | AI_NUMERICSERV : AI_NUMERICSERV;
    addrinfo* found = nullptr;
    if (getaddrinfo(address.c_str(), SNMP_TRAP_PORT, &hints, &found) != 0) return false;
    const std::unique_ptr<addrinfo, void (*)(addrinfo*)> addresses(found, &freeaddrinfo);
    for (const addrinfo* candidate = found; candidate != nullptr; candidate = candidate->ai_next) {
        if (hasRoute(*candidate)) return true;
    }
    return false;
}

Connectivity& processConnectivity() {
    static Connectivity& connectivity = *new Connectivity;  // other threads may ask until the process ends
    return connectivity;
}

}  // namespace vrx

// What platform/ declares has no namespace.
using namespace vrx;

bool testDomainConnectivity(const char* address) {
    return address != nullptr && processConnectivity().isReachable(address);
}
