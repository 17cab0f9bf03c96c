#include "host/agent/traps/trap_sender.h"

#include <algorithm>
#include <cstdlib>

#include "host/base/log_line.h"
#include "host/log_lines/traps.h"
#include "host/notification_log/notification_subject.h"
#include "host/snmp/limits.h"

namespace vrx {

namespace {

using std::chrono::milliseconds;

// Traps to one destination before others, and requests, get their turn.
constexpr int TRAPS_PER_TURN = 16;

// Waiting for the next token of every single trap would wake the agent thread more often than needed.
constexpr milliseconds SHORTEST_SLEEP{5};

constexpr const char* NO_NAME = "--";  // of a destination without user or community

const char* versionOf(const tTrapDestInfo& info) {
    static const char* const VERSIONS[] = {"", "SNMPv1", "SNMPv2c", "SNMPv3"};
    return info.version >= 1 && info.version <= SNMPV3 ? VERSIONS[info.version] : "no version";
}

// A line that begins with the destination.
template <const LogRow& ROW, typename... Values>
void logOf(const tTrapDestInfo& info, const Values&... values) {
    logLine<ROW>(info.index, info.address, info.port, versionOf(info), values...);
}

// "alarm event 5 (alarm 4295229443, serial number 7)"
std::string describe(const Notification& trap, unsigned long long sequence) {
    return sequence == 0 ? subjectOf(trap) : "alarm event " + std::to_string(sequence) + " (" + subjectOf(trap) + ")";
}

void callAll(const std::vector<TrapSender::Settled>& settled) {
    for (const TrapSender::Settled& call : settled) {
        if (call) call();
    }
}

bool sameRow(const tTrapDestInfo& a, const tTrapDestInfo& b) {
    return a.index == b.index && a.address == b.address && a.port == b.port && a.version == b.version &&
           a.trapType == b.trapType && a.user == b.user;
}

}  // namespace

TrapSender::TrapSender(AgentLoop& loop, const TrapOptions& options, TrapTransport& transport,
                       NameResolver::Lookup lookup)
    : m_options(options),
      m_transport(transport),
      m_scheduler(
          loop, [this] { takeTurn(); }, SHORTEST_SLEEP, options.resolveInterval, std::move(lookup)) {}

// Any thread

void TrapSender::setDestinations(const std::list<tTrapDestInfo>& destinations) {
    std::vector<Settled> settled;
    auto list = std::make_shared<TrapDestinationMap>();
    for (const tTrapDestInfo& info : destinations) list->emplace(trapDestinationKey(info.index), info);
    {
        const MutexLock lock(m_mutex);
        std::size_t waiting = 0;
        for (const auto& entry : m_account.all()) waiting += entry.second.queue.size();
        settled.reserve(waiting);
        for (auto at = m_account.all().begin(); at != m_account.all().end();) {
            if (list->count(at->first) != 0) {
                ++at;
                continue;
            }
            Destination& gone = at->second;
            for (const Item& item : gone.queue) dropItem(gone, item, TrapDrop::Removed, settled);
            at = m_account.retire(at);
        }
        for (const auto& [key, info] : *list) {
            Destination& destination = m_account.all()[key];
            if (!sameRow(destination.info, info)) destination.state = DestinationState::Unknown;
            destination.info = info;
        }
        m_account.setList(std::move(list));
        m_scheduler.wake();
    }
    callAll(settled);
}

std::shared_ptr<const TrapDestinationMap> TrapSender::destinations() const {
    const MutexLock lock(m_mutex);
    return m_account.list();
}

void TrapSender::submit(const NotificationOrigin& origin, const TrapDestinationMap& considered,
                        const std::list<tTrapDestInfo>& chosen, std::shared_ptr<const Notification> trap,
                        Settled settled) {
    const std::set<std::string> keys = chosenKeys(considered, chosen);
    const auto submission = std::make_shared<Submission>(std::move(trap), origin.sequence, std::move(settled));
    Queue places(keys.size());
    std::vector<Settled> due;
    due.reserve(1);
    // Nothing from here on needs memory.
    {
        const MutexLock lock(m_mutex);
        m_account.consider(considered, keys, submission->notification().get(),
                           [&](const std::string&, Destination& destination)
                               REQUIRES(m_mutex) { enqueue(destination, submission, places, due); });
        if (Settled last = submission->release()) due.push_back(std::move(last));
        m_scheduler.wake();
    }
    callAll(due);
}

// Takes one of the places, where there is room for it.
void TrapSender::enqueue(Destination& destination, const std::shared_ptr<Submission>& submission, Queue& places,
                         std::vector<Settled>& settled) {
    submission->addPart();
    places.front() = {submission, Clock::now(), ++destination.lastNumber};
    const bool unresolved = destination.state == DestinationState::Unresolved;
    if (unresolved && destination.queue.size() >= m_options.unresolvedLimit) {
        dropItem(destination, places.front(), TrapDrop::Unresolved, settled);
    } else if (destination.queue.size() >= m_options.queueLimit) {
        dropItem(destination, places.front(), TrapDrop::QueueFull, settled);
    } else {
        destination.queue.splice(destination.queue.end(), places, places.begin());
    }
}

// REQUIRES: room in `settled`, where it cannot be done again; the caller calls it without the lock.
void TrapSender::dropItem(Destination& destination, const Item& item, TrapDrop reason, std::vector<Settled>& settled) {
    destination.counters.drop(reason);
    if (Settled last = item.submission->release()) settled.push_back(std::move(last));
}

void TrapSender::refresh() {
    m_scheduler.wake();
}

TrapStatus TrapSender::status() const {
    const MutexLock lock(m_mutex);
    TrapStatus status;
    status.former = m_account.former();
    for (const auto& entry : m_account.all()) {
        const Destination& destination = entry.second;
        DestinationStatus one;
        one.index = destination.info.index;
        one.address = destination.info.address;
        one.port = destination.info.port;
        one.version = destination.info.version;
        one.resolvedAddress = destination.resolvedAddress;
        one.state = destination.state;
        one.reason = destination.reason;
        one.counters = destination.counters;
        one.counters.waiting = destination.queue.size() + (destination.sending ? 1 : 0);
        one.heartbeats = destination.heartbeats;
        status.destinations.push_back(std::move(one));
    }
    return status;
}

TrapCounters TrapSender::totals() const {
    const MutexLock lock(m_mutex);
    TrapCounters totals = m_account.former();
    for (const auto& entry : m_account.all()) {
        const Destination& destination = entry.second;
        totals.add(destination.counters);
        totals.waiting += destination.queue.size() + (destination.sending ? 1 : 0);
    }
    return totals;
}

// Agent thread

void TrapSender::stop() {
    if (m_scheduler.stopped()) return;
    m_scheduler.stop();
    storeSeries();
    m_links.clear();
    const TrapStatus last = status();
    for (const DestinationStatus& one : last.destinations) {
        logLine<lines::TRAPS_COUNTED>(one.index, one.counters.text());
    }
    if (last.former.considered > 0) logLine<lines::FORMER_TRAPS_COUNTED>(last.former.text());
}

void TrapSender::takeTurn() {
    std::set<std::string> keys;
    std::set<std::string> hosts;
    {
        const MutexLock lock(m_mutex);
        for (const auto& [key, destination] : m_account.all()) {
            keys.insert(key);
            hosts.insert(destination.info.address);
        }
    }
    closeLostLinks(keys);
    m_scheduler.watch(hosts);

    Clock::time_point nextTurn = Clock::time_point::max();
    bool more = false;
    for (const std::string& key : keys) more = serve(key, nextTurn) || more;
    if (more) {
        m_scheduler.wake();
    } else if (nextTurn != Clock::time_point::max()) {
        m_scheduler.sleepUntil(nextTurn);
    }
}

void TrapSender::closeLostLinks(const std::set<std::string>& keys) {
    for (auto link = m_links.begin(); link != m_links.end();) {
        if (keys.count(link->first) != 0) {
            ++link;
            continue;
        }
        endSeries(link->second);
        link = m_links.erase(link);
    }
}

// Sends a turn's worth of traps. Whether more could be sent at once; else `nextTurn` is when to come back at the
// latest.
bool TrapSender::serve(const std::string& key, Clock::time_point& nextTurn) {
    tTrapDestInfo info;
    {
        const MutexLock lock(m_mutex);
        const Destination* const found = m_account.find(key);
        if (found == nullptr) return false;
        info = found->info;
    }
    const auto [linkOfKey, isNew] = m_links.emplace(key, TokenBucket(m_options.rate, m_options.burst, Clock::now()));
    Link& link = linkOfKey->second;
    if (isNew) link.upTime = m_transport.upTime();
    const Readiness readiness = makeReady(info, link);
    noteState(key, readiness);
    if (readiness.state == DestinationState::Unresolved) {
        dropAged(key, nextTurn);
        return false;
    }
    if (readiness.state != DestinationState::Ready) {
        dropAll(key, readiness.drop);
        return false;
    }
    for (int i = 0; i < TRAPS_PER_TURN; ++i) {
        beatWhenDue(key, info, link);
        if (!link.channel) return true;  // to be opened anew, in another turn
        if (link.series) nextTurn = std::min(nextTurn, link.nextHeartbeat);
        if (!sendNext(key, link, nextTurn)) return false;
        if (!link.channel) return true;
    }
    return true;
}

// Opens the channel that the destination needs now, unless it is open.
TrapSender::Readiness TrapSender::makeReady(const tTrapDestInfo& info, Link& link) {
    Readiness result;
    TrapRoute route;
    route.port = info.port;
    route.version = info.version;
    route.name = info.user;
    if (info.version == SNMPV3) {
        const std::optional<int> level = m_transport.levelOfUser(info.user);
        if (!level) {
            link.channel.reset();
            result.state = DestinationState::UnknownUser;
            result.drop = TrapDrop::UnknownUser;
            return result;
        }
        route.level = *level;
    } else if (info.user == NO_NAME || info.user.empty()) {
        route.name = m_transport.community();
        if (route.name.empty()) {
            link.channel.reset();
            result.state = DestinationState::NoCommunity;
            result.drop = TrapDrop::NoCommunity;
            return result;
        }
    }
    route.address = m_scheduler.addressOf(info.address);
    if (route.address.empty()) {
        link.channel.reset();
        result.state = DestinationState::Unresolved;
        return result;
    }
    if (link.channel && link.route == route) return result;
    if (link.series && !link.series->goesTo(route)) endSeries(link);
    Expected<std::unique_ptr<TrapChannel>> opened = m_transport.open(route);
    link.channel = opened ? *std::move(opened) : nullptr;
    result.reason = opened.failure();
    link.route = route;
    link.greeted = false;
    if (!link.channel) result.state = DestinationState::Failing;
    return result;
}

// One line per change of state. A destination that failed is ready again when a trap got out.
void TrapSender::noteState(const std::string& key, const Readiness& readiness) {
    tTrapDestInfo info;
    {
        const MutexLock lock(m_mutex);
        Destination* const found = m_account.find(key);
        if (found == nullptr) return;
        Destination& destination = *found;
        const Link& link = m_links.at(key);
        destination.resolvedAddress = link.channel ? link.route.address : "";
        if (destination.state == readiness.state) {
            destination.reason = readiness.reason;
            return;
        }
        const bool hopeful = readiness.state == DestinationState::Ready && !readiness.proven;
        if (hopeful && destination.state == DestinationState::Failing) return;
        info = destination.info;
        destination.state = readiness.state;
        destination.reason = readiness.reason;
    }
    switch (readiness.state) {
        case DestinationState::Ready:
            return logOf<lines::TRAPS_READY>(info);
        case DestinationState::Unresolved:
            return logOf<lines::TRAPS_UNRESOLVED>(info);
        case DestinationState::NoCommunity:
            return logOf<lines::TRAPS_WITHOUT_COMMUNITY>(info);
        case DestinationState::UnknownUser:
            return logOf<lines::TRAPS_WITHOUT_USER>(info);
        case DestinationState::Failing:
            return readiness.lost.empty() ? logOf<lines::TRAPS_FAIL>(info, readiness.reason)
                                          : logOf<lines::TRAP_LOST>(info, readiness.reason, readiness.lost);
        default:
            return;
    }
}

void TrapSender::dropAll(const std::string& key, TrapDrop reason) {
    std::vector<Settled> settled;
    {
        const MutexLock lock(m_mutex);
        Destination* const found = m_account.find(key);
        if (found == nullptr) return;
        Destination& destination = *found;
        settled.reserve(destination.queue.size());
        for (const Item& item : destination.queue) dropItem(destination, item, reason, settled);
        destination.queue.clear();
    }
    callAll(settled);
}

void TrapSender::dropAged(const std::string& key, Clock::time_point& nextTurn) {
    std::vector<Settled> settled;
    {
        const MutexLock lock(m_mutex);
        Destination* const found = m_account.find(key);
        if (found == nullptr) return;
        Destination& destination = *found;
        settled.reserve(destination.queue.size());
        const Clock::time_point now = Clock::now();
        while (!destination.queue.empty() && destination.queue.front().since + m_options.unresolvedTime <= now) {
            dropItem(destination, destination.queue.front(), TrapDrop::Unresolved, settled);
            destination.queue.pop_front();
        }
        if (!destination.queue.empty()) {
            nextTurn = std::min(nextTurn, destination.queue.front().since + m_options.unresolvedTime);
        }
    }
    callAll(settled);
}

// Sends the first trap of the queue. False when there is none or its time has not come. Without memory for its message
// the trap stays the first one, and std::bad_alloc makes the loop take the turn again.
bool TrapSender::sendNext(const std::string& key, Link& link, Clock::time_point& nextTurn) {
    std::optional<Taken> taken = take(key, link, nextTurn);
    if (!taken) return false;
    const Submission& submission = taken->submission();
    TrapSendResult result;
    try {
        link.upTime = upTimeFrom(link.upTime);
        result = link.channel->send(*submission.notification(), m_messageSize, link.upTime);
    } catch (const std::bad_alloc&) {
        putBack(key, link, *taken);
        throw;
    }
    if (link.series && result.failure.empty()) link.series->count();
    settle(key, *taken, result);
    if (!result.unsendable) {
        link.failing = !result.failure.empty();
        if (link.failing) link.channel.reset();  // the next one may find another way
    }
    if (result.leftOut > 0) noteLeftOut(key, link);
    noteFate(key, submission, result);
    if (result.unsendable) return true;  // tells nothing of the destination
    Readiness readiness;
    readiness.proven = true;
    if (!result.failure.empty()) {
        readiness.state = DestinationState::Failing;
        readiness.reason = result.failure;
        readiness.lost = describe(*submission.notification(), submission.sequence());
    }
    noteState(key, readiness);
    return true;
}

// The first trap of the queue, and a token; nothing when one of them is not there.
std::optional<TrapSender::Taken> TrapSender::take(const std::string& key, Link& link, Clock::time_point& nextTurn) {
    const MutexLock lock(m_mutex);
    Destination* const destination = m_account.find(key);
    if (destination == nullptr || destination->queue.empty()) return std::nullopt;
    const Clock::time_point now = Clock::now();
    if (!link.tokens.take(now)) {
        destination->pacedNumber = destination->lastNumber;
        nextTurn = std::min(nextTurn, link.tokens.nextToken(now));
        return std::nullopt;
    }
    Taken taken;
    taken.item.splice(taken.item.begin(), destination->queue, destination->queue.begin());
    taken.paced = taken.item.front().number <= destination->pacedNumber;
    destination->sending = true;
    return taken;
}

// Needs no memory.
void TrapSender::putBack(const std::string& key, Link& link, Taken& taken) {
    link.tokens.putBack();
    Settled settled;
    {
        const MutexLock lock(m_mutex);
        if (Destination* const destination = m_account.find(key)) {
            destination->sending = false;
            destination->queue.splice(destination->queue.begin(), taken.item);
        } else {
            m_account.former().drop(TrapDrop::Removed);
            settled = taken.submission().release();
        }
    }
    if (settled) settled();
}

// Needs no memory: the trap is out.
void TrapSender::settle(const std::string& key, const Taken& taken, const TrapSendResult& result) {
    Settled settled;
    {
        const MutexLock lock(m_mutex);
        if (Destination* const destination = m_account.find(key)) destination->sending = false;
        TrapCounters& counters = m_account.countersOf(key);
        if (result.failure.empty()) {
            ++counters.sent;
            if (taken.paced) ++counters.paced;
            if (result.cut > 0) ++counters.shortened;
            counters.counter64LeftOut += result.leftOut;
        } else {
            counters.drop(result.unsendable ? TrapDrop::Unsendable : TrapDrop::SendFailed);
        }
        settled = taken.submission().release();
    }
    if (settled) settled();
}

// Heartbeats

void TrapSender::setHeartbeats(std::chrono::seconds interval, const std::string& path) {
    if (!m_heartbeats) {
        m_heartbeats.emplace();
        m_heartbeats->start(path, m_transport.engine());
        if (interval.count() == 0) m_heartbeats->clear();  // traps are sent that nobody counts
    }
    if (interval == m_heartbeatInterval) return;
    m_heartbeatInterval = interval;
    for (auto& [key, link] : m_links) {
        if (interval.count() == 0) endSeries(link);
        link.nextHeartbeat = {};
    }
    if (interval.count() == 0) m_heartbeats->clear();
    m_scheduler.wake();
}

// sysUpTime, or `earliest` where it is just ahead: a heartbeat is later than the trap before it, by one at least.
std::uint32_t TrapSender::upTimeFrom(std::uint32_t earliest) {
    constexpr std::uint32_t MOST_AHEAD = 6000;
    const std::uint32_t now = m_transport.upTime();
    return earliest - now <= MOST_AHEAD ? earliest : now;
}

// While the destination fails, traps try the way; a heartbeat follows the first that gets out.
void TrapSender::beatWhenDue(const std::string& key, const tTrapDestInfo& info, Link& link) {
    if (m_heartbeatInterval.count() == 0) return;
    const Clock::time_point now = Clock::now();
    if (now < link.nextHeartbeat && (link.greeted || link.failing)) return;
    if (!link.series) {
        link.series =
            m_heartbeats->seriesOf(std::strtoul(info.index.c_str(), nullptr, 10), link.route.address, link.route.port);
    }
    const TrapSendResult result = beat(link, m_heartbeatInterval);
    link.nextHeartbeat = now + m_heartbeatInterval;
    link.greeted = true;
    link.failing = !result.failure.empty();
    if (link.failing) link.channel.reset();
    {
        const MutexLock lock(m_mutex);
        Destination* const destination = m_account.find(key);
        if (destination != nullptr && !link.failing) ++destination->heartbeats;
    }
    Readiness readiness;
    readiness.proven = true;
    if (link.failing) {
        readiness.state = DestinationState::Failing;
        readiness.reason = result.failure;
        readiness.lost = "a heartbeat";
    }
    noteState(key, readiness);
}

// Texts are not shortened: receivers compare them.
TrapSendResult TrapSender::beat(Link& link, std::chrono::seconds until) {
    link.upTime = upTimeFrom(link.upTime + 1);
    return link.channel->send(m_heartbeats->next(*link.series, until), LONGEST_MESSAGE, link.upTime);
}

void TrapSender::endSeries(Link& link) noexcept {
    try {
        if (link.series && link.channel) (void)beat(link, std::chrono::seconds(0));
    } catch (const std::bad_alloc&) {  // a lost heartbeat, as others
    }
    link.series.reset();
}

void TrapSender::storeSeries() {
    if (m_heartbeatInterval.count() == 0) return;
    try {
        for (auto& [key, link] : m_links) {
            if (!link.series) continue;
            if (link.channel) (void)beat(link, std::chrono::seconds(0));
            m_heartbeats->keep(*link.series);
        }
        m_heartbeats->store(m_transport.engine());
    } catch (const std::exception& fault) {
        logFault<lines::HEARTBEAT_COUNTS_LOST>(fault.what());
    }
}

// One line for each destination.
void TrapSender::noteLeftOut(const std::string& key, Link& link) {
    if (link.leftOutKnown) return;
    tTrapDestInfo info;
    {
        const MutexLock lock(m_mutex);
        const Destination* const found = m_account.find(key);
        if (found == nullptr) return;
        info = found->info;
    }
    logOf<lines::TRAP_COUNTER64_LEFT_OUT>(info);
    link.leftOutKnown = true;
}

// One line for each trap that does not go out as it is because of what is in it.
void TrapSender::noteFate(const std::string& key, const Submission& submission, const TrapSendResult& result) {
    const bool shortened = result.cut > 0 && result.failure.empty();
    if (!shortened && !result.unsendable) return;
    tTrapDestInfo info;
    {
        const MutexLock lock(m_mutex);
        const Destination* const found = m_account.find(key);
        if (found == nullptr) return;
        info = found->info;
    }
    const std::string trap = describe(*submission.notification(), submission.sequence());
    if (shortened) {
        logOf<lines::TRAP_SHORTENED>(info, trap, result.cut);
    } else {
        logOf<lines::TRAP_UNSENDABLE>(info, trap, result.failure);
    }
}

}  // namespace vrx
