#include "host/transport/backend_client.h"

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <atomic>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "host/transport/backend_result.h"
#include "tests/backend/test_support.h"

namespace vrx {

namespace {

using std::chrono::milliseconds;

constexpr milliseconds SHORT_DEADLINE{100};

class BackendClientTest : public testing::Test {
protected:
    BackendClientTest() : m_address(unixAddress(m_directory.file("s"))), m_options(optionsFor(m_address)), m_request() {
        m_request.append(makeRecord(testCommands().getSystemWwn));
    }

    void serve(ScriptedServer::Serve serve) {
        m_server.reset();
        m_server = std::make_unique<ScriptedServer>(m_address, std::move(serve));
    }
    void serveText(const std::string& text) {
        serve([answer = textAnswer(text)](int peer, int) { answerAll(peer, answer); });
    }
    // A call's result, and in m_response its records.
    int call(BackendClient& client) { return client.call(m_request, m_response); }
    std::vector<std::string> stateLines() const { return m_log.linesWith("the management backend at "); }
    std::string reachableLine() const {
        return "info [transport] the management backend at " + m_address.text() + " is reachable";
    }
    std::string unreachableLine(const std::string& reason) const {
        return "warning [transport] the management backend at " + m_address.text() + " is not reachable: " + reason;
    }

    LogCapture m_log;
    TemporaryDirectory m_directory;
    LocalAddress m_address;
    BackendOptions m_options;
    CR8KPackageV3 m_request;
    CR8KPackageV3 m_response;
    std::unique_ptr<ScriptedServer> m_server;
};

}  // namespace

TEST_F(BackendClientTest, AnswersRecordsAreAppendedToTheResponse) {
    serveText("hello");
    BackendClient client(m_options);
    m_response.append(makeRecord(7));
    ASSERT_EQ(call(client), BACKEND_OK);
    ASSERT_EQ(m_response.records().size(), 2U);
    EXPECT_EQ(m_response[0]->identifier(), 7U);
    EXPECT_EQ(textOf(*m_response[1], 1), "hello");
}

TEST_F(BackendClientTest, TheRequestArrivesAsItWasEncoded) {
    std::promise<Bytes> received;
    serve([&received](int peer, int) {
        received.set_value(readPackage(peer));
        writeAll(peer, answerBytes(0));
        readPackage(peer);
    });
    BackendClient client(m_options);
    ASSERT_EQ(call(client), BACKEND_OK);
    EXPECT_EQ(received.get_future().get(), encoded(m_request));
}

TEST_F(BackendClientTest, CallsOneAfterTheOtherShareAConnection) {
    serveText("hello");
    BackendClient client(m_options);
    for (int number = 0; number < 5; ++number) ASSERT_EQ(call(client), BACKEND_OK);
    EXPECT_EQ(m_server->connections(), 1);
    const BackendClientCounters counters = client.counters();
    EXPECT_EQ(counters.calls, 5U);
    EXPECT_EQ(counters.failures, 0U);
    EXPECT_EQ(counters.connects, 1U);
    EXPECT_TRUE(counters.reachable);
}

TEST_F(BackendClientTest, ARefusalsCodeIsTheResultAndTheConnectionStays) {
    serve([](int peer, int) { answerAll(peer, answerBytes(BACKEND_UNKNOWN_SERIAL)); });
    BackendClient client(m_options);
    EXPECT_EQ(call(client), BACKEND_UNKNOWN_SERIAL);
    EXPECT_EQ(call(client), BACKEND_UNKNOWN_SERIAL);
    EXPECT_EQ(m_server->connections(), 1);
    EXPECT_EQ(client.counters().refusals, 2U);
    EXPECT_EQ(client.counters().failures, 0U);
    EXPECT_EQ(stateLines(), std::vector<std::string>{reachableLine()});
}

TEST_F(BackendClientTest, WithoutABackendTheCallFailsAndTheResponseStays) {
    BackendClient client(m_options);
    m_response.append(makeRecord(7));
    EXPECT_EQ(call(client), BACKEND_UNREACHABLE);
    EXPECT_EQ(m_response.records().size(), 1U);
    EXPECT_EQ(client.counters().failures, 1U);
    EXPECT_EQ(stateLines(), std::vector<std::string>{unreachableLine("connect: No such file or directory")});
}

TEST_F(BackendClientTest, ADeadBackendIsLoggedOnceAndAnswersAtOnce) {
    BackendClient client(m_options);
    constexpr int CALLS = 1000;
    const auto begin = std::chrono::steady_clock::now();
    for (int number = 0; number < CALLS; ++number) EXPECT_EQ(call(client), BACKEND_UNREACHABLE);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, m_options.callDeadline);
    EXPECT_EQ(stateLines().size(), 1U);
}

