#include "handlers/snmp_tamrel_trap_addr_handler.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <functional>
#include <set>
#include <stdexcept>
#include <type_traits>

#include "module/vrx_exception.h"
#include "tests/fake_host/fake_host.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

constexpr int PARAM_ERROR = 0x3000003;

constexpr const char* CREATE_REFUSED = "error 0x1002E failed to create trap, unknown parameter.";
constexpr const char* MODIFY_REFUSED = "error 0x1002E failed to modify trap, unknown parameter.";

tTrapDestInfo destination(const std::string& index, const std::string& address, unsigned int port,
                          unsigned int version = 2, unsigned int trapType = 3, const std::string& user = "--") {
    tTrapDestInfo info;
    info.index = index;
    info.address = address;
    info.port = port;
    info.version = version;
    info.trapType = trapType;
    info.user = user;
    return info;
}

constexpr const char* NO_RECORD = "CVRX_Exception: record don't exist, index is 0";

template <typename Call>
std::string thrownBy(Call call) {
    try {
        call();
    } catch (const CVRX_Exception& fault) {
        return fault.what();
    }
    return "nothing was thrown";
}

class TrapAddrHandlerTest : public testing::Test {
protected:
    int create(const CR8KPackageV3& req) { return handler.OnCreateTable(ctx, req, rsp); }
    int modify(const CR8KPackageV3& req) { return handler.OnModifyTable(ctx, req, rsp); }
    int erase(const CR8KPackageV3& req) { return handler.OnDeleteTable(ctx, req, rsp); }

    // What the host was asked to change.
    std::vector<tTrapDestInfo> changed(const std::string& operation) {
        std::vector<tTrapDestInfo> found;
        for (const FakeTrapApi::Call& call : host.trapApi().changes()) {
            EXPECT_EQ(call.operation, operation);
            found.push_back(call.destination);
        }
        return found;
    }

    void expectRefused(int result, const std::string& line) {
        EXPECT_EQ(result, PARAM_ERROR);
        EXPECT_THAT(host.log().linesWithoutTrace(), ElementsAre(line));
        EXPECT_THAT(host.trapApi().changes(), IsEmpty());
        EXPECT_THAT(recordsOf(rsp), IsEmpty());
    }

    FakeHost host;
    CVRX_SnmpContext ctx;
    CR8KPackageV3 rsp;
    CTamrelTrapAddrHandler handler;
};

TEST(TrapDestInfo, DefaultsOfANewRecord) {
    EXPECT_EQ(tTrapDestInfo(), destination("", "", 0, 2, 3, "--"));
}

// The host's own code holds such records: order and types are part of the contract.
TEST(TrapDestInfo, MembersStandInTheirOrder) {
    EXPECT_TRUE((std::is_same_v<decltype(tTrapDestInfo::index), std::string>));
    EXPECT_TRUE((std::is_same_v<decltype(tTrapDestInfo::address), std::string>));
    EXPECT_TRUE((std::is_same_v<decltype(tTrapDestInfo::port), unsigned int>));
    EXPECT_TRUE((std::is_same_v<decltype(tTrapDestInfo::version), unsigned int>));
    EXPECT_TRUE((std::is_same_v<decltype(tTrapDestInfo::trapType), unsigned int>));
    EXPECT_TRUE((std::is_same_v<decltype(tTrapDestInfo::user), std::string>));
    const tTrapDestInfo info;
    const std::vector<const void*> members = {&info.index,   &info.address,  &info.port,
                                              &info.version, &info.trapType, &info.user};
    EXPECT_TRUE(std::is_sorted(members.begin(), members.end(), std::less<>()));
    EXPECT_EQ(sizeof(tTrapDestInfo), 3 * sizeof(std::string) + 4 * sizeof(unsigned int));  // padded to eight bytes
}

// Create.

TEST_F(TrapAddrHandlerTest, CreateWithReachableAddressOnlyGetsVersionTwoTypeOneAndNoUser) {
    EXPECT_EQ(create(requestWith(text(1, "10.0.0.1"), u32(2, 162))), 0);
    EXPECT_THAT(changed("create"), ElementsAre(destination("", "10.0.0.1", 162, 2, 1, "--")));
    EXPECT_THAT(host.log().linesWithoutTrace(), IsEmpty());
    EXPECT_THAT(recordsOf(rsp), IsEmpty());
}

TEST_F(TrapAddrHandlerTest, CreateChecksAddressPortVersionAndTypeInThatOrder) {
    create(requestWith(text(1, "10.0.0.1"), u32(2, 162)));
    EXPECT_THAT(host.trapApi().operations(),
                ElementsAre("checkAddress", "checkPort", "checkVersion", "checkType", "create"));
}

TEST_F(TrapAddrHandlerTest, CreateAsksTheHostAboutEachColumnBeforeTakingItOverAndAtTheEnd) {
    create(requestWith(text(1, "10.0.0.1"), u32(2, 162), u32(5, 3), text(6, "10.0.0.2"), u32(7, 4), text(8, "op")));
    EXPECT_THAT(host.trapApi().operations(),
                ElementsAre("checkVersion", "checkType",                               // the request
                            "checkVersion", "checkAddress", "checkType", "checkUser",  // each column
                            "checkAddress", "checkPort", "checkVersion", "checkType", "create"));
    host.trapApi().destinations = {destination("1", "10.0.0.1", 162)};
    const std::size_t before = host.trapApi().operations().size();
    modify(requestWith(text(4, "1"), u32(2, 162), u32(5, 3), text(6, "10.0.0.2"), u32(7, 4), text(8, "op")));
    std::vector<std::string> ofModify = host.trapApi().operations();
    ofModify.erase(ofModify.begin(), ofModify.begin() + static_cast<std::ptrdiff_t>(before));
    EXPECT_THAT(ofModify, ElementsAre("checkVersion", "checkType", "checkAddress", "checkVersion", "checkAddress",
                                      "checkType", "checkUser", "checkIndex", "checkAddress", "checkPort",
                                      "checkVersion", "checkType", "modify"));
}

