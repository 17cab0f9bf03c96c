#include "host/agent/notifications/notification_delivery.h"

#include <algorithm>
#include <iterator>
#include <new>
#include <utility>

#include "host/destinations/trap_destination_checks.h"
#include "host/notification_log/notification_codec.h"

namespace vrx {

namespace {

using std::chrono::milliseconds;

std::string joined(const std::vector<std::string>& names) {
    std::string text;
    for (const std::string& name : names) text += (text.empty() ? "" : ", ") + name;
    return text;
}

}  // namespace

std::string destinationName(const tTrapDestInfo& info) {
    // Outlives all threads.
    static const std::string& lastOfTable =
        *new std::string(trapDestinationKey(std::to_string(destination_check::HIGHEST_NUMBER)));
    if (trapDestinationKey(info.index) <= lastOfTable) return info.index;
    return destination_check::addressAndPort(info.address, info.port);
}

NotificationDelivery::NotificationDelivery(AgentLoop& loop, std::vector<NotificationSink*> sinks, EventLedger& ledger,
                                           NotificationLog& log)
    : m_sinks(std::move(sinks)),
      m_ledger(ledger),
      m_log(log),
      m_sleepWanted(loop, [this] { sleepUntilDue(); }),
      m_timer(loop, [this] { releaseDue(); }) {}

void NotificationDelivery::setLimits(const FlapDampingLimits& limits) {
    const MutexLock lock(m_mutex);
    if (m_stopped) return;
    sendDue();
    follow(m_damping.setLimits(limits));
    m_pacing = limits.changes > 0;
    sendDue();
    wakeForDue();
}

void NotificationDelivery::stop() {
    const MutexLock lock(m_mutex);
    m_stopped = true;
}

std::map<std::string, NotificationDelivery::Paced> NotificationDelivery::paced() const {
    const MutexLock lock(m_mutex);
    std::map<std::string, Paced> paced;
    for (const auto& [key, count] : m_suppressed) {
        if (count > 0) paced[key].suppressed = count;
    }
    for (const auto& [item, held] : m_held) ++paced[held.key].held;
    return paced;
}

// One event

NotificationDelivery::Begun NotificationDelivery::begin(const AlarmEvent& event, const Ticket& ticket) {
    const MutexLock lock(m_mutex);
    Begun begun{event, ticket, FlapDamping::Noted()};
    if (!m_pacing) return begun;
    sendDue();
    begun.change = m_damping.change({event.alarmId, event.serial, event.raised, event.parameters}, Clock::now());
    follow(std::move(begun.change.first));
    wakeForDue();
    return begun;
}

void NotificationDelivery::deliver(Delivery& delivery) {
    const MutexLock lock(m_mutex);
    sendDue();
    const bool goes = delivery.trap != nullptr && !delivery.trap->oid.empty();
    if (goes && m_pacing) holdBack(delivery);
    NotificationLog::Prepared entry;
    if (goes) entry = entryOf(SentBecause::Event, 0, delivery.begun.event, namesOf(delivery), delivery.trap);
    for (; delivery.sinks < m_sinks.size(); ++delivery.sinks) submit(delivery, delivery.sinks);
    m_log.add(std::move(entry));
}

// Finds out which of the destinations the trap is held back from.
void NotificationDelivery::holdBack(Delivery& delivery) {
    const Begun& begun = delivery.begun;
    for (; delivery.asked < delivery.chosen.size(); ++delivery.asked) {
        const tTrapDestInfo& info = *std::next(delivery.chosen.begin(), static_cast<std::ptrdiff_t>(delivery.asked));
        std::set<std::string> keys{trapDestinationKey(info.index)};
        const std::string& key = *keys.begin();
        const std::optional<std::size_t> sink = sinkThatHolds(key, delivery.offered);
        if (!sink || delivery.held.count(key) != 0) continue;
        const Held held{*sink, key, info, delivery.handler, begun.ticket, begun.event, delivery.trap};
        if (isHeld(begun.change, held)) delivery.held.merge(keys);
    }
    sendDue();  // before this one
    wakeForDue();
}

std::optional<std::size_t> NotificationDelivery::sinkThatHolds(const std::string& key,
                                                               const std::vector<Destinations>& offered) const {
    for (std::size_t sink = 0; sink < m_sinks.size(); ++sink) {
        if (m_sinks[sink]->takesLate() && offered[sink] != nullptr && offered[sink]->count(key) != 0) return sink;
    }
    return std::nullopt;
}

// Asks the pacing for one destination. All or nothing when it throws.
bool NotificationDelivery::isHeld(const FlapDamping::Noted& change, Held held) {
    sendDue();
    const FlapDamping::Item item = ++m_lastItem;
    const Ticket ticket = held.ticket;
    const FlapDamping::Stream stream{held.handler, held.key};
    m_suppressed.try_emplace(held.key);  // now: what was held is superseded without memory
    const auto place = m_held.emplace(item, std::move(held)).first;
    FlapDamping::Verdict verdict;
    try {
        verdict = m_damping.offer(change, stream, item, Clock::now());
    } catch (...) {
        m_held.erase(place);
        throw;
    }
    const bool goes = !verdict.send.empty() && verdict.send.back() == item;
    if (goes) {
        m_held.erase(place);
        verdict.send.pop_back();
    } else {
        m_ledger.hold(ticket);
    }
    follow(std::move(verdict));
    return !goes;
}

// What was held

// Needs no memory: what is to be sent is due from here on. REQUIRES: nothing is.
void NotificationDelivery::follow(FlapDamping::Verdict verdict) {
    m_due = std::move(verdict.send);
    std::reverse(m_due.begin(), m_due.end());
    for (const FlapDamping::Item item : verdict.superseded) {
        const auto held = m_held.extract(item);
        if (held.empty()) continue;
        ++m_suppressed.find(held.mapped().key)->second;
        m_ledger.settle(held.mapped().ticket);
    }
}

// What finds no memory stays due, for whoever asks next, or for the loop.
void NotificationDelivery::sendDue() {
    try {
        for (; !m_due.empty(); m_due.pop_back()) {
            const auto place = m_held.find(m_due.back());
            if (place == m_held.end()) continue;
            const Held& held = place->second;
            NotificationLog::Prepared entry =
                entryOf(SentBecause::Held, 0, held.event, {destinationName(held.info)}, held.trap);
            submit(held.sink, {held.event.sequence, held.handler}, {{held.key, held.info}}, {held.info}, held.trap,
                   held.ticket);
            m_log.add(std::move(entry));
            m_ledger.settle(held.ticket);  // open until it is logged
            m_held.erase(place);
        }
    } catch (const std::bad_alloc&) {
        wakeForDue();
        throw;
    }
}

// The loop comes when the first interval ends, or now.
void NotificationDelivery::wakeForDue() {
    const Clock::time_point due = m_due.empty() ? m_damping.nextDue() : Clock::now();
    if (m_stopped || due >= m_wakeAt) return;
    m_wakeAt = due;
    m_sleepWanted.request();
}

void NotificationDelivery::sleepUntilDue() {
    const MutexLock lock(m_mutex);
    if (m_wakeAt == Clock::time_point::max()) return;
    m_timer.start(std::chrono::ceil<milliseconds>(std::max(m_wakeAt - Clock::now(), Clock::duration::zero())));
}

void NotificationDelivery::releaseDue() {
    const MutexLock lock(m_mutex);
    if (m_stopped) return;
    m_wakeAt = Clock::time_point::max();
    sendDue();
    follow(m_damping.takeDue(Clock::now()));
    sendDue();
    wakeForDue();
}

// To the sinks and into the log

void NotificationDelivery::submit(const Delivery& delivery, std::size_t sink) {
    const Destinations& offered = delivery.offered[sink];
    if (offered == nullptr || offered->empty()) return;
    const NotificationOrigin origin{delivery.begun.event.sequence, delivery.handler};
    const Ticket& ticket = delivery.begun.ticket;
    const std::set<std::string>& held = delivery.held;
    if (held.empty()) return submit(sink, origin, *offered, delivery.chosen, delivery.trap, ticket);
    TrapDestinationMap considered = *offered;
    for (const std::string& key : held) considered.erase(key);
    std::list<tTrapDestInfo> left = delivery.chosen;
    left.remove_if([&held](const tTrapDestInfo& info) { return held.count(trapDestinationKey(info.index)) != 0; });
    if (!considered.empty()) submit(sink, origin, considered, left, delivery.trap, ticket);
}

// All or nothing when it throws.
void NotificationDelivery::submit(std::size_t sink, const NotificationOrigin& origin,
                                  const TrapDestinationMap& considered, const std::list<tTrapDestInfo>& chosen,
                                  const std::shared_ptr<const Notification>& trap, const Ticket& ticket) {
    m_ledger.hold(ticket);
    try {
        m_sinks[sink]->submit(origin, considered, chosen, trap,
                              [&ledger = m_ledger, ticket] { ledger.settle(ticket); });
    } catch (...) {
        m_ledger.settle(ticket);
        throw;
    }
}

std::vector<std::string> NotificationDelivery::namesOf(const Delivery& delivery) {
    std::vector<std::string> names;
    for (const tTrapDestInfo& info : delivery.chosen) {
        if (!delivery.held.empty() && delivery.held.count(trapDestinationKey(info.index)) != 0) continue;
        std::string name = destinationName(info);
        if (std::find(names.begin(), names.end(), name) == names.end()) names.push_back(std::move(name));
    }
    return names;
}

// None when it went nowhere.
NotificationLog::Prepared NotificationDelivery::entryOf(SentBecause because, std::uint64_t again,
                                                        const AlarmEvent& event, std::vector<std::string> destinations,
                                                        const std::shared_ptr<const Notification>& trap) {
    if (destinations.empty()) return {};
    LoggedNotification entry;
    entry.time = std::chrono::system_clock::now();
    entry.because = because;
    entry.again = again;
    entry.sequence = event.sequence;
    entry.alarmId = event.alarmId;
    entry.serial = event.serial;
    entry.raised = event.raised;
    entry.level = event.level;
    entry.destinations = std::move(destinations);
    return NotificationLog::prepared(std::move(entry), trap);
}

// Once more

NotificationDelivery::SentAgain NotificationDelivery::sendAgain(std::uint64_t number, const std::string& to) {
    std::optional<LoggedNotification> entry;
    try {
        entry = NotificationLogReader(m_log.path()).find(number);
    } catch (const SqliteError& fault) {
        throw SendAgainFault(std::string("the notification log cannot be read: ") + fault.what());
    }
    if (!entry) throw SendAgainFault("the notification log has no entry " + std::to_string(number));
    const std::optional<Notification> logged = trapFrom(entry->trap);
    if (!logged) throw SendAgainFault("entry " + std::to_string(number) + " of the notification log cannot be read");
    const auto trap = std::make_shared<const Notification>(*logged);

    const MutexLock lock(m_mutex);
    if (m_stopped) throw SendAgainFault("the agent is ending");
    SentAgain result;
    for (const std::string& name : to.empty() ? entry->destinations : std::vector<std::string>{to}) {
        const std::optional<Place> place = find(name);
        if (!place) {
            result.missing.push_back(name);
            continue;
        }
        m_sinks[place->sink]->submit(NotificationOrigin(), {{place->key, place->info}}, {place->info}, trap, [] {});
        result.destinations.push_back(destinationName(place->info));
    }
    if (result.destinations.empty()) {
        throw SendAgainFault(to.empty() ? "the destinations of entry " + std::to_string(number) +
                                              " are gone: " + joined(entry->destinations)
                                        : "there is no trap destination " + to);
    }
    const AlarmEvent event{entry->sequence, entry->alarmId, entry->serial, entry->raised, entry->level, ""};
    m_log.add(entryOf(SentBecause::Asked, number, event, result.destinations, trap));
    return result;
}

std::optional<NotificationDelivery::Place> NotificationDelivery::find(const std::string& name) const {
    for (std::size_t sink = 0; sink < m_sinks.size(); ++sink) {
        const Destinations all = m_sinks[sink]->destinations();
        for (const auto& [key, info] : *all) {
            if (name == info.index || name == destinationName(info)) return Place{sink, key, info};
        }
    }
    return std::nullopt;
}

}  // namespace vrx
