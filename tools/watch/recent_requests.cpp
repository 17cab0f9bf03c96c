#include "tools/watch/recent_requests.h"

#include <fmt/format.h>

#include <cmath>
#include <cstdint>

namespace vrx {

namespace {

constexpr std::chrono::seconds RECENT{60};

// The count of all up to each bound.
std::uint64_t countOf(const StatusJson& latency, std::size_t bucket) {
    return latency.at("buckets").at(bucket).at("count").get<std::uint64_t>();
}

std::string withinText(double seconds) {
    constexpr double THOUSAND = 1000;
    return seconds < 1 ? fmt::format("{:.2g} ms", seconds * THOUSAND) : fmt::format("{:.2g} s", seconds);
}

// "GET 720, 99 % within 0.26 ms"; "" when there were none.
std::string textOf(const StatusJson& now, const StatusJson& before) {
    const StatusJson& latency = now.at("latency");
    const StatusJson& former = before.at("latency");
    const std::uint64_t count = latency.at("count").get<std::uint64_t>() - former.at("count").get<std::uint64_t>();
    if (count == 0) return "";
    constexpr double SHARE = 0.99;
    const auto most = static_cast<std::uint64_t>(std::ceil(SHARE * static_cast<double>(count)));
    std::string within = ", some longer than 8.6 s";
    for (std::size_t i = 0; i < latency.at("buckets").size(); ++i) {
        if (countOf(latency, i) - countOf(former, i) < most) continue;
        within = ", 99 % within " + withinText(latency.at("buckets").at(i).at("seconds").get<double>());
        break;
    }
    return fmt::format("{} {}{}", statusText(now.at("kind")), count, within);
}

}  // namespace

void RecentRequests::add(Time at, const StatusJson& status) {
    StatusJson agent = statusField(status, "/agent/pid");
    if (agent != m_agent) m_statuses.clear();
    m_agent = std::move(agent);
    m_statuses.emplace_back(at, statusField(status, "/requests"));
    while (m_statuses.size() > 2 && at - m_statuses.at(1).first >= RECENT) m_statuses.pop_front();
}

std::string RecentRequests::text() const {
    std::string text;
    if (!m_statuses.empty()) {
        const StatusJson& now = m_statuses.back().second;
        const StatusJson& before = m_statuses.front().second;
        for (std::size_t i = 0; i < now.size() && i < before.size(); ++i) {
            const std::string kind = textOf(now.at(i), before.at(i));
            if (!kind.empty()) text += (text.empty() ? "" : "; ") + kind;
        }
    }
    return "last minute: " + (text.empty() ? "none" : text);
}

}  // namespace vrx
