#include "host/agent/notifications/active_alarms.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "host/transport/backend_protocol.h"
#include "tests/agent/notifications/notification_records.h"

namespace vrx {

namespace {

using testing::ElementsAre;

constexpr unsigned int MAJOR = 5;  // as the backend grades them
constexpr unsigned int MINOR = 4;

// The next listener; sees the counts that hold when it is called.
class Next : public AlarmEventSource::Listener {
public:
    std::optional<HandledEvent> lastHandledEvent() override { return HandledEvent{17, "s"}; }
    void onConnected(const BackendState& state) override {
        note("connected " + std::to_string(state.lastSequence) + " " + std::to_string(state.alarms.size()));
    }
    void onEvent(const AlarmEvent& event, const CTLVRecordV3&) override {
        note("event " + std::to_string(event.sequence));
        if (fails) throw std::runtime_error("no luck");
    }
    void onDisconnected() override { note("disconnected"); }

    ActiveAlarms* alarms = nullptr;
    bool fails = false;
    std::vector<std::string> heard;

private:
    void note(const std::string& what) { heard.push_back(what + ", active " + std::to_string(alarms->state().active)); }
};

class ActiveAlarmsTest : public testing::Test {
protected:
    ActiveAlarmsTest() { m_next.alarms = &m_alarms; }

    void connect(unsigned long long last, const std::vector<ActiveAlarm>& alarms) {
        BackendState state;
        state.lastSequence = state.listedUpTo = last;
        state.alarms = alarms;
        m_alarms.onConnected(state);
    }

    void event(unsigned long long sequence, unsigned int serial, unsigned int level, unsigned long long ended = 0) {
        CTLVRecordV3 record(2004, CTLVRecordV3::DEFAULT_BUCKETS);
        appendUint64(record, alarm_tag::ID, 77);
        appendUint32(record, alarm_tag::LEVEL, level);
        appendUint32(record, alarm_tag::SERIAL, serial);
        appendUint64(record, alarm_tag::ENDED, ended);
        appendUint64(record, alarm_tag::SECOND_END, 0);
        appendText(record, alarm_tag::PARAMETERS, "p");
        m_alarms.onEvent(alarmEventOf(sequence, record), record);
    }

    std::vector<std::size_t> levels() const {
        const ActiveAlarms::State state = m_alarms.state();
        return {state.of(FaultLevel::Critical), state.of(FaultLevel::Major), state.of(FaultLevel::Minor),
                state.of(FaultLevel::Warning)};
    }

    Next m_next;
    ActiveAlarms m_alarms{m_next};
};

TEST_F(ActiveAlarmsTest, BeforeTheFirstConnectionNothingIsKnown) {
    const ActiveAlarms::State state = m_alarms.state();
    EXPECT_FALSE(state.connected);
    EXPECT_EQ(state.active, 0U);
    EXPECT_EQ(state.changes, 0U);
    EXPECT_FALSE(state.lastChange.has_value());
    EXPECT_EQ(m_alarms.lastHandledEvent()->sequence, 17U);
}

TEST_F(ActiveAlarmsTest, TheBackendsListGivesTheCounts) {
    connect(9, {{1, 1}, {2, 4}, {3, 5}, {4, 6}, {5, 7}, {6, 8}});
    EXPECT_THAT(levels(), ElementsAre(2, 1, 1, 2));
    const ActiveAlarms::State state = m_alarms.state();
    EXPECT_EQ(state.active, 6U);
    EXPECT_EQ(state.changes, 1U);
    EXPECT_EQ(state.lastEvent, 9U);
    EXPECT_FALSE(state.lastEventAt.has_value());
    EXPECT_TRUE(state.connected);
    EXPECT_EQ(state.connections, 1U);
}

TEST_F(ActiveAlarmsTest, EventsAreCountedBeforeTheNextListenerHearsOfThem) {
    connect(0, {});
    event(1, 10, MAJOR);
    event(2, 11, MINOR);
    event(3, 10, MAJOR, 1700000000);
    EXPECT_THAT(m_next.heard,
                ElementsAre("connected 0 0, active 0", "event 1, active 1", "event 2, active 2", "event 3, active 1"));
    EXPECT_THAT(levels(), ElementsAre(0, 0, 1, 0));
    EXPECT_EQ(m_alarms.state().changes, 3U);
    EXPECT_EQ(m_alarms.state().lastEvent, 3U);
    EXPECT_TRUE(m_alarms.state().lastEventAt.has_value());
}

TEST_F(ActiveAlarmsTest, EventsThatTheListWasAheadOfChangeNothing) {
    connect(5, {{10, MAJOR}});
    event(4, 9, MAJOR);
    event(5, 10, MAJOR, 1700000000);
    EXPECT_EQ(m_alarms.state().active, 1U);
    EXPECT_EQ(m_alarms.state().lastEvent, 5U);
    EXPECT_THAT(m_next.heard, testing::Contains("event 5, active 1"));
    event(6, 10, MAJOR);              // was on the list already
    event(7, 12, MAJOR, 1700000000);  // was not
    EXPECT_EQ(m_alarms.state().active, 1U);
    EXPECT_EQ(m_alarms.state().changes, 1U);
}

TEST_F(ActiveAlarmsTest, AnAlarmCountsForTheLevelThatItWasRaisedWith) {
    connect(0, {});
    event(1, 10, MAJOR);
    event(2, 10, MINOR, 1700000000);
    EXPECT_THAT(levels(), ElementsAre(0, 0, 0, 0));
}

TEST_F(ActiveAlarmsTest, ARecordOfNoUseIsLeftToTheNextListener) {
    connect(0, {{1, MAJOR}});
    m_alarms.onEvent(alarmEventOf(1, *emptyRecord()), *emptyRecord());
    EXPECT_EQ(m_alarms.state().active, 1U);
    EXPECT_EQ(m_alarms.state().lastEvent, 1U);
    EXPECT_EQ(m_next.heard.back(), "event 1, active 1");
}

TEST_F(ActiveAlarmsTest, WhatTheNextListenerThrowsGoesOnAndTheCountStays) {
    connect(0, {});
    m_next.fails = true;
    EXPECT_THROW(event(1, 10, MAJOR), std::runtime_error);
    EXPECT_EQ(m_alarms.state().active, 1U);
    m_next.fails = false;
    event(1, 10, MAJOR);  // comes again
    EXPECT_EQ(m_alarms.state().active, 1U);
    EXPECT_EQ(m_alarms.state().changes, 1U);
}

TEST_F(ActiveAlarmsTest, WithoutAConnectionTheCountsStayAndAnEqualListIsNoChange) {
    connect(2, {{1, MAJOR}, {2, MINOR}});
    const auto since = m_alarms.state().since.steady;
    m_alarms.onDisconnected();
    EXPECT_FALSE(m_alarms.state().connected);
    EXPECT_GE(m_alarms.state().since.steady, since);
    EXPECT_EQ(m_alarms.state().active, 2U);
    connect(2, {{1, MAJOR}, {2, MINOR}});
    EXPECT_EQ(m_alarms.state().changes, 1U);
    EXPECT_EQ(m_alarms.state().connections, 2U);
    m_alarms.onDisconnected();
    connect(4, {{2, MINOR}});
    EXPECT_EQ(m_alarms.state().changes, 2U);
    EXPECT_THAT(levels(), ElementsAre(0, 0, 1, 0));
}

}  // namespace

}  // namespace vrx
