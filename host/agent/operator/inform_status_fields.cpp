#include "host/agent/operator/inform_status_fields.h"

#include <vector>

namespace vrx {

namespace {

using Kind = StatusKind;
using Value = StatusValue;
using Destination = InformDestinationStatus;

Value failureText(const Destination& destination) {
    return destination.lastFailure ? destination.lastFailure->text : "";
}

Value failureTime(const Destination& destination) {
    return destination.lastFailure ? statusOf(destination.lastFailure->when) : Value();
}

Value dropsOf(const InformCounters& counters) {
    Value dropped = Value::object();
    for (std::size_t i = 0; i < INFORM_DROPS; ++i) dropped[textOf(static_cast<InformDrop>(i))] = counters.dropped[i];
    return dropped;
}

// clang-format off
const StatusItem<Destination> INFORM_DESTINATIONS[] = {
    {{"destination", Kind::Label, "destination"}, [](const Destination& d) -> Value { return d.name; }},
    {{"address"}, [](const Destination& d) -> Value { return d.address; }},
    {{"port"}, [](const Destination& d) -> Value { return d.port; }},
    {{"version"}, [](const Destination& d) -> Value { return d.version; }},
    {{"trap_type"}, [](const Destination& d) -> Value { return d.trapType; }},
    {{"resolved_address"}, [](const Destination& d) -> Value { return d.resolvedAddress; }},
    {{"engine"}, [](const Destination& d) -> Value { return d.engine; }},
    {{"state"}, [](const Destination& d) -> Value { return textOf(d.state); }},
    {{"last_failure"}, failureText},
    {{"last_failure_at"}, failureTime},
    {{"answers", Kind::Gauge, "vrx_inform_receiver_answers", "1 while the receiver acknowledges informs."},
     [](const Destination& d) -> Value { return d.state == InformState::Answering; }},
};

// Of receivers that are gone, added up.
const StatusItem<InformCounters> FORMER_INFORMS[] = {
    {{"", Kind::Label, "destination"}, [](const InformCounters&) -> Value { return "former"; }},
};

const StatusItem<InformCounters> COUNTERS[] = {
    {{"restored", Kind::Counter, "vrx_informs_restored_total", "Informs that the previous run left on disk."},
     [](const InformCounters& c) -> Value { return c.restored; }},
    {{"considered", Kind::Counter, "vrx_informs_considered_total", "Notifications considered, one for each event and handler."},
     [](const InformCounters& c) -> Value { return c.considered; }},
    {{"filtered", Kind::Counter, "vrx_informs_filtered_total", "Traps that are not of the receiver's type."},
     [](const InformCounters& c) -> Value { return c.filtered; }},
    {{"repeated", Kind::Counter, "vrx_informs_repeated_total", "Informs of repeated events, already queued."},
     [](const InformCounters& c) -> Value { return c.repeated; }},
    {{"waiting", Kind::Gauge, "vrx_informs_waiting", "Informs that wait for their acknowledgement."},
     [](const InformCounters& c) -> Value { return c.waiting; }},
    {{"sent", Kind::Counter, "vrx_informs_sent_total", "Informs sent, each counted once."},
     [](const InformCounters& c) -> Value { return c.sent; }},
    {{"resent", Kind::Counter, "vrx_informs_resent_total", "Repetitions of informs."},
     [](const InformCounters& c) -> Value { return c.resent; }},
    {{"shortened", Kind::Counter, "vrx_informs_shortened_total", "Informs whose texts were shortened to fit into a message."},
     [](const InformCounters& c) -> Value { return c.shortened; }},
    {{"acknowledged", Kind::Counter, "vrx_informs_acknowledged_total", "Informs that were acknowledged."},
     [](const InformCounters& c) -> Value { return c.acknowledged; }},
    {{"dropped", Kind::Counter, "vrx_informs_dropped_total", "Informs that were dropped, by reason.", "reason"}, dropsOf},
};
// clang-format on

}  // namespace

StatusSection informsStatus(const InformStatus& informs) {
    std::vector<InformCounters> counters;
    for (const Destination& destination : informs.destinations) counters.push_back(destination.counters);
    return joined(statusSection("informs", INFORM_DESTINATIONS, informs.destinations),
                  statusSection("", COUNTERS, counters));
}

StatusSection formerInformsStatus(const InformStatus& informs) {
    return joined(statusSection("former_informs", FORMER_INFORMS, informs.former),
                  statusSection("", COUNTERS, informs.former));
}

}  // namespace vrx
