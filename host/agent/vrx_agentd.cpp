// vrx-agentd: the reference host as a program, in the foreground.
#include <malloc.h>
#include <sysexits.h>

#include <csignal>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <functional>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "host/agent/assembly/agent.h"
#include "host/agent/assembly/notification_service.h"
#include "host/agent/loop/signal_watch.h"
#include "host/agent/loop/watchdog.h"
#include "host/agent/operator/agent_control.h"
#include "host/agent/operator/status_service.h"
#include "host/agent/reload/configuration_check.h"
#include "host/agent/reload/reloader.h"
#include "host/agent/web/status_page.h"
#include "host/backend/backend.h"
#include "host/base/device_config.h"
#include "host/base/log_line.h"
#include "host/base/logging.h"
#include "host/base/product_root.h"
#include "host/base/service_manager.h"
#include "host/base/sqlite_database.h"
#include "host/command_line/option_parser.h"
#include "host/destinations/trap_api.h"
#include "host/log_lines/start.h"
#include "host/platform_impl/identity.h"
#include "platform/vrx_utility.h"

namespace vrx {

namespace {

// Free memory that is not given back to the system: the next walk, or the next packet's buffer, would fetch it again.
constexpr int KEPT_MEMORY = 4 * 1024 * 1024;

constexpr std::chrono::milliseconds TIMEOUT{1'500};  // with handlers at the end

// What the service manager shows.
constexpr const char* SERVING = "answers requests";
constexpr const char* SERVING_AS_BEFORE = "answers requests; the last reload was refused, see the log";

struct CommandLine {
    std::string root;
    std::vector<std::string> modules;
    std::vector<std::string> listeners;
    bool embeddedBackend = false;
    bool checkConfig = false;
};

void defineOptions(OptionParser& options, CommandLine& line) {
    options.add("--root", line.root, "Product root: holds conf/, etc/, mibs/ and state/ (default: $VRX_ROOT)");
    options.add("--module", line.modules, "Service module to load; may be given several times");
    options.add("--listen", line.listeners,
                "udp:127.0.0.1:1161, udp6:[::1]:1161, tcp:...; may be given several times. Without it the "
                "configuration's agentAddress, else udp:127.0.0.1:1161");
    options.addFlag("--check-config", line.checkConfig,
                    "Read all configuration, definition and MIB files, report each fault with its place, and exit");
    options.addFlag("--embedded-backend", line.embeddedBackend, "Run the management backend inside this process");
}

// The root as an absolute path: Net-SNMP takes relative ones from the wrong place.
std::string absoluteRoot(const std::string& given) {
    const std::string root = given.empty() ? VRX_Utility::getVRXRootEnv() : given;
    std::error_code error;
    const std::filesystem::path path = std::filesystem::canonical(root, error);
    if (error || !std::filesystem::is_directory(path))
        throw std::invalid_argument("product root \"" + root + "\" is no folder");
    return path.string();
}

// Closes the store of trap destinations when all who use it are gone. What is closed is made by then, as nothing can be
// at an end for lack of memory: the first call makes it.
struct DestinationsCloser {
    DestinationsCloser() { closeTrapDestinations(); }
    DestinationsCloser(const DestinationsCloser&) = delete;
    DestinationsCloser& operator=(const DestinationsCloser&) = delete;
    ~DestinationsCloser() { closeTrapDestinations(); }
};

// What a reload runs to check the files: this program itself.
std::vector<std::string> checkCommand(const std::string& root, const std::vector<std::string>& modules) {
    std::vector<std::string> command = {std::filesystem::read_symlink("/proc/self/exe").string(), "--check-config",
                                        "--root", root};
    for (const std::string& module : modules) command.insert(command.end(), {"--module", module});
    return command;
}

int check(const CommandLine& line) {
    const std::string root = absoluteRoot(line.root);
    setProductRoot(root);
    return checkConfiguration(root, line.modules, std::cout) == 0 ? EX_OK : EX_CONFIG;
}

// The product root, with its configuration read and its log open.
std::string openRoot(const std::string& given) {
    std::string root = absoluteRoot(given);
    setProductRoot(root);
    reloadDeviceConfig();
    startLogging(logOptionsFromDevice());
    loadIdentity();
    stateFolder();
    return root;
}

std::unique_ptr<Backend> startBackend() {
    auto backend = std::make_unique<Backend>(BackendSettings::fromDevice());
    backend->start();
    return backend;
}

// Answers requests and sends what alarms make, from its start on.
struct Service {
    Service(AgentLoop& loop, const std::string& root, const CommandLine& line)
        : agent(loop, root, line.modules), notifications(loop, [this] { agent.markEventsChanged(); }) {
        agent.setAlarmFeedLive([this] { return notifications.isCurrent(); });
        agent.setAlarmsObstacle([this] { return notifications.definitionsFault(); });
        notifications.onEvent = [this](const AlarmEvent& event) { agent.noteEvent(event); };
        notifications.onGap = [this] { agent.markAllChanged(); };
        notifications.setLimits(agent.engine().limits().notifications);
        agent.listen(line.listeners);
        notifications.setInforms(agent.engine().informs(), agent.engine().configurationFaults().empty());
        notifications.start();
        if (!agent.engine().hasUsers()) {
            logLine<lines::NO_USERS>(root);
        }
    }

    Agent agent;
    NotificationService notifications;
};

// Takes what operators, collectors and browsers ask for.
struct Operation {
    Operation(AgentLoop& loop, Service& service, ControlSocket socket, Reloader::Places places,
              const ServiceManager& manager)
        : reloader(loop, service.agent, service.notifications, std::move(places)),
          control(std::move(socket), loop, service.agent, service.notifications, reloader),
          page(loop, service.agent, service.notifications, reloader),
          status(
              loop, service.agent, service.notifications, reloader,
              [this](AgentThreadCall& caller) { return page.alarmMetrics(caller); },
              [this](AgentThreadCall& caller) { return page.routes(caller); }) {
        reloader.onExchange = [this] { status.configure(); };
        reloader.onBegin = [&manager] { manager.reloading(); };
        reloader.onEnd = [&manager](const ReloadResult& result) {
            manager.ready(result.taken ? SERVING : SERVING_AS_BEFORE);
        };
    }

    Reloader reloader;
    const AgentControl control;
    StatusPage page;
    StatusService status;
};

// The serving process: its parts in the order of their start. They go in the reverse one.
class AgentProcess {
public:
    explicit AgentProcess(const CommandLine& line)
        : m_root(openRoot(line.root)),
          m_controlSocket(parseLocalAddress("unix:state/agent.sock", m_root)),
          m_backend(line.embeddedBackend ? startBackend() : nullptr),
          m_service(m_loop, m_root, line),
          m_operation(m_loop, m_service, std::move(m_controlSocket), {m_root, checkCommand(m_root, line.modules)},
                      m_manager) {
        m_reload = [this] { m_operation.reloader.request(); };
        m_service.notifications.onDefinitionsRead = [this] { ready(); };
    }

    void run() { m_loop.run(); }

    void end() {
        m_service.notifications.onDefinitionsRead = [] {};  // not ready any more
        m_manager.stopping();
        m_operation.reloader.stop();
        m_service.notifications.stop();
        if (!m_service.agent.stop(TIMEOUT)) {
            logLine<lines::OPERATION_NOT_RETURNED>();
            std::_Exit(EX_OK);  // all state is on disk; what the handler uses cannot be destroyed under it
        }
        if (m_backend != nullptr) m_backend->stop();
    }

private:
    // Requests that need no alarm definitions are answered before.
    void ready() {
        logLine<lines::READY>();
        m_manager.ready(SERVING);
        m_watchdog.emplace(m_loop, m_manager);
    }

    const ServiceManager m_manager = ServiceManager::fromEnvironment();
    // Before all else, so that an end in the midst of the start is one like any other; and before any thread: all of
    // them leave the signals to the watch.
    AgentLoop m_loop;
    std::function<void()> m_reload;  // empty until all parts are there
    const SignalWatch m_signals{
        {{SIGTERM, [this] { m_loop.stop(); }}, {SIGINT, [this] { m_loop.stop(); }}, {SIGHUP, [this] {
                                                                                         if (m_reload) m_reload();
                                                                                     }}}};
    const std::string m_root;
    // Before the start is counted, and before the state is read: vrxctl waits here for an agent that starts, instead of
    // leaving it something that it does not see any more.
    ControlSocket m_controlSocket;
    const std::unique_ptr<Backend> m_backend;
    const DestinationsCloser m_closer;
    Service m_service;
    Operation m_operation;
    std::optional<Watchdog> m_watchdog;
};

int serve(const CommandLine& line) {
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);  // a file that reaches the process's limit is a failing write, not the end
    AgentProcess process(line);
    process.run();
    process.end();
    return EX_OK;
}

int failed(int code, const std::exception& error) {
    logFault<lines::AGENT_FAILED>(error.what());
    return code;
}

}  // namespace

}  // namespace vrx

