// Net-SNMP's engine in this process: its configuration and state folders, its standard groups (system, snmp, engine,
// USM, VACM, sysOR) and our own listeners.
//
//     SnmpEngine engine(root, state);     // reads the configuration
//     ... register objects ...
//     engine.listen(addresses, dispatcher);     // from here on requests arrive
//
// Configuration: <root>/etc/vrx-agentd.conf, with snmpd.conf's directives and our own (docs/agent.md). State:
// engine_state.h.
//
// Threads: agent thread only. One engine a process.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "host/agent/engine/engine_configuration.h"
#include "host/agent/engine/engine_defaults.h"
#include "host/agent/engine/engine_state.h"
#include "host/agent/engine/stream_listeners.h"
#include "host/agent/requests/request_dispatcher.h"
#include "host/agent/settings/agent_directives.h"
#include "host/agent/settings/inform_directives.h"
#include "host/engine_files/user_protocols.h"

namespace vrx {

// SNMPv3's name of this agent, how often it was started under it, and since when it runs.
struct EngineIdentity {
    std::string id;  // hexadecimal digits
    unsigned long boots = 0;
    unsigned long uptimeSeconds = 0;
};

// A user of SNMPv3 with authentication and encryption.
struct UserKeys {
    std::string name;
    std::string authentication;  // passphrases, at least SHORTEST_PASSPHRASE characters
    std::string privacy;
    std::string authenticationProtocol = AUTHENTICATION_PROTOCOLS.front();  // of user_protocols.h
    std::string privacyProtocol = PRIVACY_PROTOCOLS.front();
};

class SnmpEngine {
public:
    static constexpr const char* NAME = "vrx-agentd";
    static constexpr const char* DEFAULT_LISTENER = "udp:127.0.0.1:1161";

    // Both paths are absolute. `root` is the product root, of which the configuration is read; `state` exists and gets
    // the engine's own folders. `served`: the MIB modules beside the agent's own. The count of starts is on its way to
    // disk when it returns.
    SnmpEngine(const std::string& root, const std::string& state, const MibModules& served = {});
    ~SnmpEngine();
    SnmpEngine(const SnmpEngine&) = delete;
    SnmpEngine& operator=(const SnmpEngine&) = delete;

    // What the configuration says, or the defaults.
    const EngineLimits& limits() const { return m_limits; }
    const std::vector<InformDestination>& informs() const { return m_informs.destinations; }

    // What was wrong with the configuration when it was last read, as "FILE:LINE: text".
    const std::vector<std::string>& configurationFaults() const { return m_faults; }

    // The configuration's agentAddress, or the default.
    std::vector<std::string> configuredListeners() const;

    EngineIdentity identity() const;

    // A user with keys from these passphrases; they are in the state folder when it returns, the passphrases nowhere.
    // What it may do is the configuration's matter. Gives what is wrong, or "": a user that cannot be kept is not made.
    [[nodiscard]] std::string addUser(const UserKeys& user);

    // Takes all users of that name and their keys away. Gives what is wrong, or "".
    [[nodiscard]] std::string removeUser(const std::string& name);

    // Whether anybody may ask: a community or a user is configured.
    bool hasUsers() const;

    // Opens a listener on each address ("udp:127.0.0.1:1161", "udp6:[::1]:1161", "tcp:..."); on those of the
    // configuration's agentAddress when there are none, on DEFAULT_LISTENER when that is missing too. The dispatcher
    // gets all requests and outlives the engine. The count of starts is on disk when this returns. Throws EngineError,
    // also when it cannot be stored: with one that SNMPv3 managers have seen before they would reject the next start.
    void listen(std::vector<std::string> addresses, RequestDispatcher& dispatcher);

    // Reads the configuration again: communities, users, views, limits. Listeners stay, and so does the count of
    // starts, which the library's own update would raise: SNMPv3 managers would have to meet the agent anew.
    void reload();

    // Closes the listeners: no request comes any more.
    void closeListeners();

private:
    static int takeLibraryLine(int major, int minor, void* message, void* unused);

    EngineState m_state;
    EngineConfiguration m_configuration;
    EngineLimits m_limits;
    InformDirectives m_informs;
    std::vector<std::string> m_faults;
    std::vector<netsnmp_session*> m_listeners;
    std::unique_ptr<StreamListeners> m_streams;  // when an address is one of theirs
};

}  // namespace vrx
