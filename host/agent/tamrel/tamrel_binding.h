// What this host calls of the alarm module beyond the notification interface: operations that the module exports for
// whoever holds its handlers, to keep its repository of active alarms in step. The host does not link the module: it
// looks the operations up in the library that the handler's class comes from.
//
//     TamrelBinding binding(CNotifyHandler::instance()->handlers());
//     if (binding.found()) binding.follow(record);
//
// Without such a module one log line says so; when it lacks operations there is an error line for each. Every operation
// here does nothing then.
//
// Threads: one at a time, except where another is named.
#pragma once

#include <list>
#include <memory>
#include <vector>

#include "host/agent/tamrel/tamrel_operations.h"

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
    void bind(INotifyMsgHandler& handler);

    struct CloseLibrary {
        void operator()(void* library) const;
    };
    std::unique_ptr<void, CloseLibrary> m_library;
    CTamrelNotifyMsgHandler* m_handler = nullptr;  // null unless all operations were found
    TamrelOperations m_operations;
};

}  // namespace vrx
