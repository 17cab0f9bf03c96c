// What a program, one of its commands or a directive takes: options and positional arguments.
//
// CLI11 is a library of headers that costs a source of ours ten seconds to compile: option_parser.cpp is the one that
// includes it.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace vrx {

class OptionParser {
public:
    // What is asked of one option, as often as needed: parser.add(...).required().oneOf(...).
    class Option {
    public:
        explicit Option(CLI::Option* option) : m_option(option) {}
        const Option& required() const;
        const Option& oneOf(const std::vector<std::string>& values) const;
        template <typename Number>  // int or unsigned int
        const Option& range(Number least, Number most) const;
        const Option& valueName(const std::string& name) const;  // in the help text
        const Option& needs(const Option& other) const;

    private:
        CLI::Option* m_option;
    };

    explicit OptionParser(const std::string& description = "", const std::string& program = "");
    OptionParser(const OptionParser&) = delete;
    OptionParser& operator=(const OptionParser&) = delete;
    ~OptionParser();

    // "--name" or "-n" is an option, "NAME" a positional argument. Parsing writes to `value`; a vector takes several.
    // The types are those that option_parser.cpp lists.
    template <typename T>
    Option add(const std::string& name, T& value, const std::string& help = "");
    void addFlag(const std::string& name, bool& value, const std::string& help);
    void addVersion(const std::string& version);

    // A command: the word that it begins with, then options of its own. Lives as long as this.
    OptionParser& addCommand(const std::string& name, const std::string& help);
    void setCommands(std::size_t least, std::size_t most);  // how many of them a command line has
    [[nodiscard]] bool given() const;                       // whether this command was

    [[nodiscard]] bool programHas(const std::string& option) const;  // whether it was given before this command

    void setFooter(const std::string& text);
    void removeHelp();

    // For programs: gives the exit code where that ends them, after --help and after a fault, which are printed.
    [[nodiscard]] std::optional<int> parse(int argc, char** argv);

    // For directives. Throws std::invalid_argument.
    void parse(std::vector<std::string> words);

private:
    explicit OptionParser(CLI::App* command);
    void parseWords(std::vector<std::string> words);

    std::unique_ptr<CLI::App> m_own;  // none: the parser that it is a command of has it
    CLI::App* m_app;
    std::vector<std::unique_ptr<OptionParser>> m_commands;
};

}  // namespace vrx
