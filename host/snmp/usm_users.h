// The SNMPv3 users of the engine, for those who may not ask the engine itself. The library's list has users of other
// engines, too: those that informs are sent as.
//
// Threads: refresh() on the agent thread, exists() on any.
#pragma once

#include <set>
#include <string>

#include "host/base/mutex.h"

namespace vrx {

// The ID of this process's engine, as its bytes. Agent thread.
std::string ownEngineId();

class UsmUsers {
public:
    void refresh();
    bool exists(const std::string& user) const;

private:
    mutable Mutex m_mutex;
    std::set<std::string> m_users GUARDED_BY(m_mutex);
};

}  // namespace vrx
