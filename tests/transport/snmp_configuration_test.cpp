// What modules call and what the programs start with: transport, event source and backend set up from one product root.
#include "platform/snmp_configuration.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>
#include <optional>
#include <string>
#include <vector>

#include "host/backend/backend.h"
#include "host/base/device_config.h"
#include "host/base/product_root.h"
#include "host/transport/alarm_event_source.h"
#include "host/transport/backend_client.h"
#include "host/transport/backend_result.h"
#include "tests/backend/test_support.h"

namespace vrx {

namespace {

class CountingListener : public AlarmEventSource::Listener {
public:
    std::optional<HandledEvent> lastHandledEvent() override { return HandledEvent{}; }
    void onConnected(const BackendState&) override {}
    void onEvent(const AlarmEvent&, const CTLVRecordV3&) override { ++events; }
    void onDisconnected() override {}

    std::atomic<int> events{0};
};

}  // namespace

// One test: the transport of the process is made once.
TEST(SnmpConfiguration, ReachesTheBackendOfTheProductRoot) {
    const TemporaryDirectory root;
    setProductRoot(root.path());
    ASSERT_EQ(::mkdir(root.file("conf").c_str(), 0700), 0);
    std::ofstream(root.file("conf/device.xml")) << R"(<device>
        <section name="COMMAND">
            <item key="GET_SYSTEM_WWN" value="11"/><item key="GET_BACKEND_STATUS" value="12"/>
            <item key="GET_CURRENT_ALARM" value="13"/><item key="CLEAR_ALARM" value="14"/>
            <item key="RAISE_ALARM" value="15"/><item key="SUBSCRIBE_ALARM" value="16"/>
        </section>
        <section name="BACKEND">
            <item key="ADDRESS" value="unix:state/test.sock"/><item key="CALL_DEADLINE_MS" value="60000"/>
            <item key="PACKAGE_LIMIT_BYTES" value="200000"/><item key="CONNECTIONS" value="2"/>
            <item key="EVENT_LIMIT" value="5"/>
        </section></device>)";
    reloadDeviceConfig();

    const BackendSettings settings = BackendSettings::fromDevice();
    EXPECT_EQ(settings.transport.address.text(), "unix:" + root.file("state/test.sock"));
    EXPECT_EQ(settings.transport.callDeadline, std::chrono::milliseconds(60000));
    EXPECT_EQ(settings.transport.packageLimit, 200000U);
    EXPECT_EQ(settings.transport.connections, 2U);
    EXPECT_EQ(settings.eventLimit, 5U);
    EXPECT_EQ(settings.stateDirectory, root.file("state"));

    Backend backend(settings);
    backend.start();
    CountingListener listener;
    AlarmEventSource source(listener);
    source.start();

    CSNMP_Configuration* transport = CSNMP_Configuration::instance();
    ASSERT_NE(transport, nullptr);
    EXPECT_EQ(CSNMP_Configuration::instance(), transport);
    CR8KPackageV3 request;
    auto record = makeRecord(15);
    appendUint64(*record, alarm_tag::ID, 77);
    appendUint32(*record, alarm_tag::LEVEL, 3);
    appendText(*record, alarm_tag::PARAMETERS, "p");
    request.append(std::move(record));
    CR8KPackageV3 response;
    ASSERT_EQ(transport->configure(request, response, false), BACKEND_OK);
    EXPECT_EQ(uint32Of(*response[0], alarm_tag::SERIAL), 1U);
    EXPECT_TRUE(eventually([&listener] { return listener.events == 1; }));
    EXPECT_EQ(BackendClient::ofProcess().counters().calls, 1U);

    source.stop();
    backend.stop();
    EXPECT_EQ(transport->configure(request, response, false), BACKEND_UNREACHABLE);
}

}  // namespace vrx
