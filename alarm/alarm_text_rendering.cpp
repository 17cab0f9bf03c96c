// Rendering of alarm texts. A template holds placeholders: "##" and a two-digit index. In the detail a placeholder may
// be followed by a value map: {raw value:text;raw value:text}.
#include <ace/Guard_T.h>

#include <algorithm>
#include <cstdlib>
#include <string_view>

#include "alarm/alarm_constants.h"
#include "alarm/snmp_alarm_iniparser.h"
#include "module/tamrel_log.h"
#include "module/vrx_debug_kit_guard.h"
#include "platform/vrx_utility.h"

namespace {

using Lock = ACE_Guard<ACE_Thread_Mutex>;

constexpr const char* PLACEHOLDER_MARK = "##";
constexpr std::size_t MARK_LENGTH = 2;
constexpr std::size_t INDEX_LENGTH = 2;
constexpr const char* MISSING_PARAMETER = "--";

// The brace of a value map stands at most this far behind the start of its placeholder.
constexpr std::size_t MAP_DISTANCE = 7;

// A replaced value is searched again, so one that holds its own placeholder would never end. No real text comes near
// these: placeholders handled in one template, and bytes by which a text may grow.
constexpr std::size_t MAX_PLACEHOLDERS = 10000;
constexpr std::size_t MAX_GROWTH = 1024 * 1024;

const std::string& valueOrMissing(const std::vector<std::string>& params, unsigned int index) {
    static const std::string missing = MISSING_PARAMETER;
    return index < params.size() ? params[index] : missing;
}

// The brace that opens the value map of the placeholder at `mark`, npos when it has none.
std::size_t findMap(const std::string& detail, std::size_t mark) {
    const std::size_t offset = std::string_view(detail).substr(mark, MAP_DISTANCE + 1).find('{');
    return offset != std::string_view::npos ? mark + offset : std::string::npos;
}

// The value of a placeholder with a value map: the text of the first entry for the parameter, else the parameter.
std::string mappedValue(const std::vector<std::string>& params, unsigned int index, const std::string& map) {
    if (index < params.size()) {
        std::vector<std::string> entries;
        SplitToStr(map, ';', entries);
        std::vector<std::string> parts;
        for (std::string& entry : entries) {
            parts.clear();
            SplitToStr(std::move(entry), ':', parts);
            if (parts.size() == 2 && parts[0] == params[index]) return std::move(parts[1]);
        }
    }
    return valueOrMissing(params, index);
}

}  // namespace

std::string relpacestr(std::string text, std::string from, std::string to) {
    if (from.empty()) return text;
    for (std::size_t position = text.find(from); position != std::string::npos;
         position = text.find(from, position + to.size())) {
        text.replace(position, from.size(), to);
    }
    return text;
}

void parserParmeterByDetail(std::vector<std::string>& params, POSITION_LIST& pairs, const std::string& detail) {
    CVRXDebugKitGuard guard(TAMREL_LOG_MODULE,
                            "void parserParmeterByDetail(std::vector<std::string>&, POSITION_LIST&, "
                            "const std::string&)");
    std::size_t handled = 0;
    for (std::size_t mark = detail.find(PLACEHOLDER_MARK); mark != std::string::npos;
         // Right behind this mark, so that one inside of a value map is a placeholder too.
         mark = detail.find(PLACEHOLDER_MARK, mark + MARK_LENGTH)) {
        const std::string indexText = detail.substr(mark + MARK_LENGTH, INDEX_LENGTH);
        if (indexText.empty()) return;
        if (++handled > MAX_PLACEHOLDERS) {
            guard.warn(LOGCODE_GENERAL, __FUNCTION__, __LINE__,
                       "alarm detail has more than %zu placeholders, the rest has no value.", MAX_PLACEHOLDERS);
            return;
        }
        const unsigned int index = StrToUint(indexText);
        const std::size_t open = findMap(detail, mark);
        if (open == std::string::npos) {
            pairs.emplace_back(index, valueOrMissing(params, index));
            continue;
        }
        const std::size_t close = detail.find('}', mark);
        if (close == std::string::npos) {
            guard.debug(LOGCODE_DEBUG, __FUNCTION__, __LINE__, "parserParmeterByDetail error");
            return;
        }
        // A brace that closes before one opens leaves a map without entries.
        pairs.emplace_back(index, close > open ? mappedValue(params, index, detail.substr(open + 1, close - open - 1))
                                               : valueOrMissing(params, index));
    }
}

