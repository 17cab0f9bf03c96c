// A fault that lasts is two log lines: one when it begins, one when it ends, none for the attempts between them.
//
//     FaultLine m_writing;
//     m_writing.begins([&] { log(LogLevel::Error, path + " cannot be written: " + reason); });
//     m_writing.ends([&] { log(LogLevel::Info, path + " can be written again"); });
//
// A line that throws, for lack of memory, is due again the next time.
//
// Threads: any.
#pragma once

#include <atomic>

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
        } catch (...) {
            m_lasts = !lasts;
            throw;
        }
    }

    std::atomic<bool> m_lasts{false};
};

}  // namespace vrx
