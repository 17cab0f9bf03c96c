#include "host/platform_impl/identity.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>

#include "platform/snmp_basic_impl.h"
#include "tests/base/temporary_root.h"

namespace vrx {

namespace {

// Identity is read once in the life of a process: each case runs in a process of its own, and fails by ending it with
// another code than 0.
::testing::AssertionResult holdsWith(const std::string& items, const std::function<bool()>& condition) {
    const TemporaryRoot root;
    root.write("conf/device.xml", "<device><section name='NODE'>" + items + "</section></device>");
    const pid_t child = fork();
    if (child == 0) {
        loadIdentity();
        _exit(condition() ? 0 : 1);
    }
    int status = 0;
    waitpid(child, &status, 0);
    if (WIFEXITED(status) && WEXITSTATUS(status) == 0) return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "the child's status is " << status;
}

constexpr const char* ALL =
    "<item key='CODE' value='VRX-7'/><item key='TYPE' value='3'/><item key='DEVICE_TYPE' value='7700'/>"
    "<item key='PRODUCT_SN' value='SN1'/><item key='SYSTEM_NAME' value='array'/>";

TEST(Identity, ConfiguredValuesAreGiven) {
    EXPECT_TRUE(holdsWith(ALL, [] { return std::string(CSNMPBasicImpl::getNodeCode()) == "VRX-7"; }));
    EXPECT_TRUE(holdsWith(ALL, [] { return CSNMPBasicImpl::getNodeType() == 3; }));
    EXPECT_TRUE(holdsWith(ALL, [] { return CSNMPBasicImpl::device_type == 7700; }));
    EXPECT_TRUE(holdsWith(ALL, [] { return CSNMPBasicImpl::product_sn == "SN1"; }));
    EXPECT_TRUE(holdsWith(ALL, [] { return GetSystemName() == "array"; }));
}

TEST(Identity, NodeCodeIsNullWhenNotConfigured) {
    EXPECT_TRUE(holdsWith("", [] { return CSNMPBasicImpl::getNodeCode() == nullptr; }));
}

TEST(Identity, SystemNameIsTheHostNameWhenNotConfigured) {
    char host[256] = {};
    ASSERT_EQ(gethostname(host, sizeof host - 1), 0);
    EXPECT_TRUE(holdsWith("", [&host] { return GetSystemName() == host; }));
}

TEST(Identity, NumbersAreZeroWhenNotConfigured) {
    EXPECT_TRUE(holdsWith("", [] { return CSNMPBasicImpl::getNodeType() == 0 && CSNMPBasicImpl::device_type == 0; }));
}

TEST(Identity, DeviceTypeBeyondItsTypeIsTheLargest) {
    EXPECT_TRUE(holdsWith("<item key='DEVICE_TYPE' value='99999999999'/>",
                          [] { return CSNMPBasicImpl::device_type == 2147483647; }));
}

TEST(Identity, NodeCodeStaysWhereItIs) {
    EXPECT_TRUE(holdsWith(ALL, [] { return CSNMPBasicImpl::getNodeCode() == CSNMPBasicImpl::getNodeCode(); }));
}

}  // namespace

}  // namespace vrx
