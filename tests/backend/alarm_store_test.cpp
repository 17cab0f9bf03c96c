#include "host/backend/alarm_store.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "tests/backend/test_support.h"

namespace vrx {

namespace {

constexpr std::size_t MANY = 1'000'000;
constexpr std::size_t MANY_BYTES = 1U << 30;
constexpr unsigned int LAST_SERIAL = std::numeric_limits<unsigned int>::max();

Alarm alarmOf(unsigned long long id, const std::string& parameters = "a=1") {
    Alarm alarm;
    alarm.id = id;
    alarm.level = 3;
    alarm.raised = 1000;
    alarm.parameters = parameters;
    return alarm;
}

Alarm alarmWithSerial(unsigned int serial) {
    Alarm alarm = alarmOf(1);
    alarm.serial = serial;
    return alarm;
}

class AlarmStoreTest : public testing::Test {
protected:
    AlarmStoreTest() { open(); }

    void open(unsigned long long eventLimit = 1000) {
        m_store.reset();
        m_store = std::make_unique<AlarmStore>(path(), eventLimit);
    }
    std::string path() const { return m_directory.file("backend.db"); }

    unsigned int raise(const Alarm& alarm) {
        std::vector<Alarm> alarms{alarm};
        EXPECT_EQ(m_store->raise(alarms), BACKEND_OK);
        return alarms[0].serial;
    }
    BackendResult raiseResult(std::vector<Alarm> alarms) { return m_store->raise(alarms); }

    std::vector<unsigned int> activeSerials(unsigned int start = 0, std::size_t count = MANY) {
        std::vector<unsigned int> serials;
        for (const Alarm& alarm : m_store->activeAfter(start, count, MANY_BYTES)) serials.push_back(alarm.serial);
        return serials;
    }
    std::vector<unsigned long long> eventNumbers(unsigned long long after = 0, std::size_t count = MANY) {
        std::vector<unsigned long long> numbers;
        for (const StoredEvent& event : m_store->eventsAfter(after, count, MANY_BYTES))
            numbers.push_back(event.sequence);
        return numbers;
    }

