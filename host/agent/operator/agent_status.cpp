#include "platform/snmp_basic_impl.h"  // first: Net-SNMP's `oid` is a common name of parameters in SNMP++'s headers

#include "host/agent/operator/agent_status.h"

#include <unistd.h>

#include <chrono>
#include <optional>
#include <string>

#include "host/agent/assembly/agent.h"
#include "host/agent/assembly/notification_service.h"
#include "host/agent/operator/inform_status_fields.h"
#include "host/agent/reload/reloader.h"
#include "host/snmp/net_snmp.h"
#include "host/transport/backend_client.h"

namespace vrx {

namespace {

using Kind = StatusKind;
using Value = StatusValue;

Value timeOf(const std::optional<ActiveAlarms::Moment>& moment) {
    return moment ? statusOf(moment->time) : Value();
}

Value secondsSince(std::chrono::steady_clock::time_point time) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - time).count();
}

Value secondsSince(const std::optional<ActiveAlarms::Moment>& moment) {
    return moment ? secondsSince(moment->steady) : Value();
}

// clang-format off
struct AgentFacts {
    const Agent& agent;
    EngineIdentity engine;
    const Reloader::Counters& reloads;
};

Value modulesOf(const AgentFacts& facts) {
    Value modules = Value::array();
    for (const std::string& path : facts.agent.modules()) modules.push_back(path);
    return modules;
}

const StatusItem<AgentFacts> AGENT[] = {
    {{"version", Kind::Info, "vrx_agent_info", "The running agent: always 1."},
     [](const AgentFacts&) -> Value { return VRX_VERSION; }},
    {{"net_snmp", Kind::Info}, [](const AgentFacts&) -> Value { return netsnmp_get_version(); }},
    {{"system_name"}, [](const AgentFacts&) -> Value { return GetSystemName(); }},
    {{"modules"}, modulesOf},
    {{"pid"}, [](const AgentFacts&) -> Value { return ::getpid(); }},
    {{"engine_id", Kind::Info}, [](const AgentFacts& f) -> Value { return f.engine.id; }},
    {{"engine_boots", Kind::Gauge, "vrx_engine_boots", "Starts with this engine ID (snmpEngineBoots)."},
     [](const AgentFacts& f) -> Value { return f.engine.boots; }},
    {{"uptime_seconds", Kind::Gauge, "vrx_uptime_seconds", "Time since the agent's start."},
     [](const AgentFacts& f) -> Value { return f.engine.uptimeSeconds; }},
    {{"reloads_taken", Kind::Counter, "vrx_reloads_taken_total", "Reloads that were applied."},
     [](const AgentFacts& f) -> Value { return f.reloads.taken; }},
    {{"reloads_refused", Kind::Counter, "vrx_reloads_refused_total", "Reloads that were refused because of a fault."},
     [](const AgentFacts& f) -> Value { return f.reloads.refused; }},
    {{"last_reload_taken", Kind::Gauge, "vrx_last_reload_taken", "1 unless the last reload was refused."},
     [](const AgentFacts& f) -> Value { return f.reloads.lastTaken; }},
    {{"last_reload_at"}, [](const AgentFacts& f) { return statusOf(f.reloads.last); }},
};

struct BackendFacts {
    const NotificationStatus& traps;
    BackendClientCounters calls;
};

const StatusItem<BackendFacts> BACKEND[] = {
    {{"address"}, [](const BackendFacts& f) -> Value { return f.traps.backendAddress; }},
    {{"store"}, [](const BackendFacts& f) -> Value { return f.traps.alarms.store; }},
    {{"connected", Kind::Gauge, "vrx_backend_connected", "1 while the subscription to the management backend's alarm events is up."},
     [](const BackendFacts& f) -> Value { return f.traps.alarms.connected; }},
    {{"since"}, [](const BackendFacts& f) { return timeOf(f.traps.alarms.since); }},
    {{"since_seconds", Kind::Gauge, "vrx_backend_state_age_seconds", "Time since the subscription came up or went down."},
     [](const BackendFacts& f) { return secondsSince(f.traps.alarms.since); }},
    {{"connections", Kind::Counter, "vrx_backend_connections_total", "Times that the subscription to alarm events came up."},
     [](const BackendFacts& f) -> Value { return f.traps.source.connections; }},
    {{"answers", Kind::Gauge, "vrx_backend_answers", "1 when the last backend call was answered."},
     [](const BackendFacts& f) -> Value { return f.calls.reachable; }},
    {{"calls", Kind::Counter, "vrx_backend_calls_total", "Backend calls."},
     [](const BackendFacts& f) -> Value { return f.calls.calls; }},
    {{"refusals", Kind::Counter, "vrx_backend_refusals_total", "Backend calls that were refused."},
     [](const BackendFacts& f) -> Value { return f.calls.refusals; }},
    {{"failures", Kind::Counter, "vrx_backend_failures_total", "Backend calls that were not answered."},
     [](const BackendFacts& f) -> Value { return f.calls.failures; }},
    {{"call_connections", Kind::Counter, "vrx_backend_call_connections_total", "Connections made for backend calls."},
     [](const BackendFacts& f) -> Value { return f.calls.connects; }},
    {{"latency", Kind::Histogram, "vrx_backend_call_seconds", "Time that answered backend calls took."},
     [](const BackendFacts& f) { return statusOf(f.calls.latency); }},
};

