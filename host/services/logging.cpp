#include "host/services/logging.h"

#include <ace/Log_Msg.h>
#include <ace/Log_Msg_Backend.h>
#include <ace/Log_Record.h>
#include <ace/Singleton.h>
#include <ace/Thread_Mutex.h>
#include <fcntl.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/sinks/dist_sink.h>
#include <spdlog/sinks/stdout_sinks.h>
#include <spdlog/spdlog.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <map>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <system_error>
#include <vector>

#include "host/services/product_root.h"
#include "platform/vrx_debug_kit.h"
#include "platform/vrx_xml_config.h"

namespace {

constexpr const char* LINE_PATTERN = "%Y-%m-%dT%H:%M:%S.%e%z %l %v";

struct tLevelName {
    const char* name;
    LogLevel level;
    spdlog::level::level_enum ofSpdlog;
};

constexpr tLevelName LEVELS[] = {
    {"trace", LogLevel::Trace, spdlog::level::trace}, {"debug", LogLevel::Debug, spdlog::level::debug},
    {"info", LogLevel::Info, spdlog::level::info},    {"warn", LogLevel::Warn, spdlog::level::warn},
    {"error", LogLevel::Error, spdlog::level::err},   {"off", LogLevel::Off, spdlog::level::off},
};

spdlog::level::level_enum levelOfSpdlog(LogLevel level) {
    return LEVELS[static_cast<int>(level)].ofSpdlog;
}

// Kinds of lines that modules write.
enum Kind : unsigned int { KIND_TRACE, KIND_DEBUG, KIND_WARN, KIND_ERROR, KINDS };

std::string oneLine(const std::string& text) {
    std::size_t end = text.size();
    while (end > 0 && text[end - 1] == '\n') --end;
    std::string line;
    line.reserve(end);
    for (std::size_t i = 0; i < end; ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        if (byte == '\n') {
            line += "\\n";
        } else if (byte == '\t' || (byte >= 0x20 && byte != 0x7F)) {
            line += text[i];
        } else {
            char escape[8];
            std::snprintf(escape, sizeof escape, "\\x%02X", static_cast<unsigned int>(byte));
            line += escape;
        }
    }
    return line;
}

std::string formatted(const char* format, va_list args) {
    char small[512];
    va_list again;
    va_copy(again, args);
    const int length = std::vsnprintf(small, sizeof small, format, args);
    std::string text = length < 0 ? format : small;
    if (length >= static_cast<int>(sizeof small)) {
        text.resize(static_cast<std::size_t>(length) + 1);
        std::vsnprintf(text.data(), text.size(), format, again);
        text.resize(static_cast<std::size_t>(length));
    }
    va_end(again);
    return text;
}

// The one logger of the process; its sinks and levels change, it stays. Never destroyed: threads and static objects of
// modules may log until the process ends.
class Log {
public:
    static Log& instance() {
        static Log& log = *new Log;
        return log;
    }

    void start(const LogOptions& options) {
        std::vector<spdlog::sink_ptr> sinks = {std::make_shared<spdlog::sinks::stderr_sink_mt>()};
        if (!options.file.empty()) sinks.push_back(openFile(options.file));
        for (const spdlog::sink_ptr& sink : sinks) sink->set_pattern(LINE_PATTERN);

        const std::lock_guard<std::mutex> lock(m_starting);
        m_sinks->set_sinks(std::move(sinks));
        m_logger->set_level(levelOfSpdlog(options.threshold));
        m_kinds[KIND_TRACE] = levelOfSpdlog(options.trace);
        m_kinds[KIND_DEBUG] = levelOfSpdlog(options.debug);
        m_kinds[KIND_WARN] = levelOfSpdlog(options.warn);
        m_kinds[KIND_ERROR] = levelOfSpdlog(options.error);
        takeOverOthers();
    }

