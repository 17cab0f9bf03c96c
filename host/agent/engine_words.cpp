#include "host/agent/engine_words.h"

#include <strings.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>

#include "host/agent/net_snmp.h"

namespace {

struct tWord {
    const char* word;
    const char* help;
    unsigned long min;
    void (*set)(EngineLimits& limits, unsigned long value);
};

constexpr unsigned long MAX_VALUE = 3'600'000;  // an hour, in milliseconds

const tWord WORDS[] = {
    {"vrxWalkSnapshotAge", "milliseconds", 0,
     [](EngineLimits& l, unsigned long v) { l.snapshots.walkAge = std::chrono::milliseconds(v); }},
    {"vrxFreshSnapshotAge", "milliseconds", 0,
     [](EngineLimits& l, unsigned long v) { l.snapshots.freshAge = std::chrono::milliseconds(v); }},
    {"vrxSnapshotsKept", "number", 1, [](EngineLimits& l, unsigned long v) { l.snapshots.kept = v; }},
    {"vrxRequestDeadline", "milliseconds", 1,
     [](EngineLimits& l, unsigned long v) { l.desk.deadline = std::chrono::milliseconds(v); }},
    {"vrxWaitingRequests", "number", 1, [](EngineLimits& l, unsigned long v) { l.desk.waiting = v; }},
};

EngineLimits* g_limits = nullptr;

void parseWord(const char* token, char* line) {
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

}  // namespace

void registerEngineWords(EngineLimits& limits) {
    g_limits = &limits;
    for (const tWord& word : WORDS) snmpd_register_config_handler(word.word, parseWord, nullptr, word.help);
}
