#include "host/backend/backend.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sysexits.h>
#include <unistd.h>

#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "host/base/local_socket.h"
#include "host/transport/backend_result.h"
#include "tests/backend/test_support.h"

namespace vrx {

namespace {

using Result = BackendConnection::Result;

// A backend in this process, asked over real sockets.
class BackendTest : public testing::Test {
protected:
    BackendTest() {
        m_settings.transport = optionsFor(unixAddress(m_directory.file("b.sock")));
        m_settings.commands = testCommands();
        m_settings.stateDirectory = m_directory.file("state");
    }

    void start() {
        m_backend = std::make_unique<Backend>(m_settings);
        m_backend->start();
    }
    // The exit code and text of a start that fails.
    static std::pair<int, std::string> startFailure(const BackendSettings& settings) {
        Backend backend(settings);
        try {
            backend.start();
        } catch (const BackendStartError& error) {
            return {error.exitCode, error.what()};
        }
        return {EX_OK, "started"};
    }

    FileDescriptor connectBare() {
        Expected<FileDescriptor> socket = connectSocket(m_settings.transport.address, inTime(), -1);
        EXPECT_TRUE(socket) << socket.failure();
        return socket ? *std::move(socket) : FileDescriptor();
    }
    std::unique_ptr<BackendConnection> connect() {
        return std::make_unique<BackendConnection>(connectBare(), m_settings.transport.packageLimit);
    }

    std::unique_ptr<CTLVRecordV3> raiseRecord(const std::string& parameters = "p") const {
        auto record = makeRecord(m_settings.commands.raiseAlarm);
        appendUint64(*record, alarm_tag::ID, 77);
        appendUint32(*record, alarm_tag::LEVEL, 3);
        appendText(*record, alarm_tag::PARAMETERS, parameters);
        return record;
    }

    // Sends the record on a connection and gives the answer's result; the records are in `answer`.
    static int ask(BackendConnection& connection, std::unique_ptr<CTLVRecordV3> record, CR8KPackageV3& answer) {
        CR8KPackageV3 request;
        request.append(std::move(record));
        EXPECT_EQ(connection.send(encoded(request), inTime()), Result::Ok);
        EXPECT_EQ(connection.receive(answer, inTime()), Result::Ok) << connection.failure();
        return static_cast<int>(answer.head().uiHeadParam1);
    }
    int ask(std::unique_ptr<CTLVRecordV3> record) {
        const auto connection = connect();
        CR8KPackageV3 answer;
        return ask(*connection, std::move(record), answer);
    }
    void raise(int count = 1) {
        for (int number = 0; number < count; ++number) ASSERT_EQ(ask(raiseRecord()), BACKEND_OK);
    }
    unsigned long long status(unsigned short tag) {
        const auto connection = connect();
        CR8KPackageV3 answer;
        EXPECT_EQ(ask(*connection, makeRecord(m_settings.commands.getBackendStatus), answer), BACKEND_OK);
        return uint64Of(*answer[0], tag);
    }

    std::unique_ptr<BackendConnection> subscribe(unsigned long long handled) {
        auto connection = connect();
        auto record = makeRecord(m_settings.commands.subscribeAlarm);
        appendUint64(*record, event_tag::HANDLED, handled);
        CR8KPackageV3 answer;
        EXPECT_EQ(ask(*connection, std::move(record), answer), BACKEND_OK);
        return connection;
    }
    // The numbers of the next `count` events pushed.
    static std::vector<unsigned long long> eventNumbers(BackendConnection& connection, std::size_t count) {
        std::vector<unsigned long long> numbers;
        while (numbers.size() < count) {
            CR8KPackageV3 push;
            if (connection.receive(push, inTime()) != Result::Ok) break;
            for (const CTLVRecordV3* record : push.records()) numbers.push_back(uint64Of(*record, event_tag::SEQUENCE));
        }
        return numbers;
    }

    // Whether the backend closes a connection on which these bytes are sent.
    bool closesAfter(const Bytes& bytes) {
        const FileDescriptor socket = connectBare();
        EXPECT_TRUE(writeAll(socket.get(), bytes));
        return readPackage(socket.get()).empty();
    }

