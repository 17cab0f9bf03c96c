#include "host/agent/traps/trap_counters.h"

#include <numeric>

namespace vrx {

namespace {

constexpr const char* DROP_TEXTS[TRAP_DROPS] = {"queue full",   "unresolved",          "no community",
                                                "unknown user", "send failed",         "bad OID",
                                                "not built",    "destination removed", "unsendable"};

}  // namespace

const char* textOf(TrapDrop reason) {
    return DROP_TEXTS[static_cast<std::size_t>(reason)];
}

const char* textOf(DestinationState state) {
    switch (state) {
        case DestinationState::Ready:
            return "ready";
        case DestinationState::Unresolved:
            return "its name has no address yet";
        case DestinationState::NoCommunity:
            return "gets nothing: it names no community and trapcommunity is not configured";
        case DestinationState::UnknownUser:
            return "gets nothing: its user is not known to this agent";
        case DestinationState::Failing:
            return "sending fails";
        default:
            return "not used yet";
    }
}

std::uint64_t TrapCounters::droppedInAll() const {
    return std::accumulate(dropped.begin(), dropped.end(), std::uint64_t{0});
}

void TrapCounters::add(const TrapCounters& other) {
    considered += other.considered;
    filtered += other.filtered;
    sent += other.sent;
    paced += other.paced;
    shortened += other.shortened;
    counter64LeftOut += other.counter64LeftOut;
    waiting += other.waiting;
    for (std::size_t i = 0; i < TRAP_DROPS; ++i) dropped[i] += other.dropped[i];
}

std::string TrapCounters::text() const {
    std::string reasons;
    for (std::size_t i = 0; i < TRAP_DROPS; ++i) {
        if (dropped[i] == 0) continue;
        reasons += (reasons.empty() ? " (" : ", ") + std::string(DROP_TEXTS[i]) + " " + std::to_string(dropped[i]);
    }
    if (!reasons.empty()) reasons += ")";
    return "considered " + std::to_string(considered) + ", sent " + std::to_string(sent) + " (" +
           std::to_string(paced) + " paced), filtered " + std::to_string(filtered) + ", dropped " +
           std::to_string(droppedInAll()) + reasons + ", waiting " + std::to_string(waiting);
}

}  // namespace vrx
