// The transport to the management backend: what CSNMP_Configuration sends through.
//
// A pool of connections. Each call takes an idle one or opens one, sends its request and waits for the answer; with all
// of them in use it waits for a free one. The deadline covers all of that. A connection whose call failed or came too
// late is closed, so a late answer cannot be taken for the next call's. While the backend cannot be reached, new
// connections are tried with growing pauses and calls in between fail at once.
//
// A request is sent again only when the backend cannot have carried it out: a pooled connection that the backend has
// closed meanwhile did not take the whole request. Afterwards the caller learns of the failure and decides.
//
// Threads: any number may call at the same time.
#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "host/base/backoff.h"
#include "host/base/latency_histogram.h"
#include "host/base/mutex.h"
#include "host/transport/backend_connection.h"
#include "host/transport/backend_options.h"
#include "vrxpub/vrx_message_package.h"

namespace vrx {

struct BackendClientCounters {
    unsigned long long calls = 0;
    unsigned long long refusals = 0;  // calls that the backend answered with a code of its own
    unsigned long long failures = 0;  // calls without an answer
    unsigned long long connects = 0;  // connections that were made
    bool reachable = false;           // as the last call found it
    LatencyHistogram latency;         // of the calls with an answer
};

class BackendClient {
public:
    explicit BackendClient(const BackendOptions& options);

    // The one of the process, made on the first call from the device configuration. With a faulty configuration there
    // is an error line and every call ends with BACKEND_UNREACHABLE.
    static BackendClient& ofProcess();

    // As CSNMP_Configuration::configure. `response` is left as it was unless the backend answered.
    [[nodiscard]] int call(CR8KPackageV3& request, CR8KPackageV3& response);

    BackendClientCounters counters() const;

private:
    class Lease;
    using Clock = std::chrono::steady_clock;

    // Outcome of a call's attempt, and for a failure its reason.
    struct [[nodiscard]] Outcome {
        int result;
        std::string reason;
    };

    Outcome tryCall(const std::vector<unsigned char>& request, CR8KPackageV3& answer, Deadline deadline);
    Outcome acquire(Lease& lease, Deadline deadline);
    Outcome connect(Lease& lease, Deadline deadline);
    void release(std::unique_ptr<BackendConnection> connection);  // null: it was closed
    void noteState(bool reachable, Clock::time_point begun, const std::string& reason);

    const BackendOptions m_options;

    mutable Mutex m_mutex;
    ConditionVariable m_freed;
    std::vector<std::unique_ptr<BackendConnection>> m_idle GUARDED_BY(m_mutex);
    unsigned int m_open GUARDED_BY(m_mutex) = 0;  // idle, in use, or being made
    Backoff m_backoff GUARDED_BY(m_mutex);
    bool m_stateKnown GUARDED_BY(m_mutex) = false;
    bool m_reachable GUARDED_BY(m_mutex) = false;
    Clock::time_point m_lastSuccess GUARDED_BY(m_mutex){};
    LatencyHistogram m_latency GUARDED_BY(m_mutex);

    std::atomic<unsigned long long> m_calls{0};
    std::atomic<unsigned long long> m_refusals{0};
    std::atomic<unsigned long long> m_failures{0};
    std::atomic<unsigned long long> m_connects{0};
};

}  // namespace vrx