    LogCapture m_log;
    TemporaryDirectory m_directory;
    BackendSettings m_settings;
    std::unique_ptr<Backend> m_backend;
};

using Numbers = std::vector<unsigned long long>;
using Lines = std::vector<std::string>;

}  // namespace

TEST_F(BackendTest, AnswersOverAUnixSocket) {
    start();
    const auto connection = connect();
    CR8KPackageV3 answer;
    ASSERT_EQ(ask(*connection, makeRecord(m_settings.commands.getSystemWwn), answer), BACKEND_OK);
    EXPECT_EQ(textOf(*answer[0], wwn_tag::WWN).size(), 16U);
}

TEST_F(BackendTest, AnswersOverTcp) {
    m_settings.transport.address = parseLocalAddress("tcp:127.0.0.1:" + std::to_string(freeTcpPort()), "");
    start();
    EXPECT_EQ(ask(makeRecord(m_settings.commands.getSystemWwn)), BACKEND_OK);
}

TEST_F(BackendTest, ATcpAddressIsSaidToBeOpenToEveryUser) {
    start();
    EXPECT_TRUE(m_log.linesWith("authenticated").empty()) << "a socket with a mode";
    m_backend->stop();
    m_settings.transport.address = parseLocalAddress("tcp:127.0.0.1:" + std::to_string(freeTcpPort()), "");
    start();
    EXPECT_EQ(
        m_log.linesWith("authenticated"),
        std::vector<std::string>{"warning [backend] clients of " + m_settings.transport.address.text() +
                                 " are not authenticated: every user of this machine can raise and clear alarms"});
}

TEST_F(BackendTest, TheDocumentedExchangeByteByByte) {
    start();
    const FileDescriptor socket = connectBare();
    const Bytes request = {
        0x55, 0x55, 0x55, 0x55, 0x03, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0xFF, 0xFF, 0xFF, 0xFF,  // header
        0xFD, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x1B, 0x00, 0x00, 0x00,                          // 27 bytes
        0xD2, 0x07, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x11, 0x00,                                      // CLEAR_ALARM
        0x33, 0x00, 0x04, 0x00, 0x2A, 0x00, 0x00, 0x00,                                                  // serial 42
        0x72, 0x00, 0x05, 0x00, 0x54, 0x45, 0x53, 0x54, 0x00,                                            // "TEST"
    };
    const Bytes refusal = {
        0x55, 0x55, 0x55, 0x55, 0x03, 0x00, 0x00, 0x00, 0x06, 0x00, 0x00, 0x05, 0xFF, 0xFF,
        0xFF, 0xFF, 0xFD, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x00, 0x00, 0x00, 0x00,
    };
    ASSERT_TRUE(writeAll(socket.get(), request));
    EXPECT_EQ(readPackage(socket.get()), refusal);
}

TEST_F(BackendTest, AnswersSeveralRequestsOnOneConnection) {
    start();
    const auto connection = connect();
    for (int number = 0; number < 5; ++number) {
        CR8KPackageV3 answer;
        EXPECT_EQ(ask(*connection, makeRecord(m_settings.commands.getSystemWwn), answer), BACKEND_OK);
    }
}

TEST_F(BackendTest, ARefusalLeavesTheConnectionOpen) {
    start();
    const auto connection = connect();
    CR8KPackageV3 answer;
    EXPECT_EQ(ask(*connection, makeRecord(9999), answer), BACKEND_UNKNOWN_COMMAND);
    EXPECT_EQ(ask(*connection, makeRecord(m_settings.commands.getSystemWwn), answer), BACKEND_OK);
}

TEST_F(BackendTest, ServesSeveralClientsAtOnce) {
    start();
    std::vector<std::unique_ptr<BackendConnection>> connections;
    connections.reserve(20);
    for (int number = 0; number < 20; ++number) connections.push_back(connect());
    for (auto connection = connections.rbegin(); connection != connections.rend(); ++connection) {
        CR8KPackageV3 answer;
        EXPECT_EQ(ask(**connection, makeRecord(m_settings.commands.getSystemWwn), answer), BACKEND_OK);
    }
    EXPECT_EQ(status(status_tag::CLIENTS), 21U);
}

TEST_F(BackendTest, ClientsBeyondTheLimitAreRefusedUntilOthersGo) {
    start();
    std::vector<FileDescriptor> sockets;
    sockets.reserve(64);
    for (int number = 0; number < 64; ++number) sockets.push_back(connectBare());
    const FileDescriptor refused = connectBare();
    EXPECT_TRUE(readPackage(refused.get()).empty());
    EXPECT_EQ(m_log.linesWith("refused"), Lines{"warning [backend] clients are refused: too many connections"});
    sockets.clear();
    EXPECT_TRUE(eventually([this] {
        const FileDescriptor socket = connectBare();
        CR8KPackageV3 request;
        request.append(makeRecord(m_settings.commands.getSystemWwn));
        return writeAll(socket.get(), encoded(request)) && !readPackage(socket.get()).empty();
    }));
}

TEST_F(BackendTest, GarbageClosesTheConnectionWithOneLogLine) {
    start();
    EXPECT_TRUE(closesAfter(Bytes(100, 'x')));
    EXPECT_EQ(m_log.linesWith("client "),
              Lines{"warning [backend] client 1: bytes that do not begin a package; connection closed"});
}

TEST_F(BackendTest, MalformedRecordsCloseTheConnectionWithOneLogLine) {
    start();
    Bytes bytes = textAnswer("hello");
    bytes[28 + 8] = 0xFF;
    EXPECT_TRUE(closesAfter(bytes));
    EXPECT_EQ(m_log.linesWith("client "),
              Lines{"warning [backend] client 1: a package with malformed records; connection closed"});
}

TEST_F(BackendTest, APackageBeyondTheLimitClosesTheConnectionWithOneLogLine) {
    start();
    Bytes head = answerBytes(0);
    head[27] = 0x7F;
    EXPECT_TRUE(closesAfter(head));
    EXPECT_EQ(
        m_log.linesWith("client "),
        Lines{
            "warning [backend] client 1: a package of 2130706460 bytes is larger than the limit of 4194304; connection "
            "closed"});
}

TEST_F(BackendTest, AClientThatDiesInTheMiddleOfAPackageIsLoggedAndForgotten) {
    start();
    Bytes half = textAnswer("hello");
    half.resize(30);
    {
        const FileDescriptor socket = connectBare();
        ASSERT_TRUE(writeAll(socket.get(), half));
    }
    EXPECT_TRUE(eventually([this] { return status(status_tag::CLIENTS) == 1; }));
    EXPECT_TRUE(eventually([this] { return !m_log.linesWith("client ").empty(); }));
    EXPECT_EQ(m_log.linesWith("client "), Lines{"warning [backend] client 1: the peer closed the connection in the "
                                                "middle of a package; connection closed"});
}

TEST_F(BackendTest, AClientThatGoesBetweenPackagesIsNotLogged) {
    start();
    raise(3);
    EXPECT_TRUE(eventually([this] { return status(status_tag::CLIENTS) == 1; }));
    EXPECT_TRUE(m_log.linesWith("client ").empty());
}

TEST_F(BackendTest, ARequestThatComesOneByteAtATimeIsAnswered) {
    start();
    const FileDescriptor socket = connectBare();
    CR8KPackageV3 request;
    request.append(makeRecord(m_settings.commands.getSystemWwn));
    for (const unsigned char byte : encoded(request)) ASSERT_TRUE(writeAll(socket.get(), {byte}));
    EXPECT_FALSE(readPackage(socket.get()).empty());
}

TEST_F(BackendTest, HalfARequestHoldsNobodyUp) {
    start();
    const FileDescriptor half = connectBare();
    ASSERT_TRUE(writeAll(half.get(), Bytes(10, 0x55)));
    EXPECT_EQ(ask(makeRecord(m_settings.commands.getSystemWwn)), BACKEND_OK);
}

TEST_F(BackendTest, RandomMutationsOfARequestNeverStopTheBackend) {
    start();
    CR8KPackageV3 request;
    request.append(raiseRecord());
    const Bytes good = encoded(request);
    unsigned int random = 12345;
    const auto next = [&random] { return random = random * 1664525U + 1013904223U; };
    for (int round = 0; round < 500; ++round) {
        Bytes bytes = good;
        for (unsigned int change = 0; change <= (next() >> 30); ++change)
            bytes[(next() >> 8) % bytes.size()] = static_cast<unsigned char>(next() >> 24);
        bytes.resize(bytes.size() - (next() >> 24) % 4);
        const FileDescriptor socket = connectBare();
        ASSERT_TRUE(writeAll(socket.get(), bytes));
        ::shutdown(socket.get(), SHUT_WR);
        readPackage(socket.get());
    }
    EXPECT_EQ(ask(raiseRecord()), BACKEND_OK);
}

TEST_F(BackendTest, ASubscriberGetsTheEventsAfterItsNumberInOrder) {
    start();
    raise(5);
    const auto subscriber = subscribe(2);
    EXPECT_EQ(eventNumbers(*subscriber, 3), (Numbers{3, 4, 5}));
    raise(2);
    EXPECT_EQ(eventNumbers(*subscriber, 2), (Numbers{6, 7}));
}

TEST_F(BackendTest, EverySubscriberGetsEveryEvent) {
    start();
    const auto first = subscribe(0);
    const auto second = subscribe(0);
    raise(3);
    EXPECT_EQ(eventNumbers(*first, 3), (Numbers{1, 2, 3}));
    EXPECT_EQ(eventNumbers(*second, 3), (Numbers{1, 2, 3}));
    EXPECT_EQ(status(status_tag::SUBSCRIBERS), 2U);
}

TEST_F(BackendTest, AnIdleSubscriberGetsEmptyPackages) {
    start();
    const auto subscriber = subscribe(0);
    for (int number = 0; number < 2; ++number) {
        CR8KPackageV3 push;
        ASSERT_EQ(subscriber->receive(push, inTime()), Result::Ok);
        EXPECT_TRUE(push.records().empty());
        EXPECT_EQ(push.head().uiHeadParam1, 0U);
    }
}

TEST_F(BackendTest, ASubscriberThatDoesNotReadHoldsNobodyUp) {
    start();
    const auto lazy = subscribe(0);
    const auto eager = subscribe(0);
    // Far more than a socket's buffers take.
    const auto connection = connect();
    for (int package = 0; package < 20; ++package) {
        CR8KPackageV3 request;
        for (int number = 0; number < 40; ++number) request.append(raiseRecord(std::string(50'000, 'x')));
        ASSERT_EQ(connection->send(encoded(request), inTime()), Result::Ok);
        CR8KPackageV3 answer;
        ASSERT_EQ(connection->receive(answer, inTime()), Result::Ok);
    }
    const Numbers numbers = eventNumbers(*eager, 800);
    ASSERT_EQ(numbers.size(), 800U);
    EXPECT_EQ(numbers.back(), 800U);
    EXPECT_EQ(eventNumbers(*lazy, 800), numbers);
}

TEST_F(BackendTest, ARequestOnASubscribedConnectionClosesIt) {
    start();
    const auto subscriber = subscribe(0);
    CR8KPackageV3 request;
    request.append(makeRecord(m_settings.commands.getSystemWwn));
    ASSERT_EQ(subscriber->send(encoded(request), inTime()), Result::Ok);
    CR8KPackageV3 answer;
    EXPECT_EQ(subscriber->receive(answer, inTime()), Result::Closed);
    EXPECT_EQ(m_log.linesWith("client "),
              Lines{"warning [backend] client 1: a request on a subscribed connection; connection closed"});
}

TEST_F(BackendTest, ASubscriberThatGoesIsForgotten) {
    start();
    subscribe(0).reset();
    EXPECT_TRUE(eventually([this] { return status(status_tag::SUBSCRIBERS) == 0; }));
    EXPECT_TRUE(m_log.linesWith("client ").empty());
}

TEST_F(BackendTest, ManyRaisesInOnePackageAreAllOrNothing) {
    start();
    const auto connection = connect();
    CR8KPackageV3 request;
    for (int number = 0; number < 100; ++number) request.append(raiseRecord());
    auto bad = raiseRecord();
    appendUint32(*bad, alarm_tag::SERIAL, 0);
    request.append(std::move(bad));
    CR8KPackageV3 answer;
    ASSERT_EQ(connection->send(encoded(request), inTime()), Result::Ok);
    ASSERT_EQ(connection->receive(answer, inTime()), Result::Ok);
    EXPECT_EQ(answer.head().uiHeadParam1, static_cast<unsigned int>(BACKEND_WRONG_CELL));
    EXPECT_EQ(status(status_tag::ACTIVE_ALARMS), 0U);
}

TEST_F(BackendTest, AlarmsAreThereAfterARestart) {
    start();
    raise(3);
    m_backend.reset();
    start();
    EXPECT_EQ(status(status_tag::ACTIVE_ALARMS), 3U);
    EXPECT_EQ(eventNumbers(*subscribe(0), 3), (Numbers{1, 2, 3}));
}

TEST_F(BackendTest, StopEndsItWithClientsConnectedAndASubscriberWaiting) {
    start();
    const auto client = connect();
    const auto subscriber = subscribe(0);
    m_backend->stop();
    CR8KPackageV3 answer;
    EXPECT_EQ(client->receive(answer, inTime()), Result::Closed);
    EXPECT_EQ(subscriber->receive(answer, inTime()), Result::Closed);
    EXPECT_NE(::access(m_settings.transport.address.path.c_str(), F_OK), 0);
    m_backend->start();
    EXPECT_EQ(ask(makeRecord(m_settings.commands.getSystemWwn)), BACKEND_OK);
}

TEST_F(BackendTest, StopDoesNotWaitForADelayedAnswer) {
    m_settings.delay = std::chrono::hours(1);
    start();
    const auto client = connect();
    CR8KPackageV3 request;
    request.append(raiseRecord());
    ASSERT_EQ(client->send(encoded(request), inTime()), Result::Ok);
    // The request is carried out, its answer waits.
    AlarmStore store(m_settings.stateDirectory + "/backend.db", m_settings.eventLimit);
    ASSERT_TRUE(eventually([&store] { return store.lastSequence() == 1; }));
    m_backend->stop();
    CR8KPackageV3 answer;
    EXPECT_EQ(client->receive(answer, inTime()), Result::Closed);
}

TEST_F(BackendTest, SocketAndStateBelongToTheOwnerOnly) {
    start();
    const auto modeOf = [](const std::string& path) {
        struct stat status {};
        EXPECT_EQ(::stat(path.c_str(), &status), 0) << path;
        return status.st_mode & 0777U;
    };
    EXPECT_EQ(modeOf(m_settings.transport.address.path), 0600U);
    EXPECT_EQ(modeOf(m_settings.stateDirectory), 0700U);
    EXPECT_EQ(modeOf(m_settings.stateDirectory + "/backend.db"), 0600U);
    EXPECT_EQ(modeOf(m_settings.stateDirectory + "/backend.lock"), 0600U);
}

TEST_F(BackendTest, ASecondBackendWithTheSameStateIsRefused) {
    start();
    BackendSettings second = m_settings;
    second.transport.address = unixAddress(m_directory.file("other.sock"));
    const auto [code, text] = startFailure(second);
    EXPECT_EQ(code, EX_UNAVAILABLE);
    EXPECT_EQ(text, "another backend uses this state directory (" + m_settings.stateDirectory + "/backend.lock)");
}

TEST_F(BackendTest, ASecondBackendAtTheSameSocketIsRefusedAndTheFirstServesOn) {
    start();
    BackendSettings second = m_settings;
    second.stateDirectory = m_directory.file("state2");
    const auto [code, text] = startFailure(second);
    EXPECT_EQ(code, EX_UNAVAILABLE);
    EXPECT_EQ(text, "somebody is alive at " + m_settings.transport.address.text() + ": Address already in use");
    EXPECT_EQ(ask(makeRecord(m_settings.commands.getSystemWwn)), BACKEND_OK);
}

TEST_F(BackendTest, ASocketFileThatNobodyListensOnIsReplaced) {
    { const FileDescriptor dead = listenSocket(m_settings.transport.address); }
    ASSERT_EQ(::access(m_settings.transport.address.path.c_str(), F_OK), 0);
    start();
    EXPECT_EQ(ask(makeRecord(m_settings.commands.getSystemWwn)), BACKEND_OK);
}

TEST_F(BackendTest, AFileThatIsNoSocketIsNotReplaced) {
    const FileDescriptor file(::creat(m_settings.transport.address.path.c_str(), 0600));
    const auto [code, text] = startFailure(m_settings);
    EXPECT_EQ(code, EX_UNAVAILABLE);
    EXPECT_EQ(text, m_settings.transport.address.text() + " is no socket: Socket operation on non-socket");
    EXPECT_EQ(::access(m_settings.transport.address.path.c_str(), F_OK), 0);
}

TEST_F(BackendTest, AStateDirectoryThatCannotBeMadeIsRefused) {
    m_settings.stateDirectory = "/nonexistent/state";
    EXPECT_EQ(startFailure(m_settings), std::make_pair(EX_CANTCREAT, std::string("/nonexistent/state: No such file or "
                                                                                 "directory")));
}

}  // namespace vrx
