#include "tools/trap_feed.h"

#include <fmt/format.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <functional>
#include <iostream>
#include <stdexcept>
#include <system_error>
#include <thread>
#include <utility>

#include "host/base/file_descriptor.h"
#include "host/base/whole_file.h"

namespace vrx {

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

[[noreturn]] void fail(int error, const std::string& what) {
    throw std::system_error(error, std::generic_category(), what);
}

// A file without a name, open at its beginning. Unlike a pipe it never ends within a line: not when this program is
// killed, either.
FileDescriptor fileWith(std::string_view lines) {
    FileDescriptor file(::memfd_create("notifications", MFD_CLOEXEC));
    if (!file) fail(errno, "memfd_create");
    while (!lines.empty()) {
        const ssize_t size = ::write(file.get(), lines.data(), lines.size());
        if (size < 0 && errno == EINTR) continue;
        if (size < 0) fail(errno, "a piece of lines");
        lines.remove_prefix(static_cast<std::size_t>(size));
    }
    if (::lseek(file.get(), 0, SEEK_SET) != 0) fail(errno, "a piece of lines");
    return file;
}

// Runs the command with the lines as its input.
void give(const std::string& command, const std::string& lines) {
    const FileDescriptor input = fileWith(lines);
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_adddup2(&files, input.get(), STDIN_FILENO);
    std::string words[] = {"sh", "-c", command};
    char* const arguments[] = {words[0].data(), words[1].data(), words[2].data(), nullptr};
    pid_t child = -1;
    const int error = ::posix_spawn(&child, "/bin/sh", &files, nullptr, arguments, environ);
    posix_spawn_file_actions_destroy(&files);
    if (error != 0) fail(error, "/bin/sh");
    int status = 0;
    while (::waitpid(child, &status, 0) < 0) {
        if (errno != EINTR) fail(errno, "waitpid");
    }
    if (WIFSIGNALED(status))
        throw std::runtime_error(fmt::format("the command was ended by signal {}", WTERMSIG(status)));
    if (WEXITSTATUS(status) != 0) {
        throw std::runtime_error(fmt::format("the command ended with {}", WEXITSTATUS(status)));
    }
}

// What goes wrong again and again is told once.
class Attempts {
public:
    // Whether it was done.
    bool attempt(const std::function<void()>& what) {
        try {
            what();
            m_fault.clear();
            return true;
        } catch (const std::exception& error) {
            if (m_fault != error.what()) std::cerr << fmt::format("vrxctl: {}; trying again\n", error.what());
            m_fault = error.what();
            return false;
        }
    }

    // After longer and longer pauses.
    void untilDone(const std::function<void()>& what) {
        constexpr seconds LONGEST{30};
        for (seconds pause{1}; !attempt(what); pause = std::min(2 * pause, LONGEST)) std::this_thread::sleep_for(pause);
    }

private:
    std::string m_fault;
};

std::optional<std::uint64_t> numberIn(const std::string& path) {
    constexpr std::size_t LONGEST = 64;
    const std::optional<std::string> content = readWholeFile(path, LONGEST);
    if (!content) return std::nullopt;
    std::uint64_t number = 0;
    const char* const end = content->data() + content->size();
    const auto [stop, error] = std::from_chars(content->data(), end, number);
    if (error != std::errc() || std::string_view(stop, static_cast<std::size_t>(end - stop)) != "\n") {
        throw std::runtime_error(path + ": is not the number of an entry and a line end");
    }
    return number;
}

void keep(const std::string& path, std::uint64_t number) {
    replaceWholeFile(path, std::to_string(number) + "\n");
}

}  // namespace

[[noreturn]] void feedTraps(TrapStreamOptions options, const TrapFeedOptions& feed) {
    constexpr milliseconds PAUSE{100};  // the agent writes entries as often
    std::optional<std::uint64_t> kept = numberIn(feed.cursor);
    if (!kept) {
        kept = options.after.value_or(0);
        keep(feed.cursor, *kept);
    }
    options.after = kept;
    TrapStream stream(std::move(options));
    Attempts reading;
    Attempts giving;
    Attempts keeping;
    for (;;) {
        std::string lines;
        reading.untilDone([&] { lines = stream.next(); });
        if (!lines.empty()) giving.untilDone([&] { give(feed.command, lines); });
        // Where it cannot be kept, entries go on all the same: after a restart some come twice.
        if (kept != stream.upTo() && keeping.attempt([&] { keep(feed.cursor, *stream.upTo()); })) kept = stream.upTo();
        if (lines.empty()) std::this_thread::sleep_for(PAUSE);
    }
}

}  // namespace vrx
