#include "host/base/logging.h"

#include <ace/Log_Msg.h>
#include <ace/Log_Msg_Backend.h>
#include <ace/Log_Record.h>
#include <ace/Singleton.h>
#include <ace/Thread_Mutex.h>
#include <fcntl.h>
#include <spdlog/formatter.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/sinks/dist_sink.h>
#include <spdlog/sinks/stdout_sinks.h>
#include <spdlog/spdlog.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <map>
#include <memory>
#include <stdexcept>
#include <system_error>
#include <vector>

#include "host/base/log_line.h"
#include "host/base/mutex.h"
#include "host/base/product_root.h"
#include "host/log_lines/start.h"
#include "platform/vrx_debug_kit.h"
#include "platform/vrx_xml_config.h"

namespace vrx {

namespace {

constexpr const char* LINE_PATTERN = "%Y-%m-%dT%H:%M:%S.%e%z %l %v";

// priority: as syslog and the journal have it.
struct LevelOfSpdlog {
    LogLevel level;
    spdlog::level::level_enum ofSpdlog;
    int priority;
};

constexpr LevelOfSpdlog LEVELS[] = {
    {LogLevel::Trace, spdlog::level::trace, 7}, {LogLevel::Debug, spdlog::level::debug, 7},
    {LogLevel::Info, spdlog::level::info, 6},   {LogLevel::Warn, spdlog::level::warn, 4},
    {LogLevel::Error, spdlog::level::err, 3},   {LogLevel::Off, spdlog::level::off, 7},
};

constexpr std::size_t ACE = placeOfSubsystem("ace");
constexpr std::size_t MODULE = placeOfSubsystem("module");
constexpr std::size_t OTHERS = placeOfSubsystem("others");

constexpr const char* ALL = "all";

spdlog::level::level_enum levelOfSpdlog(LogLevel level) {
    return LEVELS[static_cast<int>(level)].ofSpdlog;
}

// Whether stderr is the journal's: systemd says which device and inode that has.
bool isJournal() {
    const char* const stream = std::getenv("JOURNAL_STREAM");
    struct stat status = {};
    if (stream == nullptr || ::fstat(STDERR_FILENO, &status) != 0) return false;
    return stream == std::to_string(status.st_dev) + ":" + std::to_string(status.st_ino);
}

// "<4>[agent] text": what the journal takes from a stream.
class JournalFormatter : public spdlog::formatter {
public:
    void format(const spdlog::details::log_msg& message, spdlog::memory_buf_t& line) override {
        const auto* const known = std::find_if(std::begin(LEVELS), std::end(LEVELS), [&](const LevelOfSpdlog& level) {
            return level.ofSpdlog == message.level;
        });
        const int priority =
            known == std::end(LEVELS) ? LEVELS[static_cast<int>(LogLevel::Error)].priority : known->priority;
        const char head[] = {'<', static_cast<char>('0' + priority), '>'};
        line.append(head, head + sizeof head);
        line.append(message.payload.begin(), message.payload.end());
        line.push_back('\n');
    }
    std::unique_ptr<spdlog::formatter> clone() const override { return std::make_unique<JournalFormatter>(); }
};

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
        std::vector<spdlog::sink_ptr> sinks = sinksFor(options.file);

        const MutexLock lock(m_starting);
        m_sinks->set_sinks(std::move(sinks));
        m_file = options.file;
        for (std::size_t i = 0; i < LOG_SUBSYSTEM_COUNT; ++i) {
            const auto own = options.ofSubsystem.find(LOG_SUBSYSTEMS[i]);
            setLevel(i, own == options.ofSubsystem.end() ? options.threshold : own->second);
        }
        m_kinds[KIND_TRACE] = levelOfSpdlog(options.trace);
        m_kinds[KIND_DEBUG] = levelOfSpdlog(options.debug);
        m_kinds[KIND_WARN] = levelOfSpdlog(options.warn);
        m_kinds[KIND_ERROR] = levelOfSpdlog(options.error);
        takeOverOthers();
    }

    void reopenFile() {
        const MutexLock lock(m_starting);
        if (!m_file.empty()) m_sinks->set_sinks(sinksFor(m_file));
    }

    LogLevel level(std::size_t subsystem) const {
        const spdlog::level::level_enum level = m_levels[subsystem].load(std::memory_order_relaxed);
        return std::find_if(std::begin(LEVELS), std::end(LEVELS),
                            [level](const LevelOfSpdlog& known) { return known.ofSpdlog == level; })
            ->level;
    }

    void setLevel(std::size_t subsystem, LogLevel level) {
        m_levels[subsystem].store(levelOfSpdlog(level), std::memory_order_relaxed);
        if (subsystem == OTHERS) m_others->set_level(levelOfSpdlog(level));
    }