TEST_F(TrapAddrHandlerTest, FinalChecksStopAtTheFirstThatFails) {
    struct Case {
        FakeTrapApi::Check FakeTrapApi::*check;
        std::vector<std::string> operations;
    };
    const Case cases[] = {
        {&FakeTrapApi::checkPort, {"checkAddress", "checkPort"}},
        {&FakeTrapApi::checkVersion, {"checkAddress", "checkPort", "checkVersion"}},
        {&FakeTrapApi::checkType, {"checkAddress", "checkPort", "checkVersion", "checkType"}},
    };
    for (const Case& c : cases) {
        const FakeHost other;
        FakeTrapApi& api = FakeHost::current()->trapApi();
        api.*c.check = [](tTrapDestInfo&) { return false; };
        EXPECT_EQ(create(requestWith(text(1, "10.0.0.1"), u32(2, 162))), PARAM_ERROR);
        EXPECT_EQ(api.operations(), c.operations);
        EXPECT_THAT(FakeHost::current()->log().linesWithoutTrace(), ElementsAre(CREATE_REFUSED));
    }
    for (const Case& c : cases) {
        const FakeHost other;
        FakeTrapApi& api = FakeHost::current()->trapApi();
        api.destinations = {destination("1", "10.0.0.1", 162)};
        api.*c.check = [](tTrapDestInfo&) { return false; };
        EXPECT_EQ(modify(requestWith(text(4, "1"), text(1, "10.0.0.1"), u32(2, 162))), PARAM_ERROR);
        std::vector<std::string> expected = c.operations;
        expected.insert(expected.begin(), "checkIndex");
        EXPECT_EQ(api.operations(), expected);
        EXPECT_THAT(FakeHost::current()->log().linesWithoutTrace(), ElementsAre(MODIFY_REFUSED));
    }
    expectRefused(create(requestWith(text(1, "bad"), u32(2, 162))), CREATE_REFUSED);
    EXPECT_THAT(host.trapApi().operations(), ElementsAre("checkAddress"));
}

TEST_F(TrapAddrHandlerTest, CheckOfTheRequestShowsTheHostADefaultRecordWithTheValue) {
    handler.CheckParam(requestWith(text(1, "10.0.0.1"), u32(5, 3), u32(7, 4)));
    const std::vector<FakeTrapApi::Call> calls = host.trapApi().calls();
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[0].destination, destination("", "", 0, 3, 3));
    EXPECT_EQ(calls[1].destination, destination("", "", 0, 2, 4));
}

TEST_F(TrapAddrHandlerTest, CreateDoesNotLookAtTheSecondAddressWhileCheckingARequestWithTheFirst) {
    EXPECT_EQ(create(requestWith(text(1, "10.0.0.1"), u32(2, 162), text(6, "bad"))), 0);
    EXPECT_THAT(changed("create"), ElementsAre(destination("", "10.0.0.1", 162, 2, 1)));
}

TEST_F(TrapAddrHandlerTest, CreateTakesTheSecondAddressWhenBothAreValid) {
    EXPECT_EQ(create(requestWith(text(1, "10.0.0.1"), u32(2, 162), text(6, "10.0.0.2"))), 0);
    EXPECT_THAT(changed("create"), ElementsAre(destination("", "10.0.0.2", 162, 2, 1)));
}

TEST_F(TrapAddrHandlerTest, CreateWithTheSecondAddressOnly) {
    EXPECT_EQ(create(requestWith(u32(2, 162), text(6, "10.0.0.2"))), 0);
    EXPECT_THAT(changed("create"), ElementsAre(destination("", "10.0.0.2", 162, 2, 1)));
}

TEST_F(TrapAddrHandlerTest, CreateWithAnInvalidSecondAddressOnlyIsRefused) {
    expectRefused(create(requestWith(u32(2, 162), text(6, "bad"))), CREATE_REFUSED);
}

TEST_F(TrapAddrHandlerTest, CreateWithoutAddressIsRefused) {
    expectRefused(create(requestWith(u32(2, 162))), CREATE_REFUSED);
}

TEST_F(TrapAddrHandlerTest, CreateWithAnInvalidFirstAddressIsRefused) {
    expectRefused(create(requestWith(text(1, "bad"), u32(2, 162))), CREATE_REFUSED);
}

TEST_F(TrapAddrHandlerTest, CreateWithAnInvalidFirstAndAValidSecondAddressTakesTheSecond) {
    EXPECT_EQ(create(requestWith(text(1, "bad"), u32(2, 162), text(6, "10.0.0.2"))), 0);
    EXPECT_THAT(changed("create"), ElementsAre(destination("", "10.0.0.2", 162, 2, 1)));
}

TEST_F(TrapAddrHandlerTest, CreateWithAnInvalidPortIsRefused) {
    expectRefused(create(requestWith(text(1, "10.0.0.1"), u32(2, 0))), CREATE_REFUSED);
}

TEST_F(TrapAddrHandlerTest, CreateWithAnInvalidVersionIsRefusedBeforeAnythingElseIsChecked) {
    expectRefused(create(requestWith(text(1, "10.0.0.1"), u32(2, 162), u32(5, 4))), CREATE_REFUSED);
    EXPECT_THAT(host.trapApi().operations(), ElementsAre("checkVersion"));
}

