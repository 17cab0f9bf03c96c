// What the tests of this folder share: temporary directories, captured log lines, package builders and a server whose
// behaviour on each connection is a function of the test.
#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "host/transport/backend_connection.h"
#include "host/transport/backend_options.h"
#include "host/transport/backend_protocol.h"
#include "vrxpub/vrx_message_package.h"

namespace vrx {

using Bytes = std::vector<unsigned char>;

// Removed with its contents at the end of the scope. Short, as socket paths must be.
class TemporaryDirectory {
public:
    TemporaryDirectory();
    ~TemporaryDirectory();
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

    const std::string& path() const { return m_path; }
    std::string file(const std::string& name) const { return m_path + "/" + name; }

private:
    std::string m_path;
};

// The process's log from here on, without the lines' times: "level [subsystem] text".
class LogCapture {
public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::vector<std::string> lines() const;
    // Those that hold `part`.
    std::vector<std::string> linesWith(const std::string& part) const;

private:
    TemporaryDirectory m_directory;
};

// Polls until the condition holds; false when that takes longer than any machine should need.
bool eventually(const std::function<bool()>& condition);

Deadline inTime();  // far enough away for anything that is expected to happen
Deadline soon();    // near, for what is expected not to happen

// A loopback port that nobody listens on now.
unsigned short freeTcpPort();

LocalAddress unixAddress(const std::string& path);
BackendOptions optionsFor(const LocalAddress& address);

// The codes that the tests use; the numbers of the shipped device configuration.
BackendCommands testCommands();

std::unique_ptr<CTLVRecordV3> makeRecord(unsigned long long code);
Bytes encoded(CR8KPackageV3& package);

// An answer without records.
Bytes answerBytes(int result);
// An answer of one record with tag 1 = `text`.
Bytes textAnswer(const std::string& text);

// Listens at a Unix socket and runs `serve` for each connection in a thread of its own, with the connection's number
// from 1. Its descriptor is closed when `serve` returns.
class ScriptedServer {
public:
    using Serve = std::function<void(int descriptor, int number)>;

    ScriptedServer(const LocalAddress& address, Serve serve);
    ~ScriptedServer();  // ends waiting reads of `serve`, too
    ScriptedServer(const ScriptedServer&) = delete;
    ScriptedServer& operator=(const ScriptedServer&) = delete;

    int connections() const { return m_connections; }  // since the start
    std::size_t openConnections();

private:
    void run();

    LocalAddress m_address;
    Serve m_serve;
    WakeFlag m_stop;
    FileDescriptor m_listener;
    std::atomic<int> m_connections{0};
    std::mutex m_mutex;
    std::vector<int> m_open;  // guarded by m_mutex
    std::list<std::thread> m_threads;
    std::thread m_acceptor;
};

// On a blocking or non-blocking descriptor: all bytes, or false when the peer has gone.
bool writeAll(int descriptor, const Bytes& bytes);
// The bytes of one package; empty when the peer has gone.
Bytes readPackage(int descriptor);
// Answers every request of a connection.
void answerAll(int descriptor, const Bytes& answer);

}  // namespace vrx
