// The reference backend, in its own process or inside the agent.
#pragma once

#include "host/log_lines/log_row.h"

namespace vrx::lines {

LOG_LINE(BACKEND_READY, "backend", Info, "ready", "the backend has started", "nothing");

LOG_LINE(BACKEND_FAILED, "backend", Error, "{}", "the backend cannot start: the text says why",
         "correct what the text names, start it again");

LOG_LINE(BACKEND_SERVES, "backend", Info, "serves {}: {} active alarms, last event {}", "it accepts clients",
         "nothing");

LOG_LINE(CLIENTS_NOT_AUTHENTICATED, "backend", Warn,
         "clients of {} are not authenticated: every user of this machine can raise and clear alarms",
         "the backend's address is a TCP port", "nothing, if all users may do so; else use a `unix:` address");

LOG_LINE(BACKEND_STOPPED, "backend", Info, "stopped", "the backend has ended", "nothing");

LOG_LINE(ALARM_STORE_NOT_WRITTEN, "backend", Error, "alarm store: {}",
         "the disk is full or broken: raising and clearing is refused", "free space, check the disk");

LOG_LINE(ALARM_STORE_WRITTEN, "backend", Info, "alarm store: can be written again", "the fault has ended", "nothing");

LOG_LINE(ALARM_STORE_UNREADABLE, "backend", Warn, "alarm store: {}", "the store does not answer a check",
         "check the disk");

LOG_LINE(CLIENTS_REFUSED, "backend", Warn, "clients are refused: {}", "too many connections, or no descriptors",
         "find the clients that connect too often");

LOG_LINE(CLIENT_FAILED, "backend", Error, "client {}: {}",
         "a client's request could not be handled, usually for want of memory: its connection is closed",
         "find what uses the memory");

LOG_LINE(CLIENT_CLOSED, "backend", Warn, "client {}: {}; connection closed",
         "the client breaks the protocol, or does not read", "report it to whoever wrote the client");

LOG_LINE(ANSWER_TOO_LARGE, "backend", Error, "client {}: an answer is larger than the package limit; connection closed",
         "more active alarms than fit into one package", "raise `PACKAGE_LIMIT_BYTES`, for all programs");

LOG_LINE(CLIENT_ASKS_SUBSCRIBED, "backend", Warn, "client {}: a request on a subscribed connection; connection closed",
         "the client breaks the protocol ([backend-protocol.md](backend-protocol.md))",
         "report it to whoever wrote the client");

LOG_LINE(ALARM_CLEARED, "backend", Debug, "alarm {} is cleared by {}", "a client cleared it", "nothing");

}  // namespace vrx::lines
