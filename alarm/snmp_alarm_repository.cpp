#include <iostream>  // first: the standard streams exist before any static object of this file

#include "alarm/snmp_alarm_repository.h"

#include <ace/Guard_T.h>

#include "module/tamrel_log.h"
#include "module/vrx_debug_kit_guard.h"

// A lock that cannot be taken leaves the guard unlocked: the operation goes on and nothing is released. Lines are
// written after the lock is free, so that it is not held while these take the logger's.
using Lock = ACE_Guard<ACE_Thread_Mutex>;

std::atomic<CAlarmRepository_Singleton*> CAlarmRepository_Singleton::m_AlarmRep{nullptr};
ACE_Thread_Mutex CAlarmRepository_Singleton::m_oMutex;

CAlarmRepository_Singleton* CAlarmRepository_Singleton::getAlarmRepository() {
    CVRXDebugKitGuard guard(
        TAMREL_LOG_MODULE, "static CAlarmRepository_Singleton* CAlarmRepository_Singleton::getAlarmRepository()"_scope);
    CAlarmRepository_Singleton* repository = m_AlarmRep.load(std::memory_order_acquire);
    if (repository == nullptr) {
        const Lock lock(m_oMutex);
        repository = m_AlarmRep.load(std::memory_order_acquire);
        if (repository == nullptr) {
            repository = new CAlarmRepository_Singleton();  // for the life of the process
            m_AlarmRep.store(repository, std::memory_order_release);
        }
    }
    return repository;
}

u_int CAlarmRepository_Singleton::getAlarmRepositorySize() {
    CVRXDebugKitGuard guard(TAMREL_LOG_MODULE, "u_int CAlarmRepository_Singleton::getAlarmRepositorySize()"_scope);
    return m_size.load(std::memory_order_relaxed);
}

int CAlarmRepository_Singleton::addAlarm(u_int serialNo) {
    CVRXDebugKitGuard guard(TAMREL_LOG_MODULE, "int CAlarmRepository_Singleton::addAlarm(u_int)"_scope);
    if (serialNo == 0) {
        guard.setResult(false);
        return -1;
    }
    {
        SERIALNO_LIST added{serialNo};  // memory that runs out here or at its place leaves all as it was
        const Lock lock(m_oMutex);
        if (m_places.emplace(serialNo, added.begin()).second) {
            m_serialNumbers.splice(m_serialNumbers.end(), added);
            m_size.fetch_add(1, std::memory_order_relaxed);
            return 0;
        }
    }
    guard.setResult(false);
    guard.warn(LOGCODE_GENERAL, __FUNCTION__, __LINE__, "alarm with serial num %u has existed.", serialNo);
    return -1;
}

int CAlarmRepository_Singleton::deleteAlarm(u_int serialNo) {
    CVRXDebugKitGuard guard(TAMREL_LOG_MODULE, "int CAlarmRepository_Singleton::deleteAlarm(u_int)"_scope);
    {
        const Lock lock(m_oMutex);
        const auto found = m_places.find(serialNo);
        if (found != m_places.end()) {
            m_serialNumbers.erase(found->second);
            m_places.erase(found);
            if (m_places.empty()) freePlaces();
            m_size.fetch_sub(1, std::memory_order_relaxed);
            return 0;
        }
    }
    guard.setResult(false);
    guard.error(LOGCODE_GENERAL, __FUNCTION__, __LINE__, "alarm with serial num %u not existed.", serialNo);
    return -1;
}

int CAlarmRepository_Singleton::clearAllAlarmItems() {
    CVRXDebugKitGuard guard(TAMREL_LOG_MODULE, "int CAlarmRepository_Singleton::clearAllAlarmItems()"_scope);
    const Lock lock(m_oMutex);
    freePlaces();
    m_serialNumbers.clear();
    m_size.store(0, std::memory_order_relaxed);
    return 0;
}

int CAlarmRepository_Singleton::getAllAlarmItems(SERIALNO_LIST& items) {
    CVRXDebugKitGuard guard(TAMREL_LOG_MODULE,
                            "int CAlarmRepository_Singleton::getAllAlarmItems(SERIALNO_LIST&)"_scope);
    {
        const Lock lock(m_oMutex);
        if (getAlarmRepositorySize() != 0) {
            SERIALNO_LIST copy = m_serialNumbers;  // the caller's list stays as it is should memory run out
            items.swap(copy);
            return 0;
        }
    }
    guard.setResult(false);
    guard.error(LOGCODE_GENERAL, __FUNCTION__, __LINE__, "alarm repository is empty.");
    return -1;
}

// An empty repository has no memory: the table that a storm needed goes with its alarms.
void CAlarmRepository_Singleton::freePlaces() {
    std::unordered_map<u_int, SERIALNO_LIST::iterator>().swap(m_places);
}
