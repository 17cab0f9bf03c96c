// The SNMPv3 users of the engine, for those who may not ask the engine itself.
//
// Threads: refresh() on the agent thread, exists() on any.
#pragma once

#include <mutex>
#include <set>
#include <string>

class UsmUsers {
public:
    void refresh();
    bool exists(const std::string& user) const;

private:
    mutable std::mutex m_mutex;
    std::set<std::string> m_users;  // guarded by m_mutex
};
