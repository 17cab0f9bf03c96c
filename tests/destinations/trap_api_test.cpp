#include "host/destinations/trap_api.h"

#include <gmock/gmock.h>

#include <filesystem>

#include "host/base/device_config.h"
#include "host/destinations/trap_destination_result.h"
#include "platform/snmp_trap_api.h"
#include "tests/base/temporary_root.h"

namespace vrx {

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class TrapApi : public testing::Test {
protected:
    TrapApi() { configure(""); }
    ~TrapApi() override {
        setTrapUserCheck({});
        setTrapDestinationListener({});
        closeTrapDestinations();
    }

    void configure(const std::string& items) {
        m_root.write("conf/device.xml", "<device><section name='TRAP'>" + items + "</section></device>");
        reloadDeviceConfig();
    }
    static tTrapDestInfo destination(const std::string& address, unsigned int port = 162) {
        tTrapDestInfo made;
        made.address = address;
        made.port = port;
        return made;
    }
    static std::vector<std::string> rows() {
        std::list<tTrapDestInfo> all;
        EXPECT_EQ(CSNMP_TrapApi::getAllTrapAddr(all), 0);
        std::vector<std::string> texts;
        for (const tTrapDestInfo& row : all) texts.push_back(row.index + " " + row.address);
        return texts;
    }

    TemporaryRoot m_root;
};

TEST_F(TrapApi, CreatesModifiesAndDeletes) {
    EXPECT_EQ(CSNMP_TrapApi::createTrapAddr(destination("192.0.2.7")), 0);
    EXPECT_EQ(CSNMP_TrapApi::createTrapAddr(destination("192.0.2.8")), 0);
    EXPECT_THAT(rows(), ElementsAre("1 192.0.2.7", "2 192.0.2.8"));
    tTrapDestInfo changed = destination("nms.example.com");
    changed.index = "1";
    EXPECT_EQ(CSNMP_TrapApi::modifyTrapAddr(changed), 0);
    changed.index = "2";
    EXPECT_EQ(CSNMP_TrapApi::deleteTrapAddr(changed), 0);
    EXPECT_THAT(rows(), ElementsAre("1 nms.example.com"));
}

TEST_F(TrapApi, ListIsKeptInTheStateFolder) {
    EXPECT_EQ(CSNMP_TrapApi::createTrapAddr(destination("192.0.2.7")), 0);
    EXPECT_TRUE(std::filesystem::exists(m_root.pathOf("state/trap_destinations.db")));
    closeTrapDestinations();
    EXPECT_THAT(rows(), ElementsAre("1 192.0.2.7"));
}

TEST_F(TrapApi, ListingAppends) {
    ASSERT_EQ(CSNMP_TrapApi::createTrapAddr(destination("192.0.2.7")), 0);
    std::list<tTrapDestInfo> all(1);
    EXPECT_EQ(CSNMP_TrapApi::getAllTrapAddr(all), 0);
    EXPECT_EQ(all.size(), 2U);
    EXPECT_EQ(all.front().index, "");
    EXPECT_EQ(all.back().index, "1");
}

TEST_F(TrapApi, RefusalsHaveTheirCodes) {
    configure("<item key='DESTINATION_LIMIT' value='2'/>");
    ASSERT_EQ(CSNMP_TrapApi::createTrapAddr(destination("192.0.2.7")), 0);
    EXPECT_EQ(CSNMP_TrapApi::createTrapAddr(destination("192.0.2.7")), TRAP_DESTINATION_DUPLICATE);
    ASSERT_EQ(CSNMP_TrapApi::createTrapAddr(destination("192.0.2.8")), 0);
    EXPECT_EQ(CSNMP_TrapApi::createTrapAddr(destination("192.0.2.9")), TRAP_DESTINATION_LIMIT);
    tTrapDestInfo missing = destination("192.0.2.9");
    missing.index = "9";
    EXPECT_EQ(CSNMP_TrapApi::modifyTrapAddr(missing), TRAP_DESTINATION_NO_ROW);
    EXPECT_EQ(CSNMP_TrapApi::deleteTrapAddr(missing), TRAP_DESTINATION_NO_ROW);
}

TEST_F(TrapApi, ValuesThatTheChecksRefuseAreNotStored) {
    std::vector<tTrapDestInfo> bad(6, destination("192.0.2.7"));
    bad[0].address = "256.0.0.1";
    bad[1].port = 0;
    bad[2].version = 4;
    bad[3].trapType = 0;
    bad[4].user = "";
    bad[5].version = 3;  // without a user
    for (tTrapDestInfo& row : bad) {
        EXPECT_EQ(CSNMP_TrapApi::createTrapAddr(row), TRAP_DESTINATION_BAD_VALUE);
        row.index = "1";
        EXPECT_EQ(CSNMP_TrapApi::modifyTrapAddr(row), TRAP_DESTINATION_BAD_VALUE);
    }
    EXPECT_THAT(rows(), IsEmpty());
}

TEST_F(TrapApi, LimitIs64WhereNoneIsConfigured) {
    for (unsigned int port = 1; port <= 64; ++port) {
        ASSERT_EQ(CSNMP_TrapApi::createTrapAddr(destination("192.0.2.7", port)), 0);
    }
    EXPECT_EQ(CSNMP_TrapApi::createTrapAddr(destination("192.0.2.7", 65)), TRAP_DESTINATION_LIMIT);
}

TEST_F(TrapApi, StoreThatCannotBeOpenedGivesACodeAndOneLogLineUntilItCan) {
    m_root.write("state", "no folder");
    std::list<tTrapDestInfo> all;
    testing::internal::CaptureStderr();
    EXPECT_EQ(CSNMP_TrapApi::getAllTrapAddr(all), TRAP_DESTINATION_STORE_FAILED);
    EXPECT_EQ(CSNMP_TrapApi::createTrapAddr(destination("192.0.2.7")), TRAP_DESTINATION_STORE_FAILED);
    tTrapDestInfo row = destination("192.0.2.7");
    row.index = "1";
    EXPECT_EQ(CSNMP_TrapApi::modifyTrapAddr(row), TRAP_DESTINATION_STORE_FAILED);
    EXPECT_EQ(CSNMP_TrapApi::deleteTrapAddr(row), TRAP_DESTINATION_STORE_FAILED);
    EXPECT_FALSE(CheckTrapIndOK(row));
    EXPECT_EQ(TrapDestinationTransaction().commit(), TRAP_DESTINATION_STORE_FAILED);
    const std::string log = testing::internal::GetCapturedStderr();
    EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 1) << log;
    EXPECT_THAT(log, HasSubstr(" error [destinations] the store of trap destinations cannot be opened: "));

