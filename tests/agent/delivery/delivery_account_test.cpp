#include "host/agent/delivery/delivery_account.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <iterator>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace vrx {

namespace {

using testing::ElementsAre;

enum class Drop { NotBuilt, BadOid, Removed };

constexpr DropReason<Drop> REASONS[] = {
    {Drop::NotBuilt, "not built"}, {Drop::BadOid, "bad OID"}, {Drop::Removed, "removed"}};
static_assert(namesAll(REASONS, Drop::Removed));

constexpr DropReason<Drop> SHORT[] = {{Drop::NotBuilt, "not built"}, {Drop::BadOid, "bad OID"}};
static_assert(!namesAll(SHORT, Drop::Removed), "a reason without a row");
constexpr DropReason<Drop> SWAPPED[] = {
    {Drop::BadOid, "bad OID"}, {Drop::NotBuilt, "not built"}, {Drop::Removed, "removed"}};
static_assert(!namesAll(SWAPPED, Drop::Removed), "rows in another order");

using Counters = DeliveryCounters<Drop, std::size(REASONS)>;

struct Destination {
    Counters counters;
};

class DeliveryAccountTest : public testing::Test {
protected:
    DeliveryAccountTest() {
        m_account.all()["1"];
        m_account.all()["2"];
    }

    // Destinations 1 and 2 of the account, and 3, which is gone. Gives those that take the notification.
    std::vector<std::string> consider(const std::set<std::string>& chosen, const Notification* notification) {
        std::vector<std::string> taken;
        m_account.consider(m_considered, chosen, notification,
                           [&](const std::string& key, Destination&) { taken.push_back(key); });
        return taken;
    }
    std::uint64_t dropped(const std::string& key, Drop reason) {
        return m_account.countersOf(key).dropped[static_cast<std::size_t>(reason)];
    }

    const TrapDestinationMap m_considered = {{"1", {}}, {"2", {}}, {"3", {}}};
    DeliveryAccount<Destination> m_account;
    Notification m_notification = [] {
        Notification one;
        one.oid = {1, 3, 6};
        return one;
    }();
};

}  // namespace

TEST_F(DeliveryAccountTest, CountsWhatIsConsideredAtEachDestinationAndAtThoseThatAreGone) {
    EXPECT_THAT(consider({"2", "3"}, &m_notification), ElementsAre("2"));
    for (const char* const key : {"1", "2", "3"}) EXPECT_EQ(m_account.countersOf(key).considered, 1U) << key;
    EXPECT_EQ(m_account.countersOf("1").filtered, 1U);
    EXPECT_EQ(m_account.countersOf("2").filtered, 0U);
    EXPECT_EQ(m_account.former().considered, 1U);
    EXPECT_EQ(dropped("3", Drop::Removed), 1U);
}

TEST_F(DeliveryAccountTest, DropsWhatCannotBeSentWhereItWasChosen) {
    EXPECT_THAT(consider({"1"}, nullptr), ElementsAre());
    m_notification.oid.clear();
    EXPECT_THAT(consider({"1"}, &m_notification), ElementsAre());
    EXPECT_EQ(dropped("1", Drop::NotBuilt), 1U);
    EXPECT_EQ(dropped("1", Drop::BadOid), 1U);
    EXPECT_EQ(m_account.countersOf("2").filtered, 2U);
    EXPECT_EQ(m_account.countersOf("2").droppedInAll(), 0U);
}

TEST_F(DeliveryAccountTest, WhatARetiredDestinationCountedStays) {
    consider({"1"}, nullptr);
    const auto next = m_account.retire(m_account.all().find("1"));
    EXPECT_EQ(next->first, "2");
    EXPECT_EQ(m_account.find("1"), nullptr);
    EXPECT_EQ(m_account.former().considered, 2U);  // and one of destination 3
    EXPECT_EQ(dropped("1", Drop::NotBuilt), 1U);
}

TEST_F(DeliveryAccountTest, TheTextNamesReasonsThatHappened) {
    Counters counters;
    counters.filtered = 4;
    counters.waiting = 2;
    EXPECT_EQ(counters.outcomeText(REASONS), "filtered 4, dropped 0, waiting 2");
    counters.drop(Drop::BadOid);
    counters.drop(Drop::Removed, 3);
    EXPECT_EQ(counters.outcomeText(REASONS), "filtered 4, dropped 4 (bad OID 1, removed 3), waiting 2");
}

TEST_F(DeliveryAccountTest, ASubmissionIsSettledOnceAfterItsLastPart) {
    int settled = 0;
    Submission submission(nullptr, 7, [&] { ++settled; });
    submission.addPart();
    EXPECT_EQ(submission.release(), nullptr);
    const Submission::Settled last = submission.release();
    ASSERT_NE(last, nullptr);
    EXPECT_EQ(settled, 0) << "whoever released it calls";
    last();
    EXPECT_EQ(settled, 1);
}

}  // namespace vrx
