#include "host/agent/notifications/flap_damping.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <random>

namespace vrx {

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using testing::ElementsAre;
using testing::IsEmpty;
using Item = FlapDamping::Item;

const FlapDamping::Stream STREAM{0, "0000000001"};
const FlapDamping::Stream OTHER{0, "0000000002"};

// Three changes within 10 s are flapping, then one trap in 60 s.
constexpr FlapDampingLimits LIMITS{3, seconds(10), seconds(60)};

class FlapDampingTest : public testing::Test {
protected:
    // The item's number is `serial` for a raise, `serial` + 100 for an end.
    void raise(std::uint32_t serial, const std::string& object = "fan") { change(serial, true, object); }
    void end(std::uint32_t serial, const std::string& object = "fan") { change(serial, false, object); }
    void change(std::uint32_t serial, bool raised, const std::string& object) {
        m_noted = note({7, serial, raised, object});
        take(m_damping->offer(m_noted, STREAM, raised ? serial : serial + 100, m_now));
    }
    FlapDamping::Noted note(const FlapDamping::Change& change) {
        FlapDamping::Noted noted = m_damping->change(change, m_now);
        take(noted.first);
        return noted;
    }
    void pass(seconds time) {
        m_now += time;
        take(m_damping->takeDue(m_now));
    }
    void take(const FlapDamping::Verdict& verdict) {
        m_sent.insert(m_sent.end(), verdict.send.begin(), verdict.send.end());
        m_superseded.insert(m_superseded.end(), verdict.superseded.begin(), verdict.superseded.end());
    }
    std::vector<Item> sent() { return std::exchange(m_sent, {}); }
    std::vector<Item> superseded() { return std::exchange(m_superseded, {}); }

    // Raised, ended, raised: the last of these is sent and begins the interval.
    void flap() {
        raise(1);
        end(1);
        raise(2);
        EXPECT_THAT(sent(), ElementsAre(1, 101, 2));
    }

    std::unique_ptr<FlapDamping> m_damping = std::make_unique<FlapDamping>(LIMITS);
    FlapDamping::Clock::time_point m_now{};
    FlapDamping::Noted m_noted;  // the last change
    std::vector<Item> m_sent;
    std::vector<Item> m_superseded;
};

}  // namespace

TEST_F(FlapDampingTest, NothingIsHeldWhenItIsOff) {
    m_damping->setLimits({0, seconds(10), seconds(60)});
    for (std::uint32_t serial = 1; serial < 50; ++serial) {
        raise(serial);
        end(serial);
        EXPECT_THAT(sent(), ElementsAre(serial, serial + 100));
    }
    EXPECT_EQ(m_damping->nextDue(), FlapDamping::Clock::time_point::max());
}

TEST_F(FlapDampingTest, ChangesOfAnAlarmThatDoesNotFlapGoAtOnce) {
    for (std::uint32_t serial = 1; serial < 20; ++serial) {
        raise(serial);
        pass(seconds(6));
        end(serial);
        pass(seconds(6));
        EXPECT_THAT(sent(), ElementsAre(serial, serial + 100));
    }
}

TEST_F(FlapDampingTest, AFlappingAlarmGetsOneTrapAnInterval) {
    flap();
    end(2);
    EXPECT_THAT(sent(), IsEmpty());
    EXPECT_EQ(m_damping->held(), 1U);
    pass(seconds(59));
    EXPECT_THAT(sent(), IsEmpty());
    pass(seconds(1));
    EXPECT_THAT(sent(), ElementsAre(102));
    EXPECT_EQ(m_damping->held(), 0U);
}

TEST_F(FlapDampingTest, AHeldRaiseAndItsEndCancelEachOther) {
    flap();
    end(2);
    raise(3);
    end(3);
    raise(4);
    end(4);
    EXPECT_THAT(superseded(), ElementsAre(3, 103, 4, 104));
    pass(seconds(60));
    EXPECT_THAT(sent(), ElementsAre(102));
    pass(seconds(600));
    EXPECT_THAT(sent(), IsEmpty());
}

