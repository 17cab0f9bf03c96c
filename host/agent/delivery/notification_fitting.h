// A trap whose message would be longer than wanted, with its longest texts cut: its receiver is told all the same.
//
//     const FittedNotification fitted(trap, sizeOfItsMessage, wanted);
//     if (fitted.size() <= mostThatTheWayTakes) send(fitted.trap());
//
// The longest texts are cut to one length, between two characters of UTF-8, and end in a mark then. Values of up to
// LONGEST_WHOLE_TEXT octets stay as they are, dates and identifiers among them.
//
// Threads: constant once made.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "host/notification_log/notification.h"
#include "host/snmp/limits.h"

namespace vrx {

constexpr std::size_t LONGEST_WHOLE_TEXT = 32;
constexpr std::string_view CUT_MARK = "...";

class FittedNotification {
public:
    // `size`: octets of the trap's message, or a few more. The trap outlives this object.
    FittedNotification(const Notification& trap, std::size_t size, std::size_t wanted);

    const Notification& trap() const { return m_shorter ? *m_shorter : m_whole; }

    // Octets of its message at most; above `wanted` where the texts do not have enough to give.
    std::size_t size() const { return m_size; }

    // How many texts are cut.
    unsigned int cut() const { return m_cut; }

private:
    const Notification& m_whole;
    std::optional<Notification> m_shorter;
    std::size_t m_size;
    unsigned int m_cut = 0;
};

// Why one that goes into no datagram is not sent.
std::string tooLongText(const FittedNotification& fitted);

}  // namespace vrx
