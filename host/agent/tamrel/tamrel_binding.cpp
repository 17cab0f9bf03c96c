#include "host/agent/tamrel/tamrel_binding.h"

#include <cxxabi.h>
#include <dlfcn.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <typeinfo>
#include <vector>

#include "host/base/log_line.h"
#include "host/log_lines/start.h"
#include "host/transport/backend_protocol.h"
#include "platform/notify_msg_handler.h"

namespace vrx {

namespace {

constexpr const char* HANDLER_CLASS = "23CTamrelNotifyMsgHandler";  // mangled

// The library that a handler's class comes from, held open; null when it is none that was loaded by name.
void* libraryOf(const std::type_info& type) {
    Dl_info info{};
    if (dladdr(&type, &info) == 0 || info.dli_fname == nullptr) return nullptr;
    void* library = dlopen(info.dli_fname, RTLD_LAZY | RTLD_NOLOAD);
    return library != nullptr ? library : dlopen(nullptr, RTLD_LAZY);  // the program itself
}

// As its maker writes it, with its arguments.
std::string readable(const char* symbol) {
    int status = 0;
    const std::unique_ptr<char, decltype(&std::free)> text(abi::__cxa_demangle(symbol, nullptr, nullptr, &status),
                                                           &std::free);
    return text == nullptr ? symbol : text.get();
}

// Serial numbers to look others up in.
class Sorted {
public:
    template <typename Serials>
    explicit Sorted(const Serials& serials) : m_serials(serials.begin(), serials.end()) {
        std::sort(m_serials.begin(), m_serials.end());
    }
    bool contains(unsigned int serial) const { return std::binary_search(m_serials.begin(), m_serials.end(), serial); }

private:
    std::vector<unsigned int> m_serials;
};

template <typename Operation>
bool look(void* library, Operation& operation) {
    void* address = dlsym(library, operation.symbol);
    if (address == nullptr) {
        logLine<lines::OPERATION_NOT_EXPORTED>(readable(operation.symbol));
        return false;
    }
    std::memcpy(&operation.call, &address, sizeof address);  // POSIX lets the two kinds of pointers be the same
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
    logLine<lines::NO_REPOSITORY>();
}

void TamrelBinding::bind(INotifyMsgHandler& handler) {
    m_library.reset(libraryOf(typeid(handler)));
    void* library = m_library.get();
    if (library == nullptr) {
        logLine<lines::MODULE_LIBRARY_NOT_FOUND>();
        return;
    }
    bool complete = true;
    m_operations.forEach([&](auto& operation) { complete = look(library, operation) && complete; });
    if (complete) m_handler = static_cast<CTamrelNotifyMsgHandler*>(dynamic_cast<void*>(&handler));
}

void TamrelBinding::follow(const CTLVRecordV3& record) const {
    if (!found()) return;
    const unsigned int serial = uint32Of(record, alarm_tag::SERIAL);
    unsigned int category = 0;
    m_operations.getCategory.call(m_handler, record, category);
    m_operations.putAlarm.call(m_handler, serial, category);  // it logs what it refuses
}

void TamrelBinding::loadDefinitions() const {
    if (found()) (void)m_operations.getDefinitions.call();
}

void TamrelBinding::reloadDefinitions() const {
    if (!found()) return;
    m_operations.destroyDefinitions.call();
    (void)m_operations.getDefinitions.call();
}

std::list<unsigned int> TamrelBinding::repository() const {
    std::list<unsigned int> items;
    if (!found()) return items;
    CAlarmRepository_Singleton* repository = m_operations.getRepository.call();
    // Reading an empty repository is an error there, with a log line of its own.
    if (repository != nullptr && m_operations.getSize.call(repository) > 0)
        m_operations.getItems.call(repository, items);
    return items;
}

TamrelBinding::Difference TamrelBinding::compare(const std::vector<unsigned int>& activeSerials) const {
    Difference difference;
    if (!found()) return difference;
    const std::list<unsigned int> held = repository();
    const Sorted have(held);
    const Sorted want(activeSerials);
    for (const unsigned int serial : held) {
        if (!want.contains(serial) && m_operations.putAlarm.call(m_handler, serial, ALARM_CATEGORY_ENDED) == 0)
            ++difference.deleted;
    }
    for (const unsigned int serial : activeSerials) {
        if (!have.contains(serial) && m_operations.putAlarm.call(m_handler, serial, ALARM_CATEGORY_ACTIVE) == 0)
            ++difference.added;
    }
    return difference;
}

}  // namespace vrx