TEST_F(TrapAddrHandlerTest, CreateWithAnInvalidTypeIsRefused) {
    expectRefused(create(requestWith(text(1, "10.0.0.1"), u32(2, 162), u32(7, 9))), CREATE_REFUSED);
    EXPECT_THAT(host.trapApi().operations(), ElementsAre("checkType"));
}

TEST_F(TrapAddrHandlerTest, CreateWithAnInvalidUserSucceedsWithoutUser) {
    EXPECT_EQ(create(requestWith(text(1, "10.0.0.1"), u32(2, 162), text(8, "bad"))), 0);
    EXPECT_THAT(changed("create"), ElementsAre(destination("", "10.0.0.1", 162, 2, 1, "--")));
    EXPECT_THAT(host.log().linesWithoutTrace(), IsEmpty());
}

TEST_F(TrapAddrHandlerTest, CreateTakesAllValidColumns) {
    EXPECT_EQ(create(requestWith(u32(2, 10162), u32(5, 3), text(6, "manager.example"), u32(7, 4), text(8, "operator"))),
              0);
    EXPECT_THAT(changed("create"), ElementsAre(destination("", "manager.example", 10162, 3, 4, "operator")));
}

TEST_F(TrapAddrHandlerTest, CreateTakesTheUserInItsTextFormWhateverTheCellIs) {
    EXPECT_EQ(create(requestWith(text(1, "10.0.0.1"), u32(2, 162), u32(8, 42))), 0);
    EXPECT_EQ(create(requestWith(text(1, "10.0.0.1"), u32(2, 162), octets(8, "op"))), 0);
    EXPECT_THAT(changed("create"), ElementsAre(destination("", "10.0.0.1", 162, 2, 1, "42"),
                                               destination("", "10.0.0.1", 162, 2, 1, "op")));
}

TEST_F(TrapAddrHandlerTest, CheckOfAUserSeesTheVersionOfTheRequest) {
    unsigned int version = 0;
    host.trapApi().checkUser = [&version](tTrapDestInfo& looked) {
        version = looked.version;
        return true;
    };
    create(requestWith(text(1, "10.0.0.1"), u32(2, 162), u32(5, 3), text(8, "operator")));
    EXPECT_EQ(version, 3u);
}

TEST_F(TrapAddrHandlerTest, CreateIgnoresStatusAndIndex) {
    EXPECT_EQ(create(requestWith(text(1, "10.0.0.1"), u32(2, 162), i32(3, 4), text(4, "7"))), 0);
    EXPECT_THAT(changed("create"), ElementsAre(destination("", "10.0.0.1", 162, 2, 1)));
}

TEST_F(TrapAddrHandlerTest, ColumnThatTheHostRejectsLaterKeepsItsEarlierValue) {
    // The request passes the first check; the host changes its mind before the value is taken over.
    int asked = 0;
    host.trapApi().checkVersion = [&asked](tTrapDestInfo& looked) { return ++asked == 1 || looked.version == 2; };
    EXPECT_EQ(create(requestWith(text(1, "10.0.0.1"), u32(2, 162), u32(5, 3))), 0);
    EXPECT_THAT(changed("create"), ElementsAre(destination("", "10.0.0.1", 162, 2, 1)));
}

TEST_F(TrapAddrHandlerTest, CreateReturnsTheHostsResult) {
    host.trapApi().onCreate = [](const tTrapDestInfo&) { return 0x1234; };
    EXPECT_EQ(create(requestWith(text(1, "10.0.0.1"), u32(2, 162))), 0x1234);
    EXPECT_THAT(host.log().linesWithoutTrace(), IsEmpty());
}

TEST_F(TrapAddrHandlerTest, CreateWithoutPortThrowsAndChangesNothing) {
    const std::string noPort = "CVRX_Exception: record has no cell, tag equal to 2";
    EXPECT_EQ(thrownBy([this] { create(requestWith(text(1, "10.0.0.1"))); }), noPort);
    EXPECT_EQ(thrownBy([this] { create(requestWith(u32(5, 9), text(6, "bad"))); }), noPort);
    EXPECT_THAT(host.trapApi().calls(), IsEmpty());  // the port is read before anything is checked
    EXPECT_THAT(host.log().linesWithoutTrace(), IsEmpty());
}

TEST_F(TrapAddrHandlerTest, CreateWithoutRecordThrows) {
    EXPECT_EQ(thrownBy([this] { create(CR8KPackageV3()); }), NO_RECORD);
    EXPECT_THAT(host.trapApi().changes(), IsEmpty());
}

TEST_F(TrapAddrHandlerTest, ExceptionsCloseTheGuardOfEachOperation) {
    host.trapApi().onList = []() -> int { throw std::runtime_error("no list"); };
    const CR8KPackageV3 none;
    const std::pair<const char*, std::function<void()>> operations[] = {
        {"OnCreateTable", [&] { create(none); }},
        {"OnModifyTable", [&] { modify(none); }},
        {"OnDeleteTable", [&] { erase(none); }},
        {"OnQueryTable", [&] { handler.OnQueryTable(ctx, none, rsp); }}};
    for (const auto& [name, operation] : operations) {
        host.log().clear();
        EXPECT_THROW(operation(), std::exception) << name;
        const std::string signature = std::string("virtual int CTamrelTrapAddrHandler::") + name +
                                      "(const CVRX_SnmpContext&, const CR8KPackageV3&, CR8KPackageV3&)";
        EXPECT_THAT(host.log().lines(),
                    ElementsAre("trace enter " + signature + "...", StartsWith("trace leave " + signature)));
    }
}

