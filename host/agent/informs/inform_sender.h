// Sends traps as informs to the receivers of the configuration: each is repeated until its receiver has acknowledged
// it, from a queue on disk per receiver.
//
//     InformSender informs(loop, transport, root + "/state/informs.db", options.resolveInterval);
//     informs.setDestinations(words.destinations, true);
//     informs.submit(origin, *informs.destinations(), chosen, trap, [] { /* it is on disk everywhere */ });
//
// Of each receiver's informs several are under way, those of one alarm one after the other (inform_window.h); what one
// receiver does touches no other. The first answer is waited for as long as the policy says, then the inform is sent
// again and waited for twice as long, and so on up to a limit; after an acknowledgement the next ones follow at once.
// Repeated waits are shorter by up to an eighth, at random: those of many agents that lost one receiver do not end
// together. Names are looked up in the background.
//
// Threads: made, configured, stopped and destroyed on the agent thread, which also runs what it posts to the loop;
// status() from any.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "host/agent/delivery/delivery_account.h"
#include "host/agent/delivery/notification_fitting.h"
#include "host/agent/delivery/notification_sink.h"
#include "host/agent/delivery/send_scheduler.h"
#include "host/agent/informs/inform_channel.h"
#include "host/agent/informs/inform_queue.h"
#include "host/agent/informs/inform_status.h"
#include "host/agent/informs/inform_window.h"
#include "host/agent/loop/agent_loop.h"
#include "host/base/fault_line.h"
#include "host/base/mutex.h"

namespace vrx {

class InformSender : public NotificationSink {
public:
    // `loop` and `transport` outlive the sender. Throws SqliteError when the queue's file cannot be used.
    InformSender(AgentLoop& loop, InformTransport& transport, const std::string& queuePath,
                 std::chrono::seconds resolveInterval, NameResolver::Lookup lookup = NameResolver::systemLookup);
    InformSender(const InformSender&) = delete;
    InformSender& operator=(const InformSender&) = delete;

    // The whole list. What waits for a changed receiver goes where it is now; what waits for one that is gone is
    // dropped, unless the list is not `complete`: then it may be back when the configuration is in order again.
    void setDestinations(const std::vector<InformDestination>& destinations, bool complete);

    // Their numbers are above those of the trap destination table, and never used twice.
    std::shared_ptr<const TrapDestinationMap> destinations() const override;

    // `settled` is called as soon as the informs are on disk.
    void submit(const NotificationOrigin& origin, const TrapDestinationMap& considered,
                const std::list<tTrapDestInfo>& chosen, std::shared_ptr<const Notification> trap,
                Settled settled) override;

    // Octets that the message of an inform has at most, as far as its texts can be shortened. Agent thread.
    void setMessageSize(std::size_t octets) { m_messageSize = octets; }

    void startAfter(unsigned long long sequence) override { m_queue.startAfter(sequence); }

    // Sends nothing any more, and writes what is not on disk yet; one log line per receiver.
    void stop();

    InformStatus status() const;

private:
    using Clock = std::chrono::steady_clock;

    struct Destination {
        InformDestination settings;
        std::string name;
        InformCounters counters;  // but `waiting` and what the queue counts
        InformState state = InformState::Unused;
        std::optional<InformFailure> lastFailure;
        std::string resolvedAddress;
        std::string engine;
        FaultLine overflow;  // of its queue
    };

    // agent thread only
    struct Link {
        InformPeer peer;  // of the channel
        std::string address;
        std::unique_ptr<InformChannel> channel;
        InformWindow window;
        std::size_t settled = 0;    // so many of the steps that settle the channel's outcome
        unsigned int unopened = 0;  // attempts to open a channel
        Clock::time_point notBefore{};
    };
    using Entry = InformWindow::Entry;

    std::map<std::string, std::string> retire(const InformQueue::Limits& gone) REQUIRES(m_mutex);
    std::shared_ptr<const TrapDestinationMap> adopt(const std::vector<InformDestination>& destinations,
                                                    const std::map<std::string, std::string>& known) REQUIRES(m_mutex);
    std::uint32_t upTime() const;
    void enqueue(Destination& destination, const NotificationOrigin& origin, InformQueue::Places& places)
        REQUIRES(m_mutex);
    void noteFull(Destination& destination, bool full) REQUIRES(m_mutex);

    // Agent thread.
    void takeTurn();
    void serve(const std::string& key);
    void settle(const std::string& key, Link& link, const InformPolicy& policy);
    bool open(const std::string& key, Link& link, const InformDestination& settings, const std::string& address);
    void sendNext(Link& link, const InformPolicy& policy);
    void sendOvertaken(const std::string& key, Link& link);
    void take(const std::string& key, Link& link, Entry& entry, const InformOutcome& outcome);
    static void close(Link& link, Entry& entry, InformOutcome::Kind kind, const InformPolicy& policy);
    std::size_t wantedSize(const Entry& entry) const;
    std::chrono::milliseconds patienceOf(const InformPolicy& policy, unsigned int attempts);
    void noteFate(const std::string& key, Link& link, Entry& entry, const InformOutcome& outcome);
    void noteOutcome(const std::string& key, Link& link, Entry& entry, const InformOutcome& outcome);
    void noteState(const std::string& key, const Link& link, InformState state, const std::string& failure);

    InformTransport& m_transport;
    const std::uint32_t m_firstUpTime;  // hundredths of a second
    const Clock::time_point m_start = Clock::now();

    mutable Mutex m_mutex;
    DeliveryAccount<Destination> m_account GUARDED_BY(m_mutex);

    std::size_t m_messageSize = LONGEST_MESSAGE;  // agent thread only, as the next
    unsigned long m_lastNumber;                   // of a destination
    std::map<std::string, Link> m_links;          // by key
    std::minstd_rand m_random;

    SendScheduler m_scheduler;
    InformQueue m_queue;  // after the scheduler: its thread wakes them
};

}  // namespace vrx
