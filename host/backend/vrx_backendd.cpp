// vrx-backendd: the reference management backend as a program of its own, in the foreground.
#include <sysexits.h>

#include <cerrno>
#include <csignal>
#include <ctime>
#include <exception>
#include <optional>
#include <stdexcept>
#include <string>
#include <system_error>

#include "host/backend/backend.h"
#include "host/base/device_config.h"
#include "host/base/log_line.h"
#include "host/base/logging.h"
#include "host/base/product_root.h"
#include "host/base/service_manager.h"
#include "host/command_line/option_parser.h"
#include "host/log_lines/backend.h"

namespace vrx {

namespace {

constexpr unsigned int LONGEST_DELAY_MS = 60'000;

struct CommandLine {
    std::string root;
    std::string address;
    unsigned int delayMs = 0;
};

void defineOptions(OptionParser& options, CommandLine& line) {
    options.add("--root", line.root,
                "Product root: holds conf/ and state/ (default: VRX_ROOT, else the installed one)");
    options.add("--address", line.address, "unix:PATH or tcp:HOST:PORT instead of the configured address");
    options.add("--delay-ms", line.delayMs, "Delay every answer by so many milliseconds").range(0U, LONGEST_DELAY_MS);
}

BackendSettings settingsOf(const CommandLine& line) {
    BackendSettings settings = BackendSettings::fromDevice();
    if (!line.address.empty()) settings.transport.address = parseLocalAddress(line.address, productPath(""));
    settings.delay = std::chrono::milliseconds(line.delayMs);
    return settings;
}

// Until one of the signals comes. Meanwhile the service manager hears at its interval that the store, which every
// request needs, answers; while it does not, nothing is told.
void waitForSignal(const sigset_t& ending, const Backend& backend, const ServiceManager& manager) {
    constexpr long MICROSECONDS = 1'000'000;
    const long interval = manager.aliveInterval().count();
    const timespec wait{interval / MICROSECONDS, interval % MICROSECONDS * 1'000};
    while ((interval > 0 ? ::sigtimedwait(&ending, nullptr, &wait) : ::sigwaitinfo(&ending, nullptr)) < 0) {
        if (errno != EAGAIN) continue;
        backend.askStore();
        manager.alive();
    }
}

int serve(const CommandLine& line) {
    // Blocked before any thread exists, so that every thread leaves the signals to sigwait().
    sigset_t ending;
    sigemptyset(&ending);
    sigaddset(&ending, SIGTERM);
    sigaddset(&ending, SIGINT);
    pthread_sigmask(SIG_BLOCK, &ending, nullptr);

    std::signal(SIGXFSZ, SIG_IGN);  // a file that reaches the process's limit is a failing write, not the end
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGHUP, SIG_IGN);  // sent to both programs when the agent is to reload: nothing is read again here

    const ServiceManager manager = ServiceManager::fromEnvironment();
    reloadDeviceConfig();
    startLogging(logOptionsFromDevice());
    Backend backend(settingsOf(line));
    backend.start();
    logLine<lines::BACKEND_READY>();
    manager.ready("serves clients");
    waitForSignal(ending, backend, manager);
    manager.stopping();
    backend.stop();
    return EX_OK;
}

int failed(int exitCode, const std::exception& error) {
    logLine<lines::BACKEND_FAILED>(error.what());
    return exitCode;
}

}  // namespace

}  // namespace vrx

using namespace vrx;

int main(int argc, char** argv) {
    OptionParser options("Management backend: alarms in SQLite, served over the TLV package protocol.", "vrx-backendd");
    CommandLine line;
    defineOptions(options, line);
    if (const std::optional<int> exitCode = options.parse(argc, argv)) return *exitCode;
    if (!line.root.empty()) setProductRoot(line.root);
    try {
        return serve(line);
    } catch (const BackendStartError& error) {
        return failed(error.exitCode, error);
    } catch (const DeviceConfigError& error) {
        return failed(EX_CONFIG, error);
    } catch (const std::invalid_argument& error) {
        return failed(EX_CONFIG, error);
    } catch (const std::system_error& error) {
        return failed(EX_OSERR, error);
    } catch (const std::exception& error) {
        return failed(EX_SOFTWARE, error);
    }
}
