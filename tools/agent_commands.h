// vrxctl status and reload: what is asked of a running agent.
#pragma once

#include <ostream>

// As tables, for people. Throws AgentCallError.
void printStatus(std::ostream& out);

// As the agent gives it, for programs. Throws AgentCallError.
void printStatusAsJson(std::ostream& out);

// False when the agent did not take its configuration over; what is at fault is written to `faults` then, one line
// each. Throws AgentCallError.
bool reloadAgent(std::ostream& faults);
