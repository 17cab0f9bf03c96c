#include "host/agent/notifications/notification_log.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <thread>

#include "host/notification_log/notification_codec.h"

namespace vrx {

namespace {

using std::chrono::milliseconds;
using std::chrono::system_clock;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

class NotificationLogTest : public testing::Test {
protected:
    void SetUp() override {
        std::string name = (std::filesystem::temp_directory_path() / "log-XXXXXX").string();
        ASSERT_NE(::mkdtemp(name.data()), nullptr);
        m_folder = name;
    }
    void TearDown() override { std::filesystem::remove_all(m_folder); }
    std::string path() const { return m_folder + "/notification_log.db"; }

    std::vector<LoggedNotification> listed(const NotificationLogFilter& filter = {}) const {
        std::vector<LoggedNotification> entries;
        NotificationLogReader reader(path());
        reader.list(filter, [&](const LoggedNotification& entry) { entries.push_back(entry); });
        return entries;
    }
    std::vector<std::uint32_t> serials(const NotificationLogFilter& filter = {}) const {
        std::vector<std::uint32_t> numbers;
        for (const LoggedNotification& entry : listed(filter)) numbers.push_back(entry.serial);
        return numbers;
    }

    std::string m_folder;
};

system_clock::time_point at(int seconds) {
    return system_clock::time_point(std::chrono::seconds(1'700'000'000 + seconds));
}

LoggedNotification entryOf(std::uint32_t serial) {
    LoggedNotification entry;
    entry.time = at(static_cast<int>(serial));
    entry.sequence = serial;
    entry.alarmId = 7;
    entry.serial = serial;
    entry.destinations = {"1"};
    return entry;
}

std::shared_ptr<const Notification> someTrap() {
    SnmpValue value;
    value.type = ASN_OCTET_STR;
    value.octets = std::string("a\0b", 3);
    return std::make_shared<Notification>(Notification{{1, 3, 6, 1}, {{{1, 3, 7, 1}, value}}});
}

bool hasWritten(const NotificationLog& log, std::uint64_t count) {
    for (int i = 0; i < 3000 && log.counters().written < count; ++i) std::this_thread::sleep_for(milliseconds(10));
    return log.counters().written >= count;
}

}  // namespace

TEST_F(NotificationLogTest, EveryFieldComesBack) {
    NotificationLog log(path());
    LoggedNotification entry;
    entry.time = at(1) + milliseconds(234);
    entry.because = SentBecause::Asked;
    entry.again = 3;
    entry.sequence = 0xfedcba9876543210;
    entry.alarmId = 0xffffffffffffffff;
    entry.serial = 0xffffffff;
    entry.raised = false;
    entry.level = 5;
    entry.destinations = {"1", "30"};
    log.add(NotificationLog::prepared(entry, someTrap()));
    log.flush();
    const std::vector<LoggedNotification> entries = listed();
    ASSERT_THAT(entries, SizeIs(1));
    EXPECT_EQ(entries[0].number, 1U);
    EXPECT_EQ(entries[0].time, entry.time);
    EXPECT_EQ(entries[0].because, SentBecause::Asked);
    EXPECT_EQ(entries[0].again, 3U);
    EXPECT_EQ(entries[0].sequence, entry.sequence);
    EXPECT_EQ(entries[0].alarmId, entry.alarmId);
    EXPECT_EQ(entries[0].serial, entry.serial);
    EXPECT_FALSE(entries[0].raised);
    EXPECT_EQ(entries[0].level, 5U);
    EXPECT_EQ(entries[0].trapOid, "1.3.6.1");
    EXPECT_EQ(entries[0].trap, bytesOf(*someTrap()));
    EXPECT_THAT(entries[0].destinations, ElementsAre("1", "30"));
}

TEST_F(NotificationLogTest, ARecordWithoutLevelHasNone) {
    NotificationLog log(path());
    log.add(NotificationLog::prepared(entryOf(1), someTrap()));
    log.flush();
    EXPECT_EQ(listed().at(0).level, std::nullopt);
}

TEST_F(NotificationLogTest, EntriesReachTheDiskByThemselves) {
    NotificationLog log(path());
    for (std::uint32_t serial = 1; serial <= 3000; ++serial)
        log.add(NotificationLog::prepared(entryOf(serial), someTrap()));
    ASSERT_TRUE(hasWritten(log, 3000));
    EXPECT_THAT(listed(), SizeIs(3000));
    EXPECT_EQ(log.counters().waiting, 0U);
}

TEST_F(NotificationLogTest, TheFileIsThereBeforeTheFirstEntryAndTheOwnersAlone) {
    const NotificationLog log(path());
    const auto isReadable = [this] {
        try {
            return listed().empty();
        } catch (const SqliteError&) {  // not yet
            return false;
        }
    };
    while (!isReadable()) std::this_thread::sleep_for(milliseconds(1));
    const auto mode = std::filesystem::status(path()).permissions();
    EXPECT_EQ(mode, std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
}

TEST_F(NotificationLogTest, TheOldestEntriesGoFirst) {
    NotificationLog log(path());
    log.setKept(3);
    for (std::uint32_t serial = 1; serial <= 5; ++serial)
        log.add(NotificationLog::prepared(entryOf(serial), someTrap()));
    log.flush();
    EXPECT_THAT(serials(), ElementsAre(3, 4, 5));
    log.add(NotificationLog::prepared(entryOf(6), someTrap()));
    log.flush();
    EXPECT_THAT(serials(), ElementsAre(4, 5, 6));
    log.setKept(2);
    log.add(NotificationLog::prepared(entryOf(7), someTrap()));
    log.flush();
    EXPECT_THAT(serials(), ElementsAre(6, 7));
}

TEST_F(NotificationLogTest, WithZeroNothingIsTakenAndWhatIsThereStays) {
    NotificationLog log(path());
    log.add(NotificationLog::prepared(entryOf(1), someTrap()));
    log.setKept(0);
    log.add(NotificationLog::prepared(entryOf(2), someTrap()));
    log.flush();
    EXPECT_THAT(serials(), ElementsAre(1));
    EXPECT_EQ(log.counters().written, 1U);
    EXPECT_EQ(log.counters().notWritten, 0U);
}

TEST_F(NotificationLogTest, NumbersAreNeverGivenTwice) {
    {
        NotificationLog log(path());
        for (std::uint32_t serial = 1; serial <= 5; ++serial)
            log.add(NotificationLog::prepared(entryOf(serial), someTrap()));
    }
    SqliteDatabase(path()).execute("DELETE FROM notifications");
    NotificationLog log(path());
    log.add(NotificationLog::prepared(entryOf(6), someTrap()));
    log.flush();
    EXPECT_EQ(listed().at(0).number, 6U);
}

TEST_F(NotificationLogTest, ACleanEndWritesWhatWaits) {
    {
        NotificationLog log(path());
        for (std::uint32_t serial = 1; serial <= 10; ++serial)
            log.add(NotificationLog::prepared(entryOf(serial), someTrap()));
    }
    EXPECT_THAT(listed(), SizeIs(10));
}

TEST_F(NotificationLogTest, WhatWasWrittenSurvivesKill) {
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        NotificationLog log(path());
        for (std::uint32_t serial = 1; serial <= 500; ++serial)
            log.add(NotificationLog::prepared(entryOf(serial), someTrap()));
        log.flush();
        ::kill(::getpid(), SIGKILL);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFSIGNALED(status));
    EXPECT_THAT(listed(), SizeIs(500));
    NotificationLog next(path());
    next.add(NotificationLog::prepared(entryOf(501), someTrap()));
    next.flush();
    EXPECT_EQ(listed().back().number, 501U);
}

TEST_F(NotificationLogTest, ItIsReadWhileItIsWritten) {
    NotificationLog log(path());
    log.add(NotificationLog::prepared(entryOf(1), someTrap()));
    log.flush();
    NotificationLogReader reader(path());
    for (std::uint32_t serial = 2; serial <= 20; ++serial) {
        log.add(NotificationLog::prepared(entryOf(serial), someTrap()));
        log.flush();
        EXPECT_EQ(reader.find(serial)->serial, serial);
    }
}

TEST_F(NotificationLogTest, AFileThatCannotBeWrittenCostsNothingButEntries) {
    std::filesystem::create_directory(path());
    NotificationLog log(path());
    for (std::uint32_t serial = 1; serial <= 3; ++serial)
        log.add(NotificationLog::prepared(entryOf(serial), someTrap()));
    EXPECT_THROW(log.flush(), SqliteError);
    while (log.counters().fault.empty()) std::this_thread::sleep_for(milliseconds(1));
    EXPECT_THAT(log.counters().fault, HasSubstr(path()));
    EXPECT_EQ(log.counters().waiting, 3U);
    std::filesystem::remove(path());
    ASSERT_TRUE(hasWritten(log, 3));
    while (!log.counters().fault.empty()) std::this_thread::sleep_for(milliseconds(1));
    EXPECT_THAT(serials(), ElementsAre(1, 2, 3));
    EXPECT_EQ(log.counters().notWritten, 0U);
}

TEST_F(NotificationLogTest, TheOldestOfTooManyThatWaitAreGivenUpAndCounted) {
    std::filesystem::create_directory(path());
    NotificationLog log(path());
    const auto trap = someTrap();
    constexpr std::uint32_t MORE = NotificationLog::WAITING_LIMIT + 2000;
    for (std::uint32_t serial = 1; serial <= MORE; ++serial) log.add(NotificationLog::prepared(entryOf(serial), trap));
    const NotificationLog::Counters counters = log.counters();
    EXPECT_EQ(counters.waiting + counters.notWritten, MORE);
    EXPECT_GE(counters.notWritten, 1000U);  // a batch may be out of the queue
    std::filesystem::remove(path());
    log.setKept(MORE);
    log.flush();
    EXPECT_EQ(log.counters().written, counters.waiting);
    EXPECT_EQ(serials().back(), MORE);
}

TEST_F(NotificationLogTest, AFileThatIsDeletedIsMadeAnew) {
    NotificationLog log(path());
    log.add(NotificationLog::prepared(entryOf(1), someTrap()));
    log.flush();
    for (const char* suffix : {"", "-wal", "-shm"}) std::filesystem::remove(path() + suffix);
    log.add(NotificationLog::prepared(entryOf(2), someTrap()));
    log.flush();
    EXPECT_THAT(serials(), ElementsAre(2));
}

TEST_F(NotificationLogTest, AFileOfSomethingElseIsAFault) {
    std::ofstream(path()) << "this is no database, and it is long enough for one to be looked for in it"
                          << std::string(4096, '.');
    NotificationLog log(path());
    log.add(NotificationLog::prepared(entryOf(1), someTrap()));
    EXPECT_THROW(log.flush(), SqliteError);
    EXPECT_THROW(listed(), SqliteError);
}

TEST_F(NotificationLogTest, AYoungerVersionsFileIsLeftAlone) {
    SqliteDatabase(path()).execute("PRAGMA user_version=2");
    NotificationLog log(path());
    log.add(NotificationLog::prepared(entryOf(1), someTrap()));
    EXPECT_THROW(log.flush(), SqliteError);
    EXPECT_THROW(NotificationLogReader{path()}, SqliteError);
}

TEST_F(NotificationLogTest, WhereNothingWasEverLoggedThereIsNothingToRead) {
    EXPECT_THROW(NotificationLogReader{path()}, SqliteError);
    EXPECT_FALSE(std::filesystem::exists(path()));
}

TEST_F(NotificationLogTest, OneEntryIsFoundByItsNumber) {
    NotificationLog log(path());
    for (std::uint32_t serial = 11; serial <= 13; ++serial)
        log.add(NotificationLog::prepared(entryOf(serial), someTrap()));
    log.flush();
    NotificationLogReader reader(path());
    EXPECT_EQ(reader.find(2)->serial, 12U);
    EXPECT_FALSE(reader.find(4));
    EXPECT_FALSE(reader.find(0));
    EXPECT_FALSE(reader.find(0xffffffffffffffff));
}

TEST_F(NotificationLogTest, FiltersChooseEntriesAndLastIsTakenOfWhatIsChosen) {
    NotificationLog log(path());
    for (std::uint32_t serial = 1; serial <= 8; ++serial) {
        LoggedNotification entry = entryOf(serial);
        entry.alarmId = serial % 2 == 0 ? 0xfffffffffffffffe : 7;
        entry.raised = serial <= 4;
        entry.destinations = serial == 3 ? std::vector<std::string>{"1", "12"} : std::vector<std::string>{"2"};
        log.add(NotificationLog::prepared(entry, someTrap()));
    }
    log.flush();
    NotificationLogFilter filter;
    filter.last = 2;
    EXPECT_THAT(serials(filter), ElementsAre(7, 8));
    filter.alarmId = 7;
    EXPECT_THAT(serials(filter), ElementsAre(5, 7));
    filter = {};
    filter.alarmId = 0xfffffffffffffffe;
    EXPECT_THAT(serials(filter), ElementsAre(2, 4, 6, 8));
    filter.raised = false;
    EXPECT_THAT(serials(filter), ElementsAre(6, 8));
    filter = {};
    filter.raised = true;
    EXPECT_THAT(serials(filter), ElementsAre(1, 2, 3, 4));
    filter = {};
    filter.serial = 5;
    EXPECT_THAT(serials(filter), ElementsAre(5));
    filter = {};
    filter.since = at(3);
    filter.until = at(5);
    EXPECT_THAT(serials(filter), ElementsAre(3, 4, 5));
    filter = {};
    filter.destination = "1";
    EXPECT_THAT(serials(filter), ElementsAre(3));
    filter.destination = "12";
    EXPECT_THAT(serials(filter), ElementsAre(3));
    filter.destination = "";
    EXPECT_THAT(serials(filter), IsEmpty());
}

TEST_F(NotificationLogTest, TrapsThatWereAskedForAreCounted) {
    NotificationLog log(path());
    LoggedNotification entry = entryOf(1);
    log.add(NotificationLog::prepared(entry, someTrap()));
    entry.because = SentBecause::Asked;
    log.add(NotificationLog::prepared(entry, someTrap()));
    EXPECT_EQ(log.counters().askedFor, 1U);
}

}  // namespace vrx
