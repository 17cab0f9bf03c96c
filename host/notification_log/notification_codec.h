// A trap as bytes, to keep it in a file: bytesOf() makes them, trapFrom() reads them back.
//
//     version   1 byte, 1
//     name      of the trap: count of sub-identifiers, then each of them
//     bindings  count, then of each: name, 1 byte type as in BER, value
//     value     NULL: nothing; INTEGER: zigzag number; other numbers: number; OCTET STRING and IpAddress: count of
//               bytes, then these; OBJECT IDENTIFIER: as a name
//
// Counts and numbers have 7 bits a byte, the lowest first; the highest bit of a byte says that another one follows.
// The bytes are the same on every machine.
//
// Threads: any.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "host/notification_log/notification.h"

namespace vrx {

// Of a trap as handlers give them: names of 2 to 128 sub-identifiers of 32 bits each, or an empty name of the trap.
std::string bytesOf(const Notification& trap);

// Nothing unless these are the bytes of a whole trap and no more. Takes memory in proportion to the bytes.
std::optional<Notification> trapFrom(std::string_view bytes);

}  // namespace vrx
