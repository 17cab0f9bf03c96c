// vrxctl user: SNMPv3 users of the agent, with new passphrases. A passphrase is shown once and stored nowhere:
// the agent's state has the keys localized from it (RFC 3414), for this agent alone.
#pragma once

#include <ostream>
#include <string>

#include "host/engine_files/user_protocols.h"
#include "tools/command.h"

namespace vrx {

enum class UserAccess { ReadOnly, ReadWrite };

// Of user_protocols.h.
struct UserProtocols {
    std::string authentication = AUTHENTICATION_PROTOCOLS.front();
    std::string privacy = PRIVACY_PROTOCOLS.front();
};

// Makes the user and lets it read, or read and write, with authentication and encryption: one line in
// etc/vrx-agentd.conf. A running agent knows it at once, another one when it starts. Writes the passphrases and how to
// use them. Throws std::runtime_error; then there is no such user, and no file is replaced that cannot be read.
void addUser(std::ostream& out, const std::string& name, UserAccess access, const UserProtocols& protocols = {});

// Takes the user, its keys and its line away. Throws AgentAwayError without a running agent, which holds the keys.
void removeUser(const std::string& name);

// One of the subcommands "add" and "remove".
struct UserCommand : Command {
    void define(OptionParser& command) override;
    int run() override;

    OptionParser* add = nullptr;
    std::string name;
    bool readOnly = false;
    UserProtocols protocols;
};

}  // namespace vrx
