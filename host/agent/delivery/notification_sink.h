// Somewhere that the traps of alarm events go to: each sink has destinations of its own, among which the notification
// handlers choose.
//
// Threads: any, and one call of submit() at a time: of an event from the event source's, of what flapped from the agent
// thread, of what is sent again from an operator's.
#pragma once

#include <functional>
#include <list>
#include <map>
#include <memory>
#include <set>
#include <string>

#include "host/notification_log/notification.h"
#include "platform/trap_dest_info.h"

namespace vrx {

// Destinations by their number with leading zeros: the order of the keys is that of the numbers.
using TrapDestinationMap = std::map<std::string, tTrapDestInfo>;

// The key of a destination's number; a text that is no number stays as it is.
std::string trapDestinationKey(const std::string& index);

// Keys of those of `considered` that `chosen` names.
std::set<std::string> chosenKeys(const TrapDestinationMap& considered, const std::list<tTrapDestInfo>& chosen);

// What a trap is about: which of the handlers built it for which alarm event. Origins of traps that are submitted
// ascend; an event that comes again, after a restart of the agent, has the origins that it had.
struct NotificationOrigin {
    unsigned long long sequence = 0;  // of the event; 0 for traps that are about none, such as coldStart
    unsigned int handler = 0;         // its place among the dispatcher's handlers
};

class NotificationSink {
public:
    using Settled = std::function<void()>;

    virtual ~NotificationSink() = default;

    // Never null. The numbers of all sinks' destinations differ: those of the trap destination table are 1 to 65535.
    virtual std::shared_ptr<const TrapDestinationMap> destinations() const = 0;

    // One trap. `considered` is the list that was chosen from, as destinations() gave it: it tells what is filtered.
    // `chosen` may name a destination twice, and others than those of this sink. A null trap is one that could not be
    // built. `settled` is called once, by any thread, as soon as the event need not come again for this sink; not when
    // the sink stops before that. Throws std::bad_alloc, and nothing was taken.
    virtual void submit(const NotificationOrigin& origin, const TrapDestinationMap& considered,
                        const std::list<tTrapDestInfo>& chosen, std::shared_ptr<const Notification> trap,
                        Settled settled) = 0;

    // coldStart to all destinations.
    void sendColdStart();

    // Whether a trap may come after others of younger origin: it was held while its alarm flapped. A sink that does
    // not take such gets every trap at once.
    virtual bool takesLate() const { return false; }

    // Events are numbered anew, from `sequence` + 1. What the sink remembers of it is on disk when it returns; throws
    // what storing throws.
    virtual void startAfter(unsigned long long sequence) { (void)sequence; }
};

}  // namespace vrx
