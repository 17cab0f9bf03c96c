#include "host/agent/engine/engine_state.h"

#include <chrono>
#include <new>
#include <optional>
#include <random>
#include <sstream>
#include <system_error>
#include <utility>

#include "host/base/log_line.h"
#include "host/base/thread_without_signals.h"
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

// Whether it is all that matters: the count of starts, the file's end, and every user.
bool isWhole(const std::string& content) {
    const std::string starts = "engineBoots " + std::to_string(snmpv3_local_snmpEngineBoots());
    std::istringstream in(content);
    std::size_t users = 0;
    bool counted = false;
    bool ended = false;
    for (std::string line; std::getline(in, line);) {
        if (line == starts) counted = true;
        if (line.rfind("oldEngineID ", 0) == 0) ended = true;
        if (line.rfind("usmUser ", 0) == 0) ++users;
    }
    return counted && ended && users == keptUsers();
}

// Where the library's lines go while they are collected; else null: then it has nothing to write.
std::string* g_lines = nullptr;

// The library's state as its file holds it. Nothing when not all of it can be had.
std::optional<std::string> collectState() {
    std::string content = "# The state of the SNMP engine, as vrx-agentd keeps it. Do not edit it.\n";
    g_lines = &content;
    snmp_call_callbacks(SNMP_CALLBACK_LIBRARY, SNMP_CALLBACK_STORE_DATA, nullptr);
    g_lines = nullptr;
    if (!isWhole(content)) return std::nullopt;
    return content;
}

// Gives what went wrong, or "".
std::string write(const std::string& file, const std::optional<std::string>& content) {
    if (!content) return "the SNMP library gives no whole state";  // for lack of memory
    try {
        engine_file::replaceState(file, *content);
    } catch (const std::system_error& error) {
        return error.code().message();
    }
    return "";
}

}  // namespace

EngineState::EngineState(const std::string& state, const std::string& name)
    : m_idFolder(state + "/engine"),
      m_folder(state + "/" + engine_file::STATE_FOLDER),
      m_scratchFolder(state + "/net-snmp.draft"),
      m_file(m_folder / (name + ".conf")) {
    constexpr std::chrono::seconds TIMEOUT{5};  // with vrxctl, which is done at once
    makePrivateFolder(m_folder);
    m_lock = engine_file::lockState(m_folder, TIMEOUT);
    if (!m_lock) throw EngineError("another agent uses " + m_folder.string());
    makePrivateFolder(m_scratchFolder);
    std::error_code ignored;
    fs::remove(m_scratchFolder / (name + ".conf"), ignored);  // users' keys, left by agents that wrote a draft there
    (void)engine_file::readState(m_file);                     // throws when it is of no use
    keepEngineId(m_idFolder, name);
}

EngineState::~EngineState() {
    if (m_writer.joinable()) m_writer.join();
}

void EngineState::useFolder() const {
    netsnmp_ds_set_string(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_PERSISTENT_DIR, m_folder.c_str());
}

void EngineState::useScratch() const {
    netsnmp_ds_set_string(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_PERSISTENT_DIR, m_scratchFolder.c_str());
}

std::string EngineState::store() {
    if (m_writer.joinable()) m_writer.join();
    return report(write(m_file, collectState()));
}

void EngineState::storeMeanwhile() {
    std::packaged_task<std::string()> task([file = m_file, content = collectState()] { return write(file, content); });
    m_written = task.get_future();
    try {
        m_writer = threadWithoutSignals(std::move(task));
    } catch (const std::system_error&) {  // no thread: stored() does it
    }
}

std::string EngineState::stored() {
    if (!m_writer.joinable()) return store();
    m_writer.join();
    return report(m_written.get());
}

std::string EngineState::report(const std::string& reason) {
    if (reason.empty()) {
        m_writing.ends([&] { logLine<lines::ENGINE_STATE_WRITTEN>(m_file); });
        return "";
    }
    m_writing.begins([&] { logLine<lines::ENGINE_STATE_NOT_WRITTEN>(m_file, reason); });
    return m_file + " cannot be written: " + reason;
}

}  // namespace vrx

extern "C" __attribute__((visibility("default"))) void read_config_store(const char*, const char* line) {
    if (vrx::g_lines == nullptr) return;
    try {
        *vrx::g_lines += line;
        *vrx::g_lines += '\n';
    } catch (const std::bad_alloc&) {  // the library is C; what is missing is noticed
    }
}
