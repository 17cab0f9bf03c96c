// The input is what a backend sends: a first byte (how it is cut into pieces), a second one (what the listener has
// handled before), then the stream. Three readers get it: a connection, a call of the transport and the event source.
#include <ace/Log_Msg.h>
#include <poll.h>
#include <sys/socket.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "fuzz/finding.h"
#include "fuzz/input.h"
#include "fuzz/package_stream.h"
#include "fuzz/peer.h"
#include "fuzz/temporary_folder.h"
#include "host/base/local_socket.h"
#include "host/base/logging.h"
#include "host/transport/alarm_event_source.h"
#include "host/transport/backend_client.h"
#include "host/transport/backend_connection.h"
#include "host/transport/backend_result.h"
#include "platform/snmp_util.h"

namespace vrx {

namespace {

using Result = BackendConnection::Result;

constexpr std::chrono::seconds LONG_ENOUGH{60};  // no input makes anybody wait

std::string encoded(CR8KPackageV3& package) {
    unsigned char* out = nullptr;
    const unsigned int size = package.encode(out);
    const std::unique_ptr<unsigned char[]> owner(out);
    return {reinterpret_cast<const char*>(out), size};
}

Result expectedResult(PackageStream::End end) {
    switch (end) {
        case PackageStream::End::InsidePackage:
            return Result::Broken;
        case PackageStream::End::Garbage:
            return Result::Garbage;
        case PackageStream::End::TooLarge:
            return Result::TooLarge;
        case PackageStream::End::Closed:
            break;
    }
    return Result::Closed;
}

int expectedCode(PackageStream::End end) {
    switch (end) {
        case PackageStream::End::Garbage:
            return BACKEND_PROTOCOL_ERROR;
        case PackageStream::End::TooLarge:
            return BACKEND_TOO_LARGE;
        case PackageStream::End::InsidePackage:
        case PackageStream::End::Closed:
            break;
    }
    return BACKEND_UNREACHABLE;
}

// A connection gives the packages of the stream, one after the other, and then says what is wrong with the rest.
void readConnection(const std::string& bytes, std::size_t piece, const PackageStream& expected) {
    int ends[2] = {-1, -1};
    require(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) == 0, "socketpair failed");
    const FileDescriptor peer(ends[0]);
    std::vector<std::string> packages;
    Result last = Result::Ok;
    std::thread reader([&packages, &last, descriptor = ends[1]] {
        BackendConnection connection(FileDescriptor(descriptor), PACKAGE_LIMIT);
        for (;;) {
            CR8KPackageV3 package;
            last = connection.receive(package, std::chrono::steady_clock::now() + LONG_ENOUGH);
            if (last != Result::Ok) return;
            packages.push_back(encoded(package));
        }
    });
    (void)playPeer(peer.get(), bytes, piece);
    reader.join();
    require(packages == expected.packages, "a connection gives other packages");
    require(last == expectedResult(expected.end), "a connection ends with another result");
}

// Where the agent looks for its backend.
class Backend {
public:
    Backend() {
        m_options.address.kind = LocalAddress::Kind::Unix;
        m_options.address.path = m_folder.path() + "/s";
        m_options.callDeadline = LONG_ENOUGH;
        m_options.packageLimit = PACKAGE_LIMIT;
        m_listener = listenSocket(m_options.address);
    }

    const BackendOptions& options() const { return m_options; }

    // Serves the next connection.
    std::string serve(const std::string& bytes, std::size_t piece) {
        require(waitFor(m_listener.get(), POLLIN, std::chrono::steady_clock::now() + LONG_ENOUGH, -1) == Wait::Ready,
                "nobody connects");
        const FileDescriptor connection(accept4(m_listener.get(), nullptr, nullptr, SOCK_CLOEXEC));
        require(static_cast<bool>(connection), "accept failed");
        return playPeer(connection.get(), bytes, piece);
    }

