// Net-SNMP's engine in this process: its configuration and state folders, its standard groups (system, snmp, engine,
// USM, VACM, sysOR) and our own listeners.
//
//     SnmpEngine engine(root, state);     // reads the configuration
//     ... register objects ...
//     engine.listen(addresses, desk);     // from here on requests come
//
// Configuration: <root>/etc/vrx-agentd.conf, with snmpd.conf's words and our own (docs/agent.md). State: users' keys
// and the count of starts in <state>/net-snmp/; the engine ID, made once and kept for ever, in <state>/engine/:
// managers know SNMPv3 agents by it.
//
// Threads: agent thread only. One engine a process.
#pragma once

#include <stdexcept>
#include <string>
#include <vector>

#include "host/agent/engine_words.h"
#include "host/agent/request_desk.h"

// The engine cannot start; what() says what to mend.
class EngineError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

class SnmpEngine {
public:
    static constexpr const char* NAME = "vrx-agentd";
    static constexpr const char* DEFAULT_LISTENER = "udp:127.0.0.1:1161";

    // Both paths are absolute. `root` is the product root, of which the configuration is read; `state` exists and gets
    // the engine's own folders.
    SnmpEngine(const std::string& root, const std::string& state);
    ~SnmpEngine();
    SnmpEngine(const SnmpEngine&) = delete;
    SnmpEngine& operator=(const SnmpEngine&) = delete;

    // What the configuration says, or the defaults.
    const EngineLimits& limits() const { return m_limits; }

    // What the engine's reader found fault with when the configuration was last read, as "FILE:LINE: text".
    const std::vector<std::string>& configurationFaults() const { return m_faults; }

    // The configuration's agentAddress, or the default.
    std::vector<std::string> configuredListeners() const;

    // Whether anybody may ask: a community or a user is configured.
    bool hasUsers() const;

    // Opens a listener on each address ("udp:127.0.0.1:1161", "udp6:[::1]:1161", "tcp:..."); on those of the
    // configuration's agentAddress when there are none, on DEFAULT_LISTENER when that is missing too. The desk gets all
    // requests and outlives the engine. Throws EngineError.
    void listen(std::vector<std::string> addresses, RequestDesk& desk);

    // Reads the configuration again: communities, users, views, limits. Listeners stay, and so does the count of
    // starts, which the library's own update would raise: SNMPv3 managers would have to meet the agent anew.
    void reload();

    // Closes the listeners: no request comes any more.
    void closeListeners();

private:
    static int logLine(int major, int minor, void* message, void* unused);

    const std::string m_configurationFile;
    EngineLimits m_limits;
    std::vector<std::string> m_faults;
    std::vector<netsnmp_session*> m_listeners;
};