void replaceBraceWithEmptyString(std::string& text) {
    CVRXDebugKitGuard guard(TAMREL_LOG_MODULE, "void replaceBraceWithEmptyString(std::string&)");
    std::string kept;
    std::size_t position = 0;
    for (std::size_t open = text.find('{'); open != std::string::npos; open = text.find('{', position)) {
        const std::size_t close = text.find('}', open);
        if (close == std::string::npos) {
            guard.debug(LOGCODE_DEBUG, __FUNCTION__, __LINE__, "replaceBraceWithEmptyString error");
            break;
        }
        kept.append(text, position, open - position);
        position = close + 1;
    }
    if (position == 0) return;
    kept.append(text, position, std::string::npos);
    text.swap(kept);
}

const CAlarmConfigItem* CAlarmConfigParser::findItem(unsigned long long alarmId, CVRXDebugKitGuard& guard,
                                                     const char* function) {
    guard.setResult(false);
    if (m_AlarmItems.empty()) {
        guard.error(LOGCODE_GENERAL, function, __LINE__, "alarm config info is empty.");
        return nullptr;
    }
    if (alarmId == 0) {
        guard.error(LOGCODE_GENERAL, function, __LINE__, "invalid alarm id %llu", alarmId);
        return nullptr;
    }
    const auto found = m_AlarmItems.find(alarmId);
    if (found == m_AlarmItems.end()) {
        // Spelled so on purpose.
        guard.warn(LOGCODE_GENERAL, function, __LINE__, "alarm %llu desn't need to be parsed.", alarmId);
        return nullptr;
    }
    guard.setResult(true);
    return found->second.get();
}

int CAlarmConfigParser::getAlarmInfo(unsigned long long alarmId, const std::string& params, std::string& location,
                                     std::string& detail, u_int& level, std::string& name, std::string& suggestion) {
    CVRXDebugKitGuard guard(TAMREL_LOG_MODULE,
                            "int CAlarmConfigParser::getAlarmInfo(long long unsigned int, const std::string&, "
                            "std::string&, std::string&, u_int&, std::string&, std::string&)");
    const Lock lock(m_oMutex);
    const CAlarmConfigItem* item = findItem(alarmId, guard, __FUNCTION__);
    if (item == nullptr) return -1;

    std::vector<std::string> list;
    parseAlarmParamList(params, list);
    for (std::string& value : list) {
        if (value.empty()) value = MISSING_PARAMETER;
    }
    if (!item->paramEnumDescs.empty()) replaceAlarmParamEnumValueDesc(alarmId, list, item->paramEnumDescs);
    level = item->level;

    POSITION_LIST pairs;
    parserParmeterByDetail(list, pairs, item->detail);
    std::string detailTemplate = item->detail;
    replaceBraceWithEmptyString(detailTemplate);

    int rc = replaceAlarmParamInfo(item->location, location, pairs);
    if (rc != 0) {
        guard.setResult(false);
        guard.error(LOGCODE_GENERAL, __FUNCTION__, __LINE__,
                    "parse alarm location %s using parameter %s failed. parsed location is %s.", item->location.c_str(),
                    params.c_str(), location.c_str());
        return rc;
    }
    rc = replaceAlarmParamInfo(std::move(detailTemplate), detail, pairs);
    if (rc != 0) {
        guard.setResult(false);
        guard.error(LOGCODE_GENERAL, __FUNCTION__, __LINE__,
                    "parse alarm detail %s using parameter %s failed, parsed detail is %s.", item->detail.c_str(),
                    params.c_str(), detail.c_str());
        return rc;
    }
    rc = replaceAlarmParamInfo(item->suggestion, suggestion, pairs);
    if (rc != 0) {
        guard.setResult(false);
        // "parsed detail" here too, on purpose.
        guard.error(LOGCODE_GENERAL, __FUNCTION__, __LINE__,
                    "parse alarm suggestion %s using parameter %s failed, parsed detail is %s.",
                    item->suggestion.c_str(), params.c_str(), suggestion.c_str());
        return rc;
    }
    name = item->name;
    return 0;
}

