// How a running agent does, as one JSON document for people and programs (vrxctl status --json).
//
// Threads: agent thread.
#pragma once

#include <nlohmann/json_fwd.hpp>

class Agent;
class NotificationService;
class Reloader;

nlohmann::json agentStatus(const Agent& agent, const NotificationService& notifications, const Reloader& reloader);
