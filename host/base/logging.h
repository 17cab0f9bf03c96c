// The process's log: lines of modules (platform/vrx_debug_kit.h), of the host's own code, of code that uses spdlog's
// default logger and of ACE, all to stderr and, where one is configured, to a file.
//
//     2026-11-21T09:14:03.127+0100 warning [agent] the backend is not reachable
//     2026-11-21T09:14:03.130+0100 error [module 4] 0x1002E OnQueryTable:123 failed to get all trap.
//
// One event, one line: control characters in a text are shown as escapes, line ends within it as "\n". Where stderr is
// the journal (JOURNAL_STREAM names it) lines go there with their priority in front and without the time, which the
// journal has itself: "<4>[agent] the backend is not reachable".
//
// Each line belongs to a subsystem, which has a level of its own: those of modules to "module", those of code that
// names none, or none that is known, to "others". Without startLogging lines of level Info and above go to stderr,
// ACE's by ACE itself.
//
// Threads: any, at any time, startLogging included.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "host/log_lines/log_row.h"

namespace vrx {

// "trace", "debug", "info", "warn", "error" or "off". Throws std::invalid_argument with a text that says so.
LogLevel logLevelOf(const std::string& text);

struct LogOptions {
    LogLevel threshold = LogLevel::Info;            // lines below it are dropped; Off: all
    std::map<std::string, LogLevel> ofSubsystem{};  // the same for one of them

    // The level that a module's lines of each kind have. Off: they are dropped.
    LogLevel trace = LogLevel::Trace;
    LogLevel debug = LogLevel::Debug;
    LogLevel warn = LogLevel::Warn;
    LogLevel error = LogLevel::Error;

    std::string file;  // path of a file that gets the lines too; empty: none
};

// From section LOG of the device configuration: LEVEL (the threshold), LEVEL_OF_AGENT and so on (of that subsystem),
// LEVEL_TRACE, LEVEL_DEBUG, LEVEL_WARN and LEVEL_ERROR as "trace", "debug", "info", "warn", "error" or "off", and FILE
// (relative to the product root). A missing key leaves the default. Throws std::invalid_argument with a text that names
// the key.
LogOptions logOptionsFromDevice();

// Puts the options in force; a file is opened anew. Throws std::runtime_error when it cannot be written, and leaves
// everything as it was. The first call takes over spdlog's default logger and ACE's output: before threads start.
void startLogging(const LogOptions& options);

// Opens the log file anew, as its name may stand for another one now. One that cannot be opened is a log line, and the
// former one goes on.
void reopenLogFile();

// The subsystems by name with their levels.
std::vector<std::pair<std::string, LogLevel>> logLevels();

// Another level for one subsystem, or for "all", until the next startLogging. Throws std::invalid_argument for a
// subsystem that there is not.
void setLogLevel(const std::string& subsystem, LogLevel level);

// While it lives, this thread writes of each place in a module that logs at most so many lines; at its end a line for
// each such place tells how many were left out. For one rendering: a module promises a line for every placeholder that
// it does not know, and a definition may have thousands. Within another one it does nothing.
//
//     const ModuleLineLimit limit(10);
//     handler.constructAlarmTrapVb(record, bindings);
class ModuleLineLimit {
public:
    explicit ModuleLineLimit(std::uint64_t lines);  // 0: none, and nothing is told of them at the end
    ~ModuleLineLimit();
    ModuleLineLimit(const ModuleLineLimit&) = delete;
    ModuleLineLimit& operator=(const ModuleLineLimit&) = delete;

private:
    const bool m_isOutermost;
};

}  // namespace vrx
