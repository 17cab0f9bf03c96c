// What became of informs, per receiver. Of every receiver, and of those that are gone,
//
//     restored + considered == filtered + repeated + acknowledged + all of dropped + waiting
//
// where `restored` are those that an earlier life of the process left on disk.
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace vrx {

enum class InformDrop {
    QueueFull,   // too many were waiting
    Refused,     // the receiver answered with an error
    GivenUp,     // no answer after as many retries as the configuration has
    BadOid,      // the trap's OID is no object identifier
    NotBuilt,    // the notification handler could not build it
    Unreadable,  // the file has something else
    Removed,     // the receiver was taken out of the configuration
    Unsendable,  // no message can be made of it, or none that goes into a datagram
};
constexpr std::size_t INFORM_DROPS = 8;
const char* textOf(InformDrop reason);

struct InformCounters {
    std::uint64_t restored = 0;
    std::uint64_t considered = 0;
    std::uint64_t filtered = 0;      // not for this receiver
    std::uint64_t repeated = 0;      // of events that came again, after a restart: it has them already
    std::uint64_t sent = 0;          // went out
    std::uint64_t resent = 0;        // went out again: how many times
    std::uint64_t shortened = 0;     // of those sent: with texts cut, to fit into a message
    std::uint64_t acknowledged = 0;  // answered
    std::uint64_t waiting = 0;       // now
    std::array<std::uint64_t, INFORM_DROPS> dropped{};

    void drop(InformDrop reason, std::uint64_t number = 1) { dropped[static_cast<std::size_t>(reason)] += number; }
    void add(const InformCounters& other);
    std::string text() const;  // "acknowledged 12 (1 sent again), filtered 4, dropped 1 (queue full 1), waiting 0"
};

enum class InformState { Unused, Answering, Silent, Failing, Unresolved };
const char* textOf(InformState state);

struct InformFailure {
    std::string text;
    std::chrono::system_clock::time_point when;
};

struct InformDestinationStatus {
    std::string name;  // "192.0.2.1:162"
    std::string address;
    unsigned int port = 0;
    unsigned int version = 0;
    unsigned int trapType = 0;
    std::string resolvedAddress;  // "" while nothing was sent
    std::string engine;           // hexadecimal digits, SNMPv3 only; "" while unknown
    InformState state = InformState::Unused;
    std::optional<InformFailure> lastFailure;
    InformCounters counters;
};

struct InformStatus {
    std::vector<InformDestinationStatus> destinations;
    InformCounters former;  // of receivers that are gone, added up
};

}  // namespace vrx
