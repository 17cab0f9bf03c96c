#include "host/base/device_config.h"

#include <gmock/gmock.h>
#include <pthread.h>

#include <atomic>
#include <functional>
#include <thread>
#include <vector>

#include "platform/vrx_xml_config.h"
#include "tests/base/temporary_root.h"

namespace vrx {

namespace {

using testing::HasSubstr;
using testing::StartsWith;

class DeviceConfigFile : public testing::Test {
protected:
    DeviceConfig read(const std::string& content) { return readDeviceConfig(m_root.write("device.xml", content)); }

    // What follows the path in the text of the fault.
    std::string faultOf(const std::string& content) {
        const std::string path = m_root.write("device.xml", content);
        return faultOfPath(path);
    }
    static std::string faultOfPath(const std::string& path) {
        try {
            readDeviceConfig(path);
        } catch (const DeviceConfigError& error) {
            EXPECT_THAT(error.what(), StartsWith(path + ":"));
            return std::string(error.what()).substr(path.size());
        }
        return "no fault";
    }

    TemporaryRoot m_root;
};

TEST_F(DeviceConfigFile, GivesValuesBySectionAndKey) {
    const DeviceConfig expected = {{"A", {{"x", "1"}, {"y", ""}}}, {"B", {{"x", "a < b"}}}, {"C", {}}};
    EXPECT_EQ(read("<?xml version='1.0'?><!-- first --><device><section name='A'><item key='x' value='1'/><!-- one -->"
                   "<item key='y' value=''/></section><section name='B'><item key='x' value='a &lt; b'/></section>"
                   "<section name='C'/></device>"),
              expected);
}

TEST_F(DeviceConfigFile, MissingOneIsNamed) {
    EXPECT_EQ(faultOfPath(m_root.pathOf("missing.xml")), ": No such file or directory");
}

TEST_F(DeviceConfigFile, DirectoryIsRefused) {
    EXPECT_EQ(faultOfPath(m_root.path()), ": not a regular file");
}

TEST_F(DeviceConfigFile, EmptyOneIsRefused) {
    EXPECT_THAT(faultOf(""), HasSubstr("Error document empty."));
}

TEST_F(DeviceConfigFile, BrokenXmlIsNamedWithItsRow) {
    EXPECT_EQ(faultOf("<device>\n<section name='A'>\n</device>\n"), ":3: Error reading end tag.");
}

TEST_F(DeviceConfigFile, AnotherRootElementIsRefused) {
    EXPECT_EQ(faultOf("<config/>"), ":1: unexpected element <config>");
}

TEST_F(DeviceConfigFile, WithoutElementsIsRefused) {
    EXPECT_EQ(faultOf("<!-- nothing -->"), ": holds no <device>");
}

TEST_F(DeviceConfigFile, SecondRootElementIsRefused) {
    EXPECT_EQ(faultOf("<device/>\n<device/>"), ":2: a second <device>");
}

TEST_F(DeviceConfigFile, UnknownElementsAreRefused) {
    EXPECT_EQ(faultOf("<device>\n<sections name='A'/></device>"), ":2: unexpected element <sections>");
    EXPECT_EQ(faultOf("<device><section name='A'>\n\n<entry/></section></device>"), ":3: unexpected element <entry>");
    EXPECT_EQ(faultOf("<device><section name='A'><item key='k' value='v'>\n<item/></item></section></device>"),
              ":2: unexpected element <item>");
}

TEST_F(DeviceConfigFile, UnknownAttributesAreRefused) {
    EXPECT_EQ(faultOf("<device version='1'/>"), ":1: unexpected attribute version of <device>");
    EXPECT_EQ(faultOf("<device>\n<section name='A' id='1'/></device>"), ":2: unexpected attribute id of <section>");
    EXPECT_EQ(faultOf("<device><section name='A'>\n<item key='k' val='v'/></section></device>"),
              ":2: unexpected attribute val of <item>");
}

TEST_F(DeviceConfigFile, MissingAttributesAreRefused) {
    EXPECT_EQ(faultOf("<device>\n<section/></device>"), ":2: <section> without name");
    EXPECT_EQ(faultOf("<device><section name='A'><item value='v'/></section></device>"), ":1: <item> without key");
    EXPECT_EQ(faultOf("<device><section name='A'><item key='k'/></section></device>"), ":1: <item> without value");
}

TEST_F(DeviceConfigFile, TextBetweenElementsIsRefused) {
    EXPECT_EQ(faultOf("<device>\nwords</device>"), ":2: text or markup that has no place there");
}

TEST_F(DeviceConfigFile, KeyThatStandsThereTwiceIsRefused) {
    EXPECT_EQ(faultOf("<device><section name='A'>\n<item key='k' value='1'/>\n<item key='k' value='1'/></section>"
                      "</device>"),
              ":3: key k stands twice in section A");
}

TEST_F(DeviceConfigFile, SectionThatStandsThereTwiceIsRefused) {
    EXPECT_EQ(faultOf("<device><section name='A'/>\n<section name='A'/></device>"), ":2: section A stands there twice");
}

TEST_F(DeviceConfigFile, OneKeyMayStandInTwoSections) {
    EXPECT_EQ(read("<device><section name='A'><item key='k' value='1'/></section><section name='B'><item key='k' "
                   "value='2'/></section></device>")["B"]["k"],
              "2");
}

TEST_F(DeviceConfigFile, ZeroByteIsRefused) {
    EXPECT_EQ(faultOf(std::string("<device>\0</device>", 18)), ": holds a zero byte");
}

TEST_F(DeviceConfigFile, HugeOneIsRefused) {
    EXPECT_EQ(faultOf("<device><!--" + std::string(262144, ' ') + "--></device>"), ": larger than 262144 bytes");
}

// Runs on a thread with a stack of 1 MiB.
void onSmallStack(std::function<void()> work) {
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    ASSERT_EQ(pthread_attr_setstacksize(&attributes, std::size_t{1024} * 1024), 0);
    pthread_t thread{};
    const auto run = [](void* argument) -> void* {
        (*static_cast<std::function<void()>*>(argument))();
        return nullptr;
    };
    ASSERT_EQ(pthread_create(&thread, &attributes, run, &work), 0);
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attributes);
}

TEST_F(DeviceConfigFile, DeepNestingIsRefusedBeforeItTakesTheStack) {
    std::string nested = "<device>";
    for (int i = 0; i < 30000; ++i) nested += "<a>";
    std::string fault;
    onSmallStack([&] { fault = faultOf(nested); });
    EXPECT_EQ(fault, ": more than 1000 elements and comments");
}

TEST_F(DeviceConfigFile, DeepestNestingThatIsParsedFitsASmallStack) {
    std::string nested = "<device>";
    for (int i = 0; i < 990; ++i) nested += "<a>";
    std::string fault;
    onSmallStack([&] { fault = faultOf(nested); });
    EXPECT_THAT(fault, HasSubstr("Error reading"));
}

class ProcessConfig : public testing::Test {
protected:
    void SetUp() override {
        write("1");
        reloadDeviceConfig();
    }
    void write(const std::string& value) {
        m_root.write("conf/device.xml", "<device><section name='A'><item key='k' value='" + value +
                                            "'/><item key='same' value='" + value + "'/></section></device>");
    }
    static std::string item(const std::string& section, const std::string& key) {
        std::string value = "left over";
        const std::string returned = CVRXXmlConfig::instance()->getDeviceItem(section, key, value);
        EXPECT_EQ(returned, value);
        return value;
    }

