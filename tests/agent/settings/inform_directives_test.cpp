#include "host/agent/settings/inform_directives.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "host/snmp/net_snmp.h"

namespace vrx {

namespace {

using std::chrono::milliseconds;
using testing::ElementsAre;

constexpr const char* TYPE = "inform-words";

class InformDirectivesTest : public testing::Test {
protected:
    InformDirectivesTest() {
        std::string name = (std::filesystem::temp_directory_path() / "words-XXXXXX").string();
        if (::mkdtemp(name.data()) == nullptr) throw std::runtime_error("no temporary folder");
        m_folder = name;
        netsnmp_ds_set_string(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_APPTYPE, TYPE);
        registerInformDirectives(m_words);
    }
    ~InformDirectivesTest() override {
        unregister_all_config_handlers();
        std::filesystem::remove_all(m_folder);
    }

    void read(const std::string& lines) {
        const std::string path = m_folder + "/words.conf";
        std::ofstream(path) << lines;
        read_config_with_type(path.c_str(), TYPE);
    }
    const InformPeer& peer(std::size_t place = 0) { return m_words.destinations.at(place).peer; }
    const InformPolicy& policy(std::size_t place = 0) { return m_words.destinations.at(place).policy; }

    std::string m_folder;
    InformDirectives m_words;
};

}  // namespace

TEST_F(InformDirectivesTest, AnInformsinkIsAReceiverOfVersion2c) {
    read("informsink 192.0.2.1 secret 1162\n");
    EXPECT_EQ(peer().host, "192.0.2.1");
    EXPECT_EQ(peer().port, 1162U);
    EXPECT_EQ(peer().version, 2U);
    EXPECT_EQ(peer().name, "secret");
    EXPECT_EQ(policy().trapType, 1U);
    EXPECT_EQ(policy().queueLimit, 20000U);
    EXPECT_EQ(policy().firstRetry, milliseconds(5000));
    EXPECT_EQ(policy().longestBackoff, milliseconds(30000));
    EXPECT_FALSE(policy().retries.has_value());
}

TEST_F(InformDirectivesTest, ReceiversAreWrittenInManyWays) {
    read(
        "informsink 192.0.2.1 c\n"
        "informsink 192.0.2.1:1162 c\n"
        "informsink udp:192.0.2.1:1163 c\n"
        "informsink udp:nms.example.com c\n"
        "informsink NMS.example.com.:1162 c\n"
        "informsink 2001:db8::1 c\n"
        "informsink udp6:[2001:db8::1]:1162 c\n"
        "informsink [2001:DB8::1]:1163 c\n");
    std::vector<std::string> names;
    for (const InformDestination& one : m_words.destinations) names.push_back(one.name());
    EXPECT_THAT(names,
                ElementsAre("192.0.2.1:162", "192.0.2.1:1162", "192.0.2.1:1163", "nms.example.com:162",
                            "nms.example.com:1162", "[2001:db8::1]:162", "[2001:db8::1]:1162", "[2001:db8::1]:1163"));
}

TEST_F(InformDirectivesTest, AUserHasKeysOfItsPassphrases) {
    read(
        "trapsess -Ci -v3 -u informer -l authPriv -a SHA-256 -A \"a long passphrase\" -x AES -X other-passphrase "
        "nms:1162\n");
    EXPECT_EQ(peer().version, 3U);
    EXPECT_EQ(peer().name, "informer");
    EXPECT_EQ(peer().level, SNMP_SEC_LEVEL_AUTHPRIV);
    EXPECT_EQ(peer().authentication, NETSNMP_USMAUTH_HMAC192SHA256);
    EXPECT_EQ(peer().privacy, USM_CREATE_USER_PRIV_AES);
    EXPECT_EQ(peer().authenticationKey.size(), 32U);
    EXPECT_EQ(peer().privacyKey.size(), 32U);
    EXPECT_NE(peer().authenticationKey, peer().privacyKey);
    EXPECT_EQ(peer().authenticationKey.find("passphrase"), std::string::npos);
    EXPECT_EQ(m_words.destinations[0].name(), "nms:1162");
}

TEST_F(InformDirectivesTest, ArgumentsAreThoseOfSnmpcmd) {
    read(
        "trapsess -C i -v 3 -uplain -e 0x80001f8804aa -E 80001f8804bb -n context -r 5 -t 2.5 192.0.2.1\n"
        "trapsess -v2c -c secret -Ci 192.0.2.2\n");
    ASSERT_EQ(m_words.destinations.size(), 2U);
    EXPECT_EQ(peer(0).name, "plain");
    EXPECT_EQ(peer(0).level, SNMP_SEC_LEVEL_NOAUTH);
    EXPECT_EQ(peer(0).engineId, std::string("\x80\x00\x1f\x88\x04\xaa", 6));
    EXPECT_EQ(peer(0).contextEngineId, std::string("\x80\x00\x1f\x88\x04\xbb", 6));
    EXPECT_EQ(peer(0).contextName, "context");
    EXPECT_EQ(policy(0).retries, 5U);
    EXPECT_EQ(policy(0).firstRetry, milliseconds(2500));
    EXPECT_EQ(peer(1).version, 2U);
    EXPECT_EQ(peer(1).name, "secret");
}

TEST_F(InformDirectivesTest, OurWordsHoldForTheLinesAfterThem) {
    read(
        "informsink 192.0.2.1 c\n"
        "vrxInformTraps 3\nvrxInformQueue 50\nvrxInformWindow 8\n"
        "vrxInformRetry 200\nvrxInformBackoff 5000\n"
        "informsink 192.0.2.2 c\n"
        "vrxInformTraps 4\n"
        "trapsess -Ci -v2c -c c 192.0.2.3\n");
    ASSERT_EQ(m_words.destinations.size(), 3U);
    EXPECT_EQ(policy(0).trapType, 1U);
    EXPECT_EQ(policy(1).trapType, 3U);
    EXPECT_EQ(policy(0).window, 32U);
    EXPECT_EQ(policy(1).queueLimit, 50U);
    EXPECT_EQ(policy(1).window, 8U);
    EXPECT_EQ(policy(1).firstRetry, milliseconds(200));
    EXPECT_EQ(policy(1).longestBackoff, milliseconds(5000));
    EXPECT_EQ(policy(2).trapType, 4U);
    EXPECT_EQ(policy(2).queueLimit, 50U);
}

TEST_F(InformDirectivesTest, TheLongestBackoffIsNotShorterThanTheFirstRetry) {
    read("vrxInformBackoff 100\ninformsink 192.0.2.1 c\n");
    EXPECT_EQ(policy().longestBackoff, milliseconds(5000));
}

TEST_F(InformDirectivesTest, TwoLinesForOneReceiverAreOneTooMany) {
    read("informsink nms.example.com c 162\ninformsink NMS.example.com other\n");
    ASSERT_EQ(m_words.destinations.size(), 1U);
    EXPECT_EQ(peer().name, "c");
}

TEST_F(InformDirectivesTest, AFaultyLineIsNoReceiver) {
    read(
        "informsink 256.1.1.1 c\n"
        "informsink 192.0.2.1: c\n"
        "informsink [192.0.2.1] c\n"
        "informsink [2001:db8::1]1162 c\n"
        "informsink -profile p 192.0.2.1 c\n"
        "informsink 192.0.2.1 c 162 more\n"
        "trapsess -Ci -v3 -u x -l authPriv -a SHA -A long-enough 192.0.2.1\n"
        "trapsess -Ci -v3 -u x -l authPriv -a SHA -A long-enough -x ROT -X long-enough 192.0.2.1\n"
        "trapsess -Ci -v3 -u x -r -1 192.0.2.1\n"
        "trapsess -Ci -v3 -u x -t -1 192.0.2.1\n"
        "trapsess -Ci -v3 -u x -t nan 192.0.2.1\n"
        "trapsess -Ci -v3 -u x -e 0xzz001f8804 192.0.2.1\n"
        "trapsess -Ci -v3 -u x 192.0.2.1 192.0.2.2\n"
        "trapsess -Cix -Ci -v3 -u x 192.0.2.1\n");
    EXPECT_TRUE(m_words.destinations.empty());
}

}  // namespace vrx
