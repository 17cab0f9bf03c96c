// The last steps of a trap before the sinks: traps of alarms that flap are paced (flap_damping.h), and what goes out is
// logged (notification_log.h). Sends logged traps again.
//
//     const NotificationDelivery::Begun begun = delivery.begin(event, ticket);               // once per alarm event
//     NotificationDelivery::Delivery one{begun, place, offered, std::move(chosen), trap};    // once per handler
//     delivery.deliver(one);
//
// What throws std::bad_alloc is called again, and goes on where it stopped.
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
        FlapDamping::Noted change;
    };
    Begun begin(const AlarmEvent& event, const Ticket& ticket);
    Begun begin(AlarmEvent&& event, const Ticket& ticket) = delete;

    // The trap of one handler on its way to the sinks.
    struct Delivery {
        const Begun& begun;
        unsigned int handler;                      // its place among the dispatcher's
        const std::vector<Destinations>& offered;  // of each sink: what was chosen from
        std::list<tTrapDestInfo> chosen;
        std::shared_ptr<const Notification> trap;  // null when it could not be built

        // How far it came.
        std::size_t asked = 0;         // whether so many of the chosen are to get it now
        std::set<std::string> held{};  // keys of those that are not
        std::size_t sinks = 0;         // so many have got it
    };
    void deliver(Delivery& delivery);

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

    void holdBack(Delivery& delivery) REQUIRES(m_mutex);
    std::optional<std::size_t> sinkThatHolds(const std::string& key, const std::vector<Destinations>& offered) const;
    bool isHeld(const FlapDamping::Noted& change, Held held) REQUIRES(m_mutex);
    void follow(FlapDamping::Verdict verdict) REQUIRES(m_mutex);
    void sendDue() REQUIRES(m_mutex);
    void wakeForDue() REQUIRES(m_mutex);
    void submit(const Delivery& delivery, std::size_t sink) REQUIRES(m_mutex);
    void submit(std::size_t sink, const NotificationOrigin& origin, const TrapDestinationMap& considered,
                const std::list<tTrapDestInfo>& chosen, const std::shared_ptr<const Notification>& trap,
                const Ticket& ticket) REQUIRES(m_mutex);
    static std::vector<std::string> namesOf(const Delivery& delivery);
    static NotificationLog::Prepared entryOf(SentBecause because, std::uint64_t again, const AlarmEvent& event,
                                             std::vector<std::string> destinations,
                                             const std::shared_ptr<const Notification>& trap);
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
    std::vector<FlapDamping::Item> m_due GUARDED_BY(m_mutex);  // of these, to be sent now: the last one first
    std::map<std::string, std::uint64_t> m_suppressed GUARDED_BY(m_mutex);
    Clock::time_point m_wakeAt GUARDED_BY(m_mutex) = Clock::time_point::max();

    LoopWakeup m_sleepWanted;  // until m_wakeAt
    LoopTimer m_timer;         // agent thread only
};

// What people know a destination by: its number in the trap destination table; "HOST:PORT" for one that stands in the
// configuration.
std::string destinationName(const tTrapDestInfo& info);

}  // namespace vrx
