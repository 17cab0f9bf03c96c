// The outcomes of informs without memory at any one place: each is settled and counted once, and the next inform goes.
#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <list>
#include <new>
#include <stdexcept>
#include <string>

#include "tests/agent/informs/fake_informs.h"
#include "tests/failing_memory.h"

namespace vrx {

namespace {

using Kind = InformOutcome::Kind;

constexpr unsigned int PORT = 2001;

// More than a string holds without memory.
constexpr const char* LONG_TEXT = "a reason that no string holds without memory of its own";

class InformSenderMemoryTest : public testing::Test {
protected:
    InformSenderMemoryTest() {
        std::string name = (std::filesystem::temp_directory_path() / "informs-XXXXXX").string();
        if (::mkdtemp(name.data()) == nullptr) throw std::runtime_error("no temporary folder");
        m_folder = name;
        m_sender = std::make_unique<InformSender>(m_loop, m_transport, m_folder + "/informs.db",
                                                  std::chrono::seconds(300), NameResolver::Lookup());
        InformDestination v3 = receiver(PORT);
        v3.peer.version = 3;
        v3.policy.retries = 0;
        m_sender->setDestinations({v3}, true);
    }
    ~InformSenderMemoryTest() override {
        m_sender.reset();
        std::filesystem::remove_all(m_folder);
    }

    void submit() {
        const auto all = m_sender->destinations();
        ++m_event;
        m_sender->submit({m_event, 0}, *all, {all->begin()->second}, trapNumbered(m_event), nullptr);
    }
    bool isUnderWay(unsigned long event) {
        const auto& sent = m_transport.sent[PORT];
        return !sent.empty() && sent.back().event == event;
    }
    InformDestinationStatus status() { return m_sender->status().destinations.front(); }

    // The n-th allocation fails in the turn that settles the outcome and sends the next inform, for n = 1, 2, ... until
    // there are no more of them; `settled` gives what has become of informs, which is one more each time.
    template <typename Settled>
    void failEach(const InformOutcome& outcome, Settled settled) {
        submit();
        bool failed = true;
        unsigned int n = 0;
        while (failed) {
            SCOPED_TRACE(++n);
            submit();
            ASSERT_TRUE(turnUntil([&] { return isUnderWay(m_event - 1) && status().counters.waiting == 2; }));
            const std::uint64_t before = settled(status().counters);
            const InformCounters counted = status().counters;
            FakeInforms::Channel& channel = *m_transport.channels.at(PORT);
            channel.give(channel.underWay.at(0), outcome);
            testing::internal::CaptureStderr();
            failing_memory::failAt(n);
            agent_check_and_process(0);
            failed = !failing_memory::isFailureToCome();
            failing_memory::failAt(0);
            m_lines = testing::internal::GetCapturedStderr();
            ASSERT_TRUE(turnUntil([&] { return isUnderWay(m_event); }));
            EXPECT_EQ(settled(status().counters), before + 1);
            EXPECT_EQ(status().counters.sent, counted.sent + 1);
            EXPECT_EQ(status().counters.shortened, counted.shortened + (outcome.cut > 0 ? 1 : 0));
            EXPECT_EQ(status().counters.waiting, 1U);
            EXPECT_EQ(status().engine, "80001f");
            EXPECT_EQ(linesOf(" is sent with 2 texts shortened"), outcome.cut > 0 ? 1U : 0U) << m_lines;
        }
        EXPECT_GT(n, 3U) << "allocations fail";
        EXPECT_EQ(m_transport.sent[PORT].size(), m_event) << "no inform twice";
    }
    std::size_t linesOf(const std::string& text) const {
        std::size_t lines = 0;
        for (auto at = m_lines.find(text); at != std::string::npos; at = m_lines.find(text, at + 1)) ++lines;
        return lines;
    }

    std::string m_folder;
    AgentLoop m_loop;
    FakeInforms m_transport;
    std::unique_ptr<InformSender> m_sender;
    unsigned long m_event = 0;
    std::string m_lines;  // of the last outcome
};

}  // namespace

TEST_F(InformSenderMemoryTest, AnAcknowledgementIsCountedOnce) {
    failEach({Kind::Acknowledged, true, "", 2}, [](const InformCounters& counters) { return counters.acknowledged; });
}

TEST_F(InformSenderMemoryTest, ATrapIsTakenForAllItsReceiversOrForNone) {
    m_sender->setDestinations({receiver(PORT), receiver(PORT + 1)}, true);
    const auto all = m_sender->destinations();
    const std::list<tTrapDestInfo> chosen = {all->begin()->second, all->rbegin()->second};
    std::atomic<unsigned int> settled{0};
    std::uint64_t taken = 0;
    bool failed = true;
    unsigned int n = 0;
    for (; failed; ++n) {
        const auto trap = trapNumbered(1);
        const NotificationSink::Settled count = [&] { ++settled; };
        try {
            failing_memory::failAt(n + 1);
            m_sender->submit({1, 0}, *all, chosen, trap, count);
            taken = 1;
        } catch (const std::bad_alloc&) {
        }
        failed = !failing_memory::isFailureToCome();
        failing_memory::failAt(0);
        for (const InformDestinationStatus& one : m_sender->status().destinations) {
            ASSERT_EQ(one.counters.considered, taken) << n;
            ASSERT_EQ(one.counters.waiting, taken) << n;
            ASSERT_EQ(one.counters.repeated + one.counters.droppedInAll(), 0U) << n;
        }
    }
    EXPECT_GT(n, 5U) << "allocations fail";
    EXPECT_TRUE(turnUntil([&] { return settled == taken; }));
}

TEST_F(InformSenderMemoryTest, ARefusalIsCountedOnce) {
    failEach({Kind::Refused, true, LONG_TEXT}, [](const InformCounters& counters) {
        return counters.dropped[static_cast<std::size_t>(InformDrop::Refused)];
    });
    EXPECT_EQ(status().lastFailure->text, std::string("the receiver refuses an inform: ") + LONG_TEXT);
}

TEST_F(InformSenderMemoryTest, AnInformWithoutAnswerIsGivenUpOnce) {
    failEach({Kind::NoAnswer, true, ""}, [](const InformCounters& counters) {
        return counters.dropped[static_cast<std::size_t>(InformDrop::GivenUp)];
    });
    EXPECT_EQ(status().state, InformState::Silent);
}

}  // namespace vrx
