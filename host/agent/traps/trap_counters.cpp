#include "host/agent/traps/trap_counters.h"

namespace vrx {

const char* textOf(TrapDrop reason) {
    return TRAP_DROP_REASONS[static_cast<std::size_t>(reason)].text;
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

void TrapCounters::add(const TrapCounters& other) {
    DeliveryCounters::add(other);
    paced += other.paced;
    counter64LeftOut += other.counter64LeftOut;
}

std::string TrapCounters::text() const {
    return "considered " + std::to_string(considered) + ", sent " + std::to_string(sent) + " (" +
           std::to_string(paced) + " paced), " + outcomeText(TRAP_DROP_REASONS);
}

}  // namespace vrx
