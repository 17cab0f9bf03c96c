// How a running agent does: what vrxctl status, the metrics and the heartbeat tell. docs/status.md has every field.
//
// To add something: a table of StatusItems and a function that gives a section, in a file of its own or here, and a
// line for it in agentStatus(). JSON, Prometheus text and vrxctl's tables follow from that.
//
// Threads: agent thread.
#pragma once

#include <vector>

#include "host/agent/operator/status_model.h"

namespace vrx {

class Agent;
class NotificationService;
class Reloader;

std::vector<StatusSection> agentStatus(const Agent& agent, const NotificationService& notifications,
                                       const Reloader& reloader);

}  // namespace vrx
