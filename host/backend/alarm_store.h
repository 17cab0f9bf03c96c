// The backend's alarms in SQLite: the active ones, and every raise and clear as a numbered event.
//
// A change is on the disk, event included, when the operation returns; several alarms in one call change together or
// not at all. Serial numbers of alarms and sequence numbers of events grow and are never given twice, and event numbers
// have no holes: who reads "1, 2, 4" has missed 3. After the highest serial number comes 1 again, and so on: numbers
// of active alarms and of events that are kept are passed over.
//
// Threads: any. Errors: SqliteError, and then nothing has changed. Times: seconds since 1970 UTC.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "host/base/mutex.h"
#include "host/base/sqlite_database.h"
#include "host/transport/backend_protocol.h"
#include "host/transport/backend_result.h"

namespace vrx {

struct Alarm {
    unsigned int serial = 0;  // to raise(): 0 lets the store choose
    unsigned long long id = 0;
    unsigned int level = 0;
    unsigned long long raised = 0;
    unsigned long long ended = 0;  // 0 while the alarm is active
    std::string parameters;
};

struct StoredEvent {
    unsigned long long sequence = 0;
    unsigned int type = ALARM_TYPE_FAULT;
    Alarm alarm;
};

struct AlarmStoreStatus {
    unsigned long long activeAlarms = 0;
    unsigned long long lastSequence = 0;
    unsigned long long oldestSequence = 0;  // 0 when no event is kept
};

class AlarmStore {
public:
    // Opens or creates the file with mode 0600. Of the events the last `eventLimit` are kept.
    AlarmStore(const std::string& path, unsigned long long eventLimit);

    // Adds the alarms and fills in the serial numbers that are 0. Another result than BACKEND_OK changes nothing.
    [[nodiscard]] BackendResult raise(std::vector<Alarm>& alarms);

    // Ends the active alarms with these serial numbers, at `time`. Another result than BACKEND_OK changes nothing.
    [[nodiscard]] BackendResult clear(const std::vector<unsigned int>& serials, unsigned long long time);

    // Active alarms with a serial number above `start`, ascending: up to `count`, and no further one once their
    // parameter texts reach `bytes`.
    std::vector<Alarm> activeAfter(unsigned int start, std::size_t count, std::size_t bytes);

    // Events after number `sequence`, ascending; limits as above.
    std::vector<StoredEvent> eventsAfter(unsigned long long sequence, std::size_t count, std::size_t bytes);

    unsigned long long lastSequence();
    AlarmStoreStatus status();

    // World wide name of the system that this store stands for: made when the store is, constant then.
    std::string worldWideName();

    // Which numbering the events' numbers belong to: made with the file, and another one in every other file.
    std::string identity();

private:
    // Within a transaction.
    void commit(SqliteTransaction& transaction) REQUIRES(m_mutex);
    unsigned int nextSerial() REQUIRES(m_mutex);
    void addEvent(unsigned int type, const Alarm& alarm) REQUIRES(m_mutex);
    void dropOldEvents() REQUIRES(m_mutex);

    const unsigned long long m_eventLimit;

    Mutex m_mutex;
    SqliteDatabase m_database GUARDED_BY(m_mutex);
    SqliteStatement m_insertActive GUARDED_BY(m_mutex);
    SqliteStatement m_findActive GUARDED_BY(m_mutex);
    SqliteStatement m_deleteActive GUARDED_BY(m_mutex);
    SqliteStatement m_listActive GUARDED_BY(m_mutex);
    SqliteStatement m_countActive GUARDED_BY(m_mutex);
    SqliteStatement m_findSerial GUARDED_BY(m_mutex);
    SqliteStatement m_lastSerial GUARDED_BY(m_mutex);
    SqliteStatement m_setLastSerial GUARDED_BY(m_mutex);
    SqliteStatement m_insertEvent GUARDED_BY(m_mutex);
    SqliteStatement m_listEvents GUARDED_BY(m_mutex);
    SqliteStatement m_deleteEvents GUARDED_BY(m_mutex);
    SqliteStatement m_lastSequence GUARDED_BY(m_mutex);
    SqliteStatement m_oldestSequence GUARDED_BY(m_mutex);
    SqliteStatement m_worldWideName GUARDED_BY(m_mutex);
    SqliteStatement m_identity GUARDED_BY(m_mutex);
};

}  // namespace vrx
