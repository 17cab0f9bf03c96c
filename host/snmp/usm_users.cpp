#include "host/snmp/usm_users.h"

#include <cstring>
#include <utility>

#include "host/snmp/limits.h"
#include "host/snmp/net_snmp.h"

namespace vrx {

std::string ownEngineId() {
    std::string id(LONGEST_ENGINE_ID, '\0');
    id.resize(snmpv3_get_engineID(reinterpret_cast<u_char*>(id.data()), id.size()));
    return id;
}

void UsmUsers::refresh() {
    const std::string own = ownEngineId();
    std::set<std::string> users;
    for (const usmUser* user = usm_get_userList(); user != nullptr; user = user->next) {
        const bool isOurs = user->engineIDLen == own.size() && std::memcmp(user->engineID, own.data(), own.size()) == 0;
        if (isOurs && user->secName != nullptr) users.emplace(user->secName);
    }
    const MutexLock lock(m_mutex);
    m_users = std::move(users);
}

bool UsmUsers::exists(const std::string& user) const {
    const MutexLock lock(m_mutex);
    return m_users.count(user) > 0;
}

}  // namespace vrx
