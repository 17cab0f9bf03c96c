#include "host/transport/backend_connection.h"

#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <limits>
#include <system_error>
#include <utility>

#include "vrxpub/vrx_little_endian.h"

namespace vrx {

namespace {

constexpr std::size_t MAGIC_AT = 0;
constexpr std::size_t VERSION_AT = 4;
constexpr std::size_t DATA_LENGTH_AT = 24;

}  // namespace

BackendConnection::BackendConnection(FileDescriptor socket, std::size_t packageLimit, int cancel)
    : m_socket(std::move(socket)), m_packageLimit(packageLimit), m_cancel(cancel) {}

BackendConnection::Result BackendConnection::fail(Result result, const std::string& failure) {
    m_failure = failure;
    return result;
}

BackendConnection::Result BackendConnection::send(const std::vector<unsigned char>& package, Deadline deadline) {
    std::size_t sent = 0;
    while (sent < package.size()) {
        const ssize_t count =
            ::send(m_socket.get(), package.data() + sent, package.size() - sent, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (count >= 0) {
            sent += static_cast<std::size_t>(count);
            continue;
        }
        if (errno == EINTR) continue;
        if (errno != EAGAIN) return fail(Result::Broken, "send: " + std::generic_category().message(errno));
        const Wait wait = waitFor(m_socket.get(), POLLOUT, deadline, m_cancel);
        if (wait == Wait::Timeout) return fail(Result::Timeout, "the peer does not take a package in time");
        if (wait == Wait::Cancelled) return fail(Result::Cancelled, "cancelled");
    }
    return Result::Ok;
}

BackendConnection::Result BackendConnection::waitForPackage(Deadline deadline) {
    switch (waitFor(m_socket.get(), POLLIN, deadline, m_cancel)) {
        case Wait::Timeout:
            return fail(Result::Timeout, "no package in time");
        case Wait::Cancelled:
            return fail(Result::Cancelled, "cancelled");
        case Wait::Ready:
            break;
    }
    return Result::Ok;
}

BackendConnection::Result BackendConnection::readExactly(unsigned char* to, std::size_t size, bool firstBytes,
                                                         Deadline deadline) {
    std::size_t got = 0;
    while (got < size) {
        const ssize_t count = ::recv(m_socket.get(), to + got, size - got, MSG_DONTWAIT);
        if (count > 0) {
            got += static_cast<std::size_t>(count);
            continue;
        }
        if (count == 0) {
            return firstBytes && got == 0
                       ? fail(Result::Closed, "the peer closed the connection")
                       : fail(Result::Broken, "the peer closed the connection in the middle of a package");
        }
        if (errno == EINTR) continue;
        if (errno != EAGAIN) return fail(Result::Broken, "receive: " + std::generic_category().message(errno));
        const Result result = waitForPackage(deadline);
        if (result != Result::Ok) return result;
    }
    return Result::Ok;
}

BackendConnection::Result BackendConnection::receive(CR8KPackageV3& package, Deadline deadline) {
    std::vector<unsigned char> bytes(TLVMsgHeadV3::SIZE);
    Result result = readExactly(bytes.data(), bytes.size(), true, deadline);
    if (result != Result::Ok) return result;
    if (getLe32(&bytes[MAGIC_AT]) != TLVMsgHeadV3::MAGIC || getLe32(&bytes[VERSION_AT]) != TLVMsgHeadV3::VERSION)
        return fail(Result::Garbage, "bytes that do not begin a package");

    const std::size_t dataLength = getLe32(&bytes[DATA_LENGTH_AT]);
    const std::size_t size = TLVMsgHeadV3::SIZE + dataLength;
    if (size > m_packageLimit || size > std::numeric_limits<unsigned int>::max())
        return fail(Result::TooLarge, "a package of " + std::to_string(size) + " bytes is larger than the limit of " +
                                          std::to_string(m_packageLimit));
    bytes.resize(size);
    result = readExactly(bytes.data() + TLVMsgHeadV3::SIZE, dataLength, false, deadline);
    if (result != Result::Ok) return result;
    if (package.decode(bytes.data(), static_cast<unsigned int>(size)) == CR8KPackageV3::FAILURE)
        return fail(Result::Garbage, "a package with malformed records");
    return Result::Ok;
}

bool BackendConnection::isQuiet() const {
    pollfd state{m_socket.get(), POLLIN | POLLRDHUP, 0};
    return ::poll(&state, 1, 0) == 0;
}

std::optional<std::vector<unsigned char>> encodePackage(CR8KPackageV3& package, std::size_t limit) {
    std::size_t size = TLVMsgHeadV3::SIZE;
    for (const CTLVRecordV3* record : package.records()) {
        if (record->length() > std::numeric_limits<unsigned short>::max()) return std::nullopt;
        size += CTLVRecordV3::MIN_RECORD_SIZE + record->length();
    }
    if (size > limit || size > std::numeric_limits<unsigned int>::max()) return std::nullopt;
    std::vector<unsigned char> bytes(size);
    if (package.encode(bytes.data(), static_cast<unsigned int>(size)) == CR8KPackageV3::FAILURE) return std::nullopt;
    return bytes;
}

}  // namespace vrx
