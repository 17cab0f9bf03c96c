#include "host/agent/settings/agent_directives.h"

#include <strings.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <stdexcept>

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

const TextWord TEXT_WORDS[] = {
    {"vrxMetrics", "unix:PATH or tcp:127.0.0.1:PORT",
     [](EngineLimits& l, const std::string& text, const std::string& root) {
         l.status.metrics = parseLocalAddress(text, root, "vrxMetrics");
     }},
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
