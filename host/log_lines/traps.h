// Trap destinations, and traps to them.
#pragma once

#include "host/log_lines/log_row.h"

namespace vrx::lines {

LOG_LINE(TRAPS_UNRESOLVED, "agent", Warn, "trap destination {} ({} port {}, {}): its name has no address yet",
         "the name server does not know it, or does not answer", "check name and name server");

LOG_LINE(TRAPS_FAIL, "agent", Warn, "trap destination {} ({} port {}, {}): sending fails: {}",
         "the system refuses to send there", "check address, route and firewall");

LOG_LINE(TRAP_LOST, "agent", Warn, "trap destination {} ({} port {}, {}): sending fails: {}; first lost: {}",
         "the same; the text ends with event, alarm and serial number of the first lost trap",
         "the same; `vrxctl traps resend` sends it again");

LOG_LINE(TRAPS_WITHOUT_COMMUNITY, "agent", Warn,
         "trap destination {} ({} port {}, {}): gets nothing: it names no community and trapcommunity is not "
         "configured",
         "a destination of version 1 or 2 without a community", "set one in the row, or configure `trapcommunity`");

LOG_LINE(TRAPS_WITHOUT_USER, "agent", Warn,
         "trap destination {} ({} port {}, {}): gets nothing: its user is not known to this agent",
         "its SNMPv3 user was removed, or its keys were lost",
         "create the user (`vrxctl user add`), or set another one");

LOG_LINE(TRAPS_READY, "agent", Info, "trap destination {} ({} port {}, {}): ready", "traps can be sent", "nothing");

LOG_LINE(TRAP_COUNTER64_LEFT_OUT, "agent", Info,
         "trap destination {} ({} port {}, {}): Counter64 values are left out of its traps, SNMPv1 cannot carry them",
         "a destination of version 1 gets its first such trap", "use version 2 or 3 if the value is needed");

LOG_LINE(TRAP_SHORTENED, "agent", Warn, "trap destination {} ({} port {}, {}): {} is sent with {} texts shortened",
         "the message of this trap (event, alarm and serial number are in the line) would have been too long",
         "nothing; `vrxctl traps show` has the whole texts ([traps.md](traps.md))");

LOG_LINE(TRAP_UNSENDABLE, "agent", Error, "trap destination {} ({} port {}, {}): {} cannot be sent: {}",
         "this trap (event, alarm and serial number are in the line) cannot be encoded",
         "correct the alarm's definition, or the module that made the trap");

LOG_LINE(TRAPS_COUNTED, "agent", Info, "trap destination {}: {}", "at shutdown: counters of the traps", "nothing");
LOG_LINE(FORMER_TRAPS_COUNTED, "agent", Info, "deleted trap destinations: {}", "the same of rows that were deleted",
         "nothing");

LOG_LINE(
    HEARTBEAT_COUNTS_LOST, "agent", Error, "the counts of heartbeat traps cannot be stored: {}",
    "the disk of `state/` is full or broken, at shutdown; receivers see new series of heartbeats after the restart",
    "free space, check the disk");

LOG_LINE(DESTINATIONS_UNREADABLE, "agent", Error,
         "the list of trap destinations cannot be read ({}): alarm events wait for it",
         "the store is at fault at the start; [destinations.md](destinations.md) explains the number. No traps are "
         "sent until it can be read; no alarm is lost",
         "check disk and owner of `state/`");

LOG_LINE(DESTINATIONS_READABLE, "agent", Info, "the list of trap destinations can be read again",
         "the fault has ended: the events are handled", "nothing");

LOG_LINE(DESTINATION_STORE_NOT_OPEN, "destinations", Error, "the store of trap destinations cannot be opened: {}",
         "the file is no database, or not readable", "check it; move it away to start with an empty list");

LOG_LINE(DESTINATION_STORE_OPEN, "destinations", Info, "the store of trap destinations is open again",
         "the fault has ended", "nothing");

LOG_LINE(LOOK_UP_FAILED, "connectivity", Warn, "{} cannot be looked up: {}", "a name cannot be resolved",
         "check the name server");

LOG_LINE(NO_LOOK_UP_THREAD, "connectivity", Warn, "no thread for look-ups: {}",
         "the system refuses a thread: reachability is not updated", "raise the process's limits");

}  // namespace vrx::lines