    bool passes(spdlog::level::level_enum level) const {
        return level != spdlog::level::off && m_logger->should_log(level);
    }
    bool passes(Kind kind) const { return passes(m_kinds[kind].load(std::memory_order_relaxed)); }

    void write(spdlog::level::level_enum level, const std::string& origin, const std::string& text) {
        const std::string line = oneLine(text);
        t_line = &line;
        m_logger->log(level, "[{}] {}", origin, line);
        t_line = nullptr;
    }
    void write(Kind kind, const std::string& origin, const std::string& text) {
        write(m_kinds[kind].load(std::memory_order_relaxed), origin, text);
    }

private:
    class AceBackend : public ACE_Log_Msg_Backend {
    public:
        int open(const ACE_TCHAR*) override { return 0; }
        int reset() override { return 0; }
        int close() override { return 0; }
        ssize_t log(ACE_Log_Record& record) override;
    };

    Log()
        : m_sinks(std::make_shared<spdlog::sinks::dist_sink_mt>()),
          m_logger(std::make_shared<spdlog::logger>("vrx", m_sinks)),
          m_kinds{{spdlog::level::trace}, {spdlog::level::debug}, {spdlog::level::warn}, {spdlog::level::err}} {
        auto toStderr = std::make_shared<spdlog::sinks::stderr_sink_mt>();
        toStderr->set_pattern(LINE_PATTERN);
        m_sinks->add_sink(toStderr);
        m_logger->flush_on(spdlog::level::trace);  // a log is read after a crash
        m_logger->set_error_handler(&Log::writePlainly);
    }

    // Of a line that cannot be written for want of memory, or of disk.
    static void writePlainly(const std::string& fault) {
        std::fwrite(fault.data(), 1, fault.size(), stderr);  // has no buffer to allocate
        std::fputs(": ", stderr);
        if (t_line != nullptr) std::fwrite(t_line->data(), 1, t_line->size(), stderr);
        std::fputc('\n', stderr);
    }

    static spdlog::sink_ptr openFile(const std::string& path) {
        // Made here for its mode: log lines are for the operator's group, not for everybody.
        const int file = open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0640);
        if (file < 0) throw std::system_error(errno, std::generic_category(), "log file " + path);
        close(file);
        return std::make_shared<spdlog::sinks::basic_file_sink_mt>(path);
    }

    void takeOverOthers() {
        if (m_tookOver) return;
        m_tookOver = true;
        spdlog::set_default_logger(m_logger);
        static AceBackend& backend = *new AceBackend;
        ACE_Log_Msg::msg_backend(&backend);
        ACE_Log_Msg::instance()->set_flags(ACE_Log_Msg::CUSTOM);
        ACE_Log_Msg::instance()->clr_flags(ACE_Log_Msg::STDERR);
    }

    std::shared_ptr<spdlog::sinks::dist_sink_mt> m_sinks;
    std::shared_ptr<spdlog::logger> m_logger;
    std::atomic<spdlog::level::level_enum> m_kinds[KINDS];
    std::mutex m_starting;
    bool m_tookOver = false;                                         // guarded by m_starting
    static inline thread_local const std::string* t_line = nullptr;  // that is being written
};

spdlog::level::level_enum levelOfAce(unsigned long priority) {
    switch (priority) {
        case LM_TRACE:
            return spdlog::level::trace;
        case LM_DEBUG:
            return spdlog::level::debug;
        case LM_INFO:
        case LM_NOTICE:
            return spdlog::level::info;
        case LM_WARNING:
            return spdlog::level::warn;
        default:
            return spdlog::level::err;
    }
}

ssize_t Log::AceBackend::log(ACE_Log_Record& record) {
    Log& log = Log::instance();
    const spdlog::level::level_enum level = levelOfAce(record.type());
    if (log.passes(level)) log.write(level, "ace", record.msg_data());
    return 0;
}

class ModuleLogger : public CVRXDebugKit {
public:
    explicit ModuleLogger(unsigned int module) : m_module(module), m_origin("module " + std::to_string(module)) {}

