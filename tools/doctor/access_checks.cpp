// Who may ask the agent, with which keys, and what they see.
#include <fmt/format.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <set>
#include <string>
#include <system_error>

#include "host/engine_files/engine_file.h"
#include "tools/doctor/checks.h"
#include "tools/doctor/facts.h"
#include "tools/doctor/report.h"

namespace vrx {

namespace {

namespace fs = std::filesystem;

const std::vector<std::string> COMMUNITY_WORDS = {"rocommunity", "rwcommunity", "rocommunity6", "rwcommunity6"};

std::string placeOf(const Directive& directive) {
    return directivesPath() + ":" + std::to_string(directive.line);
}

std::string editAndReload(const Facts& facts) {
    return "vi " + directivesPath() + "\n" + facts.vrxctl("reload");
}

// "WholeFileError" texts have their file in front.
void tellOfFile(const std::string& file, const std::string& fault, const char* why, const std::string& remedy,
                Report& report) {
    if (report.names(file)) return;
    const std::string begin = file + ": ";
    report.fault(file, fault.compare(0, begin.size(), begin) == 0 ? fault.substr(begin.size()) : fault, why, remedy);
}

std::string putBack(const std::string& file) {
    const std::string copy = engine_file::lastGoodCopy(file);
    std::error_code error;
    return fs::exists(copy, error)
               ? fmt::format("systemctl stop vrx-agentd\ncp -p {} {}\nsystemctl start vrx-agentd", copy, file)
               : "ls -l " + file + "   # and a backup of it?";
}

// The name of "rwuser [-s MODEL] NAME ...".
std::string userOf(const Directive& directive) {
    const std::vector<std::string>& words = directive.arguments;
    const std::size_t at = !words.empty() && words[0] == "-s" ? 2 : 0;
    return words.size() > at ? words[at] : "";
}

}  // namespace

void checkEngine(const Facts& facts, Report& report) {
    if (!facts.mayLook) {
        report.notChecked("engine ID and keys", facts.usersFault);
        return;
    }
    if (!facts.engineIdFault.empty()) {
        tellOfFile(engineIdPath(), facts.engineIdFault,
                   "It is how SNMPv3 managers know the agent, which does not start.", putBack(engineIdPath()), report);
    }
    if (!facts.usersFault.empty()) {
        tellOfFile(keysPath(), facts.usersFault,
                   "It holds the keys of SNMPv3 users and the count of starts; the agent does not start.",
                   putBack(keysPath()), report);
        return;
    }
    if (!facts.engineId.empty() && !facts.boots) {
        report.fault(keysPath(), "The count of starts (snmpEngineBoots) is gone, and the engine ID is not.",
                     "The agent begins to count anew: SNMPv3 managers and receivers refuse its messages as old.",
                     putBack(keysPath()));
    }
    constexpr std::uint64_t LAST_BOOTS = 2147483647;  // RFC 3414: the engine is latched there
    constexpr std::uint64_t NEARLY = LAST_BOOTS - 1000;
    if (facts.boots.value_or(0) >= NEARLY) {
        report.fault(keysPath(), fmt::format("snmpEngineBoots is {}; {} is the last.", *facts.boots, LAST_BOOTS),
                     "At the last one SNMPv3 managers refuse every message of this engine (RFC 3414).",
                     "systemctl stop vrx-agentd\nrm -r " + fs::path(engineIdPath()).parent_path().string() + " " +
                         fs::path(keysPath()).parent_path().string() + "   # another engine ID: users are made anew");
    }
    if (facts.agentAnswers() && !facts.engineId.empty() && !facts.agent.engineId.empty() &&
        facts.agent.engineId != facts.engineId && facts.directivesOf({"exactengineid"}).empty()) {
        report.fault(engineIdPath(), "The running agent has another engine ID: " + facts.agent.engineId + ".",
                     "Its state was exchanged under it; at its next start no SNMPv3 manager knows it.",
                     "systemctl restart vrx-agentd\n" + facts.vrxctl("status"));
    }
}

void checkUsers(const Facts& facts, Report& report) {
    if (!facts.directives) {
        if (!report.names(directivesPath())) report.notChecked("users", facts.directivesFault);
        return;
    }
    const std::vector<Directive> users = facts.directivesOf({"rwuser", "rouser"});
    const std::vector<Directive> classic = facts.directivesOf({"access", "authuser", "authaccess", "group"});
    if (users.empty() && classic.empty() && facts.directivesOf(COMMUNITY_WORDS).empty()) {
        report.warning(directivesPath(), "Nobody may ask this agent.", "Every request stays without an answer.",
                       facts.vrxctl("user add NAME"));
    }
    if (!facts.users) {
        if (!report.names(keysPath())) report.notChecked("keys of users", facts.usersFault);
        return;
    }
    std::set<std::string> named;
    for (const Directive& line : users) {
        const std::string name = userOf(line);
        named.insert(name);
        if (name.empty() || facts.hasKeys(name, true)) continue;
        const char* const why = "Requests of this user are refused as of an unknown user.";
        if (facts.hasKeys(name, false)) {
            report.fault(placeOf(line), "The keys of user " + name + " are for another engine ID.", why,
                         facts.vrxctl("user add " + name));
        } else {
            report.fault(placeOf(line), "User " + name + " has no keys: nobody created it.", why,
                         facts.vrxctl("user add " + name));
        }
    }
    std::set<std::string> senders;
    for (const auto& [number, row] : facts.destinations.value_or(TrapDestinationRows())) senders.insert(row.user);
    for (const KeptUser& user : *facts.users) {
        if (!classic.empty() || named.count(user.name) != 0 || senders.count(user.name) != 0) continue;
        if (!user.engineId.empty() && user.engineId != facts.engineId) continue;  // of an inform receiver
        named.insert(user.name);
        report.warning("user " + user.name, "It has keys, but neither a rwuser nor a rouser line lets it in.",
                       "Its requests get authorizationError.", facts.vrxctl("user add " + user.name));
    }
}

void checkCommunities(const Facts& facts, Report& report) {
    static const std::set<std::string> WELL_KNOWN = {"public", "private", "secret",   "cisco",
                                                     "admin",  "snmp",    "community"};
    constexpr std::size_t SOURCE = 1;
    for (const Directive& line : facts.directivesOf(COMMUNITY_WORDS)) {
        const std::vector<std::string>& words = line.arguments;
        const bool anywhere = words.size() <= SOURCE || words[SOURCE] == "default" || words[SOURCE].front() == '-';
        if (line.word.compare(0, 2, "rw") == 0) {
            report.warning(placeOf(line), "A community may write.",
                           "It travels in clear text: whoever reads it can delete trap destinations and clear alarms.",
                           facts.vrxctl("user add NAME") + "   # and take this line away");
        } else if (anywhere && !words.empty() && WELL_KNOWN.count(words[0]) != 0) {
            report.warning(placeOf(line), "Everybody may ask with the well-known community " + words[0] + ".",
                           "Scanners try it first: alarms and topology can be read from anywhere.",
                           editAndReload(facts));
        }
    }
}

void checkViews(const Facts& facts, Report& report) {
    std::set<std::string> views = {"_all_", "_none_", "all", "none"};
    for (const Directive& line : facts.directivesOf({"view"})) {
        if (!line.arguments.empty()) views.insert(line.arguments[0]);
    }
    std::vector<std::string> words = COMMUNITY_WORDS;
    words.insert(words.end(), {"rwuser", "rouser"});
    for (const Directive& line : facts.directivesOf(words)) {
        const auto option = std::find(line.arguments.begin(), line.arguments.end(), "-V");
        if (option == line.arguments.end() || option + 1 == line.arguments.end() || views.count(*(option + 1)) != 0)
            continue;
        report.fault(placeOf(line), "No line defines the view " + *(option + 1) + ".",
                     "Whoever this line lets in sees nothing.", editAndReload(facts));
    }
}

void checkSecrets(const Facts& facts, Report& report) {
    std::error_code error;
    const fs::path path = fs::canonical(directivesPath(), error);
    if (error) return;
    fs::path place;
    bool open = true;
    for (const fs::path& part : path) {
        place /= part;
        struct stat status {};
        const bool isFolder = place != path;
        open = open && ::stat(place.c_str(), &status) == 0 && (status.st_mode & (isFolder ? S_IXOTH : S_IROTH)) != 0;
    }
    std::vector<std::string> secrets = COMMUNITY_WORDS;
    secrets.insert(secrets.end(), {"createuser", "trapcommunity", "informsink", "trapsess"});
    if (open && !facts.directivesOf(secrets).empty()) {
        report.warning(path, "Every user of this machine may read it.", "It holds communities or passphrases.",
                       "chgrp " + facts.service.name + " " + path.string() + " && chmod 0640 " + path.string());
    }
}

}  // namespace vrx
