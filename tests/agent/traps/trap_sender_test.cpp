#include "host/agent/traps/trap_sender.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <numeric>
#include <thread>

#include "tests/agent/trap_test_tools.h"

namespace vrx {

namespace {

using testing::ElementsAre;

class TrapSenderTest : public testing::Test {
protected:
    void TearDown() override {
        if (!m_sender) return;
        expectSumsAreRight();
        m_sender->stop();
        EXPECT_EQ(m_transport.openChannels, 0);
    }

    TrapSender& sender() {
        if (!m_sender) {
            m_sender = std::make_unique<TrapSender>(m_loop, m_options, m_transport, [this](const std::string& name) {
                const std::lock_guard<std::mutex> lock(m_namesMutex);
                ++m_lookups;
                const auto found = m_names.find(name);
                return found == m_names.end() ? std::string() : found->second;
            });
        }
        return *m_sender;
    }

    void submitTo(const std::list<tTrapDestInfo>& chosen, std::shared_ptr<const Notification> trap) {
        sender().submit(NotificationOrigin(), *sender().destinations(), chosen, std::move(trap),
                        [this] { ++m_settled; });
    }
    void submitToAll(std::shared_ptr<const Notification> trap) {
        std::list<tTrapDestInfo> chosen;
        for (const auto& entry : *sender().destinations()) chosen.push_back(entry.second);
        submitTo(chosen, std::move(trap));
    }

    DestinationStatus statusOf(const std::string& index) {
        for (const DestinationStatus& one : sender().status().destinations) {
            if (one.index == index) return one;
        }
        ADD_FAILURE() << "no destination " << index;
        return {};
    }
    std::uint64_t dropped(const std::string& index, TrapDrop reason) {
        return statusOf(index).counters.dropped[static_cast<std::size_t>(reason)];
    }
    bool idle() {
        for (const DestinationStatus& one : sender().status().destinations) {
            if (one.counters.waiting > 0 || one.state == DestinationState::Unknown) return false;
        }
        return true;
    }

    static void expectSumIsRight(const TrapCounters& counters, const std::string& whose) {
        EXPECT_EQ(counters.considered, counters.filtered + counters.sent + counters.droppedInAll() + counters.waiting)
            << whose << ": " << counters.text();
        EXPECT_LE(counters.paced, counters.sent) << whose;
    }
    void expectSumsAreRight() {
        const TrapStatus status = sender().status();
        for (const DestinationStatus& one : status.destinations) expectSumIsRight(one.counters, one.index);
        expectSumIsRight(status.former, "former");
    }

