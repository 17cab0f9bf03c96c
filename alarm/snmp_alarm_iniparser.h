// Alarm definitions: reads the definition file and the file of parameter enumerations once, then renders the texts of
// alarms from their parameters. docs/alarm-definitions.md has both file formats and the template marks.
//
//     std::string location, detail, name, suggestion;
//     u_int level = 0;
//     int rc = CAlarmConfigParser::instance()->getAlarmInfo(alarmId, "7,CTE0", location, detail, level, name,
//     suggestion);
//
// Threads: instance() and the look-ups (getAlarmInfo, getAlarmOidInfo) may be called from any thread; look-ups run one
// after the other. destroy() may run only when no thread uses the instance any more. The other operations are steps of
// a load or of a look-up, without a lock of their own.
// Errors: a load that fails throws CVRX_Exception out of instance() and keeps no instance, so the next call reads the
// files again. Look-ups return a status and log.
#pragma once

#include <ace/Thread_Mutex.h>
#include <sys/types.h>

#include <atomic>
#include <cstddef>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

class CVRXDebugKitGuard;
class TiXmlNode;

// Values by position, in order. Two uses: the enumeration type of a parameter (as in paramDesc), and the value of a
// placeholder (as found in the detail).
using POSITION_LIST = std::vector<std::pair<unsigned int, std::string>>;

// One alarm definition. Texts are as written in the file, "None" where the attribute is absent.
class CAlarmConfigItem {
public:
    CAlarmConfigItem(unsigned long long id, unsigned int alarmLevel, const char* alarmName, const char* reasonText,
                     const char* suggestionText, const char* detailText, const char* locationText, const char* oid);

    unsigned long long alarmId;
    unsigned int level;  // low 32 bits of the identifier
    std::string name;
    std::string reason;
    std::string suggestion;
    std::string detail;
    std::string location;
    std::string alarmOid;
    POSITION_LIST paramEnumDescs;  // parameter position and enumeration type, in the order written
};

class CAlarmConfigParser {
public:
    using ALARM_ITEMS = std::map<unsigned long long, std::unique_ptr<CAlarmConfigItem>>;  // by alarm identifier
    using ENUM_DESC_MAP = std::map<std::string, std::string>;  // description by type + "_" + value

    // Result of a rendering whose template has a placeholder mark with no index after it.
    static constexpr int NO_PARAMETER_POS = 0x100400F;

    static const std::string COMMA;
    static const std::string ESC_COMMA;
    static const std::string AMPERSAND;
    static const std::string ECS_AMPERSAND;  // hosts link to this spelling, as to the others below

    // The one instance, created and loaded by the first call; never null. Throws CVRX_Exception when a file cannot be
    // loaded.
    static CAlarmConfigParser* instance();

    // Drops the instance; the next instance() reads the files again. REQUIRES: no thread uses the old one.
    static void destroy();

    CAlarmConfigParser(const CAlarmConfigParser&) = delete;
    CAlarmConfigParser& operator=(const CAlarmConfigParser&) = delete;

    // Renders one alarm. `params`: the raw parameter text, comma-separated. 0, and all outputs written; -1 for an
    // alarm that cannot be looked up, and no output written; NO_PARAMETER_POS when a template ends in a placeholder
    // mark: outputs are written in the order level, location, detail, suggestion, name up to the one that failed.
    int getAlarmInfo(unsigned long long alarmId, const std::string& params, std::string& location, std::string& detail,
                     u_int& level, std::string& name, std::string& suggestion);

    // The definition's trap OID text. 0, or -1 and `oid` as it was.
    int getAlarmOidInfo(unsigned long long alarmId, std::string& oid);

    // The short number of an alarm: the low 16 bits of its identifier.
    void resolveAlarmId(unsigned long long alarmId, u_int& shortId);

    // The management system's level (1 most severe, 4 least) of a notification's level.
    int converToQ7700AlarmLevel(int level);

    // Steps of the load, in this order. A path comes back as the configured one (relative to the product root) from
    // the first of each pair, and rewritten to the full one by the second. All but the path queries throw
    // CVRX_Exception where the file is of no use.
    void init();
    void getAlarmFilePath(std::string& path);
    void parse(std::string& path);
    int parseAlarmItem(TiXmlNode* node);  // 0 when stored, -1 when skipped
    void getAlarmParamEnumFilePath(std::string& path);
    int parseAlarmParamEnumDesc(std::string& path);
    int parseAlarmParamEnumType(TiXmlNode* node);  // 0, or -1 when skipped
    int parseAlarmParamEnumDescPair(const char* paramDesc, POSITION_LIST& out);

    // Steps of a look-up.
    // Splits and unescapes the raw parameter text, appending to `list`.
    void parseAlarmParamList(std::string params, std::vector<std::string>& list);
    // Replaces raw values by their descriptions; what has none stays and is logged.
    void replaceAlarmParamEnumValueDesc(unsigned long long alarmId, std::vector<std::string>& params,
                                        const POSITION_LIST& enumDescs);
    // Expands the placeholders of one template: 0, or NO_PARAMETER_POS and `out` as it was.
    int replaceAlarmParamInfo(std::string templ, std::string& out, const POSITION_LIST& pairs);
    // Replaces `length` characters at `start` by the value of the first pair with that index; false when none has it.
    bool replaceParaWithBraceValue(std::string& text, int index, std::size_t start, std::size_t length,
                                   const POSITION_LIST& pairs);

    // What was loaded; constant for the life of the instance.
    const ALARM_ITEMS& alarmItems() const { return m_AlarmItems; }
    const ENUM_DESC_MAP& enumDescMap() const { return m_EnumDescMap; }

protected:                                     // for tests, which make a lock fail
    static ACE_Thread_Mutex _oSingletonMutex;  // guards creation and destruction of the instance
    ACE_Thread_Mutex m_oMutex;                 // held by look-ups and the destructor

private:
    CAlarmConfigParser() = default;
    ~CAlarmConfigParser();

    const CAlarmConfigItem* findItem(unsigned long long alarmId, CVRXDebugKitGuard& guard, const char* function);

    static std::atomic<CAlarmConfigParser*> _pInstance;  // published when the load is complete

    ALARM_ITEMS m_AlarmItems;
    ENUM_DESC_MAP m_EnumDescMap;
};

// The value of each placeholder of the detail, value maps applied, appended to `pairs` in the order of the
// placeholders.
void parserParmeterByDetail(std::vector<std::string>& params, POSITION_LIST& pairs, const std::string& detail);

// CAlarmConfigParser::replaceAlarmParamInfo without a copy of the template, which is no part of `out`.
int replaceAlarmParamInfo(std::string_view templ, std::string& out, const POSITION_LIST& pairs);

// Removes every brace group from a template.
void replaceBraceWithEmptyString(std::string& text);

// Replaces every occurrence of `from`; what was put in is not searched again. An empty `from` occurs nowhere.
std::string relpacestr(std::string text, std::string from, std::string to);
