#include "host/agent/operator/status_model.h"

#include <ctime>

namespace vrx {

namespace {

double secondsOf(LatencyHistogram::Duration duration) {
    return std::chrono::duration<double>(duration).count();
}

}  // namespace

StatusSection joined(StatusSection left, const StatusSection& right) {
    left.fields.insert(left.fields.end(), right.fields.begin(), right.fields.end());
    for (std::size_t i = 0; i < left.rows.size(); ++i) {
        left.rows[i].insert(left.rows[i].end(), right.rows.at(i).begin(), right.rows.at(i).end());
    }
    return left;
}

StatusValue statusOf(std::chrono::system_clock::time_point time) {
    if (time == std::chrono::system_clock::time_point{}) return nullptr;
    const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
    std::tm parts{};
    char text[32];
    if (::gmtime_r(&seconds, &parts) == nullptr || std::strftime(text, sizeof text, "%FT%TZ", &parts) == 0) {
        return nullptr;
    }
    return text;
}

StatusValue statusOf(const LatencyHistogram& histogram) {
    StatusValue buckets = StatusValue::array();
    std::uint64_t upTo = 0;
    for (std::size_t i = 0; i < LatencyHistogram::BUCKETS; ++i) {
        upTo += histogram.inBucket(i);
        buckets.push_back({{"seconds", secondsOf(LatencyHistogram::bound(i))}, {"count", upTo}});
    }
    return {{"count", histogram.count()},
            {"sum_seconds", secondsOf(histogram.sum())},
            {"max_seconds", secondsOf(histogram.max())},
            {"p50_seconds", secondsOf(histogram.quantile(0.5))},
            {"p90_seconds", secondsOf(histogram.quantile(0.9))},
            {"p99_seconds", secondsOf(histogram.quantile(0.99))},
            {"buckets", buckets}};
}

}  // namespace vrx
