#include "host/agent/web/status_page.h"

#include <arpa/inet.h>
#include <strings.h>

#include <algorithm>
#include <functional>
#include <random>
#include <utility>

#include "host/agent/assembly/agent.h"
#include "host/agent/assembly/notification_service.h"
#include "host/agent/operator/agent_status.h"
#include "host/agent/operator/status_json.h"
#include "host/agent/tamrel/alarm_table.h"
#include "host/agent/web/alarm_query.h"
#include "host/agent/web/page_files.h"
#include "host/base/product_root.h"
#include "host/notification_log/notification_log_file.h"
#include "host/notification_log/notification_texts.h"

namespace vrx {

namespace {

using Route = std::function<ControlAnswer(const ControlRequest& request)>;

constexpr unsigned int OK = 200;
constexpr unsigned int NOT_MODIFIED = 304;
constexpr unsigned int FORBIDDEN = 403;

constexpr std::uint64_t LAST_NOTIFICATIONS = 50;

// Nothing of anybody else's, and nothing that is written into the page: a text that were taken for markup could still
// do nothing.
constexpr std::pair<const char*, const char*> HEADERS[] = {
    {"Content-Security-Policy",
     "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self'; connect-src 'self'; base-uri 'none'; "
     "form-action 'none'; frame-ancestors 'none'; require-trusted-types-for 'script'; trusted-types 'none'"},
    {"X-Content-Type-Options", "nosniff"},
    {"Referrer-Policy", "no-referrer"},
    {"Cross-Origin-Resource-Policy", "same-origin"},
    {"Cache-Control", "no-store"},
};

std::string randomName() {
    std::random_device random;
    return std::to_string(random()) + std::to_string(random());
}

ManagedObject* alarmTableOf(const Agent& agent) {
    const auto& objects = agent.objects();
    const auto found = std::find_if(objects.begin(), objects.end(),
                                    [](const auto& object) { return object->mib().root == alarm_table::ROOT; });
    return found == objects.end() ? nullptr : found->get();
}

ControlAnswer guarded(const Route& route, const ControlRequest& request) {
    ControlAnswer answer =
        request.overTls || isLocalHost(request.host)
            ? route(request)
            : ControlAnswer{FORBIDDEN, "This page is for this machine alone: ask for it as localhost.\n",
                            "text/plain; charset=utf-8"};
    answer.headers.insert(answer.headers.end(), std::begin(HEADERS), std::end(HEADERS));
    return answer;
}

// Of what has that tag.
ControlAnswer tagged(const std::string& tag, const ControlRequest& request, const std::function<std::string()>& body) {
    const std::string quoted = "\"" + tag + "\"";
    const bool known = request.ifNoneMatch == quoted;
    return {known ? NOT_MODIFIED : OK, known ? "" : body(), "application/json", {{"ETag", quoted}}};
}

StatusValue notificationJson(const LoggedNotification& entry) {
    return {{"number", entry.number},
            {"time", statusOf(entry.time)},
            {"kind", kindText(entry)},
            {"level", levelText(entry) ? StatusValue(*levelText(entry)) : StatusValue()},
            {"serial", entry.serial},
            {"trap", trapText(entry)},
            {"destinations", entry.destinations},
            {"because", becauseText(entry)},
            {"text", descriptionOf(entry)}};
}

// The newest first. They are read from the file by the thread of the request: the agent's own does not wait for a disk.
ControlAnswer notifications(const std::string& run, const ControlRequest& request) {
    StatusValue list = StatusValue::array();
    std::string fault;
    try {
        NotificationLogFilter filter;
        filter.last = LAST_NOTIFICATIONS;
        NotificationLogReader(productPath("state/notification_log.db"))
            .list(filter, [&](const LoggedNotification& entry) { list.push_back(notificationJson(entry)); });
    } catch (const UnfinishedNotificationLog&) {  // nothing was sent yet
    } catch (const SqliteError& error) {
        fault = error.what();
    }
    std::reverse(list.begin(), list.end());
    std::string body = jsonOf({{"fault", fault}, {"notifications", std::move(list)}}) + "\n";
    return tagged(run + "-" + std::to_string(std::hash<std::string>()(body)), request, [&] { return body; });
}

}  // namespace

StatusPage::StatusPage(AgentLoop& loop, const Agent& agent, const NotificationService& notifications,
                       const Reloader& reloader)
    : m_agent(agent),
      m_notifications(notifications),
      m_reloader(reloader),
      m_run(randomName()),
      m_alarms(loop, alarmTableOf(agent), [&notifications] { return notifications.isCurrent(); }),
      m_metrics(m_alarms, [&agent] { return agent.engine().limits().status.alarms; }) {}

std::vector<ControlRoute> StatusPage::routes(AgentThreadCall& caller) {
    std::vector<std::pair<std::string, Route>> resources = {
        {"/status.json", [this, &caller](const ControlRequest&) { return status(caller); }},
        {"/alarms.json", [this, &caller](const ControlRequest& request) { return alarms(caller, request); }},
        {"/notifications.json", [this](const ControlRequest& request) { return notifications(m_run, request); }},
    };
    for (const PageFile& file : PAGE_FILES) {
        resources.emplace_back(file.path, [&file](const ControlRequest&) {
            return ControlAnswer{OK, file.text, file.type};
        });
    }
    std::vector<ControlRoute> routes;
    for (const auto& [path, route] : resources) {
        const auto answer = [asked = route](const ControlRequest& request) { return guarded(asked, request); };
        for (const char* method : {"GET", "HEAD"}) routes.push_back({method, path, answer});
    }
    return routes;
}

ControlAnswer StatusPage::status(AgentThreadCall& caller) const {
    return {OK, caller.call<std::string>(
                    [this] { return statusAsJson(agentStatus(m_agent, m_notifications, m_reloader)) + "\n"; })};
}

ControlAnswer StatusPage::alarms(AgentThreadCall& caller, const ControlRequest& request) {
    const AlarmQuery query = alarmQueryOf(request.query);
    const auto reading = caller.call<AlarmReading>([this] { return m_alarms.current(); });
    const std::string tag = m_run + "-" + std::to_string(reading.number) + (reading.stale ? "-stale" : "");
    return tagged(tag, request, [&] { return alarmsAsJson(reading, query); });
}

bool isLocalHost(const std::string& host) {
    std::string name = host;
    if (!name.empty() && name.front() == '[') {
        const std::size_t end = name.find(']');
        if (end == std::string::npos) return false;
        in6_addr address{};
        return ::inet_pton(AF_INET6, name.substr(1, end - 1).c_str(), &address) == 1 && IN6_IS_ADDR_LOOPBACK(&address);
    }
    name = name.substr(0, name.find(':'));
    if (::strcasecmp(name.c_str(), "localhost") == 0) return true;
    in_addr address{};
    constexpr unsigned int LOOPBACK_BITS = 24;
    return ::inet_pton(AF_INET, name.c_str(), &address) == 1 &&
           ::ntohl(address.s_addr) >> LOOPBACK_BITS == IN_LOOPBACKNET;
}

}  // namespace vrx
