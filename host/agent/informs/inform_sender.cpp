#include "host/agent/informs/inform_sender.h"

#include <algorithm>
#include <iterator>
#include <ratio>
#include <utility>

#include "host/base/log_line.h"
#include "host/destinations/trap_destination_checks.h"
#include "host/log_lines/informs.h"
#include "host/notification_log/notification_subject.h"
#include "host/snmp/net_snmp.h"

namespace vrx {

namespace {

using std::chrono::milliseconds;

constexpr unsigned long TICKS_PER_SECOND = 100;
constexpr milliseconds SHORTEST_SLEEP{1};

// Some paths drop the fragments of long messages. One that was not acknowledged so often is sent in one packet, as
// IPv6 carries it anywhere: 1280 octets with the headers of IP and UDP.
constexpr unsigned int ATTEMPTS_WHOLE = 3;
constexpr std::size_t SINGLE_PACKET = 1232;

// A repeated wait is shorter by at most this part of it.
constexpr milliseconds::rep SHARE_OF_CHANCE = 8;

void logState(const std::string& name, InformState state, const std::string& failure) {
    switch (state) {
        case InformState::Answering:
            return failure.empty() ? logLine<lines::INFORMS_ANSWERED>(name)
                                   : logLine<lines::INFORM_REFUSED>(name, failure);
        case InformState::Silent:
            return logLine<lines::INFORMS_UNANSWERED>(name);
        case InformState::Failing:
            return logLine<lines::INFORMS_FAIL>(name, failure);
        case InformState::Unresolved:
            return logLine<lines::INFORMS_UNRESOLVED>(name);
        default:
            return;
    }
}

// A queue that has been full is said to take informs again when a tenth of it is free: not at each one.
bool hasRoom(std::size_t waiting, std::size_t limit) {
    return waiting <= limit - (limit + 9) / 10;
}

}  // namespace

InformSender::InformSender(AgentLoop& loop, InformTransport& transport, const std::string& queuePath,
                           std::chrono::seconds resolveInterval, NameResolver::Lookup lookup)
    : m_transport(transport),
      m_firstUpTime(static_cast<std::uint32_t>(netsnmp_get_agent_uptime())),
      m_lastNumber(destination_check::HIGHEST_NUMBER),
      m_random(std::random_device()()),
      m_scheduler(
          loop, [this] { takeTurn(); }, SHORTEST_SLEEP, resolveInterval, std::move(lookup)),
      m_queue(queuePath, [this] { m_scheduler.wake(); }) {}

void InformSender::setDestinations(const std::vector<InformDestination>& destinations, bool complete) {
    InformQueue::Limits limits;
    for (const InformDestination& one : destinations) limits[one.name()] = one.policy.queueLimit;
    const MutexLock lock(m_mutex);
    const std::map<std::string, std::string> known = retire(m_queue.setReceivers(limits, !complete));
    m_account.setList(adopt(destinations, known));
    m_scheduler.wake();
}

// Drops the receivers that are gone, with the number of informs that waited for each. Gives the keys of those that were
// there, by name.
std::map<std::string, std::string> InformSender::retire(const InformQueue::Limits& gone) {
    for (const auto& [name, waiting] : gone) {
        logLine<lines::INFORM_DESTINATION_GONE>(name, waiting);
    }
    std::map<std::string, std::string> known;
    for (auto at = m_account.all().begin(); at != m_account.all().end();) {
        Destination& destination = at->second;
        known[destination.name] = at->first;
        const auto lost = gone.find(destination.name);
        if (lost == gone.end()) {
            ++at;
            continue;
        }
        destination.counters.drop(InformDrop::Removed, lost->second);
        m_links.erase(at->first);
        at = m_account.retire(at);
    }
    for (const auto& [name, waiting] : gone) {
        if (known.count(name) != 0) continue;  // else of an earlier life of the process
        m_account.former().restored += waiting;
        m_account.former().drop(InformDrop::Removed, waiting);
    }
    return known;
}

// Takes the receivers of the configuration in, under the keys of those that are `known` by name. Gives their list.
std::shared_ptr<const TrapDestinationMap> InformSender::adopt(const std::vector<InformDestination>& destinations,
                                                              const std::map<std::string, std::string>& known) {
    auto list = std::make_shared<TrapDestinationMap>();
    for (const InformDestination& one : destinations) {
        const auto found = known.find(one.name());
        const std::string key =
            found != known.end() ? found->second : trapDestinationKey(std::to_string(++m_lastNumber));
        Destination& destination = m_account.all()[key];
        if (found == known.end()) {
            destination.name = one.name();
            destination.counters.restored = m_queue.standing(one.name()).restored;
        }
        const auto link = m_links.find(key);
        if (link != m_links.end() && !(link->second.peer == one.peer)) m_links.erase(link);
        if (!(destination.settings.peer == one.peer)) destination.engine.clear();  // as it was met before
        destination.settings = one;
        tTrapDestInfo info;
        info.index = key.substr(key.find_first_not_of('0'));
        info.address = one.peer.host;
        info.port = one.peer.port;
        info.version = one.peer.version;
        info.trapType = one.policy.trapType;
        info.user = one.peer.name;
        list->emplace(key, std::move(info));
    }
    return list;
}

// Any thread

std::shared_ptr<const TrapDestinationMap> InformSender::destinations() const {
    const MutexLock lock(m_mutex);
    return m_account.list();
}

std::uint32_t InformSender::upTime() const {
    using Ticks = std::chrono::duration<std::uint64_t, std::ratio<1, TICKS_PER_SECOND>>;
    return m_firstUpTime +
           static_cast<std::uint32_t>(std::chrono::duration_cast<Ticks>(Clock::now() - m_start).count());
}

void InformSender::submit(const NotificationOrigin& origin, const TrapDestinationMap& considered,
                          const std::list<tTrapDestInfo>& chosen, std::shared_ptr<const Notification> trap,
                          Settled settled) {
    const std::set<std::string> keys = chosenKeys(considered, chosen);
    const auto submission = std::make_shared<Submission>(std::move(trap), origin.sequence, std::move(settled));
    const auto release = [submission] {
        if (const Settled last = submission->release()) last();
    };
    InformQueue::Places places = InformQueue::places(keys.size(), submission->notification(), release);
    // Nothing from here on needs memory.
    {
        const MutexLock lock(m_mutex);
        m_account.consider(considered, keys, submission->notification().get(),
                           [&](const std::string&, Destination& destination) REQUIRES(m_mutex) {
                               submission->addPart();
                               enqueue(destination, origin, places);
                           });
    }
    release();
}

void InformSender::enqueue(Destination& destination, const NotificationOrigin& origin, InformQueue::Places& places) {
    const InformQueue::Added added = m_queue.add(destination.name, origin, upTime(), places);
    if (added == InformQueue::Added::Repeated) ++destination.counters.repeated;
    if (added == InformQueue::Added::Full) destination.counters.drop(InformDrop::QueueFull);
    noteFull(destination, added == InformQueue::Added::Full);
}

// One line per change of state.
void InformSender::noteFull(Destination& destination, bool full) {
    const std::size_t limit = destination.settings.policy.queueLimit;
    if (full) {
        destination.overflow.begins([&] { logLine<lines::INFORM_QUEUE_FULL>(destination.name, limit); });
    } else if (destination.overflow.lasts() && hasRoom(m_queue.standing(destination.name).waiting, limit)) {
        destination.overflow.ends([&] { logLine<lines::INFORM_QUEUE_HAS_ROOM>(destination.name); });
    }
}

InformStatus InformSender::status() const {
    const MutexLock lock(m_mutex);
    InformStatus status;
    status.former = m_account.former();
    for (const auto& entry : m_account.all()) {
        const Destination& destination = entry.second;
        const InformPeer& peer = destination.settings.peer;
        const InformQueue::Standing standing = m_queue.standing(destination.name);
        InformDestinationStatus one;
        one.name = destination.name;
        one.address = peer.host;
        one.port = peer.port;
        one.version = peer.version;
        one.trapType = destination.settings.policy.trapType;
        one.resolvedAddress = destination.resolvedAddress;
        one.engine = destination.engine;
        one.state = destination.state;
        one.lastFailure = destination.lastFailure;
        one.counters = destination.counters;
        one.counters.waiting = standing.waiting;
        one.counters.drop(InformDrop::Unreadable, standing.unreadable);
        status.destinations.push_back(std::move(one));
    }
    return status;
}

// Agent thread

void InformSender::stop() {
    if (m_scheduler.stopped()) return;
    m_scheduler.stop();
    m_links.clear();
    m_queue.stop();
    const InformStatus last = status();
    for (const InformDestinationStatus& one : last.destinations) {
        logLine<lines::INFORMS_COUNTED>(one.name, one.counters.text());
    }
    if (last.former.restored + last.former.considered > 0) logLine<lines::FORMER_INFORMS_COUNTED>(last.former.text());
}

void InformSender::takeTurn() {
    std::set<std::string> keys;
    std::set<std::string> hosts;
    {
        const MutexLock lock(m_mutex);
        for (const auto& [key, destination] : m_account.all()) {
            keys.insert(key);
            hosts.insert(destination.settings.peer.host);
        }
    }
    m_scheduler.watch(hosts);
    for (const std::string& key : keys) serve(key);
}

// Settles what came of the receiver's informs and sends its next ones, unless the time has not come.
void InformSender::serve(const std::string& key) {
    InformDestination settings;
    {
        const MutexLock lock(m_mutex);
        const Destination* const found = m_account.find(key);
        if (m_scheduler.stopped() || found == nullptr) return;
        settings = found->settings;
    }
    Link& link = m_links[key];
    if (link.channel) settle(key, link, settings.policy);
    while (link.window.hasRoom()) {
        const std::optional<Inform> inform = m_queue.first(settings.name(), link.window.lastTaken());
        if (!inform) break;
        link.window.take(*inform);
    }
    if (link.channel) sendOvertaken(key, link);
    if (link.window.next(settings.policy.window) == nullptr) return;
    if (link.notBefore > Clock::now()) return m_scheduler.sleepUntil(link.notBefore);
    const std::string address = m_scheduler.addressOf(settings.peer.host);
    if (address.empty()) {  // serve() comes again when there is one
        link.channel.reset();
        link.window.restart();
        return noteState(key, link, InformState::Unresolved, "");
    }
    if (open(key, link, settings, address)) sendNext(link, settings.policy);
}

bool InformSender::open(const std::string& key, Link& link, const InformDestination& settings,
                        const std::string& address) {
    if (link.channel && link.peer == settings.peer && link.address == address) return true;
    link.channel.reset();
    link.window.restart();
    link.settled = 0;
    link.peer = settings.peer;
    link.address = address;
    Expected<std::unique_ptr<InformChannel>> opened =
        m_transport.open(settings.peer, address, [this] { m_scheduler.wake(); });
    if (opened) {
        link.channel = *std::move(opened);
        link.unopened = 0;
        return true;
    }
    link.notBefore = Clock::now() + patienceOf(settings.policy, link.unopened++);
    noteState(key, link, InformState::Failing, opened.failure());
    m_scheduler.sleepUntil(link.notBefore);
    return false;
}

void InformSender::sendNext(Link& link, const InformPolicy& policy) {
    while (Entry* const entry = link.window.next(policy.window)) {
        link.channel->send(entry->inform, wantedSize(*entry), patienceOf(policy, entry->attempts));
        link.window.sent(*entry, Clock::now());  // it is, and not before: without memory it is sent again
    }
}

void InformSender::sendOvertaken(const std::string& key, Link& link) {
    while (Entry* const entry = link.window.overtaken()) {
        const bool sent = link.channel->sendAgain(entry->inform.number);
        link.window.sentEarly(*entry);
        const MutexLock lock(m_mutex);
        Destination* const found = m_account.find(key);
        if (sent && found != nullptr) ++found->counters.resent;
    }
}

std::size_t InformSender::wantedSize(const Entry& entry) const {
    return entry.attempts < ATTEMPTS_WHOLE ? m_messageSize : std::min(m_messageSize, SINGLE_PACKET);
}

// How long the answer to an attempt is waited for, or a failed one rests.
milliseconds InformSender::patienceOf(const InformPolicy& policy, unsigned int attempts) {
    milliseconds patience = policy.firstRetry;
    if (attempts == 0) return patience;
    for (; attempts > 0 && patience < policy.longestBackoff; --attempts) patience *= 2;
    patience = std::min(patience, policy.longestBackoff);
    return patience - milliseconds(std::uniform_int_distribution<milliseconds::rep>(
                          0, patience.count() / SHARE_OF_CHANCE)(m_random));
}

// Of all outcomes that are there. A step that finds no memory is taken again in the next turn, those before it are not:
// each does all or nothing.
void InformSender::settle(const std::string& key, Link& link, const InformPolicy& policy) {
    using Step = void (InformSender::*)(const std::string& key, Link& link, Entry& entry, const InformOutcome& outcome);
    static constexpr Step STEPS[] = {&InformSender::take, &InformSender::noteFate, &InformSender::noteOutcome};
    while (const InformOutcome* const outcome = link.channel->outcome()) {
        Entry* const entry = link.window.find(outcome->number);
        for (; entry != nullptr && link.settled < std::size(STEPS); ++link.settled) {
            const Step step =
                STEPS[link.settled];  // GCC 12's bounds check takes a wrong index where this is in the call
            (this->*step)(key, link, *entry, *outcome);
        }
        link.settled = 0;
        if (entry != nullptr) close(link, *entry, outcome->kind, policy);
        link.channel->forget();
    }
}

void InformSender::take(const std::string& key, Link& link, Entry& entry, const InformOutcome& outcome) {
    using Kind = InformOutcome::Kind;
    const MutexLock lock(m_mutex);
    Destination* const found = m_account.find(key);
    if (found == nullptr) return;
    Destination& destination = *found;
    const InformPolicy& policy = destination.settings.policy;
    const bool failed = outcome.kind == Kind::NoAnswer || outcome.kind == Kind::Failed;
    const bool givenUp = failed && policy.retries && entry.attempts >= *policy.retries;
    destination.resolvedAddress = link.address;
    if (!failed || givenUp) m_queue.remove(destination.name, entry.inform.number);
    // Nothing from here on needs memory.
    InformCounters& counters = destination.counters;
    if (outcome.wasSent) ++(entry.wasSent ? counters.resent : counters.sent);
    if (outcome.kind == Kind::Acknowledged) ++counters.acknowledged;
    if (outcome.kind == Kind::Refused) counters.drop(InformDrop::Refused);
    if (outcome.kind == Kind::Unsendable) counters.drop(InformDrop::Unsendable);
    if (givenUp) counters.drop(InformDrop::GivenUp);
    const Clock::time_point now = Clock::now();
    if (outcome.kind == Kind::Failed) link.notBefore = now + patienceOf(policy, entry.attempts);
    ++entry.attempts;
    entry.isDone = !failed || givenUp;
    entry.wasSent = entry.wasSent || outcome.wasSent;
}

// Needs no memory.
void InformSender::close(Link& link, Entry& entry, InformOutcome::Kind kind, const InformPolicy& policy) {
    using Kind = InformOutcome::Kind;
    if (kind == Kind::Acknowledged || kind == Kind::Refused) {
        link.window.answered(entry, Clock::now(), policy.firstRetry);
    } else if (kind == Kind::NoAnswer) {
        link.window.unanswered(entry);
    } else if (kind == Kind::Failed) {
        link.window.failed();
    }
    if (entry.isDone) {
        link.window.remove(entry);
    } else {
        link.window.release(entry);
    }
}

// One line for each inform that does not go out as it is because of what is in it.
void InformSender::noteFate(const std::string& key, Link&, Entry& entry, const InformOutcome& outcome) {
    const bool shortened = outcome.wasSent && outcome.cut > 0 && !entry.shortened;
    const bool unsendable = outcome.kind == InformOutcome::Kind::Unsendable;
    if (!shortened && !unsendable) return;
    const MutexLock lock(m_mutex);
    Destination* const found = m_account.find(key);
    if (found == nullptr) return;
    const std::string subject = subjectOf(*entry.inform.trap);
    if (unsendable) {
        logLine<lines::INFORM_UNSENDABLE>(found->name, subject, outcome.text);
    } else {
        logLine<lines::INFORM_SHORTENED>(found->name, subject, outcome.cut);
        ++found->counters.shortened;
        entry.shortened = true;
    }
}

void InformSender::noteOutcome(const std::string& key, Link& link, Entry& entry, const InformOutcome& outcome) {
    using Kind = InformOutcome::Kind;
    switch (outcome.kind) {
        case Kind::Acknowledged:
            return noteState(key, link, InformState::Answering, "");
        case Kind::Refused:
            return noteState(key, link, InformState::Answering, "the receiver refuses an inform: " + outcome.text);
        case Kind::Unsendable:
            return;  // tells nothing of the receiver
        case Kind::NoAnswer:
            if (link.window.isAnsweredSince(entry)) return;  // one datagram was lost
            return noteState(key, link, InformState::Silent, "no answer");
        case Kind::Failed:
            return noteState(key, link, InformState::Failing, outcome.text);
    }
}

// One line per change of state, and one for the first of failures that are alike. All or nothing when it throws.
void InformSender::noteState(const std::string& key, const Link& link, InformState state, const std::string& failure) {
    const MutexLock lock(m_mutex);
    Destination* const found = m_account.find(key);
    if (found == nullptr) return;
    Destination& destination = *found;
    std::optional<InformFailure> last;
    if (!failure.empty()) last = {failure, std::chrono::system_clock::now()};
    std::string engine = link.channel ? link.channel->engine() : "";
    const bool another = last && (!destination.lastFailure || destination.lastFailure->text != failure);
    if (destination.state != state || another) logState(destination.name, state, failure);
    destination.state = state;
    destination.engine = std::move(engine);
    if (last) destination.lastFailure = std::move(last);
}

}  // namespace vrx