    TemporaryDirectory m_directory;
    std::unique_ptr<AlarmStore> m_store;
};

using Serials = std::vector<unsigned int>;
using Numbers = std::vector<unsigned long long>;

}  // namespace

TEST_F(AlarmStoreTest, ANewStoreIsEmpty) {
    const AlarmStoreStatus status = m_store->status();
    EXPECT_EQ(status.activeAlarms, 0U);
    EXPECT_EQ(status.lastSequence, 0U);
    EXPECT_EQ(status.oldestSequence, 0U);
    EXPECT_TRUE(activeSerials().empty());
    EXPECT_TRUE(eventNumbers().empty());
}

TEST_F(AlarmStoreTest, ARaisedAlarmIsActiveWithAllItsValues) {
    Alarm alarm = alarmOf(std::numeric_limits<unsigned long long>::max(), "name=\"x\",\xC3\xA4");
    alarm.level = std::numeric_limits<unsigned int>::max();
    alarm.raised = std::numeric_limits<unsigned long long>::max();
    raise(alarm);
    const std::vector<Alarm> active = m_store->activeAfter(0, 10, MANY_BYTES);
    ASSERT_EQ(active.size(), 1U);
    EXPECT_EQ(active[0].serial, 1U);
    EXPECT_EQ(active[0].id, alarm.id);
    EXPECT_EQ(active[0].level, alarm.level);
    EXPECT_EQ(active[0].raised, alarm.raised);
    EXPECT_EQ(active[0].ended, 0U);
    EXPECT_EQ(active[0].parameters, alarm.parameters);
}

TEST_F(AlarmStoreTest, ARaiseIsAnEvent) {
    raise(alarmOf(77, "p"));
    const std::vector<StoredEvent> events = m_store->eventsAfter(0, 10, MANY_BYTES);
    ASSERT_EQ(events.size(), 1U);
    EXPECT_EQ(events[0].sequence, 1U);
    EXPECT_EQ(events[0].type, ALARM_TYPE_FAULT);
    EXPECT_EQ(events[0].alarm.serial, 1U);
    EXPECT_EQ(events[0].alarm.id, 77U);
    EXPECT_EQ(events[0].alarm.level, 3U);
    EXPECT_EQ(events[0].alarm.raised, 1000U);
    EXPECT_EQ(events[0].alarm.ended, 0U);
    EXPECT_EQ(events[0].alarm.parameters, "p");
}

TEST_F(AlarmStoreTest, AClearEndsTheAlarmAndIsAnEventWithTheAlarmsValues) {
    const unsigned int serial = raise(alarmOf(77, "p"));
    EXPECT_EQ(m_store->clear({serial}, 2000), BACKEND_OK);
    EXPECT_TRUE(activeSerials().empty());
    const std::vector<StoredEvent> events = m_store->eventsAfter(1, 10, MANY_BYTES);
    ASSERT_EQ(events.size(), 1U);
    EXPECT_EQ(events[0].sequence, 2U);
    EXPECT_EQ(events[0].type, ALARM_TYPE_CLEAR);
    EXPECT_EQ(events[0].alarm.serial, serial);
    EXPECT_EQ(events[0].alarm.id, 77U);
    EXPECT_EQ(events[0].alarm.raised, 1000U);
    EXPECT_EQ(events[0].alarm.ended, 2000U);
    EXPECT_EQ(events[0].alarm.parameters, "p");
}

TEST_F(AlarmStoreTest, ClearOfAnUnknownSerialIsRefusedAndChangesNothing) {
    const unsigned int serial = raise(alarmOf(1));
    EXPECT_EQ(m_store->clear({serial, serial + 1}, 2000), BACKEND_UNKNOWN_SERIAL);
    EXPECT_EQ(activeSerials(), Serials{serial});
    EXPECT_EQ(m_store->lastSequence(), 1U);
}

TEST_F(AlarmStoreTest, ClearOfAnAlarmThatWasClearedIsRefused) {
    const unsigned int serial = raise(alarmOf(1));
    EXPECT_EQ(m_store->clear({serial}, 2000), BACKEND_OK);
    EXPECT_EQ(m_store->clear({serial}, 2001), BACKEND_UNKNOWN_SERIAL);
}

TEST_F(AlarmStoreTest, SerialNumbersGrowAndAreNotGivenTwice) {
    EXPECT_EQ(raise(alarmOf(1)), 1U);
    EXPECT_EQ(raise(alarmOf(1)), 2U);
    EXPECT_EQ(m_store->clear({1, 2}, 2000), BACKEND_OK);
    EXPECT_EQ(raise(alarmOf(1)), 3U);
    EXPECT_EQ(m_store->clear({3}, 2000), BACKEND_OK);
    open();
    EXPECT_EQ(raise(alarmOf(1)), 4U);
}

TEST_F(AlarmStoreTest, AGivenSerialIsTakenAndTheNextOnesFollowIt) {
    EXPECT_EQ(raise(alarmWithSerial(500)), 500U);
    EXPECT_EQ(raise(alarmOf(1)), 501U);
    EXPECT_EQ(raise(alarmWithSerial(7)), 7U);
    EXPECT_EQ(raise(alarmOf(1)), 502U);
}

TEST_F(AlarmStoreTest, RaiseOfAnActiveSerialIsRefusedAndChangesNothing) {
    raise(alarmWithSerial(5));
    EXPECT_EQ(raiseResult({alarmOf(1), alarmWithSerial(5)}), BACKEND_SERIAL_ACTIVE);
    EXPECT_EQ(activeSerials(), Serials{5});
    EXPECT_EQ(m_store->lastSequence(), 1U);
    EXPECT_EQ(raise(alarmOf(1)), 6U);
}

TEST_F(AlarmStoreTest, TheLastSerialNumberIsUsable) {
    EXPECT_EQ(raise(alarmWithSerial(LAST_SERIAL)), LAST_SERIAL);
    EXPECT_EQ(activeSerials(LAST_SERIAL - 1), Serials{LAST_SERIAL});
    EXPECT_TRUE(activeSerials(LAST_SERIAL).empty());
}

TEST_F(AlarmStoreTest, AfterTheLastSerialNumberComeThoseThatNobodyHas) {
    open(6);                                                      // events kept
    for (int count = 0; count < 5; ++count) raise(alarmOf(1));    // 1 to 5; events 1 to 5
    ASSERT_EQ(m_store->clear({1, 2, 4, 5}, 2000), BACKEND_OK);    // up to event 9
    EXPECT_EQ(raise(alarmWithSerial(LAST_SERIAL)), LAST_SERIAL);  // event 10: kept are those of 5, 1, 2, 4, 5
    std::vector<Alarm> two{alarmOf(1), alarmOf(1)};
    ASSERT_EQ(m_store->raise(two), BACKEND_OK);  // 3 is active
    EXPECT_EQ(two[0].serial, 6U);
    EXPECT_EQ(two[1].serial, 7U);
    open(6);
    EXPECT_EQ(raise(alarmWithSerial(9)), 9U);
    EXPECT_EQ(raise(alarmOf(1)), 10U);
    EXPECT_EQ(raise(alarmWithSerial(12)), 12U);
    EXPECT_EQ(raise(alarmWithSerial(11)), 11U);
    EXPECT_EQ(raise(alarmOf(1)), 13U);
    ASSERT_EQ(m_store->clear({LAST_SERIAL}, 2000), BACKEND_OK);
    EXPECT_EQ(raise(alarmWithSerial(LAST_SERIAL)), LAST_SERIAL);
    EXPECT_EQ(raise(alarmOf(1)), 1U);  // its events have gone
    EXPECT_EQ(activeSerials(), (Serials{1, 3, 6, 7, 9, 10, 11, 12, 13, LAST_SERIAL}));
}

TEST_F(AlarmStoreTest, ARefusedRaiseGivesNoSerialNumberAway) {
    raise(alarmWithSerial(LAST_SERIAL));
    EXPECT_EQ(raiseResult({alarmOf(1), alarmWithSerial(LAST_SERIAL)}), BACKEND_SERIAL_ACTIVE);
    EXPECT_EQ(raise(alarmOf(1)), 1U);
    EXPECT_EQ(raise(alarmOf(1)), 2U);
}

TEST_F(AlarmStoreTest, ActiveAlarmsAreListedAfterTheStartInAscendingOrder) {
    for (const unsigned int serial : {30U, 10U, 20U}) raise(alarmWithSerial(serial));
    EXPECT_EQ(activeSerials(), (Serials{10, 20, 30}));
    EXPECT_EQ(activeSerials(10), (Serials{20, 30}));
    EXPECT_EQ(activeSerials(9, 2), (Serials{10, 20}));
    EXPECT_TRUE(activeSerials(30).empty());
    EXPECT_TRUE(activeSerials(0, 0).empty());
}

TEST_F(AlarmStoreTest, EventsAreListedAfterANumberInAscendingOrder) {
    for (int count = 0; count < 5; ++count) raise(alarmOf(1));
    EXPECT_EQ(eventNumbers(), (Numbers{1, 2, 3, 4, 5}));
    EXPECT_EQ(eventNumbers(3), (Numbers{4, 5}));
    EXPECT_EQ(eventNumbers(1, 2), (Numbers{2, 3}));
    EXPECT_TRUE(eventNumbers(5).empty());
    EXPECT_TRUE(eventNumbers(6).empty());
}

TEST_F(AlarmStoreTest, ListsEndWhenTheirBytesAreSpent) {
    for (int count = 0; count < 10; ++count) raise(alarmOf(1, std::string(1000, 'x')));
    EXPECT_EQ(m_store->activeAfter(0, MANY, 2000).size(), 2U);
    EXPECT_EQ(m_store->eventsAfter(0, MANY, 2000).size(), 2U);
    EXPECT_EQ(m_store->activeAfter(0, MANY, 1).size(), 1U);
}

TEST_F(AlarmStoreTest, ARefusedChangeLeavesNoHoleInTheEventNumbers) {
    raise(alarmWithSerial(5));
    EXPECT_EQ(raiseResult({alarmOf(1), alarmOf(1), alarmWithSerial(5)}), BACKEND_SERIAL_ACTIVE);
    raise(alarmOf(1));
    EXPECT_EQ(eventNumbers(), (Numbers{1, 2}));
}

TEST_F(AlarmStoreTest, OnlyTheLastEventsAreKept) {
    open(3);
    for (int count = 0; count < 5; ++count) raise(alarmOf(1));
    EXPECT_EQ(eventNumbers(), (Numbers{3, 4, 5}));
    const AlarmStoreStatus status = m_store->status();
    EXPECT_EQ(status.oldestSequence, 3U);
    EXPECT_EQ(status.lastSequence, 5U);
    EXPECT_EQ(status.activeAlarms, 5U);
}

TEST_F(AlarmStoreTest, ASmallerLimitAppliesToTheEventsThatAreThere) {
    for (int count = 0; count < 5; ++count) raise(alarmOf(1));
    open(2);
    raise(alarmOf(1));
    EXPECT_EQ(eventNumbers(), (Numbers{5, 6}));
}

TEST_F(AlarmStoreTest, AlarmsAndEventsSurviveAReopening) {
    raise(alarmOf(1, "first"));
    raise(alarmOf(2, "second"));
    EXPECT_EQ(m_store->clear({1}, 2000), BACKEND_OK);
    open();
    EXPECT_EQ(activeSerials(), Serials{2});
    EXPECT_EQ(eventNumbers(), (Numbers{1, 2, 3}));
    EXPECT_EQ(m_store->lastSequence(), 3U);
}

TEST_F(AlarmStoreTest, TheWorldWideNameIsLocallyAssignedAndConstant) {
    const std::string name = m_store->worldWideName();
    EXPECT_EQ(name.size(), 16U);
    EXPECT_EQ(name.find_first_not_of("0123456789abcdef"), std::string::npos) << name;
    EXPECT_EQ(name[0], '3');
    open();
    EXPECT_EQ(m_store->worldWideName(), name);
}

TEST_F(AlarmStoreTest, TheIdentityIsTheFilesOwnAndConstant) {
    const std::string identity = m_store->identity();
    EXPECT_EQ(identity.size(), 32U);
    open();
    EXPECT_EQ(m_store->identity(), identity);
    AlarmStore other(m_directory.file("other.db"), 1000);
    EXPECT_NE(other.identity(), identity);
}

TEST_F(AlarmStoreTest, AFileOfAnOlderProgramGetsAnIdentity) {
    raise(alarmOf(1));
    m_store.reset();
    SqliteDatabase(path()).execute("DROP TABLE store_identity");
    open();
    const std::string identity = m_store->identity();
    EXPECT_EQ(identity.size(), 32U);
    EXPECT_EQ(eventNumbers(), std::vector<unsigned long long>{1});
    open();
    EXPECT_EQ(m_store->identity(), identity);
}

TEST_F(AlarmStoreTest, FilesAreReadableByTheirOwnerOnly) {
    raise(alarmOf(1));
    for (const char* suffix : {"", "-wal", "-shm"}) {
        struct stat status {};
        ASSERT_EQ(::stat((path() + suffix).c_str(), &status), 0) << suffix;
        EXPECT_EQ(status.st_mode & 0777U, 0600U) << suffix;
    }
}

TEST_F(AlarmStoreTest, AHundredThousandAlarmsAreRaisedListedAndClearedTogether) {
    constexpr unsigned int ALARMS = 100'000;
    open(1'000'000);
    std::vector<Alarm> alarms(ALARMS, alarmOf(1));
    ASSERT_EQ(m_store->raise(alarms), BACKEND_OK);
    Serials all;
    for (unsigned int start = 0;;) {
        const Serials batch = activeSerials(start, 50);
        if (batch.empty()) break;
        all.insert(all.end(), batch.begin(), batch.end());
        start = batch.back();
    }
    ASSERT_EQ(all.size(), ALARMS);
    EXPECT_EQ(all.front(), 1U);
    EXPECT_EQ(all.back(), ALARMS);
    ASSERT_EQ(m_store->clear(all, 2000), BACKEND_OK);
    EXPECT_EQ(m_store->status().activeAlarms, 0U);
    EXPECT_EQ(m_store->lastSequence(), 2ULL * ALARMS);
}

TEST(AlarmStoreFile, AFileThatIsNoDatabaseIsRefused) {
    const TemporaryDirectory directory;
    std::ofstream(directory.file("backend.db")) << std::string(4096, 'x');
    EXPECT_THROW(AlarmStore(directory.file("backend.db"), 10), SqliteError);
}

TEST(AlarmStoreFile, AStoreOfAnUnknownLayoutIsRefused) {
    const TemporaryDirectory directory;
    SqliteDatabase(directory.file("backend.db")).execute("PRAGMA user_version = 2");
    try {
        const AlarmStore store(directory.file("backend.db"), 10);
        FAIL() << "opened";
    } catch (const SqliteError& error) {
        EXPECT_EQ(std::string(error.what()),
                  directory.file("backend.db") + ": store has layout 2, this program knows layout 1");
    }
}

TEST(AlarmStoreFile, AMissingDirectoryIsRefused) {
    EXPECT_THROW(AlarmStore("/nonexistent/backend.db", 10), SqliteError);
}

}  // namespace vrx
