#include "host/agent/engine/snmp_engine.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "host/agent/engine/engine_defaults.h"
#include "host/agent/engine/kept_digests.h"
#include "host/agent/engine/listener_address.h"
#include "host/agent/engine/listener_session.h"
#include "host/agent/engine/message_numbers.h"
#include "host/agent/engine/parser_faults.h"
#include "host/agent/engine/udp_listener.h"
#include "host/base/log_line.h"
#include "host/base/log_rate_limiter.h"
#include "host/log_lines/files.h"
#include "host/log_lines/requests.h"
#include "host/log_lines/start.h"
#include "host/snmp/hexadecimal.h"
#include "host/snmp/limits.h"
#include "host/snmp/net_snmp.h"
#include "host/snmp/usm_users.h"

namespace vrx {

// The standard groups are in a library of their own, whose headers are not installed.
extern "C" {
void init_system_mib();
void init_snmp_mib();
void init_snmpEngine();
void init_usmStats();
void init_usmUser();
void init_vacm_vars();
void init_sysORTable();
int vacm_warn_if_not_configured(int major, int minor, void* server, void* client);
}

namespace {

// The configuration while the library starts; else null. The library, which frees the arguments of its callbacks, can
// have no engine for one.
EngineConfiguration* g_starting = nullptr;

template <int WHEN>
int applyConfiguration(int, int, void*, void*) {
    if (g_starting != nullptr) g_starting->apply(WHEN);
    return SNMPERR_SUCCESS;
}

// Most of what the library says is about messages that others send.
LogRateLimiter& libraryLines() {
    constexpr unsigned int LINES = 60;
    constexpr std::chrono::seconds PERIOD{60};
    static LogRateLimiter limiter(LINES, PERIOD);
    return limiter;
}

void writeLibraryLine(int priority, const std::string& text) {
    if (priority <= LOG_ERR) {
        logLine<lines::LIBRARY_ERROR>(text);
    } else if (priority == LOG_WARNING) {
        logLine<lines::LIBRARY_WARNING>(text);
    } else if (priority <= LOG_INFO) {
        logLine<lines::LIBRARY_INFO>(text);
    } else {
        logLine<lines::LIBRARY_DEBUG>(text);
    }
}

// The library's other encoder writes beyond its buffers.
void encodeBackwards() {
    netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_REVERSE_ENCODE, 1);
}

bool takeUser(const std::string& name) {
    bool found = false;
    usmUser* next = nullptr;
    for (usmUser* user = usm_get_userList(); user != nullptr; user = next) {
        next = user->next;
        if (user->secName == nullptr || name != user->secName) continue;
        usm_remove_user(user);
        usm_free_user(user);
        found = true;
    }
    forgetDigests();
    return found;
}

void setSwitch(int which, int value) {
    netsnmp_ds_set_boolean(NETSNMP_DS_APPLICATION_ID, which, value);
}

}  // namespace

