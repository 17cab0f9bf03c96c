#include "host/agent/informs/inform_sender.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <set>
#include <stdexcept>
#include <string>

#include "tests/agent/informs/fake_informs.h"

namespace vrx {

namespace {

using Kind = InformOutcome::Kind;
using std::chrono::milliseconds;
using testing::ElementsAre;
using testing::IsEmpty;

class InformSenderTest : public testing::Test {
protected:
    InformSenderTest() {
        std::string name = (std::filesystem::temp_directory_path() / "informs-XXXXXX").string();
        if (::mkdtemp(name.data()) == nullptr) throw std::runtime_error("no temporary folder");
        m_folder = name;
        start();
    }
    ~InformSenderTest() override {
        m_sender.reset();
        std::filesystem::remove_all(m_folder);
    }

    void start() {
        m_sender =
            std::make_unique<InformSender>(m_loop, m_transport, m_folder + "/informs.db", std::chrono::seconds(300),
                                           [](const std::string&) { return std::string(); });
    }
    void acknowledgeAll(unsigned int port) { m_transport.answers[port] = {Kind::Acknowledged, true, ""}; }
    void submit(unsigned long long event) { submit(event, trapNumbered(event)); }
    void submit(unsigned long long event, std::shared_ptr<const Notification> trap) {
        const auto all = m_sender->destinations();
        std::list<tTrapDestInfo> chosen;
        for (const auto& entry : *all) {
            if (entry.second.trapType == 1) chosen.push_back(entry.second);
        }
        m_sender->submit({event, 0}, *all, chosen, std::move(trap), [this] { ++m_settled; });
    }
    // Of an alarm at this place, with a serial number of its own.
    void submitAlarm(unsigned long long event, const std::string& location) {
        submit(event, alarmTrap(event, static_cast<std::uint32_t>(event), location));
    }
    // A receiver whose window is open, and nothing under way.
    void openWindow(const InformDestination& destination, unsigned long long before = 1000) {
        m_sender->setDestinations({destination}, true);
        const unsigned int port = destination.peer.port;
        acknowledgeAll(port);
        for (unsigned long long event = before; event < before + 100; ++event) {
            submitAlarm(event, "slot " + std::to_string(event));
        }
        ASSERT_TRUE(turnUntil([&] { return status().counters.waiting == 0; }));
        m_transport.answers.clear();
        m_transport.sent.clear();
    }
    std::uint64_t numberOf(unsigned int port, unsigned long event) {
        for (const auto& sent : m_transport.sent[port]) {
            if (sent.event == event) return sent.number;
        }
        return 0;
    }
    static InformDestination patient(unsigned int window = 32) {
        InformDestination destination = receiver(2001);
        destination.policy.firstRetry = destination.policy.longestBackoff = std::chrono::hours(1);
        destination.policy.window = window;
        return destination;
    }
    InformDestinationStatus status(std::size_t place = 0) { return m_sender->status().destinations.at(place); }
    static std::uint64_t dropped(const InformCounters& counters, InformDrop reason) {
        return counters.dropped[static_cast<std::size_t>(reason)];
    }
    void expectBalance() {
        std::vector<InformCounters> all = {m_sender->status().former};
        for (const auto& one : m_sender->status().destinations) all.push_back(one.counters);
        for (const InformCounters& c : all) {
            std::uint64_t sum = c.filtered + c.repeated + c.acknowledged + c.waiting;
            for (const std::uint64_t one : c.dropped) sum += one;
            EXPECT_EQ(c.restored + c.considered, sum) << c.text();
        }
    }

