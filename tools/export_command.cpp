#include "tools/export_command.h"

#include <sysexits.h>

#include <filesystem>
#include <iostream>
#include <stdexcept>
#include <system_error>
#include <vector>

#include "host/base/whole_file.h"
#include "host/command_line/option_parser.h"
#include "host/definitions/definition_lint.h"
#include "tools/definition_files.h"
#include "tools/export/catalogue.h"
#include "tools/export/formats.h"

namespace vrx {

namespace {

// Faults, and what a format that names alarms by their notifications cannot express.
std::vector<LintFinding> refusals(const std::vector<LintFinding>& findings, const ExportFormat& format) {
    std::vector<LintFinding> refused;
    for (const LintFinding& finding : findings) {
        const bool hasNoNotification = finding.rule == "oid-form" || finding.rule == "repeated-oid";
        if (finding.severity == LintSeverity::Error || (format.needsNotifications && hasNoNotification))
            refused.push_back(finding);
    }
    return refused;
}

bool isFolder(const std::string& path) {
    std::error_code unreadable;  // is told by whoever writes
    return std::filesystem::is_directory(path, unreadable) || (!path.empty() && path.back() == '/');
}

void writeFolder(const std::string& path, const std::vector<ExportFile>& files) {
    const std::filesystem::path folder(path);
    if (!std::filesystem::is_directory(folder)) std::filesystem::create_directory(folder.parent_path());
    std::vector<WholeFile> written;
    written.reserve(files.size());
    for (const ExportFile& file : files) written.push_back({(folder / file.name).string(), file.text});
    replaceWholeFiles(written, false);
}

void writeFile(const std::string& path, const std::string& text) {
    if (std::filesystem::exists(path) && !std::filesystem::is_regular_file(path))
        throw std::system_error(std::make_error_code(std::errc::invalid_argument), path + " is no regular file");
    replaceWholeFiles({{path, text}}, false);
}

void writeStandardOutput(const std::string& text) {
    std::cout << text << std::flush;
    if (!std::cout) throw std::system_error(std::make_error_code(std::errc::io_error), "standard output");
}

}  // namespace

void ExportCommand::define(OptionParser& command) {
    std::vector<std::string> names;
    std::string help = "Formats:";
    for (const ExportFormat& one : exportFormats()) {
        names.emplace_back(one.name);
        help += "\n  " + names.back() + std::string(12 - names.back().size(), ' ') + one.help;
    }
    command.add("FORMAT", format, "what to write").required().oneOf(names);
    command.add("--definitions", definitions, "alarm definition file (default: the configured one)");
    command.add("--enumerations", enumerations, "parameter enumeration file (default: the configured one)");
    command.add("--output", output, "file or folder to write to (default: standard output)");
    command.setFooter(help);
}

int ExportCommand::run() {
    const ExportFormat& wanted = *exportFormat(format);
    if (wanted.needsFolder && !isFolder(output)) {
        std::cerr << "vrxctl: " << format << " is several files: --output must name a folder\n";
        return EX_USAGE;
    }
    if (definitions.empty() || enumerations.empty()) {
        const DefinitionFiles configured = configuredDefinitionFiles();
        if (definitions.empty()) definitions = configured.definitions;
        if (enumerations.empty()) enumerations = configured.enumerations;
    }
    if (definitions.empty())
        throw std::runtime_error("no alarm definition file is configured; name one by --definitions");

    const std::vector<LintFinding> refused = refusals(lintDefinitions(definitions, enumerations), wanted);
    if (!refused.empty()) {
        printFindings(std::cerr, refused);
        return EX_DATAERR;
    }
    const std::vector<ExportFile> files = wanted.write(readCatalogue(definitions, enumerations));
    try {
        if (output.empty())
            writeStandardOutput(files.front().text);
        else if (isFolder(output))
            writeFolder(output, files);
        else
            writeFile(output, files.front().text);
    } catch (const std::system_error& error) {
        std::cerr << "vrxctl: " << error.what() << "\n";
        return EX_CANTCREAT;
    }
    return EX_OK;
}

}  // namespace vrx
