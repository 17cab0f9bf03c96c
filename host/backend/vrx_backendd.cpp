// vrx-backendd: the reference management backend as a program of its own, in the foreground.
#include <spdlog/spdlog.h>
#include <sysexits.h>

#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>

#include "host/backend/backend.h"

namespace {

constexpr unsigned int LONGEST_DELAY_MS = 60'000;

struct CommandLine {
    std::string root;
    std::string address;
    unsigned int delayMs = 0;
};

void defineOptions(CLI::App& app, CommandLine& line) {
    app.add_option("--root", line.root, "Product root: holds conf/ and state/")->required();
    app.add_option("--address", line.address, "unix:PATH or tcp:HOST:PORT instead of the configured address");
    app.add_option("--delay-ms", line.delayMs, "Answer every request that much later")
        ->check(CLI::Range(0U, LONGEST_DELAY_MS));
}

BackendSettings settingsOf(const CommandLine& line) {
    BackendSettings settings = BackendSettings::fromDevice();
    if (!line.address.empty()) settings.transport.address = parseBackendAddress(line.address, line.root);
    settings.delay = std::chrono::milliseconds(line.delayMs);
    return settings;
}

int serve(const CommandLine& line) {
    // Blocked before any thread exists, so that every thread leaves the signals to sigwait().
    sigset_t ending;
    sigemptyset(&ending);
    sigaddset(&ending, SIGTERM);
    sigaddset(&ending, SIGINT);
    pthread_sigmask(SIG_BLOCK, &ending, nullptr);

    Backend backend(settingsOf(line));
    backend.start();
    spdlog::info("ready");
    int signal = 0;
    sigwait(&ending, &signal);
    backend.stop();
    return EX_OK;
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app("Management backend: alarms in SQLite, served over the TLV package protocol.", "vrx-backendd");
    CommandLine line;
    defineOptions(app, line);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? EX_OK : EX_USAGE;
    }
    while (line.root.size() > 1 && line.root.back() == '/') line.root.pop_back();
    if (::setenv("VRX_ROOT", line.root.c_str(), 1) != 0) return EX_OSERR;
    try {
        return serve(line);
    } catch (const BackendStartError& error) {
        spdlog::critical("{}", error.what());
        return error.exitCode;
    } catch (const std::invalid_argument& error) {
        spdlog::critical("{}", error.what());
        return EX_CONFIG;
    } catch (const std::exception& error) {
        spdlog::critical("{}", error.what());
        return EX_SOFTWARE;
    }
}
