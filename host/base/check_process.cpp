#include "host/base/check_process.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <system_error>
#include <utility>

namespace vrx {

namespace {

constexpr std::size_t OUTPUT_LIMIT = std::size_t{1} << 20U;

[[noreturn]] void fail(int error, const std::string& what) {
    throw std::system_error(error, std::generic_category(), what);
}

// Both outputs into `output`; none of our descriptors, none of our signal settings.
pid_t spawn(const std::vector<std::string>& command, int output) {
    constexpr int FIRST_OTHER = 3;
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_addopen(&files, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&files, output, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&files, output, STDERR_FILENO);
    posix_spawn_file_actions_addclosefrom_np(&files, FIRST_OTHER);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t none;
    sigset_t all;
    sigemptyset(&none);
    sigfillset(&all);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setsigdefault(&attributes, &all);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);

    std::vector<char*> arguments;
    for (const std::string& argument : command) arguments.push_back(const_cast<char*>(argument.c_str()));
    arguments.push_back(nullptr);
    pid_t child = -1;
    const int error = posix_spawn(&child, arguments.front(), &files, &attributes, arguments.data(), environ);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&files);
    if (error != 0) fail(error, command.front());
    return child;
}

}  // namespace

CheckProcess::CheckProcess(const std::vector<std::string>& command, std::chrono::milliseconds patience, Done done)
    : m_end(std::chrono::steady_clock::now() + patience), m_done(std::move(done)) {
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0) fail(errno, "pipe");
    m_output = FileDescriptor(ends[0]);
    const FileDescriptor childsEnd(ends[1]);
    m_child = spawn(command, childsEnd.get());
    m_ended = FileDescriptor(static_cast<int>(::syscall(SYS_pidfd_open, m_child, 0)));
    if (!m_ended) {
        const int error = errno;
        ::kill(m_child, SIGKILL);
        ::waitpid(m_child, nullptr, 0);
        fail(error, "pidfd_open");
    }
    m_thread = std::thread([this] { run(); });
}

CheckProcess::~CheckProcess() {
    m_stop.raise();
    m_thread.join();
}

void CheckProcess::run() {
    Outcome outcome;
    bool ended = false;
    std::array<char, 4096> buffer{};
    while (waitFor(m_output.get(), POLLIN, m_end, m_stop.descriptor()) == Wait::Ready) {
        const ssize_t size = ::read(m_output.get(), buffer.data(), buffer.size());
        if (size < 0 && errno == EINTR) continue;
        ended = size == 0;
        if (size <= 0) break;
        const std::size_t room = OUTPUT_LIMIT - outcome.output.size();
        outcome.output.append(buffer.data(), std::min(static_cast<std::size_t>(size), room));
    }
    // Its outputs are closed, which is not yet its end.
    if (ended) ended = waitFor(m_ended.get(), POLLIN, m_end, m_stop.descriptor()) == Wait::Ready;
    if (!ended) ::kill(m_child, SIGKILL);
    int status = 0;
    while (::waitpid(m_child, &status, 0) < 0 && errno == EINTR) {
    }
    if (ended && WIFEXITED(status)) outcome.exitCode = WEXITSTATUS(status);
    const bool cancelled = waitFor(-1, 0, std::chrono::steady_clock::now(), m_stop.descriptor()) == Wait::Cancelled;
    if (!cancelled) m_done(std::move(outcome));
}

}  // namespace vrx
