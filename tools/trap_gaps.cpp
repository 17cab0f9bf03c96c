#include "tools/trap_gaps.h"

#include <algorithm>
#include <cstdlib>

namespace vrx {

namespace {

constexpr std::int64_t TICKS_PER_SECOND = 100;
constexpr std::int64_t WRAP = std::int64_t{1} << 32;  // of sysUpTime

// Start of the agent by the receiver's clock.
std::int64_t startOf(std::time_t time, std::uint32_t upTime) {
    return static_cast<std::int64_t>(time) * TICKS_PER_SECOND - upTime;
}

// sysUpTime with its wraps, of a notification that came at `time` from a run that began at `start`.
std::int64_t sinceStart(std::time_t time, std::uint32_t upTime, std::int64_t start) {
    const std::int64_t about = static_cast<std::int64_t>(time) * TICKS_PER_SECOND - start - upTime;
    const std::int64_t wraps = (about + (about < 0 ? -WRAP / 2 : WRAP / 2)) / WRAP;
    return upTime + wraps * WRAP;
}

}  // namespace

void TrapGaps::add(const LoggedTrap& trap) {
    const std::string key = m_by == By::Port ? trap.address + " port " + trap.port : trap.address;
    Sender& sender = m_senders[key];
    sender.address = trap.address;
    if (!trap.heartbeat) {
        sender.traps.push_back({trap.upTime, trap.content, trap.time});
        return;
    }
    const LoggedHeartbeat& told = *trap.heartbeat;
    const auto series = m_series.try_emplace({told.engine, told.destination, told.series}).first;
    series->second.try_emplace(
        told.number, Heartbeat{trap.time, trap.upTime, told.boots, told.number, told.traps, told.age, trap.address});
    // A port may be used again, by another destination.
    const Destination destination(told.engine, told.destination);
    std::vector<Destination>& ofSender = sender.destinations;
    if (ofSender.empty() || ofSender.back() != destination) {
        const bool again = std::find(ofSender.begin(), ofSender.end(), destination) != ofSender.end();
        sender.shared = sender.shared || again || (m_by == By::Address && !ofSender.empty());
        if (!again) ofSender.push_back(destination);
    }
    const bool known = std::any_of(sender.runs.begin(), sender.runs.end(), [&](const Run& run) {
        return run.series == &series->first && run.boots == told.boots;
    });
    if (!known) sender.runs.push_back({&series->first, told.boots, startOf(trap.time, trap.upTime)});
}

// The traps of each run, without those that came twice. A port may have had several users one after the other: a trap
// is of the run that began when its own did.
std::map<TrapGaps::RunName, TrapGaps::RunTraps> TrapGaps::assign(GapReport& report) const {
    std::map<RunName, RunTraps> runs;
    std::set<std::string> addresses;
    for (const auto& [name, sender] : m_senders) {
        for (const Run& run : sender.runs) {
            runs.try_emplace({run.series, run.boots}, RunTraps{run.start, {}});
            addresses.insert(sender.address);
        }
        if (sender.shared) report.shared.insert(name);
    }
    for (const auto& [name, sender] : m_senders) {
        if (sender.runs.empty()) {
            if (addresses.count(sender.address) != 0) report.unassigned += sender.traps.size();
            continue;
        }
        for (const Trap& trap : sender.traps) {
            const std::int64_t start = startOf(trap.time, trap.upTime);
            const Run& run = *std::min_element(
                sender.runs.begin(), sender.runs.end(),
                [start](const Run& a, const Run& b) { return std::abs(a.start - start) < std::abs(b.start - start); });
            RunTraps& ofRun = runs.at({run.series, run.boots});
            ofRun.traps.emplace_back(sinceStart(trap.time, trap.upTime, ofRun.start), trap.content);
        }
    }
    for (auto& [name, run] : runs) {
        std::sort(run.traps.begin(), run.traps.end());
        run.traps.erase(std::unique(run.traps.begin(), run.traps.end()), run.traps.end());
    }
    return runs;
}

GapReport TrapGaps::report(std::optional<std::time_t> begin) const {
    GapReport report;
    const std::map<RunName, RunTraps> runs = assign(report);
    if (!report.shared.empty()) return report;
    for (const auto& [name, heartbeats] : m_series) {
        const auto runOf = [&, series = &name](const Heartbeat& heartbeat) -> const RunTraps& {
            return runs.at({series, heartbeat.boots});
        };
        // Traps of the heartbeat's run that are in its count.
        const auto before = [&](const Heartbeat& heartbeat) {
            const RunTraps& run = runOf(heartbeat);
            const std::pair first(sinceStart(heartbeat.time, heartbeat.upTime, run.start), std::uint64_t{0});
            return std::lower_bound(run.traps.begin(), run.traps.end(), first) - run.traps.begin();
        };
        const auto compare = [&, series = &name](std::time_t from, const Heartbeat& to, std::uint32_t sent,
                                                 std::int64_t arrived) {
            report.sent += sent;
            arrived = std::max<std::int64_t>(arrived, 0);  // numbers of a log need not ascend with its times
            if (arrived >= sent) return;
            const std::uint64_t missing = sent - static_cast<std::uint64_t>(arrived);
            report.missing += missing;
            report.gaps.push_back(
                {from, to.time, to.address, std::get<0>(*series), std::get<1>(*series), missing, sent});
        };
        report.heartbeats += heartbeats.size();
        const Heartbeat* last = nullptr;
        for (const auto& [number, heartbeat] : heartbeats) {
            if (last != nullptr) {
                std::int64_t arrived = before(heartbeat) - before(*last);
                if (last->boots != heartbeat.boots) arrived += static_cast<std::int64_t>(runOf(*last).traps.size());
                compare(last->time, heartbeat, heartbeat.traps - last->traps, arrived);
            } else if (number > 1 && begin) {
                // The first one is not there. Its count was 0: if the log was kept by then, that is where to begin.
                constexpr std::time_t ROUNDING = 2;  // seconds, of the age and of both times
                const std::time_t start = heartbeat.time - static_cast<std::time_t>(heartbeat.age);
                if (*begin + ROUNDING <= start) compare(start, heartbeat, heartbeat.traps, before(heartbeat));
            }
            last = &heartbeat;
        }
    }
    std::stable_sort(report.gaps.begin(), report.gaps.end(),
                     [](const TrapGap& a, const TrapGap& b) { return a.to < b.to; });
    return report;
}

}  // namespace vrx
