// The informs of one receiver that are under way, and which is sent next.
//
//     while (window.hasRoom()) window.take(nextOf(queue, window.lastTaken()));
//     while (InformWindow::Entry* entry = window.next(32)) { send(entry->inform); window.sent(*entry, now); }
//     ...                                                       // what comes of one:
//     window.answered(*entry, now, firstRetry); window.remove(*entry);
//     window.unanswered(*entry); window.release(*entry);        // it is sent again when its turn comes
//
// Order: the oldest first, but no inform of an alarm while an earlier one of the same alarm is there. Two informs are
// of one alarm when they have its serial number, or its identifier and location: an object's alarm that ends and is
// raised again has another serial number. Those that are of no alarm are taken for one.
//
// So many as the limit says are under way at most. It begins with one and doubles with every second round trip while
// as many are under way as may be, but only as far as a receiver that works on one after the other would still answer
// all within half the time until the first repetition: a slow one gets nothing twice. A receiver that is silent gets
// one at a time.
//
// An inform that is lost on the way is noticed by the answers to those that were sent after it: overtaken by so many it
// is sent again at once, a few times. In this way a loss costs a round trip instead of the time until the repetition.
//
// Only take() needs memory. Threads: one at a time.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <list>
#include <optional>

#include "host/agent/informs/inform_channel.h"

namespace vrx {

class InformWindow {
public:
    using Clock = std::chrono::steady_clock;

    // The alarm that an inform tells of.
    struct Alarm {
        std::uint64_t serial = 0;
        std::uint64_t identifier = 0;
        std::size_t location = 0;  // a hash
    };

    struct Entry {
        Inform inform;
        std::optional<Alarm> alarm;
        unsigned int earlier = 0;    // informs of its alarm that are there
        unsigned int attempts = 0;   // that came to nothing
        bool wasSent = false;        // at least once
        bool shortened = false;      // and that was noted
        bool isDone = false;         // it is not to be sent again
        bool isUnderWay = false;     // as the rest: since it was sent last
        unsigned int early = 0;      // times that it was sent again, as one that was overtaken
        unsigned int overtaken = 0;  // by so many answers
        std::uint64_t turn = 0;      // its number among all that were sent
        std::uint64_t answers = 0;   // that had come when it was sent
        Clock::time_point sentAt{};
    };

    static constexpr unsigned int OVERTAKEN = 16;            // answers that say that an inform is lost
    static constexpr unsigned int OVERTAKEN_AT_THE_END = 3;  // when all that are under way were overtaken
    static constexpr unsigned int EARLY = 3;                 // times that one is sent again for that

    bool hasRoom() const { return m_entries.size() < LARGEST_INFORM_WINDOW; }
    std::uint64_t lastTaken() const { return m_lastTaken; }  // its number
    void take(const Inform& inform);

    // The one to be sent now; null when there is none, or as many as may be are under way.
    Entry* next(unsigned int limit);
    void sent(Entry& entry, Clock::time_point now);

    // One that was overtaken and is to be sent once more while it is under way.
    Entry* overtaken();
    void sentEarly(Entry& entry);

    Entry* find(std::uint64_t number);
    bool isAnsweredSince(const Entry& entry) const { return m_answers != entry.answers; }  // something was

    // What came of one that was under way, before it is removed or released.
    void answered(const Entry& entry, Clock::time_point now, std::chrono::milliseconds firstRetry);
    void unanswered(const Entry& entry);
    void failed() { m_size = 1; }

    void remove(const Entry& entry);
    void release(Entry& entry);

    // Nothing is under way any more.
    void restart();

private:
    std::list<Entry> m_entries;  // in the order of their numbers
    std::uint64_t m_lastTaken = 0;
    unsigned int m_underWay = 0;
    unsigned int m_size = 1;  // so many may be
    unsigned int m_limit = 1;
    std::uint64_t m_turns = 0;
    std::uint64_t m_grownAt = 0;   // the turns up to here were sent before it had its size, or while it was filled
    std::uint64_t m_shrunkAt = 0;  // the last turn then
    std::uint64_t m_answers = 0;
};

}  // namespace vrx
