// vrxctl user: SNMPv3 users of the agent, with keys that are made here. A passphrase is shown once and kept nowhere:
// the agent's state has keys that are made from it and good for this agent alone.
#pragma once

#include <ostream>
#include <string>

enum class UserAccess { ReadOnly, ReadWrite };

// Makes the user and lets it read, or read and write, with authentication and encryption: one line in
// etc/vrx-agentd.conf. A running agent knows it at once, another one when it starts. Writes the passphrases and how to
// use them. Throws std::runtime_error.
void addUser(std::ostream& out, const std::string& name, UserAccess access);

// Takes the user, its keys and its line away. Throws AgentAwayError without a running agent, which holds the keys.
void removeUser(const std::string& name);