    unsigned int module() const { return m_module; }

    void trace(const std::string& text) override {
        if (m_log.passes(KIND_TRACE)) m_log.write(KIND_TRACE, m_origin, text);
    }
    void debug(unsigned long long code, const char* function, unsigned int line, const char* format,
               va_list args) override {
        write(KIND_DEBUG, code, function, line, format, args);
    }
    void warn(unsigned long long code, const char* function, unsigned int line, const char* format,
              va_list args) override {
        write(KIND_WARN, code, function, line, format, args);
    }
    void error(unsigned long long code, const char* function, unsigned int line, const char* format,
               va_list args) override {
        write(KIND_ERROR, code, function, line, format, args);
    }

private:
    void write(Kind kind, unsigned long long code, const char* function, unsigned int line, const char* format,
               va_list args) {
        if (!m_log.passes(kind)) return;
        char number[24];
        std::snprintf(number, sizeof number, "0x%llX", code);
        m_log.write(kind, m_origin,
                    std::string(number) + " " + (function == nullptr ? "?" : function) + ":" + std::to_string(line) +
                        " " + formatted(format, args));
    }

    Log& m_log = Log::instance();
    unsigned int m_module;
    std::string m_origin;
};

LogLevel levelItem(const std::string& key, LogLevel standard) {
    std::string text;
    text = CVRXXmlConfig::instance()->getDeviceItem("LOG", key, text);
    if (text.empty()) return standard;
    for (const tLevelName& known : LEVELS) {
        if (text == known.name) return known.level;
    }
    throw std::invalid_argument("LOG/" + key + ": \"" + text + "\" is none of trace, debug, info, warn, error and off");
}

}  // namespace

LogOptions logOptionsFromDevice() {
    LogOptions options;
    options.threshold = levelItem("LEVEL", options.threshold);
    options.trace = levelItem("LEVEL_TRACE", options.trace);
    options.debug = levelItem("LEVEL_DEBUG", options.debug);
    options.warn = levelItem("LEVEL_WARN", options.warn);
    options.error = levelItem("LEVEL_ERROR", options.error);
    CVRXXmlConfig::instance()->getDeviceItem("LOG", "FILE", options.file);
    if (!options.file.empty()) options.file = productPath(options.file);
    return options;
}

void startLogging(const LogOptions& options) {
    Log::instance().start(options);
    // ACE makes the registry on first use, and two threads that do so at once would race.
    ACE_Unmanaged_Singleton<CVRXDebugKitMgr, ACE_Thread_Mutex>::instance();
}

void logLine(const char* subsystem, LogLevel level, const std::string& text) {
    const spdlog::level::level_enum ofSpdlog = levelOfSpdlog(level);
    if (Log::instance().passes(ofSpdlog)) Log::instance().write(ofSpdlog, subsystem, text);
}

bool isLogged(LogLevel level) {
    return Log::instance().passes(levelOfSpdlog(level));
}

CVRXDebugKitMgr::CVRXDebugKitMgr() = default;
CVRXDebugKitMgr::~CVRXDebugKitMgr() {}  // loggers outlive their registry

CVRXDebugKit* CVRXDebugKitMgr::find(unsigned int module) {
    // Each line of a module asks, mostly for the same logger.
    static std::atomic<ModuleLogger*> last{nullptr};
    ModuleLogger* const known = last.load(std::memory_order_acquire);
    if (known != nullptr && known->module() == module) return known;

    static std::mutex& mutex = *new std::mutex;  // never destroyed: loggers are valid until the process ends
    static auto& loggers = *new std::map<unsigned int, std::unique_ptr<ModuleLogger>>;
    const std::lock_guard<std::mutex> lock(mutex);
    std::unique_ptr<ModuleLogger>& logger = loggers[module];
    if (logger == nullptr) logger = std::make_unique<ModuleLogger>(module);
    last.store(logger.get(), std::memory_order_release);
    return logger.get();
}
