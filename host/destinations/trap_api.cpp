#include "host/destinations/trap_api.h"

#include <memory>
#include <utility>

#include "host/base/fault_line.h"
#include "host/base/log_line.h"
#include "host/base/mutex.h"
#include "host/base/product_root.h"
#include "host/destinations/connectivity.h"
#include "host/destinations/trap_destination_checks.h"
#include "host/destinations/trap_destination_result.h"
#include "host/log_lines/traps.h"
#include "host/snmp/limits.h"
#include "platform/snmp_trap_api.h"
#include "platform/vrx_utility.h"
#include "platform/vrx_xml_config.h"

namespace vrx {

namespace {

constexpr unsigned int DEFAULT_LIMIT = 64;  // destinations

// Never destroyed: other threads may ask until the process ends.
class Service {
public:
    static Service& instance() {
        static Service& service = *new Service;
        return service;
    }

    // The store; null when it cannot be opened.
    std::shared_ptr<TrapDestinationStore> store() {
        const MutexLock lock(m_mutex);
        if (m_store == nullptr) open();
        return m_store;
    }

    void close() {
        const MutexLock lock(m_mutex);
        m_store.reset();
        m_opening.ends();
    }

    void setUserCheck(std::function<bool(const std::string&)> exists) {
        const MutexLock lock(m_mutex);
        m_userExists = std::move(exists);
    }

    bool userExists(const std::string& user) {
        std::function<bool(const std::string&)> exists;
        {
            const MutexLock lock(m_mutex);
            exists = m_userExists;
        }
        return !exists || exists(user);
    }

    void setListener(std::function<void()> listener) {
        const MutexLock lock(m_mutex);
        m_listener = std::move(listener);
        if (m_store != nullptr) m_store->setListener(m_listener);
    }

private:
    void open() REQUIRES(m_mutex) {
        try {
            m_store = std::make_shared<TrapDestinationStore>(stateFolder() + "/trap_destinations.db", limit());
            m_store->setListener(m_listener);
            m_opening.ends([] { logLine<lines::DESTINATION_STORE_OPEN>(); });
        } catch (const std::exception& error) {
            m_opening.begins([&] { logLine<lines::DESTINATION_STORE_NOT_OPEN>(error.what()); });
        }
    }

    static std::size_t limit() {
        std::string text;
        CVRXXmlConfig::instance()->getDeviceItem("TRAP", "DESTINATION_LIMIT", text);
        const unsigned int configured = StrToUint(text);
        return configured != 0 ? configured : DEFAULT_LIMIT;
    }

    Mutex m_mutex;  // the store has its own locks
    std::shared_ptr<TrapDestinationStore> m_store GUARDED_BY(m_mutex);
    FaultLine m_opening;
    std::function<bool(const std::string&)> m_userExists GUARDED_BY(m_mutex);
    std::function<void()> m_listener GUARDED_BY(m_mutex);
};

bool isAcceptable(tTrapDestInfo destination) {
    return CheckIPAddrOK(destination.address) && CheckTrapPortOK(destination) && CheckTrapVerOK(destination) &&
           CheckTrapTypeOK(destination) && CheckTrapUserOK(destination);
}

// A user that is gone may stay in the row that names it: its other values can be changed.
bool hasUserAlready(const TrapDestinationStore& store, const tTrapDestInfo& destination) {
    const std::optional<tTrapDestInfo> row = store.find(destination.index);
    return row && row->version == destination.version && row->user == destination.user;
}

}  // namespace

void setTrapUserCheck(std::function<bool(const std::string& user)> exists) {
    Service::instance().setUserCheck(std::move(exists));
}

bool isTrapUserKnown(const tTrapDestInfo& destination) {
    return destination.version != SNMPV3 || Service::instance().userExists(destination.user);
}

void setTrapDestinationListener(std::function<void()> listener) {
    Service::instance().setListener(std::move(listener));
}

TrapDestinationTransaction::TrapDestinationTransaction() : m_store(Service::instance().store()) {
    if (m_store != nullptr) m_transaction.emplace(*m_store);
}

void TrapDestinationTransaction::leave() {
    if (m_transaction) m_transaction->leave();
}

void TrapDestinationTransaction::enter() {
    if (m_transaction) m_transaction->enter();
}

void TrapDestinationTransaction::assignNext(unsigned int number) {
    if (m_transaction) m_transaction->assignNext(number);
}

int TrapDestinationTransaction::commit() {
    return m_transaction ? m_transaction->commit() : TRAP_DESTINATION_STORE_FAILED;
}

void closeTrapDestinations() {
    processConnectivity().stop();
    Service::instance().close();
}

}  // namespace vrx

// What platform/ declares has no namespace.
using namespace vrx;

int CSNMP_TrapApi::createTrapAddr(const tTrapDestInfo& destination) {
    if (!isAcceptable(destination) || !isTrapUserKnown(destination)) return TRAP_DESTINATION_BAD_VALUE;
    const auto store = Service::instance().store();
    return store == nullptr ? TRAP_DESTINATION_STORE_FAILED : store->create(destination);
}

int CSNMP_TrapApi::modifyTrapAddr(const tTrapDestInfo& destination) {
    if (!isAcceptable(destination)) return TRAP_DESTINATION_BAD_VALUE;
    const auto store = Service::instance().store();
    if (store == nullptr) return TRAP_DESTINATION_STORE_FAILED;
    if (!isTrapUserKnown(destination) && !hasUserAlready(*store, destination)) return TRAP_DESTINATION_BAD_VALUE;
    return store->modify(destination);
}

int CSNMP_TrapApi::deleteTrapAddr(const tTrapDestInfo& destination) {
    const auto store = Service::instance().store();
    return store == nullptr ? TRAP_DESTINATION_STORE_FAILED : store->remove(destination.index);
}

int CSNMP_TrapApi::getAllTrapAddr(std::list<tTrapDestInfo>& destinations) {
    const auto store = Service::instance().store();
    if (store == nullptr) return TRAP_DESTINATION_STORE_FAILED;
    destinations.splice(destinations.end(), store->all());
    return TRAP_DESTINATION_OK;
}

bool CheckIPAddrOK(std::string address) {
    return destination_check::isAddress(address);
}

bool CheckTrapIndOK(tTrapDestInfo& destination) {
    const auto store = Service::instance().store();
    return store != nullptr && store->has(destination.index);
}

bool CheckTrapPortOK(tTrapDestInfo& destination) {
    return destination_check::isPort(destination.port);
}

bool CheckTrapVerOK(tTrapDestInfo& destination) {
    return destination_check::isVersion(destination.version);
}

bool CheckTrapTypeOK(tTrapDestInfo& destination) {
    return destination_check::isTrapType(destination.trapType);
}

bool CheckTrapUserOK(tTrapDestInfo& destination) {
    if (!destination_check::isUserText(destination.user)) return false;
    return destination.version != SNMPV3 || destination.user != destination_check::NO_USER;
}