TEST_F(FlapDampingTest, NothingIsSentWhenTheStateIsAsItWasTold) {
    flap();
    end(2);  // held
    for (std::uint32_t serial = 3; serial < 33; ++serial) {
        pass(seconds(3));
        raise(serial);
        end(serial);
    }
    EXPECT_THAT(sent(), ElementsAre(102));
    EXPECT_EQ(superseded().size(), 60U);
    EXPECT_EQ(m_damping->held(), 0U);
    pass(seconds(600));
    EXPECT_THAT(sent(), IsEmpty());
}

TEST_F(FlapDampingTest, TheEndOfWhatWasToldComesBeforeANewRaise) {
    flap();
    end(2);
    raise(3);
    pass(seconds(60));
    EXPECT_THAT(sent(), ElementsAre(102));
    pass(seconds(59));
    EXPECT_THAT(sent(), IsEmpty());
    pass(seconds(1));
    EXPECT_THAT(sent(), ElementsAre(3));
}

TEST_F(FlapDampingTest, WhatCameWhileSomethingIsHeldWaitsAfterItAlsoWhenTheAlarmIsQuietAgain) {
    flap();
    end(2);
    m_now += seconds(30);  // no longer flapping
    raise(3);
    EXPECT_THAT(sent(), IsEmpty());
    pass(seconds(30));
    pass(seconds(60));
    EXPECT_THAT(sent(), ElementsAre(102, 3));
}

TEST_F(FlapDampingTest, ChangesGoAtOnceAgainWhenItWasQuiet) {
    flap();
    pass(seconds(11));
    end(2);
    EXPECT_THAT(sent(), ElementsAre(102));
    raise(3);
    EXPECT_THAT(sent(), ElementsAre(3));
}

TEST_F(FlapDampingTest, AnAlarmThatStandsTwiceDoesNotFlap) {
    for (std::uint32_t serial = 1; serial < 20; ++serial) raise(serial);
    for (std::uint32_t serial = 1; serial < 20; ++serial) end(serial);
    EXPECT_EQ(sent().size(), 38U);
    EXPECT_EQ(m_damping->held(), 0U);
}

TEST_F(FlapDampingTest, ASecondAlarmOfAFlappingOneIsToldOfAtOnceAfterWhatIsHeld) {
    flap();
    end(2);
    raise(3);
    EXPECT_THAT(sent(), IsEmpty());
    raise(4);  // beside 3
    EXPECT_THAT(sent(), ElementsAre(102, 3, 4));
    end(3);
    EXPECT_THAT(sent(), ElementsAre(103));
    end(4);  // in its turn: held
    EXPECT_THAT(sent(), IsEmpty());
    pass(seconds(60));
    EXPECT_THAT(sent(), ElementsAre(104));
}

TEST_F(FlapDampingTest, ObjectsFlapByThemselves) {
    flap();
    raise(3, "disk");
    EXPECT_THAT(sent(), ElementsAre(3));
    end(2);
    EXPECT_THAT(sent(), IsEmpty());
}

TEST_F(FlapDampingTest, StreamsArePacedByThemselves) {
    flap();
    end(2);
    EXPECT_THAT(sent(), IsEmpty());
    take(m_damping->offer(m_noted, OTHER, 900, m_now));  // the first that this destination hears of it
    EXPECT_THAT(sent(), ElementsAre(900));
    take(m_damping->offer(note({7, 3, true, "fan"}), OTHER, 901, m_now));
    EXPECT_THAT(sent(), IsEmpty());
    pass(seconds(60));
    EXPECT_THAT(sent(), ElementsAre(102, 901));
}

TEST_F(FlapDampingTest, ATrapIsPacedByTheChangeThatItTellsOf) {
    flap();
    const FlapDamping::Noted flapping = note({7, 2, false, "fan"});
    const FlapDamping::Noted calm = note({7, 3, true, "disk"});
    take(m_damping->offer(flapping, STREAM, 102, m_now));
    EXPECT_THAT(sent(), IsEmpty());
    take(m_damping->offer(calm, STREAM, 3, m_now));
    EXPECT_THAT(sent(), ElementsAre(3));
}

