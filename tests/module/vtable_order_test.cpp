// The order of virtual operations, which hosts that are built elsewhere call through: the words of each class's virtual
// function table, by the names of the functions that they point to.
#include <cxxabi.h>
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <link.h>

#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "module/snmp_handler.h"
#include "platform/notify_msg_handler.h"
#include "tests/fake_host/fake_host.h"
#include "tests/module/loaded_module.h"

namespace {

using testing::ElementsAreArray;

const std::string DESTRUCTOR = "destructor";
const std::string DELETING_DESTRUCTOR = "deleting destructor";

std::string demangled(const char* name) {
    std::unique_ptr<char, decltype(&std::free)> text(abi::__cxa_demangle(name, nullptr, nullptr, nullptr), &std::free);
    return text == nullptr ? name : text.get();
}

// "CClass::operation", without arguments. Destructors by their kind, which only the mangled name tells.
std::string slotName(void* function) {
    Dl_info info{};
    if (dladdr(function, &info) == 0 || info.dli_sname == nullptr) return "no name";
    const std::string mangled = info.dli_sname;
    if (mangled.find("D0Ev") != std::string::npos) return DELETING_DESTRUCTOR;
    if (mangled.find("D1Ev") != std::string::npos || mangled.find("D2Ev") != std::string::npos) return DESTRUCTOR;
    std::string name = demangled(info.dli_sname);
    const std::string abiTag = "[abi:cxx11]";
    const std::size_t tag = name.find(abiTag);
    if (tag != std::string::npos) name.erase(tag, abiTag.size());
    return name;
}

// The names of all slots of an object's class. The table's size is that of its symbol: two words (offset, type) stand
// before the slots.
std::vector<std::string> slotsOf(const void* object) {
    void** const table = *static_cast<void** const*>(object);
    Dl_info info{};
    void* extra = nullptr;
    if (dladdr1(table - 2, &info, &extra, RTLD_DL_SYMENT) == 0 || extra == nullptr) return {"no virtual table found"};
    const std::size_t words = static_cast<ElfW(Sym)*>(extra)->st_size / sizeof(void*);
    std::vector<std::string> names;
    for (std::size_t i = 0; i + 2 < words; ++i) names.push_back(slotName(table[i]));
    return names;
}

const std::string PACKAGES =
    "(CVRX_SnmpContext const&, CTLVPackageV3<TLVMsgHeadV3> const&, CTLVPackageV3<TLVMsgHeadV3>&)";

class VtableOrderTest : public testing::Test {
protected:
    VtableOrderTest() : module(library.create()) {
        module->getSvcHandler(list);
        for (const auto& row : list) handlers.push_back(row.second);
        for (INotifyMsgHandler* handler : host.dispatcher().handlers()) notifyHandlers.push_back(handler);
    }
    ~VtableOrderTest() override {
        for (CSnmpHandler* handler : handlers) delete handler;
        host.deleteHandlers();
    }

