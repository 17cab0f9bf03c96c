#include "tools/user_commands.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <regex>
#include <sstream>
#include <string>

#include "host/base/whole_file.h"
#include "tests/base/temporary_root.h"

namespace vrx {

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
    ASSERT_TRUE(std::regex_search(said, keys, std::regex(R"(\(SHA-256\): +(\S+)\n.*\(AES\): +(\S+)\n)")));
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
    std::ostringstream out;
    addUser(out, "oncall", UserAccess::ReadOnly);
    EXPECT_EQ(m_root.read("outside"), "untouched");
    expectAgentsOwn(STATE, 0600);
}

TEST_F(UserBeforeTheStart, ALinkBesideTheConfigurationLeadsNobodyOutOfIt) {
    const std::string outside = m_root.write("outside", "untouched");
    std::filesystem::create_symlink(outside, m_configuration + ".new");
    std::ostringstream out;
    addUser(out, "oncall", UserAccess::ReadOnly);
    EXPECT_EQ(m_root.read("outside"), "untouched");
    EXPECT_FALSE(std::filesystem::is_symlink(m_configuration));
    EXPECT_EQ(m_root.read("etc/vrx-agentd.conf"), "sysName vrx\nrouser operator priv\nrouser oncall priv\n");
}

TEST_F(UserBeforeTheStart, WhatIsReplacedStaysBesideIt) {
    std::ostringstream out;
    addUser(out, "oncall", UserAccess::ReadOnly);
    const std::string state = m_root.read(STATE);
    EXPECT_EQ(m_root.read("etc/vrx-agentd.conf.last"), "sysName vrx\nrouser operator priv\n");
    addUser(out, "other", UserAccess::ReadOnly);
    EXPECT_EQ(m_root.read(std::string(STATE) + ".last"), state);
    EXPECT_EQ(m_root.read(STATE).rfind(state, 0), 0U);
}

TEST_F(UserBeforeTheStart, NoFileIsReplacedThatCannotBeReadOrIsNotWhole) {
    std::filesystem::create_directory(m_root.pathOf("state/net-snmp"));
    give("state/net-snmp", 0700);
    std::ostringstream out;
    for (const std::string content : {"", "usmUser 1 3 0x80\n", "createUser oncall SHA-256 \"abc"}) {
        m_root.write(STATE, content);
        give(STATE, 0600);
        EXPECT_THROW(addUser(out, "oncall", UserAccess::ReadOnly), WholeFileError) << content;
        EXPECT_EQ(m_root.read(STATE), content);
        EXPECT_EQ(m_root.read("etc/vrx-agentd.conf"), "sysName vrx\nrouser operator priv\n");
    }
    for (const std::string& path : {m_root.pathOf(STATE), m_configuration}) {
        std::filesystem::remove(m_root.pathOf(STATE));
        std::filesystem::remove(path);
        std::filesystem::create_symlink(path, path);  // even root cannot read that
        EXPECT_THROW(addUser(out, "oncall", UserAccess::ReadOnly), WholeFileError) << path;
        EXPECT_TRUE(std::filesystem::is_symlink(path)) << path;
    }
    EXPECT_EQ(out.str(), "");
}

TEST_F(UserBeforeTheStart, OtherProtocolsAreThoseOfTheLine) {
    std::ostringstream out;
    addUser(out, "oncall", UserAccess::ReadOnly, {"SHA", "DES"});
    std::smatch keys;
    const std::string said = out.str();
    ASSERT_TRUE(
        std::regex_search(said, keys, std::regex(R"(\(SHA\): +(\S+)\n.*\(DES\): +(\S+)\n.*-a SHA -A .*-x DES )")));
    EXPECT_EQ(m_root.read(STATE), "createUser oncall SHA \"" + keys[1].str() + "\" DES \"" + keys[2].str() + "\"\n");
}

}  // namespace

}  // namespace vrx
