// What an alarm event costs until its trap is on the wire, step by step, with the real module and a real socket, beside
// what Net-SNMP takes to send a PDU that is ready, and the system to send a packet that is ready.
#include "host/agent/notifications/vbx_conversion.h"  // first: see there

#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <dlfcn.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <list>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "bench/ready_pdus.h"
#include "host/agent/engine/kept_digests.h"
#include "host/agent/loop/agent_loop.h"
#include "host/agent/notifications/event_ledger.h"
#include "host/agent/notifications/notification_delivery.h"
#include "host/agent/notifications/notification_log.h"
#include "host/agent/notifications/notification_pipeline.h"
#include "host/agent/traps/net_snmp_trap_transport.h"
#include "host/agent/traps/trap_sender.h"
#include "host/base/file_descriptor.h"
#include "host/base/logging.h"
#include "host/snmp/limits.h"
#include "host/transport/backend_protocol.h"
#include "platform/notify_handler.h"
#include "platform/notify_msg_handler.h"
#include "platform/snmp_svc_module.h"

namespace vrx {

extern "C" {  // Net-SNMP's; oid_vector.h tells why its headers are not included
void init_snmp(const char* type);
int agent_check_and_process(int block);
}

namespace {

constexpr unsigned long long ALARM = 4295032833;  // of the shipped definitions, with two parameters
constexpr int EVENTS_AT_ONCE = 16;                // of a burst, as many as the sender sends in a turn

// Product root, module and a socket that takes all traps; one for the program.
class Surroundings {
public:
    Surroundings() : m_sink(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        std::string root = (std::filesystem::temp_directory_path() / "notification_bench_XXXXXX").string();
        if (mkdtemp(root.data()) == nullptr) throw std::runtime_error("no folder");
        m_root = root;
        std::filesystem::copy(TAMREL_SHARE, m_root, std::filesystem::copy_options::recursive);
        keepLogQuiet();
        ::setenv("VRX_ROOT", m_root.c_str(), 1);
        ::setenv("MIBS", "", 1);
        ::setenv("SNMP_PERSISTENT_DIR", (m_root + "/net-snmp").c_str(), 1);
        ::setenv("SNMPCONFPATH", m_root.c_str(), 1);
        if constexpr (KEEPS_DIGESTS) (void)keptDigests();  // as in the agent
        init_snmp("notification_bench");
        addUser();
        openSink();
        loadModule();
    }
    ~Surroundings() {
        m_stop = true;
        ::shutdown(m_sink.get(), SHUT_RDWR);
        m_reader.join();
        m_module.reset();
        std::error_code ignored;  // a left-over folder is no reason to fail
        std::filesystem::remove_all(m_root, ignored);
    }
    Surroundings(const Surroundings&) = delete;
    Surroundings& operator=(const Surroundings&) = delete;

    const std::string& root() const { return m_root; }
    unsigned int port() const { return ntohs(m_address.sin_port); }
    const sockaddr_in& address() const { return m_address; }
    INotifyMsgHandler& handler() const { return *CNotifyHandler::instance()->handlers().front(); }

private:
    // The module logs the whole content of each trap as a warning: that is the log's cost, not the trap's.
    static void keepLogQuiet() {
        LogOptions options;
        options.warn = LogLevel::Off;
        startLogging(options);
    }

    void openSink() {
        m_address.sin_family = AF_INET;
        m_address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof m_address;
        auto* const address = reinterpret_cast<sockaddr*>(&m_address);
        if (::bind(m_sink.get(), address, size) != 0 || ::getsockname(m_sink.get(), address, &size) != 0) {
            throw std::runtime_error("no socket");
        }
        m_reader = std::thread([this] {
            char datagram[2048];
            while (!m_stop && ::recv(m_sink.get(), datagram, sizeof datagram, 0) > 0) continue;
        });
    }

    void loadModule() {
        void* const library = dlopen(TAMREL_MODULE, RTLD_NOW | RTLD_LOCAL);
        void* const symbol = library == nullptr ? nullptr : dlsym(library, "SNMP_SvcModuleCreator");
        if (symbol == nullptr) throw std::runtime_error("no module at " TAMREL_MODULE);
        m_module.reset(reinterpret_cast<CSNMP_Svc_Module* (*)()>(symbol)());
    }

