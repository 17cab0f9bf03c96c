#include "host/base/service_manager.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>

#include "tests/base/fake_service_manager.h"
#include "tests/base/temporary_root.h"

namespace vrx {

namespace {

using std::chrono::microseconds;
using testing::ElementsAre;
using testing::IsEmpty;

std::string abstractName() {
    return "@vrx-service-manager-test-" + std::to_string(getpid());
}

// Variables that a test sets, gone with it.
class ServiceManagerTest : public testing::Test {
protected:
    ~ServiceManagerTest() override {
        unsetenv("WATCHDOG_USEC");
        unsetenv("WATCHDOG_PID");
        unsetenv("NOTIFY_SOCKET");
    }
};

TEST_F(ServiceManagerTest, StatesAreToldAtAPathInTheFileSystem) {
    const TemporaryRoot root;
    FakeServiceManager fake(root.pathOf("notify"));
    const ServiceManager manager = ServiceManager::fromEnvironment();
    EXPECT_THAT(fake.messages(), IsEmpty());
    manager.ready("answers requests");
    manager.alive();
    manager.stopping();
    EXPECT_THAT(fake.messages(), ElementsAre("READY=1\nSTATUS=answers requests", "WATCHDOG=1", "STOPPING=1"));
}

TEST_F(ServiceManagerTest, StatesAreToldAtAnAbstractName) {
    FakeServiceManager fake(abstractName());
    const ServiceManager manager = ServiceManager::fromEnvironment();
    manager.stopping();
    EXPECT_THAT(fake.messages(), ElementsAre("STOPPING=1"));
}

TEST_F(ServiceManagerTest, AReloadSaysWhenItBegan) {
    const auto now = [] {
        const auto since = std::chrono::steady_clock::now().time_since_epoch();
        return std::chrono::duration_cast<microseconds>(since).count();
    };
    FakeServiceManager fake(abstractName());
    const ServiceManager manager = ServiceManager::fromEnvironment();
    const auto before = now();
    manager.reloading();
    const auto after = now();
    const auto messages = fake.messages();
    ASSERT_EQ(messages.size(), 1U);
    const std::string head = "RELOADING=1\nMONOTONIC_USEC=";
    ASSERT_EQ(messages[0].substr(0, head.size()), head);
    const auto told = std::stoll(messages[0].substr(head.size()));
    EXPECT_EQ(messages[0], head + std::to_string(told));
    EXPECT_LE(before, told);
    EXPECT_LE(told, after);
}

TEST_F(ServiceManagerTest, AStatusStaysOneLine) {
    FakeServiceManager fake(abstractName());
    ServiceManager::fromEnvironment().ready("one\nSTOPPING=1");
    EXPECT_THAT(fake.messages(), ElementsAre("READY=1\nSTATUS=one STOPPING=1"));
}

TEST_F(ServiceManagerTest, WithoutASocketNothingIsSentAndNothingExpected) {
    setenv("WATCHDOG_USEC", "1000000", 1);
    const ServiceManager manager = ServiceManager::fromEnvironment();
    manager.ready("nobody hears it");
    manager.reloading();
    manager.alive();
    manager.stopping();
    EXPECT_EQ(manager.aliveInterval(), microseconds(0));
}

TEST_F(ServiceManagerTest, TheVariablesAreTakenOutOfTheEnvironment) {
    const FakeServiceManager fake(abstractName());
    setenv("WATCHDOG_USEC", "1000000", 1);
    setenv("WATCHDOG_PID", std::to_string(getpid()).c_str(), 1);
    const ServiceManager manager = ServiceManager::fromEnvironment();
    for (const char* variable : {"NOTIFY_SOCKET", "WATCHDOG_USEC", "WATCHDOG_PID"})
        EXPECT_EQ(getenv(variable), nullptr) << variable;
}

TEST_F(ServiceManagerTest, HalfOfTheManagersPatienceIsTheInterval) {
    const FakeServiceManager fake(abstractName());
    setenv("WATCHDOG_USEC", "3000001", 1);
    EXPECT_EQ(ServiceManager::fromEnvironment().aliveInterval(), microseconds(1500000));
}

TEST_F(ServiceManagerTest, AWatchdogOfThisProcessCounts) {
    const FakeServiceManager fake(abstractName());
    setenv("WATCHDOG_USEC", "2000000", 1);
    setenv("WATCHDOG_PID", std::to_string(getpid()).c_str(), 1);
    EXPECT_EQ(ServiceManager::fromEnvironment().aliveInterval(), microseconds(1000000));
}

TEST_F(ServiceManagerTest, AWatchdogOfAnotherProcessDoesNotCount) {
    const FakeServiceManager fake(abstractName());
    setenv("WATCHDOG_USEC", "2000000", 1);
    setenv("WATCHDOG_PID", std::to_string(getppid()).c_str(), 1);
    EXPECT_EQ(ServiceManager::fromEnvironment().aliveInterval(), microseconds(0));
}

TEST_F(ServiceManagerTest, APatienceThatIsNoNumberIsNone) {
    for (const char* text : {"", "soon", "12x", "-5", "99999999999999999999"}) {
        const FakeServiceManager fake(abstractName());
        setenv("WATCHDOG_USEC", text, 1);
        EXPECT_EQ(ServiceManager::fromEnvironment().aliveInterval(), microseconds(0)) << text;
    }
}

TEST_F(ServiceManagerTest, AnAddressOfAnotherKindIsLeftAlone) {
    for (const std::string& address :
         {std::string("vsock:2:1234"), std::string("notify"), "/" + std::string(200, 'x')}) {
        setenv("NOTIFY_SOCKET", address.c_str(), 1);
        setenv("WATCHDOG_USEC", "2000000", 1);
        const ServiceManager manager = ServiceManager::fromEnvironment();
        manager.ready("nobody hears it");
        EXPECT_EQ(manager.aliveInterval(), microseconds(0)) << address;
    }
}

TEST_F(ServiceManagerTest, AManagerThatIsGoneStopsNobody) {
    FakeServiceManager fake(abstractName());
    const ServiceManager manager = ServiceManager::fromEnvironment();
    fake.close();
    manager.ready("nobody hears it");
    manager.stopping();
}

TEST_F(ServiceManagerTest, AManagerThatDoesNotReadStopsNobody) {
    FakeServiceManager fake(abstractName());
    const ServiceManager manager = ServiceManager::fromEnvironment();
    const std::size_t others = fake.fill();
    manager.alive();
    EXPECT_EQ(fake.messages().size(), others);
    manager.alive();
    EXPECT_THAT(fake.messages(), ElementsAre("WATCHDOG=1"));
}

}  // namespace

}  // namespace vrx
