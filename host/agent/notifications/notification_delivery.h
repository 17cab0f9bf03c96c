// The last steps of a trap before the sinks: traps of alarms that flap are paced (flap_damping.h), and what goes out is
// logged (notification_log.h). Sends logged traps again.
//
//     const NotificationDelivery::Begun begun = delivery.begin(event, ticket);  // once per alarm event
//     delivery.deliver(begun, 0, offered, chosen, trap);                        // once per notification handler
//
// An event whose trap is held stays open in the ledger until the trap is sent or superseded: after a restart it comes
// again.
//
// Threads: made and destroyed on the agent thread, which also sends what was held; begin() and deliver() from the event
// source's, the rest from any.
#pragma once

#include <chrono>
#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "host/agent/delivery/notification_sink.h"
#include "host/agent/loop/timer.h"
#include "host/agent/loop/wakeup.h"
#include "host/agent/notifications/event_ledger.h"
#include "host/agent/notifications/flap_damping.h"
#include "host/agent/notifications/notification_log.h"
#include "host/base/mutex.h"
#include "host/transport/alarm_event.h"

namespace vrx {

// What was asked for cannot be done; the text is for whoever asked.
class SendAgainFault : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

class NotificationDelivery {
public:
    using Ticket = EventLedger::Ticket;
    using Destinations = std::shared_ptr<const TrapDestinationMap>;

    // Of one destination.
    struct Paced {
        std::uint64_t suppressed = 0;  // superseded while they were held
        std::uint64_t held = 0;        // now
    };

    struct SentAgain {
        std::vector<std::string> destinations;  // that it went to
        std::vector<std::string> missing;       // that it went to then, and that are gone
    };

    // All that is given outlives it.
    NotificationDelivery(AgentLoop& loop, std::vector<NotificationSink*> sinks, EventLedger& ledger,
                         NotificationLog& log);
    NotificationDelivery(const NotificationDelivery&) = delete;
    NotificationDelivery& operator=(const NotificationDelivery&) = delete;

    const std::vector<NotificationSink*>& sinks() const { return m_sinks; }

    // When pacing is turned off all that is held goes out.
    void setLimits(const FlapDampingLimits& limits);

    // An alarm event, for the traps of it. The event outlives it.
    struct Begun {
        const AlarmEvent& event;
        Ticket ticket;
        std::optional<FlapDamping::Noted> change;  // nothing: no memory, the traps are neither logged nor paced
    };
    Begun begin(const AlarmEvent& event, const Ticket& ticket);
    Begun begin(AlarmEvent&& event, const Ticket& ticket) = delete;

    // The trap of one handler, by its place among the dispatcher's; null when it could not be built. `offered` are the
    // destinations of each sink that were chosen from. False when there was no memory for it at some sink, for which
    // it is settled then. Throws std::bad_alloc, and no sink got it.
    [[nodiscard]] bool deliver(const Begun& begun, unsigned int handler, const std::vector<Destinations>& offered,
                               const std::list<tTrapDestInfo>& chosen, const std::shared_ptr<const Notification>& trap);

    // A logged trap, to the destinations that it went to, or to the one of that name. Throws SendAgainFault.
    SentAgain sendAgain(std::uint64_t number, const std::string& to);

    // Holds, and sends, nothing any more.
    void stop();

    // By the key of the destination: those that have something.
    std::map<std::string, Paced> paced() const;

private:
    using Clock = FlapDamping::Clock;

    struct Held {
        std::size_t sink = 0;
        std::string key;
        tTrapDestInfo info;
        unsigned int handler = 0;
        Ticket ticket;
        AlarmEvent event;
        std::shared_ptr<const Notification> trap;
    };

    struct Place {
        std::size_t sink = 0;
        std::string key;
        tTrapDestInfo info;
    };

    std::set<std::string> holdBack(const Begun& begun, unsigned int handler, const std::vector<Destinations>& offered,
                                   const std::list<tTrapDestInfo>& chosen,
                                   const std::shared_ptr<const Notification>& trap) REQUIRES(m_mutex);
    bool isHeld(const FlapDamping::Noted& change, Held held) REQUIRES(m_mutex);
    void follow(const FlapDamping::Verdict& verdict) REQUIRES(m_mutex);
    void sendHeld(const Held& held) REQUIRES(m_mutex);
    void wakeForDue() REQUIRES(m_mutex);
    [[nodiscard]] bool submit(std::size_t sink, const NotificationOrigin& origin, const TrapDestinationMap& considered,
                              const std::list<tTrapDestInfo>& chosen, const std::shared_ptr<const Notification>& trap,
                              const Ticket& ticket) REQUIRES(m_mutex);
    [[nodiscard]] bool submitBut(const std::set<std::string>& held, std::size_t sink, const NotificationOrigin& origin,
                                 const TrapDestinationMap& offered, const std::list<tTrapDestInfo>& chosen,
                                 const std::shared_ptr<const Notification>& trap, const Ticket& ticket)
        REQUIRES(m_mutex);
    static std::vector<std::string> namesOf(const std::list<tTrapDestInfo>& chosen, const std::set<std::string>& held);
    void log(SentBecause because, std::uint64_t again, const AlarmEvent& event, std::vector<std::string> destinations,
             const std::shared_ptr<const Notification>& trap) REQUIRES(m_mutex);
    std::optional<Place> find(const std::string& name) const;

    // Agent thread.
    void sleepUntilDue();
    void releaseDue();

    const std::vector<NotificationSink*> m_sinks;
    EventLedger& m_ledger;
    NotificationLog& m_log;

    mutable Mutex m_mutex;                      // what goes to a sink goes there in the order of the decisions
    bool m_pacing GUARDED_BY(m_mutex) = false;  // is on
    bool m_stopped GUARDED_BY(m_mutex) = false;
    FlapDamping m_damping GUARDED_BY(m_mutex){FlapDampingLimits()};
    FlapDamping::Item m_lastItem GUARDED_BY(m_mutex) = 0;
    std::map<FlapDamping::Item, Held> m_held GUARDED_BY(m_mutex);
    std::map<std::string, std::uint64_t> m_suppressed GUARDED_BY(m_mutex);
    Clock::time_point m_wakeAt GUARDED_BY(m_mutex) = Clock::time_point::max();

    LoopWakeup m_sleepWanted;  // until m_wakeAt
    LoopTimer m_timer;         // agent thread only
};

// What people know a destination by: its number in the trap destination table; "HOST:PORT" for one that stands in the
// configuration.
std::string destinationName(const tTrapDestInfo& info);

}  // namespace vrx
