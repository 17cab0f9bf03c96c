#include "host/command_line/option_parser.h"

#include <sysexits.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdint>
#include <stdexcept>

namespace vrx {

namespace {

// CLI11 takes "[a,b]" for a list of values. Here each word is one value, brackets and all ("[::1]"): while CLI11 looks
// at a word that ends with a bracket, this ends it.
constexpr char END_OF_WORD = '\x1f';

std::string guarded(std::string word) {
    if (!word.empty() && word.back() == ']') word += END_OF_WORD;
    return word;
}

std::string unguarded(std::string& word) {
    if (!word.empty() && word.back() == END_OF_WORD) word.pop_back();
    return {};  // no fault
}

}  // namespace

const OptionParser::Option& OptionParser::Option::required() const {
    m_option->required();
    return *this;
}

const OptionParser::Option& OptionParser::Option::oneOf(const std::vector<std::string>& values) const {
    m_option->check(CLI::IsMember(values));
    return *this;
}

template <typename Number>
const OptionParser::Option& OptionParser::Option::range(Number least, Number most) const {
    m_option->check(CLI::Range(least, most));
    return *this;
}
template const OptionParser::Option& OptionParser::Option::range(int, int) const;
template const OptionParser::Option& OptionParser::Option::range(unsigned int, unsigned int) const;

const OptionParser::Option& OptionParser::Option::valueName(const std::string& name) const {
    m_option->type_name(name);
    return *this;
}

const OptionParser::Option& OptionParser::Option::needs(const Option& other) const {
    m_option->needs(other.m_option);
    return *this;
}

OptionParser::OptionParser(const std::string& description, const std::string& program)
    : m_own(std::make_unique<CLI::App>(description, program)), m_app(m_own.get()) {}

OptionParser::OptionParser(CLI::App* command) : m_app(command) {}

OptionParser::~OptionParser() = default;

template <typename T>
OptionParser::Option OptionParser::add(const std::string& name, T& value, const std::string& help) {
    return Option(m_app->add_option(name, value, help)->transform(CLI::Validator(unguarded, "")));
}
template OptionParser::Option OptionParser::add(const std::string&, std::string&, const std::string&);
template OptionParser::Option OptionParser::add(const std::string&, std::vector<std::string>&, const std::string&);
template OptionParser::Option OptionParser::add(const std::string&, std::uint32_t&, const std::string&);
template OptionParser::Option OptionParser::add(const std::string&, std::uint64_t&, const std::string&);
template OptionParser::Option OptionParser::add(const std::string&, std::optional<std::string>&, const std::string&);
template OptionParser::Option OptionParser::add(const std::string&, std::optional<std::uint32_t>&, const std::string&);
template OptionParser::Option OptionParser::add(const std::string&, std::optional<std::uint64_t>&, const std::string&);

void OptionParser::addFlag(const std::string& name, bool& value, const std::string& help) {
    m_app->add_flag(name, value, help);
}

void OptionParser::addVersion(const std::string& version) {
    m_app->set_version_flag("--version", version);
}

OptionParser& OptionParser::addCommand(const std::string& name, const std::string& help) {
    m_commands.emplace_back(new OptionParser(m_app->add_subcommand(name, help)));
    return *m_commands.back();
}

void OptionParser::setCommands(std::size_t least, std::size_t most) {
    m_app->require_subcommand(least, most);
}

bool OptionParser::given() const {
    return m_app->parsed();
}

bool OptionParser::programHas(const std::string& option) const {
    return m_app->get_parent()->get_option(option)->count() > 0;
}

void OptionParser::setFooter(const std::string& text) {
    m_app->footer(text);
}

void OptionParser::removeHelp() {
    m_app->set_help_flag();
}

void OptionParser::parseWords(std::vector<std::string> words) {
    std::transform(words.begin(), words.end(), words.begin(), guarded);
    std::reverse(words.begin(), words.end());  // CLI11 takes them from the back
    m_app->parse(words);
}

std::optional<int> OptionParser::parse(int argc, char** argv) {
    if (m_app->get_name().empty()) m_app->name(argv[0]);
    try {
        parseWords({argv + 1, argv + argc});
        return std::nullopt;
    } catch (const CLI::ParseError& error) {
        return m_app->exit(error) == 0 ? EX_OK : EX_USAGE;
    }
}

void OptionParser::parse(std::vector<std::string> words) {
    try {
        parseWords(std::move(words));
    } catch (const CLI::ParseError& error) {
        throw std::invalid_argument(error.what());
    }
}

}  // namespace vrx
