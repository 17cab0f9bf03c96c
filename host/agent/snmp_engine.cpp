#include "host/agent/snmp_engine.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <utility>

#include "host/agent/agent_log.h"
#include "host/agent/net_snmp.h"

// The standard groups are in a library of their own, whose headers are not installed.
extern "C" {
void init_system_mib();
void init_snmp_mib();
void init_snmpEngine();
void init_usmStats();
void init_usmUser();
void init_vacm_vars();
void init_sysORTable();
}

namespace {

// Where the configuration's parsers, which get no argument of ours, leave what they read: the engine that is being
// made.
struct tLimits {
    SnapshotLimits snapshots;
    DeskLimits desk;
};
tLimits* g_limits = nullptr;

struct tWord {
    const char* word;
    const char* help;
    unsigned long min;
    void (*set)(tLimits& limits, unsigned long value);
};

constexpr unsigned long MAX_VALUE = 3'600'000;  // an hour, in milliseconds

const tWord WORDS[] = {
    {"vrxWalkSnapshotAge", "milliseconds", 0,
     [](tLimits& l, unsigned long v) { l.snapshots.walkAge = std::chrono::milliseconds(v); }},
    {"vrxFreshSnapshotAge", "milliseconds", 0,
     [](tLimits& l, unsigned long v) { l.snapshots.freshAge = std::chrono::milliseconds(v); }},
    {"vrxSnapshotsKept", "number", 1, [](tLimits& l, unsigned long v) { l.snapshots.kept = v; }},
    {"vrxRequestDeadline", "milliseconds", 1,
     [](tLimits& l, unsigned long v) { l.desk.deadline = std::chrono::milliseconds(v); }},
    {"vrxWaitingRequests", "number", 1, [](tLimits& l, unsigned long v) { l.desk.waiting = v; }},
};

void parseWord(const char* token, char* line) {
    if (g_limits == nullptr) return;  // read again while running: limits stay
    for (const tWord& word : WORDS) {
        if (strcasecmp(word.word, token) != 0) continue;
        char* end = nullptr;
        errno = 0;
        const unsigned long value = std::strtoul(line, &end, 10);
        if (end == line || *end != '\0' || errno != 0 || *line == '-' || value < word.min || value > MAX_VALUE) {
            netsnmp_config_error("%s: not a number from %lu to %lu: %s", word.word, word.min, MAX_VALUE, line);
            return;
        }
        word.set(*g_limits, value);
    }
}

int logLine(int, int, void* serverArgument, void*) {
    const auto* const message = static_cast<const snmp_log_message*>(serverArgument);
    std::string text = message->msg == nullptr ? "" : message->msg;
    while (!text.empty() && text.back() == '\n') text.pop_back();
    if (message->priority <= LOG_ERR) {
        agent_log::error(text);
    } else if (message->priority == LOG_WARNING) {
        agent_log::warn(text);
    } else if (message->priority <= LOG_INFO) {
        agent_log::info(text);
    } else {
        agent_log::debug(text);
    }
    return SNMPERR_SUCCESS;
}

int countPacket(netsnmp_session*, netsnmp_transport*, void*, int) {
    snmp_increment_statistic(STAT_SNMPINPKTS);
    return 1;
}

void makePrivateFolder(const std::filesystem::path& folder) {
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    if (!error) std::filesystem::permissions(folder, std::filesystem::perms::owner_all, error);
    if (error) throw EngineError(folder.string() + ": " + error.message());
}

// SNMP-FRAMEWORK-MIB: the enterprise with the first bit set, format 5 (octets), eight octets of chance.
std::string newEngineId() {
    constexpr unsigned int ENTERPRISE = 99871;
    constexpr int RANDOM_OCTETS = 8;
    std::random_device random;
    std::ostringstream text;
    text << std::hex;
    text.fill('0');
    text.width(8);
    text << (0x80000000U | ENTERPRISE) << "05";
    for (int i = 0; i < RANDOM_OCTETS; ++i) {
        text.width(2);
        text << (random() & 0xFFU);
    }
    return "0x" + text.str();
}

// A configuration file of one line, whole or not at all: read before the operator's, which may name another ID.
void keepEngineId(const std::filesystem::path& folder) {
    makePrivateFolder(folder);
    const std::filesystem::path file = folder / (std::string(SnmpEngine::NAME) + ".conf");
    if (std::filesystem::exists(file)) return;
    const std::filesystem::path draft = file.string() + ".new";
    std::ofstream out(draft);
    out << "exactEngineID " << newEngineId() << '\n';
    out.close();
    using std::filesystem::perms;
    std::error_code error;
    if (out) std::filesystem::permissions(draft, perms::owner_read | perms::owner_write, error);
    if (out && !error) std::filesystem::rename(draft, file, error);
    if (!out || error) throw EngineError(file.string() + ": cannot be written");
}

void setFolder(int which, const std::string& value) {
    netsnmp_ds_set_string(NETSNMP_DS_LIBRARY_ID, which, value.c_str());
}

void setSwitch(int which, int value) {
    netsnmp_ds_set_boolean(NETSNMP_DS_APPLICATION_ID, which, value);
}

std::vector<std::string> split(const std::string& list) {
    std::vector<std::string> pieces;
    std::istringstream in(list);
    for (std::string piece; std::getline(in, piece, ',');) {
        if (!piece.empty()) pieces.push_back(piece);
    }
    return pieces;
}

}  // namespace

