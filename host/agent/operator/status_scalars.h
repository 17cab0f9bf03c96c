// The agent's own objects, VRX-AGENT-MIB: how many alarms are active, when that changed last, how the backend and the
// traps do. A manager that polls these few need not walk the alarm table; they are answered from counts that are there,
// without a backend call.
//
// Threads: agent thread.
#pragma once

#include <vector>

struct netsnmp_handler_registration_s;

namespace vrx {

class NotificationService;

class StatusScalars {
public:
    // Registers the objects. `notifications` outlives this. Throws std::runtime_error when the engine refuses them.
    // REQUIRES: it is destroyed before the engine shuts down.
    explicit StatusScalars(const NotificationService& notifications);
    ~StatusScalars();
    StatusScalars(const StatusScalars&) = delete;
    StatusScalars& operator=(const StatusScalars&) = delete;

private:
    void unregister();

    std::vector<netsnmp_handler_registration_s*> m_registrations;  // the engine's, one a group
};

}  // namespace vrx
