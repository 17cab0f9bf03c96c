// The functions that platform/ declares: each goes to the FakeHost in charge.
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <map>
#include <memory>
#include <mutex>
#include <stdexcept>

#include <gtest/gtest.h>

#include "platform/notify_handler.h"
#include "platform/notify_msg_handler.h"
#include "platform/snmp_basic_impl.h"
#include "platform/snmp_configuration.h"
#include "platform/snmp_trap_api.h"
#include "platform/snmp_util.h"
#include "platform/vrx_debug_kit.h"
#include "platform/vrx_utility.h"
#include "platform/vrx_xml_config.h"
#include "tests/fake_host/fake_host.h"

// What only the platform functions may reach.
struct FakeHostAccess {
    static const std::optional<std::string>& nodeCode(FakeHost& host) { return host.m_nodeCode; }
    static unsigned int nodeType(FakeHost& host) { return host.m_nodeType; }
    static std::string systemName(FakeHost& host) { return host.m_systemName; }
    static bool timeConversionsFail() { return is(&FakeHost::m_timeConversionsFail); }
    static bool dropsEmptyPieces() { return is(&FakeHost::m_dropsEmptyPieces); }
    static unsigned int otherTextsNumber() {
        const FakeHost* const current = FakeHost::current();
        return current != nullptr ? current->m_otherTextsNumber : 0;
    }
    static bool refusesCopies() { return is(&FakeHost::m_refusesCopies); }

    static CNotifyHandler* dispatcher(FakeHost& host) {
        unsigned int left = host.m_dispatcherFailsAt;
        while (left > 1 && !host.m_dispatcherFailsAt.compare_exchange_weak(left, left - 1)) {
        }
        if (left == 1) throw std::runtime_error("FakeHost: no dispatcher");
        return &host.m_dispatcher;
    }

private:
    static bool is(bool FakeHost::*property) {
        const FakeHost* const current = FakeHost::current();
        return current != nullptr && current->*property;
    }
};

namespace {

FakeHost& host(const char* service) {
    FakeHost* current = FakeHost::current();
    if (current == nullptr) {
        ADD_FAILURE() << service << " was used without a FakeHost";
        throw std::logic_error(std::string(service) + " was used without a FakeHost");
    }
    return *current;
}

std::string formatted(const char* format, va_list args) {
    va_list copy;
    va_copy(copy, args);
    // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): the copy of a list that the caller started
    const int length = std::vsnprintf(nullptr, 0, format, copy);
    va_end(copy);
    if (length < 0) return format;
    std::string text(static_cast<std::size_t>(length) + 1, '\0');
    std::vsnprintf(text.data(), text.size(), format, args);
    text.resize(static_cast<std::size_t>(length));
    return text;
}

// The logger of one module: hands lines to the FakeHost in charge when they are written.
class FakeDebugKit : public CVRXDebugKit {
public:
    explicit FakeDebugKit(unsigned int module) : m_module(module) {}

    void trace(const std::string& text) override { add({"trace", m_module, 0, "", 0, text}); }
    void debug(unsigned long long code, const char* function, unsigned int line, const char* format,
               va_list args) override {
        add({"debug", m_module, code, function, line, formatted(format, args)});
    }
    void warn(unsigned long long code, const char* function, unsigned int line, const char* format,
              va_list args) override {
        add({"warn", m_module, code, function, line, formatted(format, args)});
    }
    void error(unsigned long long code, const char* function, unsigned int line, const char* format,
               va_list args) override {
        add({"error", m_module, code, function, line, formatted(format, args)});
    }
    bool takes(Line line) const override {
        static const char* const KINDS[] = {"trace", "debug", "warn", "error"};
        FakeHost* const current = FakeHost::current();
        return current != nullptr && current->log().takes(KINDS[static_cast<int>(line)]);
    }

private:
    static void add(FakeLogLine line) {
        if (FakeHost* current = FakeHost::current()) current->log().add(std::move(line));
    }

