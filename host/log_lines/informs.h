// Inform destinations, and informs to them.
#pragma once

#include "host/log_lines/log_row.h"

namespace vrx::lines {

LOG_LINE(INFORMS_ANSWERED, "agent", Info, "inform destination {}: answers", "the receiver acknowledges", "nothing");

LOG_LINE(INFORMS_UNANSWERED, "agent", Warn, "inform destination {}: does not answer",
         "no acknowledgement in time: informs wait on disk and are repeated",
         "check the receiver: address, port, community");

LOG_LINE(INFORMS_FAIL, "agent", Warn, "inform destination {}: sending fails: {}",
         "the system refuses to send there, or the receiver reports that it rejects the message (user, passphrases, "
         "level)",
         "correct what the reason names");

LOG_LINE(INFORM_REFUSED, "agent", Warn, "inform destination {}: answers: {}",
         "it answered with an error (\"the receiver refuses an inform\"): the inform is dropped",
         "see the receiver's log");

LOG_LINE(INFORMS_UNRESOLVED, "agent", Warn, "inform destination {}: its name has no address yet",
         "the name server does not know it, or does not answer", "check name and name server");

LOG_LINE(INFORM_SHORTENED, "agent", Warn, "inform destination {}: {} is sent with {} texts shortened",
         "the message of this inform (alarm and serial number are in the line) would have been too long",
         "nothing; `vrxctl traps show` has the whole texts ([traps.md](traps.md))");

LOG_LINE(INFORM_UNSENDABLE, "agent", Error, "inform destination {}: {} cannot be sent and is dropped: {}",
         "this inform (alarm and serial number are in the line) cannot be encoded",
         "correct the alarm's definition, or the module that made the inform");

LOG_LINE(INFORM_QUEUE_FULL, "agent", Error, "inform destination {}: {} informs wait for it, more are dropped",
         "the receiver is down for too long; new informs to it are lost",
         "restore it, raise `vrxInformQueue`, or remove it from the configuration");

LOG_LINE(INFORM_QUEUE_HAS_ROOM, "agent", Info, "inform destination {}: its queue takes informs again",
         "the fault has ended", "nothing");

LOG_LINE(INFORM_DESTINATION_GONE, "agent", Warn,
         "inform destination {} is not configured any more: {} informs that waited for it are dropped",
         "its line was removed", "nothing, if that was intended");

LOG_LINE(INFORMS_COUNTED, "agent", Info, "inform destination {}: {}", "at shutdown: counters of the informs",
         "nothing");
LOG_LINE(FORMER_INFORMS_COUNTED, "agent", Info, "former inform destinations: {}", "the same of those that were removed",
         "nothing");

LOG_LINE(INFORMS_NOT_STORED, "agent", Error, "informs cannot be stored, trying again: {}",
         "the disk of `state/` is full or broken. No inform is sent before it is on disk; the alarm events stay "
         "open meanwhile, and none is lost",
         "free space, check the disk");

LOG_LINE(INFORMS_STORED, "agent", Info, "informs can be stored again", "the fault has ended", "nothing");

LOG_LINE(INFORMS_UNREADABLE, "agent", Error, "informs cannot be read, trying again: {}",
         "the same, or `state/informs.db` is damaged",
         "check the disk; if the file is damaged, stop the agent and move it away: its informs are lost");

LOG_LINE(INFORMS_READABLE, "agent", Info, "informs can be read again", "the fault has ended", "nothing");

LOG_LINE(STORED_INFORMS_DAMAGED, "agent", Error, "informs to {}: {} cannot be read back and are dropped",
         "the file was changed by another program, or is damaged", "check the disk");

}  // namespace vrx::lines
