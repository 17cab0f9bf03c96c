#include "host/agent/agent_status.h"

#include <unistd.h>

#include <nlohmann/json.hpp>
#include <string>

#include "host/agent/agent.h"
#include "host/agent/notification_service.h"
#include "host/agent/reloader.h"

namespace {

using nlohmann::json;

json countersStatus(const TrapCounters& counters) {
    json dropped = json::object();
    for (std::size_t i = 0; i < TRAP_DROPS; ++i) dropped[textOf(static_cast<TrapDrop>(i))] = counters.dropped[i];
    return {{"considered", counters.considered},
            {"filtered", counters.filtered},
            {"sent", counters.sent},
            {"paced", counters.paced},
            {"waiting", counters.waiting},
            {"counter64_left_out", counters.counter64LeftOut},
            {"dropped", dropped}};
}

json destinationStatus(const DestinationStatus& destination) {
    json status = {{"number", destination.index},
                   {"address", destination.address},
                   {"port", destination.port},
                   {"version", destination.version},
                   {"resolved_address", destination.resolvedAddress},
                   {"state", textOf(destination.state)},
                   {"reason", destination.reason}};
    status.update(countersStatus(destination.counters));
    return status;
}

}  // namespace

json agentStatus(const Agent& agent, const NotificationService& notifications, const Reloader& reloader) {
    const NotificationStatus traps = notifications.status();
    const EngineIdentity engine = agent.engine().identity();
    const Reloader::Counters& reloads = reloader.counters();
    json destinations = json::array();
    for (const DestinationStatus& destination : traps.traps.destinations) {
        destinations.push_back(destinationStatus(destination));
    }
    return {
        {"agent",
         {{"version", VRX_VERSION},
          {"pid", ::getpid()},
          {"engine_id", engine.id},
          {"engine_boots", engine.boots},
          {"uptime_seconds", engine.uptimeSeconds},
          {"reloads_taken", reloads.taken},
          {"reloads_refused", reloads.refused}}},
        {"events",
         {{"handled", traps.path.events},
          {"traps_not_built", traps.path.notBuilt},
          {"bad_records", traps.path.badRecords},
          {"last_done", traps.lastDone ? json(*traps.lastDone) : json()},
          {"connections", traps.source.connections},
          {"missing", traps.source.missing},
          {"malformed", traps.source.malformed}}},
        {"destinations", destinations},
        {"former_destinations", countersStatus(traps.traps.former)},
    };
}