    std::string m_root;
    FileDescriptor m_sink;
    sockaddr_in m_address{};
    std::atomic<bool> m_stop{false};
    std::thread m_reader;
    std::unique_ptr<CSNMP_Svc_Module> m_module;
};

const Surroundings& surroundings() {
    static const Surroundings instance;
    return instance;
}

constexpr unsigned long long ENDED = 1'700'000'100;

// Raised, or ended when `ended` is not 0.
std::unique_ptr<CTLVRecordV3> alarmRecord(unsigned long long ended = 0) {
    auto record = std::make_unique<CTLVRecordV3>(1, CTLVRecordV3::DEFAULT_BUCKETS);
    appendUint32(*record, alarm_tag::TYPE, 1);
    appendUint64(*record, alarm_tag::ID, ALARM);
    appendUint32(*record, alarm_tag::LEVEL, 5);
    appendUint32(*record, alarm_tag::SERIAL, 70);
    appendUint64(*record, alarm_tag::RAISED, 1'700'000'000);
    appendUint64(*record, alarm_tag::ENDED, ended);
    appendUint64(*record, alarm_tag::SECOND_END, 0);
    appendText(*record, alarm_tag::PARAMETERS, "someone,once");
    return record;
}

Notification trapOfAlarm(const CTLVRecordV3& record) {
    INotifyMsgHandler& handler = surroundings().handler();
    Agentpp::Vbx* bindings = nullptr;
    if (handler.constructAlarmTrapVb(record, bindings) != 0) throw std::runtime_error("no trap");
    const std::unique_ptr<Agentpp::Vbx[]> owned(bindings);
    int leftOut = 0;
    return trapOf(handler.getTrapOid(ALARM), bindings, handler.getTrapVbLen(), leftOut);
}

// The module alone: definition, rendering, bindings.
void recordToBindings(benchmark::State& state) {
    INotifyMsgHandler& handler = surroundings().handler();
    const auto record = alarmRecord();
    for (auto _ : state) {
        Agentpp::Vbx* bindings = nullptr;
        if (handler.constructAlarmTrapVb(*record, bindings) != 0) state.SkipWithError("not built");
        benchmark::DoNotOptimize(handler.getTrapOid(ALARM));
        delete[] bindings;
    }
}
BENCHMARK(recordToBindings);

// One trap: definition, rendering, bindings, conversion, sending.
void recordToSocket(benchmark::State& state) {
    NetSnmpTrapTransport transport;
    TrapRoute route;
    route.address = "127.0.0.1";
    route.port = surroundings().port();
    route.version = 2;
    route.name = COMMUNITY;
    const Expected<std::unique_ptr<TrapChannel>> channel = transport.open(route);
    const auto record = alarmRecord();
    for (auto _ : state) {
        if (!channel || !(*channel)->send(trapOfAlarm(*record), LONGEST_MESSAGE, transport.upTime()).failure.empty())
            state.SkipWithError("not sent");
    }
}
BENCHMARK(recordToSocket);

// Keeps nothing.
class NoTransport : public TrapTransport {
public:
    TrapEngine engine() override { return {}; }
    std::uint32_t upTime() override { return 0; }
    std::string community() override { return COMMUNITY; }
    std::optional<int> levelOfUser(const std::string&) override { return std::nullopt; }
    Expected<std::unique_ptr<TrapChannel>> open(const TrapRoute&) override { return std::make_unique<Channel>(); }

private:
    struct Channel : TrapChannel {
        TrapSendResult send(const Notification&, std::size_t, std::uint32_t) override { return {}; }
    };
};

// The agent's whole way of an event, over a transport.
class Way {
public:
    explicit Way(TrapTransport& transport, unsigned int version = 2, int destinations = 1)
        : m_sender(m_loop, unpaced(), transport),
          m_ledger(surroundings().root() + "/notifications.db"),
          m_log(surroundings().root() + "/notification_log.db"),
          m_delivery(m_loop, {&m_sender}, m_ledger, m_log),
          m_binding(CNotifyHandler::instance()->handlers()),
          m_pipeline(CNotifyHandler::instance()->handlers(), m_binding, m_definitions, m_delivery, m_ledger, [] {}) {
        std::list<tTrapDestInfo> rows;
        for (int i = 1; i <= destinations; ++i) {
            tTrapDestInfo& row = rows.emplace_back();
            row.index = std::to_string(i);
            row.address = "127.0.0.1";
            row.port = surroundings().port();
            row.version = version;
            row.trapType = 1;
            row.user = version == SNMPV3 ? USER : COMMUNITY;
        }
        m_sender.setDestinations(rows);
        m_pipeline.onConnected({});
        turnUntilSent();
    }
    ~Way() { m_sender.stop(); }
    Way(const Way&) = delete;
    Way& operator=(const Way&) = delete;

    // The alarm is raised and ends by turns.
    void take(int events) {
        for (int i = 0; i < events; ++i) {
            ++m_sequence;
            const CTLVRecordV3& record = m_sequence % 2 != 0 ? *m_raised : *m_ended;
            m_pipeline.onEvent(alarmEventOf(m_sequence, record), record);
        }
        turnUntilSent();
    }

    // To all destinations.
    std::uint64_t sent() const {
        std::uint64_t sent = 0;
        for (const auto& destination : m_sender.status().destinations) sent += destination.counters.sent;
        return sent;
    }

private:
    static TrapOptions unpaced() {
        TrapOptions options;
        options.rate = 1'000'000'000;
        options.burst = 1'000'000'000;
        return options;
    }

    void turnUntilSent() {
        while (m_ledger.lastDone().value_or(0) < m_sequence) agent_check_and_process(0);
    }

    const std::unique_ptr<CTLVRecordV3> m_raised = alarmRecord();
    const std::unique_ptr<CTLVRecordV3> m_ended = alarmRecord(ENDED);
    AgentLoop m_loop;
    TrapSender m_sender;
    EventLedger m_ledger;
    NotificationLog m_log;
    NotificationDelivery m_delivery;
    TamrelBinding m_binding;
    AlarmDefinitions m_definitions{m_binding};
    NotificationPipeline m_pipeline;
    unsigned long long m_sequence = 0;
};

void takeEvents(benchmark::State& state, TrapTransport& transport, unsigned int version = 2, int destinations = 1) {
    const int events = static_cast<int>(state.range(0));
    Way way(transport, version, destinations);
    const std::uint64_t before = way.sent();
    for (auto _ : state) way.take(events);
    state.SetItemsProcessed(state.iterations() * events);
    if (way.sent() - before != static_cast<std::uint64_t>(state.items_processed() * destinations)) {
        state.SkipWithError("not all sent");
    }
}

// Record to bindings, choice of destinations, queue, loop: all but the network.
void eventToNoTransport(benchmark::State& state) {
    NoTransport transport;
    takeEvents(state, transport);
}
BENCHMARK(eventToNoTransport)->Arg(1)->Arg(EVENTS_AT_ONCE);

// All of it, as the agent does it: on two threads at least, with a record of the events that are done with.
void eventToSocket(benchmark::State& state) {
    NetSnmpTrapTransport transport;
    takeEvents(state, transport);
}
BENCHMARK(eventToSocket)->Arg(1)->Arg(EVENTS_AT_ONCE);

void eventToEightDestinations(benchmark::State& state) {
    NetSnmpTrapTransport transport;
    takeEvents(state, transport, 2, 8);
}
BENCHMARK(eventToEightDestinations)->Arg(EVENTS_AT_ONCE);

void eventToSecureDestination(benchmark::State& state) {
    NetSnmpTrapTransport transport;
    takeEvents(state, transport, SNMPV3);
}
BENCHMARK(eventToSecureDestination)->Arg(EVENTS_AT_ONCE);

void readyPduOverCachedSession(benchmark::State& state) {
    sendReadyPdus(state, trapOfAlarm(*alarmRecord()), surroundings().port(), ReadyPdu::Community);
}
BENCHMARK(readyPduOverCachedSession);

void readySecurePduOverCachedSession(benchmark::State& state) {
    sendReadyPdus(state, trapOfAlarm(*alarmRecord()), surroundings().port(), ReadyPdu::Secure);
}
BENCHMARK(readySecurePduOverCachedSession);

void readyPacketBySendto(benchmark::State& state) {
    constexpr std::size_t PACKET = 760;  // about what the trap takes
    const std::vector<char> packet(PACKET, 'x');
    const FileDescriptor socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    const sockaddr_in& sink = surroundings().address();
    for (auto _ : state) {
        if (::sendto(socket.get(), packet.data(), packet.size(), 0, reinterpret_cast<const sockaddr*>(&sink),
                     sizeof sink) < 0) {
            state.SkipWithError("not sent");
        }
    }
}
BENCHMARK(readyPacketBySendto);

}  // namespace

}  // namespace vrx

BENCHMARK_MAIN();
