// The operations of the alarm module that this host calls by their mangled names, since it does not link the module.
//
// A name holds an operation's arguments, but not its result: tests/agent/tamrel/tamrel_operations_test.cpp compares
// both with the module's headers. It does not compile when one has changed.
#pragma once

#include <list>

class CAlarmConfigParser;
class CAlarmRepository_Singleton;
class CTLVRecordV3;
class CTamrelNotifyMsgHandler;

namespace vrx {

template <typename Function>
struct ModuleOperation {
    const char* symbol;
    Function call = nullptr;  // until it is looked up
};

// A member function takes its object as its first argument on every platform that we build for (Itanium C++ ABI).
struct TamrelOperations {
    ModuleOperation<void (*)(CTamrelNotifyMsgHandler*, const CTLVRecordV3&, unsigned int&)> getCategory{
        "_ZN23CTamrelNotifyMsgHandler16getAlarmCategoryERK12CTLVRecordV3Rj"};
    ModuleOperation<int (*)(CTamrelNotifyMsgHandler*, unsigned int serial, unsigned int category)> putAlarm{
        "_ZN23CTamrelNotifyMsgHandler22putAlarmIntoRepositoryEjj"};
    ModuleOperation<CAlarmRepository_Singleton* (*)()> getRepository{
        "_ZN26CAlarmRepository_Singleton18getAlarmRepositoryEv"};
    ModuleOperation<unsigned int (*)(CAlarmRepository_Singleton*)> getSize{
        "_ZN26CAlarmRepository_Singleton22getAlarmRepositorySizeEv"};
    ModuleOperation<int (*)(CAlarmRepository_Singleton*, std::list<unsigned int>&)> getItems{
        "_ZN26CAlarmRepository_Singleton16getAllAlarmItemsERNSt7__cxx114listIjSaIjEEE"};
    ModuleOperation<void (*)()> destroyDefinitions{"_ZN18CAlarmConfigParser7destroyEv"};
    ModuleOperation<CAlarmConfigParser* (*)()> getDefinitions{"_ZN18CAlarmConfigParser8instanceEv"};

    template <typename Action>
    void forEach(const Action& action) {
        action(getCategory);
        action(putAlarm);
        action(getRepository);
        action(getSize);
        action(getItems);
        action(destroyDefinitions);
        action(getDefinitions);
    }
};

}  // namespace vrx
