// The agent without its process: engine, modules, the objects with their workers, and the dispatcher, put together in
// order.
//
//     AgentLoop loop;
//     Agent agent(loop, root, {"/usr/lib/vrx/libsnmp_tamrel.so"});
//     agent.listen({});
//     loop.run();
//     agent.stop(std::chrono::seconds(1));
//
// Threads: one thread, the agent thread, except where it says otherwise. One agent a process.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/agent/engine/snmp_engine.h"
#include "host/agent/loop/agent_loop.h"
#include "host/agent/objects/managed_object.h"
#include "host/agent/objects/module_loader.h"
#include "host/agent/requests/object_registration.h"
#include "host/agent/requests/request_dispatcher.h"
#include "host/snmp/usm_users.h"
#include "host/transport/alarm_event.h"

namespace vrx {

class Agent {
public:
    // Reads the engine's configuration and loads the modules; no request comes yet. The loop outlives the agent.
    // REQUIRES: the host's services are ready (configuration, logging, identity). Throws EngineError, ModuleError.
    Agent(AgentLoop& loop, const std::string& root, const std::vector<std::string>& modules);
    ~Agent();
    Agent(const Agent&) = delete;
    Agent& operator=(const Agent&) = delete;

    // From here on requests come; see SnmpEngine::listen.
    void listen(const std::vector<std::string>& addresses);

    // The objects' values have changed, or may have: what was read before is stale. Any thread.
    void markAllChanged();

    // The same by an alarm's event, which noteEvent() has told before: the alarm's row and no other has changed. Any
    // thread, after setAlarmFeedLive().
    void noteEvent(const AlarmEvent& event);
    void markEventsChanged();

    // Asked whether markAllChanged() tells every change of the active alarms soon (see
    // SnapshotStore::setChangeFeedLive). Throws std::invalid_argument for command codes that are faulty.
    void setAlarmFeedLive(const std::function<bool()>& told);

    // Asked before the active alarms are read: a text is why they cannot be (see ObjectReader::setObstacle). Before
    // listen(). Throws as the one above.
    void setAlarmsObstacle(const std::function<std::optional<std::string>()>& obstacle);

    // Reads the engine's configuration again.
    void reload();

    // Reads the MIB files again. REQUIRES: all workers are held. Throws ModuleError, and nothing has changed.
    void reloadMibs();

    // As the engine's operations of these names.
    [[nodiscard]] std::string addUser(const UserKeys& user);
    [[nodiscard]] std::string removeUser(const std::string& name);

    const SnmpEngine& engine() const { return m_engine; }
    const RequestDispatcher& dispatcher() const { return *m_dispatcher; }
    const std::vector<std::unique_ptr<ManagedObject>>& objects() const { return m_objects; }
    const std::vector<std::string>& modules() const { return m_modules; }  // paths
    const std::vector<std::string>& mibFiles() const { return m_loader.mibFiles(); }
    std::vector<ObjectWorker*> workers();

    // Takes no request any more, answers those whose values have come, ends the workers. False when a handler has not
    // come back within `patience`: nothing may be destroyed then.
    [[nodiscard]] bool stop(std::chrono::milliseconds patience);

private:
    // Objects whose rows are the backend's active alarms.
    std::vector<ManagedObject*> alarmTables() const;

    AgentLoop& m_loop;
    const std::vector<std::string> m_modules;
    SnmpEngine m_engine;
    UsmUsers m_users;
    ModuleLoader m_loader;
    std::vector<std::unique_ptr<ManagedObject>> m_objects;
    std::vector<ManagedObject*> m_alarmTables;
    std::unique_ptr<RequestDispatcher> m_dispatcher;
    std::vector<std::unique_ptr<ObjectRegistration>> m_registrations;
};

}  // namespace vrx
