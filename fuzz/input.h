// Reads a fuzzer's input piece by piece; after its end come zeros and empty pieces.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

class Input {
public:
    Input(const std::uint8_t* data, std::size_t size) : m_next(data), m_end(data + size) {}

    bool atEnd() const { return m_next == m_end; }

    unsigned int byte() { return atEnd() ? 0U : *m_next++; }
    unsigned int word() {
        const unsigned int low = byte();
        return low | byte() << 8;
    }

    // The next `size` bytes, or the fewer that are left.
    std::string bytes(std::size_t size) {
        const auto left = static_cast<std::size_t>(m_end - m_next);
        const std::size_t taken = size < left ? size : left;
        std::string piece(reinterpret_cast<const char*>(m_next), taken);
        m_next += taken;
        return piece;
    }
    std::string rest() { return bytes(static_cast<std::size_t>(m_end - m_next)); }

private:
    const std::uint8_t* m_next;
    const std::uint8_t* m_end;
};

// The lines of a text, without their ends. A last line without an end counts too.
inline std::vector<std::string> linesOf(const std::uint8_t* data, std::size_t size) {
    std::vector<std::string> lines;
    std::string line;
    for (std::size_t i = 0; i < size; ++i) {
        if (data[i] == '\n') {
            lines.push_back(line);
            line.clear();
        } else {
            line += static_cast<char>(data[i]);
        }
    }
    if (!line.empty()) lines.push_back(line);
    return lines;
}
