#include "host/agent/web/alarm_list.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <utility>

#include "host/agent/objects/managed_object.h"
#include "tests/agent/mib_samples.h"
#include "tests/agent/trap_test_tools.h"

namespace vrx {

namespace {

using Clock = AlarmList::Clock;
using std::chrono::hours;
using std::chrono::milliseconds;
using std::chrono::seconds;

// A table of as many rows as it is told.
class TableHandler : public CSnmpTableHandler {
public:
    int OnQueryTable(const CVRX_SnmpContext&, const CR8KPackageV3&, CR8KPackageV3& response) override {
        ++queries;
        if (fails) return -1;
        for (unsigned int number = 1; number <= rows; ++number) response.append(makeRow(number, textCell(1, "a")));
        return 0;
    }

    std::atomic<unsigned int> rows{1};
    std::atomic<bool> fails{false};
    std::atomic<int> queries{0};
};

// Time stands still but for pass(). A reading ends in settle(), which turns the loop.
class AlarmListTest : public testing::Test {
protected:
    AlarmListTest() : m_model(loadMib(sampleMib())), m_table(*m_model.find(SAMPLE_TABLE), m_handler, m_loop, BRIEF) {
        make({});
    }

    void make(const AlarmListTimes& times) {
        m_list = std::make_unique<AlarmList>(
            m_loop, &m_table, [this] { return m_told; }, times, [this] { return m_now; });
    }

    void pass(Clock::duration time) { m_now += time; }

    // What was begun so far is over.
    void settle() {
        bool over = false;
        m_table.worker().submit([this, &over] { m_loop.post([&over] { over = true; }); });
        ASSERT_TRUE(turnUntil([&over] { return over; }));
    }

    // Whether a look begins a reading, which then ends.
    bool begins() {
        const int before = m_handler.queries;
        m_list->current();
        settle();
        return m_handler.queries > before;
    }

    // What a look shows when the one before it has ended its reading.
    AlarmReading read() {
        EXPECT_TRUE(begins());
        return m_list->current();
    }

    // Snapshots are soon the list's alone.
    static constexpr SnapshotLimits BRIEF{milliseconds(1), milliseconds(1), milliseconds(1)};

