// Prints docs/log-lines.md; with --names the names of the rows instead. scripts/generate-log-lines runs it, and a test
// that compares (tests/docs/).
#include <cstdio>
#include <cstring>
#include <string>

namespace {

std::string& page() {
    static std::string text = R"(# Log lines of agent and backend

Every line that the host writes, with its cause and what to do; `{}` stands for a value. `scripts/generate-log-lines` makes
this page of the rows in `host/log_lines/`, from which the programs write the lines. Lines of the module (`[module ...]`) are
in [errors.md](errors.md). A lasting fault has one line when it begins and one when it ends, not one for each attempt.

    2026-11-21T09:14:03.127+0100 warning [transport] the management backend at unix:state/backend.sock is not reachable: ...
    time                         level   [subsystem] text

Levels here are `debug`, `info`, `warn` and `error`. `vrxctl log` shows and sets the lowest level that is written
([status.md](status.md)). Lines whose text is `{}` alone pass on what another part, or a library, says.
)";
    return text;
}

std::string& names() {
    static std::string text;
    return text;
}

struct Section {
    Section(const std::string& title, const std::string& introduction) {
        page() += "\n## " + title + "\n\n" + introduction + (introduction.empty() ? "" : "\n\n") +
                  "| Level | Line | Cause | What to do |\n|---|---|---|---|\n";
    }
};

}  // namespace

#define LOG_LINE(NAME, SUBSYSTEM, LEVEL, TEXT, CAUSE, REMEDY) \
    const Listed NAME(#NAME, {SUBSYSTEM, LogLevel::LEVEL, TEXT, CAUSE, REMEDY})

#include "host/log_lines/log_row.h"

namespace vrx::lines {

struct Listed {
    Listed(const std::string& name, const LogRow& row) {
        page() += std::string("| ") + textOf(row.level) + " | `" + std::string(row.text) + "` | " + row.cause + " | " +
                  row.remedy + " |\n";
        names() += name + "\n";
    }
};

}  // namespace vrx::lines

// In the order of the page.
const Section START("Start, reload and end", "");
#include "host/log_lines/start.h"

const Section REQUESTS("Requests", "");
#include "host/log_lines/requests.h"

const Section EVENTS(
    "Backend and alarm events",
    "`{}` after `alarm event` names event and alarm: `4 (alarm 4295032833, serial 7)`. `vrxctl render` takes "
    "the alarm's number,\n`vrxctl list` shows the serial number.");
#include "host/log_lines/events.h"

const Section TRAPS(
    "Trap destinations",
    "The values after `trap destination` are the index of its row, its address and port, and its version.");
#include "host/log_lines/traps.h"

const Section INFORMS("Informs", "`{}` after `inform destination` is the receiver, such as `192.0.2.1:162`.");
#include "host/log_lines/informs.h"

const Section FILES("Files", "");
#include "host/log_lines/files.h"

const Section BACKEND("Backend", "");
#include "host/log_lines/backend.h"

int main(int argc, char** argv) {
    const bool wantsNames = argc == 2 && std::strcmp(argv[1], "--names") == 0;
    const std::string& text = wantsNames ? names() : page();
    return std::fwrite(text.data(), 1, text.size(), stdout) == text.size() && std::fflush(stdout) == 0 ? 0 : 1;
}
