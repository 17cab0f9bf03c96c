// The host's side of the trap destinations (platform/snmp_trap_api.h): one store for the process,
// <root>/state/trap_destinations.db, opened when it is first used. While it cannot be opened every operation fails, and
// each tries again.
//
// Threads: any, at any time, where nothing else is said.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "host/destinations/trap_destination_store.h"

namespace vrx {

// What decides whether an SNMPv3 user exists; it may be called from any thread. Without one every user does.
void setTrapUserCheck(std::function<bool(const std::string& user)> exists);

// Whether traps can be sent in that user's name: of version 3 it exists, of others it is no user.
bool isTrapUserKnown(const tTrapDestInfo& destination);

// Called after each change of the list, on the thread that made it. An empty function takes the listener away.
void setTrapDestinationListener(std::function<void()> listener);

// All changes that a thread makes through CSNMP_TrapApi while it is in the transaction take effect together at
// commit(), else not at all; see TrapDestinationStore::Transaction.
class TrapDestinationTransaction {
public:
    TrapDestinationTransaction();

    void leave();
    void enter();

    // The number that the next createTrapAddr() of the transaction assigns.
    void assignNext(unsigned int number);

    [[nodiscard]] int commit();  // a result of trap_destination_result.h

private:
    std::shared_ptr<TrapDestinationStore> m_store;                   // null when it cannot be opened
    std::optional<TrapDestinationStore::Transaction> m_transaction;  // empty without a store
};

// Closes the store and ends the thread that looks after the reachability of addresses, before the process ends; the
// next use begins anew. REQUIRES: no other thread uses the trap API.
void closeTrapDestinations();

}  // namespace vrx
