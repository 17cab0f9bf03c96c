// The management backend, and alarm events on their way to a trap.
#pragma once

#include "host/log_lines/log_row.h"

namespace vrx::lines {

LOG_LINE(BACKEND_AWAY, "transport", Warn, "the management backend at {} is not reachable: {}", "it does not answer",
         "see the backend's log; the agent keeps trying");

LOG_LINE(BACKEND_REACHABLE, "transport", Info, "the management backend at {} is reachable", "it answers again",
         "nothing");

LOG_LINE(BACKEND_NOT_CONFIGURED, "transport", Error, "{}; no backend can be reached",
         "section `BACKEND` of the device configuration is at fault", "correct it and restart");

LOG_LINE(BACKEND_REQUEST_TOO_LARGE, "transport", Warn,
         "a request to the management backend is larger than the package limit of {} bytes",
         "a text of a SET is too long", "raise `PACKAGE_LIMIT_BYTES` if such texts are right");

LOG_LINE(NOT_SUBSCRIBED, "events", Warn, "no subscription at {}: {}",
         "no alarm events arrive; those of the meantime arrive later", "see the backend's log");

LOG_LINE(SUBSCRIBED, "events", Info, "subscribed at {} after event {}, {} active alarms",
         "they arrive again, without a gap", "nothing");

LOG_LINE(STORE_IS_YOUNGER, "events", Warn,
         "event {} was handled, but the backend's last one is {}: its store is a younger one, going on with its "
         "first event",
         "the backend's store was replaced", "nothing, if that was intended");

LOG_LINE(STORE_IS_ANOTHER, "events", Warn,
         "event {} of store {} was handled, but the backend's store is another one, {}: going on with its first "
         "event",
         "the backend's store was replaced by one with other events: all of them are handled",
         "nothing, if that was intended");

LOG_LINE(EVENTS_MISSING, "events", Error, "events {} to {} are missing, the backend does not keep them any more",
         "the agent was away for longer than the backend keeps events", "read the alarm table; keep more events");

LOG_LINE(EVENT_OUT_OF_ORDER, "events", Error, "event {} after event {} is skipped",
         "the backend sends events out of order", "report it to the backend's vendor");

LOG_LINE(RECORD_WITHOUT_NUMBER, "events", Error, "a record without a number is skipped: {}",
         "an event without its sequence number", "report it to the backend's vendor");

LOG_LINE(BACKEND_LINES_LEFT_OUT, "events", Error, "{} lines about what the backend sends were left out",
         "more than 60 such lines in a minute", "see the lines before, report it to the backend's vendor");

LOG_LINE(LISTENER_FAILED, "events", Error, "{} failed: {}",
         "an event, or a change of the connection, could not be handled", "see the reason");

LOG_LINE(REPOSITORY_MATCHED, "agent", Info, "repository of active alarms: {} added and {} deleted to match the backend",
         "alarms were raised and ended while the agent was away", "nothing");

LOG_LINE(DEFINITIONS_UNUSABLE, "agent", Error,
         "the alarm definitions cannot be loaded: {} Alarm events wait for them, and the table of alarms cannot be "
         "read",
         "a definition file is missing or at fault, at the start or after a reload. No traps are sent until it can "
         "be loaded, and the alarm table answers `genErr`; no alarm is lost",
         "correct the file; the agent tries again every 2 seconds, and on a reload");

LOG_LINE(DEFINITIONS_USABLE, "agent", Info, "the alarm definitions are loaded again",
         "the fault has ended: the events are handled", "nothing");

LOG_LINE(REPOSITORY_CANNOT_FOLLOW, "agent", Error,
         "alarm event {}: the repository of active alarms cannot follow it: {}", "its record lacks a value",
         "report it to the backend's vendor");

LOG_LINE(EVENT_WITHOUT_TRAP, "agent", Error, "alarm event {} gives no trap: {}",
         "a handler cannot use its record, or there is no memory",
         "see the reason; report a bad record to the backend's vendor");

LOG_LINE(EVENT_NOT_RENDERED, "agent", Error,
         "alarm event {} gives no trap, the notification handler gives {}: see the module's line before, correct or "
         "add the alarm's definition and reload",
         "the alarm has no definition, or one that cannot be rendered",
         "as it says; `vrxctl lint` finds faults. The alarm is active all the same, but this event is not handled "
         "again");

LOG_LINE(EVENT_SKIPPED, "agent", Error, "alarm event {} is skipped: {}", "no memory for its traps",
         "find what uses the memory");

LOG_LINE(BINDINGS_LEFT_OUT, "agent", Warn, "alarm event {}: {} bindings without an object identifier are left out",
         "a fault of a module", "report it");

LOG_LINE(TRAP_OID_UNUSABLE, "agent", Error,
         "alarm event {}: its trap is dropped, \"{}\" is no trap OID: correct alarmOid in the alarm's definition "
         "and reload",
         "the alarm's definition has an `alarmOid` that is no OID", "as it says");

LOG_LINE(EVENT_LINES_LEFT_OUT, "agent", Error, "{} lines about alarm events that cannot be used were left out",
         "more than 60 such lines in a minute; those of the module about the same events are left out, too",
         "see the lines before, report it to the backend's vendor");

LOG_LINE(EVENTS_HANDLED, "agent", Info, "alarm events: {} handled, {} traps not built", "at shutdown: counters",
         "nothing");

LOG_LINE(NOTIFICATION_STATUS_UNREADABLE, "agent", Error, "the status of the notifications cannot be read: {}",
         "no memory for the lines at shutdown", "find what uses the memory");

LOG_LINE(LAST_EVENT_NOT_STORED, "agent", Error, "the last alarm event handled cannot be stored, trying again: {}",
         "the disk of `state/` is full or broken; a restart now repeats traps", "free space, check the disk");

LOG_LINE(LAST_EVENT_LOST, "agent", Error, "the last alarm event handled cannot be stored: {}",
         "the same at shutdown: the next start repeats traps", "the same");

LOG_LINE(LAST_EVENT_STORED, "agent", Info, "the last alarm event handled can be stored again", "the fault has ended",
         "nothing");

LOG_LINE(NOTIFICATION_LOG_NOT_WRITTEN, "agent", Error, "the notification log cannot be written, trying again: {}",
         "the disk of `state/` is full or broken, or `state/notification_log.db` is damaged. Traps are sent all the "
         "same; entries wait, and when there are too many the oldest are lost",
         "free space, check the disk; delete a damaged file, the agent creates a new one");

LOG_LINE(NOTIFICATION_LOG_LOST, "agent", Error, "the last entries of the notification log cannot be written: {}",
         "the same at shutdown: these entries are lost", "the same");

LOG_LINE(NOTIFICATION_LOG_WRITTEN, "agent", Info,
         "the notification log can be written again; entries lost since the start: {}", "the fault has ended",
         "nothing");

}  // namespace vrx::lines