    unsigned int m_module;
};

tm utc(long seconds) {
    const time_t time = seconds;
    tm parts{};
    if (gmtime_r(&time, &parts) == nullptr) throw std::out_of_range("FakeHost: time " + std::to_string(seconds));
    return parts;
}

}  // namespace

CVRXDebugKitMgr::CVRXDebugKitMgr() = default;
CVRXDebugKitMgr::~CVRXDebugKitMgr() {}

CVRXDebugKit* CVRXDebugKitMgr::find(unsigned int module) {
    static std::mutex& mutex = *new std::mutex;  // never destroyed: loggers are valid until the process ends
    static auto& loggers = *new std::map<unsigned int, std::unique_ptr<FakeDebugKit>>;
    std::lock_guard<std::mutex> lock(mutex);
    std::unique_ptr<FakeDebugKit>& logger = loggers[module];
    if (logger == nullptr) logger = std::make_unique<FakeDebugKit>(module);
    return logger.get();
}

CVRXXmlConfig* CVRXXmlConfig::instance() {
    static CVRXXmlConfig config;
    return &config;
}

std::string CVRXXmlConfig::getDeviceItem(const std::string& section, const std::string& key, std::string& value) {
    value = host("CVRXXmlConfig").config(section, key);
    return value;
}

CSNMP_Configuration* CSNMP_Configuration::instance() {
    static CSNMP_Configuration configuration;
    return &configuration;
}

int CSNMP_Configuration::configure(CR8KPackageV3& request, CR8KPackageV3& response, bool retry) {
    return host("CSNMP_Configuration").backend().configure(request, response, retry);
}

CNotifyHandler* CNotifyHandler::instance() {
    return FakeHostAccess::dispatcher(host("CNotifyHandler"));
}

int CSNMPBasicImpl::device_type = 0;
std::string CSNMPBasicImpl::product_sn;

const char* CSNMPBasicImpl::getNodeCode() {
    const std::optional<std::string>& code = FakeHostAccess::nodeCode(host("CSNMPBasicImpl"));
    return code ? code->c_str() : nullptr;
}

unsigned int CSNMPBasicImpl::getNodeType() {
    return FakeHostAccess::nodeType(host("CSNMPBasicImpl"));
}

std::string GetSystemName() {
    return FakeHostAccess::systemName(host("GetSystemName"));
}

void CSnmpUtil::convertTime2DateTime(Snmp_pp::OctetStr& out, long seconds) {
    if (FakeHostAccess::timeConversionsFail()) return;
    const tm parts = utc(seconds);
    const auto octet = [](int number) { return static_cast<unsigned char>(number & 0xFF); };
    const int year = parts.tm_year + 1900;
    const unsigned char bytes[] = {octet(year / 256),
                                   octet(year % 256),
                                   octet(parts.tm_mon + 1),
                                   octet(parts.tm_mday),
                                   octet(parts.tm_hour),
                                   octet(parts.tm_min),
                                   octet(parts.tm_sec),
                                   0,
                                   '+',
                                   0,
                                   0};
    out.set_data(bytes, sizeof bytes);
}

void CSnmpUtil::convertTime2DateTimeStr(Snmp_pp::OctetStr& out, long seconds) {
    if (FakeHostAccess::timeConversionsFail()) return;
    const tm parts = utc(seconds);
    char buffer[96];
    std::snprintf(buffer, sizeof buffer, "%04d-%02d-%02d,%02d:%02d:%02d.0,+00:00", parts.tm_year + 1900,
                  parts.tm_mon + 1, parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec);
    out = buffer;
}

std::string VRX_Utility::getVRXRootEnv() {
    return host("VRX_Utility").root();
}

void SplitToStr(std::string text, char separator, std::vector<std::string>& out) {
    if (text.empty()) return;
    const auto add = [&out](std::string piece) {
        if (!piece.empty() || !FakeHostAccess::dropsEmptyPieces()) out.push_back(std::move(piece));
    };
    std::size_t start = 0;
    for (std::size_t end = text.find(separator); end != std::string::npos; end = text.find(separator, start)) {
        add(text.substr(start, end - start));
        start = end + 1;
    }
    add(text.substr(start));
}

