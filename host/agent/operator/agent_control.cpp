#include "host/agent/operator/agent_control.h"

#include <chrono>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>

#include "host/agent/operator/agent_status.h"
#include "host/agent/operator/status_json.h"
#include "host/base/logging.h"

namespace vrx {

namespace {

using nlohmann::json;

constexpr std::chrono::seconds RELOAD_TIMEOUT{90};  // longer than a check and a hold take

json parse(const std::string& body) {
    json parsed = json::parse(body, nullptr, false);
    if (!parsed.is_object()) throw ControlFault("the body is no JSON object");
    return parsed;
}

// A path or a word of a file is not always UTF-8.
std::string bodyOf(const json& value) {
    return value.dump(-1, ' ', false, json::error_handler_t::replace) + "\n";
}

std::string textItem(const json& object, const char* name) {
    const auto item = object.find(name);
    if (item == object.end() || !item->is_string()) throw ControlFault(std::string(name) + " is missing");
    return item->get<std::string>();
}

}  // namespace

AgentControl::AgentControl(ControlSocket socket, AgentLoop& loop, Agent& agent, NotificationService& notifications,
                           Reloader& reloader)
    : m_caller(loop), m_agent(agent), m_notifications(notifications), m_reloader(reloader) {
    std::vector<ControlRoute> routes = {
        {"GET", "/status", [this](const ControlRequest&) { return status(); }},
        {"GET", "/log", [](const ControlRequest&) { return logLevels(); }},
        {"POST", "/log", [](const ControlRequest& request) { return setLogLevel(request); }},
        {"POST", "/reload", [this](const ControlRequest&) { return reload(); }},
        {"POST", "/users", [this](const ControlRequest& request) { return addUser(request); }},
        {"DELETE", "/users", [this](const ControlRequest& request) { return removeUser(request); }},
        {"POST", "/traps/resend", [this](const ControlRequest& request) { return resendTrap(request); }},
    };
    m_server = std::make_unique<ControlServer>(std::move(socket), std::move(routes));
}

AgentControl::~AgentControl() {
    m_caller.end();  // the server waits for its requests
    m_server.reset();
}

ControlAnswer AgentControl::status() {
    return {200, m_caller.call<std::string>(
                     [this] { return statusAsJson(agentStatus(m_agent, m_notifications, m_reloader)) + "\n"; })};
}

ControlAnswer AgentControl::logLevels() {
    json levels = json::object();
    for (const auto& [subsystem, level] : vrx::logLevels()) levels[subsystem] = textOf(level);
    return {200, bodyOf(levels)};
}

ControlAnswer AgentControl::setLogLevel(const ControlRequest& request) {
    const json body = parse(request.body);
    try {
        vrx::setLogLevel(textItem(body, "subsystem"), logLevelOf(textItem(body, "level")));
    } catch (const std::invalid_argument& fault) {
        throw ControlFault(fault.what());
    }
    return logLevels();
}

ControlAnswer AgentControl::reload() {
    const auto outcome = std::make_shared<ReloadResult>();
    m_caller.run(
        [this, outcome](const AgentThreadCall::Finished& finished) {
            m_reloader.request([outcome, finished](const ReloadResult& result) {
                *outcome = result;
                finished();
            });
        },
        RELOAD_TIMEOUT);
    return {200, bodyOf(json{{"taken", outcome->taken}, {"faults", outcome->faults}})};
}

ControlAnswer AgentControl::addUser(const ControlRequest& request) {
    const json body = parse(request.body);
    UserKeys user{textItem(body, "name"), textItem(body, "authentication"), textItem(body, "privacy")};
    if (body.contains("authentication_protocol"))
        user.authenticationProtocol = textItem(body, "authentication_protocol");
    if (body.contains("privacy_protocol")) user.privacyProtocol = textItem(body, "privacy_protocol");
    const std::string fault = m_caller.call<std::string>([this, user] { return m_agent.addUser(user); });
    if (!fault.empty()) throw ControlFault(fault);
    return {200, "{}\n"};
}

ControlAnswer AgentControl::removeUser(const ControlRequest& request) {
    const auto name = request.query.find("name");
    if (name == request.query.end()) throw ControlFault("name is missing");
    const std::string fault =
        m_caller.call<std::string>([this, user = name->second] { return m_agent.removeUser(user); });
    if (!fault.empty()) throw ControlFault(fault);
    return {200, "{}\n"};
}

ControlAnswer AgentControl::resendTrap(const ControlRequest& request) {
    const json body = parse(request.body);
    const auto number = body.find("number");
    if (number == body.end() || !number->is_number_unsigned()) throw ControlFault("number is missing");
    try {
        const NotificationDelivery::SentAgain sent = m_notifications.sendAgain(
            number->get<std::uint64_t>(), body.contains("to") ? textItem(body, "to") : std::string());
        return {200, bodyOf(json{{"destinations", sent.destinations}, {"missing", sent.missing}})};
    } catch (const SendAgainFault& fault) {
        throw ControlFault(fault.what());
    }
}

}  // namespace vrx