    bool passes(std::size_t subsystem, spdlog::level::level_enum level) const {
        return level != spdlog::level::off && level >= m_levels[subsystem].load(std::memory_order_relaxed);
    }
    bool passes(Kind kind) const { return passes(MODULE, m_kinds[kind].load(std::memory_order_relaxed)); }

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
          m_others(std::make_shared<spdlog::logger>("", m_sinks)),
          m_kinds{{spdlog::level::trace}, {spdlog::level::debug}, {spdlog::level::warn}, {spdlog::level::err}} {
        m_sinks->set_sinks(sinksFor(""));
        for (std::size_t i = 0; i < LOG_SUBSYSTEM_COUNT; ++i) setLevel(i, LogOptions().threshold);
        m_logger->set_level(spdlog::level::trace);  // levels are looked at before
        for (const auto& logger : {m_logger, m_others}) {
            logger->flush_on(spdlog::level::trace);  // a log is read after a crash
            logger->set_error_handler(&Log::writePlainly);
        }
    }

    static std::vector<spdlog::sink_ptr> sinksFor(const std::string& file) {
        std::vector<spdlog::sink_ptr> sinks = {std::make_shared<spdlog::sinks::stderr_sink_mt>()};
        if (!file.empty()) sinks.push_back(openFile(file));
        for (const spdlog::sink_ptr& sink : sinks) sink->set_pattern(LINE_PATTERN);
        if (isJournal()) sinks.front()->set_formatter(std::make_unique<JournalFormatter>());
        return sinks;
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

    void takeOverOthers() REQUIRES(m_starting) {
        if (m_tookOver) return;
        m_tookOver = true;
        spdlog::set_default_logger(m_others);
        static AceBackend& backend = *new AceBackend;
        ACE_Log_Msg::msg_backend(&backend);
        ACE_Log_Msg::instance()->set_flags(ACE_Log_Msg::CUSTOM);
        ACE_Log_Msg::instance()->clr_flags(ACE_Log_Msg::STDERR);
    }

    std::shared_ptr<spdlog::sinks::dist_sink_mt> m_sinks;
    std::shared_ptr<spdlog::logger> m_logger;  // of all subsystems but the next
    std::shared_ptr<spdlog::logger> m_others;  // of code that takes spdlog's default logger
    std::atomic<spdlog::level::level_enum> m_levels[LOG_SUBSYSTEM_COUNT] = {};
    std::atomic<spdlog::level::level_enum> m_kinds[KINDS];
    Mutex m_starting;
    std::string m_file GUARDED_BY(m_starting);
    bool m_tookOver GUARDED_BY(m_starting) = false;
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
    if (log.passes(ACE, level)) log.write(level, LOG_SUBSYSTEMS[ACE], record.msg_data());
    return 0;
}

// Lines of one place of a module, within a ModuleLineLimit.
struct ModulePlace {
    unsigned int module;
    Kind kind;
    unsigned long long code;
    std::string function;
    unsigned int line;
    std::uint64_t lines;
};

// The limit of this thread.
struct ModuleLimit {
    bool isSet = false;
    std::uint64_t lines = 0;
    std::vector<ModulePlace> places;
};
thread_local ModuleLimit t_limit;

std::string headOf(unsigned long long code, const char* function, unsigned int line) {
    char number[24];
    std::snprintf(number, sizeof number, "0x%llX", code);
    return std::string(number) + " " + function + ":" + std::to_string(line) + " ";
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
    bool takes(Line line) const override {
        switch (line) {
            case Line::Trace:
                return m_log.passes(KIND_TRACE);
            case Line::Debug:
                return m_log.passes(KIND_DEBUG);
            case Line::Warn:
                return m_log.passes(KIND_WARN);
            default:
                return m_log.passes(KIND_ERROR);
        }
    }

private:
    void write(Kind kind, unsigned long long code, const char* function, unsigned int line, const char* format,
               va_list args) {
        if (!m_log.passes(kind)) return;
        if (function == nullptr) function = "?";
        if (isLeftOut(kind, code, function, line)) return;
        m_log.write(kind, m_origin, headOf(code, function, line) + formatted(format, args));
    }

    bool isLeftOut(Kind kind, unsigned long long code, const char* function, unsigned int line) const {
        if (!t_limit.isSet) return false;
        if (t_limit.lines == 0) return true;
        std::vector<ModulePlace>& places = t_limit.places;
        auto place = std::find_if(places.begin(), places.end(), [&](const ModulePlace& known) {
            return known.line == line && known.kind == kind && known.code == code && known.module == m_module &&
                   known.function == function;
        });
        if (place == places.end()) place = places.insert(place, {m_module, kind, code, function, line, 0});
        return ++place->lines > t_limit.lines;
    }

    Log& m_log = Log::instance();
    unsigned int m_module;
    std::string m_origin;
};

LogLevel levelItem(const std::string& key, LogLevel standard) {
    std::string text;
    text = CVRXXmlConfig::instance()->getDeviceItem("LOG", key, text);
    if (text.empty()) return standard;
    try {
        return logLevelOf(text);
    } catch (const std::invalid_argument& fault) {
        throw std::invalid_argument("LOG/" + key + ": " + fault.what());
    }
}

// LEVEL_OF_AGENT
std::string levelKeyOf(const char* subsystem) {
    std::string key = "LEVEL_OF_";
    for (; *subsystem != '\0'; ++subsystem) {
        key += static_cast<char>(std::toupper(static_cast<unsigned char>(*subsystem)));
    }
    return key;
}

}  // namespace

