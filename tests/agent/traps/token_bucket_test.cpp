#include "host/agent/traps/token_bucket.h"

#include <gtest/gtest.h>

namespace vrx {

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

const TokenBucket::Clock::time_point START{};

int takeAll(TokenBucket& tokens, TokenBucket::Clock::time_point now) {
    int taken = 0;
    while (tokens.take(now)) ++taken;
    return taken;
}

}  // namespace

TEST(TokenBucket, LetsTheBurstThroughAtOnce) {
    TokenBucket tokens(1000, 200, START);
    EXPECT_EQ(takeAll(tokens, START), 200);
}

TEST(TokenBucket, RefillsAtItsRate) {
    TokenBucket tokens(1000, 200, START);
    takeAll(tokens, START);
    EXPECT_EQ(takeAll(tokens, START + milliseconds(50)), 50);
    EXPECT_EQ(takeAll(tokens, START + milliseconds(150)), 100);
}

TEST(TokenBucket, NeverHoldsMoreThanTheBurst) {
    TokenBucket tokens(1000, 200, START);
    takeAll(tokens, START);
    EXPECT_EQ(takeAll(tokens, START + seconds(3600)), 200);
}

TEST(TokenBucket, ManyShortPausesGiveAsMuchAsALongOne) {
    TokenBucket tokens(1000, 10, START);
    takeAll(tokens, START);
    int taken = 0;
    for (int i = 1; i <= 10000; ++i) taken += takeAll(tokens, START + std::chrono::microseconds(100 * i));
    EXPECT_NEAR(taken, 1000, 1);
}

TEST(TokenBucket, TellsWhenTheNextTokenIsThere) {
    TokenBucket tokens(10, 1, START);
    EXPECT_EQ(tokens.nextToken(START), START);
    ASSERT_TRUE(tokens.take(START));
    const auto next = tokens.nextToken(START);
    EXPECT_FALSE(tokens.take(next - milliseconds(1)));
    EXPECT_TRUE(tokens.take(next));
}

TEST(TokenBucket, AClockThatStandsStillGivesNothing) {
    TokenBucket tokens(1000, 1, START);
    EXPECT_TRUE(tokens.take(START));
    EXPECT_FALSE(tokens.take(START));
    EXPECT_FALSE(tokens.take(START - seconds(5)));
}

}  // namespace vrx
