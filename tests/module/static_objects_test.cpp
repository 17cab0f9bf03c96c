// The module's static objects: which there are, in what order they are built when the library is loaded, and that
// unloading destroys them in reverse. In a program of its own, because it stands between the library and the run-time
// system: every static object with a destructor reports itself through __cxa_atexit.
#include <ace/Thread_Mutex.h>
#include <cxxabi.h>
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "module/snmp_handler.h"
#include "platform/notify_msg_handler.h"
#include "tests/fake_host/fake_host.h"
#include "tests/module/loaded_module.h"

namespace {

struct Registered {
    void (*destructor)(void*);
    void* object;
    bool destroyed;
    std::size_t destroyedAs;  // 0: first
};

// Filled before main as well: nothing here has a constructor of its own.
constexpr std::size_t MAX_OBJECTS = 256;
Registered s_objects[MAX_OBJECTS];
std::size_t s_count = 0;
std::size_t s_destroyed = 0;
bool s_recording = false;

void destroy(void* argument) {
    auto* registered = static_cast<Registered*>(argument);
    registered->destroyed = true;
    registered->destroyedAs = s_destroyed++;
    registered->destructor(registered->object);
}

}  // namespace

extern "C" int __cxa_atexit(void (*destructor)(void*), void* object, void* library) {
    using Function = int(void (*)(void*), void*, void*);
    static Function* const next = reinterpret_cast<Function*>(dlsym(RTLD_NEXT, "__cxa_atexit"));
    if (!s_recording) return next(destructor, object, library);
    if (s_count == MAX_OBJECTS) std::abort();
    s_objects[s_count] = {destructor, object, false, 0};
    return next(destroy, &s_objects[s_count++], library);
}

namespace {

std::string symbolOf(const void* address) {
    Dl_info info{};
    if (dladdr(address, &info) == 0 || info.dli_sname == nullptr) return "";
    // An address inside a symbol that is not its start belongs to something without a name.
    if (info.dli_saddr != address) return "";
    std::unique_ptr<char, decltype(&std::free)> text(abi::__cxa_demangle(info.dli_sname, nullptr, nullptr, nullptr),
                                                     &std::free);
    std::string name = text == nullptr ? info.dli_sname : text.get();
    const std::string abiTag = "[abi:cxx11]";
    const std::size_t tag = name.find(abiTag);
    if (tag != std::string::npos) name.erase(tag, abiTag.size());
    return name;
}

// What an object is: a named static by its name, with its value when it is a string; the rest by its destructor.
std::string describe(const Registered& registered) {
    std::string name = symbolOf(registered.object);
    std::string destructor = symbolOf(reinterpret_cast<const void*>(registered.destructor));
    if (destructor == "std::ios_base::Init::~Init()") return "streams";
    if (destructor.find("basic_string") != std::string::npos) {
        return name + " \"" + *static_cast<std::string*>(registered.object) + "\"";
    }
    if (!name.empty()) return name;
    return destructor;
}

class StaticObjectsTest : public testing::Test {
protected:
    StaticObjectsTest() {
        s_count = 0;
        s_destroyed = 0;
        s_recording = true;
        library = std::make_unique<LoadedModule>();
        s_recording = false;
        for (std::size_t i = 0; i < s_count; ++i) built.push_back(describe(s_objects[i]));
    }

    void expectDestroyedInReverse() const {
        EXPECT_EQ(s_destroyed, s_count);
        for (std::size_t i = 0; i < s_count; ++i) {
            EXPECT_TRUE(s_objects[i].destroyed) << built[i];
            EXPECT_EQ(s_objects[i].destroyedAs, s_count - 1 - i) << built[i];
        }
    }

