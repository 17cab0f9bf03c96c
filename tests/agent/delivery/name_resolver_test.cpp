#include "host/agent/delivery/name_resolver.h"

#include <gtest/gtest.h>

#include <condition_variable>
#include <map>
#include <mutex>
#include <vector>

namespace vrx {

namespace {

using std::chrono::seconds;

constexpr seconds LONG{3600};

// What was answered and looked up, and waiting for it.
class NameResolverTest : public testing::Test {
protected:
    NameResolver::Answer answer() {
        return [this](const std::string& name, const std::string& address) {
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_answers[name].push_back(address);
            m_changed.notify_all();
        };
    }
    std::vector<std::string> waitForAnswers(const std::string& name, std::size_t count) {
        std::unique_lock<std::mutex> lock(m_mutex);
        EXPECT_TRUE(m_changed.wait_for(lock, seconds(60), [&] { return m_answers[name].size() >= count; }));
        return m_answers[name];
    }

    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::map<std::string, std::vector<std::string>> m_answers;  // guarded by m_mutex
    bool m_release = false;                                     // guarded by m_mutex
};

}  // namespace

TEST_F(NameResolverTest, AnswersEachWatchedName) {
    NameResolver resolver(LONG, answer(), [](const std::string& name) { return "address of " + name; });
    resolver.watch({"a", "b"});
    EXPECT_EQ(waitForAnswers("a", 1)[0], "address of a");
    EXPECT_EQ(waitForAnswers("b", 1)[0], "address of b");
}

TEST_F(NameResolverTest, LooksUpAgainAfterItsInterval) {
    NameResolver resolver(seconds(0), answer(), [](const std::string&) { return "x"; });
    resolver.watch({"a"});
    EXPECT_GE(waitForAnswers("a", 3).size(), 3U);
}

TEST_F(NameResolverTest, TriesAgainAfterAFailure) {
    int calls = 0;
    NameResolver resolver(LONG, answer(),
                          [&calls](const std::string&) { return ++calls == 1 ? std::string() : std::string("x"); });
    resolver.watch({"a"});
    const auto answers = waitForAnswers("a", 2);
    EXPECT_EQ(answers[0], "");
    EXPECT_EQ(answers[1], "x");
}

TEST_F(NameResolverTest, ForgetsNamesThatAreWatchedNoMore) {
    NameResolver resolver(seconds(0), answer(), [](const std::string&) { return "x"; });
    resolver.watch({"a"});
    waitForAnswers("a", 1);
    resolver.watch({"b"});
    std::size_t then = 0;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        then = m_answers["a"].size();
    }
    waitForAnswers("b", 5);
    const std::lock_guard<std::mutex> lock(m_mutex);
    EXPECT_EQ(m_answers["a"].size(), then);
}

TEST_F(NameResolverTest, NamesThatComeAfterAllWereForgottenAreLookedUp) {
    NameResolver resolver(LONG, answer(), [](const std::string& name) { return "address of " + name; });
    for (std::size_t round = 1; round <= 3; ++round) {
        resolver.watch({"a"});
        EXPECT_EQ(waitForAnswers("a", round).size(), round);
        resolver.watch({});
    }
}

TEST_F(NameResolverTest, TheEndDoesNotWaitForALookUpThatHangs) {
    struct Gate {
        std::mutex mutex;
        std::condition_variable changed;
        bool entered = false;
        bool open = false;
        bool left = false;
    };
    const auto gate = std::make_shared<Gate>();  // outlives the resolver with its thread
    {
        NameResolver resolver(LONG, answer(), [gate](const std::string&) {
            std::unique_lock<std::mutex> lock(gate->mutex);
            gate->entered = true;
            gate->changed.notify_all();
            gate->changed.wait(lock, [&] { return gate->open; });
            gate->left = true;
            gate->changed.notify_all();
            return std::string("late");
        });
        resolver.watch({"a"});
        std::unique_lock<std::mutex> lock(gate->mutex);
        gate->changed.wait(lock, [&] { return gate->entered; });
    }
    std::unique_lock<std::mutex> lock(gate->mutex);
    EXPECT_FALSE(gate->left);
    gate->open = true;
    gate->changed.notify_all();
    gate->changed.wait(lock, [&] { return gate->left; });
    const std::lock_guard<std::mutex> answersLock(m_mutex);
    EXPECT_TRUE(m_answers.empty());
}

TEST(NameResolverLookup, FindsLocalhost) {
    const std::string address = NameResolver::systemLookup("localhost");
    EXPECT_TRUE(address == "127.0.0.1" || address == "::1") << address;
}

TEST(NameResolverLookup, ANameThatCannotExistHasNoAddress) {
    EXPECT_EQ(NameResolver::systemLookup("no such name"), "");
}

TEST(TrapAddress, TellsAddressesFromNames) {
    EXPECT_TRUE(isIpv4Address("192.0.2.1"));
    EXPECT_FALSE(isIpv4Address("192.0.2"));
    EXPECT_FALSE(isIpv4Address("nms.example"));
    EXPECT_FALSE(isIpv4Address(""));
    EXPECT_TRUE(isIpv6Address("::1"));
    EXPECT_TRUE(isIpv6Address("fe80::1%eth0"));
    EXPECT_FALSE(isIpv6Address("fe80::1%"));
    EXPECT_FALSE(isIpv6Address("192.0.2.1"));
    EXPECT_FALSE(isIpv6Address("nms.example"));
    EXPECT_FALSE(isIpv6Address(""));
}

}  // namespace vrx
