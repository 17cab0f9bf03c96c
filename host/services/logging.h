// The process's log: lines of modules (platform/vrx_debug_kit.h), of the host's own code, of code that uses spdlog's
// default logger and of ACE, all to stderr and, where one is configured, to a file.
//
//     2026-11-21T09:14:03.127+0100 warning [agent] the backend is not reachable
//     2026-11-21T09:14:03.130+0100 error [module 4] 0x1002E OnQueryTable:123 failed to get all trap.
//
// One event, one line: control characters in a text are shown as escapes. Without startLogging lines of level Info and
// above go to stderr, ACE's by ACE itself.
//
// Threads: any, at any time, startLogging included.
#pragma once

#include <string>

enum class LogLevel { Trace, Debug, Info, Warn, Error, Off };  // the order of spdlog's levels that are used

struct LogOptions {
    LogLevel threshold = LogLevel::Info;  // lines below it are dropped; Off: all

    // The level that a module's lines of each kind have. Off: they are dropped.
    LogLevel trace = LogLevel::Trace;
    LogLevel debug = LogLevel::Debug;
    LogLevel warn = LogLevel::Warn;
    LogLevel error = LogLevel::Error;

    std::string file;  // path of a file that gets the lines too; empty: none
};

// From section LOG of the device configuration: LEVEL (the threshold), LEVEL_TRACE, LEVEL_DEBUG, LEVEL_WARN and
// LEVEL_ERROR as "trace", "debug", "info", "warn", "error" or "off", and FILE (relative to the product root). A missing
// key leaves the default. Throws std::invalid_argument with a text that names the key.
LogOptions logOptionsFromDevice();

// Puts the options in force; a file is opened anew. Throws std::runtime_error when it cannot be written, and leaves
// everything as it was. The first call takes over spdlog's default logger and ACE's output: before threads start.
void startLogging(const LogOptions& options);

// Writes a line of the host's own code. `subsystem` is one word.
void logLine(const char* subsystem, LogLevel level, const std::string& text);

// Whether a line of that level would be written: for texts that are costly to make.
bool isLogged(LogLevel level);
