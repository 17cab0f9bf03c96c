#include "host/agent/notifications/notification_delivery.h"

#include <algorithm>
#include <utility>

#include "host/base/log_line.h"
#include "host/base/memory_retry.h"
#include "host/destinations/trap_destination_checks.h"
#include "host/log_lines/events.h"
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
    const std::string lastOfTable = trapDestinationKey(std::to_string(destination_check::HIGHEST_NUMBER));
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
    m_pacing = limits.changes > 0;
    follow(m_damping.setLimits(limits));
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
    try {
        retryForASecond([&]() REQUIRES(m_mutex) {
            begun.change =
                m_damping.change({event.alarmId, event.serial, event.raised, event.parameters}, Clock::now());
        });
        follow(begun.change->first);
    } catch (const std::bad_alloc&) {
        begun.change.reset();
        logFault<lines::EVENT_NOT_PACED>(event.sequence);
    }
    return begun;
}

bool NotificationDelivery::deliver(const Begun& begun, unsigned int handler, const std::vector<Destinations>& offered,
                                   const std::list<tTrapDestInfo>& chosen,
                                   const std::shared_ptr<const Notification>& trap) {
    const MutexLock lock(m_mutex);
    const bool goes = trap != nullptr && !trap->oid.empty() && begun.change;
    const std::set<std::string> held =
        goes && m_pacing ? holdBack(begun, handler, offered, chosen, trap) : std::set<std::string>();
    const NotificationOrigin origin{begun.event.sequence, handler};
    bool taken = true;
    for (std::size_t sink = 0; sink < m_sinks.size(); ++sink) {
        if (offered[sink] == nullptr || offered[sink]->empty()) continue;
        if (held.empty()) {
            taken = submit(sink, origin, *offered[sink], chosen, trap, begun.ticket) && taken;
        } else {
            taken = submitBut(held, sink, origin, *offered[sink], chosen, trap, begun.ticket) && taken;
        }
    }
    if (goes) log(SentBecause::Event, 0, begun.event, namesOf(chosen, held), trap);
    return taken;
}

// Which of the destinations the trap is held back from, by their keys.
// REQUIRES: the event's change.
std::set<std::string> NotificationDelivery::holdBack(const Begun& begun, unsigned int handler,
                                                     const std::vector<Destinations>& offered,
                                                     const std::list<tTrapDestInfo>& chosen,
                                                     const std::shared_ptr<const Notification>& trap) {
    std::set<std::string> held;
    for (const tTrapDestInfo& info : chosen) {
        const std::string key = trapDestinationKey(info.index);
        for (std::size_t sink = 0; sink < m_sinks.size(); ++sink) {
            if (!m_sinks[sink]->takesLate() || offered[sink] == nullptr || offered[sink]->count(key) == 0) continue;
            if (!held.insert(key).second) continue;  // chosen twice
            bool goes = true;
            try {
                retryForASecond([&]() REQUIRES(m_mutex) {
                    goes = !isHeld(*begun.change, {sink, key, info, handler, begun.ticket, begun.event, trap});
                });
            } catch (const std::bad_alloc&) {
                goes = true;
            }
            if (goes) held.erase(key);
        }
    }
    return held;
}

