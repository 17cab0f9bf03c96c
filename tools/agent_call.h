// Requests to a running agent through its control socket, <root>/state/agent.sock.
#pragma once

#include <chrono>
#include <stdexcept>
#include <string>

namespace vrx {

// The agent has refused, or its answer did not come; what() says why.
class AgentCallError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// No agent runs for this product root, or its socket may not be opened.
class AgentAwayError : public AgentCallError {
public:
    using AgentCallError::AgentCallError;
};

// `path` may hold a query. Gives the answer's body. Throws AgentCallError, also when there is none after `patience`.
std::string callAgent(const std::string& method, const std::string& path, const std::string& body = {},
                      std::chrono::seconds patience = std::chrono::seconds(120));  // a reload checks all files first

}  // namespace vrx
