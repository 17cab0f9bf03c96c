// configuration_files [--count N] [--seconds S] [--seed N] [--findings FOLDER]: makes configuration files of the agent
// and gives each to its engine, as vrx-agentd --check-config and a reload do. What a line does to the SNMP library's
// parsers is the end of the process, and a finding: so each batch has a process of its own, forked from this one, which
// starts with the first file and takes the others over. A batch that ends early is repeated with a process for each
// file. The same numbers give the same files.
//
// configuration_files [--together] FILE|FOLDER...: checks these, and reloads them.
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <optional>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "fuzz/finding.h"
#include "fuzz/temporary_folder.h"
#include "host/agent/engine/library_directives.h"
#include "host/agent/engine/snmp_engine.h"
#include "host/agent/reload/configuration_check.h"
#include "host/base/logging.h"
#include "host/base/product_root.h"
#include "host/command_line/option_parser.h"
#include "host/snmp/net_snmp.h"

namespace vrx {

namespace {

namespace fs = std::filesystem;

using Random = std::mt19937_64;
using Texts = std::vector<std::string>;

constexpr unsigned int TIMEOUT_SECONDS = 60;  // with a batch

// Lines in order, for each word that the agent takes from the library and for some of its own.
const Texts LINES = {
    R"(createUser admin SHA-256 "admin-auth-pass" AES "admin-priv-pass")",
    R"(createUser -e 0x80001f8804616263 other MD5 some-words DES)",
    R"(createUser plain)",
    R"(createUser keys SHA -m 0x0123456789012345678901234567890123456789 AES -l 0x00112233445566778899001122334455)",
    R"(exactEngineID 0x80001f8804616263)",
    R"(agentAddress udp:127.0.0.1:1161,tcp:127.0.0.1:1161,udp6:[::1]:1161)",
    R"(rouser -s usm admin priv -V all)",
    R"(rwuser admin authpriv .1.3.6.1.2)",
    R"(rocommunity public 127.0.0.1 -V all ctx)",
    R"(rwcommunity private 10.0.0.0/8 .1.3.6.1)",
    R"(rocommunity6 public ::1/128)",
    R"(rwcommunity6 private default)",
    R"(authCommunity log,execute,net public default .1.3)",
    R"(authUser read,write -s usm admin priv -V all ctx*)",
    R"(authGroup read grp auth)",
    R"(authAccess read,notify -s usm grp all noauth)",
    R"(com2sec -Cn ctx local 127.0.0.1/24 public)",
    R"(com2sec6 local fe80::/10 public)",
    R"(group grp usm admin)",
    R"(access grp "" usm priv exact all none none)",
    R"(setaccess grp "" any noauth prefix all read,write)",
    R"(view all included .1.3.6 ff:a0)",
    R"(sysName vrx)",
    R"(sysContact "Night shift" <a@example.org>)",
    R"(sysLocation Room 1, rack 2)",
    R"(sysDescr A system)",
    R"(sysObjectID .1.3.6.1.4.1.99871.2)",
    R"(sysServices 72)",
    R"(trapcommunity traps)",
    R"(authTrapEnable 1)",
    R"(informsink 127.0.0.1 secret 1162)",
    R"(trapsess -Ci -v3 -u x -l authPriv -a SHA-256 -A some-words -x AES -X some-words -t 1.5 -r 3 127.0.0.1:1162)",
    R"(trapsess -Ci -v2c -c public 127.0.0.1:1162)",
    R"(access grp ctx usm priv exact all none none)",
    R"(trapsess -Ci -v 3 -e 0x80001f8804616263 -u admin -l noAuthNoPriv 127.0.0.1)",
    R"(maxGetbulkRepeats 10)",
    R"(maxGetbulkResponses -1)",
    R"(dontLogTCPWrappersConnects yes)",
    R"([snmp] sendMessageMaxSize 1472)",
    R"([snmp] serverRecvBuf 65536)",
    R"([snmp] disableSNMPv1 yes)",
    R"([snmp])",
    R"([vrx-agentd])",
    R"(vrxMetrics tcp:127.0.0.1:9161)",
    R"(vrxMetrics unix:state/metrics.sock)",
    R"(vrxMetrics tcp:[::]:9161 --certificate etc/a.pem --key etc/a.key --clients etc/b.pem)",
    R"(vrxRequestDeadline 5000)",
    R"(vrxInformTraps 4)",
    R"(vrxInformRetry 1000)",
    R"(# nothing)",
};

// What a line may become by mistake, or at the hands of an attacker.
const Texts PIECES = {
    "",
    "0",
    "-1",
    "65535",
    "65536",
    "2147483648",
    "4294967296",
    "99999999999999999999",
    "0x",
    "0x80",
    "0x8",
    "0xzz",
    "0x80001f8804616263",
    "-e",
    "-l",
    "-m",
    "-s",
    "-V",
    "-Cn",
    "-Ci",
    "-v3",
    "-v",
    "-a",
    "-A",
    "-x",
    "-X",
    "-Y",
    "--",
    "-",
    "MD5",
    "SHA",
    "SHA-512",
    "FOO",
    "default",
    "AES-256",
    "DES",
    ".",
    ".1",
    "1.3.6.1.4.1",
    ".1.3.99999999999",
    ".1..3",
    "1.3.",
    "system",
    "SNMPv2-MIB::sysName.0",
    "localhost",
    "127.0.0.1",
    "127.0.0.1/33",
    "127.0.0.1/255.0.0.0",
    "256.1.1.1",
    "::1",
    "::1/129",
    "[::1]:161",
    "udp:",
    "tcp:127.0.0.1:0",
    "foo:bar",
    "unix:/",
    "ssh:127.0.0.1",
    "dtlsudp:127.0.0.1",
    "callback:1",
    "alias:x",
    ",,,",
    "any",
    "usm",
    "v1",
    "v2c",
    "tsm",
    "ksm",
    "included",
    "ff:",
    "ff.zz",
    "\"",
    "\"\"",
    "\"a b\"",
    "'",
    "\\",
    "\\\"",
    "%s%n%s%n",
    "%",
    "\xC3\xBC",
    "\xFF\xFE",
    "#",
    "[",
    "]",
    "[snmp]",
    "[]",
    "/dev/zero",
    "../../etc/passwd",
};

std::size_t below(Random& random, std::size_t limit) {
    return static_cast<std::size_t>(random() % limit);
}

const std::string& anyOf(Random& random, const Texts& texts) {
    return texts[below(random, texts.size())];
}

Texts cut(const std::string& line) {
    std::istringstream in(line);
    return {std::istream_iterator<std::string>(in), std::istream_iterator<std::string>()};
}

std::string joined(const Texts& words) {
    std::string line;
    for (const std::string& word : words) line += (line.empty() ? "" : " ") + word;
    return line;
}

std::string longPiece(Random& random) {
    static constexpr std::array<std::size_t, 12> SIZES = {7, 8, 31, 32, 33, 64, 128, 255, 256, 257, 512, 1024};
    const std::string unit = anyOf(random, {"a", "0", ".1", "\\", "\"", "-", ":", "/", "f", "%n"});
    std::string piece = below(random, 3) == 0 ? "0x" : "";
    for (const std::size_t size = SIZES[below(random, SIZES.size())]; piece.size() < size;) piece += unit;
    return piece;
}

// One change of a line; its word stays mostly.
void damage(std::string& line, Random& random) {
    Texts words = cut(line);
    if (words.empty()) words.emplace_back("createUser");
    const std::size_t at = words.size() == 1 ? 0 : 1 + below(random, words.size() - 1);
    const auto place = words.begin() + static_cast<std::ptrdiff_t>(at);
    switch (below(random, 9)) {
        case 0:
            if (words.size() > 1) words.erase(place);
            break;
        case 1:
            words.resize(at + (words.size() == 1 ? 1 : 0));
            break;
        case 2:
            *place = anyOf(random, PIECES);
            break;
        case 3:
            words.insert(words.size() == 1 ? words.end() : place, anyOf(random, PIECES));
            break;
        case 4:
            *place = longPiece(random);
            break;
        case 5:
            words.insert(place, words[below(random, words.size())]);
            break;
        case 6:
            *place += anyOf(random, PIECES);
            break;
        case 7: {  // an octet of any kind, but for the end of the line
            const char octet = static_cast<char>(random());
            if (!place->empty()) (*place)[below(random, place->size())] = octet == '\n' ? ' ' : octet;
            break;
        }
        default:  // the arguments of another word
            words.resize(1);
            for (const std::string& word : cut(anyOf(random, LINES))) words.push_back(word);
            words.erase(words.begin() + 1);
    }
    line = joined(words);
}

std::string makeFile(Random& random, const Texts& libraryWords) {
    std::string content;
    for (std::size_t lines = 1 + below(random, 5); lines > 0; --lines) {
        std::string line = anyOf(random, LINES);
        if (below(random, 8) == 0) {  // a word that the library knows, and the agent perhaps not
            Texts words = cut(line);
            words[0] = anyOf(random, libraryWords);
            line = joined(words);
        }
        for (std::size_t changes = below(random, 3); changes > 0; --changes) damage(line, random);
        content += line + (below(random, 50) == 0 ? "\r\n" : "\n");
    }
    if (below(random, 20) == 0) content.pop_back();
    if (below(random, 200) == 0) content[below(random, content.size())] = '\0';
    return content;
}

void write(const fs::path& path, const std::string& content) {
    std::ofstream(path, std::ios::binary) << content;
}

struct tOutcome {
    int status = 0;  // of waitpid
    std::string output;
};

// Runs `work` in a process of its own, with its standard output.
template <typename Work>
tOutcome inProcess(const Work& work) {
    std::array<int, 2> ends{};
    if (::pipe(ends.data()) != 0) finding("no pipe");
    (void)fflush(nullptr);
    const pid_t child = ::fork();
    if (child < 0) finding("no process");
    if (child == 0) {
        ::alarm(TIMEOUT_SECONDS);
        ::close(ends[0]);
        std::ostringstream out;
        int code = EXIT_FAILURE;
        try {
            code = work(out);
        } catch (const std::exception& error) {
            (void)fprintf(stderr, "%s\n", error.what());
        }
        const std::string text = out.str();
        for (std::size_t done = 0; done < text.size();) {
            const ssize_t size = ::write(ends[1], text.data() + done, text.size() - done);
            if (size <= 0) break;
            done += static_cast<std::size_t>(size);
        }
        ::_exit(code);
    }
    ::close(ends[1]);
    tOutcome outcome;
    std::array<char, 4096> buffer{};
    for (ssize_t size = 0; (size = ::read(ends[0], buffer.data(), buffer.size())) > 0;) {
        outcome.output.append(buffer.data(), static_cast<std::size_t>(size));
    }
    ::close(ends[0]);
    ::waitpid(child, &outcome.status, 0);
    return outcome;
}

class Checker {
public:
    Checker() {
        fs::create_directories(m_root / "conf");
        fs::create_directories(m_root / "etc");
        write(m_root / "conf/device.xml", "<device/>\n");
        setProductRoot(m_root);
    }

