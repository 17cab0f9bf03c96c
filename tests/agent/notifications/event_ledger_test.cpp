#include "host/agent/notifications/event_ledger.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <thread>

namespace vrx {

namespace {

class EventLedgerTest : public testing::Test {
protected:
    void SetUp() override {
        std::string name = (std::filesystem::temp_directory_path() / "ledger-XXXXXX").string();
        ASSERT_NE(::mkdtemp(name.data()), nullptr);
        m_folder = name;
    }
    void TearDown() override { std::filesystem::remove_all(m_folder); }
    std::string path() const { return m_folder + "/notifications.db"; }

    std::string m_folder;
};

using Sequence = EventLedger::Sequence;

// What another life of the process would begin with.
std::optional<Sequence> stored(const std::string& path) {
    const EventLedger ledger(path);
    return ledger.lastDone();
}

}  // namespace

TEST_F(EventLedgerTest, KnowsNothingBeforeTheFirstStart) {
    const EventLedger ledger(path());
    EXPECT_EQ(ledger.lastBegun(), std::nullopt);
    EXPECT_EQ(ledger.lastDone(), std::nullopt);
}

TEST_F(EventLedgerTest, TheFirstNumberIsOnDiskBeforeAnythingElse) {
    EventLedger ledger(path());
    ledger.startAfter(41);
    SqliteDatabase other(path());
    SqliteStatement select(other, "SELECT done FROM ledger");
    SqliteStatement::Run row(select);
    ASSERT_TRUE(row.step());
    EXPECT_EQ(row.number(0), 41U);
}

TEST_F(EventLedgerTest, TheStoreIsRememberedWithTheNumber) {
    {
        EventLedger ledger(path());
        EXPECT_EQ(ledger.store(), "");
        ledger.startAfter(41, "first");
        EXPECT_EQ(ledger.store(), "first");
        ledger.settle(ledger.begin(42));
    }
    EventLedger ledger(path());
    EXPECT_EQ(ledger.lastDone(), 42U);
    EXPECT_EQ(ledger.store(), "first");
}

TEST_F(EventLedgerTest, AStoreThatIsToldLaterIsWrittenWithoutAnEvent) {
    {
        EventLedger ledger(path());
        ledger.startAfter(41);
        ledger.setStore("first");
    }
    const EventLedger ledger(path());
    EXPECT_EQ(ledger.lastDone(), 41U);
    EXPECT_EQ(ledger.store(), "first");
}

TEST_F(EventLedgerTest, AFileWithoutAStoreIsTakenOver) {
    {
        SqliteDatabase older(path());
        older.execute(
            "CREATE TABLE ledger (id INTEGER PRIMARY KEY CHECK (id = 1), done INTEGER NOT NULL);"
            "INSERT INTO ledger (id, done) VALUES (1, 7)");
    }
    EventLedger ledger(path());
    EXPECT_EQ(ledger.lastDone(), 7U);
    EXPECT_EQ(ledger.store(), "");
    ledger.setStore("first");
    ledger.flush();
    SqliteDatabase older(path());
    older.execute("INSERT OR REPLACE INTO ledger (id, done) VALUES (1, 9)");  // as an older program writes it
    const EventLedger again(path());
    EXPECT_EQ(again.lastDone(), 9U);
    EXPECT_EQ(again.store(), "");
}

TEST_F(EventLedgerTest, WhatHasToBeOnDiskBeforeANumberIsWrittenBeforeIt) {
    std::atomic<int> calls{0};
    std::atomic<unsigned long long> numberThen{0};
    EventLedger ledger(path(), [&] {
        SqliteDatabase other(path());
        SqliteStatement select(other, "SELECT done FROM ledger");
        SqliteStatement::Run row(select);
        if (row.step()) numberThen = row.number(0);
        ++calls;
    });
    ledger.startAfter(41);
    ledger.settle(ledger.begin(42));
    ledger.flush();
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(numberThen, 41U);
    ledger.flush();  // nothing is left to write
    EXPECT_EQ(calls, 1);
}

TEST_F(EventLedgerTest, AnEventIsDoneWhenAllItsTrapsAre) {
    EventLedger ledger(path());
    ledger.startAfter(0);
    const auto ticket = ledger.begin(1);
    ledger.hold(ticket);
    ledger.hold(ticket);
    ledger.settle(ticket);
    ledger.settle(ticket);
    EXPECT_EQ(ledger.lastDone(), 0U);
    ledger.settle(ticket);
    EXPECT_EQ(ledger.lastDone(), 1U);
}

TEST_F(EventLedgerTest, AnOpenEventHoldsBackTheLaterOnes) {
    EventLedger ledger(path());
    ledger.startAfter(10);
    const auto first = ledger.begin(11);
    const auto second = ledger.begin(12);
    const auto third = ledger.begin(13);
    ledger.settle(third);
    EXPECT_EQ(ledger.lastDone(), 10U);
    ledger.settle(first);
    EXPECT_EQ(ledger.lastDone(), 11U);
    ledger.settle(second);
    EXPECT_EQ(ledger.lastDone(), 13U);
    EXPECT_EQ(ledger.lastBegun(), 13U);
}

TEST_F(EventLedgerTest, NumbersMayBeMissing) {
    EventLedger ledger(path());
    ledger.startAfter(0);
    ledger.settle(ledger.begin(5));
    EXPECT_EQ(ledger.lastDone(), 5U);
    const auto open = ledger.begin(9);
    EXPECT_EQ(ledger.lastDone(), 8U);
    ledger.settle(open);
    EXPECT_EQ(ledger.lastDone(), 9U);
}

TEST_F(EventLedgerTest, ACleanEndStoresWhatIsDoneAndNotWhatIsOpen) {
    {
        EventLedger ledger(path());
        ledger.startAfter(0);
        ledger.settle(ledger.begin(1));
        ledger.begin(2);
        ledger.settle(ledger.begin(3));
    }
    EXPECT_EQ(stored(path()), 1U);
}

TEST_F(EventLedgerTest, TheNextLifeBeginsAfterWhatIsDone) {
    {
        EventLedger ledger(path());
        ledger.startAfter(0);
        ledger.settle(ledger.begin(1));
        ledger.begin(2);
    }
    const EventLedger next(path());
    EXPECT_EQ(next.lastBegun(), 1U);
}

TEST_F(EventLedgerTest, FlushStoresAtOnce) {
    EventLedger ledger(path());
    ledger.startAfter(0);
    ledger.settle(ledger.begin(7));
    ledger.flush();
    EXPECT_EQ(stored(path()), 7U);
}

TEST_F(EventLedgerTest, WhatIsDoneReachesTheDiskByItself) {
    EventLedger ledger(path());
    ledger.startAfter(0);
    for (Sequence i = 1; i <= 50; ++i) ledger.settle(ledger.begin(i));
    while (stored(path()) != Sequence{50}) std::this_thread::yield();
    EXPECT_EQ(stored(path()), 50U);
}

TEST_F(EventLedgerTest, AYoungerStoreForgetsTheOldNumbers) {
    EventLedger ledger(path());
    ledger.startAfter(100);
    const auto old = ledger.begin(101);
    ledger.startAfter(0);
    EXPECT_EQ(stored(path()), 0U);
    const auto fresh = ledger.begin(1);
    ledger.hold(old);
    ledger.settle(old);
    ledger.settle(old);
    EXPECT_EQ(ledger.lastDone(), 0U);
    ledger.settle(fresh);
    EXPECT_EQ(ledger.lastDone(), 1U);
}

TEST_F(EventLedgerTest, TicketsOfTheOldNumberingDoNotSettleEqualNumbersOfTheNew) {
    EventLedger ledger(path());
    ledger.startAfter(0);
    const auto old = ledger.begin(1);
    ledger.startAfter(0);
    ledger.begin(1);
    ledger.settle(old);
    EXPECT_EQ(ledger.lastDone(), 0U);
}

TEST_F(EventLedgerTest, SurvivesKillAtAnyMomentWithoutRunningAhead) {
    constexpr Sequence LAST_DONE = 500;
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        EventLedger ledger(path());
        ledger.startAfter(0);
        for (Sequence i = 1; i <= LAST_DONE; ++i) ledger.settle(ledger.begin(i));
        ledger.begin(LAST_DONE + 1);
        ledger.flush();
        ::kill(::getpid(), SIGKILL);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFSIGNALED(status));
    EXPECT_EQ(stored(path()), LAST_DONE);
}

TEST_F(EventLedgerTest, TheFileIsTheOwnersAlone) {
    const EventLedger ledger(path());
    const auto mode = std::filesystem::status(path()).permissions();
    EXPECT_EQ(mode & (std::filesystem::perms::group_all | std::filesystem::perms::others_all),
              std::filesystem::perms::none);
}

TEST_F(EventLedgerTest, AFolderThatIsMissingIsAnError) {
    EXPECT_THROW(EventLedger("/nonexistent/folder/notifications.db"), SqliteError);
}

}  // namespace vrx
