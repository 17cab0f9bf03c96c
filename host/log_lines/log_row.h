// What the host writes to its log: each line is a row, with its cause and what to do about it. docs/log-lines.md is
// made of the rows, in the order of page.cpp.
//
//     LOG_LINE(BACKEND_AWAY, "transport", Warn, "the management backend at {} is not reachable: {}",
//              "it does not answer", "see the backend's log");
//     logLine<lines::BACKEND_AWAY>(address, reason);  // host/base/log_line.h
//
// Each {} of the text stands for a value; a row with another brace, or of an unknown subsystem, does not compile.
#pragma once

#include <cstddef>
#include <iterator>
#include <string_view>

namespace vrx {

enum class LogLevel { Trace, Debug, Info, Warn, Error, Off };  // the order of spdlog's levels that are used

constexpr const char* textOf(LogLevel level) {
    constexpr const char* TEXTS[] = {"trace", "debug", "info", "warn", "error", "off"};
    return TEXTS[static_cast<int>(level)];
}

// What has a level of its own, by name. "others" stands for all that is not here.
inline constexpr const char* LOG_SUBSYSTEMS[] = {"ace",          "agent",        "backend",  "config",
                                                 "connectivity", "destinations", "events",   "module",
                                                 "others",       "service",      "transport"};
inline constexpr std::size_t LOG_SUBSYSTEM_COUNT = std::size(LOG_SUBSYSTEMS);

// Its place in the list, or LOG_SUBSYSTEM_COUNT.
constexpr std::size_t placeOfSubsystem(std::string_view name) {
    std::size_t place = 0;
    while (place < LOG_SUBSYSTEM_COUNT && name != LOG_SUBSYSTEMS[place]) ++place;
    return place;
}

struct LogRow {
    const char* subsystem;
    LogLevel level;
    std::string_view text;
    const char* cause;  // Markdown, as the page has it
    const char* remedy;
};

// How many values the text takes; -1: it has a brace that is none of a {}.
constexpr int logValuesOf(std::string_view text) {
    int values = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '{' && text[i] != '}') continue;
        if (text.substr(i, 2) != "{}") return -1;
        ++values;
        ++i;
    }
    return values;
}

}  // namespace vrx

#ifndef LOG_LINE  // page.cpp has another one
#define LOG_LINE(NAME, SUBSYSTEM, LEVEL, TEXT, CAUSE, REMEDY)                                                      \
    inline constexpr LogRow NAME{SUBSYSTEM, LogLevel::LEVEL, TEXT, CAUSE, REMEDY};                                 \
    static_assert(placeOfSubsystem((NAME).subsystem) < LOG_SUBSYSTEM_COUNT, "the subsystem is in LOG_SUBSYSTEMS"); \
    static_assert(logValuesOf((NAME).text) >= 0, "the braces of a text are {}")
#endif
