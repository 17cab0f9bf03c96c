// One connected client: reads requests and answers them one after the other; after a subscription it pushes events.
//
// A subscriber is fed from the store, from where it stands: a slow one costs its own thread and one package of memory,
// and holds nobody up. Bytes that are no package end the session with one log line.
//
// Threads: run() in the session's own thread; wake() from any.
#pragma once

#include <chrono>
#include <cstddef>
#include <string>

#include "host/backend/request_handler.h"
#include "host/transport/backend_connection.h"

namespace vrx {

class ClientSession {
public:
    struct Settings {
        std::size_t packageLimit;
        std::chrono::milliseconds delay;  // before each answer
        int stop;                         // descriptor of the WakeFlag that ends all sessions
    };

    // `number` names the client in log lines.
    ClientSession(unsigned long long number, FileDescriptor socket, const Settings& settings, RequestHandler& handler,
                  BackendTraffic& traffic);

    void run();                      // until the client goes, misbehaves, or the backend stops
    void wake() { m_news.raise(); }  // there are new events

private:
    [[nodiscard]] bool answerRequest();
    void pushEvents(unsigned long long position);
    [[nodiscard]] bool waitForNews();
    [[nodiscard]] bool send(CR8KPackageV3& package);
    [[nodiscard]] bool isOver(BackendConnection::Result result);

    const unsigned long long m_number;
    const Settings m_settings;
    RequestHandler& m_handler;
    BackendTraffic& m_traffic;
    BackendConnection m_connection;
    WakeFlag m_news;
};

}  // namespace vrx
