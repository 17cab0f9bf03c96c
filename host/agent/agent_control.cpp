#include "host/agent/agent_control.h"

#include <chrono>
#include <future>
#include <nlohmann/json.hpp>
#include <utility>

#include "host/agent/agent_status.h"

namespace {

using nlohmann::json;

constexpr std::chrono::seconds AGENT_PATIENCE{5};
constexpr std::chrono::seconds RELOAD_PATIENCE{90};  // longer than a check and a hold take
constexpr std::chrono::milliseconds SLICE{50};       // after which a waiting route looks whether the agent ends

json parse(const std::string& body) {
    json parsed = json::parse(body, nullptr, false);
    if (!parsed.is_object()) throw ControlFault("the body is no JSON object");
    return parsed;
}

std::string textItem(const json& object, const char* name) {
    const auto item = object.find(name);
    if (item == object.end() || !item->is_string()) throw ControlFault(std::string(name) + " is missing");
    return item->get<std::string>();
}

}  // namespace

AgentControl::AgentControl(const BackendAddress& address, AgentLoop& loop, Agent& agent,
                           NotificationService& notifications, Reloader& reloader)
    : m_loop(loop), m_agent(agent), m_notifications(notifications), m_reloader(reloader) {
    std::vector<ControlRoute> routes = {
        {"GET", "/status", [this](const ControlRequest&) { return status(); }},
        {"POST", "/reload", [this](const ControlRequest&) { return reload(); }},
        {"POST", "/users", [this](const ControlRequest& request) { return addUser(request); }},
        {"DELETE", "/users", [this](const ControlRequest& request) { return removeUser(request); }},
    };
    m_server = std::make_unique<ControlServer>(address, std::move(routes));
}

AgentControl::~AgentControl() {
    m_ending = true;
    m_server.reset();
}

template <typename Result>
Result AgentControl::await(std::future<Result> result, std::chrono::milliseconds patience) const {
    const auto end = std::chrono::steady_clock::now() + patience;
    while (result.wait_for(SLICE) != std::future_status::ready) {
        if (m_ending) throw std::runtime_error("the agent is ending");
        if (std::chrono::steady_clock::now() > end) throw std::runtime_error("the agent is busy");
    }
    return result.get();
}

template <typename Result>
Result AgentControl::onAgentThread(std::function<Result()> work) {
    const auto task = std::make_shared<std::packaged_task<Result()>>(std::move(work));
    std::future<Result> result = task->get_future();
    m_loop.post([task] { (*task)(); });
    return await(std::move(result), AGENT_PATIENCE);
}

ControlAnswer AgentControl::status() {
    return {200, onAgentThread<std::string>(
                     [this] { return agentStatus(m_agent, m_notifications, m_reloader).dump() + "\n"; })};
}

ControlAnswer AgentControl::reload() {
    const auto promise = std::make_shared<std::promise<ReloadResult>>();
    std::future<ReloadResult> result = promise->get_future();
    m_loop.post([this, promise] {
        m_reloader.request([promise](const ReloadResult& outcome) { promise->set_value(outcome); });
    });
    const ReloadResult outcome = await(std::move(result), RELOAD_PATIENCE);
    return {200, json{{"taken", outcome.taken}, {"faults", outcome.faults}}.dump() + "\n"};
}

ControlAnswer AgentControl::addUser(const ControlRequest& request) {
    const json body = parse(request.body);
    const UserKeys user{textItem(body, "name"), textItem(body, "authentication"), textItem(body, "privacy")};
    const std::string fault = onAgentThread<std::string>([this, user] { return m_agent.addUser(user); });
    if (!fault.empty()) throw ControlFault(fault);
    return {200, "{}\n"};
}

ControlAnswer AgentControl::removeUser(const ControlRequest& request) {
    const auto name = request.query.find("name");
    if (name == request.query.end()) throw ControlFault("name is missing");
    const std::string fault =
        onAgentThread<std::string>([this, user = name->second] { return m_agent.removeUser(user); });
    if (!fault.empty()) throw ControlFault(fault);
    return {200, "{}\n"};
}
