#include "host/agent/informs/inform_users.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "host/snmp/net_snmp.h"
#include "host/snmp/usm_users.h"

namespace vrx {

namespace {

const std::string RECEIVER("\x80\x00\x1f\x88\x04one", 8);
const std::string OTHER_RECEIVER("\x80\x00\x1f\x88\x04two", 8);

InformPeer peer(const std::string& name, char key = 'k') {
    constexpr std::size_t SHA256_BYTES = 32;
    InformPeer one;
    one.version = 3;
    one.name = name;
    one.level = SNMP_SEC_LEVEL_AUTHPRIV;
    one.authentication = NETSNMP_USMAUTH_HMAC192SHA256;
    one.privacy = USM_CREATE_USER_PRIV_AES;
    one.authenticationKey = std::string(SHA256_BYTES, key);
    one.privacyKey = std::string(SHA256_BYTES, key);
    return one;
}

const usmUser* find(const std::string& engine, const std::string& name) {
    return usm_get_user(reinterpret_cast<const u_char*>(engine.data()), engine.size(), name.c_str());
}

class InformUsersTest : public testing::Test {
protected:
    // Null where there can be none.
    InformUsers::Hold acquire(const std::string& engine, const InformPeer& peer) {
        const Expected<InformUsers::Hold> hold = m_users.acquire(engine, peer);
        m_failure = hold.failure();
        return hold ? *hold : nullptr;
    }

    InformUsers m_users;
    std::string m_failure;  // of the last one
};

}  // namespace

TEST_F(InformUsersTest, AUserIsThereWhileItIsHeld) {
    {
        const InformUsers::Hold hold = acquire(RECEIVER, peer("informer"));
        ASSERT_NE(hold, nullptr) << m_failure;
        EXPECT_NE(find(RECEIVER, "informer"), nullptr);
        EXPECT_NE(find(RECEIVER, "informer")->userStorageType, ST_NONVOLATILE);  // never in a file
    }
    EXPECT_EQ(find(RECEIVER, "informer"), nullptr);
}

TEST_F(InformUsersTest, KeysDifferFromEngineToEngine) {
    const InformUsers::Hold one = acquire(RECEIVER, peer("informer"));
    const InformUsers::Hold two = acquire(OTHER_RECEIVER, peer("informer"));
    ASSERT_TRUE(one && two) << m_failure;
    const usmUser* first = find(RECEIVER, "informer");
    const usmUser* second = find(OTHER_RECEIVER, "informer");
    ASSERT_EQ(first->authKeyLen, second->authKeyLen);
    EXPECT_FALSE(std::equal(first->authKey, first->authKey + first->authKeyLen, second->authKey));
    EXPECT_FALSE(std::equal(first->privKey, first->privKey + first->privKeyLen, second->privKey));
}

TEST_F(InformUsersTest, SeveralHoldersShareAUser) {
    InformUsers::Hold one = acquire(RECEIVER, peer("informer"));
    const InformUsers::Hold two = acquire(RECEIVER, peer("informer"));
    one.reset();
    EXPECT_NE(find(RECEIVER, "informer"), nullptr);
}

TEST_F(InformUsersTest, OtherKeysForAUserThatIsHeldAreRefused) {
    const InformUsers::Hold hold = acquire(RECEIVER, peer("informer"));
    EXPECT_EQ(acquire(RECEIVER, peer("informer", 'x')), nullptr);
    EXPECT_EQ(m_failure, "the engine of the receiver has a user of that name with other keys here");
}

TEST_F(InformUsersTest, AUserThatWasTakenAwayMeanwhileIsMadeAgain) {
    const InformUsers::Hold hold = acquire(RECEIVER, peer("informer"));
    usmUser* user = usm_get_user(reinterpret_cast<const u_char*>(RECEIVER.data()), RECEIVER.size(), "informer");
    usm_remove_user(user);
    usm_free_user(user);
    EXPECT_EQ(acquire(RECEIVER, peer("informer")), hold);
    EXPECT_NE(find(RECEIVER, "informer"), nullptr);
}

TEST_F(InformUsersTest, OurOwnEngineGetsNoUser) {
    EXPECT_EQ(acquire(ownEngineId(), peer("informer")), nullptr);
    EXPECT_EQ(m_failure, "the receiver has the engine ID of this agent");
}

TEST_F(InformUsersTest, WithoutKeysTheConfigurationsUserIsUsedAndLeftAlone) {
    InformPeer keyless = peer("known");
    keyless.authenticationKey.clear();
    keyless.privacyKey.clear();
    EXPECT_EQ(acquire(RECEIVER, keyless), nullptr);
    EXPECT_EQ(m_failure, "no createUser line has a user of that name for the receiver's engine");
    std::string line = "-e 0x80001f88046f6e65 known SHA-256 \"some-auth-pass\" AES \"some-priv-pass\"";
    usm_parse_create_usmUser("createUser", line.data());
    ASSERT_NE(find(RECEIVER, "known"), nullptr);
    acquire(RECEIVER, keyless).reset();
    EXPECT_NE(find(RECEIVER, "known"), nullptr);
    EXPECT_EQ(acquire(RECEIVER, peer("known")), nullptr);  // two sets of keys for one user
}

TEST_F(InformUsersTest, AUserWithoutKeysNeedsNone) {
    InformPeer plain = peer("plain");
    plain.level = SNMP_SEC_LEVEL_NOAUTH;
    EXPECT_NE(acquire(RECEIVER, plain), nullptr) << m_failure;
}

TEST_F(InformUsersTest, UsersOfOtherEnginesAreNoneOfThisAgent) {
    const InformUsers::Hold hold = acquire(RECEIVER, peer("informer"));
    UsmUsers users;
    users.refresh();
    EXPECT_FALSE(users.exists("informer"));
}

}  // namespace vrx