// Each operation, when it ends with success and when it refuses.
TEST_F(TrapAddrHandlerTest, EveryResultClosesTheGuardOnce) {
    host.trapApi().destinations = {destination("1", "10.0.0.1", 162)};
    const CR8KPackageV3 none;
    const std::pair<const char*, std::function<int()>> operations[] = {
        {"OnCreateTable", [&] { return create(requestWith(text(1, "10.0.0.2"), u32(2, 162))); }},
        {"OnCreateTable", [&] { return create(requestWith(u32(2, 162))); }},
        {"OnCreateTable", [&] { return create(requestWith(text(1, "bad"), u32(2, 162))); }},
        {"OnModifyTable", [&] { return modify(requestWith(text(4, "1"), text(1, "10.0.0.2"), u32(2, 162))); }},
        {"OnModifyTable", [&] { return modify(requestWith(u32(2, 162))); }},
        {"OnModifyTable", [&] { return modify(requestWith(text(4, "1"), u32(2, 162))); }},
        {"OnModifyTable", [&] { return modify(requestWith(text(4, "9"), text(1, "10.0.0.2"), u32(2, 162))); }},
        {"OnDeleteTable", [&] { return erase(requestWith(text(1, "10.0.0.1"), u32(2, 162))); }},
        {"OnDeleteTable", [&] { return erase(requestWith(text(4, "1"))); }},
        {"OnDeleteTable", [&] { return erase(requestWith(u32(2, 162))); }},
        {"OnDeleteTable", [&] { return erase(requestWith(text(4, "9"))); }},
        {"OnQueryTable", [&] { return handler.OnQueryTable(ctx, none, rsp); }},
        {"OnDeleteTable",
         [&] {
             host.trapApi().onList = [] { return 5; };
             return erase(requestWith(text(4, "1")));
         }},
        {"OnQueryTable", [&] { return handler.OnQueryTable(ctx, none, rsp); }}};
    for (const auto& [name, operation] : operations) {
        host.log().clear();
        const int result = operation();
        const std::string signature = std::string("virtual int CTamrelTrapAddrHandler::") + name +
                                      "(const CVRX_SnmpContext&, const CR8KPackageV3&, CR8KPackageV3&)";
        EXPECT_THAT(host.log().lines("trace"),
                    ElementsAre("trace enter " + signature + "...",
                                "trace leave " + signature + (result == 0 ? ": OK" : ": NOK")));
    }
}

TEST_F(TrapAddrHandlerTest, CellsOfTheWrongKindThrowAndChangeNothing) {
    const TlvCell address = text(1, "10.0.0.1");
    const TlvCell port = u32(2, 162);
    const std::string noNumber = "CVRX_Exception: CTLVCell isn't numerical type! tag equal to ";
    const std::string noString = "CVRX_Exception: CTLVCell isn't string type! tag equal to ";
    EXPECT_EQ(thrownBy([&] { create(requestWith(address, text(2, "162"))); }), noNumber + "2");
    EXPECT_EQ(thrownBy([&] { create(requestWith(u32(1, 1), port)); }), noString + "1");
    EXPECT_EQ(thrownBy([&] { create(requestWith(octets(1, "10.0.0.1"), port)); }), noString + "1");
    EXPECT_EQ(thrownBy([&] { create(requestWith(address, port, text(5, "2"))); }), noNumber + "5");
    EXPECT_EQ(thrownBy([&] { create(requestWith(address, port, u32(6, 2))); }), noString + "6");
    EXPECT_EQ(thrownBy([&] { create(requestWith(address, port, text(7, "2"))); }), noNumber + "7");
    EXPECT_EQ(thrownBy([&] { modify(requestWith(u32(4, 1), address, port)); }), noString + "4");
    EXPECT_EQ(thrownBy([&] { erase(requestWith(u32(4, 1))); }), noString + "4");
    EXPECT_EQ(thrownBy([&] { erase(requestWith(u32(1, 1), port)); }), noString + "1");
    EXPECT_EQ(thrownBy([&] { erase(requestWith(address, text(2, "162"))); }), noNumber + "2");
    EXPECT_THAT(host.trapApi().changes(), IsEmpty());
}

TEST_F(TrapAddrHandlerTest, OnlyTheFirstRecordIsLookedAt) {
    const TestPackage req({recordOf(NO_IDENTIFIER, text(1, "10.0.0.1"), u32(2, 162)),
                           recordOf(NO_IDENTIFIER, text(1, "10.0.0.2"), u32(2, 163))});
    EXPECT_EQ(create(req), 0);
    EXPECT_THAT(changed("create"), ElementsAre(destination("", "10.0.0.1", 162, 2, 1)));

    const FakeHost other;
    FakeTrapApi& api = FakeHost::current()->trapApi();
    api.destinations = {destination("1", "10.0.0.1", 162)};
    const TestPackage indexInTheSecond({recordOf(NO_IDENTIFIER, text(1, "10.0.0.9"), u32(2, 162)),
                                        recordOf(NO_IDENTIFIER, text(1, "10.0.0.1"), u32(2, 162), text(4, "1"))});
    EXPECT_EQ(modify(indexInTheSecond), PARAM_ERROR);
    EXPECT_EQ(erase(indexInTheSecond), PARAM_ERROR);
    EXPECT_THAT(api.changes(), IsEmpty());
}

