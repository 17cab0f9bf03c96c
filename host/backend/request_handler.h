// The backend's commands: turns a request package into an answer package.
//
// Threads: any; the store does the locking.
#pragma once

#include <atomic>
#include <cstddef>
#include <functional>
#include <optional>
#include <vector>

#include "host/backend/alarm_store.h"
#include "host/base/fault_line.h"
#include "host/transport/backend_protocol.h"
#include "host/transport/backend_result.h"
#include "vrxpub/vrx_message_package.h"

namespace vrx {

// What the backend does at the moment and did since its start, for GET_BACKEND_STATUS.
struct BackendTraffic {
    std::atomic<unsigned long long> clients{0};
    std::atomic<unsigned long long> subscribers{0};
    std::atomic<unsigned long long> requests{0};
    std::atomic<unsigned long long> refusals{0};
};

class RequestHandler {
public:
    // `onNewEvents` is called after each change of the store. Packages stay within `packageLimit` bytes.
    RequestHandler(AlarmStore& store, const BackendCommands& commands, std::size_t packageLimit,
                   BackendTraffic& traffic, std::function<void()> onNewEvents);

    // Fills `answer`, a refusal's code in its header included. After a subscription the result is the number of the
    // event after which the client's pushes begin.
    std::optional<unsigned long long> handle(const CR8KPackageV3& request, CR8KPackageV3& answer);

    // The package that pushes events to a subscriber, and in `position` the number of its last one; without events
    // after `position` the package is empty.
    void fillPush(unsigned long long& position, CR8KPackageV3& package);

private:
    using Records = std::list<CTLVRecordV3*>;
    using Operation = void (RequestHandler::*)(const Records& records, CR8KPackageV3& answer);

    // A command's code, and how many records its request may hold.
    struct Command {
        unsigned long long code;
        std::size_t mostRecords;
        Operation operation;
    };

    void noteStoreFailure(const std::string& reason);
    void noteStoreChanged();
    [[nodiscard]] BackendResult execute(const Records& records, CR8KPackageV3& answer);
    void getSystemWwn(const Records& records, CR8KPackageV3& answer);
    void getBackendStatus(const Records& records, CR8KPackageV3& answer);
    void getCurrentAlarm(const Records& records, CR8KPackageV3& answer);
    void clearAlarm(const Records& records, CR8KPackageV3& answer);
    void raiseAlarm(const Records& records, CR8KPackageV3& answer);
    void subscribeAlarm(const Records& records, CR8KPackageV3& answer);

    AlarmStore& m_store;
    const BackendCommands m_codes;
    const std::vector<Command> m_commands;
    const std::size_t m_packageLimit;
    BackendTraffic& m_traffic;
    const std::function<void()> m_onNewEvents;
    FaultLine m_writing;
};

}  // namespace vrx