    // What every word of the library is called.
    Texts libraryWords() {
        write(m_file, "");
        const tOutcome outcome = inProcess([this](std::ostream& out) {
            const SnmpEngine engine(m_root, m_root);
            for (const char* section : {SnmpEngine::NAME, LIBRARY_SECTION}) {
                for (const config_line* word = read_config_get_handlers(section); word != nullptr; word = word->next) {
                    out << word->config_token << '\n';
                }
            }
            return EXIT_SUCCESS;
        });
        return cut(outcome.output);
    }

    // What is wrong with how the file was taken, or "".
    std::string check(const std::string& content) {
        write(m_file, content);
        return fault(inProcess([this](std::ostream& out) {
            (void)checkConfiguration(m_root, {}, out);
            return EXIT_SUCCESS;
        }));
    }

    // A start with the first file; the others are taken over one after the other.
    std::string reload(const Texts& contents) {
        return fault(inProcess([&](std::ostream& out) {
            LogOptions silent;
            silent.threshold = LogLevel::Off;
            startLogging(silent);
            const TemporaryFolder state;
            std::optional<SnmpEngine> engine;
            for (const std::string& content : contents) {
                write(m_file, content);
                if (engine) {
                    engine->reload();
                } else {
                    engine.emplace(m_root, state.path());
                }
                for (const std::string& line : engine->configurationFaults()) out << line << '\n';
                if (!engine->configurationFaults().empty()) out << FAULTY << '\n';
            }
            return EXIT_SUCCESS;
        }));
    }

