// How long things took: a count in each of a fixed row of buckets, whose bounds double from 16 microseconds to 8.6
// seconds, with sum and maximum. Adding takes a few nanoseconds and no memory.
//
// Threads: one at a time.
#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>

namespace vrx {

class LatencyHistogram {
public:
    using Duration = std::chrono::nanoseconds;

    static constexpr std::size_t BUCKETS = 20;  // bounded ones; one for all that took longer is after them

    // The longest time of a bucket, itself included.
    static constexpr Duration bound(std::size_t bucket) { return Duration(std::int64_t{1} << (FIRST_BITS + bucket)); }

    void add(Duration taken);

    std::uint64_t count() const { return m_count; }
    Duration sum() const { return m_sum; }
    Duration max() const { return m_max; }

    // Of the bucket alone; `BUCKETS` is that of the longest times.
    std::uint64_t inBucket(std::size_t bucket) const { return m_buckets.at(bucket); }

    // What the given share of all (0 to 1) took at most, as exactly as the buckets tell: the bound of its bucket, and
    // the maximum where that is less. 0 when nothing was added.
    Duration quantile(double share) const;

private:
    static constexpr unsigned int FIRST_BITS = 14;  // 2^14 nanoseconds: no division on the way

    std::array<std::uint64_t, BUCKETS + 1> m_buckets{};
    std::uint64_t m_count = 0;
    Duration m_sum{0};
    Duration m_max{0};
};

}  // namespace vrx
