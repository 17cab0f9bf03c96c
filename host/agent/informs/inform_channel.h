// The way of informs to one receiver, and who opens it. The sender decides when an inform goes out and how long its
// answer is waited for; a channel encodes it, finds out what the receiver's engine wants to know first, and says what
// came of it. Several may be under way.
//
// Threads: agent thread.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "host/agent/informs/inform_destination.h"
#include "host/base/expected.h"
#include "host/notification_log/notification.h"

namespace vrx {

struct Inform {
    std::uint64_t number = 0;  // gives the request ID: the same each time that it is sent
    std::uint32_t upTime = 0;  // sysUpTime of the event
    std::shared_ptr<const Notification> trap;
};

struct InformOutcome {
    enum class Kind {
        Acknowledged,
        NoAnswer,    // in the time given
        Failed,      // it could not be sent, or its receiver rejected it for a reason that may pass
        Refused,     // answered with an error: it will never be taken
        Unsendable,  // no message can be made of it, or none that goes into a datagram
    };
    Kind kind = Kind::NoAnswer;
    bool wasSent = false;      // and not a question about the receiver's engine only
    std::string text;          // of a failure
    unsigned int cut = 0;      // texts that were shortened
    std::uint64_t number = 0;  // of the inform
};

class InformChannel {
public:
    virtual ~InformChannel() = default;  // what is under way ends without an outcome

    // Sends the inform, in a message of at most `wanted` octets or the shortest that can be made (see
    // notification_fitting.h), and waits for its answer. Throws std::bad_alloc, and it is not under way.
    // REQUIRES: it is not under way; others may be.
    virtual void send(const Inform& inform, std::size_t wanted, std::chrono::milliseconds patience) = 0;

    // Sends one that is under way once more; the first answer counts, and the time begins anew. False when it cannot be
    // sent now: then nothing has changed. Throws std::bad_alloc, and may be called again.
    virtual bool sendAgain(std::uint64_t number) = 0;

    // Goes on with what has arrived. What came of the inform that has come to its end first, until forget(); null when
    // all are under way. Throws std::bad_alloc, and may be called again.
    virtual const InformOutcome* outcome() = 0;

    // Of that inform.
    virtual void forget() = 0;

    // What is known of the receiver's engine: its ID in hexadecimal digits, or "".
    virtual std::string engine() const = 0;
};

class InformTransport {
public:
    virtual ~InformTransport() = default;

    // To the peer at this numeric address. `arrived` is called when the channel's outcome() has something to go on
    // with, also from within send(); it needs no memory.
    virtual Expected<std::unique_ptr<InformChannel>> open(const InformPeer& peer, const std::string& address,
                                                          std::function<void()> arrived) = 0;
};

}  // namespace vrx
