#include "tools/user_commands.h"

#include <fmt/format.h>
#include <sys/stat.h>
#include <sysexits.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <nlohmann/json.hpp>
#include <random>
#include <sstream>
#include <system_error>
#include <vector>

#include "host/base/product_root.h"
#include "host/base/whole_file.h"
#include "host/command_line/option_parser.h"
#include "host/engine_files/engine_file.h"
#include "tools/agent_call.h"
#include "tools/agent_commands.h"

namespace vrx {

namespace {

namespace fs = std::filesystem;

constexpr const char* CONFIGURATION = "etc/vrx-agentd.conf";
constexpr std::size_t LARGEST_CONFIGURATION = std::size_t{1} << 20U;

// 160 bits of chance as letters and digits that are not mistaken for one another.
std::string newPassphrase() {
    constexpr std::string_view LETTERS = "abcdefghijkmnpqrstuvwxyz23456789";
    constexpr int LENGTH = 32;
    std::random_device random;
    std::string passphrase;
    for (int i = 0; i < LENGTH; ++i) passphrase += LETTERS[random() % LETTERS.size()];
    return passphrase;
}

[[noreturn]] void fail(const fs::path& file) {
    throw std::system_error(errno, std::generic_category(), file.string());
}

// Whether a line lets this user in: "rwuser NAME ...".
bool letsIn(const std::string& line, const std::string& name) {
    std::istringstream words(line);
    std::string word;
    std::string user;
    words >> word >> user;
    return (word == "rwuser" || word == "rouser") && user == name;
}

// The lines of the configuration, but for those that let this user in.
std::string configurationWithout(const std::string& name, const std::string& content) {
    std::string kept;
    std::istringstream lines(content);
    for (std::string line; std::getline(lines, line);) {
        if (!letsIn(line, name)) kept += line + "\n";
    }
    return kept;
}

// While it lives root makes and writes files as the folder's owner: the agent, which runs as that user, can read them,
// and nothing that stands in its folder leads root astray.
class AsOwnerOf {
public:
    explicit AsOwnerOf(const fs::path& folder) : m_group(::getegid()) {
        struct stat status {};
        if (::geteuid() != 0 || ::stat(folder.c_str(), &status) != 0 || status.st_uid == 0) return;
        if (::setegid(status.st_gid) != 0) fail(folder);
        if (::seteuid(status.st_uid) != 0) {
            const int error = errno;
            [[maybe_unused]] const int back = ::setegid(m_group);
            errno = error;
            fail(folder);
        }
        m_changed = true;
    }
    ~AsOwnerOf() {
        if (m_changed && (::seteuid(0) != 0 || ::setegid(m_group) != 0)) std::abort();  // another user than meant
    }
    AsOwnerOf(const AsOwnerOf&) = delete;
    AsOwnerOf& operator=(const AsOwnerOf&) = delete;

private:
    const gid_t m_group;
    bool m_changed = false;
};

// For an agent that does not run: it makes the keys when it starts, and the passphrases are gone then.
void leaveForStart(const fs::path& folder, const std::string& line) {
    const std::string file = folder / engine_file::STATE_NAME;
    const std::string before = engine_file::readState(file).value_or("");
    if (!before.empty()) replaceWholeFile(engine_file::lastGoodCopy(file), before);
    replaceWholeFile(file, before + line + "\n");
}

void checkName(const std::string& name) {
    constexpr std::size_t MAX_NAME = 32;
    const bool plain = name.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789._-") ==
                       std::string::npos;
    if (name.empty() || name.size() > MAX_NAME || !plain) {
        throw std::runtime_error("a user's name has 1 to 32 letters, digits and \"._-\"");
    }
}

// Throws WholeFileError for one that is there and cannot be read: it would be replaced by one line.
std::string readConfiguration() {
    return readWholeFile(productPath(CONFIGURATION), LARGEST_CONFIGURATION).value_or("");
}

// The configuration that was there stays beside it.
void replaceConfiguration(const std::string& before, const std::string& content) {
    const std::string file = productPath(CONFIGURATION);
    if (!before.empty()) replaceWholeFile(engine_file::lastGoodCopy(file), before);
    replaceWholeFile(file, content);
}

void reload() {
    std::ostringstream faults;
    if (!reloadAgent(faults)) throw AgentCallError("the agent refused its configuration:\n" + faults.str());
}

// A running agent has the user's keys when this returns nothing; else what the agent's next start waits for. An agent
// whose socket is gone, or not there yet, holds the state and would replace what is left there.
[[nodiscard]] FileDescriptor giveToAgent(const std::string& body, const std::string& line) {
    constexpr std::chrono::seconds TIMEOUT{3};
    constexpr std::chrono::milliseconds PAUSE{200};
    const auto end = std::chrono::steady_clock::now() + TIMEOUT;
    for (;;) {
        try {
            callAgent("POST", "/users", body);
            return {};
        } catch (const AgentAwayError& away) {
            const fs::path state = stateFolder();
            const AsOwnerOf owner(state);
            const fs::path folder = state / engine_file::STATE_FOLDER;
            fs::create_directories(folder);
            fs::permissions(folder, fs::perms::owner_all);
            if (FileDescriptor lock = engine_file::lockState(folder, PAUSE)) {
                leaveForStart(folder, line);
                return lock;
            }
            if (std::chrono::steady_clock::now() >= end) {
                throw AgentCallError(std::string(away.what()) + ", though one runs: start it again. No user was made");
            }
        }
    }
}

}  // namespace

void addUser(std::ostream& out, const std::string& name, UserAccess access, const UserProtocols& protocols) {
    checkName(name);
    const std::string before = readConfiguration();
    const std::string authentication = newPassphrase();
    const std::string privacy = newPassphrase();
    const nlohmann::json body{{"name", name},
                              {"authentication", authentication},
                              {"privacy", privacy},
                              {"authentication_protocol", protocols.authentication},
                              {"privacy_protocol", protocols.privacy}};
    const FileDescriptor startWaits =
        giveToAgent(body.dump(), "createUser " + name + " " + protocols.authentication + " \"" + authentication +
                                     "\" " + protocols.privacy + " \"" + privacy + "\"");
    const bool running = !startWaits;
    replaceConfiguration(before, configurationWithout(name, before) +
                                     (access == UserAccess::ReadWrite ? "rwuser " : "rouser ") + name + " priv\n");
    if (running) {
        try {
            reload();
        } catch (const AgentCallError&) {  // nobody would know the passphrases of the user who is there then
            callAgent("DELETE", "/users?name=" + name);
            replaceConfiguration("", before);
            throw;
        }
    }

    out << "user " << name << (access == UserAccess::ReadWrite ? " may read and write" : " may read")
        << (running ? "" : " when the agent is started") << "; these passphrases are shown once:\n"
        << fmt::format("  {:<25} {}\n", "authentication (" + protocols.authentication + "):", authentication)
        << fmt::format("  {:<25} {}\n", "encryption (" + protocols.privacy + "):", privacy)
        << "snmpwalk -v3 -l authPriv -u " << name << " -a " << protocols.authentication << " -A " << authentication
        << " -x " << protocols.privacy << " -X " << privacy << " ADDRESS 1.3.6.1.4.1.99871\n";
}

void removeUser(const std::string& name) {
    checkName(name);
    const std::string before = readConfiguration();
    callAgent("DELETE", "/users?name=" + name);
    replaceConfiguration(before, configurationWithout(name, before));
    reload();
}

void UserCommand::define(OptionParser& command) {
    command.setCommands(1, 1);
    const auto namesOf = [](const auto& names) { return std::vector<std::string>(names.begin(), names.end()); };
    add = &command.addCommand("add", "create a user with new passphrases and show them once");
    add->add("NAME", name, "the user's name").required();
    add->addFlag("--read-only", readOnly, "the user may read but not write");
    add->add("--auth", protocols.authentication, "authentication, for managers without SHA-256")
        .oneOf(namesOf(AUTHENTICATION_PROTOCOLS));
    add->add("--priv", protocols.privacy, "encryption").oneOf(namesOf(PRIVACY_PROTOCOLS));
    OptionParser& remove = command.addCommand("remove", "remove a user and its keys");
    remove.add("NAME", name, "the user's name").required();
}

int UserCommand::run() {
    if (add->given()) {
        addUser(std::cout, name, readOnly ? UserAccess::ReadOnly : UserAccess::ReadWrite, protocols);
    } else {
        removeUser(name);
    }
    return EX_OK;
}

}  // namespace vrx
