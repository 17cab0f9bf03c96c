// The first use of the configuration is once in the life of a process: a program of its own, with one test.
#include <gmock/gmock.h>

#include "host/base/device_config.h"
#include "platform/vrx_xml_config.h"
#include "tests/base/temporary_root.h"

namespace vrx {

namespace {

TEST(DeviceConfigFirstUse, FaultyFileIsLoggedOnceAndEveryValueIsEmptyUntilItIsReloaded) {
    const TemporaryRoot root;
    const std::string path = root.write("conf/device.xml", "<device>\n<fault/>\n</device>");
    std::string value = "left over";
    testing::internal::CaptureStderr();
    EXPECT_EQ(CVRXXmlConfig::instance()->getDeviceItem("A", "k", value), "");
    EXPECT_EQ(CVRXXmlConfig::instance()->getDeviceItem("A", "k", value), "");
    const std::string log = testing::internal::GetCapturedStderr();
    EXPECT_THAT(log, testing::EndsWith(" error [config] " + path + ":2: unexpected element <fault>\n"));
    EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 1);

    root.write("conf/device.xml", "<device><section name='A'><item key='k' value='v'/></section></device>");
    reloadDeviceConfig();
    EXPECT_EQ(CVRXXmlConfig::instance()->getDeviceItem("A", "k", value), "v");
}

}  // namespace

}  // namespace vrx
