#include "host/base/line_budget.h"

#include <gtest/gtest.h>

using std::chrono::seconds;

TEST(LineBudgetTest, LinesUpToTheBudgetAreWritten) {
    LineBudget budget(2, seconds(60));
    const LineBudget::TimePoint now{seconds(1000)};
    EXPECT_EQ(budget.take(now), 0U);
    EXPECT_EQ(budget.take(now), 0U);
    EXPECT_EQ(budget.take(now), std::nullopt);
    EXPECT_EQ(budget.take(now + seconds(59)), std::nullopt);
}

TEST(LineBudgetTest, TheNextPeriodTellsHowManyWereLeftOut) {
    LineBudget budget(1, seconds(60));
    const LineBudget::TimePoint now{seconds(1000)};
    EXPECT_EQ(budget.take(now), 0U);
    for (int i = 0; i < 5; ++i) EXPECT_EQ(budget.take(now + seconds(i)), std::nullopt);
    EXPECT_EQ(budget.take(now + seconds(60)), 5U);
    EXPECT_EQ(budget.take(now + seconds(61)), std::nullopt);
    EXPECT_EQ(budget.take(now + seconds(600)), 1U);
}
