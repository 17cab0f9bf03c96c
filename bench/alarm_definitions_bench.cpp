// Time to load 5,000 alarm definitions against TinyXML alone, and to render one alarm against snprintf. Build with
// CMAKE_BUILD_TYPE=Release; compare times of one run only.
#include <ace/Singleton.h>
#include <ace/Thread_Mutex.h>
#include <benchmark/benchmark.h>
#include <tinyxml.h>
#include <unistd.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <limits>
#include <string>

#include "alarm/snmp_alarm_iniparser.h"
#include "platform/vrx_debug_kit.h"
#include "platform/vrx_utility.h"
#include "platform/vrx_xml_config.h"

namespace {

constexpr int ALARMS = 5000;
constexpr const char* DEFINITION_FILE = "definitions.xml";
constexpr const char* ENUMERATION_FILE = "enumerations.xml";

// A product root of its own with generated files, gone at exit.
class BenchRoot {
public:
    BenchRoot() {
        std::string path = (std::filesystem::temp_directory_path() / "alarm_bench_XXXXXX").string();
        if (mkdtemp(path.data()) == nullptr) std::abort();
        m_path = path;
        std::ofstream definitions(file(DEFINITION_FILE));
        definitions << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<root><eventDefinition>\n";
        for (int i = 1; i <= ALARMS; ++i) {
            definitions
                << "<param eventID=\"" << 4295229440LL + i << "\" name=\"Disk fault number " << i
                << "\" reason=\"A disk of the storage pool failed its regular self test or reported errors.\""
                   " suggestion=\"Replace disk ##00 in enclosure ##01 and wait until the pool is redundant again.\""
                   " detail=\"Disk ##00 in enclosure ##01 is ##02{offline:not reachable;degraded:partly working}."
                   "\" location=\"Enclosure ##01, slot ##00\" alarmOid=\"0."
                << i << "\" paramDesc=\"2=DiskState\"/>\n";
        }
        definitions << "</eventDefinition></root>\n";
        std::ofstream enumerations(file(ENUMERATION_FILE));
        enumerations << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<alarm><param_enum><enum_type name=\"DiskState\">"
                        "<enum_member value=\"1\">offline</enum_member><enum_member value=\"2\">degraded</enum_member>"
                        "</enum_type></param_enum></alarm>\n";
    }
    ~BenchRoot() {
        std::error_code ignored;  // a left-over folder is no reason to fail
        std::filesystem::remove_all(m_path, ignored);
    }
    BenchRoot(const BenchRoot&) = delete;
    BenchRoot& operator=(const BenchRoot&) = delete;

    const std::string& path() const { return m_path; }
    std::string file(const std::string& name) const { return m_path + "/" + name; }

private:
    std::string m_path;
};

const BenchRoot& root() {
    static const BenchRoot instance;
    return instance;
}

// A host's logger whose levels are all off.
class SilentLogger : public CVRXDebugKit {
public:
    void trace(const std::string&) override {}
    void debug(unsigned long long, const char*, unsigned int, const char*, va_list) override {}
    void warn(unsigned long long, const char*, unsigned int, const char*, va_list) override {}
    void error(unsigned long long, const char*, unsigned int, const char*, va_list) override {}
    bool takes(Line) const override { return false; }
};

void tinyXmlAlone(benchmark::State& state) {
    const std::string path = root().file(DEFINITION_FILE);
    for (auto _ : state) {
        TiXmlDocument document;
        if (!document.LoadFile(path.c_str())) state.SkipWithError("load failed");
    }
}
BENCHMARK(tinyXmlAlone)->Unit(benchmark::kMillisecond);

void definitionLoad(benchmark::State& state) {
    CAlarmConfigParser::destroy();  // of another benchmark
    for (auto _ : state) {
        benchmark::DoNotOptimize(CAlarmConfigParser::instance());
        state.PauseTiming();
        CAlarmConfigParser::destroy();
        state.ResumeTiming();
    }
}
BENCHMARK(definitionLoad)->Unit(benchmark::kMillisecond);

void snprintfByHand(benchmark::State& state) {
    char location[256];
    char detail[256];
    char suggestion[256];
    char name[256];
    const char* disk = "7";
    const char* enclosure = "CTE0";
    const char* condition = "not reachable";
    int number = 3;
    for (auto _ : state) {
        benchmark::DoNotOptimize(disk);
        benchmark::DoNotOptimize(enclosure);
        benchmark::DoNotOptimize(condition);
        benchmark::DoNotOptimize(number);
        std::snprintf(location, sizeof location, "Enclosure %s, slot %s", enclosure, disk);
        std::snprintf(detail, sizeof detail, "Disk %s in enclosure %s is %s.", disk, enclosure, condition);
        std::snprintf(suggestion, sizeof suggestion,
                      "Replace disk %s in enclosure %s and wait until the pool is redundant again.", disk, enclosure);
        std::snprintf(name, sizeof name, "Disk fault number %d", number);
        benchmark::DoNotOptimize(location);
        benchmark::DoNotOptimize(detail);
        benchmark::DoNotOptimize(suggestion);
        benchmark::DoNotOptimize(name);
    }
}
BENCHMARK(snprintfByHand);

void rendering(benchmark::State& state) {
    CAlarmConfigParser* parser = CAlarmConfigParser::instance();
    const std::string parameters = "7,CTE0,1";
    for (auto _ : state) {
        std::string location;
        std::string detail;
        std::string name;
        std::string suggestion;
        u_int level = 0;
        if (parser->getAlarmInfo(4295229443ULL, parameters, location, detail, level, name, suggestion) != 0) {
            state.SkipWithError("not rendered");
        }
        benchmark::DoNotOptimize(detail);
    }
}
BENCHMARK(rendering);

}  // namespace

// --- the services of a host that the parser asks for

CVRXDebugKitMgr::CVRXDebugKitMgr() = default;
CVRXDebugKitMgr::~CVRXDebugKitMgr() = default;

CVRXDebugKit* CVRXDebugKitMgr::find(unsigned int) {
    static SilentLogger logger;
    return &logger;
}

CVRXXmlConfig* CVRXXmlConfig::instance() {
    static CVRXXmlConfig config;
    return &config;
}

std::string CVRXXmlConfig::getDeviceItem(const std::string&, const std::string& key, std::string& value) {
    value = key == "ALARM_INI_PATH" ? DEFINITION_FILE : key == "ALARM_PARAM_ENUM_PATH" ? ENUMERATION_FILE : "";
    return value;
}

std::string VRX_Utility::getVRXRootEnv() {
    return root().path();
}

void SplitToStr(std::string text, char separator, std::vector<std::string>& out) {
    if (text.empty()) return;
    std::size_t begin = 0;
    for (std::size_t end = text.find(separator); end != std::string::npos; end = text.find(separator, begin)) {
        out.push_back(text.substr(begin, end - begin));
        begin = end + 1;
    }
    out.push_back(text.substr(begin));
}

unsigned int StrToUint(std::string text) {
    unsigned long long number = 0;
    for (std::size_t i = text.find_first_not_of(" \t"); i < text.size() && text[i] >= '0' && text[i] <= '9'; ++i) {
        number = std::min(number * 10 + static_cast<unsigned long long>(text[i] - '0'),
                          static_cast<unsigned long long>(std::numeric_limits<unsigned int>::max()));
    }
    return static_cast<unsigned int>(number);
}

int memcpy_s(void* destination, std::size_t destinationSize, const void* source, std::size_t count) {
    if (count > destinationSize) return -1;
    std::memcpy(destination, source, count);
    return 0;
}

BENCHMARK_MAIN();
