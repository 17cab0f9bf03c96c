// Sends traps to the configured destinations: one bounded queue, one pace and one channel per destination.
//
//     TrapSender sender(loop, options, transport);
//     sender.setHeartbeats(std::chrono::seconds(300), root + "/state/heartbeats");
//     sender.setDestinations(all);
//     sender.sendColdStart();
//     sender.submit(origin, *sender.destinations(), chosen, trap, [] { /* no destination waits for it any more */ });
//
// submit() only puts traps into queues; the agent thread takes them out, as fast as each destination's pace allows. A
// trap whose queue is full is dropped. Names are looked up in the background, and their traps wait for that. Order is
// kept per destination.
//
// With an interval for them, heartbeat traps tell each destination how many traps were sent to it: before the first one
// from each source port, at each interval and at the end. A trap whose sysUpTime is below that of a heartbeat is in its
// count, any other is not; sysUpTime is set forward where needed, by a hundredth of a second. Heartbeats take no token
// of the pace, and are in no counter but their own.
//
// Threads: made, stopped and destroyed on the agent thread, which also runs what it posts to the loop; every operation
// not marked otherwise may be called from any thread.
#pragma once

#include <atomic>
#include <cstddef>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>

#include "host/agent/delivery/delivery_account.h"
#include "host/agent/delivery/notification_fitting.h"
#include "host/agent/delivery/notification_sink.h"
#include "host/agent/delivery/send_scheduler.h"
#include "host/agent/loop/agent_loop.h"
#include "host/agent/traps/heartbeat_traps.h"
#include "host/agent/traps/token_bucket.h"
#include "host/agent/traps/trap_channel.h"
#include "host/agent/traps/trap_counters.h"
#include "host/agent/traps/trap_options.h"
#include "host/base/mutex.h"
#include "host/notification_log/notification.h"
#include "platform/trap_dest_info.h"

namespace vrx {

class TrapSender : public NotificationSink {
public:
    // `loop` and `transport` outlive the sender.
    TrapSender(AgentLoop& loop, const TrapOptions& options, TrapTransport& transport,
               NameResolver::Lookup lookup = NameResolver::systemLookup);
    TrapSender(const TrapSender&) = delete;
    TrapSender& operator=(const TrapSender&) = delete;

    // The whole list. What waits for a changed destination goes where it is now; what waits for a deleted one is
    // dropped.
    void setDestinations(const std::list<tTrapDestInfo>& destinations);

    std::shared_ptr<const TrapDestinationMap> destinations() const override;

    // `settled` is called as soon as the trap was sent or dropped at all chosen destinations.
    void submit(const NotificationOrigin& origin, const TrapDestinationMap& considered,
                const std::list<tTrapDestInfo>& chosen, std::shared_ptr<const Notification> trap,
                Settled settled) override;

    bool takesLate() const override { return true; }

    // Octets that the message of a trap has at most, as far as its texts can be shortened.
    void setMessageSize(std::size_t octets) { m_messageSize = octets; }

    // Seconds between two heartbeats of a destination; 0: none. `path` is where series outlive this process. Agent
    // thread, first before there are destinations.
    void setHeartbeats(std::chrono::seconds interval, const std::string& path);

    // The configuration changed: communities and users are looked up anew.
    void refresh();

    // Sends nothing any more and closes all channels; one log line per destination. Agent thread.
    void stop();

    TrapStatus status() const;
    TrapCounters totals() const;  // of all destinations, those that are gone included

private:
    using Clock = TokenBucket::Clock;

    struct Item {
        std::shared_ptr<Submission> submission;
        Clock::time_point since;
        std::uint64_t number = 0;  // of the destination's traps
    };
    using Queue = std::list<Item>;  // an item changes its place without memory

    // Out of its queue, and not counted yet.
    struct Taken {
        Queue item;  // just this one
        bool paced = false;

        Submission& submission() const { return *item.front().submission; }
    };

    struct Destination {
        tTrapDestInfo info;
        Queue queue;
        std::uint64_t lastNumber = 0;
        std::uint64_t pacedNumber = 0;  // traps up to this one have met an empty bucket
        TrapCounters counters;          // but `waiting`
        std::uint64_t heartbeats = 0;   // sent
        bool sending = false;           // a trap is out of the queue and not counted yet
        DestinationState state = DestinationState::Unknown;
        std::string reason;
        std::string resolvedAddress;
    };

    // agent thread only
    struct Link {
        explicit Link(const TokenBucket& p) : tokens(p) {}
        TokenBucket tokens;
        TrapRoute route;  // of the channel
        std::unique_ptr<TrapChannel> channel;
        bool leftOutKnown = false;  // it was said that bindings are left out

        std::optional<HeartbeatSeries> series;  // while heartbeats are on
        Clock::time_point nextHeartbeat;
        std::uint32_t upTime = 0;  // of the last message
        bool greeted = false;      // a heartbeat went through the channel
        bool failing = false;      // the last message did not get out
    };

    // What the next trap of a destination needs.
    struct Readiness {
        DestinationState state = DestinationState::Ready;
        std::string reason;
        TrapDrop drop = TrapDrop::SendFailed;  // what happens to traps while it is neither ready nor unresolved
        bool proven = false;                   // ready: a trap got out
        std::string lost;                      // failing: what was to get out
    };

    void enqueue(Destination& destination, const std::shared_ptr<Submission>& submission, Queue& places,
                 std::vector<Settled>& settled) REQUIRES(m_mutex);
    void dropItem(Destination& destination, const Item& item, TrapDrop reason, std::vector<Settled>& settled)
        REQUIRES(m_mutex);

    // Agent thread.
    void takeTurn();
    bool serve(const std::string& key, Clock::time_point& nextTurn);
    Readiness makeReady(const tTrapDestInfo& info, Link& link);
    void noteState(const std::string& key, const Readiness& readiness);
    void noteLeftOut(const std::string& key, Link& link);
    void noteFate(const std::string& key, const Submission& submission, const TrapSendResult& result);
    void dropAll(const std::string& key, TrapDrop reason);
    void dropAged(const std::string& key, Clock::time_point& nextTurn);
    void beatWhenDue(const std::string& key, const tTrapDestInfo& info, Link& link);
    TrapSendResult beat(Link& link, std::chrono::seconds until);
    void endSeries(Link& link) noexcept;
    void storeSeries();
    std::uint32_t upTimeFrom(std::uint32_t earliest);
    bool sendNext(const std::string& key, Link& link, Clock::time_point& nextTurn);
    std::optional<Taken> take(const std::string& key, Link& link, Clock::time_point& nextTurn);
    void putBack(const std::string& key, Link& link, Taken& taken);
    void settle(const std::string& key, const Taken& taken, const TrapSendResult& result);
    void closeLostLinks(const std::set<std::string>& keys);

    const TrapOptions m_options;
    TrapTransport& m_transport;
    std::atomic<std::size_t> m_messageSize{LONGEST_MESSAGE};

    mutable Mutex m_mutex;
    DeliveryAccount<Destination> m_account GUARDED_BY(m_mutex);

    std::map<std::string, Link> m_links;  // agent thread only, as the next two
    std::optional<HeartbeatTraps> m_heartbeats;
    std::chrono::seconds m_heartbeatInterval{0};

    SendScheduler m_scheduler;
};

}  // namespace vrx