template <FaultLevel LEVEL>
Value alarmsOf(const ActiveAlarms::State& alarms) {
    return alarms.of(LEVEL);
}

Value alarmsByLevel(const ActiveAlarms::State& alarms) {
    Value levels = Value::object();
    for (const FaultLevel level : {FaultLevel::Critical, FaultLevel::Major, FaultLevel::Minor, FaultLevel::Warning}) {
        levels[textOf(level)] = alarms.of(level);
    }
    return levels;
}

const StatusItem<ActiveAlarms::State> ALARMS[] = {
    {{"active", Kind::Gauge, "vrx_alarms_active", "Active alarms."},
     [](const ActiveAlarms::State& a) -> Value { return a.active; }},
    {{"by_level", Kind::Gauge, "vrx_alarms_active_by_level", "Active alarms by level.", "level"}, alarmsByLevel},
    {{"changes", Kind::Counter, "vrx_alarm_changes_total", "Changes of the active alarms."},
     [](const ActiveAlarms::State& a) -> Value { return a.changes; }},
    {{"last_change"}, [](const ActiveAlarms::State& a) { return timeOf(a.lastChange); }},
    {{"last_change_seconds", Kind::Gauge, "vrx_alarm_last_change_age_seconds", "Time since the last change."},
     [](const ActiveAlarms::State& a) { return secondsSince(a.lastChange); }},
};

const StatusItem<NotificationStatus> EVENTS[] = {
    {{"handled", Kind::Counter, "vrx_events_handled_total", "Alarm events that were handled."},
     [](const NotificationStatus& s) -> Value { return s.path.events; }},
    {{"traps_not_built", Kind::Counter, "vrx_traps_not_built_total", "Traps that could not be built."},
     [](const NotificationStatus& s) -> Value { return s.path.notBuilt; }},
    {{"bad_records", Kind::Counter, "vrx_event_bad_records_total", "Events that could not be applied to the list of active alarms."},
     [](const NotificationStatus& s) -> Value { return s.path.badRecords; }},
    {{"definitions_loaded", Kind::Gauge, "vrx_alarm_definitions_loaded", "0 while the alarm definitions cannot be loaded: alarm events wait."},
     [](const NotificationStatus& s) -> Value { return !s.definitionsFault; }},
    {{"definitions_fault"}, [](const NotificationStatus& s) -> Value { return s.definitionsFault.value_or(""); }},
    {{"last", Kind::Gauge, "vrx_event_last_number", "Number of the backend's last event that the agent knows of."},
     [](const NotificationStatus& s) -> Value { return s.alarms.lastEvent; }},
    {{"last_at"}, [](const NotificationStatus& s) { return timeOf(s.alarms.lastEventAt); }},
    {{"last_done", Kind::Gauge, "vrx_event_last_done_number", "Number of the event up to which all are completed."},
     [](const NotificationStatus& s) -> Value { return s.lastDone ? Value(*s.lastDone) : Value(); }},
    {{"connections"}, [](const NotificationStatus& s) -> Value { return s.source.connections; }},
    {{"missing", Kind::Counter, "vrx_events_missing_total", "Events that were lost: the backend no longer had them."},
     [](const NotificationStatus& s) -> Value { return s.source.missing; }},
    {{"malformed", Kind::Counter, "vrx_events_malformed_total", "Events without a number, or with a number that was used before."},
     [](const NotificationStatus& s) -> Value { return s.source.malformed; }},
};

const StatusItem<NotificationLog::Counters> NOTIFICATION_LOG[] = {
    {{"kept", Kind::Gauge, "vrx_notification_log_kept", "Entries that the notification log keeps; 0: it is off."},
     [](const NotificationLog::Counters& l) -> Value { return l.kept; }},
    {{"written", Kind::Counter, "vrx_notification_log_written_total", "Entries that were written."},
     [](const NotificationLog::Counters& l) -> Value { return l.written; }},
    {{"waiting", Kind::Gauge, "vrx_notification_log_waiting", "Entries that wait to be written."},
     [](const NotificationLog::Counters& l) -> Value { return l.waiting; }},
    {{"not_written", Kind::Counter, "vrx_notification_log_lost_total", "Entries that were discarded: the file could not be written."},
     [](const NotificationLog::Counters& l) -> Value { return l.notWritten; }},
    {{"sent_again", Kind::Counter, "vrx_notification_log_sent_again_total", "Traps that an operator resent."},
     [](const NotificationLog::Counters& l) -> Value { return l.askedFor; }},
    {{"fault"}, [](const NotificationLog::Counters& l) -> Value { return l.fault; }},
};

