#include "host/destinations/connectivity.h"

#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <map>
#include <mutex>
#include <stdexcept>
#include <thread>

namespace vrx {

namespace {

using std::chrono::hours;
using std::chrono::milliseconds;

// A network of the test's: what is reachable, what hangs, and how often each address was looked at.
class FakeNetwork {
public:
    Connectivity::Options options() {
        Connectivity::Options made;
        made.refreshed = hours(1);
        made.forgotten = hours(1);
        made.look = [this](const std::string& address) { return look(address); };
        return made;
    }
    void set(const std::string& address, bool reachable) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_reachable[address] = reachable;
    }
    void hang(bool hangs) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_hangs = hangs;
        m_changed.notify_all();
    }
    void waitForLooks(const std::string& address, int count) {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_changed.wait(lock, [&] { return m_looks[address] >= count; });
    }
    int looks(const std::string& address) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_looks[address];
    }

private:
    bool look(const std::string& address) {
        std::unique_lock<std::mutex> lock(m_mutex);
        ++m_looks[address];
        m_changed.notify_all();
        m_changed.wait(lock, [this] { return !m_hangs; });
        if (address == "faulty.example") throw std::runtime_error("no resolver");
        return m_reachable[address];
    }

    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::map<std::string, bool> m_reachable;
    std::map<std::string, int> m_looks;
    bool m_hangs = false;
};

void waitUntil(const std::function<bool()>& condition) {
    while (!condition()) std::this_thread::yield();
}

TEST(ConnectivityCache, NumericAddressIsAnsweredAtOnce) {
    FakeNetwork network;
    network.set("192.0.2.7", true);
    Connectivity connectivity(network.options());
    EXPECT_TRUE(connectivity.isReachable("192.0.2.7"));
    EXPECT_FALSE(connectivity.isReachable("192.0.2.8"));
    EXPECT_FALSE(connectivity.isReachable("2001:db8::7"));
}

TEST(ConnectivityCache, AnswerIsKeptUntilItIsOld) {
    FakeNetwork network;
    network.set("192.0.2.7", true);
    Connectivity connectivity(network.options());
    for (int i = 0; i < 10; ++i) EXPECT_TRUE(connectivity.isReachable("192.0.2.7"));
    EXPECT_EQ(network.looks("192.0.2.7"), 1);
}

TEST(ConnectivityCache, NameIsNotReachableUntilItIsResolvedInTheBackground) {
    FakeNetwork network;
    network.set("nms.example", true);
    network.hang(true);
    Connectivity connectivity(network.options());
    EXPECT_FALSE(connectivity.isReachable("nms.example"));
    network.waitForLooks("nms.example", 1);
    EXPECT_FALSE(connectivity.isReachable("nms.example"));
    network.hang(false);
    waitUntil([&] { return connectivity.isReachable("nms.example"); });
}

TEST(ConnectivityCache, OldAnswersAreLookedUpAgain) {
    FakeNetwork network;
    network.set("192.0.2.7", true);
    Connectivity::Options options = network.options();
    options.refreshed = milliseconds(1);
    Connectivity connectivity(options);
    EXPECT_TRUE(connectivity.isReachable("192.0.2.7"));
    network.set("192.0.2.7", false);
    waitUntil([&] { return !connectivity.isReachable("192.0.2.7"); });
}

TEST(ConnectivityCache, TextThatIsNoAddressIsNeverLookedAt) {
    FakeNetwork network;
    Connectivity connectivity(network.options());
    for (const char* text : {"", "a b", "256.1.1.1", "a;b"}) {
        EXPECT_FALSE(connectivity.isReachable(text)) << text;
        EXPECT_EQ(network.looks(text), 0) << text;
    }
    EXPECT_EQ(connectivity.size(), 0U);
}

TEST(ConnectivityCache, HoldsNoMoreAddressesThanItMay) {
    FakeNetwork network;
    Connectivity::Options options = network.options();
    options.capacity = 3;
    Connectivity connectivity(options);
    for (int i = 1; i <= 10; ++i) connectivity.isReachable("192.0.2." + std::to_string(i));
    EXPECT_EQ(connectivity.size(), 3U);
}

