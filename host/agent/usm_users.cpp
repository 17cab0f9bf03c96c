#include "host/agent/usm_users.h"

#include <utility>

#include "host/agent/net_snmp.h"

void UsmUsers::refresh() {
    std::set<std::string> users;
    for (const usmUser* user = usm_get_userList(); user != nullptr; user = user->next) {
        if (user->secName != nullptr) users.emplace(user->secName);
    }
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_users = std::move(users);
}

bool UsmUsers::exists(const std::string& user) const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_users.count(user) > 0;
}
