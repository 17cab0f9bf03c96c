#include "host/base/log_rate_limiter.h"

#include <gtest/gtest.h>

namespace vrx {

using std::chrono::seconds;

TEST(LogRateLimiterTest, LinesUpToTheBudgetAreWritten) {
    LogRateLimiter limiter(2, seconds(60));
    const LogRateLimiter::TimePoint now{seconds(1000)};
    EXPECT_EQ(limiter.take(now), 0U);
    EXPECT_EQ(limiter.take(now), 0U);
    EXPECT_EQ(limiter.take(now), std::nullopt);
    EXPECT_EQ(limiter.take(now + seconds(59)), std::nullopt);
}

TEST(LogRateLimiterTest, TheNextPeriodTellsHowManyWereLeftOut) {
    LogRateLimiter limiter(1, seconds(60));
    const LogRateLimiter::TimePoint now{seconds(1000)};
    EXPECT_EQ(limiter.take(now), 0U);
    for (int i = 0; i < 5; ++i) EXPECT_EQ(limiter.take(now + seconds(i)), std::nullopt);
    EXPECT_EQ(limiter.take(now + seconds(60)), 5U);
    EXPECT_EQ(limiter.take(now + seconds(61)), std::nullopt);
    EXPECT_EQ(limiter.take(now + seconds(600)), 1U);
}

}  // namespace vrx
