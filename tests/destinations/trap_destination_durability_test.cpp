// Kills a process that writes destinations, at random moments: what it acknowledged is there, nothing is half there.
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <map>
#include <random>
#include <set>

#include "host/destinations/trap_destination_store.h"
#include "tests/base/temporary_root.h"

namespace vrx {

namespace {

constexpr int CYCLES = 25;

class Writer {
public:
    Writer(const std::string& path, unsigned int firstPort) {
        int ends[2];
        if (pipe(ends) != 0) throw std::runtime_error("no pipe");
        const std::string port = std::to_string(firstPort);
        m_child = fork();
        if (m_child == 0) {
            dup2(ends[1], STDOUT_FILENO);
            close(ends[0]);
            close(ends[1]);
            execl(TRAP_DESTINATION_WRITER, TRAP_DESTINATION_WRITER, path.c_str(), port.c_str(), nullptr);
            _exit(127);
        }
        close(ends[1]);
        m_output = ends[0];
    }

    // Reads acknowledgements until there are `count` more bytes of them, then kills the process; all of them.
    std::string killAfter(std::size_t count) {
        std::string read;
        while (read.size() < count && readSome(read)) {
        }
        kill(m_child, SIGKILL);
        while (readSome(read)) {
        }
        int status = 0;
        waitpid(m_child, &status, 0);
        close(m_output);
        m_killed = WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL;
        return read;
    }
    bool killed() const { return m_killed; }

private:
    bool readSome(std::string& into) const {
        char bytes[64];
        const ssize_t count = ::read(m_output, bytes, sizeof bytes);
        if (count > 0) into.append(bytes, static_cast<std::size_t>(count));
        return count > 0;
    }

    pid_t m_child = -1;
    int m_output = -1;
    bool m_killed = false;
};

TEST(TrapDestinationDurability, KilledWriterLosesNothingItAcknowledgedAndLeavesNothingHalfDone) {
    const TemporaryRoot root;
    const std::string path = root.pathOf("destinations.db");
    std::mt19937 random(20240229);
    std::uniform_int_distribution<std::size_t> bytes(1, 120);
    std::set<unsigned int> acknowledged;
    unsigned int nextPort = 1;
    for (int cycle = 0; cycle < CYCLES; ++cycle) {
        Writer writer(path, nextPort);
        const std::string output = writer.killAfter(bytes(random));
        ASSERT_TRUE(writer.killed()) << "cycle " << cycle;
        for (std::size_t begin = 0, end = 0; (end = output.find('\n', begin)) != std::string::npos; begin = end + 1) {
            acknowledged.insert(static_cast<unsigned int>(std::stoul(output.substr(begin, end - begin))));
        }

        TrapDestinationStore store(path, 100000);
        std::map<unsigned int, int> rowsOfPort;
        for (const tTrapDestInfo& row : store.all()) ++rowsOfPort[row.port];
        for (const unsigned int port : acknowledged) ASSERT_EQ(rowsOfPort.count(port), 1U) << "lost: " << port;
        for (const auto& [port, rows] : rowsOfPort) ASSERT_EQ(rows, 2) << "half there: " << port;
        nextPort = rowsOfPort.empty() ? 1 : rowsOfPort.rbegin()->first + 1;
    }
    EXPECT_GE(acknowledged.size(), static_cast<std::size_t>(CYCLES));
}

}  // namespace

}  // namespace vrx
