// The input is what a client of the backend sends: a first byte (how it is cut into pieces), then the stream. A session
// answers it on a store of its own, which is in memory.
#include <ace/Log_Msg.h>
#include <sqlite3.h>
#include <sys/socket.h>

#include <atomic>
#include <cstdint>
#include <string>
#include <thread>

#include "fuzz/finding.h"
#include "fuzz/input.h"
#include "fuzz/package_stream.h"
#include "fuzz/peer.h"
#include "host/backend/alarm_store.h"
#include "host/backend/client_session.h"
#include "host/backend/request_handler.h"
#include "host/base/logging.h"

namespace vrx {

namespace {

constexpr unsigned long long EVENT_LIMIT = 100;
constexpr unsigned long long SUBSCRIBE_ALARM = 2004;

// The numbers of the shipped device configuration.
BackendCommands commandCodes() {
    BackendCommands commands;
    commands.getSystemWwn = 1001;
    commands.getBackendStatus = 1002;
    commands.getCurrentAlarm = 2001;
    commands.clearAlarm = 2002;
    commands.raiseAlarm = 2003;
    commands.subscribeAlarm = SUBSCRIBE_ALARM;
    return commands;
}

void prepare() {
    LogOptions options;
    options.threshold = LogLevel::Off;
    startLogging(options);
    ACE_LOG_MSG->priority_mask(0, ACE_Log_Msg::PROCESS);
    require(sqlite3_initialize() == SQLITE_OK, "SQLite does not start");
    sqlite3_vfs* const memory = sqlite3_vfs_find("memdb");
    require(memory != nullptr && sqlite3_vfs_register(memory, 1) == SQLITE_OK, "SQLite has no stores in memory");
}

// A name below "/" is one database for the whole process, until it is closed; the store makes sure of its file, which
// is never used.
constexpr const char* STORE = "/dev/null";

std::string answersTo(const std::string& bytes, std::size_t piece) {
    AlarmStore store(STORE, EVENT_LIMIT);
    BackendTraffic traffic;
    RequestHandler handler(store, commandCodes(), PACKAGE_LIMIT, traffic, [] {});
    int ends[2] = {-1, -1};
    require(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) == 0, "socketpair failed");
    const FileDescriptor peer(ends[0]);
    const WakeFlag stop;
    ClientSession session(1, FileDescriptor(ends[1]), {PACKAGE_LIMIT, std::chrono::milliseconds(0), stop.descriptor()},
                          handler, traffic);
    std::thread server([&session] { session.run(); });
    std::string received = playPeer(peer.get(), bytes, piece);
    server.join();
    require(traffic.clients == 0 && traffic.subscribers == 0, "a session that is over is counted");
    const AlarmStoreStatus status = store.status();
    require(status.lastSequence < EVENT_LIMIT || status.oldestSequence > 0, "events are missing");
    return received;
}

// Every whole request gets one answer, a refusal holds no records; after a subscription come events in order.
void check(const PackageStream& requests, const PackageStream& answers) {
    require(answers.end == PackageStream::End::Closed, "an answer is no package");
    bool subscribed = false;
    unsigned long long last = 0;
    for (const std::string& bytes : answers.packages) {
        CR8KPackageV3 answer;
        require(decodeInto(answer, bytes), "a package decodes only once");
        require(answer.head().uiHeadParam1 == 0 || answer.records().empty(), "a refusal holds records");
        if (subscribed) {
            for (const CTLVRecordV3* record : answer.records()) {
                const unsigned long long sequence = uint64Of(*record, event_tag::SEQUENCE);
                require(sequence > last, "event numbers do not ascend");
                last = sequence;
            }
        } else if (!answer.records().empty() && answer[0]->identifier() == SUBSCRIBE_ALARM) {
            subscribed = true;
        }
    }
    require(subscribed || answers.packages.size() == requests.packages.size(), "a request without an answer");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const bool prepared = (prepare(), true);
    (void)prepared;
    Input input(data, size);
    const std::size_t piece = input.byte();
    const std::string bytes = input.rest();
    check(cutStream(bytes), cutStream(answersTo(bytes, piece)));
    return 0;
}

}  // namespace vrx
