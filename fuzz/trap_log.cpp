// The input is a log of snmptrapd as vrxctl gaps reads it: what is found in it is whole, and reports add up. Traps that
// are in it twice change nothing.
#include "tools/trap_log.h"

#include <algorithm>
#include <cstdint>
#include <sstream>
#include <string>
#include <vector>

#include "fuzz/finding.h"
#include "tools/trap_gaps.h"

namespace vrx {

namespace {

bool isLess(const TrapGap& left, const TrapGap& right) {
    return left.to < right.to;
}

bool isSame(const GapReport& left, const GapReport& right) {
    return left.heartbeats == right.heartbeats && left.sent == right.sent && left.missing == right.missing &&
           left.gaps.size() == right.gaps.size() && left.shared == right.shared;
}

GapReport reportOf(const std::vector<LoggedTrap>& traps, TrapGaps::By by, std::optional<std::time_t> begin,
                   unsigned int times) {
    TrapGaps gaps(by);
    for (const LoggedTrap& trap : traps) {
        for (unsigned int time = 0; time < times; ++time) gaps.add(trap);
    }
    return gaps.report(begin);
}

void check(const GapReport& report) {
    std::uint64_t missing = 0;
    for (const TrapGap& gap : report.gaps) {
        require(gap.missing > 0 && gap.missing <= gap.sent, "a gap of none, or of more than were sent");
        missing += gap.missing;
    }
    require(missing == report.missing, "the gaps do not add up");
    require(report.missing <= report.sent, "more are missing than were sent");
    require(std::is_sorted(report.gaps.begin(), report.gaps.end(), isLess), "gaps are not in the order of their ends");
    require(report.shared.empty() || (report.gaps.empty() && report.sent == 0),
            "destinations are compared that cannot be");
}

}  // namespace

}  // namespace vrx

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace vrx;
    std::vector<LoggedTrap> traps;
    TrapLogReader reader([&traps](const LoggedTrap& trap) { traps.push_back(trap); });
    std::istringstream log(std::string(reinterpret_cast<const char*>(data), size));
    require(reader.read(log), "a log in memory cannot be read");
    require(traps.empty() || reader.begin(), "there are traps, and no time");
    for (const LoggedTrap& trap : traps) {
        require(trap.time >= *reader.begin(), "a trap is older than the log");
        require(!trap.heartbeat || trap.heartbeat->number > 0, "a heartbeat without a number");
    }
    for (const TrapGaps::By by : {TrapGaps::By::Port, TrapGaps::By::Address}) {
        const GapReport once = reportOf(traps, by, reader.begin(), 1);
        check(once);
        require(isSame(once, reportOf(traps, by, reader.begin(), 2)), "doubles change the report");
    }
    return 0;
}
