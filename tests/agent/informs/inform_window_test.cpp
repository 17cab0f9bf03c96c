#include "host/agent/informs/inform_window.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "host/notification_log/tamrel_notifications.h"
#include "tests/agent/informs/fake_informs.h"

namespace vrx {

namespace {

using std::chrono::milliseconds;
using testing::ElementsAre;
using testing::IsEmpty;
using Entry = InformWindow::Entry;
using Numbers = std::vector<std::uint64_t>;

constexpr milliseconds PATIENCE{1000};

class InformWindowTest : public testing::Test {
protected:
    // Of an alarm of its own, unless the test says else.
    void take(std::uint64_t number) {
        take(number, static_cast<std::uint32_t>(number), "slot " + std::to_string(number));
    }
    void take(std::uint64_t number, std::uint32_t serial, const std::string& location, std::uint64_t alarm = 1) {
        m_window.take({number, 0, alarmTrap(number, serial, location, alarm)});
    }
    void takeAll(std::uint64_t first, std::uint64_t last) {
        for (; first <= last; ++first) take(first);
    }
    // All that may be sent now.
    Numbers send(unsigned int limit = 32) {
        Numbers sent;
        while (Entry* const entry = m_window.next(limit)) {
            m_window.sent(*entry, m_now);
            sent.push_back(entry->inform.number);
        }
        return sent;
    }
    void answer(std::uint64_t number) {
        Entry& entry = *m_window.find(number);
        m_window.answered(entry, m_now, PATIENCE);
        m_window.remove(entry);
    }
    void loseAnswer(std::uint64_t number) {
        Entry& entry = *m_window.find(number);
        m_window.unanswered(entry);
        m_window.release(entry);
    }
    // Until so many are under way: the last numbers of them.
    Numbers openTo(std::size_t size, std::uint64_t first = 1) {
        std::uint64_t next = first;
        Numbers underWay;
        while (underWay.size() < size) {
            while (m_window.hasRoom()) take(next++);
            if (!underWay.empty()) {
                answer(underWay.front());
                underWay.erase(underWay.begin());
            }
            for (const std::uint64_t number : send(static_cast<unsigned int>(size))) underWay.push_back(number);
        }
        return underWay;
    }

    // It lets several pass, and has none.
    Numbers openWithNothingLeft() {
        constexpr std::uint64_t BEFORE = 1000;  // numbers that no test uses
        takeAll(BEFORE, BEFORE + 31);
        Numbers underWay = send();
        while (underWay.back() < BEFORE + 31) {
            answer(underWay.front());
            underWay.erase(underWay.begin());
            for (const std::uint64_t number : send()) underWay.push_back(number);
        }
        return underWay;
    }

