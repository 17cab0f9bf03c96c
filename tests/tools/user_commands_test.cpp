#include "tools/user_commands.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <regex>
#include <sstream>
#include <string>

#include "tests/services/temporary_root.h"

namespace {

// As an administrator makes users before the agent is started for the first time. The state belongs to another user
// where this one may give it away: a package's user, in the place of which "nobody" stands here.
class UserBeforeTheStart : public testing::Test {
protected:
    static constexpr uid_t NOBODY = 65534;

    UserBeforeTheStart() : m_agent(geteuid() == 0 ? NOBODY : geteuid()), m_group(geteuid() == 0 ? NOBODY : getegid()) {
        chmod(m_root.path().c_str(), 0711);
        m_configuration = m_root.write("etc/vrx-agentd.conf", "sysName vrx\nrouser operator priv\n");
        std::filesystem::create_directory(m_root.pathOf("state"));
        give("state", 0700);
    }

    void give(const std::string& name, mode_t mode) const {
        chmod(m_root.pathOf(name).c_str(), mode);
        EXPECT_EQ(chown(m_root.pathOf(name).c_str(), m_agent, m_group), 0);
    }

    struct stat statusOf(const std::string& name) const {
        struct stat status = {};
        EXPECT_EQ(stat(m_root.pathOf(name).c_str(), &status), 0) << name;
        return status;
    }

    void expectAgentsOwn(const std::string& name, mode_t mode) const {
        const struct stat status = statusOf(name);
        EXPECT_EQ(status.st_uid, m_agent) << name;
        EXPECT_EQ(status.st_gid, m_group) << name;
        EXPECT_EQ(status.st_mode & 0777U, mode) << name;
    }

    TemporaryRoot m_root;
    const uid_t m_agent;
    const gid_t m_group;
    std::string m_configuration;
};

constexpr const char* STATE = "state/net-snmp/vrx-agentd.conf";

TEST_F(UserBeforeTheStart, IsLeftInTheStateAndLetInByTheConfiguration) {
    std::ostringstream out;
    addUser(out, "oncall", UserAccess::ReadWrite);
    EXPECT_EQ(m_root.read("etc/vrx-agentd.conf"), "sysName vrx\nrouser operator priv\nrwuser oncall priv\n");
    std::smatch keys;
    const std::string said = out.str();
    ASSERT_TRUE(std::regex_search(said, keys, std::regex(R"(\(SHA-256\): (\S+)\n.*\(AES\): +(\S+)\n)")));
    EXPECT_EQ(m_root.read(STATE),
              "createUser oncall SHA-256 \"" + keys[1].str() + "\" AES \"" + keys[2].str() + "\"\n");
}

TEST_F(UserBeforeTheStart, TakesThePlaceOfItsFormerLine) {
    std::ostringstream out;
    addUser(out, "operator", UserAccess::ReadWrite);
    EXPECT_EQ(m_root.read("etc/vrx-agentd.conf"), "sysName vrx\nrwuser operator priv\n");
}

TEST_F(UserBeforeTheStart, StateBelongsToTheUserOfTheStateFolder) {
    std::ostringstream out;
    addUser(out, "oncall", UserAccess::ReadOnly);
    addUser(out, "other", UserAccess::ReadOnly);
    expectAgentsOwn("state/net-snmp", 0700);
    expectAgentsOwn(STATE, 0600);
    EXPECT_EQ(geteuid(), getuid());
    EXPECT_EQ(getegid(), getgid());
}

TEST_F(UserBeforeTheStart, TheConfigurationKeepsOwnerAndMode) {
    give("etc/vrx-agentd.conf", 0640);
    std::ostringstream out;
    addUser(out, "oncall", UserAccess::ReadOnly);
    expectAgentsOwn("etc/vrx-agentd.conf", 0640);
}

TEST_F(UserBeforeTheStart, ALinkAmongTheStateLeadsNobodyOutOfIt) {
    const std::string outside = m_root.write("outside", "untouched");
    std::filesystem::create_directory(m_root.pathOf("state/net-snmp"));
    give("state/net-snmp", 0700);
    std::filesystem::create_symlink(outside, m_root.pathOf(STATE) + ".new");
    chmod(outside.c_str(), geteuid() == 0 ? 0644 : 0444);
    std::ostringstream out;
    EXPECT_THROW(addUser(out, "oncall", UserAccess::ReadOnly), std::system_error);
    EXPECT_EQ(m_root.read("outside"), "untouched");
    EXPECT_EQ(m_root.read("etc/vrx-agentd.conf"), "sysName vrx\nrouser operator priv\n");
}

}  // namespace
