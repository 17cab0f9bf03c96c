#include "host/base/latency_histogram.h"

#include <algorithm>
#include <cmath>

namespace vrx {

namespace {

std::size_t bitsOf(std::uint64_t number) {
    return number == 0 ? 0 : 64U - static_cast<std::size_t>(__builtin_clzll(number));
}

}  // namespace

void LatencyHistogram::add(Duration taken) {
    taken = std::max(taken, Duration(0));
    const auto nanoseconds = static_cast<std::uint64_t>(taken.count());
    const std::uint64_t above = nanoseconds == 0 ? 0 : (nanoseconds - 1) >> FIRST_BITS;  // a bound is in its bucket
    ++m_buckets[std::min(bitsOf(above), BUCKETS)];
    ++m_count;
    m_sum += taken;
    m_max = std::max(m_max, taken);
}

LatencyHistogram::Duration LatencyHistogram::quantile(double share) const {
    const auto wanted = static_cast<std::uint64_t>(std::ceil(share * static_cast<double>(m_count)));
    std::uint64_t seen = 0;
    for (std::size_t bucket = 0; bucket < BUCKETS; ++bucket) {
        seen += m_buckets[bucket];
        if (seen >= wanted) return std::min(bound(bucket), m_max);
    }
    return m_max;
}

}  // namespace vrx
