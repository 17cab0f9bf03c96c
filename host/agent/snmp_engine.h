// Net-SNMP's engine in this process: its configuration and state folders, its standard groups (system, snmp, engine,
// USM, VACM, sysOR) and our own listeners.
//
//     SnmpEngine engine(settings);        // reads the configuration
//     ... register objects ...
//     engine.listen(addresses, desk);     // from here on requests come
//
// Configuration: <root>/etc/vrx-agentd.conf, with snmpd.conf's words and our own (docs/agent.md). State: users' keys
// and the count of starts in <root>/state/net-snmp/; the engine ID, made once and kept for ever, in
// <root>/state/engine/: managers know SNMPv3 agents by it.
//
// Threads: agent thread only. One engine a process.
#pragma once

#include <chrono>
#include <stdexcept>
#include <string>
#include <vector>

#include "host/agent/request_desk.h"
#include "host/agent/snapshot_store.h"

// The engine cannot start; what() says what to mend.
class EngineError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

class SnmpEngine {
public:
    static constexpr const char* NAME = "vrx-agentd";
    static constexpr const char* DEFAULT_LISTENER = "udp:127.0.0.1:1161";

    // `root` is absolute, and its state folder exists.
    explicit SnmpEngine(const std::string& root);
    ~SnmpEngine();
    SnmpEngine(const SnmpEngine&) = delete;
    SnmpEngine& operator=(const SnmpEngine&) = delete;

    // What the configuration says, or the defaults.
    const SnapshotLimits& snapshotLimits() const { return m_snapshotLimits; }
    const DeskLimits& deskLimits() const { return m_deskLimits; }

    // Opens a listener on each address ("udp:127.0.0.1:1161", "udp6:[::1]:1161", "tcp:..."); on those of the
    // configuration's agentAddress when there are none, on DEFAULT_LISTENER when that is missing too. The desk gets all
    // requests and outlives the engine. Throws EngineError.
    void listen(std::vector<std::string> addresses, RequestDesk& desk);

    // Reads the configuration again: communities, users, views. Snapshot and desk limits stay.
    void reload();

    // Closes the listeners: no request comes any more.
    void closeListeners();

private:
    SnapshotLimits m_snapshotLimits;
    DeskLimits m_deskLimits;
    std::vector<netsnmp_session*> m_listeners;
};
