// Rendering of alarm texts. A template holds placeholders: "##" and a two-digit index. In the detail a placeholder may
// be followed by a value map: {raw value:text;raw value:text}.
#include <ace/Guard_T.h>

#include <algorithm>
#include <cstdlib>
#include <string_view>
#include <utility>

#include "alarm/alarm_constants.h"
#include "alarm/alarm_placeholder.h"
#include "alarm/snmp_alarm_iniparser.h"
#include "module/tamrel_log.h"
#include "module/vrx_debug_kit_guard.h"
#include "platform/vrx_utility.h"

namespace {

using Lock = ACE_Guard<ACE_Thread_Mutex>;

constexpr std::string_view MISSING_PARAMETER = "--";

constexpr CVRXScopeName REPLACE_PARA_WITH_BRACE_VALUE =
    "bool CAlarmConfigParser::replaceParaWithBraceValue(std::string&, int, std::size_t, std::size_t, "
    "const POSITION_LIST&)"_scope;

// A replaced value is searched again, so one that holds its own placeholder would never end. No real text comes near
// these: replacements in one template, and bytes by which a text may grow.
constexpr std::size_t MAX_REPLACEMENTS = 10000;
constexpr std::size_t MAX_GROWTH = 1024UL * 1024UL;

// Two digits, as nearly all indexes are: these have one meaning, whoever reads them.
bool isPlainIndex(std::string_view text) {
    const auto isDigit = [](char c) { return c >= '0' && c <= '9'; };
    return text.size() == PLACEHOLDER_INDEX_LENGTH && isDigit(text[0]) && isDigit(text[1]);
}

// REQUIRES: isPlainIndex().
int plainIndex(std::string_view text) {
    return (text[0] - '0') * 10 + (text[1] - '0');
}

std::string_view valueOrMissing(const std::vector<std::string>& params, unsigned int index) {
    return index < params.size() ? std::string_view(params[index]) : MISSING_PARAMETER;
}

// The brace that opens the value map of the placeholder at `mark`, npos when it has none.
std::size_t findMap(const std::string& detail, std::size_t mark) {
    const std::size_t offset = std::string_view(detail).substr(mark, PLACEHOLDER_MAP_DISTANCE + 1).find('{');
    return offset != std::string_view::npos ? mark + offset : std::string::npos;
}

// The value of a placeholder with a value map: the text of the first entry for the parameter, else the parameter. An
// entry that is not two pieces stands for nothing.
std::string mappedValue(const std::vector<std::string>& params, unsigned int index, std::string_view map) {
    const std::string_view value = valueOrMissing(params, index);
    if (index < params.size()) {
        std::vector<std::string> entries;
        entries.reserve(1 + static_cast<std::size_t>(std::count(map.begin(), map.end(), MAP_ENTRY_SEPARATOR)));
        SplitToStr(std::string(map), MAP_ENTRY_SEPARATOR, entries);
        std::vector<std::string> parts;
        parts.reserve(2);
        for (std::string& entry : entries) {
            parts.clear();
            SplitToStr(std::move(entry), MAP_VALUE_SEPARATOR, parts);
            if (parts.size() == 2 && parts[0] == value) return std::move(parts[1]);
        }
    }
    return std::string(value);
}

// The value of the first pair with that index, null when none has it.
const std::string* valueOf(int index, const POSITION_LIST& pairs) {
    if (index < 0) return nullptr;  // positions do not wrap
    const auto found = std::find_if(pairs.begin(), pairs.end(), [index](const POSITION_LIST::value_type& pair) {
        return pair.first == static_cast<unsigned int>(index);
    });
    return found == pairs.end() ? nullptr : &found->second;
}

// A text while its placeholders are expanded: what stands before the place of the last replacement is done, the rest is
// searched again. The rest lies in the template until a value comes that may hold a placeholder itself: such values go
// into the room in front of a rest of our own, or one that names itself would move the whole rest each time.
class Expansion {
public:
    explicit Expansion(std::string_view text) : m_rest(text) { m_done.reserve(text.size() + USUAL_GROWTH); }

    // Goes on to the next placeholder; false when there is none.
    bool findPlaceholder() {
        const std::size_t mark = m_rest.find(PLACEHOLDER_MARK, m_at);
        if (mark == std::string_view::npos) return false;
        m_done.append(m_rest, m_at, mark - m_at);
        m_at = mark;
        return true;
    }

    std::string_view indexText() const {
        return m_rest.substr(m_at + PLACEHOLDER_MARK.size(), PLACEHOLDER_INDEX_LENGTH);
    }

