// The host's notification dispatcher: keeps the notification handlers of all modules, in the order of registration.
#pragma once

#include <list>

class INotifyMsgHandler;

class CNotifyHandler {
public:
    // The one dispatcher of the process; never null.
    static CNotifyHandler* instance();

    // Modules append while they are loaded, before any notification arrives; afterwards the list does not change.
    // The dispatcher keeps the handlers for the life of the process.
    std::list<INotifyMsgHandler*>& handlers() { return m_handlers; }

private:
    std::list<INotifyMsgHandler*> m_handlers;
};