TEST_F(FlapDampingTest, AStreamThatMissedAChangeGetsTheNextOneAtOnce) {
    flap();
    end(2);
    raise(3);
    (void)m_damping->change({7, 3, false, "fan"}, m_now);  // not for this stream
    raise(4);
    EXPECT_THAT(sent(), ElementsAre(102, 3, 4));
}

TEST_F(FlapDampingTest, TurnedOffItSendsWhatItHolds) {
    flap();
    end(2);
    raise(3);
    take(m_damping->setLimits({0, seconds(10), seconds(60)}));
    EXPECT_THAT(sent(), ElementsAre(102, 3));
    EXPECT_EQ(m_damping->held(), 0U);
    pass(seconds(600));
    EXPECT_THAT(sent(), IsEmpty());
}

TEST_F(FlapDampingTest, TurnedOffBetweenAChangeAndItsTrapItSendsTheTrap) {
    flap();
    m_noted = note({7, 2, false, "fan"});
    take(m_damping->setLimits({0, seconds(10), seconds(60)}));
    take(m_damping->offer(m_noted, STREAM, 102, m_now));
    EXPECT_THAT(sent(), ElementsAre(102));
}

TEST_F(FlapDampingTest, AShorterIntervalHoldsForWhatIsHeld) {
    flap();
    end(2);
    take(m_damping->setLimits({3, seconds(10), seconds(5)}));
    EXPECT_EQ(m_damping->nextDue(), m_now + seconds(5));
    pass(seconds(5));
    EXPECT_THAT(sent(), ElementsAre(102));
}

TEST_F(FlapDampingTest, ALongerIntervalHoldsForWhatIsHeld) {
    flap();
    end(2);
    take(m_damping->setLimits({3, seconds(10), seconds(100)}));
    pass(seconds(99));
    EXPECT_THAT(sent(), IsEmpty());
    pass(seconds(1));
    EXPECT_THAT(sent(), ElementsAre(102));
}

TEST_F(FlapDampingTest, AlarmsThatHoldNothingAreForgottenFirst) {
    m_damping = std::make_unique<FlapDamping>(LIMITS, 2);
    flap();
    end(2);  // held
    raise(3, "disk");
    raise(4, "psu");  // "disk" goes
    EXPECT_THAT(sent(), ElementsAre(3, 4));
    EXPECT_EQ(m_damping->held(), 1U);
    pass(seconds(60));
    EXPECT_THAT(sent(), ElementsAre(102));
}

TEST_F(FlapDampingTest, WhatIsHeldOfAForgottenAlarmIsSent) {
    m_damping = std::make_unique<FlapDamping>(LIMITS, 1);
    flap();
    end(2);
    raise(3);
    raise(9, "disk");
    EXPECT_THAT(sent(), ElementsAre(102, 3, 9));
    EXPECT_EQ(m_damping->held(), 0U);
}

TEST_F(FlapDampingTest, NothingIsDueWhileNothingIsHeld) {
    EXPECT_EQ(m_damping->nextDue(), FlapDamping::Clock::time_point::max());
    flap();
    EXPECT_EQ(m_damping->nextDue(), FlapDamping::Clock::time_point::max());
    end(2);
    EXPECT_EQ(m_damping->nextDue(), m_now + seconds(60));
    pass(seconds(60));
    EXPECT_EQ(m_damping->nextDue(), FlapDamping::Clock::time_point::max());
}

// Random lives of several alarms and streams. Each alarm is raised and ends, now and then it stands twice.
namespace {

struct Event {
    std::size_t object;
    std::uint32_t serial;
    bool raised;
};

class FlapDampingProperty : public testing::TestWithParam<unsigned int> {
protected:
    struct Told {
        std::size_t events = 0;        // that this stream was offered
        std::size_t last = 0;          // number of the event last sent, from 1
        std::set<std::uint32_t> open;  // raises told and not their ends
    };

