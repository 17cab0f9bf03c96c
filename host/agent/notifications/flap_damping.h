// Fewer traps of alarms that flap: decides for each change of an alarm, and each stream of traps that would tell of it,
// whether the trap goes now or is held. A stream is one kind of trap to one destination.
//
//     FlapDamping damping(limits);
//     const FlapDamping::Noted noted = damping.change({alarmId, serial, raised, parameters}, now);  // once per event
//     ...                                                                    // noted.first goes first
//     FlapDamping::Verdict verdict = damping.offer(noted, stream, item, now);  // then once per stream
//     ...
//     verdict = damping.takeDue(now);                                // from nextDue() on
//
// An alarm is known by its identifier and parameters, that is by the object that it is about; each time that it is
// raised has a serial number of its own. It flaps when it is raised and ends, by turns, `changes` times within
// `window`. From then on a stream gets one of its traps an interval; meanwhile traps are held. Of those only what the
// stream has to know in the end is kept: a raise and its own end, both held, cancel each other. What is left, at most
// the end of what was last told and a raise after it, is sent in this order, one at each end of an interval. So
//
// - the first raise goes at once, and so does every change of an alarm that does not flap;
// - when it is quiet each stream has heard of the last state, and of the end of every raise that it was told of;
// - the order within a stream is that of the changes.
//
// An alarm that is raised again while it stands does not flap: both stand, and each is told of at once.
//
// Items are numbers of the caller. Each that was offered comes back once, by whichever call: to be sent, in the order
// given, or superseded.
//
// Memory: of the last `alarms` alarms that changed; of those beyond, what is held is sent and they are forgotten. Time
// is handed in and never goes back. Threads: one at a time.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <list>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace vrx {

struct FlapDampingLimits {
    unsigned int changes = 0;           // within the window are flapping; 0: nothing is ever held
    std::chrono::seconds window{60};    // of these changes
    std::chrono::seconds interval{60};  // one trap in it
};

class FlapDamping {
public:
    using Clock = std::chrono::steady_clock;
    using Item = std::uint64_t;
    using Stream = std::pair<unsigned int, std::string>;  // kind of trap, destination

    struct Change {
        std::uint64_t alarmId = 0;
        std::uint32_t serial = 0;
        bool raised = true;  // else it has ended
        std::string parameters;
    };

    struct Verdict {
        std::vector<Item> send;  // in this order
        std::vector<Item> superseded;
    };

    // Of the parameters their hash: they may be long. Two objects taken for one flap a little sooner, and no trap is
    // cancelled by another than that of its own serial number.
    using Name = std::pair<std::uint64_t, std::size_t>;

    // A change, for the traps that tell of it.
    struct Noted {
        std::optional<Name> name;  // nothing: not to be paced
        bool byTurns = false;      // a raise of what had ended, or the end of what was raised last
        bool flaps = false;
        bool raised = false;
        std::uint32_t serial = 0;
        Verdict first;  // what was held of an alarm that is forgotten for this one: to be sent before
    };

    static constexpr std::size_t ALARMS = 4096;

    explicit FlapDamping(const FlapDampingLimits& limits, std::size_t alarms = ALARMS)
        : m_limits(limits), m_most(alarms) {}
    FlapDamping(const FlapDamping&) = delete;
    FlapDamping& operator=(const FlapDamping&) = delete;

    // Off: all that is held is to be sent.
    Verdict setLimits(const FlapDampingLimits& limits);

    // An alarm changes.
    Noted change(const Change& change, Clock::time_point now);

    // The trap of the change for a stream. Neither sent nor superseded: it is held.
    Verdict offer(const Noted& change, const Stream& stream, Item item, Clock::time_point now);

    // What an interval has ended for.
    Verdict takeDue(Clock::time_point now);

    // When takeDue() may give something next; Clock::time_point::max() while nothing is held.
    Clock::time_point nextDue() const;

    std::size_t held() const { return m_held; }

private:
    struct Held {
        Item item;
        std::uint32_t serial;
        bool raised;
    };

    struct StreamState {
        Clock::time_point lastSent;
        std::vector<Held> held;  // at most 2: an end, and a raise after it
    };

    struct Alarm {
        std::list<Clock::time_point> changes;   // the last ones by turns, as many as are flapping
        std::optional<std::uint32_t> standing;  // serial number of what was raised last, until it ends
        std::map<Stream, StreamState> streams;  // since it flaps
        std::list<Name>::iterator place;        // in m_byAge
    };

    Alarm& alarmOf(const Name& name);
    StreamState* stateOf(const Name& name, const Stream& stream);
    void takeFirst(Clock::time_point now, Verdict& verdict);
    bool flaps(const Alarm& alarm, Clock::time_point now) const;
    static bool holds(const Alarm& alarm);
    void hold(const Noted& change, const Stream& stream, StreamState& state, Item item);
    void release(StreamState& state, Verdict& verdict);
    Verdict sendAll();
    void forgetOne(Verdict& verdict);

    FlapDampingLimits m_limits;
    const std::size_t m_most;
    std::map<Name, Alarm> m_alarms;
    std::list<Name> m_byAge;                                      // the one that changed last comes last
    std::set<std::tuple<Clock::time_point, Name, Stream>> m_due;  // at least those that are
    std::size_t m_held = 0;
};

}  // namespace vrx
