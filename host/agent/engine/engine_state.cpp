#include "host/agent/engine/engine_state.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <fstream>
#include <random>
#include <sstream>
#include <system_error>
#include <utility>

#include "host/base/log_line.h"
#include "host/log_lines/files.h"
#include "host/snmp/net_snmp.h"

namespace vrx {

namespace fs = std::filesystem;

namespace {

void makePrivateFolder(const fs::path& folder) {
    std::error_code error;
    fs::create_directories(folder, error);
    if (!error) fs::permissions(folder, fs::perms::owner_all, error);
    if (error) throw EngineError(folder.string() + ": " + error.message());
}

// SNMP-FRAMEWORK-MIB: the enterprise with the first bit set, format 5 (octets), eight octets of chance.
std::string newEngineId() {
    constexpr unsigned int ENTERPRISE = 99871;
    constexpr int RANDOM_OCTETS = 8;
    std::random_device random;
    std::ostringstream text;
    text << std::hex;
    text.fill('0');
    text.width(8);
    text << (0x80000000U | ENTERPRISE) << "05";
    for (int i = 0; i < RANDOM_OCTETS; ++i) {
        text.width(2);
        text << (random() & 0xFFU);
    }
    return "0x" + text.str();
}

// To disk, whatever comes. Gives what went wrong, or "".
std::string sync(const fs::path& path) {
    const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0) return std::strerror(errno);
    std::string fault;
    if (::fsync(descriptor) != 0) fault = std::strerror(errno);
    ::close(descriptor);
    return fault;
}

// The draft becomes the file, whole or not at all. Gives what went wrong, or "".
std::string putInPlace(const fs::path& draft, const fs::path& file) {
    try {
        engine_file::keepLastGoodCopy(file);
    } catch (const std::system_error& error) {
        return error.code().message();
    }
    std::string fault = sync(draft);
    if (!fault.empty()) return fault;
    std::error_code error;
    fs::rename(draft, file, error);
    if (error) return error.message();
    return sync(file.parent_path());
}

// A configuration file of one line: read before the operator's, which may name another ID.
void keepEngineId(const fs::path& folder, const std::string& name) {
    makePrivateFolder(folder);
    const fs::path file = folder / (name + ".conf");
    if (engine_file::readEngineId(file)) return;
    try {
        replaceWholeFile(file, "exactEngineID " + newEngineId() + "\n");
    } catch (const std::system_error& error) {
        throw EngineError(file.string() + " cannot be written: " + error.code().message());
    }
}

std::size_t keptUsers() {
    std::size_t count = 0;
    for (const usmUser* user = usm_get_userList(); user != nullptr; user = user->next) {
        if (user->userStorageType == SNMP_STORAGE_NONVOLATILE) ++count;
    }
    return count;
}

// Whether the library has written all that matters: the count of starts, its end, and every user.
bool isWhole(const fs::path& draft) {
    const std::string starts = "engineBoots " + std::to_string(snmpv3_local_snmpEngineBoots());
    std::ifstream in(draft);
    std::size_t users = 0;
    bool counted = false;
    bool ended = false;
    std::string line;
    while (std::getline(in, line) && !in.eof()) {  // a line without its end is not whole
        if (line == starts) counted = true;
        if (line.rfind("oldEngineID ", 0) == 0) ended = true;
        if (line.rfind("usmUser ", 0) == 0) ++users;
    }
    return counted && ended && users == keptUsers();
}

}  // namespace

EngineState::EngineState(std::string state, std::string name)
    : m_idFolder(state + "/engine"),
      m_folder(state + "/" + engine_file::STATE_FOLDER),
      m_draftFolder(state + "/net-snmp.draft"),
      m_name(std::move(name)) {
    constexpr std::chrono::seconds TIMEOUT{5};  // with vrxctl, which is done at once
    makePrivateFolder(m_folder);
    m_lock = engine_file::lockState(m_folder, TIMEOUT);
    if (!m_lock) throw EngineError("another agent uses " + m_folder.string());
    makePrivateFolder(m_draftFolder);
    (void)engine_file::readState(m_folder / (m_name + ".conf"));  // throws when it is of no use
    keepEngineId(m_idFolder, m_name);
}

void EngineState::useFolder() const {
    netsnmp_ds_set_string(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_PERSISTENT_DIR, m_folder.c_str());
}

void EngineState::useDraft() const {
    netsnmp_ds_set_string(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_PERSISTENT_DIR, m_draftFolder.c_str());
}

std::string EngineState::store() {
    const std::string file = m_folder / (m_name + ".conf");
    const std::string reason = write();
    if (reason.empty()) {
        m_writing.ends([&] { logLine<lines::ENGINE_STATE_WRITTEN>(file); });
        return "";
    }
    m_writing.begins([&] { logLine<lines::ENGINE_STATE_NOT_WRITTEN>(file, reason); });
    return file + " cannot be written: " + reason;
}

std::string EngineState::write() const {
    const fs::path draft = m_draftFolder / (m_name + ".conf");
    std::error_code error;
    fs::remove(draft, error);  // of a store that failed; the library would go on after it
    if (error) return error.message();
    snmp_store(m_name.c_str());
    if (!isWhole(draft)) return "the draft is not whole, is the disk full?";
    return putInPlace(draft, m_folder / draft.filename());
}

}  // namespace vrx
