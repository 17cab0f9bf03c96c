#include "tools/user_commands.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <random>
#include <sstream>
#include <system_error>
#include <vector>

#include "host/services/backend_socket.h"
#include "host/services/product_root.h"
#include "tools/agent_call.h"
#include "tools/agent_commands.h"

namespace {

namespace fs = std::filesystem;

constexpr const char* CONFIGURATION = "etc/vrx-agentd.conf";
constexpr const char* STATE = "net-snmp/vrx-agentd.conf";  // below the state folder

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

std::vector<std::string> linesOf(const fs::path& file) {
    std::vector<std::string> lines;
    std::ifstream in(file);
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

// The whole file or none of it; for its owner only where it is new, else with the owner and mode that it has.
void replaceFile(const fs::path& file, const std::vector<std::string>& lines) {
    const fs::path draft = file.string() + ".new";
    const FileDescriptor out(::open(draft.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, S_IRUSR | S_IWUSR));
    if (!out) fail(draft);
    struct stat before {};
    if (::stat(file.c_str(), &before) == 0 &&
        (::fchmod(out.get(), before.st_mode & 0777U) != 0 || ::fchown(out.get(), before.st_uid, before.st_gid) != 0)) {
        fail(draft);
    }
    std::string text;
    for (const std::string& line : lines) text += line + "\n";
    for (std::size_t done = 0; done < text.size();) {
        const ssize_t written = ::write(out.get(), text.data() + done, text.size() - done);
        if (written < 0) fail(draft);
        done += static_cast<std::size_t>(written);
    }
    if (::fsync(out.get()) != 0) fail(draft);
    fs::rename(draft, file);
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

// Whether a line lets this user in: "rwuser NAME ...".
bool letsIn(const std::string& line, const std::string& name) {
    std::istringstream words(line);
    std::string word;
    std::string user;
    words >> word >> user;
    return (word == "rwuser" || word == "rouser") && user == name;
}

// For an agent that does not run: it makes the keys when it starts, and the passphrases are gone then.
void leaveForStart(const std::string& name, const std::string& authentication, const std::string& privacy) {
    const fs::path state = stateFolder();
    const AsOwnerOf owner(state);
    const fs::path file = state / STATE;
    fs::create_directories(file.parent_path());
    fs::permissions(file.parent_path(), fs::perms::owner_all);
    std::vector<std::string> lines = linesOf(file);
    lines.push_back("createUser " + name + " SHA-256 \"" + authentication + "\" AES \"" + privacy + "\"");
    replaceFile(file, lines);
}

void checkName(const std::string& name) {
    constexpr std::size_t MAX_NAME = 32;
    const bool plain = name.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789._-") ==
                       std::string::npos;
    if (name.empty() || name.size() > MAX_NAME || !plain) {
        throw std::runtime_error("a user's name has 1 to 32 letters, digits and \"._-\"");
    }
}

void reload() {
    std::ostringstream faults;
    if (!reloadAgent(faults)) throw AgentCallError("the agent did not take its configuration over:\n" + faults.str());
}

}  // namespace

void addUser(std::ostream& out, const std::string& name, UserAccess access) {
    checkName(name);
    const std::string authentication = newPassphrase();
    const std::string privacy = newPassphrase();
    bool running = true;
    try {
        callAgent("POST", "/users",
                  nlohmann::json{{"name", name}, {"authentication", authentication}, {"privacy", privacy}}.dump());
    } catch (const AgentAwayError&) {
        running = false;
        leaveForStart(name, authentication, privacy);
    }

    const fs::path configuration = productPath(CONFIGURATION);
    std::vector<std::string> lines;
    for (std::string& line : linesOf(configuration)) {
        if (!letsIn(line, name)) lines.push_back(std::move(line));
    }
    lines.push_back(std::string(access == UserAccess::ReadWrite ? "rwuser " : "rouser ") + name + " priv");
    replaceFile(configuration, lines);
    if (running) reload();

    out << "user " << name << (access == UserAccess::ReadWrite ? " may read and write" : " may read")
        << (running ? "" : " when the agent is started") << "; these passphrases are shown once:\n"
        << "  authentication (SHA-256): " << authentication << "\n"
        << "  encryption (AES):         " << privacy << "\n"
        << "snmpwalk -v3 -l authPriv -u " << name << " -a SHA-256 -A " << authentication << " -x AES -X " << privacy
        << " ADDRESS 1.3.6.1.4.1.99871\n";
}

void removeUser(const std::string& name) {
    checkName(name);
    callAgent("DELETE", "/users?name=" + name);
    const fs::path configuration = productPath(CONFIGURATION);
    std::vector<std::string> lines;
    for (std::string& line : linesOf(configuration)) {
        if (!letsIn(line, name)) lines.push_back(std::move(line));
    }
    replaceFile(configuration, lines);
    reload();
}