    std::filesystem::remove(m_root.pathOf("state"));
    testing::internal::CaptureStderr();
    EXPECT_EQ(CSNMP_TrapApi::createTrapAddr(destination("192.0.2.7")), 0);
    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                HasSubstr(" info [destinations] the store of trap destinations is open again\n"));
}

TEST_F(TrapApi, TransactionGathersChangesAndAssignsANumber) {
    {
        TrapDestinationTransaction transaction;
        transaction.assignNext(40);
        EXPECT_EQ(CSNMP_TrapApi::createTrapAddr(destination("192.0.2.7")), 0);
        EXPECT_THAT(rows(), ElementsAre("40 192.0.2.7"));
    }
    EXPECT_THAT(rows(), IsEmpty());
    TrapDestinationTransaction transaction;
    transaction.assignNext(40);
    EXPECT_EQ(CSNMP_TrapApi::createTrapAddr(destination("192.0.2.7")), 0);
    EXPECT_EQ(transaction.commit(), 0);
    EXPECT_THAT(rows(), ElementsAre("40 192.0.2.7"));
}

TEST_F(TrapApi, ListenerHearsOfChangesWhetherSetBeforeOrAfterTheFirstUse) {
    int heard = 0;
    setTrapDestinationListener([&heard] { ++heard; });
    EXPECT_EQ(CSNMP_TrapApi::createTrapAddr(destination("192.0.2.7")), 0);
    EXPECT_EQ(heard, 1);
    int other = 0;
    setTrapDestinationListener([&other] { ++other; });
    EXPECT_EQ(CSNMP_TrapApi::createTrapAddr(destination("192.0.2.8")), 0);
    EXPECT_EQ(heard, 1);
    EXPECT_EQ(other, 1);
}

TEST_F(TrapApi, ChecksLookAtTheirMember) {
    tTrapDestInfo row = destination("192.0.2.7");
    EXPECT_TRUE(CheckIPAddrOK("192.0.2.7"));
    EXPECT_FALSE(CheckIPAddrOK("192.0.2"));
    EXPECT_TRUE(CheckTrapPortOK(row));
    row.port = 65536;
    EXPECT_FALSE(CheckTrapPortOK(row));
    EXPECT_TRUE(CheckTrapVerOK(row));
    row.version = 0;
    EXPECT_FALSE(CheckTrapVerOK(row));
    EXPECT_TRUE(CheckTrapTypeOK(row));
    row.trapType = 2;
    EXPECT_FALSE(CheckTrapTypeOK(row));
}