    FakeHost host;
    LoadedModule library;
    std::unique_ptr<CSNMP_Svc_Module> module;
    SNMP_HANDLER_LIST list;
    std::vector<CSnmpHandler*> handlers;
    std::vector<INotifyMsgHandler*> notifyHandlers;
};

TEST_F(VtableOrderTest, Module) {
    EXPECT_THAT(slotsOf(module.get()),
                ElementsAreArray<std::string>(
                    {DESTRUCTOR, DELETING_DESTRUCTOR, "CSNMP_Tamrel_Mib_Module::getMibFileName()",
                     "CSNMP_Tamrel_Mib_Module::getSvcHandler(std::__cxx11::list<std::pair<std::__cxx11::basic_string<"
                     "char, std::char_traits<char>, std::allocator<char> > const, CSnmpHandler*>, "
                     "std::allocator<std::pair<std::__cxx11::basic_string<char, std::char_traits<char>, "
                     "std::allocator<char> > const, CSnmpHandler*> > >&)"}));
}

TEST_F(VtableOrderTest, TopologyTable) {
    EXPECT_THAT(slotsOf(handlers[0]),
                ElementsAreArray<std::string>(
                    {DESTRUCTOR, DELETING_DESTRUCTOR, "CSnmpTableHandler::OnQueryLeaf" + PACKAGES,
                     "CSnmpTopoHandler::OnQueryTable" + PACKAGES, "CSnmpTableHandler::OnSetLeaf" + PACKAGES,
                     "CSnmpTableHandler::OnCreateTable" + PACKAGES, "CSnmpTableHandler::OnModifyTable" + PACKAGES,
                     "CSnmpTableHandler::OnDeleteTable" + PACKAGES, "CSnmpHandler::strategy()",
                     "CSnmpHandler::isWholeTable()", "CSnmpHandler::getSnmpOIDVersion()"}));
}

TEST_F(VtableOrderTest, AlarmTable) {
    EXPECT_THAT(
        slotsOf(handlers[1]),
        ElementsAreArray<std::string>(
            {DESTRUCTOR,
             DELETING_DESTRUCTOR,
             "CSnmpTableHandler::OnQueryLeaf" + PACKAGES,
             "CSnmpTableBase::OnQueryTable" + PACKAGES,
             "CSnmpTableHandler::OnSetLeaf" + PACKAGES,
             "CSnmpTableHandler::OnCreateTable" + PACKAGES,
             "CSnmpTableHandler::OnModifyTable" + PACKAGES,
             "CSnmpTableHandler::OnDeleteTable" + PACKAGES,
             "CSnmpHandler::strategy()",
             "CSnmpTableBase::isWholeTable()",
             "CSnmpHandler::getSnmpOIDVersion()",
             "CSnmpTamrelVrxAlarmHandler::preGetRspCell(CTLVRecordV3 const&)",
             "CSnmpTamrelVrxAlarmHandler::postGetRspCell(CTLVRecordV3 const&)",
             "CSnmpTableBase::GetBatchTableInfo_i(CTLVPackageV3<TLVMsgHeadV3>&, std::__cxx11::basic_string<char, "
             "std::char_traits<char>, std::allocator<char> >&, std::__cxx11::basic_string<char, "
             "std::char_traits<char>, std::allocator<char> >&, unsigned long long&, unsigned int&, int&, "
             "CTLVPackageV3<TLVMsgHeadV3>&)",
             "CSnmpTableBase::AppendRspPkgRecord(CTLVPackageV3<TLVMsgHeadV3>&, CTLVRecordV3 const&)",
             "CSnmpTamrelVrxAlarmHandler::fillReqRecord(CTLVRecordV3*)",
             "CSnmpTamrelVrxAlarmHandler::fillRspRecord(CTLVRecordV3 const&, CTLVRecordV3*)",
             "CSnmpTamrelVrxAlarmHandler::getIndexOfRecord(CTLVRecordV3 const&)",
             "CSnmpTamrelVrxAlarmHandler::getMibKey(Agentpp::Oidx const&)",
             "CSnmpTableBase::queryRecordValidation(CTLVRecordV3 const&)",
             "CSnmpTableBase::checkOKBeforeQueryTable(CVRX_SnmpContext const&)",
             "CSnmpTableBase::SendBatchPackage(CTLVPackageV3<TLVMsgHeadV3>&, CTLVPackageV3<TLVMsgHeadV3>&)",
             "CSnmpTamrelVrxAlarmHandler::useDateAndTime()"}));
}

TEST_F(VtableOrderTest, SlotTwentyThreeOfTheAlarmTableSaysDateAndTime) {
    void** const table = *reinterpret_cast<void***>(handlers[1]);
    EXPECT_TRUE(reinterpret_cast<bool (*)(CSnmpHandler*)>(table[22])(handlers[1]));
}

TEST_F(VtableOrderTest, ClearAlarmScalar) {
    EXPECT_THAT(
        slotsOf(handlers[2]),
        ElementsAreArray<std::string>(
            {DESTRUCTOR, DELETING_DESTRUCTOR, "CSnmpLeafHandler::OnQueryLeaf" + PACKAGES,
             "CSnmpLeafHandler::OnQueryTable" + PACKAGES, "CSnmpTamrelVrxClearAlarmHandler::OnSetLeaf" + PACKAGES,
             "CSnmpLeafHandler::OnCreateTable" + PACKAGES, "CSnmpLeafHandler::OnModifyTable" + PACKAGES,
             "CSnmpLeafHandler::OnDeleteTable" + PACKAGES, "CSnmpHandler::strategy()", "CSnmpHandler::isWholeTable()",
             "CSnmpHandler::getSnmpOIDVersion()",
             "CSnmpTamrelVrxClearAlarmHandler::queryLeaf(CVRX_SnmpContext const&, CTLVCell*&)"}));
}

TEST_F(VtableOrderTest, TrapDestinationTable) {
    EXPECT_THAT(
        slotsOf(handlers[3]),
        ElementsAreArray<std::string>(
            {DESTRUCTOR, DELETING_DESTRUCTOR, "CSnmpTableHandler::OnQueryLeaf" + PACKAGES,
             "CTamrelTrapAddrHandler::OnQueryTable" + PACKAGES, "CSnmpTableHandler::OnSetLeaf" + PACKAGES,
             "CTamrelTrapAddrHandler::OnCreateTable" + PACKAGES, "CTamrelTrapAddrHandler::OnModifyTable" + PACKAGES,
             "CTamrelTrapAddrHandler::OnDeleteTable" + PACKAGES, "CSnmpHandler::strategy()",
             "CSnmpHandler::isWholeTable()", "CSnmpHandler::getSnmpOIDVersion()"}));
}

const std::string MAP_AND_LIST =
    "(std::map<std::__cxx11::basic_string<char, std::char_traits<char>, std::allocator<char> >, tTrapDestInfo, "
    "std::less<std::__cxx11::basic_string<char, std::char_traits<char>, std::allocator<char> > >, "
    "std::allocator<std::pair<std::__cxx11::basic_string<char, std::char_traits<char>, std::allocator<char> > const, "
    "tTrapDestInfo> > > const&, std::__cxx11::list<tTrapDestInfo, std::allocator<tTrapDestInfo> >&)";

TEST_F(VtableOrderTest, NotificationHandler) {
    EXPECT_THAT(slotsOf(notifyHandlers[0]),
                ElementsAreArray<std::string>(
                    {DESTRUCTOR, DELETING_DESTRUCTOR,
                     "CTamrelNotifyMsgHandler::constructAlarmTrapVb(CTLVRecordV3 const&, Agentpp::Vbx*&)",
                     "CTamrelNotifyMsgHandler::getTrapOid(unsigned long long)", "CTamrelNotifyMsgHandler::getBaseOid()",
                     "INotifyMsgHandler::useDateAndTime()", "CTamrelNotifyMsgHandler::getTrapVbLen()",
                     "CTamrelNotifyMsgHandler::filterTrapMap" + MAP_AND_LIST}));
}

TEST_F(VtableOrderTest, OidBasedNotificationHandler) {
    EXPECT_THAT(
        slotsOf(notifyHandlers[1]),
        ElementsAreArray<std::string>(
            {DESTRUCTOR, DELETING_DESTRUCTOR,
             "CTamrelNotifyMsgHandler::constructAlarmTrapVb(CTLVRecordV3 const&, Agentpp::Vbx*&)",
             "CTamrelOIDBasedMsgHandler::getTrapOid(unsigned long long)", "CTamrelOIDBasedMsgHandler::getBaseOid()",
             "CTamrelOIDBasedMsgHandler::useDateAndTime()", "CTamrelNotifyMsgHandler::getTrapVbLen()",
             "CTamrelOIDBasedMsgHandler::filterTrapMap" + MAP_AND_LIST}));
}

TEST_F(VtableOrderTest, Package) {
    const CR8KPackageV3 package;
    EXPECT_THAT(slotsOf(&package), ElementsAreArray<std::string>(
                                       {DESTRUCTOR, DELETING_DESTRUCTOR,
                                        "CTLVPackageV3<TLVMsgHeadV3>::decode(unsigned char*, unsigned int)",
                                        "CTLVPackageV3<TLVMsgHeadV3>::encode(unsigned char*&)",
                                        "CTLVPackageV3<TLVMsgHeadV3>::encode(unsigned char*, unsigned int)",
                                        "CTLVPackageV3<TLVMsgHeadV3>::clear()",
                                        "CTLVPackageV3<TLVMsgHeadV3>::dump(std::__cxx11::basic_ostringstream<char, "
                                        "std::char_traits<char>, std::allocator<char> >&) const"}));
}

}  // namespace
