#include "platform/notify_handler.h"

CNotifyHandler* CNotifyHandler::instance() {
    // Never destroyed: modules and their handlers may outlive main().
    static auto* const dispatcher = new CNotifyHandler();
    return dispatcher;
}
