// Log lines of the agent itself (modules log through their own loggers). Any thread.
#pragma once

#include <initializer_list>
#include <string>
#include <string_view>

namespace vrx {

namespace agent_log {

void error(const std::string& text);
void warn(const std::string& text);
void info(const std::string& text);
void debug(const std::string& text);

// An error, one line of all the pieces; without memory for the line they go to standard error as they are. For places
// that nothing may leave.
void fault(std::initializer_list<std::string_view> pieces) noexcept;

}  // namespace agent_log

}  // namespace vrx
