#include "host/backend/backend.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sysexits.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>
#include <utility>

#include "host/base/local_socket.h"
#include "host/base/log_line.h"
#include "host/base/product_root.h"
#include "host/log_lines/backend.h"

namespace vrx {

namespace {

// Connections at the same time: a few agents with a full pool each, and tools.
constexpr std::size_t MOST_CLIENTS = 64;

constexpr unsigned long long MOST_EVENTS = 1'000'000'000;

// How long to leave clients waiting when one could not be accepted for lack of descriptors, memory or threads.
constexpr std::chrono::milliseconds ACCEPT_PAUSE{100};

std::string errorText() {
    return std::generic_category().message(errno);
}

void createStateDirectory(const std::string& path) {
    if (::mkdir(path.c_str(), S_IRWXU) != 0 && errno != EEXIST)
        throw BackendStartError(EX_CANTCREAT, path + ": " + errorText());
}

FileDescriptor lockState(const std::string& path) {
    FileDescriptor lock(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, S_IRUSR | S_IWUSR));
    if (!lock) throw BackendStartError(EX_CANTCREAT, path + ": " + errorText());
    if (::flock(lock.get(), LOCK_EX | LOCK_NB) != 0)
        throw BackendStartError(EX_UNAVAILABLE, "another backend uses this state directory (" + path + ")");
    return lock;
}

// Damage shows when the store is opened, or when its tables are first read.
std::unique_ptr<AlarmStore> openStore(const std::string& path, unsigned long long eventLimit,
                                      AlarmStoreStatus& status) {
    try {
        auto store = std::make_unique<AlarmStore>(path, eventLimit);
        status = store->status();
        return store;
    } catch (const SqliteError& error) {
        const std::string reason = error.what();
        throw BackendStartError(EX_IOERR, "alarm store: " + (reason.rfind(path, 0) == 0 ? "" : path + ": ") + reason);
    }
}

FileDescriptor openListener(const LocalAddress& address) {
    try {
        return listenSocket(address);
    } catch (const std::system_error& error) {
        throw BackendStartError(EX_UNAVAILABLE, error.what());
    }
}

}  // namespace

struct Backend::Client {
    Client(unsigned long long number, FileDescriptor socket, const ClientSession::Settings& settings,
           RequestHandler& handler, BackendTraffic& traffic)
        : session(number, std::move(socket), settings, handler, traffic) {}

    ClientSession session;
    std::atomic<bool> finished{false};
    std::thread thread;
};

BackendSettings BackendSettings::fromDevice() {
    BackendSettings settings;
    settings.transport = BackendOptions::fromDevice();
    settings.commands = BackendCommands::fromDevice();
    settings.stateDirectory = productPath("state");
    settings.eventLimit = backendNumber("EVENT_LIMIT", settings.eventLimit, 1, MOST_EVENTS);
    return settings;
}

Backend::Backend(const BackendSettings& settings) : m_settings(settings) {}

Backend::~Backend() {
    stop();
}

void Backend::start() {
    const BackendOptions& transport = m_settings.transport;
    createStateDirectory(m_settings.stateDirectory);
    FileDescriptor lock = lockState(m_settings.stateDirectory + "/backend.lock");
    AlarmStoreStatus status;
    auto store = openStore(m_settings.stateDirectory + "/backend.db", m_settings.eventLimit, status);
    FileDescriptor listener = openListener(transport.address);

    m_lock = std::move(lock);
    m_store = std::move(store);
    m_listener = std::move(listener);
    m_handler = std::make_unique<RequestHandler>(*m_store, m_settings.commands, transport.packageLimit, m_traffic,
                                                 [this] { wakeClients(); });
    m_stop.lower();
    m_acceptor = std::thread([this] { acceptClients(); });
    logLine<lines::BACKEND_SERVES>(transport.address.text(), status.activeAlarms, status.lastSequence);
    if (transport.address.kind == LocalAddress::Kind::Tcp) {
        logLine<lines::CLIENTS_NOT_AUTHENTICATED>(transport.address.text());
    }
}

void Backend::stop() {
    if (!m_acceptor.joinable()) return;
    if (m_settings.transport.address.kind == LocalAddress::Kind::Unix)
        ::unlink(m_settings.transport.address.path.c_str());
    m_stop.raise();
    m_acceptor.join();
    std::list<Client> clients;
    {
        const MutexLock lock(m_mutex);
        clients.swap(m_clients);
    }
    for (Client& client : clients) client.thread.join();
    clients.clear();
    m_listener = FileDescriptor();
    m_handler.reset();
    m_store.reset();
    m_lock = FileDescriptor();
    logLine<lines::BACKEND_STOPPED>();
}

void Backend::askStore() const {
    try {
        m_store->lastSequence();
    } catch (const std::exception& error) {
        logLine<lines::ALARM_STORE_UNREADABLE>(error.what());
    }
}

void Backend::acceptClients() {
    while (waitFor(m_listener.get(), POLLIN, Deadline::max(), m_stop.descriptor()) == Wait::Ready) {
        removeFinishedClients();
        try {
            acceptClient();
        } catch (const std::exception& fault) {
            noteRefusal(fault.what());
            waitFor(-1, 0, std::chrono::steady_clock::now() + ACCEPT_PAUSE, m_stop.descriptor());
        }
    }
}

// One line when it begins, until a client was accepted again.
void Backend::noteRefusal(const char* reason) {
    m_refusing.begins([&] { logLine<lines::CLIENTS_REFUSED>(reason); });
}

void Backend::acceptClient() {
    FileDescriptor socket(::accept4(m_listener.get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
    if (!socket) {
        if (errno == EAGAIN || errno == EINTR || errno == ECONNABORTED) return;  // the client has gone again
        throw std::system_error(errno, std::generic_category(), "accept");
    }
    const ClientSession::Settings settings{m_settings.transport.packageLimit, m_settings.delay, m_stop.descriptor()};
    const MutexLock lock(m_mutex);
    if (m_clients.size() >= MOST_CLIENTS) {
        noteRefusal("too many connections");
        return;
    }
    Client& client = m_clients.emplace_back(m_lastClient + 1, std::move(socket), settings, *m_handler, m_traffic);
    try {
        client.thread = std::thread([&client] {
            client.session.run();
            client.finished = true;
        });
    } catch (...) {
        m_clients.pop_back();
        throw;
    }
    ++m_lastClient;
    m_refusing.ends();
}

void Backend::removeFinishedClients() {
    const MutexLock lock(m_mutex);
    m_clients.remove_if([](Client& client) {
        if (!client.finished) return false;
        client.thread.join();
        return true;
    });
}

void Backend::wakeClients() {
    const MutexLock lock(m_mutex);
    for (Client& client : m_clients) client.session.wake();
}

}  // namespace vrx
