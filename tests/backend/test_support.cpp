#include "tests/backend/test_support.h"

#include <ftw.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <stdexcept>
#include <utility>

#include "host/base/local_socket.h"
#include "host/base/logging.h"

namespace vrx {

namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds TIMEOUT{60};

int removeEntry(const char* path, const struct stat*, int, FTW*) {
    return ::remove(path);
}

// Waits for `events` on a non-blocking descriptor.
void waitOn(int descriptor, short events) {
    (void)waitFor(descriptor, events, Deadline::max(), -1);
}

bool readAll(int descriptor, unsigned char* to, std::size_t size) {
    while (size > 0) {
        const ssize_t count = ::recv(descriptor, to, size, 0);
        if (count == 0) return false;
        if (count < 0 && errno != EAGAIN && errno != EINTR) return false;
        if (count < 0) {
            waitOn(descriptor, POLLIN);
            continue;
        }
        to += count;
        size -= static_cast<std::size_t>(count);
    }
    return true;
}

}  // namespace

TemporaryDirectory::TemporaryDirectory() {
    char pattern[] = "/tmp/vrx-XXXXXX";
    if (::mkdtemp(pattern) == nullptr) throw std::runtime_error("mkdtemp failed");
    m_path = pattern;
}

TemporaryDirectory::~TemporaryDirectory() {
    constexpr int DESCRIPTORS = 8;
    ::nftw(m_path.c_str(), removeEntry, DESCRIPTORS, FTW_DEPTH | FTW_PHYS);
}

LogCapture::LogCapture() {
    LogOptions options;
    options.file = m_directory.file("log");
    startLogging(options);
}

LogCapture::~LogCapture() {
    startLogging({});
}

std::vector<std::string> LogCapture::lines() const {
    std::vector<std::string> lines;
    std::ifstream file(m_directory.file("log"));
    for (std::string line; std::getline(file, line);) lines.push_back(line.substr(line.find(' ') + 1));
    return lines;
}

std::vector<std::string> LogCapture::linesWith(const std::string& part) const {
    std::vector<std::string> found;
    for (const std::string& line : lines())
        if (line.find(part) != std::string::npos) found.push_back(line);
    return found;
}

bool eventually(const std::function<bool()>& condition) {
    const Clock::time_point end = Clock::now() + TIMEOUT;
    while (!condition()) {
        if (Clock::now() > end) return false;
        std::this_thread::sleep_for(milliseconds(2));
    }
    return true;
}

Deadline inTime() {
    return Clock::now() + TIMEOUT;
}

Deadline soon() {
    return Clock::now() + milliseconds(50);
}

unsigned short freeTcpPort() {
    const FileDescriptor socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof(address);
    if (::bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), size) != 0 ||
        ::getsockname(socket.get(), reinterpret_cast<sockaddr*>(&address), &size) != 0)
        throw std::runtime_error("no free port");
    return ntohs(address.sin_port);
}

LocalAddress unixAddress(const std::string& path) {
    return parseLocalAddress("unix:" + path, "");
}

BackendOptions optionsFor(const LocalAddress& address) {
    BackendOptions options;
    options.address = address;
    options.callDeadline = TIMEOUT;  // tests of deadlines set their own
    return options;
}

BackendCommands testCommands() {
    BackendCommands commands;
    commands.getSystemWwn = 1001;
    commands.getBackendStatus = 1002;
    commands.getCurrentAlarm = 2001;
    commands.clearAlarm = 2002;
    commands.raiseAlarm = 2003;
    commands.subscribeAlarm = 2004;
    return commands;
}

std::unique_ptr<CTLVRecordV3> makeRecord(unsigned long long code) {
    return std::make_unique<CTLVRecordV3>(code, CTLVRecordV3::DEFAULT_BUCKETS);
}

Bytes encoded(CR8KPackageV3& package) {
    unsigned char* buffer = nullptr;
    const unsigned int size = package.encode(buffer);
    const std::unique_ptr<unsigned char[]> owner(buffer);
    return {buffer, buffer + size};
}

Bytes answerBytes(int result) {
    CR8KPackageV3 answer;
    answer.head().uiHeadParam1 = static_cast<unsigned int>(result);
    return encoded(answer);
}

Bytes textAnswer(const std::string& text) {
    CR8KPackageV3 answer;
    auto record = makeRecord(1);
    appendText(*record, 1, text);
    answer.append(std::move(record));
    return encoded(answer);
}

ScriptedServer::ScriptedServer(const LocalAddress& address, Serve serve)
    : m_address(address), m_serve(std::move(serve)), m_listener(listenSocket(address)) {
    m_acceptor = std::thread([this] { run(); });
}

ScriptedServer::~ScriptedServer() {
    m_stop.raise();
    m_acceptor.join();
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        for (const int descriptor : m_open) ::shutdown(descriptor, SHUT_RDWR);
    }
    for (std::thread& thread : m_threads) thread.join();
    ::unlink(m_address.path.c_str());
}

std::size_t ScriptedServer::openConnections() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_open.size();
}

void ScriptedServer::run() {
    while (waitFor(m_listener.get(), POLLIN, Deadline::max(), m_stop.descriptor()) == Wait::Ready) {
        const int descriptor = ::accept4(m_listener.get(), nullptr, nullptr, SOCK_CLOEXEC);
        if (descriptor < 0) continue;
        const int number = ++m_connections;
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_open.push_back(descriptor);
        }
        m_threads.emplace_back([this, descriptor, number] {
            m_serve(descriptor, number);
            const std::lock_guard<std::mutex> lock(m_mutex);
            ::close(descriptor);
            m_open.erase(std::find(m_open.begin(), m_open.end(), descriptor));
        });
    }
}

bool writeAll(int descriptor, const Bytes& bytes) {
    std::size_t sent = 0;
    while (sent < bytes.size()) {
        const ssize_t count = ::send(descriptor, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (count < 0 && errno != EAGAIN && errno != EINTR) return false;
        if (count < 0) {
            waitOn(descriptor, POLLOUT);
            continue;
        }
        sent += static_cast<std::size_t>(count);
    }
    return true;
}

Bytes readPackage(int descriptor) {
    Bytes package(TLVMsgHeadV3::SIZE);
    if (!readAll(descriptor, package.data(), package.size())) return {};
    const std::size_t length = static_cast<std::size_t>(package[24]) | static_cast<std::size_t>(package[25]) << 8 |
                               static_cast<std::size_t>(package[26]) << 16;
    package.resize(package.size() + length);
    if (!readAll(descriptor, package.data() + TLVMsgHeadV3::SIZE, length)) return {};
    return package;
}

void answerAll(int descriptor, const Bytes& answer) {
    while (!readPackage(descriptor).empty() && writeAll(descriptor, answer)) {
    }
}

}  // namespace vrx
