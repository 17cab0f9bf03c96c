#include "host/agent/informs/inform_users.h"

#include <algorithm>
#include <cstring>

#include "host/snmp/net_snmp.h"
#include "host/snmp/usm_users.h"

namespace vrx {

namespace {

constexpr const char* OTHER_KEYS = "the engine of the receiver has a user of that name with other keys here";

constexpr std::size_t NO_PROTOCOL_LENGTH = 10;  // 1.3.6.1.6.3.10.1.1.1 and 1.3.6.1.6.3.10.1.2.1

usmUser* find(const std::string& engine, const std::string& name) {
    for (usmUser* user = usm_get_userList(); user != nullptr; user = user->next) {
        if (user->secName != nullptr && name == user->secName && user->engineIDLen == engine.size() &&
            std::memcmp(user->engineID, engine.data(), engine.size()) == 0) {
            return user;
        }
    }
    return nullptr;
}

// Makes keys for the engine and puts the user into the list.
bool add(const std::string& engine, const InformPeer& peer) {
    std::string id = engine;
    std::string name = peer.name;
    netsnmp_session wanted;  // the library copies what it points to
    snmp_sess_init(&wanted);
    wanted.version = SNMP_VERSION_3;
    wanted.securityModel = USM_SEC_MODEL_NUMBER;
    wanted.securityEngineID = reinterpret_cast<u_char*>(id.data());
    wanted.securityEngineIDLen = id.size();
    wanted.securityName = name.data();
    wanted.securityNameLen = name.size();
    wanted.securityAuthProto = usmNoAuthProtocol;
    wanted.securityPrivProto = usmNoPrivProtocol;
    wanted.securityAuthProtoLen = wanted.securityPrivProtoLen = NO_PROTOCOL_LENGTH;
    if (peer.level >= SNMP_SEC_LEVEL_AUTHNOPRIV) {
        wanted.securityAuthProto = sc_get_auth_oid(peer.authentication, &wanted.securityAuthProtoLen);
        std::copy(peer.authenticationKey.begin(), peer.authenticationKey.end(), wanted.securityAuthKey);
        wanted.securityAuthKeyLen = peer.authenticationKey.size();
    }
    if (peer.level >= SNMP_SEC_LEVEL_AUTHPRIV) {
        wanted.securityPrivProto = sc_get_priv_oid(peer.privacy, &wanted.securityPrivProtoLen);
        std::copy(peer.privacyKey.begin(), peer.privacyKey.end(), wanted.securityPrivKey);
        wanted.securityPrivKeyLen = peer.privacyKey.size();
    }
    return usm_create_user_from_session(&wanted) == SNMPERR_SUCCESS && find(engine, peer.name) != nullptr;
}

void take(const std::string& engine, const std::string& name) {
    usmUser* user = find(engine, name);
    if (user == nullptr) return;
    usm_remove_user(user);
    usm_free_user(user);
}

}  // namespace

Expected<InformUsers::Hold> InformUsers::acquire(const std::string& engine, const InformPeer& peer) {
    // Keys for our own engine would be those of a manager, who may ask and set.
    if (engine == ownEngineId()) return Unexpected{"the receiver has the engine ID of this agent"};
    const bool present = find(engine, peer.name) != nullptr;
    const bool needsKeys = peer.level >= SNMP_SEC_LEVEL_AUTHNOPRIV;
    const Key key(engine, peer.name);
    const auto held = m_held.find(key);
    if (Hold hold = held != m_held.end() ? held->second.lock() : nullptr) {
        if (hold->level != peer.level || !hold->hasKeysOf(peer)) return Unexpected{OTHER_KEYS};
        if (present || add(engine, peer)) return hold;
        return Unexpected{"its user cannot be made"};
    }
    if (needsKeys && peer.authenticationKey.empty()) {
        if (present)
            return Hold(std::make_shared<const InformPeer>(peer));  // the configuration's: not ours to take away
        return Unexpected{"no createUser line has a user of that name for the receiver's engine"};
    }
    if (present) return Unexpected{OTHER_KEYS};
    const auto removing = [key](const InformPeer* gone) {
        take(key.first, key.second);
        delete gone;
    };
    Hold hold(new InformPeer(peer), removing);
    m_held[key] = hold;
    if (add(engine, peer)) return hold;
    return Unexpected{"its user cannot be made"};
}

}  // namespace vrx
