#include "host/agent/settings/agent_directives.h"

#include <strings.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <stdexcept>
#include <vector>

#include "host/command_line/option_parser.h"
#include "host/snmp/net_snmp.h"

namespace vrx {

namespace {

constexpr unsigned long MAX_VALUE = 3'600'000;  // an hour, in milliseconds

struct Word {
    const char* word;
    const char* help;
    unsigned long min;
    void (*set)(EngineLimits& limits, unsigned long value);
    unsigned long max = MAX_VALUE;
};

constexpr unsigned long MAX_CHANGES = 1000;  // the time of each is remembered, for thousands of alarms

constexpr unsigned long MAX_RATE = 1'000'000'000;

const Word WORDS[] = {
    {"vrxWalkSnapshotAge", "milliseconds", 0,
     [](EngineLimits& l, unsigned long v) { l.snapshots.walkAge = std::chrono::milliseconds(v); }},
    {"vrxFreshSnapshotAge", "milliseconds", 0,
     [](EngineLimits& l, unsigned long v) { l.snapshots.freshAge = std::chrono::milliseconds(v); }},
    {"vrxQuietSnapshotAge", "milliseconds", 0,
     [](EngineLimits& l, unsigned long v) { l.snapshots.quietAge = std::chrono::milliseconds(v); }},
    {"vrxSnapshotsKept", "number", 1, [](EngineLimits& l, unsigned long v) { l.snapshots.kept = v; }},
    {"vrxRequestDeadline", "milliseconds", 1,
     [](EngineLimits& l, unsigned long v) { l.dispatcher.deadline = std::chrono::milliseconds(v); }},
    {"vrxWaitingRequests", "number", 1, [](EngineLimits& l, unsigned long v) { l.dispatcher.waiting = v; }},
    {"vrxAnswerRate", "octets a second, 0 for no bound", 0,
     [](EngineLimits& l, unsigned long v) { l.dispatcher.answerRate = v; }, MAX_RATE},
    {"vrxTcpConnections", "number", 1, [](EngineLimits& l, unsigned long v) { l.streams.connections = v; }},
    {"vrxTcpIdle", "seconds", 1, [](EngineLimits& l, unsigned long v) { l.streams.idle = std::chrono::seconds(v); }},
    {"vrxNotificationLog", "number, 0 for none", 0,
     [](EngineLimits& l, unsigned long v) { l.notifications.logged = v; }},
    {"vrxNotificationSize", "octets", SHORTEST_MAX_MESSAGE,
     [](EngineLimits& l, unsigned long v) { l.notifications.messageSize = v; }, LONGEST_MESSAGE},
    {"vrxStormChanges", "number, 0 for none", 0,
     [](EngineLimits& l, unsigned long v) { l.notifications.storms.changes = static_cast<unsigned int>(v); },
     MAX_CHANGES},
    {"vrxStormWindow", "seconds", 1,
     [](EngineLimits& l, unsigned long v) { l.notifications.storms.window = std::chrono::seconds(v); }},
    {"vrxStormInterval", "seconds", 1,
     [](EngineLimits& l, unsigned long v) { l.notifications.storms.interval = std::chrono::seconds(v); }},
    {"vrxHeartbeatTrap", "seconds, 0 for none", 0,
     [](EngineLimits& l, unsigned long v) { l.notifications.heartbeats = std::chrono::seconds(v); }},
    {"vrxHeartbeat", "seconds, 0 for none", 0,
     [](EngineLimits& l, unsigned long v) { l.status.heartbeat = std::chrono::seconds(v); }},
    {"vrxMetricsAlarms", "number, 0 for none", 0, [](EngineLimits& l, unsigned long v) { l.status.alarms = v; }},
};

struct TextWord {
    const char* word;
    const char* help;
    void (*set)(EngineLimits& limits, const std::string& text, const std::string& root);  // std::invalid_argument
};

// The words of a line; one in quotes may have blanks.
std::vector<std::string> wordsOf(std::string line) {
    std::vector<std::string> words;
    std::string word(SNMP_MAXBUF, '\0');
    for (char* rest = line.data(); rest != nullptr && *rest != '\0';) {
        rest = copy_nword(rest, word.data(), static_cast<int>(word.size()));
        words.emplace_back(word.c_str());
    }
    return words;
}

std::string belowRoot(const std::string& path, const std::string& root) {
    return path.empty() || path.front() == '/' ? path : root + "/" + path;
}

void setMetrics(EngineLimits& limits, const std::string& line, const std::string& root) {
    constexpr const char* WORD = "vrxMetrics";
    std::string address;
    TlsFiles files;
    OptionParser options;
    options.removeHelp();
    options.add("ADDRESS", address).required();
    options.add("--certificate", files.certificate);
    options.add("--key", files.key);
    options.add("--clients", files.clients);
    const auto fault = [](const std::string& text) { return std::invalid_argument(std::string(WORD) + ": " + text); };
    try {
        options.parse(wordsOf(line));
    } catch (const std::invalid_argument& error) {
        throw fault(error.what());
    }
    StatusSettings& status = limits.status;
    if (files.certificate.empty() && files.key.empty() && files.clients.empty()) {
        status.metrics = parseLocalAddress(address, root, WORD);
        status.tls.reset();
        return;
    }
    if (files.certificate.empty() || files.key.empty() || files.clients.empty()) {
        throw fault("TLS needs --certificate, --key and --clients");
    }
    const LocalAddress server = parseServerAddress(address, root, WORD);
    if (server.kind != LocalAddress::Kind::Tcp) throw fault("TLS is for tcp: addresses");
    for (std::string* file : {&files.certificate, &files.key, &files.clients}) *file = belowRoot(*file, root);
    try {
        status.tls = readTlsCredentials(files);
    } catch (const std::invalid_argument& error) {
        throw fault(error.what());
    }
    status.metrics = server;
}

const TextWord TEXT_WORDS[] = {
    {"vrxMetrics", "unix:PATH, tcp:127.0.0.1:PORT or tcp:ADDRESS:PORT --certificate FILE --key FILE --clients FILE",
     setMetrics},
};

EngineLimits* g_limits = nullptr;
std::string& root() {
    static std::string root;
    return root;
}

void parseWord(const char* token, char* line) {
    for (const Word& word : WORDS) {
        if (strcasecmp(word.word, token) != 0) continue;
        char* end = nullptr;
        errno = 0;
        const unsigned long value = std::strtoul(line, &end, 10);
        if (end == line || *end != '\0' || errno != 0 || *line == '-' || value < word.min || value > word.max) {
            netsnmp_config_error("%s: not a number from %lu to %lu: %s", word.word, word.min, word.max, line);
            return;
        }
        word.set(*g_limits, value);
    }
}

void parseTextWord(const char* token, char* line) {
    for (const TextWord& word : TEXT_WORDS) {
        if (strcasecmp(word.word, token) != 0) continue;
        try {
            word.set(*g_limits, line, root());
        } catch (const std::exception& fault) {  // the engine is C: nothing may leave
            netsnmp_config_error("%s", fault.what());
        }
    }
}

}  // namespace

void registerAgentDirectives(EngineLimits& limits, const std::string& ofRoot) {
    g_limits = &limits;
    root() = ofRoot;
    for (const TextWord& word : TEXT_WORDS) {
        snmpd_register_config_handler(word.word, parseTextWord, nullptr, word.help);
    }
    for (const Word& word : WORDS) snmpd_register_config_handler(word.word, parseWord, nullptr, word.help);
}

}  // namespace vrx
