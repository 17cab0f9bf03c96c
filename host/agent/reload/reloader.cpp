#include "host/agent/reload/reloader.h"

#include <sys/stat.h>
#include <sysexits.h>

#include <algorithm>
#include <filesystem>
#include <sstream>
#include <utility>

#include "host/base/device_config.h"
#include "host/base/log_line.h"
#include "host/base/logging.h"
#include "host/base/mutex.h"
#include "host/log_lines/start.h"

namespace vrx {

namespace {

constexpr std::chrono::seconds CHECK_TIMEOUT{60};    // with all checks, while files change under them
constexpr std::chrono::seconds HANDLER_TIMEOUT{10};  // longer than any sequence of backend calls of one job

const char* const DEFINITION_KEYS[] = {"ALARM_INI_PATH", "ALARM_PARAM_ENUM_PATH"};

std::chrono::nanoseconds timeOf(const timespec& time) {
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        if (!line.empty()) lines.push_back(line);
    }
    return lines;
}

}  // namespace

Reloader::Reloader(AgentLoop& loop, Agent& agent, NotificationService& notifications, Places places)
    : m_agent(agent),
      m_notifications(notifications),
      m_places(std::move(places)),
      m_taken(versions()),
      m_checkEnded(loop, [this] { checked(); }),
      m_allHeld(loop, [this] { held(); }),
      m_heldTooLong(loop, [this] {
          if (!m_busy) return;
          m_barrier.release();
          finish({false, {"a handler is at work for too long: the backend may hang"}});
      }) {}

Reloader::~Reloader() {
    stop();
}

void Reloader::stop() {
    m_stopped = true;
    m_heldTooLong.cancel();
    m_process.reset();
    m_barrier.release();
}

// Definitions stand where the device configuration on disk says, which may be another place than the one in force.
Reloader::Files Reloader::versions() const {
    namespace fs = std::filesystem;
    Files files;
    const fs::path root = m_places.root;
    const std::string device = (root / "conf/device.xml").string();
    std::vector<fs::path> paths = {device, engineFile()};
    for (const std::string& file : m_agent.mibFiles()) paths.emplace_back(file);
    try {
        const DeviceConfig config = readDeviceConfig(device);
        const auto section = config.find("SNMP_CONF");
        for (const char* key : DEFINITION_KEYS) {
            if (section == config.end() || section->second.count(key) == 0) continue;
            paths.push_back(root / section->second.at(key));
        }
    } catch (const DeviceConfigError&) {
        // the check says what is wrong with it
    }
    for (const fs::path& path : paths) {
        struct stat status {};
        std::optional<Version>& version = files[path.string()];
        if (::stat(path.c_str(), &status) == 0) {
            version = {status.st_dev, status.st_ino, status.st_size, timeOf(status.st_mtim), timeOf(status.st_ctim)};
        }
    }
    return files;
}

std::string Reloader::engineFile() const {
    return m_places.root + "/etc/" + SnmpEngine::NAME + ".conf";
}

void Reloader::request(Done done) {
    if (m_stopped) return;
    if (m_busy) {
        m_again = true;
        if (done) m_next.push_back(std::move(done));
        return;
    }
    m_busy = true;
    m_end = std::chrono::steady_clock::now() + CHECK_TIMEOUT;
    if (done) m_waiting.push_back(std::move(done));
    onBegin();
    check();
}

// A reload that cannot go on, for lack of memory, of processes or whatever else, ends: the next one begins anew.
void Reloader::attempt(const std::function<void()>& step) {
    try {
        step();
    } catch (const std::exception& error) {
        m_barrier.release();
        finish({false, {std::string("the configuration cannot be checked: ") + error.what()}});
    }
}

void Reloader::check() {
    attempt([this] {
        m_checked = versions();
        m_process.reset();
        const auto patience =
            std::chrono::duration_cast<std::chrono::milliseconds>(m_end - std::chrono::steady_clock::now());
        m_process =
            std::make_unique<CheckProcess>(m_places.checkCommand, patience, [this](CheckProcess::Outcome outcome) {
                m_outcome = std::move(outcome);
                m_checkEnded.request();
            });
    });
}

