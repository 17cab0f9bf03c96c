// The order of virtual operations, which hosts that are built elsewhere call through: the words of each class's virtual
// function table, by the names of the functions that they point to.
#include <cxxabi.h>
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <link.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <memory>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "module/snmp_handler.h"
#include "platform/notify_msg_handler.h"
#include "tests/fake_host/fake_host.h"
#include "tests/module/loaded_module.h"

// Of AddressSanitizer's runtime, in a build that has it.
extern "C" [[gnu::weak]] int __asan_address_is_poisoned(const volatile void* address);

namespace {

const std::string DESTRUCTOR = "destructor";
const std::string DELETING_DESTRUCTOR = "deleting destructor";

std::string demangled(const char* name) {
    std::unique_ptr<char, decltype(&std::free)> text(abi::__cxa_demangle(name, nullptr, nullptr, nullptr), &std::free);
    std::string readable = text == nullptr ? name : text.get();
    const std::string abiTag = "[abi:cxx11]";
    const std::size_t tag = readable.find(abiTag);
    if (tag != std::string::npos) readable.erase(tag, abiTag.size());
    return readable;
}

// "CClass::operation(arguments)". Destructors by their kind, which only the mangled name tells.
std::string slotName(const std::string& mangled) {
    if (mangled.find("D0Ev") != std::string::npos) return DELETING_DESTRUCTOR;
    if (mangled.find("D1Ev") != std::string::npos || mangled.find("D2Ev") != std::string::npos) return DESTRUCTOR;
    return demangled(mangled.c_str());
}

using NamesByOffset = std::multimap<std::uintptr_t, std::string>;

// All names in a file's table of dynamic symbols. An optimised build gives functions with the same code one address,
// so that asking the loader for the name of an address is not enough.
NamesByOffset readDynamicSymbols(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream content;
    content << file.rdbuf();
    const std::string bytes = content.str();
    const auto read = [&bytes](std::size_t offset, auto& out) {
        if (offset + sizeof out > bytes.size()) throw std::out_of_range("ELF file is cut off");
        std::memcpy(&out, bytes.data() + offset, sizeof out);
    };
    ElfW(Ehdr) head;
    read(0, head);
    const auto section = [&](std::size_t index) {
        ElfW(Shdr) found;
        read(head.e_shoff + index * head.e_shentsize, found);
        return found;
    };
    NamesByOffset names;
    for (std::size_t i = 0; i < head.e_shnum; ++i) {
        const ElfW(Shdr) symbols = section(i);
        if (symbols.sh_type != SHT_DYNSYM) continue;
        const ElfW(Shdr) texts = section(symbols.sh_link);
        for (std::size_t offset = 0; offset < symbols.sh_size; offset += symbols.sh_entsize) {
            ElfW(Sym) symbol;
            read(symbols.sh_offset + offset, symbol);
            if (symbol.st_shndx != SHN_UNDEF)
                names.emplace(symbol.st_value, &bytes.at(texts.sh_offset + symbol.st_name));
        }
    }
    return names;
}

// All names that a function in this process has.
std::set<std::string> namesOf(void* function) {
    static std::map<std::string, NamesByOffset> files;
    Dl_info info{};
    if (dladdr(function, &info) == 0) return {};
    const auto file = files.find(info.dli_fname);
    const NamesByOffset& names =
        file != files.end() ? file->second : (files[info.dli_fname] = readDynamicSymbols(info.dli_fname));
    std::set<std::string> found;
    const auto offset = reinterpret_cast<std::uintptr_t>(function) - reinterpret_cast<std::uintptr_t>(info.dli_fbase);
    const auto [first, last] = names.equal_range(offset);
    for (auto name = first; name != last; ++name) found.insert(slotName(name->second));
    return found;
}

// Whether a word stands in a red zone: Clang's AddressSanitizer counts the one after a table into its symbol's size.
bool isRedZone(const void* word) {
    return __asan_address_is_poisoned != nullptr && __asan_address_is_poisoned(word) != 0;
}

// The slots of an object's class. The table's size is that of its symbol: two words (offset, type) stand before the
// slots.
std::vector<std::set<std::string>> slotsOf(const void* object) {
    void** const table = *static_cast<void** const*>(object);
    Dl_info info{};
    void* extra = nullptr;
    if (dladdr1(table - 2, &info, &extra, RTLD_DL_SYMENT) == 0 || extra == nullptr) return {};
    const std::size_t words = static_cast<ElfW(Sym)*>(extra)->st_size / sizeof(void*);
    std::vector<std::set<std::string>> slots;
    for (std::size_t i = 0; i + 2 < words && !isRedZone(table + i); ++i) slots.push_back(namesOf(table[i]));
    return slots;
}

void expectSlots(const void* object, const std::vector<std::string>& expected) {
    const std::vector<std::set<std::string>> slots = slotsOf(object);
    EXPECT_EQ(slots.size(), expected.size());
    for (std::size_t i = 0; i < std::min(slots.size(), expected.size()); ++i) {
        EXPECT_THAT(slots[i], testing::Contains(expected[i])) << "slot " << i + 1;
    }
}

// Types as the demangler spells them.
const std::string CHARACTERS = "<char, std::char_traits<char>, std::allocator<char> >";
const std::string TEXT = "std::__cxx11::basic_string" + CHARACTERS;
const std::string TEXT_STREAM = "std::__cxx11::basic_ostringstream" + CHARACTERS;
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
    expectSlots(module.get(),
                {DESTRUCTOR, DELETING_DESTRUCTOR, "CSNMP_Tamrel_Mib_Module::getMibFileName()",
                 "CSNMP_Tamrel_Mib_Module::getSvcHandler(std::__cxx11::list<std::pair<" + TEXT +
                     " const, CSnmpHandler*>, std::allocator<std::pair<" + TEXT + " const, CSnmpHandler*> > >&)"});
}