TEST_F(TrapAddrHandlerTest, WritingLeavesTheResponseAsItWas) {
    host.trapApi().destinations = {destination("1", "10.0.0.1", 162), destination("2", "10.0.0.2", 162)};
    appendRecords(rsp, {recordOf(5, u32(1, 2))});
    EXPECT_EQ(create(requestWith(text(1, "10.0.0.3"), u32(2, 162))), 0);
    EXPECT_EQ(modify(requestWith(text(4, "1"), text(1, "10.0.0.4"), u32(2, 162))), 0);
    EXPECT_EQ(erase(requestWith(text(1, "10.0.0.2"), u32(2, 162))), 0);
    EXPECT_EQ(erase(requestWith(text(4, "1"))), 0);
    EXPECT_EQ(create(requestWith(u32(2, 162))), PARAM_ERROR);
    EXPECT_EQ(modify(requestWith(u32(2, 162))), PARAM_ERROR);
    EXPECT_EQ(erase(requestWith(u32(2, 162))), PARAM_ERROR);
    EXPECT_THAT(recordsOf(rsp), ElementsAre(RecordIs(5, u32(1, 2))));
}

// Modify.

TEST_F(TrapAddrHandlerTest, ModifyWithoutIndexIsRefused) {
    expectRefused(modify(requestWith(text(1, "10.0.0.1"), u32(2, 162))),
                  "error 0x1002E can't find trap index, old method is not supporttd.");
    EXPECT_THAT(host.trapApi().calls(), IsEmpty());
    EXPECT_EQ(modify(requestWith(text(1, "10.0.0.1"))), PARAM_ERROR);  // before the port is asked for
}

TEST_F(TrapAddrHandlerTest, ModifyTakesTheSecondAddressWhenBothAreValid) {
    host.trapApi().destinations = {destination("1", "10.0.0.1", 162)};
    EXPECT_EQ(modify(requestWith(text(4, "1"), text(1, "10.0.0.2"), u32(2, 162), text(6, "10.0.0.3"))), 0);
    EXPECT_THAT(changed("modify"), ElementsAre(destination("1", "10.0.0.3", 162, 2, 1)));
}

TEST_F(TrapAddrHandlerTest, ModifyWithIndexAndPortOnlyHasNoAddressAndIsRefused) {
    host.trapApi().destinations = {destination("1", "10.0.0.1", 162, 3, 4, "operator")};
    expectRefused(modify(requestWith(text(4, "1"), u32(2, 163))), MODIFY_REFUSED);
}

TEST_F(TrapAddrHandlerTest, ModifyResetsVersionTypeAndUserThatItDoesNotCarry) {
    host.trapApi().destinations = {destination("1", "10.0.0.1", 162, 3, 4, "operator")};
    EXPECT_EQ(modify(requestWith(text(4, "1"), u32(2, 163), text(1, "10.0.0.1"))), 0);
    EXPECT_THAT(changed("modify"), ElementsAre(destination("1", "10.0.0.1", 163, 2, 1, "--")));
    EXPECT_THAT(recordsOf(rsp), IsEmpty());
}

TEST_F(TrapAddrHandlerTest, ModifyTakesAllValidColumns) {
    host.trapApi().destinations = {destination("1", "10.0.0.1", 162)};
    EXPECT_EQ(modify(requestWith(text(4, "1"), u32(2, 163), u32(5, 1), text(6, "fe80::1"), u32(7, 2), text(8, "op"))),
              0);
    EXPECT_THAT(changed("modify"), ElementsAre(destination("1", "fe80::1", 163, 1, 2, "op")));
}

TEST_F(TrapAddrHandlerTest, ModifyChecksIndexAddressPortVersionAndTypeInThatOrder) {
    host.trapApi().destinations = {destination("1", "10.0.0.1", 162)};
    modify(requestWith(text(4, "1"), u32(2, 163), text(1, "10.0.0.1")));
    EXPECT_THAT(host.trapApi().operations(),
                ElementsAre("checkIndex", "checkAddress", "checkPort", "checkVersion", "checkType", "modify"));
}

TEST_F(TrapAddrHandlerTest, ModifyOfAnUnknownIndexIsRefused) {
    host.trapApi().destinations = {destination("1", "10.0.0.1", 162)};
    expectRefused(modify(requestWith(text(4, "2"), u32(2, 163), text(1, "10.0.0.1"))), MODIFY_REFUSED);
    EXPECT_THAT(host.trapApi().operations(), ElementsAre("checkIndex"));
}

TEST_F(TrapAddrHandlerTest, ModifyWithAnyInvalidColumnIsRefused) {
    host.trapApi().destinations = {destination("1", "10.0.0.1", 162)};
    const TlvCell index = text(4, "1");
    const TlvCell address = text(1, "10.0.0.1");
    const std::vector<TlvCell> rows[] = {
        {index, text(1, "bad"), u32(2, 163)},     {index, text(6, "bad"), u32(2, 163)},
        {index, address, u32(2, 65536)},          {index, address, u32(2, 163), u32(5, 0)},
        {index, address, u32(2, 163), u32(7, 5)},
    };
    for (const std::vector<TlvCell>& cells : rows) {
        host.log().clear();
        expectRefused(modify(TestPackage({TlvRecord{NO_IDENTIFIER, cells}})), MODIFY_REFUSED);
    }
}

TEST_F(TrapAddrHandlerTest, ModifyWithAnInvalidUserSucceedsWithoutUser) {
    host.trapApi().destinations = {destination("1", "10.0.0.1", 162, 2, 1, "operator")};
    EXPECT_EQ(modify(requestWith(text(4, "1"), text(1, "10.0.0.1"), u32(2, 162), text(8, "bad"))), 0);
    EXPECT_THAT(changed("modify"), ElementsAre(destination("1", "10.0.0.1", 162, 2, 1, "--")));
}

