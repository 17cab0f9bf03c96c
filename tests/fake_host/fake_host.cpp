#include "tests/fake_host/fake_host.h"

#include <ace/Singleton.h>
#include <ace/Thread_Mutex.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "platform/notify_msg_handler.h"
#include "platform/snmp_basic_impl.h"
#include "platform/vrx_debug_kit.h"

namespace {

std::atomic<FakeHost*> s_current{nullptr};

constexpr unsigned int HOST = 0;
constexpr unsigned int MODULE = 4;

// Signatures of the scopes that this thread is in, the innermost last.
thread_local std::vector<std::string> s_scopes;

std::string textBetween(const std::string& text, const std::string& begin, const std::string& end) {
    const std::size_t last = text.rfind(end);
    if (text.compare(0, begin.size(), begin) != 0 || last == std::string::npos || last < begin.size()) return "";
    return text.substr(begin.size(), last - begin.size());
}

// "updateRepository" of "int CTamrelNotifyMsgHandler::updateRepository(u_int, ...)"; "" of what is no signature.
std::string functionOf(const std::string& signature) {
    const std::size_t end = signature.find('(');
    if (end == std::string::npos) return "";
    const std::size_t before = signature.find_last_of(": ", end);
    return signature.substr(before + 1, end - before - 1);  // from the begin where there is nothing before
}

}  // namespace

std::string FakeLogLine::toString() const {
    if (kind == "trace") return "trace " + text;
    char number[32];
    std::snprintf(number, sizeof number, "0x%llX", code);
    return kind + " " + number + " " + text;
}

std::vector<FakeLogLine> FakeLog::entries() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_lines;
}

std::vector<std::string> FakeLog::lines() const {
    std::vector<std::string> texts;
    for (const FakeLogLine& line : entries()) texts.push_back(line.toString());
    return texts;
}

std::vector<std::string> FakeLog::lines(const std::string& kind) const {
    std::vector<std::string> texts;
    for (const FakeLogLine& line : entries()) {
        if (line.kind == kind) texts.push_back(line.toString());
    }
    return texts;
}

std::vector<std::string> FakeLog::linesWithoutTrace() const {
    std::vector<std::string> texts;
    for (const FakeLogLine& line : entries()) {
        if (line.kind != "trace") texts.push_back(line.toString());
    }
    return texts;
}

void FakeLog::clear() {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_lines.clear();
}

void FakeLog::expectSound(const FakeLogLine& line) const {
    EXPECT_TRUE(m_takesAnyModule || line.module == HOST || line.module == MODULE) << line.module << line.toString();
    if (line.kind == "trace") {
        const std::string entered = textBetween(line.text, "enter ", "...");
        if (!entered.empty()) s_scopes.push_back(entered);
        const std::string left = textBetween(line.text, "leave ", ": ");
        if (!s_scopes.empty() && s_scopes.back() == left) s_scopes.pop_back();
    } else if (line.module == MODULE && !s_scopes.empty() && !functionOf(s_scopes.back()).empty()) {
        EXPECT_EQ(line.function, functionOf(s_scopes.back())) << line.toString();
    }
}

void FakeLog::add(FakeLogLine line) {
    expectSound(line);
    std::lock_guard<std::mutex> lock(m_mutex);
    m_lines.push_back(std::move(line));
}

void FakeLog::refuse(std::set<std::string> kinds) {
    s_scopes.clear();  // whose lines may come no more
    std::lock_guard<std::mutex> lock(m_mutex);
    m_refused = std::move(kinds);
}

bool FakeLog::takes(const std::string& kind) const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_refused.count(kind) == 0;
}

void FakeBackend::answer(int result, std::vector<TlvRecord> records) {
    answer([result, records = std::move(records)](CR8KPackageV3&, CR8KPackageV3& response) {
        appendRecords(response, records);
        return result;
    });
}

void FakeBackend::answer(Answer function) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_answers.push_back(std::move(function));
}

void FakeBackend::answerAlways(Answer function) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_always = std::move(function);
}

std::vector<TlvRecord> FakeBackend::sent() const {
    std::vector<TlvRecord> all;
    for (const std::vector<TlvRecord>& request : requests()) all.insert(all.end(), request.begin(), request.end());
    return all;
}

std::vector<std::vector<TlvRecord>> FakeBackend::requests() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_requests;
}

std::vector<bool> FakeBackend::retryArguments() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_retries;
}

int FakeBackend::configure(CR8KPackageV3& request, CR8KPackageV3& response, bool retry) {
    Answer function;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_requests.push_back(recordsOf(request));
        m_retries.push_back(retry);
        if (!m_answers.empty()) {
            function = std::move(m_answers.front());
            m_answers.pop_front();
        } else {
            function = m_always;
        }
    }
    if (!function) {
        ADD_FAILURE() << "FakeBackend: no answer was prepared for " << testing::PrintToString(recordsOf(request));
        return -1;
    }
    return function(request, response);
}