    InformWindow m_window;
    InformWindow::Clock::time_point m_now{};
};

}  // namespace

TEST_F(InformWindowTest, ItDoublesWhenThoseThatFillItAreAnsweredUpToTheLimit) {
    takeAll(1, 20);
    EXPECT_THAT(send(4), ElementsAre(1));
    answer(1);
    EXPECT_THAT(send(4), ElementsAre(2, 3));
    answer(2);
    EXPECT_THAT(send(4), ElementsAre(4));
    answer(3);
    EXPECT_THAT(send(4), ElementsAre(5, 6, 7));
    answer(4);
    EXPECT_THAT(send(4), ElementsAre(8));
    EXPECT_THAT(send(2), IsEmpty());  // a reload: those that are under way stay, and more go when they are fewer
    answer(5);
    answer(6);
    EXPECT_THAT(send(2), IsEmpty());
    answer(7);
    EXPECT_THAT(send(2), ElementsAre(9));
}

TEST_F(InformWindowTest, ItDoesNotOpenWhileThereIsNothingMoreToSend) {
    for (std::uint64_t number = 1; number <= 10; ++number) {
        take(number);
        EXPECT_THAT(send(), ElementsAre(number));
        answer(number);
    }
    takeAll(11, 20);
    EXPECT_LE(send().size(), 2U);
}

TEST_F(InformWindowTest, AReceiverThatTakesItsTimeIsNotSentMoreThanItAnswersInTime) {
    takeAll(1, 100);
    Numbers underWay = send();
    std::size_t most = 0;
    for (int i = 0; i < 80; ++i) {  // one after the other, 100 ms each
        m_now += milliseconds(100);
        answer(underWay.front());
        underWay.erase(underWay.begin());
        for (const std::uint64_t number : send()) underWay.push_back(number);
        most = std::max(most, underWay.size());
    }
    EXPECT_GE(most, 4U);
    EXPECT_LE(most * 100, 500U);  // half of the time until the first repetition
}

TEST_F(InformWindowTest, ItClosesWhereAnswersBecomeLate) {
    Numbers underWay = openTo(8);
    m_now += milliseconds(600);
    for (int i = 0; i < 7; ++i) answer(underWay[static_cast<std::size_t>(i)]);
    EXPECT_THAT(send(), IsEmpty());  // one is under way, and one may be
}

TEST_F(InformWindowTest, ASilentReceiverGetsOneAtATimeAndTheOldestFirst) {
    const Numbers underWay = openTo(8);
    for (const std::uint64_t number : underWay) loseAnswer(number);
    EXPECT_THAT(send(), ElementsAre(underWay.front()));
    loseAnswer(underWay.front());
    EXPECT_THAT(send(), ElementsAre(underWay.front()));
    answer(underWay.front());
    EXPECT_THAT(send(), ElementsAre(underWay[1], underWay[2]));
}

TEST_F(InformWindowTest, AnUnansweredInformAmongAnsweredOnesHalvesItOnce) {
    const Numbers underWay = openTo(8);
    answer(underWay[7]);
    loseAnswer(underWay[0]);
    loseAnswer(underWay[1]);  // it was sent before the window was halved
    EXPECT_THAT(send(), IsEmpty());
    answer(underWay[2]);
    answer(underWay[3]);
    EXPECT_EQ(send().size(), 1U);  // four may be under way
}

TEST_F(InformWindowTest, InformsOfOneAlarmGoOneAfterTheOtherAndOthersPass) {
    for (const std::uint64_t number : openWithNothingLeft()) answer(number);
    take(1, 7, "slot 7");
    take(2, 7, "slot 7");  // its end
    take(3, 8, "slot 8");
    take(4, 9, "slot 7");      // another occurrence of the first one
    take(5, 7, "moved");       // the serial number decides as well
    take(6, 10, "slot 7", 2);  // another alarm at the same place
    EXPECT_THAT(send(), ElementsAre(1, 3, 6));
    answer(3);
    loseAnswer(1);
    EXPECT_THAT(send(), ElementsAre(1));
    answer(6);
    EXPECT_THAT(send(), IsEmpty());
    answer(1);
    EXPECT_THAT(send(), ElementsAre(2));
    answer(2);
    EXPECT_THAT(send(), ElementsAre(4, 5));  // of these two neither has the other's number, or its place
}

TEST_F(InformWindowTest, InformsOfNoAlarmKeepTheirOrder) {
    m_window.take({1, 0, trapNumbered(1)});
    m_window.take({2, 0, trapNumbered(2)});
    take(3);
    EXPECT_THAT(send(), ElementsAre(1));
    answer(1);
    EXPECT_THAT(send(), ElementsAre(2, 3));
}

TEST_F(InformWindowTest, WithALimitOfOneAllGoInTheirOrder) {
    takeAll(1, 5);
    for (std::uint64_t number = 1; number <= 5; ++number) {
        EXPECT_THAT(send(1), ElementsAre(number));
        loseAnswer(number);
        EXPECT_THAT(send(1), ElementsAre(number));
        answer(number);
    }
}

TEST_F(InformWindowTest, AnInformThatSixteenAnswersOvertookIsSentAgainAFewTimes) {
    Numbers underWay = openTo(20);
    for (unsigned int time = 0; time < InformWindow::EARLY; ++time) {
        SCOPED_TRACE(time);
        for (unsigned int i = 0; i < InformWindow::OVERTAKEN; ++i) {
            EXPECT_EQ(m_window.overtaken(), nullptr) << i;
            answer(underWay[1]);
            underWay.erase(underWay.begin() + 1);
            for (const std::uint64_t number : send(20)) underWay.push_back(number);
        }
        Entry* const lost = m_window.overtaken();
        ASSERT_NE(lost, nullptr);
        EXPECT_EQ(lost->inform.number, underWay[0]);
        m_window.sentEarly(*lost);
        EXPECT_EQ(m_window.overtaken(), nullptr);
        for (int i = 0; i < 19; ++i) {  // those that were sent before it prove nothing
            answer(underWay[1]);
            underWay.erase(underWay.begin() + 1);
            for (const std::uint64_t number : send(20)) underWay.push_back(number);
        }
        EXPECT_EQ(m_window.overtaken(), nullptr);
    }
    for (int i = 0; i < 40; ++i) {
        answer(underWay[1]);
        underWay.erase(underWay.begin() + 1);
        for (const std::uint64_t number : send(20)) underWay.push_back(number);
    }
    EXPECT_EQ(m_window.overtaken(), nullptr);  // from here on it waits
}

TEST_F(InformWindowTest, AtTheEndThreeAnswersAreEnough) {
    for (const std::uint64_t number : openWithNothingLeft()) answer(number);
    takeAll(1, 7);
    EXPECT_THAT(send(), ElementsAre(1, 2, 3, 4, 5, 6, 7));
    for (const std::uint64_t number : {4U, 5U, 6U}) answer(number);
    EXPECT_EQ(m_window.overtaken(), nullptr);  // 7 may still come
    answer(7);
    Numbers lost;
    while (Entry* const entry = m_window.overtaken()) {
        lost.push_back(entry->inform.number);
        m_window.sentEarly(*entry);
    }
    EXPECT_THAT(lost, ElementsAre(1, 2, 3));
}

TEST_F(InformWindowTest, SoManyAreLookedAtAndNoMore) {
    std::uint64_t number = 0;
    while (m_window.hasRoom()) take(++number, 1, "one place");
    EXPECT_EQ(number, LARGEST_INFORM_WINDOW);
    EXPECT_EQ(m_window.lastTaken(), number);
    EXPECT_THAT(send(), ElementsAre(1));
    answer(1);
    EXPECT_TRUE(m_window.hasRoom());
}

TEST_F(InformWindowTest, AfterARestartNothingIsUnderWay) {
    const Numbers underWay = openTo(8);
    m_window.restart();
    EXPECT_THAT(send(), ElementsAre(underWay.front()));
}

// Whatever comes of them: never two of an alarm at once, each alarm's in their order, and in the end all.
TEST_F(InformWindowTest, RandomOutcomesKeepTheOrderOfEachAlarm) {
    std::mt19937 random(15);  // NOLINT(cert-msc32-c, cert-msc51-cpp): the same ones each time
    constexpr std::uint64_t ALL = 3000;
    std::map<std::uint64_t, std::uint32_t> alarmOf;
    std::map<std::uint32_t, std::uint64_t> lastOf;
    std::map<std::uint32_t, int> underWayOf;
    Numbers underWay;
    std::uint64_t taken = 0;
    std::uint64_t done = 0;
    std::size_t most = 0;
    while (done < ALL) {
        while (taken < ALL && m_window.hasRoom()) {
            const auto alarm = static_cast<std::uint32_t>(1 + random() % 60);
            alarmOf[++taken] = alarm;
            take(taken, alarm, "slot " + std::to_string(alarm));
        }
        for (const std::uint64_t number : send(32)) {
            underWay.push_back(number);
            ASSERT_EQ(++underWayOf[alarmOf[number]], 1) << number;
            ASSERT_GE(number, lastOf[alarmOf[number]]) << "settled after an inform that came later";
        }
        ASSERT_LE(underWay.size(), 32U);
        ASSERT_FALSE(underWay.empty());
        most = std::max(most, underWay.size());
        const std::size_t place = random() % underWay.size();
        const std::uint64_t number = underWay[place];
        underWay.erase(underWay.begin() + static_cast<std::ptrdiff_t>(place));
        --underWayOf[alarmOf[number]];
        m_now += milliseconds(1);
        if (random() % 20 == 0) {
            loseAnswer(number);
        } else {
            answer(number);
            lastOf[alarmOf[number]] = number;
            ++done;
        }
        if (Entry* const late = m_window.overtaken()) m_window.sentEarly(*late);
    }
    EXPECT_GT(most, 4U);
}

}  // namespace vrx