const StatusItem<const ManagedObject*> OBJECTS[] = {
    {{"name", Kind::Label, "object"}, [](const ManagedObject* const& o) -> Value { return o->mib().name; }},
    {{"snapshot_age_seconds", Kind::Gauge, "vrx_snapshot_age_seconds", "Age of the last snapshot, while one is kept."},
     [](const ManagedObject* const& o) -> Value {
         return o->snapshots().last() == nullptr ? Value() : secondsSince(o->snapshots().last()->taken());
     }},
    {{"rows", Kind::Gauge, "vrx_snapshot_rows", "Rows of that snapshot."},
     [](const ManagedObject* const& o) -> Value {
         return o->snapshots().last() == nullptr ? Value() : Value(o->snapshots().last()->rows());
     }},
    {{"snapshots", Kind::Gauge, "vrx_snapshots_kept", "Snapshots that are kept for walks and new requests."},
     [](const ManagedObject* const& o) -> Value { return o->snapshots().held(); }},
    {{"readable", Kind::Gauge, "vrx_object_readable", "1 unless the last read failed."},
     [](const ManagedObject* const& o) -> Value { return o->readable(); }},
    {{"reads", Kind::Counter, "vrx_object_reads_total", "Reads through the object's handler."},
     [](const ManagedObject* const& o) -> Value { return o->counters().reads; }},
    {{"read_failures", Kind::Counter, "vrx_object_read_failures_total", "Reads that failed."},
     [](const ManagedObject* const& o) -> Value { return o->counters().failures; }},
    {{"bad_records", Kind::Counter, "vrx_object_bad_records_total", "Records that were skipped: they make no row."},
     [](const ManagedObject* const& o) -> Value { return o->reader().badRecords(); }},
    {{"duplicate_rows", Kind::Counter, "vrx_object_duplicate_rows_total", "Rows that were skipped: another one had their index."},
     [](const ManagedObject* const& o) -> Value { return o->reader().duplicates(); }},
    {{"differences", Kind::Counter, "vrx_object_differences_total", "Reads of all rows that were not what single changed rows had made of the former ones."},
     [](const ManagedObject* const& o) -> Value { return o->reader().differences(); }},
};

struct RequestFacts {
    const RequestCounters* counters;
    RequestKind kind;
};

Value resultsOf(const RequestFacts& facts) {
    Value results = Value::object();
    for (std::size_t i = 0; i < REQUEST_RESULTS; ++i) {
        const auto result = static_cast<RequestResult>(i);
        results[textOf(result)] = facts.counters->count(facts.kind, result);
    }
    return results;
}

const StatusItem<RequestFacts> REQUESTS[] = {
    {{"kind", Kind::Label, "kind"}, [](const RequestFacts& f) -> Value { return textOf(f.kind); }},
    {{"results", Kind::Counter, "vrx_requests_total", "Completed requests by result.", "result"}, resultsOf},
    {{"latency", Kind::Histogram, "vrx_request_seconds", "Time from a request to its answer."},
     [](const RequestFacts& f) { return statusOf(f.counters->latency(f.kind)); }},
};

const StatusItem<RequestDispatcher> DISPATCHER[] = {
    {{"waiting", Kind::Gauge, "vrx_requests_waiting", "Requests that wait for values."},
     [](const RequestDispatcher& dispatcher) -> Value { return dispatcher.waiting(); }},
};

Value dropsOf(const TrapCounters& counters) {
    Value dropped = Value::object();
    for (std::size_t i = 0; i < TRAP_DROPS; ++i) dropped[textOf(static_cast<TrapDrop>(i))] = counters.dropped[i];
    return dropped;
}

