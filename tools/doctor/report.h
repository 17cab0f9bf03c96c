// What vrxctl doctor has found: in the order of its checks, which look at causes before their consequences; in the end
// faults before warnings.
//
//     Report report;
//     report.begin("disk space");
//     report.fault("/var/lib/vrx", "The disk is full.", "Nothing can be kept.", "df -h /var/lib/vrx");
//     printReport(std::cout, report);
//     return exitCodeOf(report);
#pragma once

#include <cstddef>
#include <ostream>
#include <string>
#include <vector>

namespace vrx {

enum class Severity { Warning, Fault };

struct Finding {
    Severity severity = Severity::Fault;
    std::string check;    // name of the check; scripts may match it
    std::string subject;  // a file, a destination, a user: what is at fault
    std::string what;
    std::string why;     // why it matters
    std::string remedy;  // a command, or a line for each
};

// What could not be looked at.
struct Unchecked {
    std::string check;
    std::string subject;
    std::string reason;
};

class Report {
public:
    // What is added from now on is this check's.
    void begin(const std::string& check);

    void fault(const std::string& subject, const std::string& what, const std::string& why, const std::string& remedy);
    void warning(const std::string& subject, const std::string& what, const std::string& why,
                 const std::string& remedy);
    void notChecked(const std::string& subject, const std::string& reason);

    // Something was done that was asked for.
    void done(const std::string& what) { m_done.push_back(what); }

    void putFaultsFirst();

    // Texts say `shown` in the place of `path`.
    void show(const std::string& path, const std::string& shown);

    // Whether something was found about it, or about something of it: "FILE" has "FILE:7", too.
    bool names(const std::string& subject) const;

    const std::vector<Finding>& findings() const { return m_findings; }
    const std::vector<Unchecked>& unchecked() const { return m_unchecked; }
    const std::vector<std::string>& done() const { return m_done; }
    std::size_t checks() const { return m_checks; }
    std::size_t count(Severity severity) const;

private:
    std::size_t m_checks = 0;
    std::string m_check;
    std::vector<Finding> m_findings;
    std::vector<Unchecked> m_unchecked;
    std::vector<std::string> m_done;
};

// 0: nothing found; 1: warnings; 2: faults. What was not checked does not count.
int exitCodeOf(const Report& report);

// For a terminal of 80 columns; the last line says how many there are and where to begin. Commands are not broken.
void printReport(std::ostream& out, const Report& report);

void printReportAsJson(std::ostream& out, const Report& report);

}  // namespace vrx
