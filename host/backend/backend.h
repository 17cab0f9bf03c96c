// The reference management backend: listens for clients, one thread for each, around one alarm store.
//
//     Backend backend(BackendSettings::fromDevice());
//     backend.start();
//     ...
//     backend.stop();
//
// Runs in vrx-backendd, or inside an agent. State: backend.db (alarms and events) and backend.lock, which keeps a
// second backend off the same store; both have mode 0600.
//
// Threads: start() and stop() from one thread. Errors: BackendStartError from start(), afterwards log lines.
#pragma once

#include <atomic>
#include <chrono>
#include <list>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>

#include "host/backend/alarm_store.h"
#include "host/backend/client_session.h"
#include "host/backend/request_handler.h"
#include "host/base/fault_line.h"
#include "host/base/mutex.h"
#include "host/transport/backend_options.h"
#include "host/transport/backend_protocol.h"

namespace vrx {

struct BackendSettings {
    BackendOptions transport;  // of these the address and the package limit
    BackendCommands commands;
    std::string stateDirectory;
    unsigned long long eventLimit = 1'000'000;
    std::chrono::milliseconds delay{0};  // before each answer: for trying out slow backends

    // From product root and device configuration. Throws std::invalid_argument.
    static BackendSettings fromDevice();
};

struct BackendStartError : std::runtime_error {
    BackendStartError(int code, const std::string& text) : std::runtime_error(text), exitCode(code) {}
    const int exitCode;  // of sysexits.h
};

class Backend {
public:
    explicit Backend(const BackendSettings& settings);
    ~Backend();
    Backend(const Backend&) = delete;
    Backend& operator=(const Backend&) = delete;

    void start();
    void stop();  // ends all sessions and removes a Unix socket's file

    // Comes back when the store, which every request waits for, has answered, and be it with an error. REQUIRES:
    // started.
    void askStore() const;

private:
    struct Client;

    void acceptClients();
    void acceptClient();
    void noteRefusal(const char* reason);
    void removeFinishedClients();
    void wakeClients();

    const BackendSettings m_settings;
    BackendTraffic m_traffic;
    WakeFlag m_stop;
    FileDescriptor m_lock;
    std::unique_ptr<AlarmStore> m_store;
    std::unique_ptr<RequestHandler> m_handler;
    FileDescriptor m_listener;
    std::thread m_acceptor;

    // of the acceptor's thread
    unsigned long long m_lastClient = 0;
    FaultLine m_refusing;

    Mutex m_mutex;
    std::list<Client> m_clients GUARDED_BY(m_mutex);  // the acceptor's thread adds and removes
};

}  // namespace vrx
