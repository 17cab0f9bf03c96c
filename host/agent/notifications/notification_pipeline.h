// From an alarm event to the traps of it: asks every notification handler of the dispatcher which destinations are to
// get its trap, lets it build one if there is any, and hands that on to be delivered to the sinks. The repository of
// active alarms and the ledger follow; it holds an event until every sink has settled it.
//
// An event whose record a handler cannot use is logged, counted and done with: it would be as bad next time. While the
// alarm definitions cannot be loaded no event is begun that somebody is to be told of: it waits, and those after it.
//
// Threads: the event source's; counters() from any.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <optional>
#include <string>
#include <unordered_set>
#include <vector>

#include "host/agent/delivery/notification_sink.h"
#include "host/agent/notifications/event_ledger.h"
#include "host/agent/notifications/notification_delivery.h"
#include "host/agent/tamrel/alarm_definitions.h"
#include "host/agent/tamrel/tamrel_binding.h"
#include "host/base/log_rate_limiter.h"
#include "host/base/mutex.h"
#include "host/transport/alarm_event_source.h"

class INotifyMsgHandler;

namespace vrx {

class NotificationPipeline : public AlarmEventSource::Listener {
public:
    struct Counters {
        std::uint64_t events = 0;      // handled, in this life of the process
        std::uint64_t notBuilt = 0;    // traps that a handler could not build: bad records, unknown alarms
        std::uint64_t badRecords = 0;  // events that the repository could not follow
    };

    // What is given outlives the path. `alarmsChanged` is called before the traps of an event go out, from the event
    // source's thread: what was read of the alarms before is stale.
    NotificationPipeline(const std::list<INotifyMsgHandler*>& handlers, const TamrelBinding& binding,
                         AlarmDefinitions& definitions, NotificationDelivery& delivery, EventLedger& ledger,
                         std::function<void()> alarmsChanged);

    std::optional<HandledEvent> lastHandledEvent() override;
    void onConnected(const BackendState& state) override;
    void onEvent(const AlarmEvent& event, const CTLVRecordV3& record) override;
    void onDisconnected() override;

    Counters counters() const;

    // No event is begun from here on; one that waits for the definitions comes again in the next life of the process.
    void stop();

    // Who holds it keeps the handlers idle; it waits for the event that is under way, but not for one that waits.
    Mutex& handling() RETURN_CAPABILITY(m_handling) { return m_handling; }

private:
    using Ticket = EventLedger::Ticket;
    using Destinations = std::shared_ptr<const TrapDestinationMap>;

    void startAfter(unsigned long long sequence, const std::string& store) REQUIRES(m_handling);
    // Whether another line about events that cannot be used is written.
    [[nodiscard]] bool mayComplain() REQUIRES(m_handling);
    bool changesList(const AlarmEvent& event) REQUIRES(m_handling);
    bool mayBegin(MutexLock& handling) REQUIRES(m_handling);
    void follow(const AlarmEvent& event, const CTLVRecordV3& record, std::optional<bool>& changes) REQUIRES(m_handling);
    const TrapDestinationMap& allDestinations() REQUIRES(m_handling);
    void notify(INotifyMsgHandler& handler, unsigned int place, const NotificationDelivery::Begun& begun,
                const CTLVRecordV3& record) REQUIRES(m_handling);
    void prepare(INotifyMsgHandler& handler, const CTLVRecordV3& record, NotificationDelivery::Delivery& delivery)
        REQUIRES(m_handling);
    std::shared_ptr<const Notification> build(INotifyMsgHandler& handler, const AlarmEvent& event,
                                              const CTLVRecordV3& record) REQUIRES(m_handling);

    const std::list<INotifyMsgHandler*>& m_handlers;
    const TamrelBinding& m_binding;
    AlarmDefinitions& m_definitions;
    NotificationDelivery& m_delivery;
    const std::vector<NotificationSink*>& m_sinks;
    EventLedger& m_ledger;
    std::function<void()> m_alarmsChanged;

    Mutex m_handling;  // held while an event is handled
    ConditionVariable m_stopped;

    // For events that cannot be used. A backend that sends such without end must not fill the disk with what host and
    // module say of each: once it is used up the module's lines are left out, too, until an event can be used.
    LogRateLimiter m_complaints GUARDED_BY(m_handling){60, std::chrono::seconds(60)};
    bool m_quiet GUARDED_BY(m_handling) = false;

    bool m_stopping GUARDED_BY(m_handling) = false;

    // Of each sink, as last seen, and all of them in one list when several have some. Lists change seldom: no event
    // pays for putting them together.
    std::vector<Destinations> m_parts GUARDED_BY(m_handling);
    Destinations m_merged GUARDED_BY(m_handling);

    // The repository was compared with the backend when this was its last event: it is ahead of those up to here.
    unsigned long long m_comparedAt GUARDED_BY(m_handling) = 0;

    // Of the events from there to this one the backend's list may have been ahead, or not. Until they are followed,
    // what the repository holds.
    unsigned long long m_listedUpTo GUARDED_BY(m_handling) = 0;
    std::unordered_set<unsigned int> m_held GUARDED_BY(m_handling);

    std::atomic<std::uint64_t> m_events{0};
    std::atomic<std::uint64_t> m_notBuilt{0};
    std::atomic<std::uint64_t> m_badRecords{0};
};

}  // namespace vrx