    std::uint64_t filesWithFaults() const { return m_withFaults; }

private:
    std::string fault(const tOutcome& outcome) {
        if (WIFSIGNALED(outcome.status)) return "ended by signal " + std::to_string(WTERMSIG(outcome.status));
        if (WEXITSTATUS(outcome.status) != EXIT_SUCCESS) return "did not end as it should";
        std::istringstream lines(outcome.output);
        for (std::string line; std::getline(lines, line);) {
            if (line == FAULTY) {
                ++m_withFaults;
                continue;
            }
            const std::string place = m_file.string() + ":";
            if (line.rfind(place, 0) != 0 || line.find_first_not_of("0123456789", place.size()) == place.size()) {
                return "a fault without its place: " + line;
            }
        }
        return {};
    }

    static constexpr const char* FAULTY = "a file with faults ends";

    const TemporaryFolder m_folder;
    const fs::path m_root = m_folder.path();
    const fs::path m_file = m_root / "etc/vrx-agentd.conf";
    std::uint64_t m_withFaults = 0;
};

std::string read(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) finding(path.string() + " cannot be read");
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

// The files named, and those of the folders named.
std::vector<fs::path> filesOf(const Texts& names) {
    std::vector<fs::path> files;
    for (const std::string& name : names) {
        const auto before = static_cast<std::ptrdiff_t>(files.size());
        if (fs::is_directory(name)) {
            files.insert(files.end(), fs::directory_iterator(name), fs::directory_iterator());
            std::sort(files.begin() + before, files.end());
        } else {
            files.emplace_back(name);
        }
    }
    return files;
}

int replay(const Texts& names, bool together) {
    Checker checker;
    bool good = true;
    const auto require = [&good](const std::string& what, const std::string& fault) {
        if (fault.empty()) return;
        (void)fprintf(stderr, "%s: %s\n", what.c_str(), fault.c_str());
        good = false;
    };
    Texts contents;
    for (const fs::path& path : filesOf(names)) {
        contents.push_back(read(path));
        if (together) continue;
        require(path, checker.check(contents.back()));
        require(path, checker.reload({contents.back(), contents.back()}));
    }
    if (together) require("all of them", checker.reload(contents));
    return good ? EXIT_SUCCESS : EXIT_FAILURE;
}

struct tLimits {
    std::uint64_t count = std::numeric_limits<std::uint64_t>::max();
    unsigned int seconds = 0;  // 0: no such limit
};

struct tFinding {
    std::string content;
    std::string what;
};

// The files of a batch that are at fault by themselves; all of them, in their order, when none is.
std::vector<tFinding> findingsOf(Checker& checker, const Texts& batch, const std::string& fault) {
    std::vector<tFinding> findings;
    for (const std::string& content : batch) {
        std::string alone = checker.check(content);
        if (alone.empty()) alone = checker.reload({content, content});
        if (!alone.empty()) findings.push_back({content, alone});
    }
    if (findings.empty()) {
        for (const std::string& content : batch) findings.push_back({content, "with those beside it: " + fault});
    }
    return findings;
}

int fuzz(const tLimits& limits, std::uint64_t seed, const fs::path& folder) {
    constexpr std::size_t MOST_FINDINGS = 20;
    constexpr std::size_t BATCH = 20;
    Checker checker;
    const Texts words = checker.libraryWords();
    Random random(seed);
    std::size_t found = 0;
    std::chrono::steady_clock::duration longest{};
    std::uint64_t done = 0;
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(limits.seconds);
    while (done < limits.count && found < MOST_FINDINGS) {
        const auto start = std::chrono::steady_clock::now();
        if (limits.seconds > 0 && start >= end) break;
        Texts batch;
        for (; batch.size() < BATCH && done < limits.count; ++done) batch.push_back(makeFile(random, words));
        const std::string fault = checker.reload(batch);
        longest = std::max(longest, std::chrono::steady_clock::now() - start);
        if (fault.empty()) continue;
        for (const auto& [content, what] : findingsOf(checker, batch, fault)) {
            const fs::path file = folder / ("configuration-" + std::to_string(seed) + "-" + std::to_string(done) + "-" +
                                            std::to_string(++found) + ".conf");
            write(file, content);
            (void)fprintf(stderr, "finding: %s: %s\n", file.c_str(), what.c_str());
        }
    }
    printf("%llu cases, %llu with faults, %zu findings, the longest batch took %.2f s\n",
           static_cast<unsigned long long>(done), static_cast<unsigned long long>(checker.filesWithFaults()), found,
           std::chrono::duration<double>(longest).count());
    return found == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}

}  // namespace

}  // namespace vrx

using namespace vrx;

int main(int argc, char** argv) try {
    OptionParser options("Configuration files of vrx-agentd: made and checked, or those that are named.");
    tLimits limits;
    std::uint64_t seed = 1;
    std::string findings = ".";
    Texts files;
    options.add("--count", limits.count, "so many files at most");
    options.add("--seconds", limits.seconds, "for so long at most");
    options.add("--seed", seed, "other files");
    options.add("--findings", findings, "where files at fault go");
    options.add("FILES", files, "files and folders");
    bool together = false;
    options.addFlag("--together", together, "the first of FILES at a start, the others taken over one after the other");
    if (const std::optional<int> exitCode = options.parse(argc, argv)) return *exitCode;
    return files.empty() ? fuzz(limits, seed, findings) : replay(files, together);
} catch (const std::exception& error) {
    (void)fprintf(stderr, "%s\n", error.what());
    return EXIT_FAILURE;
}
