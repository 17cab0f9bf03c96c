#include "host/agent/assembly/agent.h"

#include <iterator>

#include "host/agent/tamrel/destination_rules.h"
#include "host/agent/tamrel/tamrel_mibs.h"
#include "host/destinations/trap_api.h"
#include "host/snmp/net_snmp.h"
#include "host/transport/backend_protocol.h"

namespace vrx {

Agent::Agent(AgentLoop& loop, const std::string& root, const std::vector<std::string>& modules)
    : m_loop(loop),
      m_modules(modules),
      m_engine(root, root + "/state", {std::begin(TAMREL_MIBS), std::end(TAMREL_MIBS)}),
      m_loader(root + "/mibs") {
    registerDestinationRules();
    for (const std::string& module : modules) m_loader.load(module);
    std::vector<ManagedObject*> objects;
    for (const LoadedObject& loaded : m_loader.objects()) {
        m_objects.push_back(
            std::make_unique<ManagedObject>(*loaded.mib, *loaded.handler, m_loop, m_engine.limits().snapshots));
        objects.push_back(m_objects.back().get());
    }
    m_dispatcher = std::make_unique<RequestDispatcher>(m_loop, objects, m_engine.limits().dispatcher);
    m_dispatcher->onSet = [this] { m_users.refresh(); };  // a manager may have created users since
    setTrapUserCheck([this](const std::string& user) { return m_users.exists(user); });
    m_users.refresh();
    for (ManagedObject* object : objects) {
        m_registrations.push_back(std::make_unique<ObjectRegistration>(*object, m_dispatcher->transactions()));
    }
}

// In the reverse order of making, but that the sessions, which know the dispatcher, close first.
Agent::~Agent() {
    setTrapUserCheck({});
    m_engine.closeListeners();
    m_registrations.clear();
    m_dispatcher.reset();
    m_objects.clear();
}

void Agent::listen(const std::vector<std::string>& addresses) {
    m_engine.listen(addresses, *m_dispatcher);
}

void Agent::markAllChanged() {
    for (const auto& object : m_objects) object->snapshots().markChanged();
}

void Agent::markEventsChanged() {
    for (const auto& object : m_objects) object->snapshots().markRowsChanged();
}

void Agent::noteEvent(const AlarmEvent& event) {
    for (ManagedObject* table : m_alarmTables) table->snapshots().eventRows().add(event.sequence, event.serial);
}

std::vector<ManagedObject*> Agent::alarmTables() const {
    const unsigned long long activeAlarms = BackendCommands::fromDevice().getCurrentAlarm;
    std::vector<ManagedObject*> tables;
    for (const auto& object : m_objects) {
        if (object->reader().asks(activeAlarms)) tables.push_back(object.get());
    }
    return tables;
}

void Agent::setAlarmFeedLive(const std::function<bool()>& told) {
    m_alarmTables = alarmTables();
    for (ManagedObject* table : m_alarmTables) table->snapshots().setChangeFeedLive(told);
}

void Agent::setAlarmsObstacle(const std::function<std::optional<std::string>()>& obstacle) {
    for (ManagedObject* table : alarmTables()) table->reader().setObstacle(obstacle);
}

void Agent::reload() {
    m_engine.reload();
    for (const auto& object : m_objects) object->snapshots().setLimits(m_engine.limits().snapshots);
    m_dispatcher->setLimits(m_engine.limits().dispatcher);
    m_users.refresh();
}

std::string Agent::addUser(const UserKeys& user) {
    std::string fault = m_engine.addUser(user);
    m_users.refresh();
    return fault;
}

std::string Agent::removeUser(const std::string& name) {
    std::string fault = m_engine.removeUser(name);
    m_users.refresh();
    return fault;
}

void Agent::reloadMibs() {
    m_loader.reloadMibs();
    for (std::size_t i = 0; i < m_objects.size(); ++i) m_objects[i]->setShape(*m_loader.objects()[i].mib);
}

std::vector<ObjectWorker*> Agent::workers() {
    std::vector<ObjectWorker*> workers;
    for (const auto& object : m_objects) workers.push_back(&object->worker());
    return workers;
}

bool Agent::stop(std::chrono::milliseconds patience) {
    const auto end = std::chrono::steady_clock::now() + patience;
    for (const auto& object : m_objects) object->worker().requestStop();
    bool ended = true;
    for (const auto& object : m_objects) ended = object->worker().waitStopped(end) && ended;
    m_loop.drain();  // what has come meanwhile is answered
    return ended;
}

}  // namespace vrx
