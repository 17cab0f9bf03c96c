// A host of the module in one file: the services that the module calls on any thread, and what an agent does with the
// module. transcript.txt is its output.
#include <ace/Singleton.h>
#include <ace/Thread_Mutex.h>
#include <arpa/inet.h>
#include <dlfcn.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <stdexcept>

#include "platform/notify_handler.h"
#include "platform/notify_msg_handler.h"
#include "platform/snmp_basic_impl.h"
#include "platform/snmp_configuration.h"
#include "platform/snmp_svc_module.h"
#include "platform/snmp_table_base.h"
#include "platform/snmp_trap_api.h"
#include "platform/vrx_debug_kit.h"
#include "platform/vrx_utility.h"
#include "platform/vrx_xml_config.h"

using Number = unsigned long long;

static std::unique_ptr<CTLVRecordV3> newRecord() {
    return std::make_unique<CTLVRecordV3>(CTLVRecordV3::NO_IDENTIFIER, CTLVRecordV3::DEFAULT_BUCKETS);
}
static void add(CTLVRecordV3& record, unsigned short tag, Number number) {
    unsigned char bytes[8];
    putLe64(bytes, number);
    record.appendNew([&](CTLVCell& cell) { cell.set_i(CTLVCell::TLV_TYPE_UINT, tag, bytes, sizeof bytes); });
}
static void add(CTLVRecordV3& record, unsigned short tag, const char* text) {
    record.appendNew([&](CTLVCell& cell) { cell.set(tag, text); });
}
static Number numberIn(const CTLVRecordV3& record, unsigned short tag) {  // throws CVRX_Exception without such a cell
    return CTLVCell::ValueCast<Number>()(&record[tag]);
}

// Definitions and enumerations of alarms stand below it.
std::string VRX_Utility::getVRXRootEnv() {
    const char* const root = std::getenv("VRX_ROOT");
    return root == nullptr ? "/usr/share/vrx" : root;
}

// Who the storage system is.
int CSNMPBasicImpl::device_type = 100;
std::string CSNMPBasicImpl::product_sn = "SN-0001";
const char* CSNMPBasicImpl::getNodeCode() { return "NODE-1"; }
unsigned int CSNMPBasicImpl::getNodeType() { return 1; }
std::string GetSystemName() { return "example"; }

// The log: errors go to stderr, each line in one write. Loggers live as long as the process.
static struct Logger : CVRXDebugKit {
    void trace(const std::string&) override {}
    void debug(Number, const char*, unsigned int, const char*, va_list) override {}
    void warn(Number, const char*, unsigned int, const char*, va_list) override {}
    void error(Number code, const char* function, unsigned int, const char* format, va_list args) override {
        char text[1024];
        std::vsnprintf(text, sizeof text, format, args);
        std::fprintf(stderr, "error 0x%llX %s: %s\n", code, function, text);
    }
    bool takes(Line line) const override { return line == Line::Error; }
} s_logger;
CVRXDebugKitMgr::CVRXDebugKitMgr() = default;
CVRXDebugKitMgr::~CVRXDebugKitMgr() {}
CVRXDebugKit* CVRXDebugKitMgr::find(unsigned int) { return &s_logger; }

// The device configuration: the backend's command codes, and paths below the product root.
static constexpr Number PROBE = 1001, LIST_ALARMS = 2001, CLEAR_ALARM = 2002;
static CVRXXmlConfig s_configuration;
CVRXXmlConfig* CVRXXmlConfig::instance() { return &s_configuration; }
std::string CVRXXmlConfig::getDeviceItem(const std::string& section, const std::string& key, std::string& value) {
    static const std::map<std::string, std::string> items = {
        {"COMMAND/GET_SYSTEM_WWN", std::to_string(PROBE)},
        {"COMMAND/GET_CURRENT_ALARM", std::to_string(LIST_ALARMS)},
        {"COMMAND/CLEAR_ALARM", std::to_string(CLEAR_ALARM)},
        {"SNMP_CONF/ALARM_INI_PATH", "conf/alarm_definitions.xml"},
        {"SNMP_CONF/ALARM_PARAM_ENUM_PATH", "conf/alarm_enumerations.xml"}};
    const auto found = items.find(section + "/" + key);
    return value = found == items.end() ? "" : found->second;
}

