#include "tools/watch/terminal.h"

#define NCURSES_WIDECHAR 1
#include <ncurses.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <stdexcept>
#include <system_error>

#include "tools/watch/terminal_type.h"
#include "tools/watch/text_columns.h"

namespace vrx {

namespace {

constexpr int ESCAPE_KEY = 27;
constexpr int ESCAPE_MILLISECONDS = 25;  // after which it is no beginning of another key

constexpr int ENDING[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT};
constexpr int OTHERS[] = {SIGTSTP, SIGCONT, SIGWINCH};

struct KeyCode {
    int code;
    Key key;
};
constexpr KeyCode FUNCTION_KEYS[] = {
    {KEY_UP, Key::Up},     {KEY_DOWN, Key::Down},  {KEY_PPAGE, Key::PageUp},        {KEY_NPAGE, Key::PageDown},
    {KEY_HOME, Key::Home}, {KEY_END, Key::End},    {KEY_ENTER, Key::Enter},         {KEY_LL, Key::End},
    {KEY_FIND, Key::Home}, {KEY_SELECT, Key::End}, {KEY_BACKSPACE, Key::Backspace}, {KEY_DC, Key::Backspace},
};
constexpr KeyCode CONTROL_KEYS[] = {
    {'\t', Key::NextList},     {'\n', Key::Enter},     {'\r', Key::Enter},
    {ESCAPE_KEY, Key::Escape}, {'\b', Key::Backspace}, {0x7F, Key::Backspace},
};

template <std::size_t COUNT>
std::optional<KeyPress> found(const KeyCode (&keys)[COUNT], wint_t code) {
    for (const KeyCode& one : keys) {
        if (static_cast<wint_t>(one.code) == code) return KeyPress{one.key, {}};
    }
    return std::nullopt;
}

// By Style.
constexpr struct {
    attr_t attributes;
    short colour;  // -1: the terminal's own
} STYLES[] = {{A_NORMAL, -1},           {A_BOLD, -1},           {A_BOLD, COLOR_RED}, {A_NORMAL, COLOR_RED},
              {A_NORMAL, COLOR_YELLOW}, {A_NORMAL, COLOR_CYAN}, {A_BOLD, COLOR_RED}, {A_REVERSE, -1}};

sigset_t signalSet() {
    sigset_t set;
    sigemptyset(&set);
    for (const int signal : ENDING) sigaddset(&set, signal);
    for (const int signal : OTHERS) sigaddset(&set, signal);
    return set;
}

}  // namespace

struct Terminal::State {
    SCREEN* screen = nullptr;
    bool colours = false;
};

Terminal::Terminal(bool colours) : m_state(std::make_unique<State>()) {
    const sigset_t signals = signalSet();
    pthread_sigmask(SIG_BLOCK, &signals, &m_maskBefore);
    m_signals = FileDescriptor(::signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK));
    struct sigaction stopAction {};
    ::sigaction(SIGTSTP, nullptr, &stopAction);
    m_state->screen = m_signals && isScreenTerminal() ? ::newterm(nullptr, stdout, stdin) : nullptr;
    ::sigaction(SIGTSTP, &stopAction, nullptr);  // not the library's handler: see stop()
    if (m_state->screen == nullptr) {
        pthread_sigmask(SIG_SETMASK, &m_maskBefore, nullptr);
        throw std::runtime_error("the type of this terminal (TERM) is none of a screen; --lines does without");
    }
    ::cbreak();
    ::noecho();
    ::keypad(stdscr, TRUE);
    ::nodelay(stdscr, TRUE);
    ::set_escdelay(ESCAPE_MILLISECONDS);
    ::curs_set(0);
    m_state->colours = colours && ::has_colors();
    if (m_state->colours) {
        ::start_color();
        ::use_default_colors();
        for (std::size_t i = 0; i < std::size(STYLES); ++i) {
            ::init_pair(static_cast<short>(i + 1), STYLES[i].colour, -1);
        }
    }
}

Terminal::~Terminal() {
    ::endwin();
    ::delscreen(m_state->screen);
    pthread_sigmask(SIG_SETMASK, &m_maskBefore, nullptr);
}

std::size_t Terminal::rows() const {
    return static_cast<std::size_t>(std::max(getmaxy(stdscr), 1));
}

std::size_t Terminal::columns() const {
    return static_cast<std::size_t>(std::max(getmaxx(stdscr), 1));
}

void Terminal::draw(const std::vector<ScreenLine>& lines) {
    ::werase(stdscr);
    int row = 0;
    for (const ScreenLine& line : lines) {
        ::wmove(stdscr, row++, 0);
        for (const ScreenLine::Piece& piece : line.pieces) {
            const auto style = static_cast<std::size_t>(piece.style);
            const std::size_t pair = m_state->colours ? style + 1 : 0;
            ::wattr_set(stdscr, STYLES[style].attributes, static_cast<short>(pair), nullptr);
            ::waddwstr(stdscr, wideText(piece.text).c_str());
        }
    }
    ::wattr_set(stdscr, A_NORMAL, 0, nullptr);
    ::wrefresh(stdscr);
}

std::optional<KeyPress> Terminal::readKey() {
    wint_t code = 0;
    for (;;) {
        const int kind = ::wget_wch(stdscr, &code);
        if (kind == ERR) return std::nullopt;
        auto key = kind == KEY_CODE_YES ? found(FUNCTION_KEYS, code) : found(CONTROL_KEYS, code);
        if (key) return key;
        constexpr wint_t FIRST_CHARACTER = ' ';
        if (kind == OK && code >= FIRST_CHARACTER) return KeyPress{Key::Character, utf8Of(code)};
    }
}

std::optional<int> Terminal::readSignal() {
    signalfd_siginfo info{};
    while (::read(m_signals.get(), &info, sizeof info) == static_cast<ssize_t>(sizeof info)) {
        const auto number = static_cast<int>(info.ssi_signo);
        if (std::find(std::begin(ENDING), std::end(ENDING), number) != std::end(ENDING)) return number;
        if (number == SIGTSTP) stop();
        fit();
    }
    return std::nullopt;
}

// By the signal's own action: a shell with job control stops this process, and there is none that would go on with it
// where nobody can.
void Terminal::stop() {
    ::endwin();
    sigset_t signal;
    sigemptyset(&signal);
    sigaddset(&signal, SIGTSTP);
    ::raise(SIGTSTP);
    pthread_sigmask(SIG_UNBLOCK, &signal, nullptr);  // stops here
    pthread_sigmask(SIG_BLOCK, &signal, nullptr);
}

// Everything anew: after a stop others have written to the terminal, and set it up for themselves.
void Terminal::fit() {
    winsize size{};
    if (::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_row > 0 && size.ws_col > 0) {
        ::resizeterm(size.ws_row, size.ws_col);
    }
    ::reset_prog_mode();
    ::clearok(stdscr, TRUE);
}

}  // namespace vrx
