#include "tools/doctor/report.h"

#include <fmt/format.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <sstream>

#include "tools/terminal_text.h"

namespace vrx {

namespace {

const char* textOf(Severity severity) {
    return severity == Severity::Fault ? "fault" : "warning";
}

constexpr std::size_t INDENT = 8;

// The words of `text` after `title`, in lines of 80 columns that are indented alike.
std::string wrapped(const std::string& title, const std::string& text, std::size_t indent = INDENT) {
    constexpr std::size_t COLUMNS = 80;
    std::string lines;
    std::string line = fmt::format("{:<{}}", title, indent);
    std::istringstream words(terminalText(text));
    bool begun = false;
    for (std::string word; words >> word;) {
        if (begun && line.size() + 1 + word.size() > COLUMNS) {
            lines += line + "\n";
            line.assign(indent, ' ');
            begun = false;
        }
        line += (begun ? " " : "") + word;
        begun = true;
    }
    return lines + line + "\n";
}

// As they are: a command that is cut in two cannot be pasted.
std::string commands(const std::string& title, const std::string& text) {
    std::string lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        lines += fmt::format("{:<{}}{}\n", lines.empty() ? title : "", INDENT, terminalText(line));
    }
    return lines;
}

std::string counted(std::size_t number, const char* one, const char* many) {
    return fmt::format("{} {}", number, number == 1 ? one : many);
}

}  // namespace

void Report::begin(const std::string& check) {
    m_check = check;
    ++m_checks;
}

void Report::fault(const std::string& subject, const std::string& what, const std::string& why,
                   const std::string& remedy) {
    m_findings.push_back({Severity::Fault, m_check, subject, what, why, remedy});
}

void Report::warning(const std::string& subject, const std::string& what, const std::string& why,
                     const std::string& remedy) {
    m_findings.push_back({Severity::Warning, m_check, subject, what, why, remedy});
}

void Report::notChecked(const std::string& subject, const std::string& reason) {
    m_unchecked.push_back({m_check, subject, reason});
}

void Report::putFaultsFirst() {
    std::stable_partition(m_findings.begin(), m_findings.end(),
                          [](const Finding& finding) { return finding.severity == Severity::Fault; });
}

void Report::show(const std::string& path, const std::string& shown) {
    const auto replace = [&](std::string& text) {
        for (std::size_t at = text.find(path); at != std::string::npos; at = text.find(path, at + shown.size()))
            text.replace(at, path.size(), shown);
    };
    for (Finding& finding : m_findings) {
        for (std::string* text : {&finding.subject, &finding.what, &finding.why, &finding.remedy}) replace(*text);
    }
    for (Unchecked& unchecked : m_unchecked) {
        replace(unchecked.subject);
        replace(unchecked.reason);
    }
}

bool Report::names(const std::string& subject) const {
    return std::any_of(m_findings.begin(), m_findings.end(), [&](const Finding& finding) {
        const bool begins = finding.subject.compare(0, subject.size(), subject) == 0;
        return begins && (finding.subject.size() == subject.size() || finding.subject[subject.size()] == ':' ||
                          finding.subject[subject.size()] == ',');
    });
}

std::size_t Report::count(Severity severity) const {
    return static_cast<std::size_t>(std::count_if(
        m_findings.begin(), m_findings.end(), [&](const Finding& finding) { return finding.severity == severity; }));
}

int exitCodeOf(const Report& report) {
    if (report.count(Severity::Fault) > 0) return 2;
    return report.findings().empty() ? 0 : 1;
}

void printReport(std::ostream& out, const Report& report) {
    for (const Finding& finding : report.findings()) {
        out << (finding.severity == Severity::Fault ? "FAULT   " : "WARNING ") << terminalText(finding.subject) << "\n";
        out << wrapped("", finding.what);
        out << wrapped("  why", finding.why);
        out << commands("  mend", finding.remedy);
        out << "\n";
    }
    for (const std::string& what : report.done()) out << wrapped("done:", what) << "\n";
    if (!report.unchecked().empty()) {
        constexpr std::size_t LIST_INDENT = 4;
        out << "Not checked:\n";
        for (const Unchecked& unchecked : report.unchecked())
            out << wrapped("  -", unchecked.subject + ": " + unchecked.reason, LIST_INDENT);
        out << "\n";
    }
    const std::string checks = counted(report.checks(), "check", "checks");
    if (report.findings().empty()) {
        out << "no findings in " << checks;
        if (!report.unchecked().empty()) out << ", not all of which could be made in full";
        out << "\n";
        return;
    }
    out << counted(report.count(Severity::Fault), "fault", "faults") << ", "
        << counted(report.count(Severity::Warning), "warning", "warnings") << " in " << checks << "; begin with "
        << terminalText(report.findings().front().subject) << "\n";
}

void printReportAsJson(std::ostream& out, const Report& report) {
    using Json = nlohmann::ordered_json;
    Json findings = Json::array();
    for (const Finding& finding : report.findings()) {
        findings.push_back({{"severity", textOf(finding.severity)},
                            {"check", finding.check},
                            {"subject", finding.subject},
                            {"what", finding.what},
                            {"why", finding.why},
                            {"remedy", finding.remedy}});
    }
    Json unchecked = Json::array();
    for (const Unchecked& one : report.unchecked()) {
        unchecked.push_back({{"check", one.check}, {"subject", one.subject}, {"reason", one.reason}});
    }
    const Json whole = {{"faults", report.count(Severity::Fault)},
                        {"warnings", report.count(Severity::Warning)},
                        {"checks", report.checks()},
                        {"findings", findings},
                        {"not_checked", unchecked},
                        {"done", report.done()}};
    out << whole.dump(2, ' ', true, Json::error_handler_t::replace) << "\n";
}

}  // namespace vrx
