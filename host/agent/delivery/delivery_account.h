// What became of the notifications of a sink: counted per destination, and for those that are gone added up. Nothing is
// dropped uncounted.
//
//     enum class TrapDrop { QueueFull, NotBuilt, BadOid, Removed };
//     constexpr DropReason<TrapDrop> TRAP_DROP_REASONS[] = {{TrapDrop::QueueFull, "queue full"}, ...};
//     static_assert(namesAll(TRAP_DROP_REASONS, TrapDrop::Removed));
//     struct TrapCounters : DeliveryCounters<TrapDrop, std::size(TRAP_DROP_REASONS)> { ... };
//     struct Destination { TrapCounters counters; ... };
//     DeliveryAccount<Destination> m_account;
//
// Threads: one at a time; senders hold their lock. A Submission's parts may be released by any.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <numeric>
#include <set>
#include <string>
#include <utility>

#include "host/agent/delivery/notification_sink.h"
#include "host/base/mutex.h"
#include "host/notification_log/notification.h"

namespace vrx {

// Why a notification is dropped, and what that is called in the log, the status and the metrics.
template <typename Reason>
struct DropReason {
    Reason reason;
    const char* text;
};

// Whether the table has one row for each reason up to `last`, in their order.
template <typename Reason, std::size_t N>
constexpr bool namesAll(const DropReason<Reason> (&table)[N], Reason last) {
    for (std::size_t i = 0; i < N; ++i) {
        if (static_cast<std::size_t>(table[i].reason) != i) return false;
    }
    return static_cast<std::size_t>(last) + 1 == N;
}

// Of one destination. REQUIRES: the reasons have NotBuilt, BadOid and Removed.
template <typename Reason, std::size_t N>
struct DeliveryCounters {
    using Drop = Reason;

    std::uint64_t considered = 0;
    std::uint64_t filtered = 0;   // not for this destination
    std::uint64_t sent = 0;       // handed to the network
    std::uint64_t shortened = 0;  // of those sent: with texts cut, to fit into a message
    std::uint64_t waiting = 0;    // now
    std::array<std::uint64_t, N> dropped{};

    void drop(Reason reason, std::uint64_t number = 1) { dropped[static_cast<std::size_t>(reason)] += number; }

    std::uint64_t droppedInAll() const { return std::accumulate(dropped.begin(), dropped.end(), std::uint64_t{0}); }

    // "filtered 4, dropped 1 (queue full 1), waiting 0"
    std::string outcomeText(const DropReason<Reason> (&table)[N]) const {
        std::string reasons;
        for (std::size_t i = 0; i < N; ++i) {
            if (dropped[i] == 0) continue;
            reasons += (reasons.empty() ? " (" : ", ") + std::string(table[i].text) + " " + std::to_string(dropped[i]);
        }
        if (!reasons.empty()) reasons += ")";
        return "filtered " + std::to_string(filtered) + ", dropped " + std::to_string(droppedInAll()) + reasons +
               ", waiting " + std::to_string(waiting);
    }

    void add(const DeliveryCounters& other) {
        considered += other.considered;
        filtered += other.filtered;
        sent += other.sent;
        shortened += other.shortened;
        waiting += other.waiting;
        for (std::size_t i = 0; i < N; ++i) dropped[i] += other.dropped[i];
    }
};

// A notification that several destinations, and whoever hands it in, have a part in: settled when all are through.
class Submission {
public:
    using Settled = NotificationSink::Settled;

    // With the part of whoever hands it in. `notification` is null when it could not be built.
    Submission(std::shared_ptr<const Notification> notification, unsigned long long sequence, Settled settled)
        : m_notification(std::move(notification)), m_sequence(sequence), m_settled(std::move(settled)) {}

    const std::shared_ptr<const Notification>& notification() const { return m_notification; }
    unsigned long long sequence() const { return m_sequence; }  // of the alarm event; 0: of none

    void addPart() noexcept { ++m_parts; }

    // After the last part: what is to be called now, without a lock. Null before, and when nobody waits for it.
    Settled release() noexcept { return --m_parts == 0 ? std::move(m_settled) : Settled(); }

private:
    const std::shared_ptr<const Notification> m_notification;
    const unsigned long long m_sequence;
    Settled m_settled;
    std::atomic<std::size_t> m_parts{1};
};

// The destinations of a sink by their keys, each with its `counters`.
template <typename Destination>
class DeliveryAccount {
public:
    using Counters = decltype(Destination::counters);
    using Drop = typename Counters::Drop;
    using Destinations = std::map<std::string, Destination>;
    using List = std::shared_ptr<const TrapDestinationMap>;

    Destinations& all() { return m_all; }
    const Destinations& all() const { return m_all; }

    // Null when it is gone.
    Destination* find(const std::string& key) {
        const auto found = m_all.find(key);
        return found == m_all.end() ? nullptr : &found->second;
    }

    // Of a destination, or of all that are gone.
    Counters& countersOf(const std::string& key) {
        Destination* const destination = find(key);
        return destination != nullptr ? destination->counters : m_former;
    }

    // Those that are gone, added up.
    Counters& former() { return m_former; }
    const Counters& former() const { return m_former; }

    // Counts a notification at all that were considered, and drops it where it cannot be sent; `take` gets the key and
    // the destination of the others that were chosen.
    template <typename Take>
    NO_THREAD_SAFETY_ANALYSIS void consider(const TrapDestinationMap& considered, const std::set<std::string>& chosen,
                                            const Notification* notification, Take take) {
        for (const auto& entry : considered) {
            Destination* const destination = find(entry.first);
            Counters& counters = destination != nullptr ? destination->counters : m_former;
            ++counters.considered;
            if (chosen.count(entry.first) == 0) {
                ++counters.filtered;
            } else if (destination == nullptr) {  // gone since the list was handed out
                counters.drop(Drop::Removed);
            } else if (notification == nullptr) {
                counters.drop(Drop::NotBuilt);
            } else if (notification->oid.empty()) {
                counters.drop(Drop::BadOid);
            } else {
                take(entry.first, *destination);
            }
        }
    }

    // The destination goes, its counters stay. Gives the one after it.
    typename Destinations::iterator retire(typename Destinations::iterator at) {
        m_former.add(at->second.counters);
        return m_all.erase(at);
    }

    // As handlers choose among them; never null.
    const List& list() const { return m_list; }
    void setList(List list) { m_list = std::move(list); }

private:
    Destinations m_all;
    List m_list = std::make_shared<const TrapDestinationMap>();
    Counters m_former;
};

}  // namespace vrx
