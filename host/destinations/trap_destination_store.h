// The list of trap destinations, kept in an SQLite file.
//
//     TrapDestinationStore store(stateFolder() + "/trap_destinations.db", 64);
//     tTrapDestInfo nms;
//     nms.address = "192.0.2.7";
//     nms.port = 162;
//     if (store.create(nms) != TRAP_DESTINATION_OK) ...
//
// A change is on disk when its operation (or the transaction that holds it) has returned 0, and survives the end of the
// process at any moment, and of the machine. Results are those of trap_destination_result.h. Values are not checked
// here, except that no two rows have the same address, port and user; addresses are compared by meaning ("::1" is
// "0:0:0:0:0:0:0:1"), and kept as they were written.
//
// Numbers: a new row gets the lowest free number above the last one that was given this way, and from 65535 on the
// lowest free one: the number of a deleted row is not soon used again, over restarts too.
//
// Threads: any. One process at a time: others' changes of the file are not seen.
#pragma once

#include <atomic>
#include <cstddef>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <thread>

#include "host/base/fault_line.h"
#include "host/base/mutex.h"
#include "platform/trap_dest_info.h"

namespace vrx {

class TrapDestinationStore {
public:
    // Opens or creates the file, for its owner alone. `limit`: most rows. Throws std::runtime_error when the file
    // cannot be read and written.
    TrapDestinationStore(const std::string& path, std::size_t limit);
    ~TrapDestinationStore();
    TrapDestinationStore(const TrapDestinationStore&) = delete;
    TrapDestinationStore& operator=(const TrapDestinationStore&) = delete;

    // Changes that take effect together, or not at all when it ends without a successful commit(). The thread that is
    // in it sees them and makes them, all others see the list from before. Others' changes wait for its end.
    //
    // The thread that makes it is in it. It may leave it open, and another one, or nobody, may enter it later.
    // REQUIRES: whoever makes one is in no other; one thread at a time uses it.
    class Transaction {
    public:
        explicit Transaction(TrapDestinationStore& store);
        ~Transaction();
        Transaction(const Transaction&) = delete;
        Transaction& operator=(const Transaction&) = delete;

        void leave() { m_store.m_writer = std::thread::id(); }
        void enter() { m_store.m_writer = std::this_thread::get_id(); }

        // The next create() of the transaction gives this number, 1 to HIGHEST_NUMBER.
        void assignNext(unsigned int number);

        [[nodiscard]] int commit();

    private:
        TrapDestinationStore& m_store;
        bool m_open = true;
    };

    [[nodiscard]] int create(const tTrapDestInfo& destination);  // its index is not looked at
    [[nodiscard]] int modify(const tTrapDestInfo& destination);  // rewrites the row of its index whole
    [[nodiscard]] int remove(const std::string& index);

    std::list<tTrapDestInfo> all() const;  // ordered by number
    std::optional<tTrapDestInfo> find(const std::string& index) const;
    bool has(const std::string& index) const { return find(index).has_value(); }

    // Called after each change that took effect, on the thread that made it and outside of all locks: ask all() again.
    // One listener; an empty function takes it away.
    void setListener(std::function<void()> listener);

private:
    using Rows = std::map<unsigned int, tTrapDestInfo>;
    class Database;

    template <typename Change>
    [[nodiscard]] int change(Change body);
    template <typename Change>
    [[nodiscard]] int changeInTransaction(Change body);
    void begin();
    [[nodiscard]] int commit();
    void rollBack();
    void end();
    void noteFailure(const char* reason);
    void noteSuccess();
    bool isDuplicate(const tTrapDestInfo& destination, unsigned int number) const;
    unsigned int nextNumber() const;
    bool isInTransaction() const { return m_writer.load() == std::this_thread::get_id(); }
    void notify();

    const std::string m_path;
    const std::size_t m_limit;

    // Of the open transaction, down to m_nextNumber: nobody else touches it.
    std::unique_ptr<Database> m_database;
    bool m_changed = false;  // since its begin
    FaultLine m_writing;
    bool m_failed = false;          // it lost its database: nothing of it may be committed
    Rows m_working;                 // the rows as it has them
    unsigned int m_lastNumber = 0;  // last one assigned, of m_working
    unsigned int m_nextNumber = 0;  // asked for by assignNext; 0: none

    std::atomic<std::thread::id> m_writer{};  // the thread in the open transaction

    mutable Mutex m_mutex;
    ConditionVariable m_ended;
    bool m_open GUARDED_BY(m_mutex) = false;  // there is a transaction
    Rows m_rows GUARDED_BY(m_mutex);
    std::shared_ptr<const std::function<void()>> m_listener GUARDED_BY(m_mutex);
};

}  // namespace vrx