TEST_F(TrapAddrHandlerTest, ModifyReturnsTheHostsResult) {
    host.trapApi().destinations = {destination("1", "10.0.0.1", 162)};
    host.trapApi().onModify = [](const tTrapDestInfo&) { return -5; };
    EXPECT_EQ(modify(requestWith(text(4, "1"), text(1, "10.0.0.1"), u32(2, 162))), -5);
}

TEST_F(TrapAddrHandlerTest, ModifyWithoutPortThrowsAndChangesNothing) {
    const std::string noPort = "CVRX_Exception: record has no cell, tag equal to 2";
    EXPECT_EQ(thrownBy([this] { modify(requestWith(text(4, "1"), text(1, "10.0.0.1"))); }), noPort);
    EXPECT_EQ(thrownBy([this] { modify(requestWith(text(4, "1"), u32(5, 9), text(6, "bad"))); }), noPort);
    // The index is read first.
    EXPECT_EQ(thrownBy([this] { modify(requestWith(u32(4, 1), text(1, "10.0.0.1"))); }),
              "CVRX_Exception: CTLVCell isn't string type! tag equal to 4");
    EXPECT_THAT(host.trapApi().calls(), IsEmpty());  // both are read before anything is checked
    EXPECT_THAT(host.log().linesWithoutTrace(), IsEmpty());
}

TEST_F(TrapAddrHandlerTest, ModifyWithoutRecordThrows) {
    EXPECT_EQ(thrownBy([this] { modify(CR8KPackageV3()); }), NO_RECORD);
    EXPECT_THAT(host.trapApi().calls(), IsEmpty());
}

// Delete.

TEST_F(TrapAddrHandlerTest, DeleteFindsTheRowByAddressAndPortAndIgnoresTheIndex) {
    host.trapApi().destinations = {destination("1", "10.0.0.1", 162), destination("2", "10.0.0.1", 163),
                                   destination("3", "10.0.0.1", 163)};
    EXPECT_EQ(erase(requestWith(text(1, "10.0.0.1"), u32(2, 163), text(4, "1"))), 0);
    EXPECT_THAT(changed("delete"), ElementsAre(destination("2", "10.0.0.1", 163)));
    EXPECT_THAT(host.trapApi().calls("checkIndex"), IsEmpty());
}

TEST_F(TrapAddrHandlerTest, DeleteFindsARowWhoseIndexTextIsEmpty) {
    host.trapApi().destinations = {destination("", "10.0.0.1", 162)};
    EXPECT_EQ(erase(requestWith(text(1, "10.0.0.1"), u32(2, 162))), 0);
    EXPECT_THAT(changed("delete"), ElementsAre(destination("", "10.0.0.1", 162)));
}

TEST_F(TrapAddrHandlerTest, DeleteComparesAddressesByteForByte) {
    host.trapApi().destinations = {destination("1", "FE80::1", 162), destination("2", "fe80::10", 162)};
    EXPECT_EQ(erase(requestWith(text(1, "fe80::1"), u32(2, 162))), PARAM_ERROR);
    EXPECT_THAT(host.trapApi().changes(), IsEmpty());
}

TEST_F(TrapAddrHandlerTest, DeleteFallsBackToTheIndexWhenNothingMatches) {
    host.trapApi().destinations = {destination("1", "10.0.0.1", 162), destination("2", "10.0.0.2", 162)};
    EXPECT_EQ(erase(requestWith(text(1, "10.0.0.9"), u32(2, 162), text(4, "2"))), 0);
    // The host goes by the index; address and port are still those of the request.
    EXPECT_THAT(changed("delete"), ElementsAre(destination("2", "10.0.0.9", 162)));
    EXPECT_EQ(host.trapApi().calls("checkIndex").size(), 1u);
}

TEST_F(TrapAddrHandlerTest, DeleteByIndexOnly) {
    host.trapApi().destinations = {destination("1", "10.0.0.1", 162)};
    EXPECT_EQ(erase(requestWith(text(4, "1"))), 0);
    EXPECT_THAT(changed("delete"), ElementsAre(destination("1", "", 0)));
    EXPECT_THAT(host.trapApi().operations(), ElementsAre("list", "checkIndex", "delete"));
}

TEST_F(TrapAddrHandlerTest, DeleteWithOneHalfOfAddressAndPortUsesTheIndex) {
    host.trapApi().destinations = {destination("1", "10.0.0.1", 162), destination("2", "10.0.0.2", 163)};
    EXPECT_EQ(erase(requestWith(text(1, "10.0.0.1"), text(4, "2"))), 0);
    EXPECT_EQ(erase(requestWith(u32(2, 162), text(4, "2"))), 0);
    EXPECT_THAT(changed("delete"), ElementsAre(destination("2", "", 0), destination("2", "", 0)));
}

TEST_F(TrapAddrHandlerTest, DeleteThatNamesNoRowIsRefusedUnderItsOwnCode) {
    host.trapApi().destinations = {destination("1", "10.0.0.1", 162)};
    expectRefused(erase(requestWith(text(1, "10.0.0.9"), u32(2, 162))),
                  "error 0x10014 failed to delete trap, unresolvable argument.");
}

TEST_F(TrapAddrHandlerTest, DeleteOfAnUnknownIndexIsRefused) {
    host.trapApi().destinations = {destination("1", "10.0.0.1", 162)};
    expectRefused(erase(requestWith(text(4, "7%s"))), "error 0x1002E unknown trap index:7%s.");
}

