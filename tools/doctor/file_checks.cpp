// Files and folders: there, readable by the agent, nobody else's; room for more; times that can be.
#include <fcntl.h>
#include <fmt/format.h>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/timex.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <system_error>

#include "host/base/file_descriptor.h"
#include "host/base/product_root.h"
#include "platform/vrx_xml_config.h"
#include "tools/definition_files.h"
#include "tools/doctor/checks.h"
#include "tools/doctor/facts.h"
#include "tools/doctor/report.h"

namespace vrx {

namespace {

namespace fs = std::filesystem;

constexpr mode_t READ = S_IROTH;
constexpr mode_t SEARCH = S_IXOTH;

// Whether the mode lets the user do it; `right` is a bit of the others'.
bool allows(const struct stat& status, const ServiceUser& user, mode_t right) {
    constexpr unsigned int BITS_OF_ONE = 3;
    if (user.id == 0) return true;
    if (status.st_uid == user.id) return (status.st_mode & (right << (2 * BITS_OF_ONE))) != 0;
    const bool member = std::find(user.groups.begin(), user.groups.end(), status.st_gid) != user.groups.end();
    return (status.st_mode & (member ? right << BITS_OF_ONE : right)) != 0;
}

// The folder or file on the way that keeps the user from reading it; "" for none.
std::string obstacleTo(const fs::path& path, const ServiceUser& user) {
    fs::path place;
    for (const fs::path& part : path) {
        place /= part;
        struct stat status {};
        if (::stat(place.c_str(), &status) != 0) return "";  // the one before it was the obstacle, or there is none
        const bool isFolder = S_ISDIR(status.st_mode);
        if (!allows(status, user, isFolder && place != path ? SEARCH : READ)) return place.string();
    }
    return "";
}

struct NeededFile {
    std::string path;
    const char* why;
    const char* remedy;
};

void checkFile(const NeededFile& file, const Facts& facts, Report& report) {
    struct stat status {};
    std::error_code error;
    if (::stat(file.path.c_str(), &status) != 0) {
        if (errno == EACCES && !facts.mayLook) {
            report.notChecked(file.path, std::strerror(errno));
        } else {
            report.fault(file.path, std::string("It cannot be found: ") + std::strerror(errno) + ".", file.why,
                         file.remedy);
        }
        return;
    }
    if (!S_ISREG(status.st_mode)) {
        report.fault(file.path, "It is no regular file.", file.why, "ls -ld " + file.path);
        return;
    }
    const fs::path path = fs::canonical(file.path, error);
    if (error) return;
    if (const std::string obstacle = obstacleTo(path, facts.service); !obstacle.empty()) {
        const bool isFolder = obstacle != path;  // told once, not for each file in it
        if (!isFolder) {
            report.fault(file.path, "The agent's user, " + facts.service.name + ", may not read it.", file.why,
                         "setfacl -m u:" + facts.service.name + ":r " + obstacle);
        } else if (!report.names(obstacle)) {
            report.fault(obstacle, "The agent's user, " + facts.service.name + ", may not enter this folder.", file.why,
                         "setfacl -m u:" + facts.service.name + ":x " + obstacle);
        }
    }
    if ((status.st_mode & S_IWOTH) != 0) {
        report.warning(file.path, "Everybody may write it.", "Any user of this machine can change what the agent does.",
                       "chmod o-w " + file.path);
    }
}

constexpr const char* PACKAGE = "apt install --reinstall -o Dpkg::Options::=--force-confmiss vrx";

std::string ownerName(uid_t owner) {
    const passwd* const entry = ::getpwuid(owner);
    return entry != nullptr ? entry->pw_name : std::to_string(owner);
}

bool isDatabase(const fs::path& path) {
    constexpr std::string_view MARK = "SQLite format 3";
    const FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    std::array<char, MARK.size()> begin{};
    const ssize_t size = file ? ::read(file.get(), begin.data(), begin.size()) : -1;
    return size == 0 || (size == static_cast<ssize_t>(MARK.size()) &&
                         MARK == std::string_view(begin.data(), begin.size()));  // an empty one is a new one
}

struct StateFile {
    const char* name;
    const char* why;  // of one that is no database, as it should be
};
constexpr StateFile DATABASES[] = {
    {"backend.db", "It holds the alarms: the backend does not start."},
    {"trap_destinations.db", "It holds the trap destinations: alarm events wait, and no trap is sent."},
    {"notifications.db", "It holds the number of the last event: which traps are still due is not known."},
    {"notification_log.db", "It holds the notifications that were sent: none is logged."},
    {"informs.db", "It holds the informs that wait for their acknowledgement: none is kept."},
};

void checkDatabases(const fs::path& state, Report& report) {
    for (const StateFile& file : DATABASES) {
        const fs::path path = state / file.name;
        std::error_code error;
        if (!fs::exists(path, error) || error) continue;
        if (!fs::is_regular_file(path, error)) {
            report.fault(path, "It is no regular file.", file.why, "ls -ld " + path.string());
        } else if (!isDatabase(path)) {
            report.fault(path, "It is no database.", file.why,
                         "systemctl stop vrx-agentd vrx-backendd\nmv " + path.string() + " " + path.string() +
                             ".bad   # or put a backup there\nsystemctl start vrx-backendd vrx-agentd");
        }
    }
}

// Of everything below the state: whose it is, and whether it is from the future.
// The first file of a kind of fault, and how many there are.
struct Faulty {
    fs::path first;
    std::size_t count = 0;

