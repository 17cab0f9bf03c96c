// Our own words of the agent's configuration file, beside snmpd.conf's, and what they say.
//
// The engine's reader knows no arguments of ours: it leaves what it reads in the limits that were last given to
// registerEngineWords(). Before the file is read again these go back to their defaults.
//
// Threads: agent thread only.
#pragma once

#include "host/agent/request_desk.h"
#include "host/agent/snapshot_store.h"

struct EngineLimits {
    SnapshotLimits snapshots;
    DeskLimits desk;
};

// `limits` outlives every reading of the configuration.
void registerEngineWords(EngineLimits& limits);
