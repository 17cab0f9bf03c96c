// The directives that the agent's configuration file has besides snmpd.conf's, and their values.
//
// The library's parser callbacks carry no context: what they read goes into the limits last given to
// registerAgentDirectives(). Before the file is read again these go back to their defaults.
//
// Threads: agent thread only.
#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>

#include "host/agent/objects/snapshot_store.h"
#include "host/agent/requests/request_dispatcher.h"
#include "host/agent/settings/notification_limits.h"
#include "host/agent/settings/stream_limits.h"
#include "host/agent/settings/tls_credentials.h"
#include "host/base/local_address.h"

namespace vrx {

// How the agent reports on itself.
struct StatusSettings {
    std::optional<LocalAddress> metrics;   // where collectors may connect; none: nowhere
    std::optional<TlsCredentials> tls;     // of that; none: a local address, without TLS
    std::size_t alarms = 1000;             // that are among the metrics, at most
    std::chrono::seconds heartbeat{3600};  // between two log lines; 0: none
};

struct EngineLimits {
    SnapshotLimits snapshots;
    DispatcherLimits dispatcher;
    StatusSettings status;
    NotificationLimits notifications;
    StreamLimits streams;
};

// `limits` outlives every reading of the configuration. Relative paths are below `root`.
void registerAgentDirectives(EngineLimits& limits, const std::string& root);

}  // namespace vrx