TEST_F(TrapAddrHandlerTest, DeleteWithoutListFails) {
    host.trapApi().onList = [] { return 5; };
    EXPECT_EQ(erase(requestWith(text(4, "1"))), -1);
    EXPECT_THAT(host.log().linesWithoutTrace(), ElementsAre("error 0x1002E failed to get all trap."));
    EXPECT_THAT(host.trapApi().changes(), IsEmpty());
    EXPECT_EQ(erase(CR8KPackageV3()), -1);  // the list comes before the request
}

TEST_F(TrapAddrHandlerTest, DeleteReturnsTheHostsResult) {
    host.trapApi().destinations = {destination("1", "10.0.0.1", 162)};
    host.trapApi().onDelete = [](const tTrapDestInfo&) { return 77; };
    EXPECT_EQ(erase(requestWith(text(1, "10.0.0.1"), u32(2, 162))), 77);
    EXPECT_EQ(erase(requestWith(text(4, "1"))), 77);
}

TEST_F(TrapAddrHandlerTest, DeleteWithoutRecordThrows) {
    EXPECT_EQ(thrownBy([this] { erase(CR8KPackageV3()); }), NO_RECORD);
    EXPECT_THAT(host.trapApi().operations(), ElementsAre("list"));
}

// Query.

TEST_F(TrapAddrHandlerTest, QueryGivesEightColumnsForEachDestinationInOrder) {
    host.trapApi().destinations = {destination("1", "10.0.0.1", 162, 1, 2, "op"),
                                   destination("2", "fe80::1%eth0", 65535, 3, 4, "--")};
    EXPECT_EQ(handler.OnQueryTable(ctx, CR8KPackageV3(), rsp), 0);
    EXPECT_THAT(recordsOf(rsp),
                ElementsAre(RecordIs(NO_IDENTIFIER, text(1, "10.0.0.1"), u32(2, 162), i32(3, 1), text(4, "1"),
                                     u32(5, 1), text(6, "10.0.0.1"), u32(7, 2), text(8, "op")),
                            RecordIs(NO_IDENTIFIER, text(1, "fe80::1%eth0"), u32(2, 65535), i32(3, 1), text(4, "2"),
                                     u32(5, 3), text(6, "fe80::1%eth0"), u32(7, 4), text(8, "--"))));
    EXPECT_THAT(host.log().linesWithoutTrace(), IsEmpty());
}

TEST_F(TrapAddrHandlerTest, RowsGoAfterRecordsThatTheResponseHolds) {
    host.trapApi().destinations = {destination("1", "10.0.0.1", 162)};
    appendRecords(rsp, {recordOf(5, u32(1, 2))});
    EXPECT_EQ(handler.OnQueryTable(ctx, CR8KPackageV3(), rsp), 0);
    EXPECT_THAT(recordsOf(rsp),
                ElementsAre(RecordIs(5, u32(1, 2)),
                            RecordIs(NO_IDENTIFIER, text(1, "10.0.0.1"), u32(2, 162), i32(3, 1), text(4, "1"),
                                     u32(5, 2), text(6, "10.0.0.1"), u32(7, 3), text(8, "--"))));
}

TEST_F(TrapAddrHandlerTest, QueryShowsZeroAddressForADestinationThatCannotBeReached) {
    host.trapApi().destinations = {destination("1", "10.0.0.1", 162)};
    host.trapApi().isConnected = [](const std::string& address) { return address != "10.0.0.1"; };
    EXPECT_EQ(handler.OnQueryTable(ctx, CR8KPackageV3(), rsp), 0);
    EXPECT_THAT(recordsOf(rsp),
                ElementsAre(RecordIs(NO_IDENTIFIER, text(1, "0.0.0.0"), u32(2, 162), i32(3, 1), text(4, "1"), u32(5, 2),
                                     text(6, "10.0.0.1"), u32(7, 3), text(8, "--"))));
}

TEST_F(TrapAddrHandlerTest, QueryWithoutDestinationsIsEmptyAndSucceeds) {
    EXPECT_EQ(handler.OnQueryTable(ctx, CR8KPackageV3(), rsp), 0);
    EXPECT_THAT(recordsOf(rsp), IsEmpty());
}

TEST_F(TrapAddrHandlerTest, QueryWithoutListFails) {
    host.trapApi().onList = [] { return -3; };
    EXPECT_EQ(handler.OnQueryTable(ctx, CR8KPackageV3(), rsp), -1);
    EXPECT_THAT(host.log().linesWithoutTrace(), ElementsAre("error 0x1002E failed to get all trap."));
    EXPECT_THAT(recordsOf(rsp), IsEmpty());
}

TEST_F(TrapAddrHandlerTest, EmptyTextsAreCellsWithTheirFinalZeroOnly) {
    CTLVRecordV3 record(NO_IDENTIFIER, CTLVRecordV3::DEFAULT_BUCKETS);
    handler.makeIntTrapPackage(destination("", "", 0, 0, 0, ""), record);
    EXPECT_THAT(record, RecordIs(NO_IDENTIFIER, text(1, ""), u32(2, 0), i32(3, 1), text(4, ""), u32(5, 0), text(6, ""),
                                 u32(7, 0), text(8, "")));
}

TEST_F(TrapAddrHandlerTest, ExceptionOfTheHostPassesThroughEveryOperation) {
    host.trapApi().onList = []() -> int { throw std::runtime_error("list"); };
    host.trapApi().onCreate = [](const tTrapDestInfo&) -> int { throw std::runtime_error("create"); };
    host.trapApi().checkIndex = [](tTrapDestInfo&) -> bool { throw std::runtime_error("index"); };
    EXPECT_THROW(create(requestWith(text(1, "10.0.0.1"), u32(2, 162))), std::runtime_error);
    EXPECT_THROW(modify(requestWith(text(4, "1"), text(1, "10.0.0.1"), u32(2, 162))), std::runtime_error);
    EXPECT_THROW(erase(requestWith(text(4, "1"))), std::runtime_error);
    EXPECT_THROW(handler.OnQueryTable(ctx, CR8KPackageV3(), rsp), std::runtime_error);
}

