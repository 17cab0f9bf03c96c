// Moments as vrxctl prints them.
//
// Threads: any.
#pragma once

#include <chrono>
#include <ctime>
#include <string>

namespace vrx {

// Local time, "2026-11-22 09:14:03"; "@SECONDS" for one that has no date: others give us any number.
std::string localTime(std::time_t seconds);

// The same with milliseconds, "2026-11-22 09:14:03.120".
std::string localTime(std::chrono::system_clock::time_point time);

// RFC 3339 in UTC, "2026-11-22T08:14:03Z" and "2026-11-22T08:14:03.120Z".
std::string utcTime(std::time_t seconds);
std::string utcTime(std::chrono::system_clock::time_point time);

}  // namespace vrx