TEST_F(TrapApi, IndexIsAcceptableWhenItsRowExists) {
    ASSERT_EQ(CSNMP_TrapApi::createTrapAddr(destination("192.0.2.7")), 0);
    tTrapDestInfo row;
    row.index = "1";
    EXPECT_TRUE(CheckTrapIndOK(row));
    row.index = "2";
    EXPECT_FALSE(CheckTrapIndOK(row));
    row.index = "";
    EXPECT_FALSE(CheckTrapIndOK(row));
}

TEST_F(TrapApi, UserOfVersion3MustExist) {
    setTrapUserCheck([](const std::string& user) { return user == "operator"; });
    tTrapDestInfo row = destination("192.0.2.7");
    row.version = 3;
    row.user = "stranger";
    EXPECT_FALSE(isTrapUserKnown(row));
    EXPECT_EQ(CSNMP_TrapApi::createTrapAddr(row), TRAP_DESTINATION_BAD_VALUE);
    row.user = "operator";
    EXPECT_TRUE(isTrapUserKnown(row));
    EXPECT_EQ(CSNMP_TrapApi::createTrapAddr(row), 0);
    row.index = "1";
    row.user = "stranger";
    EXPECT_EQ(CSNMP_TrapApi::modifyTrapAddr(row), TRAP_DESTINATION_BAD_VALUE);
    row.version = 2;
    EXPECT_TRUE(isTrapUserKnown(row));
    EXPECT_EQ(CSNMP_TrapApi::modifyTrapAddr(row), 0);
}

TEST_F(TrapApi, RowKeepsAUserThatIsGoneUntilItTakesAnother) {
    bool exists = true;
    setTrapUserCheck([&exists](const std::string&) { return exists; });
    tTrapDestInfo row = destination("192.0.2.7");
    row.version = 3;
    row.user = "leaver";
    ASSERT_EQ(CSNMP_TrapApi::createTrapAddr(row), 0);
    exists = false;
    row.index = "1";
    row.address = "192.0.2.8";
    EXPECT_EQ(CSNMP_TrapApi::modifyTrapAddr(row), 0);
    EXPECT_THAT(rows(), ElementsAre("1 192.0.2.8"));
    row.user = "other";
    EXPECT_EQ(CSNMP_TrapApi::modifyTrapAddr(row), TRAP_DESTINATION_BAD_VALUE);
    row.port = 163;
    row.user = "leaver";
    row.address = "192.0.2.9";
    EXPECT_EQ(CSNMP_TrapApi::createTrapAddr(row), TRAP_DESTINATION_BAD_VALUE);
    row.version = 2;  // a community by now
    EXPECT_EQ(CSNMP_TrapApi::modifyTrapAddr(row), 0);
    row.version = 3;
    EXPECT_EQ(CSNMP_TrapApi::modifyTrapAddr(row), TRAP_DESTINATION_BAD_VALUE);
}

TEST_F(TrapApi, UserOfVersion3MayBeAnyoneWithoutACheck) {
    tTrapDestInfo row;
    row.version = 3;
    row.user = "stranger";
    EXPECT_TRUE(CheckTrapUserOK(row));
    row.user = std::string(33, 'x');
    EXPECT_FALSE(CheckTrapUserOK(row));
}

TEST_F(TrapApi, NoUserGoesWithVersions1And2Only) {
    tTrapDestInfo row;
    for (const unsigned int version : {1U, 2U}) {
        row.version = version;
        EXPECT_TRUE(CheckTrapUserOK(row)) << version;
    }
    row.version = 3;
    EXPECT_FALSE(CheckTrapUserOK(row));
}

TEST_F(TrapApi, EachCodeHasItsText) {
    std::set<std::string> texts;
    for (int code = TRAP_DESTINATION_LIMIT; code <= TRAP_DESTINATION_STORE_FAILED; ++code) {
        texts.insert(trapDestinationResultText(code));
    }
    EXPECT_EQ(texts.size(), 6U);
    EXPECT_EQ(texts.count("unknown result"), 0U);
    EXPECT_STREQ(trapDestinationResultText(0), "success");
    EXPECT_STREQ(trapDestinationResultText(-1), "unknown result");
}

TEST_F(TrapApi, LoopbackIsReachableAndNoAddressIsNot) {
    EXPECT_TRUE(testDomainConnectivity("127.0.0.1"));
    EXPECT_FALSE(testDomainConnectivity(""));
    EXPECT_FALSE(testDomainConnectivity(nullptr));
}

}  // namespace

}  // namespace vrx