TEST_F(BackendClientTest, WithoutAnAddressNothingIsReachable) {
    BackendClient client((BackendOptions()));
    EXPECT_EQ(call(client), BACKEND_UNREACHABLE);
    EXPECT_EQ(
        stateLines(),
        std::vector<std::string>{
            "warning [transport] the management backend at (no address) is not reachable: no address is configured"});
}

TEST_F(BackendClientTest, ABackendThatComesBackIsFoundAgain) {
    BackendClient client(m_options);
    serveText("first");
    ASSERT_EQ(call(client), BACKEND_OK);
    m_server.reset();
    EXPECT_EQ(call(client), BACKEND_UNREACHABLE);
    serveText("second");
    EXPECT_TRUE(eventually([&] { return call(client) == BACKEND_OK; }));
    EXPECT_EQ(stateLines(),
              (std::vector<std::string>{reachableLine(), unreachableLine("connect: No such file or directory"),
                                        reachableLine()}));
}

TEST_F(BackendClientTest, APooledConnectionThatTheBackendClosedIsReplacedWithoutAFailure) {
    serve([](int peer, int) {  // one answer for each connection
        readPackage(peer);
        writeAll(peer, answerBytes(0));
    });
    BackendClient client(m_options);
    for (int number = 0; number < 5; ++number) {
        ASSERT_EQ(call(client), BACKEND_OK);
        ASSERT_EQ(m_server->connections(), number + 1);
        ASSERT_TRUE(eventually([this] { return m_server->openConnections() == 0; }));
    }
    EXPECT_EQ(client.counters().failures, 0U);
    EXPECT_EQ(stateLines().size(), 1U);
}

TEST_F(BackendClientTest, ARequestThatMayHaveBeenCarriedOutIsNotSentAgain) {
    std::atomic<int> requests{0};
    serve([&requests](int peer, int) {
        while (!readPackage(peer).empty()) {
            if (++requests == 2) return;  // dies with the second one in its hands
            writeAll(peer, answerBytes(0));
        }
    });
    BackendClient client(m_options);
    ASSERT_EQ(call(client), BACKEND_OK);
    EXPECT_EQ(call(client), BACKEND_UNREACHABLE);
    EXPECT_EQ(requests, 2);
    EXPECT_EQ(call(client), BACKEND_OK);
    EXPECT_EQ(stateLines(), (std::vector<std::string>{
                                reachableLine(), unreachableLine("the peer closed the connection"), reachableLine()}));
}

TEST_F(BackendClientTest, ABackendThatDiesInTheMiddleOfAnAnswerIsUnreachable) {
    serve([](int peer, int) {
        readPackage(peer);
        Bytes half = textAnswer("hello");
        half.resize(half.size() / 2);
        writeAll(peer, half);
    });
    BackendClient client(m_options);
    EXPECT_EQ(call(client), BACKEND_UNREACHABLE);
    EXPECT_TRUE(m_response.records().empty());
    EXPECT_EQ(stateLines(),
              std::vector<std::string>{unreachableLine("the peer closed the connection in the middle of a package")});
}

TEST_F(BackendClientTest, AnAnswerThatComesOneByteAtATimeIsRead) {
    serve([](int peer, int) {
        readPackage(peer);
        for (const unsigned char byte : textAnswer("hello")) writeAll(peer, {byte});
        readPackage(peer);
    });
    BackendClient client(m_options);
    ASSERT_EQ(call(client), BACKEND_OK);
    EXPECT_EQ(textOf(*m_response[0], 1), "hello");
}

