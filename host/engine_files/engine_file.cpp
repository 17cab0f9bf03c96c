#include "host/engine_files/engine_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <sstream>
#include <system_error>
#include <thread>

#include "host/snmp/limits.h"

namespace vrx {

namespace {

constexpr std::size_t LARGEST_STATE = std::size_t{16} << 20U;  // far more than thousands of users
constexpr std::size_t LARGEST_ID_FILE = 4096;
constexpr const char* HEX_DIGITS = "0123456789abcdefABCDEF";
// The first octets of an ID that this agent has made (engine_state.cpp), and the octets of all of it.
constexpr const char* OWN_ID = "0x8001861f05";
constexpr std::size_t OWN_ID_OCTETS = 13;

[[noreturn]] void failWith(const std::string& path, const std::string& fault) {
    throw WholeFileError(path, fault + "; it is left as it is: put a whole one there, or move it away to begin anew");
}

// "exactEngineID 0x..." and nothing else but comments.
std::string idFault(const std::string& content) {
    if (content.empty() || content.back() != '\n') return "it is cut off";
    std::size_t ids = 0;
    std::istringstream lines(content);
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        std::string word;
        std::string id;
        std::string more;
        words >> word >> id >> more;
        if (word.empty() || word.front() == '#') continue;
        if (word != "exactEngineID" || !engine_file::isEngineId(id) || !more.empty()) return "it holds no engine ID";
        if (id.rfind(OWN_ID, 0) == 0 && id.size() != 2 + 2 * OWN_ID_OCTETS) return "its engine ID is cut off";
        ++ids;
    }
    return ids == 1 ? "" : "it does not hold one engine ID";
}

void renameFile(const std::string& from, const std::string& to) {
    if (std::rename(from.c_str(), to.c_str()) != 0) throw std::system_error(errno, std::generic_category(), to);
}

bool isWholeState(const std::string& path) {
    try {
        return engine_file::readState(path).has_value();
    } catch (const WholeFileError&) {
        return false;
    }
}

}  // namespace

namespace engine_file {

std::string lastGoodCopy(const std::string& path) {
    return path + ".last";
}

bool isEngineId(const std::string& text) {
    if (text.rfind("0x", 0) != 0 && text.rfind("0X", 0) != 0) return false;
    const std::size_t digits = text.size() - 2;
    return digits % 2 == 0 && digits >= 2 * SHORTEST_ENGINE_ID && digits <= 2 * LONGEST_ENGINE_ID &&
           text.find_first_not_of(HEX_DIGITS, 2) == std::string::npos;
}

// The engine writes the count of starts and its ID after all else. A file of nothing but createUser lines was left by
// vrxctl before the first start.
std::string stateFault(const std::string& content) {
    if (content.empty()) return "it is empty";
    if (content.back() != '\n') return "it is cut off";
    if (content.find('\0') != std::string::npos) return "it holds zero bytes";
    bool users = false;
    bool others = false;
    bool counted = false;
    bool ended = false;
    std::istringstream lines(content);
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        std::string word;
        std::string value;
        words >> word >> value;
        if (word.empty() || word.front() == '#') continue;
        (word == "createUser" ? users : others) = true;
        if (word == "engineBoots") {
            counted = !value.empty() && value.find_first_not_of("0123456789") == std::string::npos;
        }
        if (word == "oldEngineID") ended = isEngineId(value);
    }
    if (!others && users) return "";
    if (!counted) return "it is not whole: the count of starts is missing";
    return ended ? "" : "it is not whole: the engine's ID is missing";
}

std::optional<std::string> readState(const std::string& path) {
    std::optional<std::string> content = readWholeFile(path, LARGEST_STATE);
    const std::string fault = content ? stateFault(*content) : "";
    if (!fault.empty()) failWith(path, fault);
    return content;
}

void keepLastGoodCopy(const std::string& path) {
    std::optional<std::string> content;
    try {
        content = readState(path);
    } catch (const WholeFileError&) {
        return;  // damaged since it was read: the copy that there is stays
    }
    if (content) replaceWholeFile(lastGoodCopy(path), *content);
}

// Where two files cannot change places the one before is copied, which takes two syncs more.
void replaceState(const std::string& path, const std::string& content) {
    const std::string draft = writePrivateDraft(path, content);
    try {
        if (isWholeState(path) && ::renameat2(AT_FDCWD, draft.c_str(), AT_FDCWD, path.c_str(), RENAME_EXCHANGE) == 0) {
            renameFile(draft, lastGoodCopy(path));
        } else {
            keepLastGoodCopy(path);
            renameFile(draft, path);
        }
    } catch (const std::system_error&) {
        ::unlink(draft.c_str());
        throw;
    }
    syncFolderOf(path);
}

std::optional<std::string> readEngineId(const std::string& path) {
    std::optional<std::string> content = readWholeFile(path, LARGEST_ID_FILE);
    const std::string fault = content ? idFault(*content) : "";
    if (!fault.empty()) failWith(path, fault);
    return content;
}

FileDescriptor lockState(const std::string& folder, std::chrono::milliseconds patience) {
    constexpr std::chrono::milliseconds PAUSE{20};
    FileDescriptor lock(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!lock) throw std::system_error(errno, std::generic_category(), folder);
    const auto end = std::chrono::steady_clock::now() + patience;
    while (::flock(lock.get(), LOCK_EX | LOCK_NB) != 0) {
        if (errno != EWOULDBLOCK && errno != EINTR) throw std::system_error(errno, std::generic_category(), folder);
        if (std::chrono::steady_clock::now() >= end) return {};
        std::this_thread::sleep_for(PAUSE);
    }
    return lock;
}

}  // namespace engine_file

}  // namespace vrx
