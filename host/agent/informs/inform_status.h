// What became of informs, per receiver. Of every receiver, and of those that are gone,
//
//     restored + considered == filtered + repeated + acknowledged + all of dropped + waiting
//
// where `restored` are those that an earlier life of the process left on disk.
#pragma once

#include <chrono>
#include <cstdint>
#include <iterator>
#include <optional>
#include <string>
#include <vector>

#include "host/agent/delivery/delivery_account.h"

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
constexpr DropReason<InformDrop> INFORM_DROP_REASONS[] = {
    {InformDrop::QueueFull, "queue full"},
    {InformDrop::Refused, "refused"},
    {InformDrop::GivenUp, "given up"},
    {InformDrop::BadOid, "bad OID"},
    {InformDrop::NotBuilt, "not built"},
    {InformDrop::Unreadable, "unreadable"},
    {InformDrop::Removed, "destination removed"},
    {InformDrop::Unsendable, "unsendable"},
};
static_assert(namesAll(INFORM_DROP_REASONS, InformDrop::Unsendable));
constexpr std::size_t INFORM_DROPS = std::size(INFORM_DROP_REASONS);
const char* textOf(InformDrop reason);

struct InformCounters : DeliveryCounters<InformDrop, INFORM_DROPS> {
    std::uint64_t restored = 0;
    std::uint64_t repeated = 0;      // of events that came again, after a restart: it has them already
    std::uint64_t resent = 0;        // went out again: how many times
    std::uint64_t acknowledged = 0;  // answered

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
