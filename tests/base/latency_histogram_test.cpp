#include "host/base/latency_histogram.h"

#include <gtest/gtest.h>

namespace vrx {

namespace {

using std::chrono::hours;
using std::chrono::microseconds;
using std::chrono::milliseconds;
using std::chrono::nanoseconds;

TEST(LatencyHistogram, NothingAddedIsNothing) {
    const LatencyHistogram histogram;
    EXPECT_EQ(histogram.count(), 0U);
    EXPECT_EQ(histogram.sum(), nanoseconds(0));
    EXPECT_EQ(histogram.max(), nanoseconds(0));
    EXPECT_EQ(histogram.quantile(0.99), nanoseconds(0));
}

TEST(LatencyHistogram, BoundsDoubleAndBelongToTheirBuckets) {
    for (std::size_t bucket = 0; bucket < LatencyHistogram::BUCKETS; ++bucket) {
        LatencyHistogram histogram;
        const nanoseconds bound = LatencyHistogram::bound(bucket);
        EXPECT_EQ(bound, nanoseconds(16384) * (1L << bucket));
        histogram.add(bound);
        EXPECT_EQ(histogram.inBucket(bucket), 1U);
        histogram.add(bound + nanoseconds(1));
        EXPECT_EQ(histogram.inBucket(bucket + 1), 1U);
    }
}

TEST(LatencyHistogram, WhatTakesLongerThanAllBoundsIsCountedAfterThem) {
    LatencyHistogram histogram;
    histogram.add(hours(24 * 365));
    EXPECT_EQ(histogram.inBucket(LatencyHistogram::BUCKETS), 1U);
    EXPECT_EQ(histogram.quantile(0.5), nanoseconds(hours(24 * 365)));
}

TEST(LatencyHistogram, AClockThatGoesBackCountsAsNoTime) {
    LatencyHistogram histogram;
    histogram.add(milliseconds(-5));
    histogram.add(nanoseconds(0));
    EXPECT_EQ(histogram.inBucket(0), 2U);
    EXPECT_EQ(histogram.sum(), nanoseconds(0));
}

TEST(LatencyHistogram, SumMaximumAndQuantiles) {
    LatencyHistogram histogram;
    for (int i = 0; i < 98; ++i) histogram.add(microseconds(10));
    histogram.add(microseconds(100));
    histogram.add(milliseconds(3));
    EXPECT_EQ(histogram.count(), 100U);
    EXPECT_EQ(histogram.sum(), microseconds(98 * 10 + 100 + 3000));
    EXPECT_EQ(histogram.max(), milliseconds(3));
    EXPECT_EQ(histogram.quantile(0.5), LatencyHistogram::bound(0));
    EXPECT_EQ(histogram.quantile(0.98), LatencyHistogram::bound(0));
    EXPECT_EQ(histogram.quantile(0.99), LatencyHistogram::bound(3));
    EXPECT_EQ(histogram.quantile(1), milliseconds(3));  // not the bound of its bucket, which nothing took
}

}  // namespace

}  // namespace vrx
