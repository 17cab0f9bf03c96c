// The serial numbers of all active alarms of the process, in the order in which they were added.
//
//     CAlarmRepository_Singleton* repository = CAlarmRepository_Singleton::getAlarmRepository();
//     if (repository->addAlarm(serialNo) != 0) ...  // 0 or already present
//
// Threads: every operation may be called from any thread and takes effect as a whole. The size asked for on its own is
// only a snapshot; who needs list and size together takes getAllAlarmItems.
// Lifetime: made by the first call, never destroyed. Nothing is kept over a restart of the process.
#pragma once

#include <ace/Thread_Mutex.h>
#include <sys/types.h>

#include <atomic>
#include <list>
#include <unordered_map>

using SERIALNO_LIST = std::list<unsigned int>;

class CAlarmRepository_Singleton {
public:
    static CAlarmRepository_Singleton* getAlarmRepository();  // never null

    CAlarmRepository_Singleton(const CAlarmRepository_Singleton&) = delete;
    CAlarmRepository_Singleton& operator=(const CAlarmRepository_Singleton&) = delete;

    u_int getAlarmRepositorySize();
    int addAlarm(u_int serialNo);                // 0, or -1 when it is 0 or already present
    int deleteAlarm(u_int serialNo);             // 0, or -1 when it is absent
    int clearAllAlarmItems();                    // 0
    int getAllAlarmItems(SERIALNO_LIST& items);  // 0 and `items` replaced; -1 and `items` as it was when there is none

protected:                             // for tests, which make a lock fail
    static ACE_Thread_Mutex m_oMutex;  // guards creation and every change or copy of the list; not recursive

private:
    CAlarmRepository_Singleton() = default;
    ~CAlarmRepository_Singleton() = default;

    void freePlaces();

    static std::atomic<CAlarmRepository_Singleton*> m_AlarmRep;

    SERIALNO_LIST m_serialNumbers;                                // unique, none is 0
    std::unordered_map<u_int, SERIALNO_LIST::iterator> m_places;  // of them: a look-up must not walk the list
    std::atomic<u_int> m_size{0};  // of the list; read without the lock, where a walk would meet a change half done
};
