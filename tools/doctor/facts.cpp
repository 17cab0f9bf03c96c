#include "tools/doctor/facts.h"

#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <exception>
#include <set>
#include <sstream>

#include "host/base/product_root.h"
#include "host/base/whole_file.h"
#include "host/engine_files/engine_file.h"

namespace vrx {

namespace {

constexpr std::size_t LARGEST_CONFIGURATION = std::size_t{1} << 20U;

std::string small(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
    return text;
}

// Words with blanks between them; those in quotes may hold blanks.
std::vector<std::string> wordsOf(const std::string& line) {
    std::vector<std::string> words;
    char quote = '\0';
    bool inWord = false;
    for (const char c : line) {
        if (quote != '\0' ? c == quote : c == '"' || c == '\'') {
            quote = quote != '\0' ? '\0' : c;
            if (!inWord) words.emplace_back();
            inWord = true;
        } else if (quote == '\0' && std::isspace(static_cast<unsigned char>(c)) != 0) {
            inWord = false;
        } else {
            if (!inWord) words.emplace_back();
            inWord = true;
            words.back() += c;
        }
    }
    return words;
}

std::string hexDigits(const std::string& text) {
    return text.compare(0, 2, "0x") == 0 || text.compare(0, 2, "0X") == 0 ? small(text.substr(2)) : "";
}

// The library writes names that are no plain words in hexadecimal.
std::string nameOf(const std::string& word) {
    const std::string digits = hexDigits(word);
    std::string name;
    for (std::size_t at = 0; at + 1 < digits.size(); at += 2) {
        unsigned int octet = 0;
        std::from_chars(&digits[at], &digits[at] + 2, octet, 16);
        name += static_cast<char>(octet);
    }
    return digits.empty() ? word : name;
}

ServiceUser serviceUser() {
    struct stat status {};
    if (::stat(productPath("state").c_str(), &status) != 0 && ::stat(productPath("").c_str(), &status) != 0) return {};
    ServiceUser user{status.st_uid, std::to_string(status.st_uid), {status.st_gid}};
    if (const passwd* const entry = ::getpwuid(status.st_uid)) {
        user.name = entry->pw_name;
        int count = 64;
        user.groups.resize(static_cast<std::size_t>(count));
        if (::getgrouplist(entry->pw_name, entry->pw_gid, user.groups.data(), &count) < 0) count = 1;
        user.groups.resize(static_cast<std::size_t>(std::max(count, 1)));
        user.groups.push_back(status.st_gid);
    }
    return user;
}

// Nothing for a file that is not there; what is wrong with any other one goes into `fault`.
template <typename Read>
std::optional<std::string> tryTo(Read read, std::string& fault) {
    try {
        return read();
    } catch (const std::exception& error) {
        fault = error.what();
        return std::nullopt;
    }
}

void gatherEngine(Facts& facts) {
    const auto id = tryTo([] { return engine_file::readEngineId(engineIdPath()); }, facts.engineIdFault);
    for (const Directive& line : parseDirectives(id.value_or(""))) {
        if (line.word == "exactengineid" && !line.arguments.empty()) facts.engineId = hexDigits(line.arguments[0]);
    }
    const auto state = tryTo([] { return engine_file::readState(keysPath()); }, facts.usersFault);
    for (const Directive& line : facts.directivesOf({"exactengineid"})) {
        if (!line.arguments.empty()) facts.engineId = hexDigits(line.arguments[0]);
    }
    if (!facts.usersFault.empty()) return;
    const std::vector<Directive> kept = parseDirectives(state.value_or(""));
    facts.users = usersOf(kept);
    const std::vector<KeptUser> configured = usersOf(facts.directivesOf({"createuser"}));
    facts.users->insert(facts.users->end(), configured.begin(), configured.end());
    for (const Directive& line : kept) {
        if (line.word != "engineboots" || line.arguments.empty()) continue;
        std::uint64_t boots = 0;
        const std::string& text = line.arguments[0];
        std::from_chars(text.data(), text.data() + text.size(), boots);
        facts.boots = boots;
    }
}

void gatherPaths(Facts& facts) {
    constexpr std::chrono::seconds PATIENCE{5};
    std::set<std::string> addresses;
    for (const auto& [number, row] : facts.destinations.value_or(TrapDestinationRows())) addresses.insert(row.address);
    for (const Directive& line : facts.directivesOf({"informsink", "trapsess"})) addresses.insert(receiverOf(line));
    addresses.erase("");
    facts.paths = lookUpPaths(addresses, PATIENCE);
}

void gatherDestinations(Facts& facts) {
    const std::string path = productPath("state/trap_destinations.db");
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0) {
        if (errno == ENOENT) facts.destinations.emplace();
        facts.destinationsFault = path + ": " + std::strerror(errno);
        return;
    }
    if (!S_ISREG(status.st_mode)) {  // SQLite would wait for a pipe's writer
        facts.destinationsFault = path + ": not a regular file";
        return;
    }
    try {
        facts.destinations = readTrapDestinationFile(path);
    } catch (const std::exception& error) {
        facts.destinationsFault = error.what();
    }
}

}  // namespace