unsigned int StrToUint(std::string text) {
    constexpr unsigned long long LIMIT = 4294967295ULL;
    unsigned long long number = 0;
    const auto isDigit = [&text](std::size_t i) { return i < text.size() && text[i] >= '0' && text[i] <= '9'; };
    const std::size_t begin = text.find_first_not_of(" \t\n\v\f\r");
    if (!isDigit(begin)) return FakeHostAccess::otherTextsNumber();
    for (std::size_t i = begin; isDigit(i); ++i) {
        number = number * 10 + static_cast<unsigned long long>(text[i] - '0');
        if (number > LIMIT) return static_cast<unsigned int>(LIMIT);
    }
    return static_cast<unsigned int>(number);
}

std::string UintToStr(unsigned int number) {
    return std::to_string(number);
}

int memcpy_s(void* destination, std::size_t destinationSize, const void* source, std::size_t count) {
    if (destination == nullptr || source == nullptr || count > destinationSize) return -1;
    if (FakeHostAccess::refusesCopies()) return -1;
    std::memcpy(destination, source, count);
    return 0;
}

int CSNMP_TrapApi::createTrapAddr(const tTrapDestInfo& destination) {
    FakeTrapApi& api = host("CSNMP_TrapApi").trapApi();
    api.record("create", destination);
    return api.onCreate(destination);
}

int CSNMP_TrapApi::modifyTrapAddr(const tTrapDestInfo& destination) {
    FakeTrapApi& api = host("CSNMP_TrapApi").trapApi();
    api.record("modify", destination);
    return api.onModify(destination);
}

int CSNMP_TrapApi::deleteTrapAddr(const tTrapDestInfo& destination) {
    FakeTrapApi& api = host("CSNMP_TrapApi").trapApi();
    api.record("delete", destination);
    return api.onDelete(destination);
}

int CSNMP_TrapApi::getAllTrapAddr(std::list<tTrapDestInfo>& destinations) {
    FakeTrapApi& api = host("CSNMP_TrapApi").trapApi();
    api.record("list", {});
    const int result = api.onList();
    if (result == 0) destinations.insert(destinations.end(), api.destinations.begin(), api.destinations.end());
    return result;
}

bool CheckIPAddrOK(std::string address) {
    FakeTrapApi& api = host("CheckIPAddrOK").trapApi();
    tTrapDestInfo looked;
    looked.address = address;
    api.record("checkAddress", looked);
    return api.checkAddress(address);
}

bool CheckTrapIndOK(tTrapDestInfo& destination) {
    FakeTrapApi& api = host("CheckTrapIndOK").trapApi();
    api.record("checkIndex", destination);
    return api.checkIndex(destination);
}

bool CheckTrapPortOK(tTrapDestInfo& destination) {
    FakeTrapApi& api = host("CheckTrapPortOK").trapApi();
    api.record("checkPort", destination);
    return api.checkPort(destination);
}

bool CheckTrapVerOK(tTrapDestInfo& destination) {
    FakeTrapApi& api = host("CheckTrapVerOK").trapApi();
    api.record("checkVersion", destination);
    return api.checkVersion(destination);
}

bool CheckTrapTypeOK(tTrapDestInfo& destination) {
    FakeTrapApi& api = host("CheckTrapTypeOK").trapApi();
    api.record("checkType", destination);
    return api.checkType(destination);
}

bool CheckTrapUserOK(tTrapDestInfo& destination) {
    FakeTrapApi& api = host("CheckTrapUserOK").trapApi();
    api.record("checkUser", destination);
    return api.checkUser(destination);
}

bool testDomainConnectivity(const char* address) {
    FakeTrapApi& api = host("testDomainConnectivity").trapApi();
    tTrapDestInfo looked;
    looked.address = address;
    api.record("testConnectivity", looked);
    return api.isConnected(address);
}
