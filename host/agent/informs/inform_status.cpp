#include "host/agent/informs/inform_status.h"

namespace vrx {

const char* textOf(InformDrop reason) {
    return INFORM_DROP_REASONS[static_cast<std::size_t>(reason)].text;
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
    DeliveryCounters::add(other);
    restored += other.restored;
    repeated += other.repeated;
    resent += other.resent;
    acknowledged += other.acknowledged;
}

std::string InformCounters::text() const {
    return "acknowledged " + std::to_string(acknowledged) + " (" + std::to_string(resent) + " sent again), " +
           outcomeText(INFORM_DROP_REASONS);
}

}  // namespace vrx
