#include "tools/watch/watch_command.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sysexits.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <clocale>
#include <csignal>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <memory>
#include <optional>
#include <system_error>
#include <thread>
#include <utility>

#include "host/base/file_descriptor.h"
#include "host/base/logging.h"
#include "host/base/mutex.h"
#include "host/base/thread_without_signals.h"
#include "host/command_line/option_parser.h"
#include "tools/watch/alarm_choice.h"
#include "tools/watch/change_lines.h"
#include "tools/watch/screen.h"
#include "tools/watch/terminal.h"
#include "tools/watch/watcher.h"

namespace vrx {

namespace {

constexpr std::size_t NOTIFICATIONS_KEPT = 100;  // that can be scrolled through
constexpr std::chrono::milliseconds END_PATIENCE{200};

// Looks again and again, in a thread of its own: keys are answered while an agent or a backend hangs.
class Looking {
public:
    explicit Looking(std::chrono::seconds interval)
        : m_interval(interval), m_news(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
        if (!m_news) throw std::system_error(errno, std::generic_category(), "eventfd");
        m_thread = threadWithoutSignals([this] { run(); });
    }
    Looking(const Looking&) = delete;
    Looking& operator=(const Looking&) = delete;
    ~Looking() { m_thread.join(); }

    // Readable when take() has something.
    [[nodiscard]] int descriptor() const { return m_news.get(); }

    // What was found last; null when it was taken already. Throws what looking has ended with.
    std::shared_ptr<const Watched> take() {
        std::uint64_t count = 0;
        (void)!::read(m_news.get(), &count, sizeof count);
        const MutexLock lock(m_mutex);
        if (m_fault) std::rethrow_exception(m_fault);
        return std::exchange(m_found, nullptr);
    }

    // False: it is at a call that may take some time yet.
    [[nodiscard]] bool end() {
        MutexLock lock(m_mutex);
        m_ending = true;
        m_wake.notify_all();
        return m_wake.wait_for(lock, END_PATIENCE, [this]() REQUIRES(m_mutex) { return m_ended; });
    }

private:
    void run() {
        try {
            Watcher watcher(NOTIFICATIONS_KEPT);
            for (bool ending = false; !ending;) {
                auto found = watcher.look();
                MutexLock lock(m_mutex);
                m_found = std::move(found);
                tell();
                ending = m_wake.wait_for(lock, m_interval, [this]() REQUIRES(m_mutex) { return m_ending; });
            }
        } catch (...) {
            const MutexLock lock(m_mutex);
            m_fault = std::current_exception();
            tell();
        }
        const MutexLock lock(m_mutex);
        m_ended = true;
        m_wake.notify_all();
    }

    void tell() {
        const std::uint64_t one = 1;
        (void)!::write(m_news.get(), &one, sizeof one);
    }

    const std::chrono::seconds m_interval;
    FileDescriptor m_news;
    Mutex m_mutex;
    ConditionVariable m_wake;
    std::shared_ptr<const Watched> m_found GUARDED_BY(m_mutex);
    std::exception_ptr m_fault GUARDED_BY(m_mutex);
    bool m_ending GUARDED_BY(m_mutex) = false;
    bool m_ended GUARDED_BY(m_mutex) = false;
    std::thread m_thread;
};

bool coloursWanted() {
    const char* const value = std::getenv("NO_COLOR");
    return value == nullptr || *value == '\0';
}

// Gives the signal that has ended it, or nothing after a key.
std::optional<int> followOnScreen(Terminal& terminal, Looking& looking, Screen& screen) {
    for (;;) {
        terminal.draw(screen.lines(terminal.rows(), terminal.columns()));
        pollfd waiting[] = {
            {STDIN_FILENO, POLLIN, 0}, {terminal.signalDescriptor(), POLLIN, 0}, {looking.descriptor(), POLLIN, 0}};
        if (::poll(waiting, std::size(waiting), -1) < 0 && errno != EINTR) {
            throw std::system_error(errno, std::generic_category(), "poll");
        }
        if (const auto signal = terminal.readSignal()) return signal;
        if ((waiting[0].revents & (POLLHUP | POLLERR | POLLNVAL)) != 0) return SIGHUP;  // the terminal is gone
        if (waiting[0].revents != 0) {
            while (const auto key = terminal.readKey()) {
                if (!screen.press(*key)) return std::nullopt;
            }
        }
        if (auto found = looking.take()) screen.show(std::move(found));
    }
}

int watchOnScreen(std::chrono::seconds interval, const AlarmChoice& choice) {
    std::optional<int> signal;
    bool ended = false;
    auto terminal = std::make_unique<Terminal>(coloursWanted());
    auto looking = std::make_unique<Looking>(interval);
    Screen screen(choice, AlarmOrder::Newest);
    std::exception_ptr fault;
    try {
        signal = followOnScreen(*terminal, *looking, screen);
    } catch (...) {
        fault = std::current_exception();
    }
    terminal.reset();  // before anybody has to wait
    ended = looking->end();
    if (signal) {  // who started this learns how it ended
        std::signal(*signal, SIG_DFL);
        ::raise(*signal);
    }
    if (!ended && !fault) std::quick_exit(EX_OK);
    if (fault) std::rethrow_exception(fault);
    return EX_OK;
}

// Ends when nobody reads the lines any more.
int watchAsLines(std::chrono::seconds interval, const AlarmChoice& choice) {
    Watcher watcher(0);
    ChangeLines changes(choice);
    pollfd reader{STDOUT_FILENO, 0, 0};
    for (;;) {
        for (const std::string& line : changes.next(watcher.look())) std::cout << line << "\n";
        if (!std::cout.flush()) throw std::runtime_error("standard output cannot be written");
        const auto pause = std::chrono::duration_cast<std::chrono::milliseconds>(interval).count();
        if (::poll(&reader, 1, static_cast<int>(pause)) > 0) return EX_OK;
    }
}

}  // namespace

void WatchCommand::define(OptionParser& command) {
    constexpr unsigned int HOUR = 3600;
    command.add("--interval", interval, "seconds between two looks (default 2)").range(1U, HOUR);
    command.add("--level", level, "alarms of this level and above: critical, major, minor or warning (all)")
        .oneOf({"critical", "major", "minor", "warning"});
    command.add("--text", text, "alarms with this in a text or a number");
    command.addFlag("--lines", lines, "a line for each change, as in a pipe");
}

int WatchCommand::run() {
    std::setlocale(LC_CTYPE, "");
    setLogLevel("all", LogLevel::Off);  // of the libraries: what they cannot do is shown
    const AlarmChoice choice{faultLevelNamed(level), text};
    const std::chrono::seconds seconds(interval);
    const bool onScreen = !lines && ::isatty(STDIN_FILENO) != 0 && ::isatty(STDOUT_FILENO) != 0;
    return onScreen ? watchOnScreen(seconds, choice) : watchAsLines(seconds, choice);
}

}  // namespace vrx
