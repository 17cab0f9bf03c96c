#include "host/base/backoff.h"

#include <gtest/gtest.h>

#include <vector>

namespace vrx {

namespace {

using std::chrono::milliseconds;

const Backoff::Clock::time_point BEGIN = Backoff::Clock::now();

}  // namespace

TEST(Backoff, TheFirstAttemptIsFree) {
    const Backoff backoff;
    EXPECT_TRUE(backoff.mayTry(BEGIN));
}

TEST(Backoff, PausesDoubleFrom50MillisecondsToASecond) {
    Backoff backoff;
    Backoff::Clock::time_point now = BEGIN;
    std::vector<long> pauses;
    for (int attempt = 0; attempt < 7; ++attempt) {
        backoff.failed(now);
        pauses.push_back(std::chrono::duration_cast<milliseconds>(backoff.nextTry() - now).count());
        now = backoff.nextTry();
    }
    EXPECT_EQ(pauses, (std::vector<long>{50, 100, 200, 400, 800, 1000, 1000}));
}

TEST(Backoff, NoAttemptBeforeThePauseIsOver) {
    Backoff backoff;
    backoff.failed(BEGIN);
    EXPECT_FALSE(backoff.mayTry(BEGIN + milliseconds(49)));
    EXPECT_TRUE(backoff.mayTry(BEGIN + milliseconds(50)));
}

TEST(Backoff, FailuresOfAttemptsThatBeganTogetherCountOnce) {
    Backoff backoff;
    backoff.failed(BEGIN);
    backoff.failed(BEGIN + milliseconds(1));
    EXPECT_EQ(backoff.nextTry(), BEGIN + milliseconds(50));
}

TEST(Backoff, ASuccessStartsAnew) {
    Backoff backoff;
    backoff.failed(BEGIN);
    backoff.succeeded();
    EXPECT_TRUE(backoff.mayTry(BEGIN));
    backoff.failed(BEGIN);
    EXPECT_EQ(backoff.nextTry(), BEGIN + milliseconds(50));
}

}  // namespace vrx
