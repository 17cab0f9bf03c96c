#include "host/agent/engine/engine_configuration.h"

#include <strings.h>

#include <algorithm>
#include <optional>
#include <sstream>
#include <utility>

#include "host/agent/engine/library_directives.h"
#include "host/agent/engine/parser_faults.h"
#include "host/base/whole_file.h"
#include "host/snmp/net_snmp.h"

namespace vrx {

namespace {

constexpr std::size_t LARGEST_FILE = std::size_t{1} << 20U;
constexpr std::size_t LONGEST_LINE = 1000;
constexpr const char* BLANKS = " \t\r\v\f";

std::string trimmed(const std::string& text) {
    const std::size_t begin = text.find_first_not_of(BLANKS);
    if (begin == std::string::npos) return {};
    return text.substr(begin, text.find_last_not_of(BLANKS) + 1 - begin);
}

// Cuts `text` after its first word; gives the word.
std::string takeWord(std::string& text) {
    const std::size_t end = std::min(text.find_first_of(BLANKS), text.size());
    std::string word = text.substr(0, end);
    text = trimmed(text.substr(end));
    return word;
}

const config_line* handlerOf(const std::string& section, const std::string& word) {
    for (const config_line* handler = read_config_get_handlers(section.c_str()); handler != nullptr;
         handler = handler->next) {
        if (strcasecmp(handler->config_token, word.c_str()) == 0) return handler;
    }
    return nullptr;
}

// The agent's own words look after their arguments themselves.
bool isOwn(const std::string& word) {
    return strncasecmp(word.c_str(), "vrx", 3) == 0;
}

}  // namespace

EngineConfiguration::EngineConfiguration(std::string path, std::string name, OnFault onFault)
    : m_path(std::move(path)), m_name(std::move(name)), m_onFault(std::move(onFault)) {}

void EngineConfiguration::read() {
    m_lines.clear();
    std::optional<std::string> content;
    try {
        content = readWholeFile(m_path, LARGEST_FILE);
    } catch (const WholeFileError& error) {
        m_onFault(error.what());
    }
    std::istringstream in(content.value_or(""));
    std::string section = m_name;
    std::size_t number = 0;
    for (std::string text; std::getline(in, text);) readLine(++number, std::move(text), section);
}

void EngineConfiguration::readLine(std::size_t number, std::string text, std::string& section) {
    text = trimmed(text);
    if (text.empty() || text.front() == '#') return;
    const auto isControl = [](unsigned char c) { return (c < ' ' && c != '\t') || c == 0x7F; };
    if (text.size() > LONGEST_LINE) {
        tell(number, "the line has more than " + std::to_string(LONGEST_LINE) + " characters");
    } else if (std::any_of(text.begin(), text.end(), isControl)) {
        tell(number, "the line holds control characters");
    } else if (text.front() == '[') {
        const std::size_t end = text.find(']');
        const std::string name = end == std::string::npos ? "" : text.substr(1, end - 1);
        if (name != m_name && name != LIBRARY_SECTION) {
            tell(number, "there is no section " + text);
            return;
        }
        text = trimmed(text.substr(end + 1));
        if (text.empty()) {
            section = name;
            return;
        }
        std::string word = takeWord(text);
        m_lines.push_back({number, name, std::move(word), std::move(text)});
    } else {
        std::string word = takeWord(text);
        m_lines.push_back({number, section, std::move(word), std::move(text)});
    }
}

void EngineConfiguration::apply(int when) {
    for (const Line& line : m_lines) {
        const std::string fault = applyLine(line, when);
        if (!fault.empty()) tell(line.number, fault);
    }
}

// What is wrong with the line; "" also when it is not its time yet.
std::string EngineConfiguration::applyLine(const Line& line, int when) const {
    const config_line* const handler = handlerOf(line.section, line.word);
    const bool known = handler != nullptr && ((isOwn(line.word) && line.section == m_name) ||
                                              isLibraryDirective(line.section == LIBRARY_SECTION, line.word));
    if (!known) return when == NORMAL_CONFIG ? "Unknown token: " + line.word + "." : "";
    if (handler->config_time != when) return {};
    if (line.arguments.empty()) return "Blank line following " + line.word + " token.";
    if (!isOwn(line.word)) {
        std::string fault = libraryDirectiveFault(line.word, line.arguments);
        if (!fault.empty()) return line.word + ": " + fault;
    }
    std::string arguments = line.arguments;  // the parser writes into them
    return parserFault([&] { handler->parse_line(line.word.c_str(), arguments.data()); });
}

void EngineConfiguration::tell(std::size_t line, const std::string& fault) const {
    std::string oneLine = fault;  // as every fault of the check is
    std::replace(oneLine.begin(), oneLine.end(), '\n', ' ');
    m_onFault(m_path + ":" + std::to_string(line) + ": " + oneLine);
}

}  // namespace vrx