    std::string m_folder;
    AgentLoop m_loop;
    FakeInforms m_transport;
    std::atomic<int> m_settled{0};
    std::unique_ptr<InformSender> m_sender;
};

}  // namespace

TEST_F(InformSenderTest, InformsGoOutOneAfterTheOther) {
    m_sender->setDestinations({receiver(2001)}, true);
    submit(1);
    submit(2);
    ASSERT_TRUE(turnUntil([&] { return m_transport.sent[2001].size() == 1 && m_settled == 2; }));
    m_transport.finish(2001, Kind::Acknowledged);
    EXPECT_THAT(m_transport.events(2001), ElementsAre(1, 2));
    m_transport.finish(2001, Kind::Acknowledged);
    EXPECT_EQ(status().counters.acknowledged, 2U);
    EXPECT_EQ(status().state, InformState::Answering);
    expectBalance();
}

TEST_F(InformSenderTest, SeveralAreUnderWayButOnlyOneOfEachAlarm) {
    openWindow(patient());
    submitAlarm(2001, "slot 1");
    submitAlarm(2002, "slot 1");
    submitAlarm(2003, "slot 2");
    submitAlarm(2004, "slot 1");
    submitAlarm(2005, "slot 3");
    ASSERT_TRUE(turnUntil([&] { return m_transport.sent[2001].size() == 3; }));
    EXPECT_THAT(m_transport.events(2001), ElementsAre(2001, 2003, 2005));
    m_transport.finish(2001, numberOf(2001, 2005), Kind::Acknowledged);
    m_transport.finish(2001, numberOf(2001, 2003), Kind::Acknowledged);
    EXPECT_EQ(m_transport.sent[2001].size(), 3U);
    m_transport.finish(2001, numberOf(2001, 2001), Kind::NoAnswer);
    m_transport.finish(2001, numberOf(2001, 2001), Kind::Acknowledged);
    m_transport.finish(2001, numberOf(2001, 2002), Kind::Refused);  // settled, too
    m_transport.finish(2001, numberOf(2001, 2004), Kind::Acknowledged);
    EXPECT_THAT(m_transport.events(2001), ElementsAre(2001, 2003, 2005, 2001, 2002, 2004));
    EXPECT_EQ(status().counters.waiting, 0U);
    expectBalance();
}

TEST_F(InformSenderTest, AReloadChangesTheWindow) {
    openWindow(patient(4));
    for (unsigned long long event = 2001; event <= 2100; ++event) submitAlarm(event, std::to_string(event));
    ASSERT_TRUE(turnUntil([&] { return m_settled == 200 && m_transport.sent[2001].size() == 4; }));
    EXPECT_EQ(m_transport.channels.at(2001)->underWay.size(), 4U);
    m_sender->setDestinations({patient(2)}, true);
    m_transport.finish(2001, Kind::Acknowledged);
    m_transport.finish(2001, Kind::Acknowledged);
    EXPECT_EQ(m_transport.sent[2001].size(), 4U);
    m_transport.finish(2001, Kind::Acknowledged);
    EXPECT_EQ(m_transport.sent[2001].size(), 5U);
    m_sender->setDestinations({patient(32)}, true);
    acknowledgeAll(2001);
    while (!m_transport.channels.at(2001)->underWay.empty()) m_transport.finish(2001, Kind::Acknowledged);
    ASSERT_TRUE(turnUntil([&] { return status().counters.waiting == 0; }));
    EXPECT_EQ(m_transport.opened.size(), 1U);
    expectBalance();
}

TEST_F(InformSenderTest, WhatOthersOvertookIsSentAgainAndSettledOnce) {
    openWindow(patient());
    for (unsigned long long event = 2001; event <= 2030; ++event) submitAlarm(event, std::to_string(event));
    ASSERT_TRUE(turnUntil([&] { return m_transport.sent[2001].size() == 30; }));
    m_transport.sendsWithoutMemory = 2;  // the turn that sends it again is taken again
    for (unsigned long event = 2002; event <= 2018; ++event) {
        m_transport.finish(2001, numberOf(2001, event), Kind::Acknowledged);
    }
    ASSERT_TRUE(turnUntil([&] { return !m_transport.sentAgain[2001].empty(); }));
    EXPECT_THAT(m_transport.sentAgain[2001], ElementsAre(numberOf(2001, 2001)));
    EXPECT_EQ(status().counters.resent, 1U);
    while (!m_transport.channels.at(2001)->underWay.empty()) m_transport.finish(2001, Kind::Acknowledged);
    EXPECT_EQ(status().counters.acknowledged, 130U);
    EXPECT_EQ(status().counters.sent, 130U);
    EXPECT_EQ(status().state, InformState::Answering);
    expectBalance();
}

TEST_F(InformSenderTest, OneUnansweredInformAmongAnsweredOnesDoesNotMakeAReceiverSilent) {
    openWindow(patient());
    for (unsigned long long event = 2001; event <= 2003; ++event) submitAlarm(event, std::to_string(event));
    ASSERT_TRUE(turnUntil([&] { return m_transport.sent[2001].size() == 3; }));
    m_transport.finish(2001, numberOf(2001, 2002), Kind::Acknowledged);
    m_transport.finish(2001, numberOf(2001, 2001), Kind::NoAnswer);
    EXPECT_EQ(status().state, InformState::Answering);
    m_transport.finish(2001, numberOf(2001, 2003), Kind::Acknowledged);
    m_transport.finish(2001, numberOf(2001, 2001), Kind::NoAnswer);
    EXPECT_EQ(status().state, InformState::Answering);
    m_transport.finish(2001, numberOf(2001, 2001), Kind::NoAnswer);
    EXPECT_EQ(status().state, InformState::Silent);
}

TEST_F(InformSenderTest, RepeatedWaitsAreShorterByUpToAnEighth) {
    InformDestination destination = receiver(2001);
    destination.policy.firstRetry = milliseconds(8000);
    destination.policy.longestBackoff = milliseconds(16000);
    m_sender->setDestinations({destination}, true);
    submit(1);
    ASSERT_TRUE(turnUntil([&] { return m_transport.sent[2001].size() == 1; }));
    std::set<milliseconds> waits;
    for (int i = 0; i < 50; ++i) {
        m_transport.finish(2001, Kind::NoAnswer);
        const milliseconds wait = m_transport.sent[2001].back().patience;
        EXPECT_GE(wait, milliseconds(14000));
        EXPECT_LE(wait, milliseconds(16000));
        waits.insert(wait);
    }
    EXPECT_EQ(m_transport.sent[2001].front().patience, milliseconds(8000));
    EXPECT_GT(waits.size(), 10U);
}

TEST_F(InformSenderTest, AnotherLifeSendsWhatWasUnderWayAndNotWhatWasAcknowledgedMeanwhile) {
    openWindow(patient());
    for (unsigned long long event = 2001; event <= 2010; ++event) submitAlarm(event, std::to_string(event));
    ASSERT_TRUE(turnUntil([&] { return m_transport.sent[2001].size() == 10; }));
    for (const unsigned long event : {2002UL, 2005UL, 2010UL}) {
        m_transport.finish(2001, numberOf(2001, event), Kind::Acknowledged);
    }
    m_sender->stop();
    m_transport.sent.clear();
    acknowledgeAll(2001);
    start();
    m_sender->setDestinations({patient()}, true);
    ASSERT_TRUE(turnUntil([&] { return status().counters.acknowledged == 7; }));
    EXPECT_THAT(m_transport.events(2001), ElementsAre(2001, 2003, 2004, 2006, 2007, 2008, 2009));
    expectBalance();
}

TEST_F(InformSenderTest, TheWaitForAnAnswerDoublesUpToItsLimitAndBeginsAnewWithTheNext) {
    m_sender->setDestinations({receiver(2001)}, true);
    submit(1);
    submit(2);
    ASSERT_TRUE(turnUntil([&] { return m_transport.sent[2001].size() == 1 && m_settled == 2; }));
    for (int i = 0; i < 4; ++i) m_transport.finish(2001, Kind::NoAnswer);
    EXPECT_EQ(status().state, InformState::Silent);
    m_transport.finish(2001, Kind::Acknowledged);
    std::vector<milliseconds> patience;
    std::set<std::uint64_t> numbers;
    for (const auto& sent : m_transport.sent[2001]) {
        patience.push_back(sent.patience);
        if (sent.event == 1) numbers.insert(sent.number);
    }
    EXPECT_THAT(patience, ElementsAre(milliseconds(1), milliseconds(2), milliseconds(4), milliseconds(4),
                                      milliseconds(4), milliseconds(1)));
    EXPECT_EQ(numbers.size(), 1U);
    m_transport.finish(2001, Kind::Acknowledged);
    EXPECT_EQ(status().counters.sent, 2U);
    EXPECT_EQ(status().counters.resent, 4U);
    EXPECT_EQ(status().lastFailure->text, "no answer");
}

TEST_F(InformSenderTest, AReceiverThatDoesNotAnswerHoldsUpNoOther) {
    m_sender->setDestinations({receiver(2001), receiver(2002)}, true);
    acknowledgeAll(2002);
    for (unsigned long long event = 1; event <= 5; ++event) submit(event);
    ASSERT_TRUE(turnUntil([&] { return status(1).counters.acknowledged == 5; }));
    EXPECT_THAT(m_transport.events(2002), ElementsAre(1, 2, 3, 4, 5));
    EXPECT_THAT(m_transport.events(2001), ElementsAre(1));
    EXPECT_EQ(m_settled, 5);  // events wait for the disk, not for receivers
    expectBalance();
}

TEST_F(InformSenderTest, AnInformThatIsRefusedIsDropped) {
    m_sender->setDestinations({receiver(2001)}, true);
    m_transport.answers[2001] = {Kind::Refused, true, "tooBig"};
    submit(1);
    submit(2);
    ASSERT_TRUE(turnUntil([&] { return dropped(status().counters, InformDrop::Refused) == 2; }));
    EXPECT_EQ(status().lastFailure->text, "the receiver refuses an inform: tooBig");
    expectBalance();
}

TEST_F(InformSenderTest, AnInformThatNoMessageCanBeMadeOfIsDroppedAndSaysNothingOfItsReceiver) {
    m_sender->setDestinations({receiver(2001)}, true);
    acknowledgeAll(2001);
    submit(1);
    ASSERT_TRUE(turnUntil([&] { return status().counters.acknowledged == 1; }));
    m_transport.answers[2001] = {Kind::Unsendable, false, "too long"};
    submit(2);
    ASSERT_TRUE(turnUntil([&] { return dropped(status().counters, InformDrop::Unsendable) == 1; }));
    EXPECT_EQ(status().state, InformState::Answering);
    EXPECT_EQ(status().lastFailure, std::nullopt);
    EXPECT_EQ(status().counters.waiting, 0U);
    acknowledgeAll(2001);
    submit(3);
    ASSERT_TRUE(turnUntil([&] { return status().counters.acknowledged == 2; }));
    expectBalance();
}

TEST_F(InformSenderTest, AShortenedInformIsCountedOnce) {
    m_sender->setDestinations({receiver(2001)}, true);
    m_transport.answers[2001] = {Kind::NoAnswer, true, "", 3};
    submit(1);
    ASSERT_TRUE(turnUntil([&] { return m_transport.sent[2001].size() >= 3; }));
    m_transport.answers[2001] = {Kind::Acknowledged, true, "", 3};
    submit(2);
    ASSERT_TRUE(turnUntil([&] { return status().counters.acknowledged == 2; }));
    EXPECT_EQ(status().counters.shortened, 2U);
}

TEST_F(InformSenderTest, WhatIsNotAcknowledgedThreeTimesGoesInOnePacket) {
    m_sender->setDestinations({receiver(2001)}, true);
    m_sender->setMessageSize(2000);
    m_transport.answers[2001] = {Kind::NoAnswer, true, ""};
    submit(1);
    ASSERT_TRUE(turnUntil([&] { return m_transport.sent[2001].size() >= 5; }));
    acknowledgeAll(2001);
    submit(2);
    ASSERT_TRUE(turnUntil([&] { return status().counters.acknowledged == 2; }));
    const std::vector<FakeInforms::Sent>& sent = m_transport.sent[2001];
    for (std::size_t i = 0; i + 1 < sent.size(); ++i) EXPECT_EQ(sent[i].wanted, i < 3 ? 2000U : 1232U) << i;
    EXPECT_EQ(sent.back().wanted, 2000U);
}

TEST_F(InformSenderTest, TheEngineIsThatOfTheReceiverAsItIsConfiguredNow) {
    InformDestination v3 = receiver(2001);
    v3.peer.version = SNMPV3;
    acknowledgeAll(2001);
    m_sender->setDestinations({v3}, true);
    submit(1);
    ASSERT_TRUE(turnUntil([&] { return status().counters.acknowledged == 1; }));
    EXPECT_EQ(status().engine, "80001f");
    m_sender->setDestinations({receiver(2001)}, true);
    EXPECT_EQ(status().engine, "");
    submit(2);
    ASSERT_TRUE(turnUntil([&] { return status().counters.acknowledged == 2; }));
    EXPECT_EQ(status().engine, "");
    m_sender->setDestinations({v3}, true);
    submit(3);
    ASSERT_TRUE(turnUntil([&] { return status().counters.acknowledged == 3; }));
    EXPECT_EQ(status().engine, "80001f");
}

TEST_F(InformSenderTest, AfterAFailureItIsTriedAgainAfterAPause) {
    m_sender->setDestinations({receiver(2001)}, true);
    m_transport.answers[2001] = {Kind::Failed, false, "no route"};
    submit(1);
    ASSERT_TRUE(turnUntil([&] { return m_transport.sent[2001].size() == 3; }));
    EXPECT_EQ(status().state, InformState::Failing);
    EXPECT_EQ(status().counters.sent, 0U);
    acknowledgeAll(2001);
    ASSERT_TRUE(turnUntil([&] { return status().counters.acknowledged == 1; }));
}

TEST_F(InformSenderTest, AChannelThatCannotBeOpenedIsTriedAgain) {
    m_sender->setDestinations({receiver(2001)}, true);
    m_transport.openFails = true;
    acknowledgeAll(2001);
    submit(1);
    ASSERT_TRUE(turnUntil([&] { return m_transport.opened.size() == 3; }));
    EXPECT_EQ(status().lastFailure->text, "no socket");
    m_transport.openFails = false;
    ASSERT_TRUE(turnUntil([&] { return status().counters.acknowledged == 1; }));
}

TEST_F(InformSenderTest, AnInformThatCouldNotBeSentForLackOfMemoryIsSentAgain) {
    m_transport.sendsWithoutMemory = 2;
    m_sender->setDestinations({receiver(2001)}, true);
    acknowledgeAll(2001);
    submit(1);
    ASSERT_TRUE(turnUntil([&] { return status().counters.acknowledged == 1; }));
    m_transport.sendsWithoutMemory = 2;
    submit(2);
    ASSERT_TRUE(turnUntil([&] { return status().counters.acknowledged == 2; }));
    EXPECT_THAT(m_transport.events(2001), ElementsAre(1, 2));
    EXPECT_EQ(status().counters.resent, 0U);
}

TEST_F(InformSenderTest, TheNextInformGoesOutThoughTheStateWasNotedWithoutMemory) {
    m_transport.enginesWithoutMemory = 2;
    InformDestination v3 = receiver(2001);
    v3.peer.version = 3;
    m_sender->setDestinations({v3}, true);
    acknowledgeAll(2001);
    submit(1);
    submit(2);
    ASSERT_TRUE(turnUntil([&] { return status().counters.acknowledged == 2; }));
    EXPECT_THAT(m_transport.events(2001), ElementsAre(1, 2));
    EXPECT_EQ(status().engine, "80001f");
    expectBalance();
}

TEST_F(InformSenderTest, AnInformIsGivenUpAfterItsRetries) {
    InformDestination impatient = receiver(2001);
    impatient.policy.retries = 1;
    m_sender->setDestinations({impatient}, true);
    m_transport.answers[2001] = {Kind::NoAnswer, true, ""};
    submit(1);
    submit(2);
    ASSERT_TRUE(turnUntil([&] { return dropped(status().counters, InformDrop::GivenUp) == 2; }));
    EXPECT_THAT(m_transport.events(2001), ElementsAre(1, 1, 2, 2));
    expectBalance();
}

TEST_F(InformSenderTest, TrapsThatAreNotChosenNotBuiltOrWithoutNameAreCounted) {
    InformDestination named = receiver(2002);
    named.policy.trapType = 4;
    m_sender->setDestinations({receiver(2001), named}, true);
    submit(1, nullptr);
    submit(2, std::make_shared<Notification>());
    EXPECT_EQ(m_settled, 2);
    EXPECT_EQ(dropped(status().counters, InformDrop::NotBuilt), 1U);
    EXPECT_EQ(dropped(status().counters, InformDrop::BadOid), 1U);
    EXPECT_EQ(status(1).counters.filtered, 2U);
    expectBalance();
}

TEST_F(InformSenderTest, WhatDoesNotFitIsDroppedAndDelaysNoEvent) {
    InformDestination small = receiver(2001);
    small.policy.queueLimit = 2;
    m_sender->setDestinations({small}, true);
    for (unsigned long long event = 1; event <= 5; ++event) submit(event);
    ASSERT_TRUE(turnUntil([&] { return m_settled == 5; }));
    EXPECT_EQ(dropped(status().counters, InformDrop::QueueFull), 3U);
    EXPECT_EQ(status().counters.waiting, 2U);
    expectBalance();
}

TEST_F(InformSenderTest, NumbersOfReceiversAreThoseOfNoTableRowAndStayWhileTheyAreThere) {
    m_sender->setDestinations({receiver(2001), receiver(2002)}, true);
    const auto before = m_sender->destinations();
    ASSERT_EQ(before->size(), 2U);
    EXPECT_EQ(before->begin()->first, "0000065536");
    EXPECT_EQ(before->begin()->second.index, "65536");
    m_sender->setDestinations({receiver(2002), receiver(2003)}, true);
    const auto after = m_sender->destinations();
    std::map<std::string, unsigned int> ports;
    for (const auto& entry : *after) ports[entry.second.index] = entry.second.port;
    EXPECT_EQ(ports, (std::map<std::string, unsigned int>{{"65537", 2002}, {"65538", 2003}}));
}

TEST_F(InformSenderTest, WhatWaitsForAReceiverThatIsGoneIsDroppedAndCounted) {
    m_sender->setDestinations({receiver(2001), receiver(2002)}, true);
    submit(1);
    submit(2);
    ASSERT_TRUE(turnUntil([&] { return m_transport.openChannels == 2 && m_settled == 2; }));
    m_sender->setDestinations({receiver(2002)}, true);
    EXPECT_EQ(m_transport.openChannels, 1);
    EXPECT_EQ(dropped(m_sender->status().former, InformDrop::Removed), 2U);
    m_transport.finish(2002, Kind::Acknowledged);  // the other one goes on
    EXPECT_THAT(m_transport.events(2002), ElementsAre(1, 2));
    expectBalance();
}

TEST_F(InformSenderTest, AnInformUnderWayGoesAgainToAReceiverThatChanged) {
    m_sender->setDestinations({receiver(2001)}, true);
    submit(1);
    ASSERT_TRUE(turnUntil([&] { return m_transport.sent[2001].size() == 1; }));
    InformDestination changed = receiver(2001);
    changed.peer.name = "another";
    m_sender->setDestinations({changed}, true);
    ASSERT_TRUE(turnUntil([&] { return m_transport.sent[2001].size() == 2; }));
    EXPECT_THAT(m_transport.opened, ElementsAre("127.0.0.1 informs", "127.0.0.1 another"));
    EXPECT_THAT(m_transport.events(2001), ElementsAre(1, 1));
}

TEST_F(InformSenderTest, AnotherPolicyLeavesWhatIsUnderWayAlone) {
    m_sender->setDestinations({receiver(2001)}, true);
    submit(1);
    ASSERT_TRUE(turnUntil([&] { return m_transport.sent[2001].size() == 1; }));
    InformDestination changed = receiver(2001);
    changed.policy.trapType = 3;
    m_sender->setDestinations({changed}, true);
    m_transport.finish(2001, Kind::Acknowledged);
    EXPECT_EQ(m_transport.opened.size(), 1U);
    EXPECT_EQ(status().counters.acknowledged, 1U);
}

TEST_F(InformSenderTest, InformsToANameWaitForItsAddress) {
    m_sender->setDestinations({receiver(2001, "nms.invalid"), receiver(2002)}, true);
    acknowledgeAll(2002);
    submit(1);
    ASSERT_TRUE(turnUntil([&] { return status(1).counters.acknowledged == 1; }));
    ASSERT_TRUE(turnUntil([&] { return status(0).state == InformState::Unresolved; }));
    EXPECT_THAT(m_transport.sent[2001], IsEmpty());
    EXPECT_EQ(status(0).counters.waiting, 1U);
}

TEST_F(InformSenderTest, ANameIsSentToWhenItHasAnAddress) {
    std::atomic<bool> known{false};
    m_sender = std::make_unique<InformSender>(
        m_loop, m_transport, m_folder + "/named.db", std::chrono::seconds(1), [&known](const std::string& name) {
            return known && name == "nms.test" ? std::string("127.0.0.9") : std::string();
        });
    m_sender->setDestinations({receiver(2001, "nms.test")}, true);
    acknowledgeAll(2001);
    submit(1);
    ASSERT_TRUE(turnUntil([&] { return status().state == InformState::Unresolved; }));
    known = true;
    ASSERT_TRUE(turnUntil([&] { return status().counters.acknowledged == 1; }));
    EXPECT_EQ(status().resolvedAddress, "127.0.0.9");
    m_sender.reset();
}

TEST_F(InformSenderTest, AnotherLifeOfTheProcessSendsWhatWasNotAcknowledged) {
    m_sender->setDestinations({receiver(2001)}, true);
    for (unsigned long long event = 1; event <= 3; ++event) submit(event);
    ASSERT_TRUE(turnUntil([&] { return m_transport.sent[2001].size() == 1 && m_settled == 3; }));
    m_transport.finish(2001, Kind::Acknowledged);
    m_sender->stop();
    m_transport.sent.clear();
    acknowledgeAll(2001);
    start();
    m_sender->setDestinations({receiver(2001)}, true);
    submit(1);  // the backend tells of all three again
    submit(2);
    submit(3);
    submit(4);
    ASSERT_TRUE(turnUntil([&] { return status().counters.acknowledged == 3; }));
    EXPECT_THAT(m_transport.events(2001), ElementsAre(2, 3, 4));
    EXPECT_EQ(status().counters.restored, 2U);
    EXPECT_EQ(status().counters.repeated, 3U);
    expectBalance();
}

TEST_F(InformSenderTest, AListThatIsNotCompleteKeepsTheQueuesOfUnknownReceivers) {
    m_sender->setDestinations({receiver(2001)}, true);
    submit(1);
    ASSERT_TRUE(turnUntil([&] { return m_settled == 1; }));
    m_sender->stop();
    start();
    m_sender->setDestinations({}, false);
    acknowledgeAll(2001);
    m_transport.sent.clear();
    m_sender->setDestinations({receiver(2001)}, true);
    ASSERT_TRUE(turnUntil([&] { return status().counters.acknowledged == 1; }));
    expectBalance();
}

TEST_F(InformSenderTest, QueuesOfReceiversThatAnEarlierLifeKnewAreDroppedAndCounted) {
    m_sender->setDestinations({receiver(2001)}, true);
    submit(1);
    ASSERT_TRUE(turnUntil([&] { return m_settled == 1; }));
    m_sender->stop();
    start();
    m_sender->setDestinations({}, true);
    EXPECT_EQ(m_sender->status().former.restored, 1U);
    EXPECT_EQ(dropped(m_sender->status().former, InformDrop::Removed), 1U);
    expectBalance();
}

TEST_F(InformSenderTest, EveryReceiverGetsAColdStart) {
    m_sender->setDestinations({receiver(2001), receiver(2002)}, true);
    acknowledgeAll(2001);
    acknowledgeAll(2002);
    m_sender->sendColdStart();
    ASSERT_TRUE(
        turnUntil([&] { return status(0).counters.acknowledged == 1 && status(1).counters.acknowledged == 1; }));
    EXPECT_THAT(m_transport.events(2001), ElementsAre(1));  // 1.3.6.1.6.3.1.1.5.1
}

TEST_F(InformSenderTest, AChoiceOfOthersDestinationsIsNotOurs) {
    m_sender->setDestinations({receiver(2001)}, true);
    const auto all = m_sender->destinations();
    m_sender->submit({1, 0}, *all, {destination("1", 1001)}, trapNumbered(1), [this] { ++m_settled; });
    EXPECT_EQ(m_settled, 1);
    EXPECT_EQ(status().counters.filtered, 1U);
}

TEST_F(InformSenderTest, AReceiverThatIsGoneSinceTheListWasHandedOutIsCounted) {
    m_sender->setDestinations({receiver(2001)}, true);
    const auto before = m_sender->destinations();
    m_sender->setDestinations({}, true);
    m_sender->submit({1, 0}, *before, {before->begin()->second}, trapNumbered(1), [this] { ++m_settled; });
    EXPECT_EQ(m_settled, 1);
    EXPECT_EQ(dropped(m_sender->status().former, InformDrop::Removed), 1U);
    expectBalance();
}

}  // namespace vrx
