#include <iostream>  // first: the standard streams exist before any static object of this library

#include "notify/snmp_tamrel_notify_handler.h"

#include "alarm/alarm_record.h"
#include "alarm/snmp_alarm_iniparser.h"
#include "alarm/snmp_alarm_repository.h"
#include "module/tamrel_log.h"
#include "module/vrx_debug_kit_guard.h"
#include "module/vrx_exception.h"
#include "notify/alarm_trap_bindings.h"
#include "notify/alarm_trap_values.h"

namespace {

// Which of the two kinds of traps a destination gets.
constexpr unsigned int TRAP_TYPE_FIXED_OID = 1;
constexpr unsigned int TRAP_TYPE_BOTH = 3;
constexpr unsigned int TRAP_TYPE_ALARM_OID = 4;
constexpr unsigned int VERSION_SNMPV1 = 1;

template <typename Wanted>
void appendWanted(const std::map<std::string, tTrapDestInfo>& destinations, std::list<tTrapDestInfo>& chosen,
                  Wanted wanted) {
    for (const auto& entry : destinations) {
        if (wanted(entry.second)) chosen.push_back(entry.second);
    }
}

// dump_alarm_info(), whose text costs about as much as the rest of a trap: it is made when it is logged.
void logAlarmInfo(const char** texts, bool isLogged) {
    CVRXDebugKitGuard guard(TAMREL_LOG_MODULE, "void CTamrelNotifyMsgHandler::dump_alarm_info(const char**)"_scope);
    if (!isLogged) return;
    guard.warn(LOGCODE_GENERAL, "dump_alarm_info", __LINE__, "%s", describeAlarmTrapBindings(texts).c_str());
}

}  // namespace

CTamrelNotifyMsgHandler::~CTamrelNotifyMsgHandler() = default;

int CTamrelNotifyMsgHandler::constructAlarmTrapVb(const CTLVRecordV3& record, Agentpp::Vbx*& bindings) {
    CVRXDebugKitGuard guard(TAMREL_LOG_MODULE,
                            "virtual int CTamrelNotifyMsgHandler::constructAlarmTrapVb(const CTLVRecordV3&, "
                            "Agentpp::Vbx*&)"_scope);
    tAlarmTrapValues values;
    try {
        const int rc = readAlarmTrapValues(*this, record, values);
        if (rc != 0) {
            guard.setResult(false);
            guard.error(LOGCODE_NOTIFY, __FUNCTION__, __LINE__, "parse alarm %llu failed", values.alarmId);
            return rc;
        }
    } catch (const CVRX_Exception& e) {
        guard.setResult(false);
        guard.error(LOGCODE_NOTIFY, __FUNCTION__, __LINE__, "handle notify failed, %s", e.what());
        return -1;
    }
    const Agentpp::Oidx baseOid = getBaseOid();
    bindings = new Agentpp::Vbx[ALARM_TRAP_BINDINGS];  // the caller's from here, whatever follows
    const char* texts[ALARM_TRAP_BINDINGS] = {};
    const bool areLogged = guard.takesWarnings();
    fillAlarmTrapBindings(baseOid, values, bindings, areLogged ? texts : nullptr);
    logAlarmInfo(texts, areLogged);
    return 0;
}

int CTamrelNotifyMsgHandler::getTrapVbLen() {
    return ALARM_TRAP_BINDINGS;
}

void CTamrelNotifyMsgHandler::dump_alarm_info(const char** texts) {
    logAlarmInfo(texts, true);
}

Agentpp::Oidx& CTamrelNotifyMsgHandler::getTrapOid(unsigned long long /*alarmId*/) {
    static Agentpp::Oidx oid("1.3.6.1.4.1.99871.2.91.10.2.1.0.1");
    return oid;
}

Agentpp::Oidx& CTamrelNotifyMsgHandler::getBaseOid() {
    static Agentpp::Oidx oid("1.3.6.1.4.1.99871.2.91.10.3.1.1");
    return oid;
}

void CTamrelNotifyMsgHandler::filterTrapMap(const std::map<std::string, tTrapDestInfo>& destinations,
                                            std::list<tTrapDestInfo>& chosen) {
    appendWanted(destinations, chosen, [](const tTrapDestInfo& destination) {
        return destination.trapType == TRAP_TYPE_FIXED_OID || destination.trapType == TRAP_TYPE_BOTH;
    });
}

