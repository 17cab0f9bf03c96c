// Start, reload and end.
#pragma once

#include "host/log_lines/log_row.h"

namespace vrx::lines {

LOG_LINE(READY, "agent", Info, "ready", "the agent answers requests on all listeners", "nothing");

LOG_LINE(LISTENING, "agent", Info, "listening on {}", "requests are accepted at this address", "nothing");

LOG_LINE(MODULE_LOADED, "agent", Info, "module {}: {} objects by {}", "a module was loaded, with its MIB file",
         "nothing");

LOG_LINE(NO_USERS, "agent", Warn,
         "no user and no community has access to this agent yet: create a user with \"vrxctl --root {} user add "
         "NAME\"",
         "the configuration lets no user and no community in", "create a user");

LOG_LINE(AGENT_FAILED, "agent", Error, "{}",
         "the agent cannot start, or has ended because of a fault: the text says why, such as a file with its line, "
         "or an address that is in use",
         "correct what the text names, start it again");

LOG_LINE(RELOADED, "agent", Info, "the configuration was reloaded", "a reload; every change is in force", "nothing");

LOG_LINE(RELOAD_REFUSED, "agent", Error, "the configuration was refused: nothing has changed",
         "a reload found faults; each has a line before this one, with file and line", "correct them, reload again");

LOG_LINE(CONFIGURATION_FAULT, "agent", Error, "{}",
         "a fault in `vrx-agentd.conf`, or in another file at a reload, with file and line; or metrics that cannot "
         "be served at the address of `vrxMetrics`",
         "correct it, reload; [agent.md](agent.md) has the directives");

LOG_LINE(DEVICE_CONFIG_FAULT, "config", Error, "{}",
         "a program that does not read `conf/device.xml` at its start found a fault in it; it goes on with the "
         "defaults",
         "correct the row that the text names");

LOG_LINE(LOG_FILE_FAULT, "agent", Error, "{}", "the log file cannot be opened anew on a reload: the former one goes on",
         "check folder and permissions");

LOG_LINE(HEARTBEAT, "agent", Info,
         "heartbeat: up {}, backend {}, {} alarms active; since the last one {} events, {} traps sent, {} dropped",
         "`vrxHeartbeat` seconds have passed", "nothing; if it stays away, the agent does not run, or hangs");

LOG_LINE(METRICS_SERVED, "agent", Info, "metrics are served at {}", "`vrxMetrics`", "nothing");

LOG_LINE(METRICS_ENDED, "agent", Info, "metrics are no longer served",
         "`vrxMetrics` was removed from the configuration", "nothing");

LOG_LINE(NO_REPOSITORY, "agent", Info, "no module keeps a repository of active alarms", "no alarm module is loaded",
         "load one, if alarms are wanted");

LOG_LINE(OPERATION_NOT_EXPORTED, "agent", Error,
         "the module does not export {}: its repository of active alarms will not follow the notifications",
         "module and agent are of different versions", "install both from the same version");

LOG_LINE(MODULE_LIBRARY_NOT_FOUND, "agent", Error,
         "the library of the alarm module cannot be found: its repository of active alarms will not follow the "
         "notifications",
         "the module's file was replaced or deleted while in use", "restart the agent");

LOG_LINE(SERVICE_MANAGER_NOT_NOTIFIED, "service", Warn, "the service manager cannot be notified: {}",
         "its socket (`NOTIFY_SOCKET`) does not exist, or nothing reads from it",
         "check what started the daemon; systemd ends a daemon that does not notify it");

LOG_LINE(OPERATION_NOT_RETURNED, "agent", Warn,
         "an operation has not returned: the process ends without waiting for it",
         "at shutdown a handler's operation still waits for a backend that hangs", "check the backend");

}  // namespace vrx::lines