SnmpEngine::SnmpEngine(const std::string& root, const std::string& state, const MibModules& served)
    : m_state(state, NAME), m_configuration(root + "/etc/" + NAME + ".conf", NAME, [this](const std::string& fault) {
          logLine<lines::CONFIGURATION_FAULT>(fault);
          m_faults.push_back(fault);
      }) {
    // The library's own search paths would mix in another agent's files; MIB texts are not needed here.
    for (const char* variable : {"SNMPCONFPATH", "SNMP_PERSISTENT_FILE", "SNMP_PERSISTENT_DIR"}) ::unsetenv(variable);
    ::setenv("MIBS", "", 1);
    snmp_disable_log();
    netsnmp_register_loghandler(NETSNMP_LOGHANDLER_CALLBACK, LOG_DEBUG);
    snmp_register_callback(SNMP_CALLBACK_LIBRARY, SNMP_CALLBACK_LOGGING, &SnmpEngine::takeLibraryLine, nullptr);
    netsnmp_ds_set_string(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_CONFIGURATION_DIR, m_state.idFolder().c_str());
    m_state.useFolder();
    setSwitch(NETSNMP_DS_AGENT_ROLE, 0);  // master
    setSwitch(NETSNMP_DS_AGENT_NO_ROOT_ACCESS, 1);

    (void)keptDigests();
    if (init_agent(NAME) != 0) throw EngineError("Net-SNMP's agent library cannot be initialised");
    init_system_mib();
    init_snmp_mib();
    init_snmpEngine();
    init_usmStats();
    init_usmUser();
    init_vacm_vars();
    init_sysORTable();
    setSystemName();
    setSystemDefaults();
    listMibModules(served);
    // Its line names a tool that would write another agent's files; ours says how to make a user.
    snmp_unregister_callback(SNMP_CALLBACK_LIBRARY, SNMP_CALLBACK_POST_READ_CONFIG, &vacm_warn_if_not_configured,
                             nullptr, 0);
    registerAgentDirectives(m_limits, root);
    registerInformDirectives(m_informs);
    m_configuration.read();
    // The operator's words come after the files of the agent's own, and before the library makes use of either.
    netsnmp_register_callback(SNMP_CALLBACK_LIBRARY, SNMP_CALLBACK_POST_PREMIB_READ_CONFIG,
                              applyConfiguration<PREMIB_CONFIG>, nullptr, NETSNMP_CALLBACK_HIGHEST_PRIORITY);
    netsnmp_register_callback(SNMP_CALLBACK_LIBRARY, SNMP_CALLBACK_POST_READ_CONFIG, applyConfiguration<NORMAL_CONFIG>,
                              nullptr, NETSNMP_CALLBACK_HIGHEST_PRIORITY);
    g_starting = &m_configuration;
    init_snmp(NAME);
    g_starting = nullptr;
    encodeBackwards();
    checkScopedPdus();
    setDefaultView();
    m_state.useScratch();
    // Soon: the count of starts must survive the hardest end, or v3 managers reject the next start.
    m_state.storeMeanwhile();
}

EngineIdentity SnmpEngine::identity() const {
    EngineIdentity identity;
    identity.id = hexadecimal(ownEngineId());
    identity.boots = snmpv3_local_snmpEngineBoots();
    identity.uptimeSeconds = netsnmp_get_agent_uptime() / 100;
    return identity;
}

std::string SnmpEngine::addUser(const UserKeys& user) {
    const auto plain = [](char c) {
        return std::isalnum(static_cast<unsigned char>(c)) != 0 || strchr("._-", c) != nullptr;
    };
    const auto quotable = [](char c) { return c >= ' ' && c <= '~' && c != '"' && c != '\\'; };
    if (user.name.empty() || user.name.size() > LONGEST_USER_NAME ||
        !std::all_of(user.name.begin(), user.name.end(), plain)) {
        return "a user's name has 1 to 32 letters, digits and \"._-\"";
    }
    for (const std::string* passphrase : {&user.authentication, &user.privacy}) {
        if (passphrase->size() < SHORTEST_PASSPHRASE ||
            !std::all_of(passphrase->begin(), passphrase->end(), quotable)) {
            return "a passphrase has at least 8 printable ASCII characters, without quotes and backslashes";
        }
    }
    if (!isProtocol(AUTHENTICATION_PROTOCOLS, user.authenticationProtocol)) {
        return "no authentication protocol: " + user.authenticationProtocol;
    }
    if (!isProtocol(PRIVACY_PROTOCOLS, user.privacyProtocol)) {
        return "no encryption protocol: " + user.privacyProtocol;
    }
    const std::string own = ownEngineId();
    if (usm_get_user(reinterpret_cast<const u_char*>(own.data()), own.size(), user.name.c_str()) != nullptr) {
        return "there is a user " + user.name + " already";
    }
    std::string line = user.name + " " + user.authenticationProtocol + " \"" + user.authentication + "\" " +
                       user.privacyProtocol + " \"" + user.privacy + "\"";
    std::string fault = parserFault([&line] { usm_parse_create_usmUser("createUser", line.data()); });
    if (!fault.empty()) return fault;
    std::string unkept = m_state.store();
    if (!unkept.empty()) takeUser(user.name);
    return unkept;
}

