#include "host/backend/client_session.h"

#include <poll.h>

#include <cerrno>
#include <exception>
#include <optional>
#include <string>
#include <utility>

#include "host/base/log_line.h"
#include "host/log_lines/backend.h"

namespace vrx {

namespace {

using Clock = std::chrono::steady_clock;

// How long a package may take from its first byte to its last, in either direction.
constexpr std::chrono::seconds PACKAGE_TIME{30};

// A subscriber without news gets an empty package this often, so that it can tell silence from death.
constexpr std::chrono::seconds KEEP_ALIVE{2};

// Counts something that lasts as long as the scope.
class Counted {
public:
    explicit Counted(std::atomic<unsigned long long>& counter) : m_counter(counter) { ++m_counter; }
    ~Counted() { --m_counter; }
    Counted(const Counted&) = delete;
    Counted& operator=(const Counted&) = delete;

private:
    std::atomic<unsigned long long>& m_counter;
};

}  // namespace

ClientSession::ClientSession(unsigned long long number, FileDescriptor socket, const Settings& settings,
                             RequestHandler& handler, BackendTraffic& traffic)
    : m_number(number),
      m_settings(settings),
      m_handler(handler),
      m_traffic(traffic),
      m_connection(std::move(socket), settings.packageLimit, settings.stop) {}

void ClientSession::run() {
    const Counted client(m_traffic.clients);
    try {
        while (answerRequest()) {
        }
    } catch (const std::exception& fault) {
        logFault<lines::CLIENT_FAILED>(m_number, fault.what());
    }
    m_connection.close();  // now: the session itself is removed when the next client comes
}

bool ClientSession::isOver(BackendConnection::Result result) {
    switch (result) {
        case BackendConnection::Result::Ok:
            return false;
        case BackendConnection::Result::Closed:
        case BackendConnection::Result::Cancelled:
            return true;
        case BackendConnection::Result::Broken:
        case BackendConnection::Result::Timeout:
        case BackendConnection::Result::Garbage:
        case BackendConnection::Result::TooLarge:
            break;
    }
    logLine<lines::CLIENT_CLOSED>(m_number, m_connection.failure());
    return true;
}

// Whether the client may send another request.
bool ClientSession::answerRequest() {
    if (isOver(m_connection.waitForPackage(Deadline::max()))) return false;
    CR8KPackageV3 request;
    if (isOver(m_connection.receive(request, Clock::now() + PACKAGE_TIME))) return false;
    CR8KPackageV3 answer;
    const std::optional<unsigned long long> subscribedFrom = m_handler.handle(request, answer);
    if (m_settings.delay.count() > 0 &&
        waitFor(-1, 0, Clock::now() + m_settings.delay, m_settings.stop) == Wait::Cancelled)
        return false;
    if (!send(answer)) return false;
    if (!subscribedFrom) return true;
    pushEvents(*subscribedFrom);
    return false;
}

bool ClientSession::send(CR8KPackageV3& package) {
    const auto bytes = encodePackage(package, m_settings.packageLimit);
    if (!bytes) {
        logLine<lines::ANSWER_TOO_LARGE>(m_number);
        return false;
    }
    return !isOver(m_connection.send(*bytes, Clock::now() + PACKAGE_TIME));
}

void ClientSession::pushEvents(unsigned long long position) {
    const Counted subscriber(m_traffic.subscribers);
    for (;;) {
        m_news.lower();  // before the store is read: what comes up afterwards raises it again
        CR8KPackageV3 events;
        m_handler.fillPush(position, events);
        if (events.records().empty()) {
            if (!waitForNews()) return;
            continue;
        }
        if (!send(events)) return;
    }
}

// Waits for the next event and keeps the connection alive meanwhile. Whether the subscription goes on.
bool ClientSession::waitForNews() {
    pollfd polls[] = {
        {m_connection.descriptor(), POLLIN, 0}, {m_news.descriptor(), POLLIN, 0}, {m_settings.stop, POLLIN, 0}};
    const int ready =
        ::poll(polls, 3, static_cast<int>(std::chrono::duration_cast<std::chrono::milliseconds>(KEEP_ALIVE).count()));
    if (ready == 0) {
        CR8KPackageV3 empty;
        return send(empty);
    }
    if (ready < 0) return errno == EINTR;
    if (polls[2].revents != 0) return false;
    if (polls[0].revents == 0) return true;
    CR8KPackageV3 unexpected;
    if (!isOver(m_connection.receive(unexpected, Clock::now() + PACKAGE_TIME)))
        logLine<lines::CLIENT_ASKS_SUBSCRIBED>(m_number);
    return false;
}

}  // namespace vrx