TEST(ConnectivityCache, AddressNotAskedForTheLongestMakesRoom) {
    FakeNetwork network;
    Connectivity::Options options = network.options();
    options.capacity = 2;
    Connectivity connectivity(options);
    connectivity.isReachable("192.0.2.1");
    connectivity.isReachable("192.0.2.2");
    connectivity.isReachable("192.0.2.1");
    connectivity.isReachable("192.0.2.3");
    connectivity.isReachable("192.0.2.1");
    EXPECT_EQ(network.looks("192.0.2.1"), 1);
    connectivity.isReachable("192.0.2.2");
    EXPECT_EQ(network.looks("192.0.2.2"), 2);
}

TEST(ConnectivityCache, ForgetsAddressesThatNobodyAsksFor) {
    FakeNetwork network;
    Connectivity::Options options = network.options();
    options.refreshed = milliseconds(1);
    options.forgotten = milliseconds(5);
    Connectivity connectivity(options);
    connectivity.isReachable("192.0.2.1");
    connectivity.isReachable("nms.example");
    waitUntil([&] { return connectivity.size() == 0; });
}

TEST(ConnectivityCache, LookThatThrowsMeansNotReachable) {
    FakeNetwork network;
    Connectivity connectivity(network.options());
    EXPECT_FALSE(connectivity.isReachable("faulty.example"));
    network.waitForLooks("faulty.example", 1);
    network.set("nms.example", true);
    waitUntil([&] { return connectivity.isReachable("nms.example"); });
    EXPECT_FALSE(connectivity.isReachable("faulty.example"));
}

TEST(ConnectivityCache, CanBeStoppedAndAskedAgain) {
    FakeNetwork network;
    network.set("nms.example", true);
    Connectivity connectivity(network.options());
    waitUntil([&] { return connectivity.isReachable("nms.example"); });
    connectivity.stop();
    connectivity.stop();
    EXPECT_TRUE(connectivity.isReachable("nms.example"));
    network.set("other.example", true);
    waitUntil([&] { return connectivity.isReachable("other.example"); });
}

TEST(ConnectivityCache, StopWithoutQuestionsDoesNothing) {
    Connectivity connectivity;
    connectivity.stop();
    EXPECT_EQ(connectivity.size(), 0U);
}

TEST(ConnectivityCache, HangingLookUpHoldsUpNeitherQuestionsNorTheEnd) {
    // Outlives the cache's thread, which is left behind.
    static FakeNetwork& network = *new FakeNetwork;
    {
        Connectivity connectivity(network.options());
        network.hang(true);
        EXPECT_FALSE(connectivity.isReachable("slow.example"));
        network.waitForLooks("slow.example", 1);
        EXPECT_FALSE(connectivity.isReachable("slow.example"));
        EXPECT_FALSE(connectivity.isReachable("other.example"));
    }
    EXPECT_EQ(network.looks("other.example"), 0);
    network.hang(false);
}

TEST(ConnectivityCache, ManyThreadsMayAsk) {
    FakeNetwork network;
    Connectivity::Options options = network.options();
    options.refreshed = milliseconds(1);
    options.capacity = 8;
    Connectivity connectivity(options);
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([&connectivity] {
            for (int i = 0; i < 500; ++i) connectivity.isReachable("192.0.2." + std::to_string(i % 16));
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_LE(connectivity.size(), 8U);
}

TEST(LookAtNetwork, LoopbackHasARoute) {
    EXPECT_TRUE(Connectivity::lookAtNetwork("127.0.0.1"));
    EXPECT_TRUE(Connectivity::lookAtNetwork("localhost"));
}

TEST(LookAtNetwork, NameThatDoesNotExistIsNotReachable) {
    EXPECT_FALSE(Connectivity::lookAtNetwork("no-such-host.invalid"));
}

TEST(LookAtNetwork, AddressOfAnInterfaceThatDoesNotExistIsNotReachable) {
    EXPECT_FALSE(Connectivity::lookAtNetwork("fe80::1%nosuchif0"));
}

}  // namespace

}  // namespace vrx