    void add(const fs::path& path) {
        if (count++ == 0) first = path;
    }

    // After what is wrong with the first one.
    std::string others() const {
        return count == 1 ? "." : fmt::format("; {} other {} the same.", count - 1, count == 2 ? "is" : "are");
    }
};

// Of everything below the state: whose it is, and who may use it.
void checkTree(const fs::path& state, const Facts& facts, Report& report) {
    constexpr std::size_t MOST = 10000;
    constexpr mode_t OTHERS = S_IRWXG | S_IRWXO;
    constexpr mode_t OWNER = S_IRUSR | S_IWUSR;
    Faulty strange;
    Faulty open;
    Faulty locked;
    uid_t stranger = 0;
    std::size_t seen = 0;
    std::error_code error;
    for (fs::recursive_directory_iterator it(state, error); !error && it != fs::recursive_directory_iterator();
         it.increment(error)) {
        if (++seen > MOST) {
            report.notChecked(state, "it holds more than " + std::to_string(MOST) + " files");
            break;
        }
        struct stat status {};
        if (::lstat(it->path().c_str(), &status) != 0) continue;  // gone meanwhile
        if (status.st_uid != facts.service.id) {
            if (strange.count == 0) stranger = status.st_uid;
            strange.add(it->path());
        }
        if (!S_ISREG(status.st_mode)) continue;
        if ((status.st_mode & OTHERS) != 0) open.add(it->path());
        const bool isMine = status.st_uid == facts.service.id && facts.service.id != 0;
        if (isMine && (status.st_mode & OWNER) != OWNER) locked.add(it->path());
    }
    if (error) report.notChecked(state, error.message());
    const std::string all = state.string() + "/";
    if (strange.count != 0) {
        report.fault(strange.first,
                     fmt::format("It belongs to {}, not to the agent's user, {}{}", ownerName(stranger),
                                 facts.service.name, strange.others()),
                     "The agent cannot read or replace it: keys, alarms or trap destinations are not kept. It was "
                     "probably started by hand as another user.",
                     "chown -R " + facts.service.name + " " + all);
    }
    if (open.count != 0) {
        report.warning(open.first, "Others than its owner may use it" + open.others(),
                       "State holds keys of SNMPv3 users, communities and alarms.", "chmod -R go= " + all);
    }
    if (locked.count != 0) {
        report.fault(locked.first, "Its owner may not read and write it" + locked.others(),
                     "The agent cannot use what it holds, nor keep anything new.", "chmod -R u+rwX " + all);
    }
}

// What is to be a socket and is something else keeps its server from starting.
void checkSockets(const fs::path& state, Report& report) {
    constexpr struct {
        const char* name;
        const char* server;
    } SOCKETS[] = {{"agent.sock", "vrx-agentd"}, {"backend.sock", "vrx-backendd"}};
    for (const auto& [name, server] : SOCKETS) {
        const fs::path path = state / name;
        std::error_code error;
        const fs::file_status status = fs::symlink_status(path, error);
        if (!fs::exists(status) || fs::is_socket(status)) continue;
        report.fault(path, "It is no socket.",
                     fmt::format("It is where {} listens, which therefore does not start.", server),
                     fmt::format("rm {}\nsystemctl restart {}", path.string(), server));
    }
}

}  // namespace

void checkAccount(const Facts& facts, Report& report) {
    if (facts.mayLook) return;
    report.warning("account", "You may not look into the state: keys, destinations and sockets.",
                   "Only root and " + facts.service.name + " may: most of what can be wrong was not checked.",
                   "sudo " + facts.vrxctl("doctor"));
}

void checkFiles(const Facts& facts, Report& report) {
    checkFile({productPath("conf/device.xml"), "Neither the agent nor the backend starts without it.", PACKAGE}, facts,
              report);
    struct stat status {};
    const std::string configuration = directivesPath();
    if (::stat(configuration.c_str(), &status) == 0 || errno != ENOENT ||
        ::lstat(configuration.c_str(), &status) == 0) {
        checkFile({configuration, "The agent starts without users, addresses and limits of yours.", PACKAGE}, facts,
                  report);
    } else {
        report.warning(configuration, "It does not exist.",
                       "The agent listens on the loopback address and lets nobody in.", PACKAGE);
    }
    checkFile(
        {productPath("mibs/VRX-TAMREL-MIB.xml"), "The agent cannot load its module, and does not start.", PACKAGE},
        facts, report);
    for (const std::string& path :
         {configuredDefinitionFiles().definitions, configuredDefinitionFiles().enumerations}) {
        if (path.empty()) continue;
        checkFile({path, "No trap is sent and the table of alarms is an error until it can be read.", PACKAGE}, facts,
                  report);
    }
}

void checkState(const Facts& facts, Report& report) {
    const fs::path state = productPath("state");
    std::error_code error;
    const fs::file_status link = fs::symlink_status(state, error);
    if (!fs::exists(link)) return;  // made at the first start
    struct stat status {};
    if (::stat(state.c_str(), &status) != 0 || !S_ISDIR(status.st_mode)) {
        report.fault(state, "It is no folder.", "Agent and backend keep all their state there, and do not start.",
                     fs::is_symlink(link) ? "systemd-tmpfiles --create" : "ls -ld " + state.string());
        return;
    }
    constexpr mode_t OTHERS = S_IRWXG | S_IRWXO;
    if ((status.st_mode & OTHERS) != 0) {
        report.warning(state, "Others than its owner may look into it.",
                       "It holds the keys of SNMPv3 users, and the sockets by which agent and backend are controlled.",
                       "chmod 0700 " + state.string() + "/");
    }
    if (facts.service.id != 0 && (status.st_mode & S_IRWXU) != S_IRWXU) {
        report.fault(state, "Its owner may not write into it.", "Agent and backend keep nothing, and do not start.",
                     "chmod 0700 " + state.string() + "/");
    }
    if (!facts.mayLook) return;
    checkTree(state, facts, report);
    checkSockets(state, report);
    checkDatabases(state, report);
}

void judgeSpace(const std::string& folder, std::uint64_t freeBytes, std::uint64_t freeFiles, Report& report) {
    constexpr std::uint64_t MEBIBYTE = std::uint64_t{1} << 20U;
    constexpr std::uint64_t FULL = 10 * MEBIBYTE;  // what a burst of alarms writes
    constexpr std::uint64_t LOW = 100 * MEBIBYTE;
    constexpr std::uint64_t FEW_FILES = 100;
    const char* const why =
        "On a full disk alarms are refused, trap destinations cannot be changed, and what was sent is not logged.";
    const std::string remedy = "df -h " + folder + "\ndu -xh " + folder + "/ | sort -h | tail";
    const std::string room = fmt::format("{} MiB are free.", freeBytes / MEBIBYTE);
    if (freeBytes < FULL) {
        report.fault(folder, "The disk is full: " + room, why, remedy);
    } else if (freeFiles < FEW_FILES) {
        report.fault(folder, fmt::format("The file system has room for {} more files only.", freeFiles), why,
                     "df -i " + folder);
    } else if (freeBytes < LOW) {
        report.warning(folder, "The disk is nearly full: " + room, why, remedy);
    }
}

void checkDiskSpace(const Facts& facts, Report& report) {
    std::string value;
    value = CVRXXmlConfig::instance()->getDeviceItem("LOG", "FILE", value);
    const fs::path log = value.empty() ? fs::path() : fs::path(productPath(value)).parent_path();
    for (const fs::path& folder : {fs::path(productPath("state")), log}) {
        if (folder.empty() || (!facts.mayLook && folder != log)) continue;
        struct statvfs status {};
        if (::statvfs(folder.c_str(), &status) == 0) {
            // A file system that does not count its files says 0 of 0.
            judgeSpace(folder, std::uint64_t{status.f_bavail} * status.f_frsize,
                       status.f_files == 0 ? UINT64_MAX : status.f_favail, report);
        } else if (folder == log) {
            report.fault(folder,
                         std::string("The folder of the log file cannot be used: ") + std::strerror(errno) + ".",
                         "The agent does not start when it cannot open its log file (LOG/FILE of conf/device.xml).",
                         "install -d -o " + facts.service.name + " " + folder.string());
        } else if (errno != ENOENT) {
            report.notChecked(folder, std::strerror(errno));
        }
    }
}

void checkClock(const Facts& facts, Report& report) {
    constexpr std::chrono::minutes SLACK{2};
    const auto now = fs::file_time_type::clock::now();
    std::error_code error;
    const fs::path program = fs::read_symlink("/proc/self/exe", error);
    const char* const why =
        "Traps and alarms carry this time, and SNMPv3 receivers refuse messages of an engine whose time went back.";
    if (const auto made = fs::last_write_time(program, error); !error && made > now + SLACK) {
        report.fault("clock", "It is before the time at which this program was installed.", why,
                     "timedatectl set-ntp true; timedatectl");
        return;
    }
    if (!facts.mayLook) return;
    fs::path newest;
    auto latest = now + SLACK;
    for (fs::recursive_directory_iterator it(productPath("state") + "/", error);
         !error && it != fs::recursive_directory_iterator(); it.increment(error)) {
        std::error_code gone;
        const auto written = it->last_write_time(gone);
        if (gone || written <= latest) continue;
        latest = written;
        newest = it->path();
    }
    if (!newest.empty()) {
        report.warning("clock",
                       "It is behind " + newest.string() + ", which was written in its future: it was set back.", why,
                       "timedatectl   # is it right now, and synchronized?");
    }
    struct timex state {};
    const int result = ::adjtimex(&state);
    if (result == TIME_ERROR || (state.status & STA_UNSYNC) != 0)
        report.notChecked("the clock's time", "the kernel knows no source to compare it with (timedatectl)");
}

}  // namespace vrx
