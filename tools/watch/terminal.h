// The terminal of this process as a screen: draws lines, reads keys, and gives it back as it was. With ncurses, which
// knows terminals, their sizes and keys, wide characters, and what of a screen has to be sent again.
//
// Signals that end the program, stop it or tell of another size are taken by readSignal(), between two steps, so that
// the terminal is put back in order and never in the middle of something: threads that are started while a Terminal is
// there, or before it, must not take them. One at a time.
#pragma once

#include <signal.h>

#include <cstddef>
#include <memory>
#include <optional>
#include <vector>

#include "host/base/file_descriptor.h"
#include "tools/watch/screen.h"

namespace vrx {

class Terminal {
public:
    // `colours`: where the terminal has some. Throws std::runtime_error when it is none that ncurses knows.
    explicit Terminal(bool colours);
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;
    ~Terminal();

    [[nodiscard]] std::size_t rows() const;
    [[nodiscard]] std::size_t columns() const;
    void draw(const std::vector<ScreenLine>& lines);

    // The next key that was pressed; nothing when there is none now. Others than those that Key has are left out.
    std::optional<KeyPress> readKey();

    // Readable when readSignal() has something to do.
    [[nodiscard]] int signalDescriptor() const { return m_signals.get(); }

    // Stops the program and goes on, or takes another size; gives a signal that asks for the end.
    std::optional<int> readSignal();

private:
    struct State;
    void stop();
    void fit();

    sigset_t m_maskBefore{};
    FileDescriptor m_signals;
    std::unique_ptr<State> m_state;
};

}  // namespace vrx