    TemporaryRoot m_root;
};

TEST_F(ProcessConfig, GivesValues) {
    EXPECT_EQ(item("A", "k"), "1");
}

TEST_F(ProcessConfig, MissingKeyOrSectionGivesAnEmptyText) {
    EXPECT_EQ(item("A", "missing"), "");
    EXPECT_EQ(item("missing", "k"), "");
}

TEST_F(ProcessConfig, IsOneForTheProcess) {
    EXPECT_EQ(CVRXXmlConfig::instance(), CVRXXmlConfig::instance());
}

TEST_F(ProcessConfig, ChangedFileIsSeenAfterAReload) {
    write("2");
    EXPECT_EQ(item("A", "k"), "1");
    reloadDeviceConfig();
    EXPECT_EQ(item("A", "k"), "2");
}

TEST_F(ProcessConfig, FaultyFileKeepsTheFormerValues) {
    m_root.write("conf/device.xml", "<device>");
    EXPECT_THROW(reloadDeviceConfig(), DeviceConfigError);
    EXPECT_EQ(item("A", "k"), "1");
}

TEST_F(ProcessConfig, ReadersSeeOneFileOrTheOtherWhileItIsReloaded) {
    std::atomic<bool> done{false};
    std::vector<std::thread> readers;
    readers.reserve(3);
    std::atomic<int> strange{0};
    for (int i = 0; i < 3; ++i) {
        readers.emplace_back([&] {
            while (!done) {
                const std::string value = item("A", "k");
                if (value != "1" && value != "2") ++strange;
            }
        });
    }
    for (int i = 0; i < 50; ++i) {
        write(i % 2 == 0 ? "2" : "1");
        reloadDeviceConfig();
    }
    done = true;
    for (std::thread& reader : readers) reader.join();
    EXPECT_EQ(strange, 0);
}

}  // namespace

}  // namespace vrx
