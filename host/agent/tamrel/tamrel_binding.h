// What this host calls of the alarm module beyond the notification interface: operations that the module exports for
// whoever holds its handlers, to keep its repository of active alarms in step. The host does not link the module: it
// looks the operations up in the library that the handler's class comes from.
//
//     TamrelBinding binding(CNotifyHandler::instance()->handlers());
//     if (binding.found()) binding.follow(record);
//
// Without such a module, or when it lacks one of the operations, one log line says so and every operation here does
// nothing.
//
// Threads: one at a time, except where another is named.
#pragma once

#include <list>
#include <memory>
#include <vector>

class CAlarmRepository_Singleton;
class CTLVRecordV3;
class INotifyMsgHandler;

namespace vrx {

class TamrelBinding {
public:
    explicit TamrelBinding(const std::list<INotifyMsgHandler*>& handlers);

    bool found() const { return m_handler != nullptr; }

    // Adds the serial number of a record that tells of a raised alarm, deletes that of an ended one. Throws
    // CVRX_Exception when the record lacks what is needed.
    void follow(const CTLVRecordV3& record) const;

    // What became of a comparison.
    struct Difference {
        std::size_t added = 0;
        std::size_t deleted = 0;
    };

    // Adds the serial numbers that are missing, deletes those that are not among the active ones.
    Difference compare(const std::vector<unsigned int>& activeSerials) const;

    // Lets the module read its alarm definitions, unless it has them. Any thread. Throws what the module throws when a
    // file is at fault; nothing is kept then.
    void loadDefinitions() const;

    // Lets the module forget its alarm definitions and read their files anew. REQUIRES: no handler of the module is at
    // work. Throws what the module throws when a file is at fault; it tries again at its next use of a definition.
    void reloadDefinitions() const;

    std::list<unsigned int> repository() const;  // the serial numbers that the module holds

private:
    // Operations of the module. A member function takes its object as its first argument on every platform that we
    // build for (Itanium C++ ABI).
    using GetCategory = void (*)(void* handler, const CTLVRecordV3& record, unsigned int& category);
    using PutAlarm = int (*)(void* handler, unsigned int serial, unsigned int category);
    using GetRepository = CAlarmRepository_Singleton* (*)();
    using GetSize = unsigned int (*)(CAlarmRepository_Singleton* repository);
    using GetItems = int (*)(CAlarmRepository_Singleton* repository, std::list<unsigned int>& items);

    using DestroyDefinitions = void (*)();
    using GetDefinitions = void* (*)();

    void bind(INotifyMsgHandler& handler);

    struct CloseLibrary {
        void operator()(void* library) const;
    };
    std::unique_ptr<void, CloseLibrary> m_library;
    void* m_handler = nullptr;  // the CTamrelNotifyMsgHandler; null unless all operations were found
    GetCategory m_getCategory = nullptr;
    PutAlarm m_putAlarm = nullptr;
    GetRepository m_getRepository = nullptr;
    GetSize m_getSize = nullptr;
    GetItems m_getItems = nullptr;
    DestroyDefinitions m_destroyDefinitions = nullptr;
    GetDefinitions m_getDefinitions = nullptr;
};

}  // namespace vrx
