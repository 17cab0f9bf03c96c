#include "host/agent/tamrel/tamrel_binding.h"

#include <dlfcn.h>

#include <algorithm>
#include <cstring>
#include <set>
#include <string>
#include <typeinfo>

#include "host/agent/loop/agent_log.h"
#include "host/transport/backend_protocol.h"
#include "platform/notify_msg_handler.h"

namespace vrx {

namespace {

// Mangled names, of the class and of its operations.
constexpr const char* HANDLER_CLASS = "23CTamrelNotifyMsgHandler";
constexpr const char* GET_CATEGORY = "_ZN23CTamrelNotifyMsgHandler16getAlarmCategoryERK12CTLVRecordV3Rj";
constexpr const char* PUT_ALARM = "_ZN23CTamrelNotifyMsgHandler22putAlarmIntoRepositoryEjj";
constexpr const char* GET_REPOSITORY = "_ZN26CAlarmRepository_Singleton18getAlarmRepositoryEv";
constexpr const char* GET_SIZE = "_ZN26CAlarmRepository_Singleton22getAlarmRepositorySizeEv";
constexpr const char* GET_ITEMS = "_ZN26CAlarmRepository_Singleton16getAllAlarmItemsERNSt7__cxx114listIjSaIjEEE";

constexpr const char* DESTROY_DEFINITIONS = "_ZN18CAlarmConfigParser7destroyEv";
constexpr const char* GET_DEFINITIONS = "_ZN18CAlarmConfigParser8instanceEv";

// The library that a handler's class comes from, held open; null when it is none that was loaded by name.
void* libraryOf(const std::type_info& type) {
    Dl_info info{};
    if (dladdr(&type, &info) == 0 || info.dli_fname == nullptr) return nullptr;
    void* library = dlopen(info.dli_fname, RTLD_LAZY | RTLD_NOLOAD);
    return library != nullptr ? library : dlopen(nullptr, RTLD_LAZY);  // the program itself
}

template <typename Operation>
bool look(void* library, const char* name, Operation& operation) {
    void* address = dlsym(library, name);
    if (address == nullptr) {
        agent_log::error(std::string("the module does not export ") + name +
                         ": its repository of active alarms will not follow the notifications");
        return false;
    }
    std::memcpy(&operation, &address, sizeof address);  // POSIX lets the two kinds of pointers be the same
    return true;
}

}  // namespace

void TamrelBinding::CloseLibrary::operator()(void* library) const {
    dlclose(library);
}

TamrelBinding::TamrelBinding(const std::list<INotifyMsgHandler*>& handlers) {
    for (INotifyMsgHandler* handler : handlers) {
        if (handler != nullptr && std::strcmp(typeid(*handler).name(), HANDLER_CLASS) == 0) {
            bind(*handler);
            return;
        }
    }
    agent_log::info("no module keeps a repository of active alarms");
}

void TamrelBinding::bind(INotifyMsgHandler& handler) {
    m_library.reset(libraryOf(typeid(handler)));
    void* library = m_library.get();
    if (library == nullptr) {
        agent_log::error(
            "the library of the alarm module cannot be found: its repository of active alarms will not "
            "follow the notifications");
        return;
    }
    if (look(library, GET_CATEGORY, m_getCategory) && look(library, PUT_ALARM, m_putAlarm) &&
        look(library, GET_REPOSITORY, m_getRepository) && look(library, GET_SIZE, m_getSize) &&
        look(library, GET_ITEMS, m_getItems) && look(library, DESTROY_DEFINITIONS, m_destroyDefinitions) &&
        look(library, GET_DEFINITIONS, m_getDefinitions)) {
        m_handler = dynamic_cast<void*>(&handler);
    }
}

void TamrelBinding::follow(const CTLVRecordV3& record) const {
    if (!found()) return;
    const unsigned int serial = uint32Of(record, alarm_tag::SERIAL);
    unsigned int category = 0;
    m_getCategory(m_handler, record, category);
    m_putAlarm(m_handler, serial, category);  // it logs what it refuses
}

void TamrelBinding::loadDefinitions() const {
    if (found()) (void)m_getDefinitions();
}

void TamrelBinding::reloadDefinitions() const {
    if (!found()) return;
    m_destroyDefinitions();
    (void)m_getDefinitions();
}

std::list<unsigned int> TamrelBinding::repository() const {
    std::list<unsigned int> items;
    if (!found()) return items;
    CAlarmRepository_Singleton* repository = m_getRepository();
    // Reading an empty repository is an error there, with a log line of its own.
    if (repository != nullptr && m_getSize(repository) > 0) m_getItems(repository, items);
    return items;
}

TamrelBinding::Difference TamrelBinding::compare(const std::vector<unsigned int>& activeSerials) const {
    Difference difference;
    if (!found()) return difference;
    const std::list<unsigned int> held = repository();
    const std::set<unsigned int> have(held.begin(), held.end());
    const std::set<unsigned int> want(activeSerials.begin(), activeSerials.end());
    for (const unsigned int serial : held) {
        if (want.count(serial) == 0 && m_putAlarm(m_handler, serial, ALARM_CATEGORY_ENDED) == 0) ++difference.deleted;
    }
    for (const unsigned int serial : activeSerials) {
        if (have.count(serial) == 0 && m_putAlarm(m_handler, serial, ALARM_CATEGORY_ACTIVE) == 0) ++difference.added;
    }
    return difference;
}

}  // namespace vrx