using namespace vrx;

int main(int argc, char** argv) try {
    ::mallopt(M_TRIM_THRESHOLD, KEPT_MEMORY);
    OptionParser options("SNMP agent that serves the objects of service modules and sends their traps.", "vrx-agentd");
    CommandLine line;
    defineOptions(options, line);
    if (const std::optional<int> exitCode = options.parse(argc, argv)) return *exitCode;
    try {
        return line.checkConfig ? check(line) : serve(line);
    } catch (const BackendStartError& error) {
        return failed(error.exitCode, error);
    } catch (const EngineError& error) {
        return failed(EX_UNAVAILABLE, error);
    } catch (const WholeFileError& error) {
        return failed(EX_IOERR, error);
    } catch (const ModuleError& error) {
        return failed(EX_CONFIG, error);
    } catch (const SqliteError& error) {
        return failed(EX_IOERR, error);
    } catch (const DeviceConfigError& error) {
        return failed(EX_CONFIG, error);
    } catch (const std::invalid_argument& error) {  // a value of the device configuration, or the root
        return failed(EX_CONFIG, error);
    } catch (const std::system_error& error) {
        return failed(EX_OSERR, error);
    } catch (const std::exception& error) {
        return failed(EX_SOFTWARE, error);
    }
} catch (const std::exception& error) {  // no memory for the command line
    return failed(EX_SOFTWARE, error);
}