    // Connections that were made when nobody served them any more.
    void forgetOthers() {
        while (FileDescriptor(accept4(m_listener.get(), nullptr, nullptr, SOCK_CLOEXEC))) {
        }
    }

private:
    TemporaryFolder m_folder;
    BackendOptions m_options;
    FileDescriptor m_listener;
};

// A call gives the first package of the stream, or the code of what is wrong with it.
void callClient(Backend& backend, const std::string& bytes, std::size_t piece, const PackageStream& expected) {
    CR8KPackageV3 answer;
    int result = 0;
    std::thread caller([&backend, &answer, &result] {
        BackendClient client(backend.options());  // it ends here, and its connection with it
        CR8KPackageV3 request;
        request.append(std::make_unique<CTLVRecordV3>(1002, CTLVRecordV3::DEFAULT_BUCKETS));
        result = client.call(request, answer);
    });
    (void)backend.serve(bytes, piece);
    caller.join();
    if (expected.packages.empty()) {
        require(result == expectedCode(expected.end), "a call without an answer has another result");
        require(answer.records().empty(), "a call without an answer gives records");
    } else {
        CR8KPackageV3 package;
        require(decodeInto(package, expected.packages.front()), "a package decodes only once");
        require(result == static_cast<int>(package.head().uiHeadParam1), "a call has another result");
        require(encoded(answer) == expected.packages.front(), "a call gives another answer");
    }
}

// Checks the order of what it is told, and reads of each event what the host converts.
class Listener : public AlarmEventSource::Listener {
public:
    explicit Listener(std::optional<unsigned long long> handled) : m_handled(handled) {}

    std::optional<HandledEvent> lastHandledEvent() override {
        if (!m_handled) return std::nullopt;
        return HandledEvent{*m_handled, m_store};
    }

    void onConnected(const BackendState& state) override {
        require(!m_connected, "connected twice");
        m_connected = true;
        unsigned int last = 0;
        for (const ActiveAlarm& alarm : state.alarms) {
            require(alarm.serial > last, "serial numbers do not ascend");
            last = alarm.serial;
        }
        require(state.listedUpTo >= state.lastSequence, "the list of alarms is older than the last event");
        require(state.store.size() <= LONGEST_STORE_IDENTITY, "the store's identity is too long");
        if (!m_handled) m_handled = state.lastSequence;
        const bool otherStore = !m_store.empty() && !state.store.empty() && m_store != state.store;
        require(state.isAnother == (otherStore || *m_handled > state.lastSequence), "a store is taken for another");
        if (state.isAnother) m_handled = 0;
        m_store = state.store;
    }

    void onEvent(const AlarmEvent& event, const CTLVRecordV3& record) override {
        require(m_connected, "an event without a connection");
        require(event.sequence > *m_handled, "event numbers do not ascend");
        m_handled = event.sequence;
        Snmp_pp::OctetStr text;
        const auto raised = static_cast<long>(uint64Of(record, alarm_tag::RAISED));
        CSnmpUtil::convertTime2DateTime(text, raised);
        CSnmpUtil::convertTime2DateTimeStr(text, raised);
    }

    void onDisconnected() override {
        require(m_connected, "disconnected without a connection");
        m_connected = false;
    }

    bool isConnected() const { return m_connected; }

private:
    std::optional<unsigned long long> m_handled;
    std::string m_store;
    bool m_connected = false;
};

void subscribe(Backend& backend, const std::string& bytes, std::size_t piece, unsigned int handled) {
    // 0: nothing ever was, 255: more than any store holds.
    std::optional<unsigned long long> last;
    if (handled == 255) last = ~0ULL;
    if (handled > 0 && handled < 255) last = handled - 1;

    BackendCommands commands;
    commands.getBackendStatus = 1002;
    commands.getCurrentAlarm = 2001;
    commands.subscribeAlarm = 2004;
    Listener listener(last);
    AlarmEventSource source(backend.options(), commands, listener);
    source.start();
    (void)backend.serve(bytes, piece);
    source.stop();
    backend.forgetOthers();
    require(!listener.isConnected(), "the end of a connection is not told");
}

void beQuiet() {
    LogOptions options;
    options.threshold = LogLevel::Off;
    startLogging(options);
    ACE_LOG_MSG->priority_mask(0, ACE_Log_Msg::PROCESS);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const bool quiet = (beQuiet(), true);
    (void)quiet;
    static Backend backend;
    Input input(data, size);
    const std::size_t piece = input.byte();
    const unsigned int handled = input.byte();
    const std::string bytes = input.rest();
    const PackageStream expected = cutStream(bytes);

    readConnection(bytes, piece, expected);
    callClient(backend, bytes, piece, expected);
    subscribe(backend, bytes, piece, handled);
    return 0;
}

}  // namespace vrx
