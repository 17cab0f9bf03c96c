// etc/vrx-agentd.conf: read here, and handed to the SNMP library word by word.
//
//     EngineConfiguration configuration(path, [](const std::string& fault) { ... });
//     configuration.read();
//     configuration.apply(PREMIB_CONFIG);
//     configuration.apply(NORMAL_CONFIG);
//
// Not by the library's own reader: its parsers end the process on some lines, it follows words into other files, waits
// for ever for a pipe, and takes words of its state (the count of starts) from here, too. A word gets to its parser
// only when library_directives.h, or the agent itself, knows it and finds nothing wrong with its arguments.
//
// Threads: agent thread only.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace vrx {

class EngineConfiguration {
public:
    // Called with "FILE:LINE: text", or "FILE: text".
    using OnFault = std::function<void(const std::string& fault)>;

    // `name` is the one under which the library knows the words.
    EngineConfiguration(std::string path, std::string name, OnFault onFault);

    // Reads the file anew. One that does not exist is empty; one that cannot be read is, too, with a fault.
    void read();

    // Hands over the words that the library wants at that time: PREMIB_CONFIG comes before NORMAL_CONFIG.
    void apply(int when);

private:
    struct Line {
        std::size_t number;
        std::string section;  // the library's name of a group of words
        std::string word;
        std::string arguments;
    };

    void readLine(std::size_t number, std::string text, std::string& section);
    [[nodiscard]] std::string applyLine(const Line& line, int when) const;
    void tell(std::size_t line, const std::string& fault) const;

    const std::string m_path;
    const std::string m_name;
    const OnFault m_onFault;
    std::vector<Line> m_lines;
};

}  // namespace vrx