void Reloader::checked() {
    if (m_stopped || !m_busy) return;
    const CheckProcess::Outcome& outcome = m_outcome;
    if (outcome.exitCode == EX_OK) {
        attempt([this] { hold(); });
        return;
    }
    std::vector<std::string> faults = linesOf(outcome.output);
    if (outcome.exitCode != EX_CONFIG) {
        faults.push_back(outcome.exitCode < 0 ? "the check of the configuration did not come to its end"
                                              : "the check of the configuration failed with exit code " +
                                                    std::to_string(outcome.exitCode));
    }
    finish({false, std::move(faults)});
}

void Reloader::hold() {
    const std::uint64_t holding = ++m_holding;
    m_barrier.hold(m_agent.workers(), [this, holding] {
        m_heldNumber = holding;
        m_allHeld.request();
    });
    m_heldTooLong.start(HANDLER_TIMEOUT);
}

void Reloader::held() {
    if (m_stopped || !m_busy || m_heldNumber != m_holding) return;
    m_heldTooLong.cancel();
    bool changed = false;
    attempt([&] { changed = versions() != m_checked; });
    if (!m_busy) return;
    if (!changed) {
        exchange();
        return;
    }
    m_barrier.release();
    if (std::chrono::steady_clock::now() < m_end) {
        check();
    } else {
        finish({false, {"the files change again and again while they are checked"}});
    }
}

// On the agent thread, with every handler held: nobody sees a part of it.
void Reloader::exchange() {
    ReloadResult result{true, {}};
    const auto step = [&result](const std::function<void()>& action) {
        try {
            action();
        } catch (const std::exception& error) {  // the check has found no fault: the files were changed since
            result.faults.emplace_back(error.what());
        }
    };
    {
        const MutexLock notificationsHeld(m_notifications.handling());
        step([] { reloadDeviceConfig(); });
        step([] { startLogging(logOptionsFromDevice()); });
        if (definitionsDiffer()) step([this] { m_notifications.reloadDefinitions(); });
        if (mibDiffers()) step([this] { m_agent.reloadMibs(); });
        step([this] { m_agent.reload(); });
        step([this] {
            const SnmpEngine& engine = m_agent.engine();
            m_notifications.setInforms(engine.informs(), engine.configurationFaults().empty());
        });
        step([this] { m_notifications.setLimits(m_agent.engine().limits().notifications); });
        step([this] { m_notifications.configurationChanged(); });
        if (onExchange) step(onExchange);
    }
    step([this] { m_agent.markAllChanged(); });
    m_taken.swap(m_checked);
    m_barrier.release();
    finish(std::move(result));
}

bool Reloader::mibDiffers() const {
    const std::vector<std::string> files = m_agent.mibFiles();
    return std::any_of(files.begin(), files.end(),
                       [this](const std::string& file) { return m_taken.at(file) != m_checked.at(file); });
}

// Any other file than those of the engine and of the MIB: the device configuration says where the definitions stand.
bool Reloader::definitionsDiffer() const {
    Files before = m_taken;
    Files now = m_checked;
    for (Files* files : {&before, &now}) {
        files->erase(engineFile());
        for (const std::string& file : m_agent.mibFiles()) files->erase(file);
    }
    return before != now;
}

void Reloader::finish(ReloadResult result) {
    m_busy = false;
    m_heldTooLong.cancel();
    ++m_holding;  // whatever still waits for a hold is too late
    ++(result.taken ? m_counters.taken : m_counters.refused);
    m_counters.last = std::chrono::system_clock::now();
    m_counters.lastTaken = result.taken;
    for (const std::string& fault : result.faults) logLine<lines::CONFIGURATION_FAULT>(fault);
    if (result.taken) {
        logLine<lines::RELOADED>();
    } else {
        logLine<lines::RELOAD_REFUSED>();
        reopenLogFile();  // whoever rotates it asks in the same way
    }
    std::vector<Done> told;
    told.swap(m_waiting);
    m_waiting.swap(m_next);
    const bool again = std::exchange(m_again, false);
    onEnd(result);
    for (const Done& done : told) done(result);
    if (again && !m_busy) request();
}

}  // namespace vrx
