#include "host/agent/tamrel/tamrel_binding.h"

#include <agent_pp/snmp_pp_ext.h>
#include <gtest/gtest.h>

#include "platform/notify_msg_handler.h"
#include "tests/agent/notifications/notification_records.h"

namespace vrx {

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

TEST(NotificationForeignModule, AModuleThatExportsNoOperationsIsLeftAlone) {
    CTamrelNotifyMsgHandler handler;
    const TamrelBinding binding({&handler});
    EXPECT_FALSE(binding.found());
    binding.follow(*alarmRecord(1, 70));
    EXPECT_EQ(binding.compare({1, 2}).added, 0U);
    EXPECT_TRUE(binding.repository().empty());
}

}  // namespace vrx