int CTamrelNotifyMsgHandler::putAlarmIntoRepository(u_int serialNo, u_int category) {
    CVRXDebugKitGuard guard(TAMREL_LOG_MODULE,
                            "int CTamrelNotifyMsgHandler::putAlarmIntoRepository(u_int, u_int)"_scope);
    CAlarmRepository_Singleton* repository = CAlarmRepository_Singleton::getAlarmRepository();
    if (repository == nullptr) {
        guard.setResult(false);
        guard.error(LOGCODE_NO_OBJECT, __FUNCTION__, __LINE__, "null repository ptr");
        return -1;
    }
    if (category == ALARM_CATEGORY_UNTRACKED) return 0;
    const int rc = updateRepository(category, serialNo, repository);
    guard.setResult(rc == 0);
    return rc;
}

int CTamrelNotifyMsgHandler::updateRepository(u_int category, u_int serialNo, CAlarmRepository_Singleton* repository) {
    CVRXDebugKitGuard guard(
        TAMREL_LOG_MODULE,
        "int CTamrelNotifyMsgHandler::updateRepository(u_int, u_int, CAlarmRepository_Singleton*)"_scope);
    if (category == ALARM_CATEGORY_ACTIVE) {
        const int rc = repository->addAlarm(serialNo);
        if (rc != 0) {
            guard.setResult(false);
            guard.error(LOGCODE_GENERAL, __FUNCTION__, __LINE__,
                        "add alarm with serial num %u into repository failed, errcode=%d", serialNo, rc);
        }
        return rc;
    }
    const int rc = repository->deleteAlarm(serialNo);
    if (rc != 0) {
        guard.setResult(false);
        guard.error(LOGCODE_GENERAL, __FUNCTION__, __LINE__, "delete clear type alarm %u failed, errcode=%d", serialNo,
                    rc);
    }
    return rc;
}

CTamrelOIDBasedMsgHandler::~CTamrelOIDBasedMsgHandler() = default;

Agentpp::Oidx& CTamrelOIDBasedMsgHandler::getTrapOid(unsigned long long alarmId) {
    CVRXDebugKitGuard guard(
        TAMREL_LOG_MODULE,
        "virtual Agentpp::Oidx& CTamrelOIDBasedMsgHandler::getTrapOid(long long unsigned int)"_scope);
    std::string oidText;
    bool isFound = false;
    try {
        isFound = CAlarmConfigParser::instance()->getAlarmOidInfo(alarmId, oidText) == 0;
    } catch (const CVRX_Exception& e) {  // definitions that cannot be loaded: a look-up that failed
        guard.error(LOGCODE_NOTIFY, __FUNCTION__, __LINE__, "handle notify failed, %s", e.what());
    }
    if (!isFound) {
        guard.setResult(false);
        guard.error(LOGCODE_NOTIFY, __FUNCTION__, __LINE__, "parse alarm %llu failed", alarmId);
    }
    // The trap goes out all the same, after a failure under the prefix alone.
    const std::string trapOid = "1.3.6.1.4.1.99871.2.91.10.2.1.1." + oidText;
    m_trapOid = trapOid.c_str();
    guard.debug(LOGCODE_DEBUG, __FUNCTION__, __LINE__, "alarmid = %x;oid = %s ",
                static_cast<unsigned int>(alarmId),  // its low 32 bits, in hexadecimal
                trapOid.c_str());
    return m_trapOid;
}

Agentpp::Oidx& CTamrelOIDBasedMsgHandler::getBaseOid() {
    static Agentpp::Oidx oid("1.3.6.1.4.1.99871.2.251.20.1.3");
    return oid;
}

bool CTamrelOIDBasedMsgHandler::useDateAndTime() {
    return false;
}

void CTamrelOIDBasedMsgHandler::filterTrapMap(const std::map<std::string, tTrapDestInfo>& destinations,
                                              std::list<tTrapDestInfo>& chosen) {
    appendWanted(destinations, chosen, [](const tTrapDestInfo& destination) {
        return destination.version != VERSION_SNMPV1 &&
               (destination.trapType == TRAP_TYPE_BOTH || destination.trapType == TRAP_TYPE_ALARM_OID);
    });
}
