#include "host/agent/reload/configuration_check.h"

#include <cstdlib>
#include <filesystem>
#include <functional>
#include <stdexcept>

#include "host/agent/engine/snmp_engine.h"
#include "host/agent/objects/module_loader.h"
#include "host/agent/traps/trap_options.h"
#include "host/base/device_config.h"
#include "host/base/logging.h"
#include "host/definitions/definition_lint.h"
#include "host/transport/backend_options.h"
#include "platform/vrx_xml_config.h"

namespace vrx {

namespace {

// A folder for the state that the engine must have, gone with the object.
class ScratchFolder {
public:
    ScratchFolder() {
        std::string path = (std::filesystem::temp_directory_path() / "vrx-check.XXXXXX").string();
        if (::mkdtemp(path.data()) == nullptr) throw std::runtime_error(path + ": cannot be made");
        m_path = path;
    }
    ~ScratchFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;

    const std::string& path() const { return m_path; }

private:
    std::string m_path;
};

class Check {
public:
    explicit Check(std::ostream& out) : m_out(out) {}

    void fault(const std::string& text) {
        ++m_faults;
        m_out << text << '\n';
    }

    // What the step throws is a fault. False then.
    bool step(const std::function<void()>& step) {
        try {
            step();
            return true;
        } catch (const std::exception& error) {
            fault(error.what());
            return false;
        }
    }

    std::size_t faults() const { return m_faults; }

private:
    std::ostream& m_out;
    std::size_t m_faults = 0;
};

// The path of a file that section SNMP_CONF names; empty when it names none.
std::string definitionPath(const std::string& root, const std::string& key) {
    std::string value;
    value = CVRXXmlConfig::instance()->getDeviceItem("SNMP_CONF", key, value);
    return value.empty() ? value : root + "/" + value;
}

void checkDefinitions(const std::string& root, Check& check, std::ostream& out) {
    const std::string definitions = definitionPath(root, "ALARM_INI_PATH");
    if (definitions.empty()) return;
    for (const LintFinding& finding : lintDefinitions(definitions, definitionPath(root, "ALARM_PARAM_ENUM_PATH"))) {
        const std::string place = finding.file + ":" + std::to_string(finding.line) + ": ";
        if (finding.severity == LintSeverity::Error) {
            check.fault(place + finding.text);
        } else {
            out << place << "warning: " << finding.text << '\n';
        }
    }
}

}  // namespace

std::size_t checkConfiguration(const std::string& root, const std::vector<std::string>& modules, std::ostream& out) {
    Check check(out);
    LogOptions silent;
    silent.threshold = LogLevel::Off;  // all is said here
    startLogging(silent);

    if (check.step([] { reloadDeviceConfig(); })) {
        check.step([] { (void)logOptionsFromDevice(); });
        check.step([] { (void)BackendOptions::fromDevice(); });
        check.step([] { (void)TrapOptions::fromDevice(); });
        check.step([&] { checkDefinitions(root, check, out); });
    }
    check.step([&] {
        const ScratchFolder state;
        const SnmpEngine engine(root, state.path());
        for (const std::string& fault : engine.configurationFaults()) check.fault(fault);
        ModuleLoader loader(root + "/mibs");
        for (const std::string& module : modules) check.step([&] { loader.load(module); });
    });
    return check.faults();
}

}  // namespace vrx