    MibModel m_model;
    TableHandler m_handler;
    AgentLoop m_loop;
    ManagedObject m_table;
    bool m_told = true;  // the list hears of every change
    Clock::time_point m_now = Clock::now();
    std::unique_ptr<AlarmList> m_list;
};

}  // namespace

TEST_F(AlarmListTest, ATableThatNobodyHasIsAFaultAndNotAskedForAgain) {
    AlarmList list(m_loop, nullptr, [] { return true; });
    const AlarmReading reading = list.current();
    EXPECT_EQ(reading.rows, nullptr);
    EXPECT_EQ(reading.fault, "no module has an alarm table");
    EXPECT_FALSE(reading.stale);
}

TEST_F(AlarmListTest, NobodyWaitsForAReadingALaterLookHasIt) {
    const AlarmReading first = m_list->current();
    EXPECT_EQ(first.rows, nullptr);
    EXPECT_TRUE(first.stale);
    settle();
    const AlarmReading second = m_list->current();
    ASSERT_NE(second.rows, nullptr);
    EXPECT_EQ(second.rows->rows(), 1U);
    EXPECT_FALSE(second.stale);
    EXPECT_NE(second.number, first.number);
    EXPECT_EQ(second.fault, "");
}

TEST_F(AlarmListTest, WhoWaitsGetsRowsThatAreReadNow) {
    AlarmReading got;
    int told = 0;
    const auto wait = [&] {
        m_list->whenRead([&](const AlarmReading& reading) {
            got = reading;
            ++told;
        });
    };
    wait();
    wait();
    EXPECT_EQ(told, 0);
    settle();
    EXPECT_EQ(told, 2);
    ASSERT_NE(got.rows, nullptr);
    EXPECT_FALSE(got.stale);
    const int before = m_handler.queries;
    wait();  // nothing has changed
    EXPECT_EQ(told, 3);
    settle();
    EXPECT_EQ(m_handler.queries, before);
}

TEST_F(AlarmListTest, WhoWaitsInVainOrTooEarlyGetsTheLastRows) {
    const AlarmReading last = read();
    m_handler.fails = true;
    m_table.snapshots().markChanged();
    pass(hours(1));
    for (const bool early : {false, true}) {
        AlarmReading got;
        m_list->whenRead([&](const AlarmReading& reading) { got = reading; });
        EXPECT_EQ(got.rows != nullptr, early);
        settle();
        EXPECT_EQ(got.rows, last.rows);
        EXPECT_TRUE(got.stale);
        EXPECT_NE(got.fault, "");
    }
}

TEST_F(AlarmListTest, HoweverManyLookOneReadingIsUnderWay) {
    const std::uint64_t number = m_list->current().number;
    for (int i = 0; i < 5; ++i) m_list->current();
    settle();
    EXPECT_EQ(m_handler.queries, 1);
    EXPECT_EQ(m_list->current().number, number + 1) << "one change";
}

TEST_F(AlarmListTest, AlarmsThatHaveNotChangedAreNotReadAgain) {
    const AlarmReading before = read();
    pass(hours(1000));
    EXPECT_FALSE(begins());
    EXPECT_EQ(m_list->current().number, before.number);
    EXPECT_FALSE(m_list->current().stale);
}

TEST_F(AlarmListTest, WhereChangesMayBeUnheardTheyAreReadAgainAfterAWhile) {
    m_told = false;
    read();
    pass(seconds(5));
    EXPECT_FALSE(begins());
    pass(seconds(6));
    EXPECT_TRUE(m_list->current().stale);
    settle();
    EXPECT_EQ(m_handler.queries, 2);
}

TEST_F(AlarmListTest, AChangeIsReadWhenThePauseIsOver) {
    read();
    m_handler.rows = 3;
    m_table.snapshots().markChanged();
    pass(milliseconds(999));
    EXPECT_TRUE(m_list->current().stale);
    EXPECT_EQ(m_list->current().rows->rows(), 1U) << "the last list meanwhile";
    EXPECT_FALSE(begins());
    pass(milliseconds(1));
    EXPECT_EQ(read().rows->rows(), 3U);
    EXPECT_FALSE(m_list->current().stale);
}

TEST_F(AlarmListTest, ThePauseIsFiveTimesAsLongAsTheReadingTook) {
    m_list->current();
    pass(seconds(10));
    settle();
    m_table.snapshots().markChanged();
    pass(seconds(49));
    EXPECT_FALSE(begins());
    pass(seconds(1));
    EXPECT_TRUE(begins());
}

TEST_F(AlarmListTest, WithoutAnAnswerTheLastRowsStayAndTheFaultIsTold) {
    const AlarmReading before = read();
    m_handler.fails = true;
    m_table.snapshots().markChanged();
    pass(seconds(1));
    const AlarmReading failed = read();
    EXPECT_EQ(failed.rows, before.rows);
    EXPECT_EQ(failed.time, before.time);
    EXPECT_NE(failed.fault, "");
    EXPECT_NE(failed.number, before.number);
    EXPECT_TRUE(failed.stale);

    EXPECT_FALSE(begins()) << "a fault has its pause too";
    pass(seconds(1));
    EXPECT_EQ(read().number, failed.number) << "the same fault is no news";

    m_handler.fails = false;
    pass(seconds(1));
    const AlarmReading after = read();
    EXPECT_EQ(after.fault, "");
    EXPECT_NE(after.number, failed.number);
    EXPECT_NE(after.rows, before.rows);
}

TEST_F(AlarmListTest, RowsThatNobodyAsksForAreReleased) {
    AlarmListTimes times;
    times.unused = milliseconds(1);
    make(times);
    AlarmReading seen;
    ASSERT_TRUE(turnUntil([this, &seen] {
        pass(seconds(1));
        seen = m_list->current();
        return seen.rows != nullptr;
    }));
    const std::weak_ptr<const TableSnapshot> rows = std::exchange(seen.rows, nullptr);
    EXPECT_TRUE(turnUntil([&rows] { return rows.expired(); }));
    const AlarmReading later = m_list->current();
    EXPECT_EQ(later.rows, nullptr);
    EXPECT_TRUE(later.stale);
    EXPECT_NE(later.number, seen.number);
}

TEST_F(AlarmListTest, RowsThatWereAskedForAreKeptForAWhile) {
    const std::weak_ptr<const TableSnapshot> rows = read().rows;
    bool passed = false;
    m_loop.runAfter(milliseconds(20), [&passed] { passed = true; });  // the table has released them
    ASSERT_TRUE(turnUntil([&passed] { return passed; }));
    EXPECT_FALSE(rows.expired());
    EXPECT_EQ(m_list->current().rows, rows.lock());
}

TEST_F(AlarmListTest, AReadingMayEndAfterTheList) {
    m_list->current();
    m_list.reset();
    settle();
    EXPECT_EQ(m_handler.queries, 1);
}

}  // namespace vrx