std::string SnmpEngine::removeUser(const std::string& name) {
    if (!takeUser(name)) return "there is no user " + name;
    const std::string unkept = m_state.store();
    return unkept.empty() ? unkept : unkept + "; the user is gone until the next start only";
}

bool SnmpEngine::hasUsers() const {
    vacm_scanGroupInit();
    return vacm_scanGroupNext() != nullptr;
}

SnmpEngine::~SnmpEngine() {
    closeListeners();
    try {
        (void)m_state.store();  // a line tells of its failure
    } catch (const std::exception& error) {
        logFault<lines::ENGINE_STATE_LOST>(error.what());
    }
    snmp_shutdown(NAME);
    shutdown_agent();
}

std::vector<std::string> SnmpEngine::configuredListeners() const {
    const char* const configured = netsnmp_ds_get_string(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_PORTS);
    return splitListeners(configured == nullptr ? DEFAULT_LISTENER : configured);
}

void SnmpEngine::listen(std::vector<std::string> addresses, RequestDispatcher& dispatcher) {
    if (addresses.empty()) addresses = configuredListeners();
    // Not init_master_agent(): it would open listeners of its own, which read two files of the system for each packet
    // and know no dispatcher, and a SMUX port besides.
    for (const std::string& address : addresses) {
        errno = 0;
        netsnmp_transport* const transport = netsnmp_transport_open_server("snmp", address.c_str());
        if (transport == nullptr) {
            throw EngineError("cannot listen on " + address +
                              (errno == 0 ? "" : std::string(": ") + std::strerror(errno)));
        }
        if (StreamListeners::isStream(*transport)) {
            if (m_streams == nullptr) m_streams = std::make_unique<StreamListeners>(m_limits.streams, dispatcher);
            m_streams->add(transport, address);
            logLine<lines::LISTENING>(address);
            continue;
        }
        receiveDirectly(*transport);
        const Expected<netsnmp_session*> opened = openSession(transport, dispatcher);
        if (!opened) throw EngineError("cannot listen on " + address + ": " + opened.failure());
        m_listeners.push_back(*opened);
        logLine<lines::LISTENING>(address);
    }
    const std::string unkept = m_state.stored();
    if (!unkept.empty()) throw EngineError("no start whose number cannot be kept: " + unkept);
}

// What update_config() does, but for the state: users' keys are in memory already, and reading the count of starts
// raises it.
void SnmpEngine::reload() {
    m_faults.clear();
    m_limits = EngineLimits{};
    m_informs = InformDirectives{};
    free_config();
    setSystemDefaults();
    snmp_call_callbacks(SNMP_CALLBACK_LIBRARY, SNMP_CALLBACK_PRE_READ_CONFIG, nullptr);
    m_configuration.read();
    m_configuration.apply(PREMIB_CONFIG);
    m_configuration.apply(NORMAL_CONFIG);
    snmp_call_callbacks(SNMP_CALLBACK_LIBRARY, SNMP_CALLBACK_POST_READ_CONFIG, nullptr);
    setDefaultView();
    (void)m_state.store();  // new users' keys; a line tells of its failure
}

int SnmpEngine::takeLibraryLine(int, int, void* message, void*) try {
    const auto& line = *static_cast<const snmp_log_message*>(message);
    std::string text = line.msg == nullptr ? "" : line.msg;
    while (!text.empty() && text.back() == '\n') text.pop_back();
    if (takeParserFault(text)) return SNMPERR_SUCCESS;
    if (const auto leftOut = libraryLines().take(LogRateLimiter::TimePoint::clock::now())) {
        if (*leftOut > 0) logLine<lines::LIBRARY_LINES_LEFT_OUT>(*leftOut);
        writeLibraryLine(line.priority, text);
    }
    return SNMPERR_SUCCESS;
} catch (const std::bad_alloc&) {  // the engine is C: nothing may leave
    return SNMPERR_SUCCESS;
}

void SnmpEngine::closeListeners() {
    for (netsnmp_session* listener : m_listeners) snmp_close(listener);
    m_listeners.clear();
    m_streams.reset();
}

}  // namespace vrx
