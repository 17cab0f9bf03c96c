#include "host/transport/backend_client.h"

#include <stdexcept>
#include <utility>

#include "host/base/local_socket.h"
#include "host/base/log_line.h"
#include "host/log_lines/events.h"
#include "host/log_lines/log_row.h"
#include "host/transport/backend_result.h"
#include "platform/snmp_configuration.h"

namespace vrx {

namespace {

BackendOptions optionsOfProcess() {
    try {
        return BackendOptions::fromDevice();
    } catch (const std::invalid_argument& fault) {
        logLine<lines::BACKEND_NOT_CONFIGURED>(fault.what());
        return {};
    }
}

int resultOf(BackendConnection::Result result) {
    switch (result) {
        case BackendConnection::Result::Ok:
            return BACKEND_OK;
        case BackendConnection::Result::Timeout:
            return BACKEND_TIMEOUT;
        case BackendConnection::Result::Garbage:
            return BACKEND_PROTOCOL_ERROR;
        case BackendConnection::Result::TooLarge:
            return BACKEND_TOO_LARGE;
        case BackendConnection::Result::Closed:
        case BackendConnection::Result::Broken:
        case BackendConnection::Result::Cancelled:
            break;
    }
    return BACKEND_UNREACHABLE;
}

}  // namespace

// A place in the pool for the time of a call; gives it back, with the connection if the call left it in good order.
class BackendClient::Lease {
public:
    explicit Lease(BackendClient& client) : m_client(client) {}
    ~Lease() {
        if (m_held) m_client.release(m_good ? std::move(m_connection) : nullptr);
    }
    Lease(const Lease&) = delete;
    Lease& operator=(const Lease&) = delete;

    void hold() { m_held = true; }
    void use(std::unique_ptr<BackendConnection> connection, bool pooled) {
        m_connection = std::move(connection);
        m_pooled = pooled;
    }
    void markGood() { m_good = true; }
    bool pooled() const { return m_pooled; }
    BackendConnection& connection() { return *m_connection; }

private:
    BackendClient& m_client;
    std::unique_ptr<BackendConnection> m_connection;
    bool m_held = false;
    bool m_pooled = false;
    bool m_good = false;
};

BackendClient::BackendClient(const BackendOptions& options) : m_options(options) {
    m_idle.reserve(options.connections);  // a lease gives its connection back without memory
}

BackendClient& BackendClient::ofProcess() {
    static BackendClient client(optionsOfProcess());
    return client;
}

int BackendClient::call(CR8KPackageV3& request, CR8KPackageV3& response) {
    const Clock::time_point begun = Clock::now();
    ++m_calls;
    const auto bytes = encodePackage(request, m_options.packageLimit);
    if (!bytes) {
        ++m_failures;
        logLine<lines::BACKEND_REQUEST_TOO_LARGE>(m_options.packageLimit);
        return BACKEND_TOO_LARGE;
    }
    CR8KPackageV3 answer;
    const Outcome outcome = tryCall(*bytes, answer, begun + m_options.callDeadline);
    if (outcome.result != BACKEND_OK) {
        ++m_failures;
        if (!outcome.reason.empty()) noteState(false, begun, outcome.reason);
        return outcome.result;
    }
    noteState(true, begun, "");
    response.records().splice(response.records().end(), answer.records());
    response.head() = answer.head();
    const int result = static_cast<int>(response.head().uiHeadParam1);
    if (result != BACKEND_OK) ++m_refusals;
    return result;
}

BackendClient::Outcome BackendClient::tryCall(const std::vector<unsigned char>& request, CR8KPackageV3& answer,
                                              Deadline deadline) {
    for (;;) {  // again only for a pooled connection, of which there are few
        Lease lease(*this);
        const Outcome acquired = acquire(lease, deadline);
        if (acquired.result != BACKEND_OK) return acquired;

        BackendConnection& connection = lease.connection();
        BackendConnection::Result result = connection.send(request, deadline);
        if (result == BackendConnection::Result::Broken && lease.pooled()) continue;
        if (result == BackendConnection::Result::Ok) result = connection.receive(answer, deadline);
        if (result != BackendConnection::Result::Ok) return {resultOf(result), connection.failure()};
        lease.markGood();
        return {BACKEND_OK, ""};
    }
}

// Without a reason the failure says nothing about the backend: all connections are in use, or the pause between two
// attempts is not over.
BackendClient::Outcome BackendClient::acquire(Lease& lease, Deadline deadline) {
    {
        MutexLock lock(m_mutex);
        for (;;) {
            while (!m_idle.empty()) {
                std::unique_ptr<BackendConnection> connection = std::move(m_idle.back());
                m_idle.pop_back();
                if (connection->isQuiet()) {
                    lease.hold();
                    lease.use(std::move(connection), true);
                    return {BACKEND_OK, ""};
                }
                --m_open;  // the backend closed it, or sent what nobody asked for
            }
            if (!m_backoff.mayTry(Clock::now())) return {BACKEND_UNREACHABLE, ""};
            if (m_open < m_options.connections) break;
            if (m_freed.wait_until(lock, deadline) == std::cv_status::timeout) return {BACKEND_TIMEOUT, ""};
        }
        ++m_open;
        lease.hold();
    }
    return connect(lease, deadline);
}

BackendClient::Outcome BackendClient::connect(Lease& lease, Deadline deadline) {
    Expected<FileDescriptor> socket = connectSocket(m_options.address, deadline, -1);
    if (!socket) {
        const MutexLock lock(m_mutex);
        m_backoff.failed(Clock::now());
        return {BACKEND_UNREACHABLE, socket.failure()};
    }
    ++m_connects;
    lease.use(std::make_unique<BackendConnection>(*std::move(socket), m_options.packageLimit), false);
    const MutexLock lock(m_mutex);
    m_backoff.succeeded();
    return {BACKEND_OK, ""};
}

void BackendClient::release(std::unique_ptr<BackendConnection> connection) {
    {
        const MutexLock lock(m_mutex);
        if (connection) {
            m_idle.push_back(std::move(connection));
        } else {
            --m_open;
        }
    }
    m_freed.notify_all();  // one that is woken may be out of time: let the others see it too
}

// One line for each change. A failure of a call that began before another one succeeded is old news.
void BackendClient::noteState(bool reachable, Clock::time_point begun, const std::string& reason) {
    const MutexLock lock(m_mutex);
    if (reachable) {
        m_lastSuccess = Clock::now();
        m_latency.add(m_lastSuccess - begun);
    } else if (begun < m_lastSuccess) {
        return;
    }
    if (m_stateKnown && m_reachable == reachable) return;
    m_stateKnown = true;
    m_reachable = reachable;
    if (reachable) {
        logLine<lines::BACKEND_REACHABLE>(m_options.address.text());
    } else {
        logLine<lines::BACKEND_AWAY>(m_options.address.text(), reason);
    }
}

BackendClientCounters BackendClient::counters() const {
    BackendClientCounters counters;
    counters.calls = m_calls;
    counters.refusals = m_refusals;
    counters.failures = m_failures;
    counters.connects = m_connects;
    const MutexLock lock(m_mutex);
    counters.reachable = m_reachable;
    counters.latency = m_latency;
    return counters;
}

}  // namespace vrx

// What platform/ declares has no namespace.
using namespace vrx;

CSNMP_Configuration* CSNMP_Configuration::instance() {
    static CSNMP_Configuration configuration;
    return &configuration;
}

int CSNMP_Configuration::configure(CR8KPackageV3& request, CR8KPackageV3& response, bool /*retry*/) {
    return BackendClient::ofProcess().call(request, response);
}