    FakeHost host;
    std::unique_ptr<LoadedModule> library;
    std::vector<std::string> built;  // what loading built, in order
};

TEST_F(StaticObjectsTest, AlarmDefinitionsBuildTheirStringsAndLockInOrder) {
    const std::vector<std::string> expected = {
        "streams",
        "KNONESTRING \"None\"",
        "KSNMPCONF \"SNMP_CONF\"",
        "CAlarmConfigParser::_oSingletonMutex",
        "CAlarmConfigParser::COMMA \",\"",
        "CAlarmConfigParser::ESC_COMMA \"&#44;\"",
        "CAlarmConfigParser::AMPERSAND \"&\"",
        "CAlarmConfigParser::ECS_AMPERSAND \"&#38;\"",
    };
    EXPECT_NE(std::search(built.begin(), built.end(), expected.begin(), expected.end()), built.end())
        << testing::PrintToString(built);
}

TEST_F(StaticObjectsTest, AlarmRepositoryBuildsItsLock) {
    const std::vector<std::string> expected = {"streams", "CAlarmRepository_Singleton::m_oMutex"};
    EXPECT_NE(std::search(built.begin(), built.end(), expected.begin(), expected.end()), built.end())
        << testing::PrintToString(built);
}

// Which file a stream initialiser comes from is known by its name in the file's object alone.
TEST(StaticObjects, SevenSourceFilesBuildAStreamInitialiser) {
    const std::string initialiser = "_ZStL8__ioinit";
    for (const std::string name :
         {"snmp_tamrel_svc_module", "snmp_tamrel_notify_handler", "snmp_alarm_iniparser", "snmp_alarm_repository",
          "snmp_tamrel_trap_addr_handler", "snmp_tamrel_alarm_handler", "snmp_topo_handler"}) {
        const std::string objects = SNMP_TAMREL_OBJECTS;
        const std::size_t at = objects.find("/" + name + ".cpp");
        ASSERT_NE(at, std::string::npos) << name;
        const std::size_t begin = objects.rfind(':', at) + 1;  // 0 for the first
        std::ifstream file(objects.substr(begin, objects.find(':', at) - begin), std::ios::binary);
        const std::string content{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
        EXPECT_NE(content.find(initialiser), std::string::npos) << name;
    }
}

TEST_F(StaticObjectsTest, NothingElseIsBuilt) {
    std::vector<std::string> others = built;
    others.erase(std::remove(others.begin(), others.end(), "streams"), others.end());
    EXPECT_EQ(others.size(), 8u) << testing::PrintToString(others);
    EXPECT_GE(built.size() - others.size(), 7u);  // stream initialisers; headers of libraries bring more
}

TEST_F(StaticObjectsTest, LocksAreFree) {
    std::vector<std::string> looked;
    for (std::size_t i = 0; i < s_count; ++i) {
        if (built[i].find("utex") == std::string::npos) continue;
        looked.push_back(built[i]);
        auto* mutex = static_cast<ACE_Thread_Mutex*>(s_objects[i].object);
        EXPECT_EQ(mutex->tryacquire(), 0) << built[i];
        EXPECT_EQ(mutex->release(), 0) << built[i];
    }
    EXPECT_THAT(looked, testing::UnorderedElementsAre("CAlarmConfigParser::_oSingletonMutex",
                                                      "CAlarmRepository_Singleton::m_oMutex"));
}

TEST_F(StaticObjectsTest, UnloadingDestroysThemInReverseOrder) {
    ASSERT_TRUE(LoadedModule::isInProcess());
    library->unload();
    EXPECT_FALSE(LoadedModule::isInProcess());
    expectDestroyedInReverse();
}

TEST_F(StaticObjectsTest, UnloadingAfterUseDestroysThemToo) {
    host.backend().answer(0);
    SNMP_HANDLER_LIST handlers;
    std::unique_ptr<CSNMP_Svc_Module> module(library->create());
    module->getSvcHandler(handlers);
    CVRX_SnmpContext ctx;
    CR8KPackageV3 rsp;
    EXPECT_EQ(handlers.front().second->OnQueryTable(ctx, CR8KPackageV3(), rsp), 0);
    for (INotifyMsgHandler* handler : host.dispatcher().handlers()) EXPECT_GT(handler->getBaseOid().len(), 0u);

    for (const auto& row : handlers) delete row.second;
    host.deleteHandlers();
    module.reset();
    library->unload();
    EXPECT_FALSE(LoadedModule::isInProcess());
    expectDestroyedInReverse();
}

TEST_F(StaticObjectsTest, LibraryCanBeLoadedAgain) {
    for (int round = 0; round < 3; ++round) {
        library->unload();
        ASSERT_FALSE(LoadedModule::isInProcess());
        library = std::make_unique<LoadedModule>();
        std::unique_ptr<CSNMP_Svc_Module> module(library->create());
        ASSERT_NE(module, nullptr);
        EXPECT_EQ(host.dispatcher().handlers().size(), 2u);
        host.deleteHandlers();
    }
}

}  // namespace