    void replacePlaceholder(std::string_view value) {
        m_at = std::min(m_at + PLACEHOLDER_MARK.size() + PLACEHOLDER_INDEX_LENGTH, m_rest.size());
        if (value.find(PLACEHOLDER_MARK.front()) == std::string_view::npos) {
            m_done.append(value);  // no mark begins or ends in it
            return;
        }
        if (m_own.empty()) {
            m_own = m_rest.substr(m_at);
            m_at = 0;
        }
        if (value.size() > m_at) {
            const std::size_t room = value.size() + m_own.size();  // as much again: rarely
            m_own.insert(0, room, ' ');
            m_at += room;
        }
        m_at -= value.size();
        m_own.replace(m_at, value.size(), value);
        m_rest = m_own;
    }

    std::size_t size() const { return m_done.size() + m_rest.size() - m_at; }

    std::string take() {
        m_done.append(m_rest, m_at);
        return std::move(m_done);
    }

private:
    static constexpr std::size_t USUAL_GROWTH = 32;  // of an alarm's text; more costs a second piece of memory

    std::string m_done;
    std::string_view m_rest;  // the template or m_own
    std::string m_own;
    std::size_t m_at = 0;  // where the rest begins
};

// The index of a placeholder in text: blanks, a sign, digits as strtol takes them.
int indexOf(std::string_view text) {
    if (isPlainIndex(text)) return plainIndex(text);
    char digits[PLACEHOLDER_INDEX_LENGTH + 1] = {};
    text.copy(digits, PLACEHOLDER_INDEX_LENGTH);
    return static_cast<int>(std::strtol(digits, nullptr, 10));
}

// Replaces the placeholder that the text stands at, as CAlarmConfigParser::replaceParaWithBraceValue would.
bool replaceParaWithBraceValue(Expansion& text, int index, const POSITION_LIST& pairs) {
    CVRXDebugKitGuard guard(TAMREL_LOG_MODULE, REPLACE_PARA_WITH_BRACE_VALUE);
    const std::string* value = valueOf(index, pairs);
    if (value == nullptr) {
        guard.setResult(false);
        return false;
    }
    text.replacePlaceholder(*value);
    return true;
}

}  // namespace

int replaceAlarmParamInfo(std::string_view templ, std::string& out, const POSITION_LIST& pairs) {
    CVRXDebugKitGuard guard(TAMREL_LOG_MODULE,
                            "int CAlarmConfigParser::replaceAlarmParamInfo(std::string, std::string&, "
                            "const POSITION_LIST&)"_scope);
    if (pairs.empty()) {
        out = templ;
        return 0;
    }
    const std::size_t maxLength = templ.size() + MAX_GROWTH;
    std::size_t handled = 0;
    Expansion text(templ);
    while (text.findPlaceholder()) {
        const std::string_view indexText = text.indexText();
        if (indexText.empty()) {
            guard.setResult(false);
            guard.error(LOGCODE_GENERAL, __FUNCTION__, __LINE__, "no alarm parameter pos");
            return CAlarmConfigParser::NO_PARAMETER_POS;
        }
        if (++handled > MAX_REPLACEMENTS || text.size() > maxLength) {
            guard.warn(LOGCODE_GENERAL, __FUNCTION__, __LINE__,
                       "alarm text needs more than %zu replacements or grows by more than %zu bytes, the rest stays "
                       "as it is.",
                       MAX_REPLACEMENTS, MAX_GROWTH);
            break;
        }
        const int index = indexOf(indexText);
        // The bound is the number of placeholders of the detail, not the number of parameters.
        if (index < 0 || static_cast<std::size_t>(index) >= pairs.size()) {
            guard.warn(LOGCODE_GENERAL, __FUNCTION__, __LINE__, "alarm parameter pos %d is out of range[0, %d]", index,
                       static_cast<int>(pairs.size()));
            text.replacePlaceholder(KNONESTRING);
        } else if (!replaceParaWithBraceValue(text, index, pairs)) {
            guard.warn(LOGCODE_GENERAL, __FUNCTION__, __LINE__,
                       "alarm parameter pos %d is not in the parameters of the detail", index);
            text.replacePlaceholder(MISSING_PARAMETER);
        }
    }
    out = text.take();
    return 0;
}

std::string relpacestr(std::string text, std::string from, std::string to) {
    CVRXDebugKitGuard guard(TAMREL_LOG_MODULE, "std::string relpacestr(std::string, std::string, std::string)"_scope);
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
                            "const std::string&)"_scope);
    for (std::size_t mark = detail.find(PLACEHOLDER_MARK); mark != std::string::npos;
         // Right after this mark, so that one inside of a value map is a placeholder too.
         mark = detail.find(PLACEHOLDER_MARK, mark + PLACEHOLDER_MARK.size())) {
        const std::string_view indexText =
            std::string_view(detail).substr(mark + PLACEHOLDER_MARK.size(), PLACEHOLDER_INDEX_LENGTH);
        if (indexText.empty()) return;
        const unsigned int index = isPlainIndex(indexText) ? static_cast<unsigned int>(plainIndex(indexText))
                                                           : StrToUint(std::string(indexText));
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
        const std::size_t length = close > open ? close - open - 1 : 0;
        pairs.emplace_back(index, mappedValue(params, index, std::string_view(detail).substr(open + 1, length)));
    }
}

