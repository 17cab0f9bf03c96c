#include "host/base/logging.h"

#include <ace/Log_Msg.h>
#include <ace/Singleton.h>
#include <ace/Thread_Mutex.h>
#include <gmock/gmock.h>
#include <spdlog/spdlog.h>
#include <sys/stat.h>

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <map>
#include <new>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "host/base/device_config.h"
#include "host/base/log_line.h"
#include "module/vrx_debug_kit_guard.h"
#include "platform/vrx_debug_kit.h"
#include "tests/base/temporary_root.h"

namespace vrx {

namespace {

// A value that finds no memory the first time.
struct Starved {};
unsigned int formats = 0;  // of such values

}  // namespace

}  // namespace vrx

template <>
struct fmt::formatter<vrx::Starved> {
    constexpr auto parse(format_parse_context& context) { return context.begin(); }
    template <typename Context>
    auto format(const vrx::Starved&, Context& context) const {
        if (++vrx::formats == 1) throw std::bad_alloc();
        return fmt::format_to(context.out(), "memory");
    }
};

namespace vrx {

namespace {

constexpr LogRow WARNING{"agent", LogLevel::Warn, "{} has {} rows", "", ""};
constexpr LogRow DETAIL{"agent", LogLevel::Debug, "no {}", "", ""};
constexpr LogRow FAULT{"agent", LogLevel::Error, "no {}: {}", "", ""};

using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;
using testing::SizeIs;

constexpr unsigned int MODULE = 4;

using vrx::logLine;

// A text that is no row, for subsystems that no row has.
void logLine(const char* subsystem, LogLevel level, const std::string& text) {
    writeLogLine(subsystem, level, "{}", fmt::make_format_args(text));
}

CVRXDebugKitMgr& registry() {
    return *ACE_Unmanaged_Singleton<CVRXDebugKitMgr, ACE_Thread_Mutex>::instance();
}

enum class Kind { Debug, Warn, Error };

__attribute__((format(printf, 2, 3))) void write(Kind kind, const char* format, ...) {
    CVRXDebugKit& logger = *registry().find(MODULE);
    va_list args;
    va_start(args, format);
    if (kind == Kind::Debug) logger.debug(0xFFFF, "work", 12, format, args);
    if (kind == Kind::Warn) logger.warn(0x1002C, "work", 34, format, args);
    if (kind == Kind::Error) logger.error(0x1002E, "work", 56, format, args);
    va_end(args);
}

class Logging : public testing::Test {
protected:
    void SetUp() override { use({}); }

    // The options, with a file of the test's.
    void use(LogOptions options) {
        options.file = m_root.pathOf("log");
        startLogging(options);
    }

    // The file's lines without their time, and whether that has the right form.
    std::vector<std::string> lines() {
        static const std::regex form(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}[+-]\d\d:?\d\d)");
        std::vector<std::string> found;
        std::ifstream file(m_root.pathOf("log"));
        for (std::string line; std::getline(file, line);) {
            const std::size_t blank = line.find(' ');
            EXPECT_TRUE(std::regex_match(line.substr(0, blank), form)) << line;
            found.push_back(line.substr(blank + 1));
        }
        return found;
    }

