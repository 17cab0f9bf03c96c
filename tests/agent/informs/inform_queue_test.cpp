#include "host/agent/informs/inform_queue.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <thread>

#include "tests/agent/trap_test_tools.h"

namespace vrx {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using Added = InformQueue::Added;

constexpr const char* NMS = "nms:162";
constexpr const char* OTHER = "other:162";

class InformQueueTest : public testing::Test {
protected:
    InformQueueTest() {
        std::string name = (std::filesystem::temp_directory_path() / "informs-XXXXXX").string();
        if (::mkdtemp(name.data()) == nullptr) throw std::runtime_error("no temporary folder");
        m_folder = name;
        open();
    }
    ~InformQueueTest() override {
        m_queue.reset();
        std::filesystem::remove_all(m_folder);
    }

    std::string path() const { return m_folder + "/informs.db"; }
    void open(const InformQueue::Limits& receivers = {{NMS, 1000}, {OTHER, 1000}}, bool keepOthers = false) {
        m_queue = std::make_unique<InformQueue>(path(), [this] { ++m_ready; });
        m_gone = m_queue->setReceivers(receivers, keepOthers);
    }
    Added add(const std::string& receiver, unsigned long long event, unsigned int handler = 0) {
        InformQueue::Places place = InformQueue::places(1, trapNumbered(event), [this] { ++m_settled; });
        return m_queue->add(receiver, {event, handler}, static_cast<std::uint32_t>(event * 100), place);
    }
    template <typename Condition>
    static bool waitUntil(Condition condition) {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        while (!condition()) {
            if (std::chrono::steady_clock::now() > end) return false;
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        return true;
    }
    // Takes out everything there is, in its order: the last sub-identifiers of the traps.
    std::vector<unsigned long> drain(const std::string& receiver) {
        std::vector<unsigned long> events;
        const bool drained = waitUntil([&] {
            while (const std::optional<Inform> inform = m_queue->first(receiver)) {
                EXPECT_EQ(inform->upTime, inform->trap->oid.back() * 100);
                events.push_back(inform->trap->oid.back());
                m_queue->remove(receiver, inform->number);
            }
            return m_queue->standing(receiver).waiting == 0;
        });
        EXPECT_TRUE(drained);
        return events;
    }
    unsigned long long rows(const char* table) {
        SqliteDatabase database(path());
        SqliteStatement count(database, (std::string("SELECT count(*) FROM ") + table).c_str());
        SqliteStatement::Run row(count);
        row.step();
        return row.number(0);
    }

    std::string m_folder;
    std::atomic<int> m_ready{0};
    std::atomic<int> m_settled{0};
    InformQueue::Limits m_gone;
    std::unique_ptr<InformQueue> m_queue;
};

std::vector<unsigned long> numbersTo(unsigned long last) {
    std::vector<unsigned long> numbers;
    for (unsigned long i = 1; i <= last; ++i) numbers.push_back(i);
    return numbers;
}

}  // namespace

TEST_F(InformQueueTest, InformsBehindTheFirstAreGivenAndRemovedAndStayAwayAfterARestart) {
    for (unsigned long long event = 1; event <= 5; ++event) add(NMS, event);
    ASSERT_TRUE(waitUntil([&] { return m_settled == 5; }));
    const std::uint64_t first = m_queue->first(NMS)->number;
    const std::optional<Inform> second = m_queue->first(NMS, first);
    ASSERT_TRUE(second.has_value());
    EXPECT_EQ(second->trap->oid.back(), 2U);
    m_queue->remove(NMS, second->number);
    EXPECT_EQ(m_queue->first(NMS)->number, first);
    EXPECT_EQ(m_queue->first(NMS, first)->trap->oid.back(), 3U);
    EXPECT_FALSE(m_queue->first(NMS, first + 4).has_value());
    m_queue->remove(NMS, second->number);  // it is not there
    m_queue.reset();
    open();
    EXPECT_THAT(drain(NMS), ElementsAre(1, 3, 4, 5));
}

TEST_F(InformQueueTest, InformsComeOutAsTheyWentInForEachReceiverByItself) {
    EXPECT_EQ(add(NMS, 1), Added::Waiting);
    EXPECT_EQ(add(OTHER, 1), Added::Waiting);
    EXPECT_EQ(add(NMS, 2), Added::Waiting);
    EXPECT_THAT(drain(NMS), ElementsAre(1, 2));
    EXPECT_THAT(drain(OTHER), ElementsAre(1));
}

TEST_F(InformQueueTest, TheFirstInformStaysUntilItIsRemoved) {
    add(NMS, 1);
    add(NMS, 2);
    ASSERT_TRUE(waitUntil([&] { return m_queue->first(NMS).has_value(); }));
    const std::uint64_t number = m_queue->first(NMS)->number;
    EXPECT_EQ(m_queue->first(NMS)->number, number);
    m_queue->remove(NMS, number + 2);  // there is none: nothing
    EXPECT_EQ(m_queue->first(NMS)->number, number);
    EXPECT_EQ(m_queue->standing(NMS).waiting, 2U);
}

TEST_F(InformQueueTest, WhatIsSettledIsOnDisk) {
    for (unsigned long long event = 1; event <= 50; ++event) add(NMS, event);
    ASSERT_TRUE(waitUntil([&] { return m_settled == 50; }));
    EXPECT_EQ(rows("inform"), 50U);
    EXPECT_GE(m_ready, 1);
}

TEST_F(InformQueueTest, WhatIsRemovedIsSoonGoneFromTheFile) {
    add(NMS, 1);
    EXPECT_THAT(drain(NMS), ElementsAre(1));
    EXPECT_TRUE(waitUntil([&] { return rows("inform") == 0; }));
}

TEST_F(InformQueueTest, MoreThanIsKeptInMemoryComesOutWholeAndInOrder) {
    for (unsigned long long event = 1; event <= 900; ++event) ASSERT_EQ(add(NMS, event), Added::Waiting);
    EXPECT_EQ(drain(NMS), numbersTo(900));
}

TEST_F(InformQueueTest, AnotherLifeOfTheProcessGoesOnWhereThisOneEnded) {
    for (unsigned long long event = 1; event <= 600; ++event) add(NMS, event);
    ASSERT_TRUE(waitUntil([&] { return m_queue->first(NMS).has_value(); }));
    const std::uint64_t number = m_queue->first(NMS)->number;
    m_queue->remove(NMS, number);
    m_queue.reset();
    open();
    EXPECT_EQ(m_queue->standing(NMS).restored, 599U);
    EXPECT_EQ(m_queue->standing(NMS).waiting, 599U);
    ASSERT_TRUE(waitUntil([&] { return m_queue->first(NMS).has_value(); }));
    EXPECT_EQ(m_queue->first(NMS)->number, number + 1);  // of the inform as it was: its receiver may know it
    std::vector<unsigned long> expected = numbersTo(600);
    expected.erase(expected.begin());
    EXPECT_EQ(drain(NMS), expected);
}

TEST_F(InformQueueTest, NumbersOfInformsAreNeverUsedAgain) {
    add(NMS, 1);
    ASSERT_TRUE(waitUntil([&] { return m_queue->first(NMS).has_value(); }));
    const std::uint64_t number = m_queue->first(NMS)->number;
    m_queue->remove(NMS, number);
    m_queue.reset();
    open();
    add(NMS, 2);
    ASSERT_TRUE(waitUntil([&] { return m_queue->first(NMS).has_value(); }));
    EXPECT_EQ(m_queue->first(NMS)->number, number + 1);
}

TEST_F(InformQueueTest, AnEventThatComesAgainGivesNothing) {
    add(NMS, 7, 0);
    add(NMS, 7, 1);
    EXPECT_EQ(add(NMS, 7, 0), Added::Repeated);
    EXPECT_EQ(add(NMS, 7, 1), Added::Repeated);
    EXPECT_EQ(add(NMS, 6, 1), Added::Repeated);
    EXPECT_EQ(add(NMS, 8, 0), Added::Waiting);
    EXPECT_EQ(add(OTHER, 7, 0), Added::Waiting);  // each receiver has its own
    EXPECT_THAT(drain(NMS), ElementsAre(7, 7, 8));
}

TEST_F(InformQueueTest, AnEventThatComesAgainAfterARestartGivesNothingAcknowledgedOrNot) {
    add(NMS, 1);
    add(NMS, 2);
    add(NMS, 3);
    ASSERT_TRUE(waitUntil([&] { return m_settled == 3; }));
    m_queue->remove(NMS, m_queue->first(NMS)->number);
    m_queue.reset();
    open();
    EXPECT_EQ(add(NMS, 1), Added::Repeated);
    EXPECT_EQ(add(NMS, 3), Added::Repeated);
    EXPECT_EQ(m_settled, 5);  // they need not come again
    EXPECT_EQ(add(NMS, 4), Added::Waiting);
    EXPECT_THAT(drain(NMS), ElementsAre(2, 3, 4));
}

TEST_F(InformQueueTest, InformsThatAreAboutNoEventAlwaysFindTheirPlace) {
    add(NMS, 5);
    EXPECT_EQ(add(NMS, 0), Added::Waiting);
    EXPECT_EQ(add(NMS, 0), Added::Waiting);
    EXPECT_EQ(add(NMS, 5), Added::Repeated);
    ASSERT_TRUE(waitUntil([&] { return m_settled >= 4; }));
    m_queue.reset();
    open();
    EXPECT_EQ(add(NMS, 5), Added::Repeated);
}

TEST_F(InformQueueTest, EventsThatAreNumberedAnewAreNewOnes) {
    add(NMS, 100);
    m_queue->startAfter(3);
    EXPECT_EQ(add(NMS, 3), Added::Repeated);
    EXPECT_EQ(add(NMS, 4), Added::Waiting);
    ASSERT_TRUE(waitUntil([&] { return m_settled == 3; }));
    m_queue.reset();
    open();
    EXPECT_EQ(add(NMS, 4), Added::Repeated);
    EXPECT_EQ(add(NMS, 5), Added::Waiting);
    EXPECT_THAT(drain(NMS), ElementsAre(100, 4, 5));
}

TEST_F(InformQueueTest, ThatEventsAreNumberedAnewIsOnDiskWhenItReturns) {
    add(NMS, 100);
    m_queue->startAfter(3);
    SqliteDatabase database(path());
    SqliteStatement select(database, "SELECT event FROM receiver WHERE name = 'nms:162'");
    SqliteStatement::Run row(select);
    ASSERT_TRUE(row.step());
    EXPECT_EQ(row.number(0), 3U);
}

TEST_F(InformQueueTest, AFullQueueRefusesTheNewestAndSettlesIt) {
    m_queue->setReceivers({{NMS, 2}}, false);
    EXPECT_EQ(add(NMS, 1), Added::Waiting);
    EXPECT_EQ(add(NMS, 2), Added::Waiting);
    ASSERT_TRUE(waitUntil([&] { return m_settled == 2; }));
    EXPECT_EQ(add(NMS, 3), Added::Full);
    EXPECT_EQ(m_settled, 3);
    m_queue->remove(NMS, m_queue->first(NMS)->number);
    EXPECT_EQ(add(NMS, 4), Added::Waiting);
    EXPECT_THAT(drain(NMS), ElementsAre(2, 4));
}

TEST_F(InformQueueTest, WhatWaitsForAReceiverThatIsGoneIsDropped) {
    add(NMS, 1);
    add(NMS, 2);
    add(OTHER, 1);
    EXPECT_THAT(m_queue->setReceivers({{OTHER, 1000}}, false), ElementsAre(Pair(NMS, 2U)));
    EXPECT_FALSE(m_queue->first(NMS).has_value());
    ASSERT_TRUE(waitUntil([&] { return m_settled == 3; }));
    ASSERT_TRUE(waitUntil([&] { return rows("inform") == 1; }));
    m_queue->setReceivers({{NMS, 1000}, {OTHER, 1000}}, false);  // back again: with nothing of what was
    EXPECT_EQ(add(NMS, 2), Added::Waiting);
    EXPECT_THAT(drain(NMS), ElementsAre(2));
}

TEST_F(InformQueueTest, ReceiversOfAnEarlierLifeThatAreUnknownNowAreDroppedOrKept) {
    add(NMS, 1);
    add(OTHER, 1);
    m_queue.reset();
    open({{OTHER, 1000}}, true);
    EXPECT_THAT(m_gone, IsEmpty());
    m_queue.reset();
    open({{NMS, 1000}}, false);
    EXPECT_THAT(m_gone, ElementsAre(Pair(OTHER, 1U)));
    EXPECT_THAT(drain(NMS), ElementsAre(1));
}

TEST_F(InformQueueTest, InformsThatCannotBeReadBackAreDroppedAndCounted) {
    for (unsigned long long event = 1; event <= 3; ++event) add(NMS, event);
    m_queue.reset();
    SqliteDatabase(path()).execute("UPDATE inform SET trap = x'07' WHERE up_time = 200");
    open();
    EXPECT_THAT(drain(NMS), ElementsAre(1, 3));
    EXPECT_EQ(m_queue->standing(NMS).unreadable, 1U);
    EXPECT_TRUE(waitUntil([&] { return rows("inform") == 0; }));
}

TEST_F(InformQueueTest, NothingIsSettledWhileTheFileCannotBeWrittenAndAllOfItAfterwards) {
    SqliteDatabase other(path());
    other.execute("CREATE TRIGGER full BEFORE INSERT ON inform BEGIN SELECT RAISE(ABORT, 'disk full'); END");
    m_queue->setReceivers({{NMS, 3}}, false);
    for (unsigned long long event = 1; event <= 3; ++event) EXPECT_EQ(add(NMS, event), Added::Waiting);
    EXPECT_EQ(add(NMS, 4), Added::Full);  // memory has its bound, too
    EXPECT_EQ(m_settled, 1);
    EXPECT_FALSE(m_queue->first(NMS).has_value());
    EXPECT_THROW(m_queue->startAfter(9), SqliteError);
    other.execute("DROP TRIGGER full");
    ASSERT_TRUE(waitUntil([&] { return m_settled == 4; }));
    EXPECT_THAT(drain(NMS), ElementsAre(1, 2, 3));
}

TEST_F(InformQueueTest, OnlyTheOwnerMayReadTheFile) {
    struct stat status {};
    ASSERT_EQ(::stat(path().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0600U);
}

TEST_F(InformQueueTest, AFileThatIsNoDatabaseIsAFault) {
    m_queue.reset();
    std::filesystem::remove(path());
    std::filesystem::remove(path() + "-wal");
    std::filesystem::create_directory(path());
    EXPECT_THROW(open(), SqliteError);
}

TEST_F(InformQueueTest, OneAddsWhileAnotherTakesOut) {
    constexpr unsigned long EVENTS = 3000;
    m_queue->setReceivers({{NMS, EVENTS}}, false);
    std::thread adding([this] {
        for (unsigned long long event = 1; event <= EVENTS; ++event) add(NMS, event);
    });
    std::vector<unsigned long> taken;
    ASSERT_TRUE(waitUntil([&] {
        while (const std::optional<Inform> inform = m_queue->first(NMS)) {
            taken.push_back(inform->trap->oid.back());
            m_queue->remove(NMS, inform->number);
        }
        return taken.size() == EVENTS;
    }));
    adding.join();
    EXPECT_EQ(taken, numbersTo(EVENTS));
    EXPECT_TRUE(waitUntil([&] { return rows("inform") == 0 && m_settled == static_cast<int>(EVENTS); }));
}

}  // namespace vrx