void replaceBraceWithEmptyString(std::string& text) {
    CVRXDebugKitGuard guard(TAMREL_LOG_MODULE, "void replaceBraceWithEmptyString(std::string&)"_scope);
    std::size_t kept = 0;      // bytes that are in their final place
    std::size_t position = 0;  // what follows is not looked at yet
    const auto keepUpTo = [&](std::size_t end) {
        std::string::traits_type::move(&text[kept], &text[position], end - position);
        kept += end - position;
    };
    for (std::size_t open = text.find('{'); open != std::string::npos; open = text.find('{', position)) {
        const std::size_t close = text.find('}', open);
        if (close == std::string::npos) {
            guard.debug(LOGCODE_DEBUG, __FUNCTION__, __LINE__, "replaceBraceWithEmptyString error");
            break;
        }
        keepUpTo(open);
        position = close + 1;
    }
    keepUpTo(text.size());
    text.resize(kept);
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
        // Rules of log collectors match this spelling.
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
                            "std::string&, std::string&, u_int&, std::string&, std::string&)"_scope);
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
    pairs.reserve(list.size());  // most details show each parameter once
    parserParmeterByDetail(list, pairs, item->detail);
    std::string detailTemplate = item->detail;
    replaceBraceWithEmptyString(detailTemplate);

    int rc = ::replaceAlarmParamInfo(item->location, location, pairs);
    if (rc != 0) {
        guard.setResult(false);
        guard.error(LOGCODE_GENERAL, __FUNCTION__, __LINE__,
                    "parse alarm location %s using parameter %s failed. parsed location is %s.", item->location.c_str(),
                    params.c_str(), location.c_str());
        return rc;
    }
    rc = ::replaceAlarmParamInfo(detailTemplate, detail, pairs);
    if (rc != 0) {
        guard.setResult(false);
        guard.error(LOGCODE_GENERAL, __FUNCTION__, __LINE__,
                    "parse alarm detail %s using parameter %s failed, parsed detail is %s.", item->detail.c_str(),
                    params.c_str(), detail.c_str());
        return rc;
    }
    rc = ::replaceAlarmParamInfo(item->suggestion, suggestion, pairs);
    if (rc != 0) {
        guard.setResult(false);
        // "parsed detail" here too: rules of log collectors match it.
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
                            "int CAlarmConfigParser::getAlarmOidInfo(long long unsigned int, std::string&)"_scope);
    const Lock lock(m_oMutex);
    const CAlarmConfigItem* item = findItem(alarmId, guard, __FUNCTION__);
    if (item == nullptr) return -1;
    oid = item->alarmOid;
    return 0;
}

void CAlarmConfigParser::parseAlarmParamList(std::string params, std::vector<std::string>& list) {
    CVRXDebugKitGuard guard(
        TAMREL_LOG_MODULE,
        "void CAlarmConfigParser::parseAlarmParamList(std::string, std::vector<std::string>&)"_scope);
    if (params.empty()) return;
    list.reserve(list.size() + 1 + static_cast<std::size_t>(std::count(params.begin(), params.end(), COMMA.front())));
    SplitToStr(std::move(params), COMMA.front(), list);
    const bool isTraced = guard.takesTrace();
    for (std::string& value : list) {
        // Both escapes begin with an ampersand: a text without one stays, but for the trace.
        if (!isTraced && value.find(AMPERSAND) == std::string::npos) continue;
        value = relpacestr(std::move(value), ESC_COMMA, COMMA);
        value = relpacestr(std::move(value), ECS_AMPERSAND, AMPERSAND);
    }
}

int CAlarmConfigParser::replaceAlarmParamInfo(std::string templ, std::string& out, const POSITION_LIST& pairs) {
    return ::replaceAlarmParamInfo(templ, out, pairs);
}

bool CAlarmConfigParser::replaceParaWithBraceValue(std::string& text, int index, std::size_t start, std::size_t length,
                                                   const POSITION_LIST& pairs) {
    CVRXDebugKitGuard guard(TAMREL_LOG_MODULE, REPLACE_PARA_WITH_BRACE_VALUE);
    const std::string* value = valueOf(index, pairs);
    if (value == nullptr || start > text.size()) {
        guard.setResult(false);
        return false;
    }
    text.replace(start, length, *value);
    return true;
}
