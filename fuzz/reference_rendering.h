// A second rendering of alarm texts, for comparing: written down step by step, as slow as that is, and without any code
// of alarm/. It keeps every line that it would log.
//
// Its bounds are the product's, which are decisions and not results of the rules: placeholders of a detail that are
// looked at, replacements of one text, and bytes by which they may make it grow.
#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace reference {

constexpr std::size_t MOST_REPLACEMENTS = 10000;
constexpr std::size_t MOST_GROWTH = 1048576;

struct Definition {
    unsigned long long id = 0;
    std::string name, suggestion, detail, location;
    std::optional<std::string> paramDesc;
};

// Thrown by render(): the alarm takes more work than the renderer may do.
struct TooMuchWork {};

// Outputs as the caller passed them in, until they are written.
struct Texts {
    std::string location, detail;
    unsigned int level = 0;
    std::string name, suggestion;
};

class Renderer {
public:
    // `mostWork`: bytes that all replacements together may move.
    explicit Renderer(std::size_t mostWork) : m_work(mostWork) {}

    // Of two definitions with one identifier the first counts.
    void define(const Definition& definition);
    // Of two members with one key the first counts.
    void enumerate(const std::string& type, const std::string& value, const std::string& description);

    int render(unsigned long long id, const std::string& parameters, Texts& texts);

    // Lines at warning and error level since the renderer was made.
    const std::vector<std::string>& log() const { return m_log; }

private:
    struct Placeholder {
        unsigned int index;
        std::string value;
    };

    void replaceCodes(unsigned long long id, const std::string& paramDesc, std::vector<std::string>& parameters);
    std::vector<Placeholder> placeholdersOf(const std::string& detail, const std::vector<std::string>& parameters);
    bool expand(const std::string& text, const std::vector<Placeholder>& placeholders, std::string& out);
    void say(const std::string& line) { m_log.push_back(line); }

    std::size_t m_work;  // left
    std::map<unsigned long long, Definition> m_definitions;
    std::map<std::string, std::string> m_descriptions;
    std::vector<std::string> m_log;
};

}  // namespace reference
