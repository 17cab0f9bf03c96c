// Log lines of the agent itself (modules log through their own loggers). Any thread.
#pragma once

#include <string>

namespace agent_log {

void error(const std::string& text);
void warn(const std::string& text);
void info(const std::string& text);
void debug(const std::string& text);

}  // namespace agent_log