    TemporaryRoot m_root;
};

TEST_F(Logging, ModulesLinesShowCodeFunctionLineAndText) {
    LogOptions options;
    options.threshold = LogLevel::Trace;
    use(options);
    registry().find(MODULE)->trace("enter f...");
    write(Kind::Debug, "alarm %llu", 18446744073709551615ULL);
    write(Kind::Warn, "%s", "look");
    write(Kind::Error, "unknown trap index:%s.", "7");
    EXPECT_THAT(lines(),
                ElementsAre("trace [module 4] enter f...", "debug [module 4] 0xFFFF work:12 alarm 18446744073709551615",
                            "warning [module 4] 0x1002C work:34 look",
                            "error [module 4] 0x1002E work:56 unknown trap index:7."));
}

TEST_F(Logging, GuardsOfModulesWriteThere) {
    LogOptions options;
    options.threshold = LogLevel::Trace;
    use(options);
    {
        CVRXDebugKitGuard guard(MODULE, "int f()");
        guard.setResult(false);
    }
    EXPECT_THAT(lines(), ElementsAre("trace [module 4] enter int f()...", "trace [module 4] leave int f(): NOK"));
}

TEST_F(Logging, DebugAndTraceAreOffByDefault) {
    registry().find(MODULE)->trace("hidden");
    write(Kind::Debug, "hidden");
    write(Kind::Warn, "shown");
    EXPECT_THAT(lines(), ElementsAre("warning [module 4] 0x1002C work:34 shown"));
}

TEST_F(Logging, KindOfLineCanGetAnotherLevel) {
    LogOptions options;
    options.debug = LogLevel::Info;
    options.error = LogLevel::Warn;
    options.warn = LogLevel::Off;
    use(options);
    write(Kind::Debug, "raised");
    write(Kind::Warn, "dropped");
    write(Kind::Error, "lowered");
    EXPECT_THAT(lines(),
                ElementsAre("info [module 4] 0xFFFF work:12 raised", "warning [module 4] 0x1002E work:56 lowered"));
}

TEST_F(Logging, ModulesLearnWhichLinesGoSomewhere) {
    using Line = CVRXDebugKit::Line;
    const CVRXDebugKit& logger = *registry().find(MODULE);
    EXPECT_FALSE(logger.takes(Line::Trace));
    EXPECT_FALSE(logger.takes(Line::Debug));
    EXPECT_TRUE(logger.takes(Line::Warn));
    EXPECT_TRUE(logger.takes(Line::Error));
    LogOptions options;
    options.trace = LogLevel::Info;
    options.warn = LogLevel::Debug;
    options.error = LogLevel::Off;
    use(options);
    EXPECT_TRUE(logger.takes(Line::Trace));
    EXPECT_FALSE(logger.takes(Line::Warn));
    EXPECT_FALSE(logger.takes(Line::Error));
}

TEST_F(Logging, ThresholdOffDropsEverything) {
    LogOptions options;
    options.threshold = LogLevel::Off;
    use(options);
    write(Kind::Error, "hidden");
    logLine("agent", LogLevel::Error, "hidden");
    logLine("agent", LogLevel::Off, "hidden");
    EXPECT_THAT(lines(), IsEmpty());
}

TEST_F(Logging, LinesOfTheHostShowTheirSubsystem) {
    logLine("agent", LogLevel::Info, "ready");
    logLine("agent", LogLevel::Debug, "hidden");
    logLine("agent", LogLevel::Off, "hidden");
    EXPECT_THAT(lines(), ElementsAre("info [agent] ready"));
}

TEST_F(Logging, ARowIsWrittenWithItsValues) {
    logLine<WARNING>("table", 7u);
    EXPECT_THAT(lines(), ElementsAre("warning [agent] table has 7 rows"));
}

TEST_F(Logging, ARowThatItsLevelLeavesOutIsNotFormatted) {
    formats = 0;
    logLine<DETAIL>(Starved());
    EXPECT_EQ(formats, 0U);
    EXPECT_THAT(lines(), IsEmpty());
}

TEST_F(Logging, ALineWithoutMemoryIsAnException) {
    formats = 0;
    EXPECT_THROW(logLine<FAULT>(Starved(), "now"), std::bad_alloc);
}

TEST_F(Logging, AFaultWithoutMemoryGoesToStandardErrorAsItIs) {
    formats = 0;
    testing::internal::CaptureStderr();
    logFault<FAULT>(Starved(), "now");
    logFault<FAULT>("time", "now");
    EXPECT_THAT(testing::internal::GetCapturedStderr(), testing::StartsWith("no memory: now\n2"));
    EXPECT_THAT(lines(), ElementsAre("error [agent] no time: now"));
}

TEST_F(Logging, AFaultWithoutMemoryIsCutToItsBuffer) {
    formats = 0;
    testing::internal::CaptureStderr();
    logFault<FAULT>(Starved(), std::string(5000, 'x'));
    EXPECT_THAT(testing::internal::GetCapturedStderr(), AllOf(testing::StartsWith("no memory: xx"), SizeIs(1025)));
}

TEST_F(Logging, EachModuleHasOneLoggerForEver) {
    CVRXDebugKit* const logger = registry().find(MODULE);
    EXPECT_EQ(registry().find(MODULE), logger);
    EXPECT_NE(registry().find(MODULE + 1), logger);
    use({});
    EXPECT_EQ(registry().find(MODULE), logger);
}

TEST_F(Logging, ControlCharactersAreShownAsEscapesSoThatAnEventIsOneLine) {
    logLine("agent", LogLevel::Info, "a\nb\r\x1B[31m\x7F\tc\xC3\xA4\n");
    EXPECT_THAT(lines(), ElementsAre("info [agent] a\\nb\\x0D\\x1B[31m\\x7F\tc\xC3\xA4"));
}

TEST_F(Logging, BracesAndPercentSignsOfATextAreLeftAlone) {
    logLine("agent", LogLevel::Info, "{} %s {0}");
    write(Kind::Error, "%s", "{} %s {0}");
    EXPECT_THAT(lines(), ElementsAre("info [agent] {} %s {0}", "error [module 4] 0x1002E work:56 {} %s {0}"));
}

TEST_F(Logging, LongTextsAreWhole) {
    const std::string text(100000, 'x');
    write(Kind::Error, "%s", text.c_str());
    EXPECT_THAT(lines(), ElementsAre("error [module 4] 0x1002E work:56 " + text));
}

TEST_F(Logging, TextsAroundTheSizeOfTheInnerBufferAreWhole) {
    for (const std::size_t length : {510U, 511U, 512U, 513U})
        write(Kind::Error, "%s", std::string(length, 'x').c_str());
    const std::string head = "error [module 4] 0x1002E work:56 ";
    EXPECT_THAT(lines(), ElementsAre(head + std::string(510, 'x'), head + std::string(511, 'x'),
                                     head + std::string(512, 'x'), head + std::string(513, 'x')));
}

TEST_F(Logging, AceMessagesOfAnyThreadGoThere) {
    std::thread([] { ACE_ERROR((LM_ERROR, "%s broken\n", "package")); }).join();
    ACE_DEBUG((LM_WARNING, "careful\n"));
    ACE_DEBUG((LM_DEBUG, "hidden\n"));
    EXPECT_THAT(lines(), ElementsAre("error [ace] package broken", "warning [ace] careful"));
}

TEST_F(Logging, SpdlogsDefaultLoggerGoesThere) {
    spdlog::warn("of a library");
    EXPECT_THAT(lines(), ElementsAre("warning of a library"));
}

TEST_F(Logging, LinesGoToStandardErrorToo) {
    testing::internal::CaptureStderr();
    logLine("agent", LogLevel::Info, "ready");
    EXPECT_THAT(testing::internal::GetCapturedStderr(), EndsWith(" info [agent] ready\n"));
}

TEST_F(Logging, FileIsNotForEverybody) {
    struct stat status = {};
    ASSERT_EQ(stat(m_root.pathOf("log").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0007U, 0U);
}

TEST_F(Logging, FileThatCannotBeWrittenChangesNothing) {
    LogOptions options;
    options.threshold = LogLevel::Off;
    options.file = m_root.pathOf("no/such/folder");
    EXPECT_THROW(startLogging(options), std::runtime_error);
    logLine("agent", LogLevel::Info, "still here");
    EXPECT_THAT(lines(), ElementsAre("info [agent] still here"));
}

TEST_F(Logging, RestartAppendsToTheFile) {
    logLine("agent", LogLevel::Info, "one");
    use({});
    logLine("agent", LogLevel::Info, "two");
    EXPECT_THAT(lines(), ElementsAre("info [agent] one", "info [agent] two"));
}

TEST_F(Logging, LinesOfManyThreadsStayWholeWhileOptionsChange) {
    constexpr int THREADS = 4;
    constexpr int LINES = 200;
    std::vector<std::thread> threads;
    threads.reserve(THREADS);
    for (int i = 0; i < THREADS; ++i) {
        threads.emplace_back([] {
            for (int n = 0; n < LINES; ++n) {
                logLine("agent", LogLevel::Info, "whole");
                registry().find(MODULE)->trace("hidden");
            }
        });
    }
    for (int i = 0; i < 20; ++i) use({});
    for (std::thread& thread : threads) thread.join();
    EXPECT_THAT(lines(), AllOf(testing::SizeIs(THREADS * LINES), testing::Each("info [agent] whole")));
}

std::map<std::string, LogLevel> levels() {
    const auto list = logLevels();
    return {list.begin(), list.end()};
}

TEST_F(Logging, ASubsystemsLevelHoldsForItsLinesAlone) {
    setLogLevel("agent", LogLevel::Debug);
    setLogLevel("events", LogLevel::Off);
    setLogLevel("module", LogLevel::Error);
    setLogLevel("ace", LogLevel::Debug);
    logLine("agent", LogLevel::Debug, "shown");
    logLine("events", LogLevel::Error, "hidden");
    logLine("transport", LogLevel::Debug, "hidden");
    write(Kind::Warn, "hidden");
    write(Kind::Error, "shown");
    ACE_DEBUG((LM_DEBUG, "shown\n"));
    EXPECT_THAT(lines(),
                ElementsAre("debug [agent] shown", "error [module 4] 0x1002E work:56 shown", "debug [ace] shown"));
}

TEST_F(Logging, LevelsOfAllAreSetAtOnceAndGoBackWithTheNextStart) {
    EXPECT_THAT(levels(), testing::Each(testing::Pair(testing::_, LogLevel::Info)));
    setLogLevel("all", LogLevel::Error);
    EXPECT_THAT(levels(), testing::Each(testing::Pair(testing::_, LogLevel::Error)));
    LogOptions options;
    options.threshold = LogLevel::Warn;
    options.ofSubsystem["transport"] = LogLevel::Trace;
    use(options);
    EXPECT_EQ(levels().at("agent"), LogLevel::Warn);
    EXPECT_EQ(levels().at("transport"), LogLevel::Trace);
}

TEST_F(Logging, WhatIsInNoTableIsAmongTheOthers) {
    setLogLevel("others", LogLevel::Warn);
    logLine("something", LogLevel::Info, "hidden");
    logLine("something", LogLevel::Warn, "shown");
    spdlog::info("hidden");
    EXPECT_THAT(lines(), ElementsAre("warning [something] shown"));
}

TEST_F(Logging, ASubsystemThatThereIsNotIsRefusedWithTheListOfThoseThereAre) {
    try {
        setLogLevel("agents", LogLevel::Info);
        FAIL() << "no exception";
    } catch (const std::invalid_argument& error) {
        EXPECT_THAT(error.what(), testing::StartsWith("there is no subsystem \"agents\": all, ace, agent, backend, "));
    }
}

TEST_F(Logging, OfEachPlaceOfAModuleALimitLetsTheFirstLinesPassAndCountsTheOthers) {
    {
        const ModuleLineLimit limit(2);
        for (int i = 0; i < 60'000; ++i) {
            write(Kind::Warn, "warning %d", i);
            if (i < 2) write(Kind::Error, "error %d", i);
        }
        logLine("agent", LogLevel::Info, "the host's own");
    }
    write(Kind::Warn, "after it");
    EXPECT_THAT(lines(),
                ElementsAre("warning [module 4] 0x1002C work:34 warning 0", "error [module 4] 0x1002E work:56 error 0",
                            "warning [module 4] 0x1002C work:34 warning 1", "error [module 4] 0x1002E work:56 error 1",
                            "info [agent] the host's own",
                            "warning [module 4] 0x1002C work:34 59998 more lines like this one are left out",
                            "warning [module 4] 0x1002C work:34 after it"));
}

TEST_F(Logging, ALimitWithinAnotherOneIsNone) {
    const ModuleLineLimit outer(2);
    {
        const ModuleLineLimit inner(1);
        write(Kind::Warn, "one");
        write(Kind::Warn, "two");
    }
    write(Kind::Warn, "three");
    EXPECT_THAT(lines(),
                ElementsAre("warning [module 4] 0x1002C work:34 one", "warning [module 4] 0x1002C work:34 two"));
}

TEST_F(Logging, ALimitOfNoneIsSilent) {
    {
        const ModuleLineLimit limit(0);
        write(Kind::Error, "one");
    }
    EXPECT_THAT(lines(), IsEmpty());
}

TEST_F(Logging, ALimitIsOfItsThread) {
    const ModuleLineLimit limit(1);
    write(Kind::Warn, "here");
    std::thread([] {
        write(Kind::Warn, "there");
        write(Kind::Warn, "there, too");
    }).join();
    EXPECT_THAT(lines(), SizeIs(3));
}

TEST_F(Logging, AFileThatWasMovedAwayIsOpenedAnew) {
    logLine("agent", LogLevel::Info, "one");
    std::filesystem::rename(m_root.pathOf("log"), m_root.pathOf("log.1"));
    logLine("agent", LogLevel::Info, "two");
    reopenLogFile();
    logLine("agent", LogLevel::Info, "three");
    EXPECT_THAT(lines(), ElementsAre("info [agent] three"));
}

TEST_F(Logging, AFileThatCannotBeOpenedAnewGoesOn) {
    std::filesystem::rename(m_root.pathOf("log"), m_root.pathOf("log.1"));
    std::filesystem::create_directory(m_root.pathOf("log"));
    testing::internal::CaptureStderr();
    reopenLogFile();
    EXPECT_THAT(testing::internal::GetCapturedStderr(), testing::HasSubstr(" error [agent] log file "));
    std::ifstream former(m_root.pathOf("log.1"));
    std::string line;
    std::getline(former, line);
    EXPECT_THAT(line, testing::HasSubstr(" error [agent] log file "));
}

// Where stderr is the journal, as the service manager says.
class JournalLogging : public Logging {
protected:
    void SetUp() override {
        testing::internal::CaptureStderr();
        setStream(0);
    }
    void TearDown() override {
        ::unsetenv("JOURNAL_STREAM");
        use({});
    }

    // The environment names the stream that stderr is, or one that is so many inodes off.
    void setStream(unsigned long off) {
        struct stat status = {};
        ASSERT_EQ(::fstat(STDERR_FILENO, &status), 0);
        const std::string stream = std::to_string(status.st_dev) + ":" + std::to_string(status.st_ino + off);
        ::setenv("JOURNAL_STREAM", stream.c_str(), 1);
        LogOptions options;
        options.threshold = LogLevel::Trace;
        use(options);
    }
};

TEST_F(JournalLogging, LinesHaveTheirPriorityAndNoTime) {
    logLine("agent", LogLevel::Error, "one");
    logLine("agent", LogLevel::Warn, "two\nhalves");
    logLine("agent", LogLevel::Info, "three");
    logLine("agent", LogLevel::Debug, "four");
    registry().find(MODULE)->trace("five");
    spdlog::critical("six");
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "<3>[agent] one\n<4>[agent] two\\nhalves\n<6>[agent] three\n<7>[agent] four\n<7>[module 4] five\n"
              "<3>six\n");
    EXPECT_THAT(lines(), testing::Contains("error [agent] one"));  // the file stays as it is
}

TEST_F(JournalLogging, AnotherStreamThanStderrIsNoJournal) {
    setStream(1);
    logLine("agent", LogLevel::Info, "ready");
    EXPECT_THAT(testing::internal::GetCapturedStderr(), EndsWith(" info [agent] ready\n"));
}

// What the module writes of an alarm: one text of 16 lines, as CTamrelNotifyMsgHandler::dump_alarm_info hands it over.
TEST_F(Logging, AnAlarmsDumpIsOneRecordWhoeverWritesBesides) {
    constexpr int THREADS = 4;
    constexpr int DUMPS = 50;
    std::string dump = "the content of alarm is \n";
    std::string record = "warning [module 4] 0x1002C work:34 the content of alarm is \\n";
    for (int binding = 1; binding <= 15; ++binding) {
        const std::string row = "Binding " + std::to_string(binding) + " --- value";
        dump += row + "\n";
        record += row + (binding < 15 ? "\\n" : "");
    }
    std::vector<std::thread> threads;
    threads.reserve(THREADS);
    for (int i = 0; i < THREADS; ++i) {
        threads.emplace_back([&dump] {
            for (int n = 0; n < DUMPS; ++n) write(Kind::Warn, "%s", dump.c_str());
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_THAT(lines(), AllOf(testing::SizeIs(THREADS * DUMPS), testing::Each(record)));
}

class LogOptionsOfDevice : public Logging {
protected:
    LogOptions optionsWith(const std::string& items) {
        m_root.write("conf/device.xml", "<device><section name='LOG'>" + items + "</section></device>");
        reloadDeviceConfig();
        return logOptionsFromDevice();
    }
};

TEST_F(LogOptionsOfDevice, DefaultsHoldWhereNothingIsConfigured) {
    const LogOptions options = optionsWith("");
    EXPECT_EQ(options.threshold, LogLevel::Info);
    EXPECT_EQ(options.trace, LogLevel::Trace);
    EXPECT_EQ(options.debug, LogLevel::Debug);
    EXPECT_EQ(options.warn, LogLevel::Warn);
    EXPECT_EQ(options.error, LogLevel::Error);
    EXPECT_EQ(options.file, "");
}

TEST_F(LogOptionsOfDevice, EachKeyIsRead) {
    const LogOptions options = optionsWith(
        "<item key='LEVEL' value='debug'/><item key='LEVEL_TRACE' value='off'/><item key='LEVEL_DEBUG' value='info'/>"
        "<item key='LEVEL_WARN' value='error'/><item key='LEVEL_ERROR' value='warn'/><item key='FILE' value='log/x'/>");
    EXPECT_EQ(options.threshold, LogLevel::Debug);
    EXPECT_EQ(options.trace, LogLevel::Off);
    EXPECT_EQ(options.debug, LogLevel::Info);
    EXPECT_EQ(options.warn, LogLevel::Error);
    EXPECT_EQ(options.error, LogLevel::Warn);
    EXPECT_EQ(options.file, m_root.pathOf("log/x"));
}

TEST_F(LogOptionsOfDevice, SubsystemsHaveKeysOfTheirOwn) {
    const LogOptions options = optionsWith(
        "<item key='LEVEL' value='warn'/><item key='LEVEL_OF_AGENT' value='debug'/>"
        "<item key='LEVEL_OF_TRANSPORT' value='warn'/><item key='LEVEL_OF_MODULE' value='off'/>");
    EXPECT_EQ(options.threshold, LogLevel::Warn);
    const std::map<std::string, LogLevel> own = {{"agent", LogLevel::Debug}, {"module", LogLevel::Off}};
    EXPECT_EQ(options.ofSubsystem, own);
}

TEST_F(LogOptionsOfDevice, UnknownLevelOfASubsystemNamesItsKey) {
    try {
        optionsWith("<item key='LEVEL_OF_EVENTS' value='loud'/>");
        FAIL() << "no exception";
    } catch (const std::invalid_argument& error) {
        EXPECT_STREQ(error.what(), "LOG/LEVEL_OF_EVENTS: \"loud\" is none of trace, debug, info, warn, error and off");
    }
}

TEST_F(LogOptionsOfDevice, UnknownLevelNamesItsKey) {
    try {
        optionsWith("<item key='LEVEL_WARN' value='loud'/>");
        FAIL() << "no exception";
    } catch (const std::invalid_argument& error) {
        EXPECT_STREQ(error.what(), "LOG/LEVEL_WARN: \"loud\" is none of trace, debug, info, warn, error and off");
    }
}

}  // namespace

}  // namespace vrx
