// etc/vrx-agentd.conf: read here, and passed to the SNMP library one directive at a time.
//
//     EngineConfiguration configuration(path, [](const std::string& fault) { ... });
//     configuration.read();
//     configuration.apply(PREMIB_CONFIG);
//     configuration.apply(NORMAL_CONFIG);
//
// The library's own reader is not used: its parsers exit the process on some lines, it follows includes, blocks on a
// pipe, and accepts directives of its state (engineBoots) here, too. A directive reaches its parser only
// when library_directives.h, or the agent itself, knows it and finds nothing wrong with its arguments.
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

    // `name` is the application type under which the directives are registered.
    EngineConfiguration(std::string path, std::string name, OnFault onFault);

    // Reads the file anew. One that does not exist is empty; one that cannot be read is, too, with a fault.
    void read();

    // Passes on the directives that the library reads in that phase: PREMIB_CONFIG comes before NORMAL_CONFIG.
    void apply(int when);

private:
    struct Line {
        std::size_t number;
        std::string section;  // the application type that the line is for
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
