// SNMPv3 users localized for the engines of receivers (RFC 3414): keys for one of those engines, made when its ID
// is known. The library keeps all users in one list, by engine and name; those made here are in it while a sender
// holds them, and never in a file.
//
// Threads: agent thread.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <utility>

#include "host/agent/informs/inform_destination.h"
#include "host/base/expected.h"

namespace vrx {

class InformUsers {
public:
    // While it lives, the user is in the library's list.
    using Hold = std::shared_ptr<const InformPeer>;

    // The peer's user for the engine (its ID as bytes); cheap to call again while it is held. There can be none where
    // the engine is this agent's own, the list has another user of that name, or the peer has no keys and the list no
    // user.
    Expected<Hold> acquire(const std::string& engine, const InformPeer& peer);

private:
    using Key = std::pair<std::string, std::string>;  // engine, name
    std::map<Key, std::weak_ptr<const InformPeer>> m_held;
};

}  // namespace vrx
