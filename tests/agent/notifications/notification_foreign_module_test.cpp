#include "host/agent/tamrel/tamrel_binding.h"

#include <agent_pp/snmp_pp_ext.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/notify_msg_handler.h"
#include "tests/agent/notifications/notification_records.h"

// A class of the module's name in a library that exports none of its operations: this program.
class CTamrelNotifyMsgHandler : public INotifyMsgHandler {
public:
    int constructAlarmTrapVb(const CTLVRecordV3&, Agentpp::Vbx*&) override { return -1; }
    Agentpp::Oidx& getTrapOid(unsigned long long) override { return m_oid; }
    Agentpp::Oidx& getBaseOid() override { return m_oid; }
    int getTrapVbLen() override { return 0; }
    void filterTrapMap(const std::map<std::string, tTrapDestInfo>&, std::list<tTrapDestInfo>&) override {}

private:
    Agentpp::Oidx m_oid;
};

namespace vrx {

TEST(NotificationForeignModule, AModuleThatExportsNoOperationsIsLeftAlone) {
    CTamrelNotifyMsgHandler handler;
    testing::internal::CaptureStderr();
    const TamrelBinding binding({&handler});
    const std::string log = testing::internal::GetCapturedStderr();
    EXPECT_FALSE(binding.found());
    binding.follow(*alarmRecord(1, 70));
    EXPECT_EQ(binding.compare({1, 2}).added, 0U);
    EXPECT_TRUE(binding.repository().empty());

    // Each is named, as the module's header writes it.
    EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 7);
    EXPECT_THAT(log, testing::HasSubstr("the module does not export CTamrelNotifyMsgHandler::getAlarmCategory("
                                        "CTLVRecordV3 const&, unsigned int&): its repository of active alarms will "
                                        "not follow the notifications\n"));
    EXPECT_THAT(log, testing::HasSubstr("the module does not export CAlarmConfigParser::instance(): "));
}

}  // namespace vrx
