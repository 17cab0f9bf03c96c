#include "host/transport/backend_connection.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <future>
#include <memory>
#include <thread>

#include "tests/backend/test_support.h"

namespace vrx {

namespace {

using Result = BackendConnection::Result;

constexpr std::size_t LIMIT = 4096;

// A connection and the bare descriptor of its peer.
class BackendConnectionTest : public testing::Test {
protected:
    BackendConnectionTest() {
        std::array<int, 2> ends{};
        EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, ends.data()), 0);
        m_peer = FileDescriptor(ends[0]);
        m_connection = std::make_unique<BackendConnection>(FileDescriptor(ends[1]), LIMIT, m_cancel.descriptor());
    }

    void peerSends(const Bytes& bytes) { ASSERT_TRUE(writeAll(m_peer.get(), bytes)); }
    void peerCloses() { m_peer = FileDescriptor(); }
    Result receive(Deadline deadline = inTime()) { return m_connection->receive(m_package, deadline); }

    WakeFlag m_cancel;
    FileDescriptor m_peer;
    std::unique_ptr<BackendConnection> m_connection;
    CR8KPackageV3 m_package;
};

// A package whose header says `dataLength` and that holds that many zero bytes, at most.
Bytes headOf(unsigned int dataLength) {
    Bytes head = answerBytes(0);
    for (std::size_t byte = 0; byte < 4; ++byte) head[24 + byte] = static_cast<unsigned char>(dataLength >> (8 * byte));
    return head;
}

}  // namespace

TEST_F(BackendConnectionTest, ReceivesAWholePackage) {
    peerSends(textAnswer("hello"));
    ASSERT_EQ(receive(), Result::Ok);
    EXPECT_EQ(textOf(*m_package[0], 1), "hello");
}

TEST_F(BackendConnectionTest, ReceivesAPackageThatComesOneByteAtATime) {
    std::thread sender([this] {
        for (const unsigned char byte : textAnswer("hello")) {
            writeAll(m_peer.get(), {byte});
            std::this_thread::yield();
        }
    });
    EXPECT_EQ(receive(), Result::Ok);
    sender.join();
    EXPECT_EQ(textOf(*m_package[0], 1), "hello");
}

TEST_F(BackendConnectionTest, ReceivesTwoPackagesThatComeTogether) {
    Bytes both = textAnswer("one");
    const Bytes second = textAnswer("two");
    both.insert(both.end(), second.begin(), second.end());
    peerSends(both);
    ASSERT_EQ(receive(), Result::Ok);
    ASSERT_EQ(m_package.records().size(), 1U);
    ASSERT_EQ(receive(), Result::Ok);
    EXPECT_EQ(textOf(*m_package[1], 1), "two");
}

TEST_F(BackendConnectionTest, AnEmptyPackageHasNoRecords) {
    peerSends(answerBytes(5));
    ASSERT_EQ(receive(), Result::Ok);
    EXPECT_TRUE(m_package.records().empty());
    EXPECT_EQ(m_package.head().uiHeadParam1, 5U);
}

TEST_F(BackendConnectionTest, WrongMagicIsGarbage) {
    Bytes bytes = textAnswer("hello");
    bytes[0] = 0x54;
    peerSends(bytes);
    EXPECT_EQ(receive(), Result::Garbage);
    EXPECT_EQ(m_connection->failure(), "bytes that do not begin a package");
}

TEST_F(BackendConnectionTest, WrongVersionIsGarbage) {
    Bytes bytes = textAnswer("hello");
    bytes[4] = 2;
    peerSends(bytes);
    EXPECT_EQ(receive(), Result::Garbage);
}

TEST_F(BackendConnectionTest, TextInsteadOfAPackageIsGarbage) {
    const std::string text = "GET / HTTP/1.0\r\nHost: localhost\r\n\r\n";
    peerSends(Bytes(text.begin(), text.end()));
    EXPECT_EQ(receive(), Result::Garbage);
}

TEST_F(BackendConnectionTest, MalformedRecordsAreGarbage) {
    Bytes bytes = headOf(12);
    bytes.resize(bytes.size() + 12, 0xFF);
    peerSends(bytes);
    EXPECT_EQ(receive(), Result::Garbage);
    EXPECT_EQ(m_connection->failure(), "a package with malformed records");
    EXPECT_TRUE(m_package.records().empty());
}

TEST_F(BackendConnectionTest, APackageAtTheLimitIsReceived) {
    // One record whose one cell fills what header (28), record head (10) and cell head (4) leave.
    CR8KPackageV3 largest;
    auto record = makeRecord(1);
    appendText(*record, 1, std::string(LIMIT - 28 - 10 - 4 - 1, 'x'));
    largest.append(std::move(record));
    const Bytes bytes = encoded(largest);
    ASSERT_EQ(bytes.size(), LIMIT);
    peerSends(bytes);
    EXPECT_EQ(receive(), Result::Ok);
}

TEST_F(BackendConnectionTest, APackageBeyondTheLimitIsRefusedByItsHeader) {
    peerSends(headOf(LIMIT - 28 + 1));
    EXPECT_EQ(receive(), Result::TooLarge);
    EXPECT_EQ(m_connection->failure(), "a package of 4097 bytes is larger than the limit of 4096");
}