const StatusItem<DestinationStatus> DESTINATIONS[] = {
    {{"number", Kind::Label, "destination"}, [](const DestinationStatus& d) -> Value { return d.index; }},
    {{"address"}, [](const DestinationStatus& d) -> Value { return d.address; }},
    {{"port"}, [](const DestinationStatus& d) -> Value { return d.port; }},
    {{"version"}, [](const DestinationStatus& d) -> Value { return d.version; }},
    {{"resolved_address"}, [](const DestinationStatus& d) -> Value { return d.resolvedAddress; }},
    {{"state"}, [](const DestinationStatus& d) -> Value { return textOf(d.state); }},
    {{"reason"}, [](const DestinationStatus& d) -> Value { return d.reason; }},
    {{"ready", Kind::Gauge, "vrx_destination_ready", "1 while traps can be sent to the destination."},
     [](const DestinationStatus& d) -> Value { return d.state == DestinationState::Ready; }},
    {{"heartbeats", Kind::Counter, "vrx_heartbeat_traps_sent_total", "Heartbeat traps handed to the network."},
     [](const DestinationStatus& d) -> Value { return d.heartbeats; }},
    {{"held", Kind::Gauge, "vrx_traps_held", "Traps of flapping alarms that are held."},
     [](const DestinationStatus& d) -> Value { return d.held; }},
    {{"suppressed", Kind::Counter, "vrx_traps_suppressed_total", "Traps of flapping alarms that were superseded while they were held."},
     [](const DestinationStatus& d) -> Value { return d.suppressed; }},
};

// Of destinations that are gone, added up.
const StatusItem<TrapCounters> FORMER[] = {
    {{"", Kind::Label, "destination"}, [](const TrapCounters&) -> Value { return "former"; }},
};

const StatusItem<TrapCounters> TRAPS[] = {
    {{"considered", Kind::Counter, "vrx_traps_considered_total", "Traps filtered, sent, dropped and waiting."},
     [](const TrapCounters& c) -> Value { return c.considered; }},
    {{"filtered", Kind::Counter, "vrx_traps_filtered_total", "Traps that are not of the destination's type."},
     [](const TrapCounters& c) -> Value { return c.filtered; }},
    {{"sent", Kind::Counter, "vrx_traps_sent_total", "Traps handed to the network."},
     [](const TrapCounters& c) -> Value { return c.sent; }},
    {{"paced", Kind::Counter, "vrx_traps_paced_total", "Traps that were sent late because of the destination's rate limit."},
     [](const TrapCounters& c) -> Value { return c.paced; }},
    {{"shortened", Kind::Counter, "vrx_traps_shortened_total", "Traps whose texts were shortened to fit into a message."},
     [](const TrapCounters& c) -> Value { return c.shortened; }},
    {{"waiting", Kind::Gauge, "vrx_traps_waiting", "Traps that wait to be sent."},
     [](const TrapCounters& c) -> Value { return c.waiting; }},
    {{"counter64_left_out", Kind::Counter, "vrx_trap_bindings_left_out_total", "Variable bindings that SNMPv1 cannot carry."},
     [](const TrapCounters& c) -> Value { return c.counter64LeftOut; }},
    {{"dropped", Kind::Counter, "vrx_traps_dropped_total", "Traps that were dropped, by reason.", "reason"}, dropsOf},
};
// clang-format on

StatusSection objectsStatus(const Agent& agent) {
    std::vector<const ManagedObject*> objects;
    objects.reserve(agent.objects().size());
    for (const auto& object : agent.objects()) objects.push_back(object.get());
    return statusSection("objects", OBJECTS, objects);
}

StatusSection requestsStatus(const RequestDispatcher& dispatcher) {
    std::vector<RequestFacts> kinds;
    kinds.reserve(REQUEST_KINDS);
    for (std::size_t i = 0; i < REQUEST_KINDS; ++i)
        kinds.push_back({&dispatcher.counters(), static_cast<RequestKind>(i)});
    return statusSection("requests", REQUESTS, kinds);
}

StatusSection destinationsStatus(const std::vector<DestinationStatus>& destinations) {
    std::vector<TrapCounters> counters;
    counters.reserve(destinations.size());
    for (const DestinationStatus& destination : destinations) counters.push_back(destination.counters);
    return joined(statusSection("destinations", DESTINATIONS, destinations), statusSection("", TRAPS, counters));
}

}  // namespace

std::vector<StatusSection> agentStatus(const Agent& agent, const NotificationService& notifications,
                                       const Reloader& reloader) {
    const NotificationStatus traps = notifications.status();
    return {
        statusSection("agent", AGENT, AgentFacts{agent, agent.engine().identity(), reloader.counters()}),
        statusSection("backend", BACKEND, BackendFacts{traps, BackendClient::ofProcess().counters()}),
        statusSection("alarms", ALARMS, traps.alarms),
        statusSection("events", EVENTS, traps),
        statusSection("notification_log", NOTIFICATION_LOG, traps.log),
        objectsStatus(agent),
        statusSection("desk", DISPATCHER, agent.dispatcher()),
        requestsStatus(agent.dispatcher()),
        destinationsStatus(traps.traps.destinations),
        joined(statusSection("former_destinations", FORMER, traps.traps.former),
               statusSection("", TRAPS, traps.traps.former)),
        informsStatus(traps.informs),
        formerInformsStatus(traps.informs),
    };
}

}  // namespace vrx
