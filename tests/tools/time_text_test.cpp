#include "tools/time_text.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <limits>

namespace vrx {

namespace {

using std::chrono::milliseconds;
using std::chrono::system_clock;

class TimeText : public testing::Test {
protected:
    void SetUp() override {
        ::setenv("TZ", "UTC-1", 1);
        ::tzset();
    }
    void TearDown() override {
        ::unsetenv("TZ");
        ::tzset();
    }
};

}  // namespace

TEST_F(TimeText, SecondsAndMilliseconds) {
    EXPECT_EQ(localTime(1'700'000'000), "2023-11-14 23:13:20");
    EXPECT_EQ(utcTime(1'700'000'000), "2023-11-14T22:13:20Z");
    const system_clock::time_point time{milliseconds(1'700'000'000'007)};
    EXPECT_EQ(localTime(time), "2023-11-14 23:13:20.007");
    EXPECT_EQ(utcTime(time), "2023-11-14T22:13:20.007Z");
}

TEST_F(TimeText, BeforeTheEpoch) {
    EXPECT_EQ(utcTime(std::time_t{-1}), "1969-12-31T23:59:59Z");
    EXPECT_EQ(utcTime(system_clock::time_point(milliseconds(-1))), "1969-12-31T23:59:59.999Z");
}

// The backend's times are any 64 bits.
TEST_F(TimeText, WhatHasNoDateIsItsNumber) {
    EXPECT_EQ(localTime(std::numeric_limits<std::time_t>::max()), "@9223372036854775807");
    EXPECT_EQ(localTime(std::numeric_limits<std::time_t>::min()), "@-9223372036854775808");
}

}  // namespace vrx