FakeTrapApi::FakeTrapApi()
    : onList([] { return 0; }),
      onCreate([](const tTrapDestInfo&) { return 0; }),
      onModify([](const tTrapDestInfo&) { return 0; }),
      onDelete([](const tTrapDestInfo&) { return 0; }),
      checkAddress([](const std::string& address) { return !address.empty() && address != "bad"; }),
      isConnected([](const std::string&) { return true; }),
      checkIndex([this](tTrapDestInfo& looked) {
          for (const tTrapDestInfo& destination : destinations) {
              if (destination.index == looked.index) return true;
          }
          return false;
      }),
      checkPort([](tTrapDestInfo& looked) { return looked.port >= 1 && looked.port <= 65535; }),
      checkVersion([](tTrapDestInfo& looked) { return looked.version >= 1 && looked.version <= 3; }),
      checkType([](tTrapDestInfo& looked) { return looked.trapType >= 1 && looked.trapType <= 4; }),
      checkUser([](tTrapDestInfo& looked) { return looked.user != "bad"; }) {}

std::vector<FakeTrapApi::Call> FakeTrapApi::calls() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_calls;
}

std::vector<FakeTrapApi::Call> FakeTrapApi::calls(const std::string& operation) const {
    std::vector<Call> found;
    for (const Call& call : calls()) {
        if (call.operation == operation) found.push_back(call);
    }
    return found;
}

std::vector<FakeTrapApi::Call> FakeTrapApi::changes() const {
    std::vector<Call> found;
    for (const Call& call : calls()) {
        if (call.operation == "create" || call.operation == "modify" || call.operation == "delete") {
            found.push_back(call);
        }
    }
    return found;
}

std::vector<std::string> FakeTrapApi::operations() const {
    std::vector<std::string> names;
    for (const Call& call : calls()) names.push_back(call.operation);
    return names;
}

void FakeTrapApi::record(const std::string& operation, const tTrapDestInfo& destination) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_calls.push_back({operation, destination});
}

bool operator==(const tTrapDestInfo& a, const tTrapDestInfo& b) {
    return a.index == b.index && a.address == b.address && a.port == b.port && a.version == b.version &&
           a.trapType == b.trapType && a.user == b.user;
}

std::ostream& operator<<(std::ostream& os, const tTrapDestInfo& destination) {
    return os << "{index \"" << destination.index << "\", address \"" << destination.address << "\", port "
              << destination.port << ", version " << destination.version << ", type " << destination.trapType
              << ", user \"" << destination.user << "\"}";
}

FakeHost::FakeHost()
    : m_previous(s_current.exchange(this)),
      m_previousDeviceType(CSNMPBasicImpl::device_type),
      m_previousProductSn(CSNMPBasicImpl::product_sn) {
    s_scopes.clear();
    // The first use creates it without a barrier that others could rely on: do it before any thread starts.
    ACE_Unmanaged_Singleton<CVRXDebugKitMgr, ACE_Thread_Mutex>::instance();
    CSNMPBasicImpl::device_type = 7700;
    CSNMPBasicImpl::product_sn = "PSN0001";
}

FakeHost::~FakeHost() {
    deleteHandlers();
    std::vector<std::string>().swap(s_scopes);  // its memory too: tests count what is left
    CSNMPBasicImpl::device_type = m_previousDeviceType;
    CSNMPBasicImpl::product_sn = m_previousProductSn;
    s_current = m_previous;
    if (!m_temporaryRoot.empty()) {
        std::error_code ignored;
        std::filesystem::remove_all(m_temporaryRoot, ignored);
    }
}

FakeHost* FakeHost::current() {
    return s_current;
}

void FakeHost::setConfig(const std::string& section, const std::string& key, const std::string& value) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_config[{section, key}] = value;
}

std::string FakeHost::config(const std::string& section, const std::string& key) const {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_configReads.push_back(section + "/" + key);
    auto found = m_config.find({section, key});
    return found == m_config.end() ? "" : found->second;
}

std::vector<std::string> FakeHost::configReads() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_configReads;
}

std::string FakeHost::root() {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_root.empty()) {
        std::string path = (std::filesystem::path(testing::TempDir()) / "vrx-test-XXXXXX").string();
        if (mkdtemp(path.data()) == nullptr) throw std::runtime_error("FakeHost: no temporary directory " + path);
        m_temporaryRoot = path;
        m_root = path;
    }
    return m_root;
}

void FakeHost::setRoot(const std::string& path) {
    m_root = path;
}

std::string FakeHost::writeFile(const std::string& path, const std::string& content) {
    const std::filesystem::path full = std::filesystem::path(root()) / path;
    std::filesystem::create_directories(full.parent_path());
    std::ofstream file(full, std::ios::binary | std::ios::trunc);
    file << content;
    file.close();
    if (!file) throw std::runtime_error("FakeHost: cannot write " + full.string());
    return full.string();
}

void FakeHost::setNodeCode(std::optional<std::string> code) {
    m_nodeCode = std::move(code);
}
void FakeHost::setNodeType(unsigned int type) {
    m_nodeType = type;
}
void FakeHost::setDeviceType(int type) {
    CSNMPBasicImpl::device_type = type;
}
void FakeHost::setProductSn(const std::string& number) {
    CSNMPBasicImpl::product_sn = number;
}
void FakeHost::setSystemName(const std::string& name) {
    m_systemName = name;
}

void FakeHost::failTimeConversions() {
    m_timeConversionsFail = true;
}

void FakeHost::deleteHandlers() {
    for (INotifyMsgHandler* handler : m_dispatcher.handlers()) delete handler;
    m_dispatcher.handlers().clear();
}

void FakeHost::failDispatcherAtCall(unsigned int n) {
    m_dispatcherFailsAt = n;
}
