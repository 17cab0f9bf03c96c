// A line of the followed notification log as a syslog message, RFC 5424:
//
//     <131>1 2026-11-22T09:14:03.120Z array7 vrx - raise [vrx@99871 number="4711" event="97" ... title="Disk Failed"
//     ...] text
//
// Facility local0; the severity is that of the alarm's level, notice when it has ended.
//
// Threads: any.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>

namespace vrx {

// Whether a message may name its origin so.
bool isSyslogHost(const std::string& host);

// Without its end. `fields` are those of the JSON line, in UTF-8: they are the message's parameters, and of the
// bindings the alarm's texts.
std::string syslogLine(const std::string& host, const std::string& type, const std::string& time,
                       const nlohmann::json& fields);

}  // namespace vrx