TEST_F(VtableOrderTest, TopologyTable) {
    expectSlots(handlers[0],
                {DESTRUCTOR, DELETING_DESTRUCTOR, "CSnmpTableHandler::OnQueryLeaf" + PACKAGES,
                 "CSnmpTopoHandler::OnQueryTable" + PACKAGES, "CSnmpTableHandler::OnSetLeaf" + PACKAGES,
                 "CSnmpTableHandler::OnCreateTable" + PACKAGES, "CSnmpTableHandler::OnModifyTable" + PACKAGES,
                 "CSnmpTableHandler::OnDeleteTable" + PACKAGES, "CSnmpHandler::strategy()",
                 "CSnmpHandler::isWholeTable()", "CSnmpHandler::getSnmpOIDVersion()"});
}

TEST_F(VtableOrderTest, AlarmTable) {
    expectSlots(handlers[1],
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
                 "CSnmpTableBase::GetBatchTableInfo_i(CTLVPackageV3<TLVMsgHeadV3>&, " + TEXT + "&, " + TEXT +
                     "&, unsigned long long&, unsigned int&, int&, CTLVPackageV3<TLVMsgHeadV3>&)",
                 "CSnmpTableBase::AppendRspPkgRecord(CTLVPackageV3<TLVMsgHeadV3>&, CTLVRecordV3 const&)",
                 "CSnmpTamrelVrxAlarmHandler::fillReqRecord(CTLVRecordV3*)",
                 "CSnmpTamrelVrxAlarmHandler::fillRspRecord(CTLVRecordV3 const&, CTLVRecordV3*)",
                 "CSnmpTamrelVrxAlarmHandler::getIndexOfRecord(CTLVRecordV3 const&)",
                 "CSnmpTamrelVrxAlarmHandler::getMibKey(Agentpp::Oidx const&)",
                 "CSnmpTableBase::queryRecordValidation(CTLVRecordV3 const&)",
                 "CSnmpTableBase::checkOKBeforeQueryTable(CVRX_SnmpContext const&)",
                 "CSnmpTableBase::SendBatchPackage(CTLVPackageV3<TLVMsgHeadV3>&, CTLVPackageV3<TLVMsgHeadV3>&)",
                 "CSnmpTamrelVrxAlarmHandler::useDateAndTime()"});
}

TEST_F(VtableOrderTest, SlotTwentyThreeOfTheAlarmTableSaysDateAndTime) {
    void** const table = *reinterpret_cast<void***>(handlers[1]);
    EXPECT_TRUE(reinterpret_cast<bool (*)(CSnmpHandler*)>(table[22])(handlers[1]));
}