// Asks the pacing for one destination. All or nothing when it throws.
bool NotificationDelivery::isHeld(const FlapDamping::Noted& change, Held held) {
    const FlapDamping::Item item = ++m_lastItem;
    const Ticket ticket = held.ticket;
    const FlapDamping::Stream stream{held.handler, held.key};
    m_suppressed.try_emplace(held.key);  // now: what was held is superseded without memory
    const auto place = m_held.emplace(item, std::move(held)).first;
    FlapDamping::Verdict verdict;
    try {
        verdict = m_damping.offer(change, stream, item, Clock::now());
        wakeForDue();
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
    follow(verdict);
    return !goes;
}

// What was held

void NotificationDelivery::follow(const FlapDamping::Verdict& verdict) {
    for (const FlapDamping::Item item : verdict.send) {
        const auto held = m_held.extract(item);
        if (!held.empty()) sendHeld(held.mapped());
    }
    for (const FlapDamping::Item item : verdict.superseded) {
        const auto held = m_held.extract(item);
        if (held.empty()) continue;
        ++m_suppressed.find(held.mapped().key)->second;
        m_ledger.settle(held.mapped().ticket);
    }
}

// The sink settles what was held by the ledger.
void NotificationDelivery::sendHeld(const Held& held) {
    // The event stays open until it is logged.
    struct Open {
        ~Open() { ledger.settle(ticket); }
        EventLedger& ledger;
        const Ticket ticket;
    } const open{m_ledger, held.ticket};
    m_ledger.hold(held.ticket);
    bool taken = true;
    try {
        retryForASecond([&] {
            m_sinks[held.sink]->submit({held.event.sequence, held.handler}, {{held.key, held.info}}, {held.info},
                                       held.trap,
                                       [&ledger = m_ledger, ticket = held.ticket] { ledger.settle(ticket); });
        });
    } catch (const std::bad_alloc&) {
        taken = false;
    }
    if (!taken) {
        m_ledger.settle(held.ticket);
        logFault<lines::HELD_TRAP_DROPPED>(held.info.index);
        return;
    }
    log(SentBecause::Held, 0, held.event, {destinationName(held.info)}, held.trap);
}

// The loop comes when the first interval ends.
void NotificationDelivery::wakeForDue() {
    const Clock::time_point due = m_damping.nextDue();
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
    follow(m_damping.takeDue(Clock::now()));
    wakeForDue();
}

// To the sinks and into the log

bool NotificationDelivery::submit(std::size_t sink, const NotificationOrigin& origin,
                                  const TrapDestinationMap& considered, const std::list<tTrapDestInfo>& chosen,
                                  const std::shared_ptr<const Notification>& trap, const Ticket& ticket) {
    m_ledger.hold(ticket);
    try {
        retryForASecond([&] {
            m_sinks[sink]->submit(origin, considered, chosen, trap,
                                  [&ledger = m_ledger, ticket] { ledger.settle(ticket); });
        });
        return true;
    } catch (const std::bad_alloc& fault) {
        m_ledger.settle(ticket);
        logFault<lines::EVENT_SKIPPED>(origin.sequence, fault.what());
        return false;
    }
}

bool NotificationDelivery::submitBut(const std::set<std::string>& held, std::size_t sink,
                                     const NotificationOrigin& origin, const TrapDestinationMap& offered,
                                     const std::list<tTrapDestInfo>& chosen,
                                     const std::shared_ptr<const Notification>& trap, const Ticket& ticket) {
    TrapDestinationMap considered;
    std::list<tTrapDestInfo> left;
    try {
        retryForASecond([&] {
            considered = offered;
            left = chosen;
        });
    } catch (const std::bad_alloc& fault) {
        logFault<lines::EVENT_SKIPPED>(origin.sequence, fault.what());
        return false;
    }
    for (const std::string& key : held) considered.erase(key);
    left.remove_if([&held](const tTrapDestInfo& info) { return held.count(trapDestinationKey(info.index)) != 0; });
    return considered.empty() || submit(sink, origin, considered, left, trap, ticket);
}

std::vector<std::string> NotificationDelivery::namesOf(const std::list<tTrapDestInfo>& chosen,
                                                       const std::set<std::string>& held) {
    std::vector<std::string> names;
    for (const tTrapDestInfo& info : chosen) {
        if (held.count(trapDestinationKey(info.index)) != 0) continue;
        std::string name = destinationName(info);
        if (std::find(names.begin(), names.end(), name) == names.end()) names.push_back(std::move(name));
    }
    return names;
}

void NotificationDelivery::log(SentBecause because, std::uint64_t again, const AlarmEvent& event,
                               std::vector<std::string> destinations, const std::shared_ptr<const Notification>& trap) {
    if (destinations.empty()) return;
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
    m_log.add(std::move(entry), trap);
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
    log(SentBecause::Asked, number, event, result.destinations, trap);
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