TEST_F(BackendClientTest, GarbageIsAProtocolErrorAndTheNextCallHasAConnectionOfItsOwn) {
    serve([](int peer, int number) {
        if (number > 1) return answerAll(peer, textAnswer("good"));
        readPackage(peer);
        writeAll(peer, Bytes(100, 'x'));
        readPackage(peer);
    });
    BackendClient client(m_options);
    EXPECT_EQ(call(client), BACKEND_PROTOCOL_ERROR);
    ASSERT_EQ(call(client), BACKEND_OK);
    EXPECT_EQ(textOf(*m_response[0], 1), "good");
    EXPECT_EQ(stateLines(),
              (std::vector<std::string>{unreachableLine("bytes that do not begin a package"), reachableLine()}));
}

TEST_F(BackendClientTest, MalformedRecordsAreAProtocolErrorAndTheResponseStays) {
    serve([](int peer, int) {
        readPackage(peer);
        Bytes answer = textAnswer("hello");
        answer[28 + 8] = 0xFF;  // the record's length
        writeAll(peer, answer);
        readPackage(peer);
    });
    BackendClient client(m_options);
    m_response.append(makeRecord(7));
    EXPECT_EQ(call(client), BACKEND_PROTOCOL_ERROR);
    EXPECT_EQ(m_response.records().size(), 1U);
}

TEST_F(BackendClientTest, AnAnswerBeyondTheLimitIsTooLarge) {
    m_options.packageLimit = 200;
    serveText(std::string(200, 'x'));
    BackendClient client(m_options);
    EXPECT_EQ(call(client), BACKEND_TOO_LARGE);
    EXPECT_EQ(stateLines().size(), 1U);
}

TEST_F(BackendClientTest, ARequestBeyondTheLimitIsNotSent) {
    m_options.packageLimit = 37;  // header 28 and record head 10 are 38
    serveText("hello");
    BackendClient client(m_options);
    EXPECT_EQ(call(client), BACKEND_TOO_LARGE);
    EXPECT_EQ(m_server->connections(), 0);
    EXPECT_EQ(m_log.lines(),
              std::vector<std::string>{
                  "warning [transport] a request to the management backend is larger than the package limit of 37 "
                  "bytes"});
}

TEST_F(BackendClientTest, ASilentBackendRunsIntoTheDeadline) {
    m_options.callDeadline = SHORT_DEADLINE;
    serve([](int peer, int) {
        while (!readPackage(peer).empty()) {
        }
    });
    BackendClient client(m_options);
    EXPECT_EQ(call(client), BACKEND_TIMEOUT);
    EXPECT_EQ(stateLines(), std::vector<std::string>{unreachableLine("no package in time")});
}

TEST_F(BackendClientTest, AnAnswerThatComesTooLateIsNotTakenForTheNextCalls) {
    m_options.callDeadline = SHORT_DEADLINE;
    std::promise<void> late;
    serve([&late](int peer, int number) {
        if (number > 1) return answerAll(peer, textAnswer("second"));
        readPackage(peer);
        late.get_future().wait();
        writeAll(peer, textAnswer("first"));
    });
    BackendClient client(m_options);
    EXPECT_EQ(call(client), BACKEND_TIMEOUT);
    late.set_value();
    ASSERT_EQ(call(client), BACKEND_OK);
    EXPECT_EQ(textOf(*m_response[0], 1), "second");
}

TEST_F(BackendClientTest, BytesThatNobodyAskedForMakeAConnectionUseless) {
    std::atomic<bool> sent{false};
    serve([&sent](int peer, int number) {
        readPackage(peer);
        writeAll(peer, textAnswer("answer"));
        if (number == 1) {
            writeAll(peer, textAnswer("unasked"));
            sent = true;  // by the first connection alone: the test may have ended when the second one is here
        }
        answerAll(peer, textAnswer("answer"));
    });
    BackendClient client(m_options);
    ASSERT_EQ(call(client), BACKEND_OK);
    ASSERT_TRUE(eventually([&sent] { return sent.load(); }));
    ASSERT_EQ(call(client), BACKEND_OK);
    EXPECT_EQ(textOf(*m_response[1], 1), "answer");
}

