// What a receiver has missed: the counts of heartbeats against the traps in its log.
//
//     TrapGaps gaps(TrapGaps::By::Port);
//     gaps.add(trap);                              // each of the log, in its order
//     const GapReport report = gaps.report(begin);  // of the log
//
// docs/decisions/2026-11-22-heartbeat-traps.md tells what makes the result exact.
#pragma once

#include <cstdint>
#include <ctime>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "tools/trap_log.h"

namespace vrx {

// Between two heartbeats that arrived.
struct TrapGap {
    std::time_t from = 0;
    std::time_t to = 0;
    std::string address;  // of the sender, at the end
    std::string engine;
    std::uint32_t destination = 0;
    std::uint64_t missing = 0;
    std::uint64_t sent = 0;
};

struct GapReport {
    std::vector<TrapGap> gaps;  // by their ends
    std::uint64_t heartbeats = 0;
    std::uint64_t sent = 0;  // in all intervals, as the heartbeats count
    std::uint64_t missing = 0;
    std::uint64_t unassigned = 0;  // traps from an address of heartbeats, but from another port

    // Senders that several destinations have in common, so that their traps cannot be told apart: nothing is compared.
    std::set<std::string> shared;
};

class TrapGaps {
public:
    enum class By { Port, Address };

    explicit TrapGaps(By by) : m_by(by) {}

    void add(const LoggedTrap& trap);

    // `begin`: the earliest time of the log.
    GapReport report(std::optional<std::time_t> begin) const;

private:
    using SeriesName = std::tuple<std::string, std::uint32_t, std::string>;  // engine, destination, series
    struct Heartbeat {
        std::time_t time;
        std::uint32_t upTime;
        std::uint32_t boots;
        std::uint32_t number;
        std::uint32_t traps;
        std::uint32_t age;
        std::string address;
    };
    struct Trap {
        std::uint32_t upTime;
        std::uint64_t content;
        std::time_t time;
    };
    // One run of the agent in a series, as one sender saw the receiver.
    struct Run {
        const SeriesName* series;
        std::uint32_t boots;
        std::int64_t start;  // of the agent, in hundredths of a second of the receiver's clock
    };
    using Destination = std::pair<std::string, std::uint32_t>;  // engine, number
    struct Sender {
        std::string address;
        std::vector<Destination> destinations;  // one after the other
        bool shared = false;
        std::vector<Run> runs;
        std::vector<Trap> traps;
    };
    using RunName = std::pair<const SeriesName*, std::uint32_t>;  // with boots
    struct RunTraps {
        std::int64_t start = 0;  // as above
        // When each was sent, as sysUpTime without wraps, and its content; ascending, each once.
        std::vector<std::pair<std::int64_t, std::uint64_t>> traps;
    };

    std::map<RunName, RunTraps> assign(GapReport& report) const;

    const By m_by;
    std::map<SeriesName, std::map<std::uint32_t, Heartbeat>> m_series;  // by number
    std::map<std::string, Sender> m_senders;
};

}  // namespace vrx
