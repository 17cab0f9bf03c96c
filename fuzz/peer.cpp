#include "fuzz/peer.h"

#include <linux/sockios.h>
#include <poll.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>

namespace {

constexpr std::size_t MOST_PIECES = 48;

// Until the other side has read everything, or has something better to do.
void waitUntilTaken(int descriptor) {
    for (int turns = 0; turns < 200; ++turns) {
        int unread = 0;
        if (ioctl(descriptor, SIOCOUTQ, &unread) != 0 || unread == 0) return;
        sched_yield();
    }
}

}  // namespace

std::string playPeer(int descriptor, const std::string& bytes, std::size_t piece) {
    std::string received;
    std::size_t sent = 0;
    std::size_t pieces = 0;
    bool sending = true;
    for (;;) {
        if (sending && sent == bytes.size()) {
            (void)shutdown(descriptor, SHUT_WR);
            sending = false;
        }
        pollfd state{descriptor, static_cast<short>(sending ? POLLIN | POLLOUT : POLLIN), 0};
        if (poll(&state, 1, -1) < 0) continue;
        if ((state.revents & POLLOUT) != 0) {
            const std::size_t left = bytes.size() - sent;
            const bool inPieces = piece != 0 && pieces < MOST_PIECES;
            const ssize_t count = send(descriptor, bytes.data() + sent, inPieces ? std::min(piece, left) : left,
                                       MSG_NOSIGNAL | MSG_DONTWAIT);
            if (count < 0) {
                sending = false;  // the other side has closed
            } else {
                sent += static_cast<std::size_t>(count);
                ++pieces;
                if (inPieces) waitUntilTaken(descriptor);
            }
        }
        if ((state.revents & ~POLLOUT) != 0) {
            std::array<char, 16384> buffer{};
            const ssize_t count = recv(descriptor, buffer.data(), buffer.size(), MSG_DONTWAIT);
            if (count <= 0) return received;
            received.append(buffer.data(), static_cast<std::size_t>(count));
        }
    }
}