LogLevel logLevelOf(const std::string& text) {
    for (const LevelOfSpdlog& known : LEVELS) {
        if (text == textOf(known.level)) return known.level;
    }
    throw std::invalid_argument("\"" + text + "\" is none of trace, debug, info, warn, error and off");
}

LogOptions logOptionsFromDevice() {
    LogOptions options;
    options.threshold = levelItem("LEVEL", options.threshold);
    for (const char* subsystem : LOG_SUBSYSTEMS) {
        const LogLevel level = levelItem(levelKeyOf(subsystem), options.threshold);
        if (level != options.threshold) options.ofSubsystem[subsystem] = level;
    }
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

void reopenLogFile() {
    try {
        Log::instance().reopenFile();
    } catch (const std::exception& fault) {
        logLine<lines::LOG_FILE_FAULT>(fault.what());
    }
}

std::vector<std::pair<std::string, LogLevel>> logLevels() {
    std::vector<std::pair<std::string, LogLevel>> levels;
    for (std::size_t i = 0; i < LOG_SUBSYSTEM_COUNT; ++i)
        levels.emplace_back(LOG_SUBSYSTEMS[i], Log::instance().level(i));
    return levels;
}

void setLogLevel(const std::string& subsystem, LogLevel level) {
    const std::size_t place = placeOfSubsystem(subsystem.c_str());
    if (subsystem != ALL && place == LOG_SUBSYSTEM_COUNT) {
        std::string names = ALL;
        for (const char* known : LOG_SUBSYSTEMS) names += std::string(", ") + known;
        throw std::invalid_argument("there is no subsystem \"" + subsystem + "\": " + names);
    }
    for (std::size_t i = 0; i < LOG_SUBSYSTEM_COUNT; ++i) {
        if (subsystem == ALL || i == place) Log::instance().setLevel(i, level);
    }
}

ModuleLineLimit::ModuleLineLimit(std::uint64_t lines) : m_isOutermost(!t_limit.isSet) {
    if (!m_isOutermost) return;
    t_limit.isSet = true;
    t_limit.lines = lines;
}

ModuleLineLimit::~ModuleLineLimit() {
    if (!m_isOutermost) return;
    for (const ModulePlace& place : t_limit.places) {
        if (place.lines <= t_limit.lines) continue;
        try {
            Log::instance().write(place.kind, "module " + std::to_string(place.module),
                                  headOf(place.code, place.function.c_str(), place.line) +
                                      std::to_string(place.lines - t_limit.lines) +
                                      " more lines like this one are left out");
        } catch (const std::exception&) {
            continue;  // no memory to tell it
        }
    }
    t_limit.places.clear();
    t_limit.isSet = false;
}

void writeLogLine(const char* subsystem, LogLevel level, std::string_view text, fmt::format_args values) {
    const std::size_t known = placeOfSubsystem(subsystem);
    const std::size_t place = known < LOG_SUBSYSTEM_COUNT ? known : OTHERS;
    const spdlog::level::level_enum ofSpdlog = levelOfSpdlog(level);
    if (!Log::instance().passes(place, ofSpdlog)) return;
    Log::instance().write(ofSpdlog, subsystem, fmt::vformat({text.data(), text.size()}, values));
}

void writeFaultLine(const char* subsystem, LogLevel level, std::string_view text, fmt::format_args values) noexcept {
    try {
        writeLogLine(subsystem, level, text, values);
    } catch (const std::exception&) {
        char line[1024];
        const auto end = fmt::vformat_to_n(line, sizeof line, {text.data(), text.size()}, values);
        std::fwrite(line, 1, std::min(end.size, sizeof line), stderr);  // has no buffer to allocate
        std::fputc('\n', stderr);
    }
}

}  // namespace vrx

// What platform/ declares has no namespace.
using namespace vrx;

CVRXDebugKitMgr::CVRXDebugKitMgr() = default;
CVRXDebugKitMgr::~CVRXDebugKitMgr() {}  // loggers outlive their registry

CVRXDebugKit* CVRXDebugKitMgr::find(unsigned int module) {
    // Each line of a module asks, mostly for the same logger.
    static std::atomic<ModuleLogger*> last{nullptr};
    ModuleLogger* const known = last.load(std::memory_order_acquire);
    if (known != nullptr && known->module() == module) return known;

    static Mutex& mutex = *new Mutex;  // never destroyed: loggers are valid until the process ends
    static auto& loggers = *new std::map<unsigned int, std::unique_ptr<ModuleLogger>>;
    const MutexLock lock(mutex);
    std::unique_ptr<ModuleLogger>& logger = loggers[module];
    if (logger == nullptr) logger = std::make_unique<ModuleLogger>(module);
    last.store(logger.get(), std::memory_order_release);
    return logger.get();
}