    void take(const FlapDamping::Verdict& verdict) {
        for (const Item item : verdict.send) {
            const std::size_t number = item / STREAMS;
            const std::size_t stream = item % STREAMS;
            const Event& event = m_events[number - 1];
            Told& told = m_told[{event.object, stream}];
            EXPECT_LT(told.last, number) << "order";
            told.last = number;
            if (event.raised) {
                told.open.insert(event.serial);
            } else {
                told.open.erase(event.serial);
            }
            EXPECT_EQ(m_open.erase(item), 1U);
            ++m_sent;
        }
        for (const Item item : verdict.superseded) EXPECT_EQ(m_open.erase(item), 1U);
    }

    void happen(const Event& event) {
        m_events.push_back(event);
        if (event.raised) {
            m_standing[event.object].push_back(event.serial);
        } else {
            auto& standing = m_standing[event.object];
            standing.erase(std::find(standing.begin(), standing.end(), event.serial));
        }
        const FlapDamping::Noted noted = m_damping.change({event.object, event.serial, event.raised, "object"}, m_now);
        take(noted.first);
        for (std::size_t stream = 0; stream < STREAMS; ++stream) {
            const Item item = m_events.size() * STREAMS + stream;
            m_open.insert(item);
            take(m_damping.offer(noted, {static_cast<unsigned int>(stream), "1"}, item, m_now));
            Told& told = m_told[{event.object, stream}];
            if (++told.events > 1) continue;
            EXPECT_EQ(told.last, m_events.size()) << "the first one goes at once";
        }
    }

    static constexpr std::size_t STREAMS = 2;
    static constexpr std::size_t OBJECTS = 5;

    FlapDamping m_damping{{4, seconds(5), seconds(8)}, 4};
    FlapDamping::Clock::time_point m_now{};
    std::vector<Event> m_events;
    std::map<std::size_t, std::vector<std::uint32_t>> m_standing;
    std::map<std::pair<std::size_t, std::size_t>, Told> m_told;
    std::set<Item> m_open;  // offered and neither sent nor superseded
    std::size_t m_sent = 0;
};

}  // namespace

TEST_P(FlapDampingProperty, TheLastStateIsToldAndNothingComesOutOfOrder) {
    std::mt19937 random(GetParam());
    std::uint32_t serial = 0;
    for (int step = 0; step < 2000; ++step) {
        m_now += milliseconds(random() % 10 == 0 ? random() % 20000 : random() % 400);
        take(m_damping.takeDue(m_now));
        EXPECT_EQ(m_damping.held(), m_open.size());
        if (random() % 200 == 0) {
            const auto changes = static_cast<unsigned int>(random() % 6);
            take(m_damping.setLimits({changes, seconds(1 + random() % 9), seconds(1 + random() % 9)}));
        }
        const std::size_t object = random() % OBJECTS;
        const std::vector<std::uint32_t>& standing = m_standing[object];
        if (standing.empty() || (standing.size() < 4 && random() % 20 == 0)) {
            happen({object, ++serial, true});
        } else {
            happen({object, standing[random() % standing.size()], false});
        }
    }
    for (int interval = 0; interval < 3; ++interval) {
        m_now += seconds(10);
        take(m_damping.takeDue(m_now));
    }
    EXPECT_THAT(m_open, IsEmpty());
    EXPECT_LT(m_sent, m_events.size() * STREAMS);
    for (auto& [of, told] : m_told) {
        const std::vector<std::uint32_t>& standing = m_standing[of.first];
        EXPECT_EQ(told.open, std::set<std::uint32_t>(standing.begin(), standing.end())) << of.first;
    }
}

INSTANTIATE_TEST_SUITE_P(Seeds, FlapDampingProperty, testing::Range(1U, 101U));

}  // namespace vrx
