#include "host/agent/informs/inform_status.h"

#include <numeric>

namespace vrx {

namespace {

constexpr const char* DROP_TEXTS[INFORM_DROPS] = {
    "queue full", "refused", "given up", "bad OID", "not built", "unreadable", "destination removed", "unsendable"};

}  // namespace

const char* textOf(InformDrop reason) {
    return DROP_TEXTS[static_cast<std::size_t>(reason)];
}

const char* textOf(InformState state) {
    switch (state) {
        case InformState::Answering:
            return "answers";
        case InformState::Silent:
            return "does not answer";
        case InformState::Failing:
            return "sending fails";
        case InformState::Unresolved:
            return "its name has no address yet";
        default:
            return "not used yet";
    }
}

void InformCounters::add(const InformCounters& other) {
    restored += other.restored;
    considered += other.considered;
    filtered += other.filtered;
    repeated += other.repeated;
    sent += other.sent;
    resent += other.resent;
    shortened += other.shortened;
    acknowledged += other.acknowledged;
    waiting += other.waiting;
    for (std::size_t i = 0; i < INFORM_DROPS; ++i) dropped[i] += other.dropped[i];
}

std::string InformCounters::text() const {
    std::string reasons;
    for (std::size_t i = 0; i < INFORM_DROPS; ++i) {
        if (dropped[i] == 0) continue;
        reasons += (reasons.empty() ? " (" : ", ") + std::string(DROP_TEXTS[i]) + " " + std::to_string(dropped[i]);
    }
    if (!reasons.empty()) reasons += ")";
    const std::uint64_t droppedInAll = std::accumulate(dropped.begin(), dropped.end(), std::uint64_t{0});
    return "acknowledged " + std::to_string(acknowledged) + " (" + std::to_string(resent) + " sent again), filtered " +
           std::to_string(filtered) + ", dropped " + std::to_string(droppedInAll) + reasons + ", waiting " +
           std::to_string(waiting);
}

}  // namespace vrx
