// The host's table of operations against the module's headers and objects. A change of the module that the table has
// not followed stops the build here: the agent would call something else than it means.
#include "host/agent/tamrel/tamrel_operations.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstring>
#include <type_traits>

#include "alarm/snmp_alarm_iniparser.h"
#include "alarm/snmp_alarm_repository.h"
#include "notify/snmp_tamrel_notify_handler.h"

namespace vrx {

namespace {

template <typename Class, typename Result, typename... Arguments>
Result (*calledAs(Result (Class::*)(Arguments...)))(Class*, Arguments...);
template <typename Result, typename... Arguments>
Result (*calledAs(Result (*)(Arguments...)))(Arguments...);

template <typename Function>
void* addressOf(Function function) {
    void* address = nullptr;
    std::memcpy(&address, &function, sizeof address);  // of a member function that is not virtual: its first word
    return address;
}

template <auto FUNCTION, typename Operation>
std::size_t holds(const Operation& operation) {
    static_assert(std::is_same_v<decltype(calledAs(FUNCTION)), decltype(operation.call)>,
                  "the module's operation is of another type than the host calls it by");
    EXPECT_EQ(dlsym(RTLD_DEFAULT, operation.symbol), addressOf(FUNCTION)) << operation.symbol;
    return 1;
}

}  // namespace

TEST(TamrelOperations, AreTheModulesByNameAndType) {
    TamrelOperations operations;
    std::size_t held = 0;
    held += holds<&CTamrelNotifyMsgHandler::getAlarmCategory>(operations.getCategory);
    held += holds<&CTamrelNotifyMsgHandler::putAlarmIntoRepository>(operations.putAlarm);
    held += holds<&CAlarmRepository_Singleton::getAlarmRepository>(operations.getRepository);
    held += holds<&CAlarmRepository_Singleton::getAlarmRepositorySize>(operations.getSize);
    held += holds<&CAlarmRepository_Singleton::getAllAlarmItems>(operations.getItems);
    held += holds<&CAlarmConfigParser::destroy>(operations.destroyDefinitions);
    held += holds<&CAlarmConfigParser::instance>(operations.getDefinitions);
    std::size_t lookedUp = 0;
    operations.forEach([&lookedUp](const auto&) { ++lookedUp; });
    EXPECT_EQ(lookedUp, held);
    EXPECT_EQ(sizeof operations, held * sizeof operations.getSize) << "an operation that nobody looks up";
}

}  // namespace vrx
