// Writes a row of host/log_lines/ with its values:
//
//     logLine<lines::BACKEND_AWAY>(address, reason);
//
// A call with more or fewer values than the row's text has places, or with one that {fmt} cannot format, does not
// compile. Where the level of the row's subsystem leaves it out nothing is formatted. Throws std::bad_alloc.
//
// Threads: any.
#pragma once

#include <fmt/core.h>

#include <string_view>

#include "host/log_lines/log_row.h"

namespace vrx {

// Formats out of line: this header is in most sources.
void writeLogLine(const char* subsystem, LogLevel level, std::string_view text, fmt::format_args values);
void writeFaultLine(const char* subsystem, LogLevel level, std::string_view text, fmt::format_args values) noexcept;

template <const LogRow& ROW, typename... Values>
void logLine(const Values&... values) {
    static_assert(logValuesOf(ROW.text) == sizeof...(Values), "one value for each {} of the row's text");
    writeLogLine(ROW.subsystem, ROW.level, ROW.text, fmt::make_format_args(values...));
}

// For places that nothing may leave: without memory for the line its text goes to standard error as it is, without time
// and level.
template <const LogRow& ROW, typename... Values>
void logFault(const Values&... values) noexcept {
    static_assert(logValuesOf(ROW.text) == sizeof...(Values), "one value for each {} of the row's text");
    writeFaultLine(ROW.subsystem, ROW.level, ROW.text, fmt::make_format_args(values...));
}

}  // namespace vrx
