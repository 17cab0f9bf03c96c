// Requests: reads, SETs, connections.
#pragma once

#include "host/log_lines/log_row.h"

namespace vrx::lines {

LOG_LINE(OBJECT_UNREADABLE, "agent", Error, "{} cannot be read: {}",
         "a table or scalar cannot be read: managers get `genErr`", "the reason is in the line; usually the backend");

LOG_LINE(OBJECT_READABLE, "agent", Info, "{} can be read again", "the fault has ended", "nothing");

LOG_LINE(REQUESTS_REFUSED, "agent", Warn, "{} requests are waiting: more are refused",
         "more requests wait for the backend than `vrxWaitingRequests` allows", "check the backend; poll less often");

LOG_LINE(REQUESTS_DROPPED, "agent", Warn,
         "requests from {} are dropped: answers to it make more than {} octets a second (vrxAnswerRate)",
         "a manager without authentication that sends very many requests, or an attacker that forges its address; "
         "at most 5 lines a minute",
         "find the sender; use SNMPv3 with authentication, which is not limited, or raise the limit");

LOG_LINE(CONNECTIONS_OPEN, "agent", Warn, "{}: {} connections are open, {} of them without a request yet: {}",
         "more clients than `vrxTcpConnections` at a `tcp:` listener, or more than a quarter of that without a "
         "request yet: the oldest of these is closed, or a new one refused",
         "find the clients; raise the limit if they are legitimate");

LOG_LINE(CONNECTION_NOT_TAKEN, "agent", Warn, "{}: cannot take a connection: {}; tried again in a second",
         "usually no descriptors are left", "find what uses them; `LimitNOFILE`");

LOG_LINE(CONNECTIONS_NOT_SERVED, "agent", Error, "connections could not be served: {}", "usually no memory",
         "find what uses the memory");

LOG_LINE(SET_REFUSED, "agent", Warn, "a SET is refused {}: {}",
         "which variable (\"at vrxTrapDestPort.7\"), the error that the manager gets, and the reason: a value, the "
         "result of a handler ([errors.md](errors.md)), \"it came to its deadline before its turn\" (an earlier SET "
         "took longer than `vrxRequestDeadline`: check the backend), \"whether the backend has carried it out is "
         "not known\" (no answer in time: an alarm may be cleared all the same)",
         "correct the SET's values; else see the reason");

LOG_LINE(SET_LINES_LEFT_OUT, "agent", Warn, "{} lines about refused SETs were left out",
         "more than 60 in a minute from managers that may not write", "find the sender");

LOG_LINE(SET_HALF_DONE, "agent", Error, "a SET has changed {} for good, and its other values could not be kept: {}",
         "an alarm was cleared, then the rows of the same SET could not be stored; the manager got `undoFailed`",
         "free space, check the disk; set the rows again");

LOG_LINE(REQUEST_LOST, "agent", Error, "a request could not be handled: {}",
         "usually no memory; the manager gets no answer and retries", "find what uses the memory");

LOG_LINE(READ_FAILED, "agent", Error, "{}: a read failed: {}", "the same, the manager gets `genErr`", "the same");

LOG_LINE(SET_FAILED, "agent", Error, "a SET failed: {}", "the same for a SET", "the same");

LOG_LINE(OWN_OBJECTS_UNREADABLE, "agent", Error, "the agent's own objects cannot be read: {}",
         "the same for objects of `VRX-AGENT-MIB`", "the same");

LOG_LINE(LIBRARY_ERROR, "agent", Error, "{}", "a line of the SNMP library, written as it is: an error",
         "see the text; for a message that cannot be decoded or authenticated find its sender");
LOG_LINE(LIBRARY_WARNING, "agent", Warn, "{}", "a warning of the SNMP library", "the same");
LOG_LINE(LIBRARY_INFO, "agent", Info, "{}", "a message of the SNMP library", "nothing");
LOG_LINE(LIBRARY_DEBUG, "agent", Debug, "{}", "a debug line of the SNMP library", "nothing");

LOG_LINE(LIBRARY_LINES_LEFT_OUT, "agent", Warn, "{} lines of the SNMP library were left out",
         "more than 60 of its lines in a minute, usually about malformed messages", "find the sender");

LOG_LINE(TASK_FAILED, "agent", Error, "a task of the agent thread failed: {}", "a fault of the agent, or no memory",
         "report it");
LOG_LINE(TASK_FAILED_UNKNOWN, "agent", Error, "a task of the agent thread failed", "a fault of the agent", "report it");

}  // namespace vrx::lines
