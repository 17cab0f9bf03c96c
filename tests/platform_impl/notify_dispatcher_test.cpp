#include <gtest/gtest.h>

#include "platform/notify_handler.h"
#include "platform/notify_msg_handler.h"

namespace {

class SilentHandler : public INotifyMsgHandler {
public:
    int constructAlarmTrapVb(const CTLVRecordV3&, Agentpp::Vbx*&) override { return -1; }
    Agentpp::Oidx& getTrapOid(unsigned long long) override { return m_oid; }
    Agentpp::Oidx& getBaseOid() override { return m_oid; }
    int getTrapVbLen() override { return 0; }
    void filterTrapMap(const std::map<std::string, tTrapDestInfo>&, std::list<tTrapDestInfo>&) override {}

private:
    Agentpp::Oidx m_oid;
};

TEST(NotifyDispatcher, IsOneForTheProcess) {
    ASSERT_NE(CNotifyHandler::instance(), nullptr);
    EXPECT_EQ(CNotifyHandler::instance(), CNotifyHandler::instance());
}

TEST(NotifyDispatcher, KeepsHandlersInTheOrderOfRegistration) {
    SilentHandler first;
    SilentHandler second;
    std::list<INotifyMsgHandler*>& handlers = CNotifyHandler::instance()->handlers();
    handlers.push_back(&first);
    handlers.push_back(&second);
    EXPECT_EQ(CNotifyHandler::instance()->handlers(), (std::list<INotifyMsgHandler*>{&first, &second}));
    handlers.clear();
}

}  // namespace