int CAlarmConfigParser::getAlarmOidInfo(unsigned long long alarmId, std::string& oid) {
    CVRXDebugKitGuard guard(TAMREL_LOG_MODULE,
                            "int CAlarmConfigParser::getAlarmOidInfo(long long unsigned int, std::string&)");
    const Lock lock(m_oMutex);
    const CAlarmConfigItem* item = findItem(alarmId, guard, __FUNCTION__);
    if (item == nullptr) return -1;
    oid = item->alarmOid;
    return 0;
}

void CAlarmConfigParser::parseAlarmParamList(std::string params, std::vector<std::string>& list) {
    CVRXDebugKitGuard guard(TAMREL_LOG_MODULE,
                            "void CAlarmConfigParser::parseAlarmParamList(std::string, std::vector<std::string>&)");
    if (params.empty()) return;
    SplitToStr(std::move(params), COMMA.front(), list);
    for (std::string& value : list) {
        value = relpacestr(std::move(value), ESC_COMMA, COMMA);
        value = relpacestr(std::move(value), ECS_AMPERSAND, AMPERSAND);
    }
}

int CAlarmConfigParser::replaceAlarmParamInfo(std::string templ, std::string& out, const POSITION_LIST& pairs) {
    CVRXDebugKitGuard guard(TAMREL_LOG_MODULE,
                            "int CAlarmConfigParser::replaceAlarmParamInfo(std::string, std::string&, "
                            "const POSITION_LIST&)");
    if (pairs.empty()) {
        out = std::move(templ);
        return 0;
    }
    const std::size_t maxLength = templ.size() + MAX_GROWTH;
    std::size_t replaced = 0;
    // A value that was put in is searched again: the search resumes where its placeholder stood.
    for (std::size_t mark = templ.find(PLACEHOLDER_MARK); mark != std::string::npos;
         mark = templ.find(PLACEHOLDER_MARK, mark)) {
        const std::string indexText = templ.substr(mark + MARK_LENGTH, INDEX_LENGTH);
        if (indexText.empty()) {
            guard.setResult(false);
            guard.error(LOGCODE_GENERAL, __FUNCTION__, __LINE__, "no alarm parameter pos");
            return NO_PARAMETER_POS;
        }
        if (++replaced > MAX_PLACEHOLDERS || templ.size() > maxLength) {
            guard.warn(LOGCODE_GENERAL, __FUNCTION__, __LINE__,
                       "alarm text needs more than %zu replacements or grows by more than %zu bytes, the rest stays "
                       "as it is.",
                       MAX_PLACEHOLDERS, MAX_GROWTH);
            break;
        }
        const int index = static_cast<int>(std::strtol(indexText.c_str(), nullptr, 10));
        const std::size_t length = MARK_LENGTH + indexText.size();
        // The bound is the number of placeholders of the detail, not the number of parameters, on purpose.
        if (index < 0 || static_cast<std::size_t>(index) >= pairs.size()) {
            guard.warn(LOGCODE_GENERAL, __FUNCTION__, __LINE__, "alarm parameter pos %d is out of range[0, %zu]", index,
                       pairs.size());
            templ.replace(mark, length, KNONESTRING);
        } else if (!replaceParaWithBraceValue(templ, index, mark, MARK_LENGTH + INDEX_LENGTH, pairs)) {
            guard.warn(LOGCODE_GENERAL, __FUNCTION__, __LINE__,
                       "alarm parameter pos %d is not in the parameters of the detail", index);
            templ.replace(mark, length, MISSING_PARAMETER);
        }
    }
    out = std::move(templ);
    return 0;
}

bool CAlarmConfigParser::replaceParaWithBraceValue(std::string& text, int index, std::size_t start, std::size_t length,
                                                   const POSITION_LIST& pairs) {
    if (start > text.size()) return false;
    const auto found = std::find_if(pairs.begin(), pairs.end(), [index](const POSITION_LIST::value_type& pair) {
        return pair.first == static_cast<unsigned int>(index);
    });
    if (found == pairs.end()) return false;
    text.replace(start, length, found->second);
    return true;
}