// The helpers by themselves.

TEST_F(TrapAddrHandlerTest, CheckParamWantsAnAddressAndValidVersionAndType) {
    struct Case {
        const char* name;
        std::vector<TlvCell> cells;
        bool expected;
    };
    const Case cases[] = {
        {"first address", {text(1, "10.0.0.1")}, true},
        {"first address is not checked", {text(1, "bad")}, true},
        {"second address beside the first is not checked", {text(1, "10.0.0.1"), text(6, "bad")}, true},
        {"second address", {text(6, "10.0.0.1")}, true},
        {"invalid second address", {text(6, "bad")}, false},
        {"no address", {u32(2, 162)}, false},
        {"version and type", {text(1, "10.0.0.1"), u32(5, 3), u32(7, 4)}, true},
        {"invalid version", {text(1, "10.0.0.1"), u32(5, 4)}, false},
        {"invalid type", {text(1, "10.0.0.1"), u32(7, 5)}, false},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(handler.CheckParam(TestPackage({TlvRecord{NO_IDENTIFIER, c.cells}})), c.expected) << c.name;
    }
}

TEST_F(TrapAddrHandlerTest, CommonOperationTakesEachValidColumnByItself) {
    const tTrapDestInfo before = destination("1", "10.0.0.1", 162, 1, 2, "op");
    const std::pair<TlvCell, tTrapDestInfo> cases[] = {
        {u32(5, 3), destination("1", "10.0.0.1", 162, 3, 2, "op")},
        {text(6, "10.0.0.2"), destination("1", "10.0.0.2", 162, 1, 2, "op")},
        {u32(7, 4), destination("1", "10.0.0.1", 162, 1, 4, "op")},
        {text(8, "other"), destination("1", "10.0.0.1", 162, 1, 2, "other")},
        {text(1, "10.0.0.2"), before},
        {u32(2, 163), before},
        {text(4, "2"), before},
    };
    for (const auto& [cell, after] : cases) {
        tTrapDestInfo info = before;
        handler.CommonOperation(requestWith(cell), info);
        EXPECT_EQ(info, after) << cell;
    }
}

TEST_F(TrapAddrHandlerTest, CommonOperationDropsInvalidValuesSilently) {
    tTrapDestInfo info = destination("1", "10.0.0.1", 162, 1, 2, "op");
    handler.CommonOperation(requestWith(u32(5, 9), text(6, "bad"), u32(7, 9), text(8, "bad")), info);
    EXPECT_EQ(info, destination("1", "10.0.0.1", 162, 1, 2, "op"));
    EXPECT_THAT(host.log().lines(), IsEmpty());
}

TEST_F(TrapAddrHandlerTest, ErrorLinesNameTheirFunctionAndLine) {
    create(requestWith(u32(2, 162)));
    modify(requestWith(u32(2, 162)));
    modify(requestWith(text(4, "1"), u32(2, 162)));
    erase(requestWith(u32(2, 162)));
    erase(requestWith(text(4, "1")));
    host.trapApi().onList = [] { return 1; };
    erase(requestWith(text(4, "1")));
    handler.OnQueryTable(ctx, CR8KPackageV3(), rsp);
    std::vector<std::string> functions;
    std::set<unsigned int> lines;
    for (const FakeLogLine& line : host.log().entries()) {
        if (line.kind != "error") continue;
        functions.push_back(line.function);
        lines.insert(line.line);
    }
    EXPECT_THAT(functions, ElementsAre("OnCreateTable", "OnModifyTable", "OnModifyTable", "OnDeleteTable",
                                       "OnDeleteTable", "OnDeleteTable", "OnQueryTable"));
    EXPECT_EQ(lines.size(), 7u);
}

TEST_F(TrapAddrHandlerTest, EveryTableOperationLogsItsSignature) {
    const std::string head = "virtual int CTamrelTrapAddrHandler::";
    const std::string tail = "(const CVRX_SnmpContext&, const CR8KPackageV3&, CR8KPackageV3&)";
    create(requestWith(text(1, "10.0.0.1"), u32(2, 162)));
    host.trapApi().destinations = {destination("1", "10.0.0.1", 162)};
    modify(requestWith(text(4, "1"), text(1, "10.0.0.1"), u32(2, 162)));
    erase(requestWith(text(4, "1")));
    handler.OnQueryTable(ctx, CR8KPackageV3(), rsp);
    std::vector<std::string> expected;
    for (const char* name : {"OnCreateTable", "OnModifyTable", "OnDeleteTable", "OnQueryTable"}) {
        const std::string signature = std::string(head).append(name).append(tail);
        expected.push_back("trace enter " + signature + "...");
        expected.push_back("trace leave " + signature + ": OK");
    }
    EXPECT_EQ(host.log().lines(), expected);
    EXPECT_EQ(host.log().entries()[0].module, 4u);
}

TEST_F(TrapAddrHandlerTest, LeafOperationsThrow) {
    EXPECT_THROW(handler.OnQueryLeaf(ctx, CR8KPackageV3(), rsp), CVRX_Exception);
    EXPECT_THROW(handler.OnSetLeaf(ctx, CR8KPackageV3(), rsp), CVRX_Exception);
}

}  // namespace
