// A fault that lasts is two log lines: one when it begins, one when it ends, none for the attempts between them.
//
//     FaultLine m_writing;
//     m_writing.begins([&] { logLine<lines::ENGINE_STATE_NOT_WRITTEN>(path, reason); });
//     m_writing.ends([&] { logLine<lines::ENGINE_STATE_WRITTEN>(path); });
//
// A line that finds no memory is due again the next time: the caller goes on without it.
//
// Threads: any.
#pragma once

#include <atomic>
#include <new>

namespace vrx {

class FaultLine {
public:
    template <typename Line>
    void begins(const Line& line) {
        change(true, line);
    }
    template <typename Line>
    void ends(const Line& line) {
        change(false, line);
    }

    // Ends without a line: another one tells.
    void ends() { m_lasts = false; }

    bool lasts() const { return m_lasts; }

private:
    template <typename Line>
    void change(bool lasts, const Line& line) {
        if (m_lasts.exchange(lasts) == lasts) return;
        try {
            line();
        } catch (const std::bad_alloc&) {
            m_lasts = !lasts;
        }
    }

    std::atomic<bool> m_lasts{false};
};

}  // namespace vrx