    AgentLoop m_loop;
    TrapOptions m_options;
    FakeTransport m_transport;
    std::mutex m_namesMutex;
    std::map<std::string, std::string> m_names;  // guarded by m_namesMutex, as the next
    int m_lookups = 0;
    int m_settled = 0;
    std::unique_ptr<TrapSender> m_sender;
};

std::vector<std::string> trapsUpTo(unsigned long last) {
    std::vector<std::string> oids;
    for (unsigned long i = 1; i <= last; ++i) oids.push_back("1.3.6.1.9.0." + std::to_string(i));
    return oids;
}

}  // namespace

TEST_F(TrapSenderTest, SendsInOrderToEachDestination) {
    sender().setDestinations({destination("1", 1001), destination("2", 1002)});
    for (unsigned long i = 1; i <= 100; ++i) submitToAll(trapNumbered(i));
    ASSERT_TRUE(turnUntil([this] { return idle(); }));
    EXPECT_EQ(m_transport.sent[1001], trapsUpTo(100));
    EXPECT_EQ(m_transport.sent[1002], trapsUpTo(100));
    EXPECT_EQ(m_settled, 100);
    EXPECT_EQ(statusOf("1").counters.sent, 100U);
    EXPECT_EQ(statusOf("1").counters.paced, 0U);
}

TEST_F(TrapSenderTest, SubmittingSendsNothingByItself) {
    sender().setDestinations({destination("1", 1001)});
    submitToAll(trapNumbered(1));
    EXPECT_TRUE(m_transport.sent.empty());
    EXPECT_EQ(m_settled, 0);
    EXPECT_EQ(statusOf("1").counters.waiting, 1U);
}

TEST_F(TrapSenderTest, DestinationsThatWereNotChosenCountAsFiltered) {
    sender().setDestinations({destination("1", 1001), destination("2", 1002)});
    submitTo({destination("2", 1002)}, trapNumbered(1));
    ASSERT_TRUE(turnUntil([this] { return idle(); }));
    EXPECT_EQ(statusOf("1").counters.filtered, 1U);
    EXPECT_EQ(statusOf("2").counters.sent, 1U);
    EXPECT_EQ(m_transport.sent.count(1001), 0U);
}

TEST_F(TrapSenderTest, ATrapForNobodyIsSettledAtOnce) {
    sender().setDestinations({destination("1", 1001)});
    submitTo({}, nullptr);
    EXPECT_EQ(m_settled, 1);
}

TEST_F(TrapSenderTest, ATrapIsSettledWhenItsLastDestinationIs) {
    m_options.burst = 1;
    m_options.rate = 100;
    sender().setDestinations({destination("1", 1001), destination("2", 1002)});
    submitTo({destination("1", 1001)}, trapNumbered(1));
    submitToAll(trapNumbered(2));
    ASSERT_TRUE(turnUntil([this] { return m_transport.sent[1002].size() == 1; }));
    EXPECT_EQ(m_settled, m_transport.sent[1001].size() == 2 ? 2 : 1);
    ASSERT_TRUE(turnUntil([this] { return m_transport.sent[1001].size() == 2; }));
    EXPECT_EQ(m_settled, 2);
}

TEST_F(TrapSenderTest, ADestinationThatIsChosenTwiceGetsTheTrapOnce) {
    sender().setDestinations({destination("1", 1001)});
    submitTo({destination("1", 1001), destination("1", 1001), destination("9", 1009)}, trapNumbered(1));
    ASSERT_TRUE(turnUntil([this] { return idle(); }));
    EXPECT_EQ(m_transport.sent[1001].size(), 1U);
}

TEST_F(TrapSenderTest, MoreThanTheBurstWaitsAndCountsAsPaced) {
    m_options.burst = 10;
    m_options.rate = 1000;
    sender().setDestinations({destination("1", 1001)});
    for (unsigned long i = 1; i <= 60; ++i) submitToAll(trapNumbered(i));
    ASSERT_TRUE(turnUntil([this] { return idle(); }));
    EXPECT_EQ(m_transport.sent[1001], trapsUpTo(60));
    EXPECT_GE(statusOf("1").counters.paced, 1U);
    EXPECT_LE(statusOf("1").counters.paced, 50U);
}

TEST_F(TrapSenderTest, TheSlowPaceOfOneDestinationHoldsUpNoOther) {
    m_options.burst = 5;
    m_options.rate = 1;
    sender().setDestinations({destination("1", 1001), destination("2", 1002)});
    for (unsigned long i = 1; i <= 5; ++i) submitTo({destination("1", 1001)}, trapNumbered(i));
    for (unsigned long i = 1; i <= 5; ++i) submitToAll(trapNumbered(i));
    ASSERT_TRUE(turnUntil([this] { return m_transport.sent[1002].size() == 5; }));
    EXPECT_EQ(m_transport.sent[1002], trapsUpTo(5));
    EXPECT_GE(statusOf("1").counters.waiting, 1U);
}

TEST_F(TrapSenderTest, TrapsAfterAFullQueueAreDropped) {
    m_options.queueLimit = 3;
    sender().setDestinations({destination("1", 1001)});
    for (unsigned long i = 1; i <= 5; ++i) submitToAll(trapNumbered(i));
    EXPECT_EQ(dropped("1", TrapDrop::QueueFull), 2U);
    EXPECT_EQ(m_settled, 2);
    ASSERT_TRUE(turnUntil([this] { return idle(); }));
    EXPECT_EQ(m_transport.sent[1001], trapsUpTo(3));
}

TEST_F(TrapSenderTest, ATrapThatCouldNotBeBuiltIsDropped) {
    sender().setDestinations({destination("1", 1001)});
    submitToAll(nullptr);
    EXPECT_EQ(dropped("1", TrapDrop::NotBuilt), 1U);
    EXPECT_EQ(m_settled, 1);
}

TEST_F(TrapSenderTest, ATrapWithoutOidIsDropped) {
    sender().setDestinations({destination("1", 1001)});
    submitToAll(std::make_shared<Notification>());
    EXPECT_EQ(dropped("1", TrapDrop::BadOid), 1U);
    EXPECT_EQ(m_settled, 1);
}

TEST_F(TrapSenderTest, ADestinationWithoutCommunityGetsNothingAndSaysSo) {
    m_transport.configuredCommunity = "";
    sender().setDestinations({destination("1", 1001), destination("2", 1002, "127.0.0.1", 1, "secret")});
    submitToAll(trapNumbered(1));
    ASSERT_TRUE(turnUntil([this] { return idle(); }));
    EXPECT_EQ(statusOf("1").state, DestinationState::NoCommunity);
    EXPECT_EQ(dropped("1", TrapDrop::NoCommunity), 1U);
    EXPECT_EQ(statusOf("2").state, DestinationState::Ready);
    EXPECT_EQ(m_transport.sent[1002].size(), 1U);
    EXPECT_EQ(m_settled, 1);
}

TEST_F(TrapSenderTest, TheCommunityIsTheDestinationsUserElseTheConfiguredOne) {
    sender().setDestinations({destination("1", 1001), destination("2", 1002, "127.0.0.1", 2, "secret")});
    ASSERT_TRUE(turnUntil([this] { return m_transport.routes.size() == 2; }));
    EXPECT_EQ(m_transport.routes[0].name, "traps");
    EXPECT_EQ(m_transport.routes[1].name, "secret");
}

TEST_F(TrapSenderTest, ACommunityThatIsConfiguredLaterIsUsed) {
    m_transport.configuredCommunity = "";
    sender().setDestinations({destination("1", 1001)});
    ASSERT_TRUE(turnUntil([this] { return idle(); }));
    m_transport.configuredCommunity = "traps";
    sender().refresh();
    ASSERT_TRUE(turnUntil([this] { return statusOf("1").state == DestinationState::Ready; }));
}

TEST_F(TrapSenderTest, AnUnknownUserGetsNothing) {
    sender().setDestinations({destination("1", 1001, "127.0.0.1", 3, "nobody")});
    submitToAll(trapNumbered(1));
    ASSERT_TRUE(turnUntil([this] { return idle(); }));
    EXPECT_EQ(statusOf("1").state, DestinationState::UnknownUser);
    EXPECT_EQ(dropped("1", TrapDrop::UnknownUser), 1U);
    EXPECT_TRUE(m_transport.routes.empty());
}

TEST_F(TrapSenderTest, TheLevelIsTheBestThatTheUsersKeysAllow) {
    m_transport.users = {{"plain", 1}, {"signed", 2}, {"sealed", 3}};
    sender().setDestinations({destination("1", 1001, "127.0.0.1", 3, "plain"),
                              destination("2", 1002, "127.0.0.1", 3, "signed"),
                              destination("3", 1003, "127.0.0.1", 3, "sealed")});
    ASSERT_TRUE(turnUntil([this] { return m_transport.routes.size() == 3; }));
    EXPECT_EQ(m_transport.routes[0].level, 1);
    EXPECT_EQ(m_transport.routes[1].level, 2);
    EXPECT_EQ(m_transport.routes[2].level, 3);
}

TEST_F(TrapSenderTest, OneChannelServesAllTrapsOfADestination) {
    sender().setDestinations({destination("1", 1001)});
    for (unsigned long i = 1; i <= 50; ++i) submitToAll(trapNumbered(i));
    ASSERT_TRUE(turnUntil([this] { return idle(); }));
    EXPECT_EQ(m_transport.routes.size(), 1U);
}

TEST_F(TrapSenderTest, AChangedDestinationGetsANewChannelAndTheTrapsThatWait) {
    sender().setDestinations({destination("1", 1001)});
    ASSERT_TRUE(turnUntil([this] { return idle(); }));
    submitToAll(trapNumbered(1));
    sender().setDestinations({destination("1", 1002)});
    ASSERT_TRUE(turnUntil([this] { return idle(); }));
    EXPECT_EQ(m_transport.sent[1002], trapsUpTo(1));
    EXPECT_EQ(m_transport.sent.count(1001), 0U);
    EXPECT_EQ(m_transport.openChannels, 1);
}

TEST_F(TrapSenderTest, WhatWaitsForADeletedDestinationIsDropped) {
    sender().setDestinations({destination("1", 1001)});
    submitToAll(trapNumbered(1));
    sender().setDestinations({});
    EXPECT_EQ(m_settled, 1);
    EXPECT_EQ(sender().status().former.dropped[static_cast<std::size_t>(TrapDrop::Removed)], 1U);
    EXPECT_EQ(sender().status().former.considered, 1U);
}

TEST_F(TrapSenderTest, ADestinationDeletedAfterTheChoiceIsCountedAmongTheFormer) {
    sender().setDestinations({destination("1", 1001)});
    const auto before = sender().destinations();
    sender().setDestinations({});
    sender().submit(NotificationOrigin(), *before, {destination("1", 1001)}, trapNumbered(1), [this] { ++m_settled; });
    EXPECT_EQ(m_settled, 1);
    EXPECT_EQ(sender().status().former.dropped[static_cast<std::size_t>(TrapDrop::Removed)], 1U);
}

TEST_F(TrapSenderTest, FailedSendsAreCountedAndTheDestinationRecovers) {
    m_transport.sendFails = true;
    sender().setDestinations({destination("1", 1001)});
    submitToAll(trapNumbered(1));
    submitToAll(trapNumbered(2));
    ASSERT_TRUE(turnUntil([this] { return idle(); }));
    EXPECT_EQ(dropped("1", TrapDrop::SendFailed), 2U);
    EXPECT_EQ(statusOf("1").state, DestinationState::Failing);
    EXPECT_EQ(statusOf("1").reason, "network is unreachable");
    EXPECT_EQ(m_settled, 2);
    m_transport.sendFails = false;
    submitToAll(trapNumbered(3));
    ASSERT_TRUE(turnUntil([this] { return statusOf("1").state == DestinationState::Ready; }));
    EXPECT_THAT(m_transport.sent[1001], ElementsAre("1.3.6.1.9.0.3"));
}

TEST_F(TrapSenderTest, ATrapThatNoMessageCanBeMadeOfIsDroppedAndSaysNothingOfItsDestination) {
    sender().setDestinations({destination("1", 1001)});
    submitToAll(trapNumbered(1));
    ASSERT_TRUE(turnUntil([this] { return idle(); }));
    m_transport.sendFails = m_transport.unsendable = true;
    submitToAll(trapNumbered(2));
    ASSERT_TRUE(turnUntil([this] { return idle(); }));
    EXPECT_EQ(dropped("1", TrapDrop::Unsendable), 1U);
    EXPECT_EQ(statusOf("1").state, DestinationState::Ready);
    EXPECT_EQ(m_settled, 2);
    m_transport.sendFails = false;
    submitToAll(trapNumbered(3));
    ASSERT_TRUE(turnUntil([this] { return idle(); }));
    EXPECT_EQ(statusOf("1").counters.sent, 2U);
    EXPECT_EQ(m_transport.routes.size(), 1U);
}

TEST_F(TrapSenderTest, ShortenedTrapsAreCountedAndTheSizeIsThatOfTheConfiguration) {
    sender().setDestinations({destination("1", 1001)});
    submitToAll(trapNumbered(1));
    ASSERT_TRUE(turnUntil([this] { return idle(); }));
    EXPECT_EQ(m_transport.wanted, LONGEST_MESSAGE);
    EXPECT_EQ(statusOf("1").counters.shortened, 0U);
    m_transport.cut = 3;
    sender().setMessageSize(1232);
    submitToAll(trapNumbered(2));
    ASSERT_TRUE(turnUntil([this] { return idle(); }));
    EXPECT_EQ(m_transport.wanted, 1232U);
    EXPECT_EQ(statusOf("1").counters.shortened, 1U);
    EXPECT_EQ(statusOf("1").counters.sent, 2U);
    EXPECT_EQ(sender().totals().shortened, 1U);
}

TEST_F(TrapSenderTest, AChannelThatCannotBeOpenedDropsTheTraps) {
    m_transport.openFails = true;
    sender().setDestinations({destination("1", 1001)});
    submitToAll(trapNumbered(1));
    ASSERT_TRUE(turnUntil([this] { return idle(); }));
    EXPECT_EQ(statusOf("1").state, DestinationState::Failing);
    EXPECT_EQ(statusOf("1").reason, "no socket");
    EXPECT_EQ(dropped("1", TrapDrop::SendFailed), 1U);
}

TEST_F(TrapSenderTest, TrapsWaitForTheAddressOfAName) {
    m_names["nms.example"] = "192.0.2.7";
    sender().setDestinations({destination("1", 1001, "nms.example")});
    submitToAll(trapNumbered(1));
    ASSERT_TRUE(turnUntil([this] { return idle(); }));
    EXPECT_EQ(m_transport.sent[1001], trapsUpTo(1));
    EXPECT_EQ(m_transport.routes.back().address, "192.0.2.7");
    EXPECT_EQ(statusOf("1").resolvedAddress, "192.0.2.7");
}

TEST_F(TrapSenderTest, AddressesAreNeverLookedUp) {
    sender().setDestinations(
        {destination("1", 1001), destination("2", 1002, "::1"), destination("3", 1003, "fe80::1%lo")});
    submitToAll(trapNumbered(1));
    ASSERT_TRUE(turnUntil([this] { return idle(); }));
    EXPECT_EQ(m_transport.routes.size(), 3U);
    const std::lock_guard<std::mutex> lock(m_namesMutex);
    EXPECT_EQ(m_lookups, 0);
}

TEST_F(TrapSenderTest, OnlySoManyTrapsWaitForAName) {
    m_options.unresolvedLimit = 2;
    sender().setDestinations({destination("1", 1001, "nobody.example")});
    ASSERT_TRUE(turnUntil([this] { return statusOf("1").state == DestinationState::Unresolved; }));
    for (unsigned long i = 1; i <= 5; ++i) submitToAll(trapNumbered(i));
    EXPECT_EQ(dropped("1", TrapDrop::Unresolved), 3U);
    EXPECT_EQ(statusOf("1").counters.waiting, 2U);
    EXPECT_EQ(m_settled, 3);
}

TEST_F(TrapSenderTest, TrapsDoNotWaitForANameForEver) {
    m_options.unresolvedTime = std::chrono::seconds(0);
    sender().setDestinations({destination("1", 1001, "nobody.example")});
    submitToAll(trapNumbered(1));
    ASSERT_TRUE(turnUntil([this] { return m_settled == 1; }));
    EXPECT_EQ(dropped("1", TrapDrop::Unresolved), 1U);
}

TEST_F(TrapSenderTest, ANameWithoutAddressHoldsUpNoOtherDestination) {
    sender().setDestinations({destination("1", 1001, "nobody.example"), destination("2", 1002)});
    submitToAll(trapNumbered(1));
    ASSERT_TRUE(turnUntil([this] { return m_transport.sent[1002].size() == 1; }));
    EXPECT_EQ(statusOf("1").counters.waiting, 1U);
}

TEST_F(TrapSenderTest, LeftOutCounter64ValuesAreCounted) {
    m_transport.leftOut = 1;
    sender().setDestinations({destination("1", 1001, "127.0.0.1", 1), destination("2", 1002)});
    for (unsigned long i = 1; i <= 3; ++i) submitToAll(trapNumbered(i));
    ASSERT_TRUE(turnUntil([this] { return idle(); }));
    EXPECT_EQ(statusOf("1").counters.counter64LeftOut, 3U);
    EXPECT_EQ(statusOf("2").counters.counter64LeftOut, 0U);
}

TEST_F(TrapSenderTest, ColdStartGoesToEveryDestination) {
    sender().setDestinations({destination("1", 1001), destination("2", 1002)});
    sender().sendColdStart();
    submitToAll(trapNumbered(1));
    ASSERT_TRUE(turnUntil([this] { return idle(); }));
    EXPECT_THAT(m_transport.sent[1001], ElementsAre("1.3.6.1.6.3.1.1.5.1", "1.3.6.1.9.0.1"));
    EXPECT_THAT(m_transport.sent[1002], ElementsAre("1.3.6.1.6.3.1.1.5.1", "1.3.6.1.9.0.1"));
}

TEST_F(TrapSenderTest, AStopSettlesNothingThatStillWaits) {
    sender().setDestinations({destination("1", 1001)});
    submitToAll(trapNumbered(1));
    sender().stop();
    submitToAll(trapNumbered(2));
    for (int i = 0; i < 10; ++i) agent_check_and_process(0);
    EXPECT_EQ(m_settled, 0);
    EXPECT_TRUE(m_transport.sent.empty());
    EXPECT_EQ(statusOf("1").counters.waiting, 2U);
}

TEST_F(TrapSenderTest, TasksOfASenderThatIsGoneDoNothing) {
    sender().setDestinations({destination("1", 1001, "nobody.example")});
    submitToAll(trapNumbered(1));
    m_sender.reset();
    for (int i = 0; i < 10; ++i) agent_check_and_process(0);
    EXPECT_TRUE(m_transport.sent.empty());
}

TEST_F(TrapSenderTest, ThreadsMaySubmitWhileTheListChanges) {
    m_options.queueLimit = 100;
    m_options.rate = 1000000;
    m_options.burst = 1000000;
    sender().setDestinations({destination("1", 1001), destination("2", 1002)});
    constexpr unsigned long TRAPS = 2000;
    std::atomic<int> settled{0};
    std::atomic<bool> submitted{false};
    std::thread submitter([&] {
        for (unsigned long i = 1; i <= TRAPS; ++i) {
            const auto all = sender().destinations();
            std::list<tTrapDestInfo> chosen;
            for (const auto& entry : *all) chosen.push_back(entry.second);
            sender().submit(NotificationOrigin(), *all, chosen, trapNumbered(i), [&settled] { ++settled; });
        }
        submitted = true;
    });
    std::thread changer([&] {
        for (unsigned int i = 0; !submitted; ++i) {
            if (i % 2 == 0) {
                sender().setDestinations({destination("1", 1001 + i % 7)});
            } else {
                sender().setDestinations({destination("1", 1001), destination("2", 1002)});
            }
        }
    });
    EXPECT_TRUE(turnUntil([&] { return submitted.load(); }));
    submitter.join();
    changer.join();
    EXPECT_TRUE(turnUntil([&] { return idle() && settled == static_cast<int>(TRAPS); }));
    TrapCounters sum = sender().status().former;
    for (const DestinationStatus& one : sender().status().destinations) sum.add(one.counters);
    expectSumIsRight(sum, "all");
    m_sender->stop();
    m_sender.reset();
}

TEST(TrapDestinationKey, OrdersByNumber) {
    EXPECT_LT(trapDestinationKey("2"), trapDestinationKey("10"));
    EXPECT_LT(trapDestinationKey("9999"), trapDestinationKey("65535"));
    EXPECT_EQ(trapDestinationKey("7"), "0000000007");
    EXPECT_EQ(trapDestinationKey(""), "");
    EXPECT_EQ(trapDestinationKey("x1"), "x1");
}

}  // namespace vrx
