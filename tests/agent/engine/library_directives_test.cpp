#include "host/agent/engine/library_directives.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "host/engine_files/user_protocols.h"
#include "host/snmp/net_snmp.h"

namespace vrx {

namespace {

using testing::ElementsAre;

struct tCase {
    const char* word;
    const char* arguments;
};

TEST(LibraryDirectivesTest, WhatIsInOrderHasNoFault) {
    const tCase cases[] = {
        {"createUser", "plain"},
        {"createuser", "x SHA-256 some-words AES \"other words\""},
        {"createUser", "x default some-words AES"},
        {"createUser", "-e 0x80001f8804 x MD5 some-words"},
        {"createUser", "x SHA -m 0x0123456789012345678901234567890123456789"},
        {"exactEngineID", "0x8001861f05d9033f6f50a80fff"},
        {"agentAddress", "udp:127.0.0.1:1161,tcp:[::1]:161"},
        {"rouser", "-s usm admin priv -V all"},
        {"rocommunity", "public 127.0.0.1 -V all ctx"},
        {"view", "all included .1.3.6 ff:a0"},
        {"access", "grp \"\" usm priv exact all none none"},
        {"sysObjectID", "1.3.6.1.4.1.99871"},
        {"sysServices", "72"},
        {"maxGetbulkRepeats", "-1"},
        {"sendMessageMaxSize", "1472"},
        {"disableSNMPv1", "yes"},
    };
    for (const tCase& one : cases) {
        EXPECT_EQ(libraryDirectiveFault(one.word, one.arguments), "") << one.word << " " << one.arguments;
    }
}

TEST(LibraryDirectivesTest, WhatParsersCannotTakeIsAFault) {
    const std::string endless(300, 'x');
    const tCase cases[] = {
        {"createUser", "x SHA-256"},
        {"createUser", "x MD5"},
        {"createUser", "x FOO"},
        {"createUser", "x SHA short"},
        {"createUser", "x SHA some-words FOO"},
        {"createUser", "x SHA some-words AES short"},
        {"createUser", "x SHA some-words AES some-words more"},
        {"createUser", "x SHA -m"},
        {"createUser", "x SHA -l 0xzz"},
        {"createUser", "-e"},
        {"createUser", "-e 0x80 x"},
        {"createUser", "-e 0x80001f8804"},
        {"createUser", "-e 0x80001f8804 x SHA"},
        {"createUser", "\"\""},
        {"createUser", endless.c_str()},
        {"exactEngineID", "zz"},
        {"exactEngineID", "0x"},
        {"exactEngineID", "8001861f05"},
        {"agentAddress", "foo:bar"},
        {"agentAddress", "udp:127.0.0.1:1161,udp:127.0.0.1:0"},
        {"rouser", endless.c_str()},
        {"view", "all included"},
        {"view", "all included .1..3"},
        {"view", "all included .1.3.4294967296"},
        {"access", "grp"},
        {"sysName", endless.c_str()},
        {"sysServices", "128"},
        {"sysObjectID", "system"},
        {"sysObjectID", "-0"},
        {"sendMessageMaxSize", "483"},
        {"disableSNMPv1", "maybe"},
        {"persistentDir", "/tmp"},
    };
    for (const tCase& one : cases) {
        EXPECT_NE(libraryDirectiveFault(one.word, one.arguments), "") << one.word << " " << one.arguments;
    }
}

TEST(LibraryDirectivesTest, AWordIsKnownInItsSectionOnly) {
    EXPECT_TRUE(isLibraryDirective(false, "SYSNAME"));
    EXPECT_FALSE(isLibraryDirective(true, "sysName"));
    EXPECT_TRUE(isLibraryDirective(true, "sendMessageMaxSize"));
    for (const char* word : {"persistentDir", "noPersistentLoad", "noPersistentSave", "engineBoots", "oldEngineID",
                             "usmUser", "perl", "includeFile", "includeDir", "mibfile", "logOption"}) {
        EXPECT_FALSE(isLibraryDirective(false, word)) << word;
        EXPECT_FALSE(isLibraryDirective(true, word)) << word;
    }
}

TEST(LibraryDirectivesTest, WordsAreCutAsTheLibraryCutsThem) {
    EXPECT_THAT(wordsOf("a \"b c\" d"), ElementsAre("a", "b c", "d"));
    EXPECT_THAT(wordsOf("a \"\""), ElementsAre("a", ""));
    EXPECT_THAT(wordsOf("\"open end"), ElementsAre("open end"));
}

// What "vrxctl user add" offers is what the library has.
TEST(LibraryDirectivesTest, ProtocolsOfUsersAreTheLibrarys) {
    for (const char* protocol : AUTHENTICATION_PROTOCOLS) {
        EXPECT_GT(usm_lookup_auth_type(protocol), NETSNMP_USMAUTH_NOAUTH) << protocol;
    }
    for (const char* protocol : PRIVACY_PROTOCOLS) {
        EXPECT_GT(usm_lookup_priv_type(protocol), USM_CREATE_USER_PRIV_NONE) << protocol;
    }
}

}  // namespace

}  // namespace vrx