TEST_F(VtableOrderTest, ClearAlarmScalar) {
    expectSlots(handlers[2],
                {DESTRUCTOR, DELETING_DESTRUCTOR, "CSnmpLeafHandler::OnQueryLeaf" + PACKAGES,
                 "CSnmpLeafHandler::OnQueryTable" + PACKAGES, "CSnmpTamrelVrxClearAlarmHandler::OnSetLeaf" + PACKAGES,
                 "CSnmpLeafHandler::OnCreateTable" + PACKAGES, "CSnmpLeafHandler::OnModifyTable" + PACKAGES,
                 "CSnmpLeafHandler::OnDeleteTable" + PACKAGES, "CSnmpHandler::strategy()",
                 "CSnmpHandler::isWholeTable()", "CSnmpHandler::getSnmpOIDVersion()",
                 "CSnmpTamrelVrxClearAlarmHandler::queryLeaf(CVRX_SnmpContext const&, CTLVCell*&)"});
}

TEST_F(VtableOrderTest, TrapDestinationTable) {
    expectSlots(handlers[3],
                {DESTRUCTOR, DELETING_DESTRUCTOR, "CSnmpTableHandler::OnQueryLeaf" + PACKAGES,
                 "CTamrelTrapAddrHandler::OnQueryTable" + PACKAGES, "CSnmpTableHandler::OnSetLeaf" + PACKAGES,
                 "CTamrelTrapAddrHandler::OnCreateTable" + PACKAGES, "CTamrelTrapAddrHandler::OnModifyTable" + PACKAGES,
                 "CTamrelTrapAddrHandler::OnDeleteTable" + PACKAGES, "CSnmpHandler::strategy()",
                 "CSnmpHandler::isWholeTable()", "CSnmpHandler::getSnmpOIDVersion()"});
}

const std::string MAP_AND_LIST =
    "(std::map<" + TEXT + ", tTrapDestInfo, std::less<" + TEXT + " >, std::allocator<std::pair<" + TEXT +
    " const, tTrapDestInfo> > > const&, std::__cxx11::list<tTrapDestInfo, std::allocator<tTrapDestInfo> >&)";

TEST_F(VtableOrderTest, NotificationHandler) {
    expectSlots(notifyHandlers[0],
                {DESTRUCTOR, DELETING_DESTRUCTOR,
                 "CTamrelNotifyMsgHandler::constructAlarmTrapVb(CTLVRecordV3 const&, Agentpp::Vbx*&)",
                 "CTamrelNotifyMsgHandler::getTrapOid(unsigned long long)", "CTamrelNotifyMsgHandler::getBaseOid()",
                 "INotifyMsgHandler::useDateAndTime()", "CTamrelNotifyMsgHandler::getTrapVbLen()",
                 "CTamrelNotifyMsgHandler::filterTrapMap" + MAP_AND_LIST});
}

TEST_F(VtableOrderTest, OidBasedNotificationHandler) {
    expectSlots(notifyHandlers[1],
                {DESTRUCTOR, DELETING_DESTRUCTOR,
                 "CTamrelNotifyMsgHandler::constructAlarmTrapVb(CTLVRecordV3 const&, Agentpp::Vbx*&)",
                 "CTamrelOIDBasedMsgHandler::getTrapOid(unsigned long long)", "CTamrelOIDBasedMsgHandler::getBaseOid()",
                 "CTamrelOIDBasedMsgHandler::useDateAndTime()", "CTamrelNotifyMsgHandler::getTrapVbLen()",
                 "CTamrelOIDBasedMsgHandler::filterTrapMap" + MAP_AND_LIST});
}

TEST_F(VtableOrderTest, Package) {
    const CR8KPackageV3 package;
    expectSlots(
        &package,
        {DESTRUCTOR, DELETING_DESTRUCTOR, "CTLVPackageV3<TLVMsgHeadV3>::decode(unsigned char*, unsigned int)",
         "CTLVPackageV3<TLVMsgHeadV3>::encode(unsigned char*&)",
         "CTLVPackageV3<TLVMsgHeadV3>::encode(unsigned char*, unsigned int)", "CTLVPackageV3<TLVMsgHeadV3>::clear()",
         "CTLVPackageV3<TLVMsgHeadV3>::dump(" + TEXT_STREAM + "&) const"});
}

}  // namespace