// The backend: one alarm in memory. A call of yours sends request.encode(), waits until a deadline and decodes the
// answer.
static constexpr Number SERIAL = 1, RAISED = 1732190400;  // seconds since 1970
static std::atomic<bool> s_active = false;
static void raiseAlarm() { s_active = true; }
static std::unique_ptr<CTLVRecordV3> alarmEvent() {  // what a backend pushes when the alarm has changed
    const Number ended = s_active ? 0 : RAISED + 600;
    const Number cells[] = {ended == 0 ? 1U : 2U, 4295229443, 3, SERIAL, RAISED, ended, ended};  // type, ID, level, ...
    auto record = newRecord();
    unsigned short tag = 0;
    for (const Number cell : cells) add(*record, tag++, cell);
    add(*record, 8, "7,CTE0,1");  // parameters of the definition's texts
    return record;
}
static CSNMP_Configuration s_backend;
CSNMP_Configuration* CSNMP_Configuration::instance() { return &s_backend; }
int CSNMP_Configuration::configure(CR8KPackageV3& request, CR8KPackageV3& response, bool) {
    const CTLVRecordV3& asked = *request[0];
    switch (asked.identifier()) {
        case PROBE: return 0;
        case LIST_ALARMS:  // those after a serial number
            if (s_active && numberIn(asked, 3) < SERIAL) response.append(alarmEvent());
            return 0;
        case CLEAR_ALARM: return numberIn(asked, 3) == SERIAL && s_active.exchange(false) ? 0 : 1;
        default: return 1;
    }
}

// Trap destinations: where 0 is returned, a list of yours is on disk.
static std::mutex s_mutex;
static std::map<unsigned int, tTrapDestInfo> s_destinations;  // guarded by s_mutex
int CSNMP_TrapApi::createTrapAddr(const tTrapDestInfo& destination) {
    const std::lock_guard lock(s_mutex);
    const unsigned int index = s_destinations.empty() ? 1 : s_destinations.rbegin()->first + 1;
    (s_destinations[index] = destination).index = UintToStr(index);
    return 0;
}
int CSNMP_TrapApi::modifyTrapAddr(const tTrapDestInfo& destination) {
    const std::lock_guard lock(s_mutex);
    const auto found = s_destinations.find(StrToUint(destination.index));
    if (found == s_destinations.end()) return 1;
    found->second = destination;
    return 0;
}
int CSNMP_TrapApi::deleteTrapAddr(const tTrapDestInfo& destination) {
    const std::lock_guard lock(s_mutex);
    return s_destinations.erase(StrToUint(destination.index)) == 1 ? 0 : 1;
}
int CSNMP_TrapApi::getAllTrapAddr(std::list<tTrapDestInfo>& destinations) {
    const std::lock_guard lock(s_mutex);
    for (const auto& [index, destination] : s_destinations) destinations.push_back(destination);
    return 0;
}
bool CheckTrapIndOK(tTrapDestInfo& destination) {
    const std::lock_guard lock(s_mutex);
    return s_destinations.count(StrToUint(destination.index)) == 1;
}
bool CheckIPAddrOK(std::string address) {  // no host names: looking them up takes a thread of its own
    unsigned char bytes[16];
    return inet_pton(AF_INET, address.c_str(), bytes) == 1 || inet_pton(AF_INET6, address.c_str(), bytes) == 1;
}
bool CheckTrapPortOK(tTrapDestInfo& destination) { return destination.port >= 1 && destination.port <= 65535; }
bool CheckTrapVerOK(tTrapDestInfo& destination) { return destination.version >= 1 && destination.version <= 3; }
bool CheckTrapTypeOK(tTrapDestInfo& destination) { return destination.trapType >= 1 && destination.trapType <= 4; }
bool CheckTrapUserOK(tTrapDestInfo& destination) { return destination.version != 3 || destination.user != "--"; }
bool testDomainConnectivity(const char*) { return true; }

static std::string oneLine(const char* text) { return {text, std::strcspn(text, "\n")}; }  // a dump ends its line
static std::string textOf(const CTLVCell& cell) {
    if (cell.type() != CTLVCell::TLV_TYPE_OCTETS) return cell.toString();
    return oneLine(Snmp_pp::OctetStr(cell.data(), cell.length()).get_printable());
}

// What the host does with the module, all of it on one thread: calls on one handler must not overlap.
static class CVRX_SnmpContext {
} s_context;  // the host's own; the module passes it on
static void printTable(const char* title, CSnmpHandler& handler) {
    CR8KPackageV3 request, response;
    request.append(newRecord());
    add(*request[0], CSnmpTableBase::REQUEST_TYPE_TAG, CSnmpTableBase::REQUEST_GETBULK);
    if (auto* batches = dynamic_cast<CSnmpTableBase*>(&handler)) batches->setWholeTable(true);
    const int result = handler.OnQueryTable(s_context, request, response);
    if (result != 0) throw std::runtime_error("reading " + std::string(title) + ": " + std::to_string(result));
    std::printf("%s: %zu\n", title, response.records().size());
    for (const CTLVRecordV3* row : response.records()) {
        for (auto at = row->begin(); at != row->end(); at = at->next_)  // a cell's tag is its column
            std::printf("  %2u = %s\n", row->cellAt(at).tag(), textOf(row->cellAt(at)).c_str());
    }
}