TEST_F(BackendClientTest, ConcurrentCallsOpenAsManyConnectionsAsConfigured) {
    m_options.connections = 3;
    std::atomic<int> waiting{0};
    serve([&waiting](int peer, int) {
        while (!readPackage(peer).empty()) {
            ++waiting;
            eventually([&waiting] { return waiting >= 3; });
            writeAll(peer, answerBytes(0));
        }
    });
    BackendClient client(m_options);
    std::vector<std::future<int>> results;
    results.reserve(6);
    for (int number = 0; number < 6; ++number) {
        results.push_back(std::async(std::launch::async, [&client] {
            CR8KPackageV3 request;
            CR8KPackageV3 response;
            request.append(makeRecord(1));
            return client.call(request, response);
        }));
    }
    for (std::future<int>& result : results) EXPECT_EQ(result.get(), BACKEND_OK);
    EXPECT_EQ(m_server->connections(), 3);
}

TEST_F(BackendClientTest, ACallThatFindsNoFreeConnectionRunsIntoItsDeadline) {
    m_options.connections = 1;
    m_options.callDeadline = SHORT_DEADLINE;
    std::atomic<int> requests{0};
    serve([&requests](int peer, int) {
        while (!readPackage(peer).empty()) ++requests;
    });
    BackendClient client(m_options);
    // Both begin together: the one that waits for the other's connection gets it when its own time is over, too.
    auto other = std::async(std::launch::async, [&client] {
        CR8KPackageV3 request;
        CR8KPackageV3 response;
        request.append(makeRecord(1));
        return client.call(request, response);
    });
    EXPECT_EQ(call(client), BACKEND_TIMEOUT);
    EXPECT_EQ(other.get(), BACKEND_TIMEOUT);
    EXPECT_EQ(client.counters().failures, 2U);
}

TEST_F(BackendClientTest, ASlowCallDelaysNoOtherOne) {
    std::promise<void> release;
    const std::shared_future<void> released = release.get_future().share();
    serve([released](int peer, int number) {
        if (number > 1) return answerAll(peer, answerBytes(0));
        readPackage(peer);
        released.wait();
        writeAll(peer, answerBytes(0));
        readPackage(peer);
    });
    BackendClient client(m_options);
    auto slow = std::async(std::launch::async, [&client] {
        CR8KPackageV3 request;
        CR8KPackageV3 response;
        request.append(makeRecord(1));
        return client.call(request, response);
    });
    ASSERT_TRUE(eventually([this] { return m_server->connections() == 1; }));
    for (int number = 0; number < 10; ++number) EXPECT_EQ(call(client), BACKEND_OK);
    EXPECT_EQ(slow.wait_for(milliseconds(0)), std::future_status::timeout);
    release.set_value();
    EXPECT_EQ(slow.get(), BACKEND_OK);
}

TEST_F(BackendClientTest, ManyThreadsOverARestartingBackendEndWithoutADeadlock) {
    serveText("hello");
    BackendClient client(m_options);
    std::atomic<bool> end{false};
    std::atomic<unsigned long long> good{0};
    std::vector<std::thread> threads;
    threads.reserve(12);
    for (int number = 0; number < 12; ++number) {
        threads.emplace_back([&] {
            while (!end) {
                CR8KPackageV3 request;
                CR8KPackageV3 response;
                request.append(makeRecord(1));
                if (client.call(request, response) == BACKEND_OK) {
                    ++good;
                } else {
                    EXPECT_TRUE(response.records().empty());
                }
            }
        });
    }
    for (int restart = 0; restart < 5; ++restart) {
        const unsigned long long before = good;
        EXPECT_TRUE(eventually([&] { return good > before + 20; }));
        serveText("hello");
    }
    end = true;
    for (std::thread& thread : threads) thread.join();
    const BackendClientCounters counters = client.counters();
    EXPECT_EQ(counters.calls, good + counters.failures);
}

TEST_F(BackendClientTest, WorksOverTcp) {
    const LocalAddress address = parseLocalAddress("tcp:127.0.0.1:" + std::to_string(freeTcpPort()), "");
    const ScriptedServer server(address, [](int peer, int) { answerAll(peer, textAnswer("tcp")); });
    BackendClient client(optionsFor(address));
    ASSERT_EQ(call(client), BACKEND_OK);
    EXPECT_EQ(textOf(*m_response[0], 1), "tcp");
}

}  // namespace vrx
