// One connection of the backend protocol: packages, framed by their own header, with a deadline for each. Both sides
// use it.
//
// Threads: one at a time; another one ends a wait by raising the cancel flag.
// Memory: nothing is allocated for a package before its header was found good and within the limit.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "host/base/file_descriptor.h"
#include "vrxpub/vrx_message_package.h"

namespace vrx {

class BackendConnection {
public:
    enum class Result {
        Ok,
        Closed,  // by the peer, between two packages
        Broken,  // in the middle of a package, or an error of the socket
        Timeout,
        Cancelled,
        Garbage,   // bytes that are no package
        TooLarge,  // a package beyond the limit
    };

    // `packageLimit`: largest package in bytes, its header included. `cancel`: descriptor of a WakeFlag, or -1.
    BackendConnection(FileDescriptor socket, std::size_t packageLimit, int cancel = -1);

    // Sends the bytes of a whole package. With any other result than Ok the peer has not got it whole.
    [[nodiscard]] Result send(const std::vector<unsigned char>& package, Deadline deadline);

    // Waits for the first byte of a package: Ok, Timeout or Cancelled.
    [[nodiscard]] Result waitForPackage(Deadline deadline);

    // Receives one package and appends its records; head and records of `package` are its. After another result than
    // Ok the connection is of no more use.
    [[nodiscard]] Result receive(CR8KPackageV3& package, Deadline deadline);

    // Whether the peer has neither closed nor sent anything: what an unused connection looks like.
    [[nodiscard]] bool isQuiet() const;

    void close() { m_socket = FileDescriptor(); }

    // What the last result that was not Ok was about, for a log line.
    const std::string& failure() const { return m_failure; }

    int descriptor() const { return m_socket.get(); }

private:
    [[nodiscard]] Result fail(Result result, const std::string& failure);
    [[nodiscard]] Result readExactly(unsigned char* to, std::size_t size, bool firstBytes, Deadline deadline);

    FileDescriptor m_socket;
    std::size_t m_packageLimit;
    int m_cancel;
    std::string m_failure;
};

// The bytes of a package, or nothing when it is larger than `limit` or holds a record whose length does not fit its
// 16-bit field.
std::optional<std::vector<unsigned char>> encodePackage(CR8KPackageV3& package, std::size_t limit);

}  // namespace vrx
