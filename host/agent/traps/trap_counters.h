// What became of traps, per destination. Of every destination, and of those that are gone,
//
//     considered == filtered + sent + all of dropped + waiting
//
// where `considered` is the number of events times that of notification handlers since the destination is known, and
// one more for the coldStart at start.
#pragma once

#include <cstdint>
#include <iterator>
#include <string>
#include <vector>

#include "host/agent/delivery/delivery_account.h"

namespace vrx {

enum class TrapDrop {
    QueueFull,    // too many traps were waiting
    Unresolved,   // too many, or for too long, waited for the address of the destination's name
    NoCommunity,  // the destination names none, and neither does the configuration
    UnknownUser,  // no such SNMPv3 user on this agent
    SendFailed,   // the network or the library refused it
    BadOid,       // the trap's OID is no object identifier
    NotBuilt,     // the notification handler could not build it
    Removed,      // the destination was deleted while the trap was waiting
    Unsendable,   // no message can be made of it, or none that goes into a datagram
};
constexpr DropReason<TrapDrop> TRAP_DROP_REASONS[] = {
    {TrapDrop::QueueFull, "queue full"},     {TrapDrop::Unresolved, "unresolved"},
    {TrapDrop::NoCommunity, "no community"}, {TrapDrop::UnknownUser, "unknown user"},
    {TrapDrop::SendFailed, "send failed"},   {TrapDrop::BadOid, "bad OID"},
    {TrapDrop::NotBuilt, "not built"},       {TrapDrop::Removed, "destination removed"},
    {TrapDrop::Unsendable, "unsendable"},
};
static_assert(namesAll(TRAP_DROP_REASONS, TrapDrop::Unsendable));
constexpr std::size_t TRAP_DROPS = std::size(TRAP_DROP_REASONS);
const char* textOf(TrapDrop reason);

struct TrapCounters : DeliveryCounters<TrapDrop, TRAP_DROPS> {
    std::uint64_t paced = 0;             // of those sent: had to wait because of the pace
    std::uint64_t counter64LeftOut = 0;  // bindings that SNMPv1 cannot carry

    void add(const TrapCounters& other);
    std::string text() const;  // "sent 12 (3 paced), filtered 4, dropped 1 (queue full 1), waiting 0"
};

enum class DestinationState { Unknown, Ready, Unresolved, NoCommunity, UnknownUser, Failing };
const char* textOf(DestinationState state);

struct DestinationStatus {
    std::string index;  // number of the destination as text
    std::string address;
    unsigned int port = 0;
    unsigned int version = 0;
    std::string resolvedAddress;  // "" while a name has no address
    DestinationState state = DestinationState::Unknown;
    std::string reason;  // why it is failing
    TrapCounters counters;
    std::uint64_t heartbeats = 0;  // sent; none of these are in the counters

    // Of alarms that flapped; none of these are in the counters.
    std::uint64_t held = 0;        // now
    std::uint64_t suppressed = 0;  // superseded while they were held
};

struct TrapStatus {
    std::vector<DestinationStatus> destinations;  // in the order of their numbers
    TrapCounters former;                          // of destinations that are gone, added up
};

}  // namespace vrx
