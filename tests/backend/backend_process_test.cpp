// vrx-backendd as a process: its options, its exit codes, and what a kill leaves behind.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <sysexits.h>
#include <unistd.h>

#include <atomic>
#include <fstream>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "host/transport/backend_client.h"
#include "host/transport/backend_result.h"
#include "tests/backend/test_support.h"

namespace vrx {

namespace {

using std::chrono::milliseconds;

std::string contentsOf(const std::string& path) {
    std::ifstream file(path);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

// One run of the program; what it writes to standard error goes to a file. Killed at the end of the scope.
class Program {
public:
    Program(const std::vector<std::string>& arguments, const std::string& logPath) : m_logPath(logPath) {
        std::vector<std::string> words{VRX_BACKENDD};
        words.insert(words.end(), arguments.begin(), arguments.end());
        std::vector<char*> argv;
        argv.reserve(words.size() + 1);
        for (std::string& word : words) argv.push_back(word.data());
        argv.push_back(nullptr);
        ::unlink(logPath.c_str());  // so that no one takes what the run before said for this one's
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, logPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
        EXPECT_EQ(::posix_spawn(&m_pid, VRX_BACKENDD, &actions, nullptr, argv.data(), environ), 0);
        posix_spawn_file_actions_destroy(&actions);
    }
    ~Program() {
        if (m_pid > 0) (void)end(SIGKILL);
    }
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    std::string log() const { return contentsOf(m_logPath); }
    bool isReady() const {
        return eventually([this] { return log().find("ready") != std::string::npos; });
    }
    // Sends a signal, waits for the end and gives the exit code, or -1 when the signal ended it.
    int end(int signal) {
        ::kill(m_pid, signal);
        return exitCode();
    }
    int exitCode() {
        int status = 0;
        ::waitpid(m_pid, &status, 0);
        m_pid = 0;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

private:
    std::string m_logPath;
    pid_t m_pid = 0;
};

constexpr char COMMANDS[] = R"(
  <section name="COMMAND">
    <item key="GET_SYSTEM_WWN" value="1001"/>
    <item key="GET_BACKEND_STATUS" value="1002"/>
    <item key="GET_CURRENT_ALARM" value="2001"/>
    <item key="CLEAR_ALARM" value="2002"/>
    <item key="RAISE_ALARM" value="2003"/>
    <item key="SUBSCRIBE_ALARM" value="2004"/>
  </section>)";

class BackendProcessTest : public testing::Test {
protected:
    BackendProcessTest() : m_options(optionsFor(unixAddress(m_directory.file("state/backend.sock")))) {
        ::mkdir(m_directory.file("conf").c_str(), 0700);
        writeDevice(std::string(COMMANDS) +
                    R"(<section name="BACKEND"><item key="ADDRESS" value="unix:state/backend.sock"/></section>)");
    }

    void writeDevice(const std::string& sections) {
        std::ofstream(m_directory.file("conf/device.xml"))
            << "<?xml version=\"1.0\"?>\n<device>" << sections << "\n</device>\n";
    }
    std::unique_ptr<Program> run(const std::vector<std::string>& more = {}) {
        std::vector<std::string> arguments{"--root", m_directory.path()};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return std::make_unique<Program>(arguments, m_directory.file("log"));
    }
    // The exit code of a run that is to fail; its log is in m_lastLog.
    int failingRun(const std::vector<std::string>& more = {}) {
        const auto program = run(more);
        const int code = program->exitCode();
        m_lastLog = program->log();
        return code;
    }

    static int askWwn(BackendClient& client) {
        CR8KPackageV3 request;
        CR8KPackageV3 answer;
        request.append(makeRecord(testCommands().getSystemWwn));
        return client.call(request, answer);
    }
    // The serial number of a new alarm, 0 when the backend did not acknowledge it.
    static unsigned int raise(BackendClient& client) {
        CR8KPackageV3 request;
        CR8KPackageV3 answer;
        auto record = makeRecord(testCommands().raiseAlarm);
        appendUint64(*record, alarm_tag::ID, 77);
        appendUint32(*record, alarm_tag::LEVEL, 3);
        appendText(*record, alarm_tag::PARAMETERS, "p");
        request.append(std::move(record));
        return client.call(request, answer) == BACKEND_OK ? uint32Of(*answer[0], alarm_tag::SERIAL) : 0;
    }
    static std::set<unsigned int> activeSerials(BackendClient& client) {
        std::set<unsigned int> serials;
        for (unsigned int start = 0;;) {
            CR8KPackageV3 request;
            CR8KPackageV3 answer;
            auto record = makeRecord(testCommands().getCurrentAlarm);
            appendUint32(*record, alarm_tag::SERIAL, start);
            appendUint32(*record, alarm_tag::COUNT, 50);
            request.append(std::move(record));
            EXPECT_EQ(client.call(request, answer), BACKEND_OK);
            if (answer.records().empty()) return serials;
            for (const CTLVRecordV3* alarm : answer.records())
                serials.insert(start = uint32Of(*alarm, alarm_tag::SERIAL));
        }
    }

    TemporaryDirectory m_directory;
    BackendOptions m_options;
    std::string m_lastLog;
};

}  // namespace

TEST_F(BackendProcessTest, ServesUntilSigtermAndExitsWithSuccess) {
    for (const int signal : {SIGTERM, SIGINT}) {
        const auto program = run();
        ASSERT_TRUE(program->isReady()) << program->log();
        BackendClient client(m_options);
        EXPECT_EQ(askWwn(client), BACKEND_OK);
        EXPECT_EQ(program->end(signal), EX_OK);
        EXPECT_NE(::access(m_options.address.path.c_str(), F_OK), 0);
    }
}

TEST_F(BackendProcessTest, TheAddressOfTheCommandLineTakesPrecedence) {
    const std::string address = "tcp:127.0.0.1:" + std::to_string(freeTcpPort());
    const auto program = run({"--address", address});
    ASSERT_TRUE(program->isReady()) << program->log();
    BackendClient client(optionsFor(parseLocalAddress(address, "")));
    EXPECT_EQ(askWwn(client), BACKEND_OK);
}

TEST_F(BackendProcessTest, ADelayedAnswerRunsIntoAShorterDeadlineAndNotIntoALongerOne) {
    const auto program = run({"--delay-ms", "200"});
    ASSERT_TRUE(program->isReady()) << program->log();
    BackendOptions hasty = m_options;
    hasty.callDeadline = milliseconds(50);
    BackendClient hastyClient(hasty);
    EXPECT_EQ(askWwn(hastyClient), BACKEND_TIMEOUT);
    BackendClient patientClient(m_options);
    EXPECT_EQ(askWwn(patientClient), BACKEND_OK);
}

TEST_F(BackendProcessTest, TheEnvironmentNamesTheRootWhereTheCommandLineDoesNot) {
    ASSERT_EQ(::setenv("VRX_ROOT", m_directory.path().c_str(), 1), 0);
    const Program program({}, m_directory.file("log"));
    ::unsetenv("VRX_ROOT");
    EXPECT_TRUE(program.isReady()) << program.log();
}

TEST_F(BackendProcessTest, AMissingDeviceConfigurationIsAConfigurationError) {
    ::unlink(m_directory.file("conf/device.xml").c_str());
    EXPECT_EQ(failingRun(), EX_CONFIG);
    EXPECT_NE(m_lastLog.find("conf/device.xml"), std::string::npos) << m_lastLog;
}

TEST_F(BackendProcessTest, AnUnknownOptionIsAUsageError) {
    EXPECT_EQ(failingRun({"--nonsense"}), EX_USAGE);
}

TEST_F(BackendProcessTest, HelpIsASuccess) {
    EXPECT_EQ(failingRun({"--help"}), EX_OK);
}

TEST_F(BackendProcessTest, AFaultyAddressIsAConfigurationError) {
    EXPECT_EQ(failingRun({"--address", "udp:1"}), EX_CONFIG);
    EXPECT_NE(m_lastLog.find("backend address: \"udp:1\" begins with neither \"unix:\" nor \"tcp:\""),
              std::string::npos)
        << m_lastLog;
}

TEST_F(BackendProcessTest, AMissingCommandCodeIsAConfigurationError) {
    writeDevice(R"(<section name="COMMAND"><item key="GET_SYSTEM_WWN" value="1001"/></section>)");
    EXPECT_EQ(failingRun(), EX_CONFIG);
    EXPECT_NE(m_lastLog.find("device configuration: COMMAND/GET_BACKEND_STATUS is \"\", which is no command code"),
              std::string::npos)
        << m_lastLog;
}

TEST_F(BackendProcessTest, ACommandCodeGivenTwiceIsAConfigurationError) {
    std::string commands = COMMANDS;
    commands.replace(commands.find("2002"), 4, "2001");
    writeDevice(commands);
    EXPECT_EQ(failingRun(), EX_CONFIG);
    EXPECT_NE(
        m_lastLog.find("device configuration: commands GET_CURRENT_ALARM and CLEAR_ALARM have the same code 2001"),
        std::string::npos)
        << m_lastLog;
}

TEST_F(BackendProcessTest, ANumberOutOfRangeIsAConfigurationError) {
    writeDevice(std::string(COMMANDS) +
                R"(<section name="BACKEND"><item key="PACKAGE_LIMIT_BYTES" value="1"/></section>)");
    EXPECT_EQ(failingRun(), EX_CONFIG);
    EXPECT_NE(m_lastLog.find("device configuration: BACKEND/PACKAGE_LIMIT_BYTES is \"1\", which is no number from "
                             "131072 to 1073741824"),
              std::string::npos)
        << m_lastLog;
}

TEST_F(BackendProcessTest, ASecondBackendOfTheSameRootIsRefused) {
    const auto program = run();
    ASSERT_TRUE(program->isReady()) << program->log();
    Program second({"--root", m_directory.path()}, m_directory.file("log2"));
    EXPECT_EQ(second.exitCode(), EX_UNAVAILABLE);
    BackendClient client(m_options);
    EXPECT_EQ(askWwn(client), BACKEND_OK);
}

TEST_F(BackendProcessTest, AStoreThatIsNoDatabaseIsAnInputError) {
    ::mkdir(m_directory.file("state").c_str(), 0700);
    std::ofstream(m_directory.file("state/backend.db")) << std::string(4096, 'x');
    EXPECT_EQ(failingRun(), EX_IOERR);
    EXPECT_NE(m_lastLog.find("file is not a database"), std::string::npos) << m_lastLog;
}

TEST_F(BackendProcessTest, ADamagedPageEndsTheStartWithTheFilesNameOrTheStoreIsServed) {
    const std::string file = m_directory.file("state/backend.db");
    {
        const auto program = run();
        ASSERT_TRUE(program->isReady()) << program->log();
        BackendClient client(m_options);
        for (int i = 0; i < 200; ++i) ASSERT_NE(raise(client), 0U);
        EXPECT_EQ(program->end(SIGTERM), EX_OK);
    }
    std::ifstream in(file, std::ios::binary);
    const std::string whole{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    constexpr std::size_t PAGE = 4096;
    std::size_t refused = 0;
    for (std::size_t page = PAGE; page + PAGE <= whole.size(); page += PAGE) {
        std::string damaged = whole;
        damaged.replace(page, PAGE, PAGE, '\xA5');
        std::ofstream(file, std::ios::binary) << damaged;
        const auto program = run();
        const auto says = [&](const char* text) { return program->log().find(text) != std::string::npos; };
        ASSERT_TRUE(eventually([&] { return says("ready\n") || says("alarm store: "); })) << program->log();
        if (says("ready\n")) {
            EXPECT_EQ(program->end(SIGTERM), EX_OK);
            continue;
        }
        EXPECT_EQ(program->exitCode(), EX_IOERR) << program->log();
        EXPECT_NE(program->log().find("alarm store: " + file + ": "), std::string::npos) << program->log();
        ++refused;
    }
    EXPECT_GT(refused, 0U);
}

TEST_F(BackendProcessTest, AKilledBackendStartsAgainOverItsSocketFile) {
    auto program = run();
    ASSERT_TRUE(program->isReady()) << program->log();
    program->end(SIGKILL);
    ASSERT_EQ(::access(m_options.address.path.c_str(), F_OK), 0);
    program = run();
    ASSERT_TRUE(program->isReady()) << program->log();
    BackendClient client(m_options);
    EXPECT_EQ(askWwn(client), BACKEND_OK);
}

TEST_F(BackendProcessTest, KilledWhileItAnswersTheTransportGoesOnWithTheNextOneAndLogsEachChangeOnce) {
    const LogCapture log;
    auto program = run({"--delay-ms", "50"});
    ASSERT_TRUE(program->isReady()) << program->log();
    BackendClient client(m_options);
    ASSERT_EQ(askWwn(client), BACKEND_OK);
    std::atomic<bool> killed{false};
    std::thread killer([&] {
        program->end(SIGKILL);
        killed = true;
    });
    // Calls follow each other, nearly always one is under way; the kill ends one of them.
    while (!killed) (void)askWwn(client);
    killer.join();
    for (int number = 0; number < 20; ++number) EXPECT_EQ(askWwn(client), BACKEND_UNREACHABLE);

    program = run();
    ASSERT_TRUE(program->isReady()) << program->log();
    EXPECT_TRUE(eventually([&client] { return askWwn(client) == BACKEND_OK; }));
    const std::vector<std::string> lines = log.linesWith("the management backend at ");
    const std::string reachable =
        "info [transport] the management backend at " + m_options.address.text() + " is reachable";
    ASSERT_EQ(lines.size(), 3U);
    EXPECT_EQ(lines[0], reachable);
    EXPECT_EQ(lines[1].find("warning [transport] the management backend at " + m_options.address.text() +
                            " is not reachable: "),
              0U);
    EXPECT_EQ(lines[2], reachable);
}

TEST_F(BackendProcessTest, NoAcknowledgedAlarmIsLostByKills) {
    std::set<unsigned int> acknowledged;
    for (int round = 0; round < 10; ++round) {
        const auto program = run();
        ASSERT_TRUE(program->isReady()) << program->log();
        BackendClient client(m_options);
        std::atomic<std::size_t> raised{0};
        std::thread killer([&] {
            EXPECT_TRUE(eventually([&raised, round] { return raised >= static_cast<std::size_t>(5 * (round + 1)); }));
            program->end(SIGKILL);
        });
        for (unsigned int serial = raise(client); serial != 0; serial = raise(client)) {
            EXPECT_TRUE(acknowledged.insert(serial).second) << "serial number " << serial << " was given twice";
            ++raised;
        }
        killer.join();
    }
    const auto program = run();
    ASSERT_TRUE(program->isReady()) << program->log();
    BackendClient client(m_options);
    const std::set<unsigned int> active = activeSerials(client);
    for (const unsigned int serial : acknowledged) EXPECT_EQ(active.count(serial), 1U) << serial;
}

}  // namespace vrx