static void printTraps(const CTLVRecordV3& event) {
    std::list<tTrapDestInfo> list, chosen;
    std::map<std::string, tTrapDestInfo> destinations;
    if (CSNMP_TrapApi::getAllTrapAddr(list) != 0) throw std::runtime_error("no list of destinations");
    for (const tTrapDestInfo& destination : list) destinations[destination.index] = destination;
    for (INotifyMsgHandler* handler : CNotifyHandler::instance()->handlers()) {
        chosen.clear();
        handler->filterTrapMap(destinations, chosen);
        if (chosen.empty()) continue;
        Agentpp::Vbx* bindings = nullptr;
        const int result = handler->constructAlarmTrapVb(event, bindings);
        const std::unique_ptr<Agentpp::Vbx[]> owner(bindings);
        if (result != 0) throw std::runtime_error("no trap: " + std::to_string(result));  // the module has logged why
        std::printf("trap %s\n", handler->getTrapOid(numberIn(event, 1)).get_printable());
        for (const tTrapDestInfo& to : chosen)
            std::printf("  to %s port %u by SNMP version %u\n", to.address.c_str(), to.port, to.version);
        for (int i = 0; i < handler->getTrapVbLen(); ++i)
            std::printf("  %s = %s\n", bindings[i].get_printable_oid(),
                        oneLine(bindings[i].get_printable_value()).c_str());
    }
}

static void run(const char* path) {
    // The registry of loggers must be there before another thread starts.
    (void)ACE_Unmanaged_Singleton<CVRXDebugKitMgr, ACE_Thread_Mutex>::instance();
    // Never closed: the code of the handlers and the alarm definitions that were loaded are in the library.
    void* const library = dlopen(path, RTLD_NOW | RTLD_LOCAL);
    void* const entry = library == nullptr ? nullptr : dlsym(library, "SNMP_SvcModuleCreator");
    if (entry == nullptr) throw std::runtime_error(dlerror());
    const std::unique_ptr<CSNMP_Svc_Module> module(reinterpret_cast<decltype(&SNMP_SvcModuleCreator)>(entry)());
    if (module == nullptr) throw std::runtime_error("the module could not be made");
    SNMP_HANDLER_LIST handlers;
    module->getSvcHandler(handlers);
    const std::string BASE = "1.3.6.1.4.1.99871.2.";
    std::map<std::string, std::unique_ptr<CSnmpHandler>> object;  // the handlers are the host's
    for (const auto& [oid, handler] : handlers) object[oid.substr(BASE.size())].reset(handler);
    std::printf("module of %s, objects: %zu\n", module->getMibFileName().c_str(), object.size());

    CR8KPackageV3 row, serial, response;
    row.append(newRecord());  // a SET hands over columns by their tags; the host has taken care of the RowStatus
    add(*row[0], 2, 162);
    add(*row[0], 5, 2);
    add(*row[0], 6, "192.0.2.7");
    add(*row[0], 7, 3);
    std::printf("create destination: %d\n", object.at("91.10.4.1")->OnCreateTable(s_context, row, response));
    printTable("destinations", *object.at("91.10.4.1"));
    printTable("topology", *object.at("91.9.1"));
    raiseAlarm();
    printTraps(*alarmEvent());
    printTable("alarms", *object.at("91.10.1.1"));
    serial.append(newRecord());
    add(*serial[0], 0, 1);
    std::printf("clear alarm 1: %d\n", object.at("91.10.1.2")->OnSetLeaf(s_context, serial, response));
    printTraps(*alarmEvent());
    printTable("alarms", *object.at("91.10.1.1"));
    for (INotifyMsgHandler* handler : CNotifyHandler::instance()->handlers()) delete handler;
}

int main(int argc, char** argv) {
    try {
        if (argc != 2) throw std::runtime_error("usage: minimal-host MODULE, with the product root in VRX_ROOT");
        run(argv[1]);
        return 0;
    } catch (const std::exception& error) {  // the module's CVRX_Exception, too
        return std::fprintf(stderr, "minimal-host: %s\n", error.what()), 1;
    }
}
