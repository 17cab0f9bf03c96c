#include "module/vrx_debug_kit_guard.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <thread>
#include <type_traits>
#include <vector>

#include "tests/fake_host/fake_host.h"

namespace {

using testing::ElementsAre;

constexpr int MODULE = 4;

TEST(DebugKitGuard, ScopeWritesEnterAndLeaveLines) {
    FakeHost host;
    { CVRXDebugKitGuard guard(MODULE, "f"); }
    EXPECT_THAT(host.log().lines(), ElementsAre("trace enter f...", "trace leave f: OK"));
}

TEST(DebugKitGuard, IsOneScopesAndHasNoVirtualOperations) {
    EXPECT_FALSE(std::is_polymorphic_v<CVRXDebugKitGuard>);
    EXPECT_FALSE(std::is_copy_constructible_v<CVRXDebugKitGuard>);
    EXPECT_FALSE(std::is_copy_assignable_v<CVRXDebugKitGuard>);
}

TEST(DebugKitGuard, EnterLineIsWrittenAtOnce) {
    FakeHost host;
    CVRXDebugKitGuard guard(MODULE, "int CThing::work(u_int)");
    EXPECT_THAT(host.log().lines(), ElementsAre("trace enter int CThing::work(u_int)..."));
}

TEST(DebugKitGuard, FailedScopeLeavesWithNok) {
    FakeHost host;
    {
        CVRXDebugKitGuard guard(MODULE, "f");
        guard.setResult(false);
    }
    EXPECT_THAT(host.log().lines(), ElementsAre("trace enter f...", "trace leave f: NOK"));
}

TEST(DebugKitGuard, LastResultOfTheScopeCounts) {
    FakeHost host;
    {
        CVRXDebugKitGuard guard(MODULE, "f");
        guard.setResult(false);
        guard.setResult(true);
    }
    EXPECT_EQ(host.log().lines().back(), "trace leave f: OK");
}

TEST(DebugKitGuard, ScopeLeftByAnExceptionStillWritesItsLeaveLine) {
    FakeHost host;
    try {
        CVRXDebugKitGuard guard(MODULE, "f");
        throw std::runtime_error("out");
    } catch (const std::runtime_error&) {
    }
    EXPECT_THAT(host.log().lines(), ElementsAre("trace enter f...", "trace leave f: OK"));
}

TEST(DebugKitGuard, NestedScopesLeaveInReverseOrder) {
    FakeHost host;
    {
        CVRXDebugKitGuard outer(MODULE, "outer");
        CVRXDebugKitGuard inner(MODULE, "inner");
        inner.setResult(false);
    }
    EXPECT_THAT(host.log().lines(), ElementsAre("trace enter outer...", "trace enter inner...",
                                                "trace leave inner: NOK", "trace leave outer: OK"));
}

TEST(DebugKitGuard, ScopeWritesNoTraceLineThatGoesNowhere) {
    FakeHost host;
    host.log().refuse({"trace"});
    {
        CVRXDebugKitGuard guard(MODULE, "f");
        CVRXDebugKitGuard other(MODULE, std::string("g"));
        guard.warn(1, "f", 1, "look");
    }
    EXPECT_THAT(host.log().lines(), ElementsAre("warn 0x1 look"));
}

TEST(DebugKitGuard, ScopeDuringWhichTraceLinesAreTurnedOnWritesItsLeaveLine) {
    FakeHost host;
    host.log().refuse({"trace"});
    {
        CVRXDebugKitGuard guard(MODULE, "f");
        std::string name = "a name that does not outlive the call";
        CVRXDebugKitGuard other(MODULE, name);
        name.assign(name.size(), '-');
        host.log().refuse({});
    }
    EXPECT_THAT(host.log().lines(),
                ElementsAre("trace leave a name that does not outlive the call: OK", "trace leave f: OK"));
}

TEST(DebugKitGuard, KeepsTheNameThatACallersArrayHadWhenTheScopeOpened) {
    FakeHost host;
    {
        char name[] = "first";
        CVRXDebugKitGuard guard(MODULE, name);
        name[0] = '-';
        char other[] = "second";
        const char(&seenAsConstant)[sizeof other] = other;
        CVRXDebugKitGuard otherGuard(MODULE, seenAsConstant);
        other[0] = '-';
    }
    EXPECT_THAT(host.log().lines(), ElementsAre("trace enter first...", "trace enter second...",
                                                "trace leave second: OK", "trace leave first: OK"));
}

TEST(DebugKitGuard, NothingButALiteralIsTakenWithoutACopy) {
    EXPECT_FALSE((std::is_constructible_v<CVRXScopeName, const char*>));
    EXPECT_FALSE((std::is_constructible_v<CVRXScopeName, const char(&)[2]>));
    EXPECT_FALSE((std::is_constructible_v<CVRXScopeName, std::string_view>));
    EXPECT_FALSE((std::is_constructible_v<CVRXScopeName, std::string>));
    FakeHost host;
    { CVRXDebugKitGuard guard(MODULE, "int f(u_int)"_scope); }
    EXPECT_THAT(host.log().lines(), ElementsAre("trace enter int f(u_int)...", "trace leave int f(u_int): OK"));
}

TEST(DebugKitGuard, TellsWhetherTraceLinesGoAnywhere) {
    FakeHost host;
    const CVRXDebugKitGuard guard(MODULE, "f");
    EXPECT_TRUE(guard.takesTrace());
    host.log().refuse({"trace"});
    EXPECT_FALSE(guard.takesTrace());
}

TEST(DebugKitGuard, TellsWhetherWarningsGoAnywhere) {
    FakeHost host;
    const CVRXDebugKitGuard guard(MODULE, "f");
    EXPECT_TRUE(guard.takesWarnings());
    host.log().refuse({"warn"});
    EXPECT_FALSE(guard.takesWarnings());
}

TEST(DebugKitGuard, NameIsNoFormat) {
    FakeHost host;
    { CVRXDebugKitGuard guard(MODULE, "%s%n"); }
    EXPECT_THAT(host.log().lines(), ElementsAre("trace enter %s%n...", "trace leave %s%n: OK"));
}

TEST(DebugKitGuard, LinesCarryCodeFunctionLineAndFormattedText) {
    FakeHost host;
    CVRXDebugKitGuard guard(MODULE, "f");
    host.log().clear();
    guard.debug(0xFFFF, "first", 10, "%u of %s", 7u, "ten");
    guard.warn(0x1002E, "second", 20, "plain");
    guard.error(0xFEDCBA9876543210ULL, "third", 4294967295u, "%llu %d", 18446744073709551615ULL, -1);
    EXPECT_THAT(host.log().lines(), ElementsAre("debug 0xFFFF 7 of ten", "warn 0x1002E plain",
                                                "error 0xFEDCBA9876543210 18446744073709551615 -1"));
    const std::vector<FakeLogLine> lines = host.log().entries();
    EXPECT_EQ(lines[0].function, "first");
    EXPECT_EQ(lines[0].line, 10u);
    EXPECT_EQ(lines[1].function, "second");
    EXPECT_EQ(lines[1].line, 20u);
    EXPECT_EQ(lines[2].function, "third");
    EXPECT_EQ(lines[2].line, 4294967295u);
}

TEST(DebugKitGuard, LinesGoToTheLoggerOfTheModuleGiven) {
    FakeHost host;
    host.log().takeAnyModule();
    CVRXDebugKitGuard four(4, "f");
    CVRXDebugKitGuard nine(9, "g");
    four.warn(1, "f", 1, "four");
    nine.warn(1, "g", 1, "nine");
    std::vector<unsigned int> modules;
    for (const FakeLogLine& line : host.log().entries()) modules.push_back(line.module);
    EXPECT_THAT(modules, ElementsAre(4u, 9u, 4u, 9u));
}

TEST(DebugKitGuard, GuardsOfManyThreadsLoseNoLine) {
    FakeHost host;
    constexpr int THREADS = 4;
    constexpr int ROUNDS = 250;
    std::vector<std::thread> threads;
    threads.reserve(THREADS);
    for (int i = 0; i < THREADS; ++i) {
        threads.emplace_back([i] {
            for (int round = 0; round < ROUNDS; ++round) {
                CVRXDebugKitGuard guard(MODULE, "t" + std::to_string(i));
                guard.debug(1, "t", 1, "%d", round);
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(host.log().lines("trace").size(), 2u * THREADS * ROUNDS);
    EXPECT_EQ(host.log().lines("debug").size(), 1u * THREADS * ROUNDS);
}

}  // namespace
