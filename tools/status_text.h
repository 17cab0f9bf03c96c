// The agent's status (docs/status.md) as people read it. It may be that of an agent of another version: fields may be
// missing.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace vrx {

using StatusJson = nlohmann::ordered_json;

// Throws AgentCallError when it is no JSON.
StatusJson parsedAnswer(const std::string& text);

// The value at a JSON pointer, "/alarms/active"; null where there is none.
StatusJson statusField(const StatusJson& status, const char* path);

// A value without quotes, "-" for none.
std::string statusText(const StatusJson& value);

// "3 (queue full 2, unresolved 1)" of an object of counts.
std::string countsText(const StatusJson& counts);

// "3 d 4 h", "26 min", "7 s"
std::string durationText(const StatusJson& seconds);

// What needs attention, a short text each.
std::vector<std::string> troublesIn(const StatusJson& status);

}  // namespace vrx