std::string directivesPath() {
    return productPath("etc/vrx-agentd.conf");
}

std::string keysPath() {
    return productPath("state/") + engine_file::STATE_FOLDER + "/" + engine_file::STATE_NAME;
}

std::string engineIdPath() {
    return productPath("state/engine/") + engine_file::STATE_NAME;
}

std::vector<Directive> parseDirectives(const std::string& content) {
    std::vector<Directive> directives;
    std::istringstream lines(content);
    std::size_t number = 0;
    for (std::string line; std::getline(lines, line);) {
        ++number;
        std::vector<std::string> words = wordsOf(line);
        if (!words.empty() && words.front().front() == '[') words.erase(words.begin());  // a section, for what follows
        if (words.empty() || words.front().empty() || words.front().front() == '#') continue;
        directives.push_back({number, small(words.front()), {words.begin() + 1, words.end()}});
    }
    return directives;
}

std::vector<KeptUser> usersOf(const std::vector<Directive>& directives) {
    constexpr std::size_t ENGINE = 2;  // of "usmUser STATUS STORAGE ENGINE NAME ..."
    constexpr std::size_t NAME = 3;
    std::vector<KeptUser> users;
    for (const Directive& line : directives) {
        const std::vector<std::string>& words = line.arguments;
        if (line.word == "usmuser" && words.size() > NAME) {
            users.push_back({nameOf(words[NAME]), hexDigits(words[ENGINE])});
        } else if (line.word == "createuser" && !words.empty()) {
            const bool ofEngine = words[0] == "-e" && words.size() > 2;
            users.push_back({ofEngine ? words[2] : words[0], ofEngine ? hexDigits(words[1]) : ""});
        }
    }
    return users;
}

std::string receiverOf(const Directive& line) {
    const bool isSink = line.word == "informsink";
    if ((!isSink && line.word != "trapsess") || line.arguments.empty()) return "";
    std::string host = isSink ? line.arguments.front() : line.arguments.back();
    for (const char* transport : {"udp6:", "udp:"}) {
        const std::string prefix = transport;
        if (host.compare(0, prefix.size(), prefix) == 0) host.erase(0, prefix.size());
    }
    if (!host.empty() && host.front() == '[') return host.substr(1, host.find(']') - 1);
    const std::size_t colon = host.find(':');
    return colon != std::string::npos && colon == host.rfind(':') ? host.substr(0, colon) : host;
}

std::vector<Directive> Facts::directivesOf(const std::vector<std::string>& words) const {
    std::vector<Directive> found;
    for (const Directive& directive : directives.value_or(std::vector<Directive>())) {
        if (std::find(words.begin(), words.end(), directive.word) != words.end()) found.push_back(directive);
    }
    return found;
}

bool Facts::hasKeys(const std::string& user, bool ofThisEngine) const {
    const std::vector<KeptUser> kept = users.value_or(std::vector<KeptUser>());
    return std::any_of(kept.begin(), kept.end(), [&](const KeptUser& one) {
        return one.name == user && (!ofThisEngine || one.engineId.empty() || one.engineId == engineId);
    });
}

std::string Facts::vrxctl(const std::string& arguments) const {
    return "vrxctl " + rootOption + arguments;
}

Facts gatherFacts(const std::string& rootOption) {
    Facts facts;
    facts.rootOption = rootOption;
    facts.service = serviceUser();
    facts.mayLook = ::geteuid() == 0 || ::geteuid() == facts.service.id;

    const auto content =
        tryTo([] { return readWholeFile(directivesPath(), LARGEST_CONFIGURATION); }, facts.directivesFault);
    if (facts.directivesFault.empty()) facts.directives = parseDirectives(content.value_or(""));
    if (!facts.mayLook) {
        const std::string reason = "only root and " + facts.service.name + " may look";
        facts.engineIdFault = facts.usersFault = facts.destinationsFault = reason;
        facts.agent.state = AgentFacts::State::OutOfReach;
        facts.agent.fault = reason;
    } else {
        gatherEngine(facts);
        gatherDestinations(facts);
        facts.agent = gatherAgentFacts();
    }
    gatherPaths(facts);
    return facts;
}

}  // namespace vrx