TEST_F(BackendConnectionTest, ALengthThatWouldWrapIsTooLarge) {
    peerSends(headOf(0xFFFFFFFF));
    EXPECT_EQ(receive(), Result::TooLarge);
    EXPECT_EQ(m_connection->failure(), "a package of 4294967323 bytes is larger than the limit of 4096");
}

TEST_F(BackendConnectionTest, APeerThatClosesBetweenPackagesIsClosed) {
    peerCloses();
    EXPECT_EQ(receive(), Result::Closed);
}

TEST_F(BackendConnectionTest, APeerThatDiesInTheHeaderIsBroken) {
    Bytes bytes = textAnswer("hello");
    bytes.resize(27);
    peerSends(bytes);
    peerCloses();
    EXPECT_EQ(receive(), Result::Broken);
    EXPECT_EQ(m_connection->failure(), "the peer closed the connection in the middle of a package");
}

TEST_F(BackendConnectionTest, APeerThatDiesAfterTheHeaderIsBroken) {
    Bytes bytes = textAnswer("hello");
    bytes.resize(28);
    peerSends(bytes);
    peerCloses();
    EXPECT_EQ(receive(), Result::Broken);
}

TEST_F(BackendConnectionTest, EveryShortenedPackageIsBroken) {
    const Bytes whole = textAnswer("hello");
    for (std::size_t size = 1; size < whole.size(); ++size) {
        std::array<int, 2> ends{};
        ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data()), 0);
        BackendConnection connection(FileDescriptor(ends[1]), LIMIT);
        {
            const FileDescriptor peer(ends[0]);
            ASSERT_TRUE(writeAll(peer.get(), Bytes(whole.begin(), whole.begin() + static_cast<long>(size))));
        }
        EXPECT_EQ(connection.receive(m_package, inTime()), Result::Broken) << size;
    }
}

TEST_F(BackendConnectionTest, HalfAPackageRunsIntoTheDeadline) {
    Bytes bytes = textAnswer("hello");
    bytes.resize(bytes.size() - 1);
    peerSends(bytes);
    EXPECT_EQ(receive(soon()), Result::Timeout);
}

TEST_F(BackendConnectionTest, SilenceRunsIntoTheDeadline) {
    EXPECT_EQ(receive(soon()), Result::Timeout);
    EXPECT_EQ(m_connection->waitForPackage(soon()), Result::Timeout);
}

TEST_F(BackendConnectionTest, AnotherThreadEndsAWait) {
    auto result = std::async(std::launch::async, [this] { return receive(); });
    m_cancel.raise();
    EXPECT_EQ(result.get(), Result::Cancelled);
}

TEST_F(BackendConnectionTest, SendingToAClosedPeerIsBrokenAndRaisesNoSignal) {
    peerCloses();
    EXPECT_EQ(m_connection->send(answerBytes(0), inTime()), Result::Broken);
    EXPECT_EQ(m_connection->failure(), "send: Broken pipe");
}

TEST_F(BackendConnectionTest, SendingToAPeerThatDoesNotReadRunsIntoTheDeadline) {
    EXPECT_EQ(m_connection->send(Bytes(16U << 20), soon()), Result::Timeout);
    EXPECT_EQ(m_connection->failure(), "the peer does not take a package in time");
}

TEST_F(BackendConnectionTest, ALargePackageArrivesWhole) {
    CR8KPackageV3 package;
    for (int number = 0; number < 200; ++number) {
        auto record = makeRecord(1);
        appendText(*record, 1, std::string(60000, 'x'));
        package.append(std::move(record));
    }
    const auto bytes = encodePackage(package, 16U << 20);
    ASSERT_TRUE(bytes.has_value());
    auto received = std::async(std::launch::async, [this] { return readPackage(m_peer.get()); });
    EXPECT_EQ(m_connection->send(*bytes, inTime()), Result::Ok);
    EXPECT_EQ(received.get(), *bytes);
}

TEST_F(BackendConnectionTest, IsQuietUntilThePeerSendsOrCloses) {
    EXPECT_TRUE(m_connection->isQuiet());
    peerSends(answerBytes(0));
    EXPECT_FALSE(m_connection->isQuiet());
    ASSERT_EQ(receive(), Result::Ok);
    EXPECT_TRUE(m_connection->isQuiet());
    peerCloses();
    EXPECT_FALSE(m_connection->isQuiet());
}

TEST(EncodePackage, StopsAtTheLimit) {
    CR8KPackageV3 empty;
    EXPECT_EQ(encodePackage(empty, 28).value_or(Bytes()).size(), 28U);
    EXPECT_FALSE(encodePackage(empty, 27).has_value());
}

TEST(EncodePackage, ARecordWhoseLengthDoesNotFitItsFieldIsRefused) {
    CR8KPackageV3 package;
    auto record = makeRecord(1);
    appendText(*record, 1, std::string(65535 - 4 - 1 - 4, 'x'));
    appendText(*record, 2, "");
    ASSERT_EQ(record->length(), 65536U);
    package.append(std::move(record));
    EXPECT_FALSE(encodePackage(package, 1U << 20).has_value());
}

}  // namespace vrx
