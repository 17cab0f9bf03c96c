#include "host/agent/traps/trap_pacing.h"

#include <gtest/gtest.h>

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

const TrapPacing::Clock::time_point START{};

int takeAll(TrapPacing& pacing, TrapPacing::Clock::time_point now) {
    int taken = 0;
    while (pacing.take(now)) ++taken;
    return taken;
}

}  // namespace

TEST(TrapPacing, LetsTheBurstThroughAtOnce) {
    TrapPacing pacing(1000, 200, START);
    EXPECT_EQ(takeAll(pacing, START), 200);
}

TEST(TrapPacing, RefillsAtItsRate) {
    TrapPacing pacing(1000, 200, START);
    takeAll(pacing, START);
    EXPECT_EQ(takeAll(pacing, START + milliseconds(50)), 50);
    EXPECT_EQ(takeAll(pacing, START + milliseconds(150)), 100);
}

TEST(TrapPacing, NeverHoldsMoreThanTheBurst) {
    TrapPacing pacing(1000, 200, START);
    takeAll(pacing, START);
    EXPECT_EQ(takeAll(pacing, START + seconds(3600)), 200);
}

TEST(TrapPacing, ManyShortPausesGiveAsMuchAsALongOne) {
    TrapPacing pacing(1000, 10, START);
    takeAll(pacing, START);
    int taken = 0;
    for (int i = 1; i <= 10000; ++i) taken += takeAll(pacing, START + std::chrono::microseconds(100 * i));
    EXPECT_NEAR(taken, 1000, 1);
}

TEST(TrapPacing, TellsWhenTheNextTokenIsThere) {
    TrapPacing pacing(10, 1, START);
    EXPECT_EQ(pacing.nextToken(START), START);
    ASSERT_TRUE(pacing.take(START));
    const auto next = pacing.nextToken(START);
    EXPECT_FALSE(pacing.take(next - milliseconds(1)));
    EXPECT_TRUE(pacing.take(next));
}

TEST(TrapPacing, AClockThatStandsStillGivesNothing) {
    TrapPacing pacing(1000, 1, START);
    EXPECT_TRUE(pacing.take(START));
    EXPECT_FALSE(pacing.take(START));
    EXPECT_FALSE(pacing.take(START - seconds(5)));
}
