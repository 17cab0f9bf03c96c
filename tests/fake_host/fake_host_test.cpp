#include "tests/fake_host/fake_host.h"

#include <gmock/gmock.h>
#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "platform/snmp_basic_impl.h"
#include "platform/snmp_configuration.h"
#include "platform/snmp_util.h"
#include "platform/vrx_utility.h"
#include "platform/vrx_xml_config.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(FakeHost, RestoresTheHostBeforeOnExit) {
    EXPECT_EQ(FakeHost::current(), nullptr);
    FakeHost outer;
    outer.setDeviceType(1);
    {
        FakeHost inner;
        EXPECT_EQ(FakeHost::current(), &inner);
        EXPECT_EQ(CSNMPBasicImpl::device_type, 7700);
    }
    EXPECT_EQ(FakeHost::current(), &outer);
    EXPECT_EQ(CSNMPBasicImpl::device_type, 1);
}

TEST(FakeHost, ServiceWithoutHostFailsTheTestByName) {
    std::string value;
    EXPECT_NONFATAL_FAILURE(EXPECT_THROW(CVRXXmlConfig::instance()->getDeviceItem("A", "B", value), std::logic_error),
                            "CVRXXmlConfig was used without a FakeHost");
}

TEST(FakeHost, BackendCallThatWasNotPreparedFailsTheTest) {
    EXPECT_NONFATAL_FAILURE(
        {
            FakeHost host;
            TestPackage request({recordOf(7, u32(1, 2))});
            CR8KPackageV3 response;
            EXPECT_EQ(CSNMP_Configuration::instance()->configure(request, response, false), -1);
        },
        "no answer was prepared for { record 7 {");
}

TEST(FakeHost, BackendAnswersInTurnAndRecordsDeepCopies) {
    FakeHost host;
    host.backend().answer(0, {recordOf(7, text(1, "first"))});
    host.backend().answerAlways([](CR8KPackageV3&, CR8KPackageV3&) { return 5; });
    CR8KPackageV3 response;
    {
        TestPackage request({recordOf(7, u32(1, 2))});
        EXPECT_EQ(CSNMP_Configuration::instance()->configure(request, response, true), 0);
    }
    TestPackage second({recordOf(8)});
    EXPECT_EQ(CSNMP_Configuration::instance()->configure(second, response, false), 5);
    EXPECT_THAT(recordsOf(response), ElementsAre(RecordIs(7, text(1, "first"))));
    EXPECT_THAT(host.backend().sent(), ElementsAre(RecordIs(7, u32(1, 2)), RecordIs(8)));
    EXPECT_THAT(host.backend().retryArguments(), ElementsAre(true, false));
}

TEST(FakeHost, ConfigurationIsEmptyWhereNothingIsSet) {
    FakeHost host;
    host.setConfig("A", "B", "value");
    std::string value = "before";
    EXPECT_EQ(CVRXXmlConfig::instance()->getDeviceItem("A", "B", value), "value");
    EXPECT_EQ(value, "value");
    EXPECT_EQ(CVRXXmlConfig::instance()->getDeviceItem("A", "C", value), "");
    EXPECT_EQ(value, "");
}

TEST(FakeHost, RootGoesWithTheHost) {
    std::string root;
    {
        FakeHost host;
        root = host.root();
        host.writeFile("conf/a.xml", "<a/>");
        EXPECT_TRUE(std::filesystem::exists(VRX_Utility::getVRXRootEnv() + "/conf/a.xml"));
    }
    EXPECT_FALSE(std::filesystem::exists(root));
}

TEST(FakeHost, TimesAreUtc) {
    Snmp_pp::OctetStr octets;
    CSnmpUtil::convertTime2DateTime(octets, 1767323045);
    const std::string expected("\x07\xEA\x01\x02\x03\x04\x05\x00+\x00\x00", 11);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(octets.data()), octets.len()), expected);
    Snmp_pp::OctetStr text;
    CSnmpUtil::convertTime2DateTimeStr(text, 0);
    EXPECT_STREQ(text.get_printable(), "1970-01-01,00:00:00.0,+00:00");
}

TEST(FakeHost, TimeThatCannotBeConvertedLeavesWhatWasThere) {
    FakeHost host;
    host.failTimeConversions();
    Snmp_pp::OctetStr octets("before");
    CSnmpUtil::convertTime2DateTime(octets, 1767323045);
    EXPECT_STREQ(octets.get_printable(), "before");
    CSnmpUtil::convertTime2DateTimeStr(octets, 0);
    EXPECT_STREQ(octets.get_printable(), "before");
}

TEST(FakeHost, SplittingKeepsEmptyPieces) {
    const auto split = [](const std::string& text) {
        std::vector<std::string> pieces;
        SplitToStr(text, ',', pieces);
        return pieces;
    };
    EXPECT_THAT(split(""), IsEmpty());
    EXPECT_THAT(split("a"), ElementsAre("a"));
    EXPECT_THAT(split(","), ElementsAre("", ""));
    EXPECT_THAT(split(",a,,b,"), ElementsAre("", "a", "", "b", ""));
}

TEST(FakeHost, NumbersAreReadAsTheHostPromises) {
    EXPECT_EQ(StrToUint(""), 0u);
    EXPECT_EQ(StrToUint("  7x"), 7u);
    EXPECT_EQ(StrToUint("-1"), 0u);
    EXPECT_EQ(StrToUint("+1"), 0u);
    EXPECT_EQ(StrToUint("   "), 0u);
    EXPECT_EQ(StrToUint("4294967295"), 4294967295u);
    EXPECT_EQ(StrToUint("4294967296"), 4294967295u);
    EXPECT_EQ(StrToUint("99999999999999999999999"), 4294967295u);
    FakeHost host;
    host.readOtherTextsAs(9);
    EXPECT_EQ(StrToUint("x7"), 9u);
    EXPECT_EQ(StrToUint(""), 9u);
    EXPECT_EQ(StrToUint("7x"), 7u);
}

TEST(FakeHost, BoundedCopyRefusesWhatDoesNotFit) {
    char destination[3] = {'x', 'y', 'z'};
    EXPECT_EQ(memcpy_s(destination, sizeof destination, "abc", 3), 0);
    EXPECT_EQ(std::string(destination, 3), "abc");
    EXPECT_NE(memcpy_s(destination, sizeof destination, "defg", 4), 0);
    EXPECT_NE(memcpy_s(nullptr, 3, "a", 1), 0);
    EXPECT_NE(memcpy_s(destination, sizeof destination, nullptr, 1), 0);
    EXPECT_EQ(std::string(destination, 3), "abc");
}

}  // namespace