SnmpEngine::SnmpEngine(const std::string& root) {
    const std::filesystem::path state = std::filesystem::path(root) / "state";
    const std::string ownState = (state / "net-snmp").string();
    const std::string engineFolder = (state / "engine").string();
    makePrivateFolder(ownState);
    keepEngineId(engineFolder);

    // The library's own search paths would mix in another agent's files; MIB texts are not needed here.
    for (const char* variable : {"SNMPCONFPATH", "SNMP_PERSISTENT_FILE", "SNMP_PERSISTENT_DIR"}) ::unsetenv(variable);
    ::setenv("MIBS", "", 1);
    snmp_disable_log();
    netsnmp_register_loghandler(NETSNMP_LOGHANDLER_CALLBACK, LOG_DEBUG);
    snmp_register_callback(SNMP_CALLBACK_LIBRARY, SNMP_CALLBACK_LOGGING, logLine, nullptr);
    setFolder(NETSNMP_DS_LIB_CONFIGURATION_DIR, engineFolder + ENV_SEPARATOR + root + "/etc");
    setFolder(NETSNMP_DS_LIB_PERSISTENT_DIR, ownState);
    setSwitch(NETSNMP_DS_AGENT_ROLE, 0);  // master
    setSwitch(NETSNMP_DS_AGENT_NO_ROOT_ACCESS, 1);

    if (init_agent(NAME) != 0) throw EngineError("Net-SNMP's agent library cannot be initialised");
    init_system_mib();
    init_snmp_mib();
    init_snmpEngine();
    init_usmStats();
    init_usmUser();
    init_vacm_vars();
    init_sysORTable();
    for (const tWord& word : WORDS) snmpd_register_config_handler(word.word, parseWord, nullptr, word.help);

    tLimits limits;
    g_limits = &limits;
    init_snmp(NAME);
    g_limits = nullptr;
    m_snapshotLimits = limits.snapshots;
    m_deskLimits = limits.desk;
}

SnmpEngine::~SnmpEngine() {
    closeListeners();
    snmp_shutdown(NAME);
    shutdown_master_agent();
    shutdown_agent();
}

void SnmpEngine::listen(std::vector<std::string> addresses, RequestDesk& desk) {
    if (addresses.empty()) {
        const char* const configured = netsnmp_ds_get_string(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_PORTS);
        addresses = split(configured == nullptr ? DEFAULT_LISTENER : configured);
    }
    // Without its own listeners: they read two files of the system for each packet and know no desk.
    netsnmp_ds_set_string(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_PORTS, "none");
    if (init_master_agent() != 0) throw EngineError("Net-SNMP's master agent cannot be initialised");

    for (const std::string& address : addresses) {
        errno = 0;
        netsnmp_transport* const transport = netsnmp_transport_open_server("snmp", address.c_str());
        if (transport == nullptr) {
            throw EngineError("cannot listen on " + address +
                              (errno == 0 ? "" : std::string(": ") + std::strerror(errno)));
        }
        netsnmp_session session;
        snmp_sess_init(&session);
        session.version = SNMP_DEFAULT_VERSION;
        session.isAuthoritative = SNMP_SESS_AUTHORITATIVE;
        session.callback = &RequestDesk::receive;
        session.callback_magic = &desk;
        netsnmp_session* const opened = snmp_add(&session, transport, countPacket, netsnmp_agent_check_parse);
        if (opened == nullptr)
            throw EngineError("cannot listen on " + address + ": " + snmp_api_errstring(session.s_snmp_errno));
        m_listeners.push_back(opened);
        agent_log::info("listening on " + address);
    }
    snmp_store(
        NAME);  // at once: the count of starts must survive the hardest end, or v3 managers reject the next start
}

void SnmpEngine::reload() {
    update_config();
}

void SnmpEngine::closeListeners() {
    for (netsnmp_session* listener : m_listeners) snmp_close(listener);
    m_listeners.clear();
}
