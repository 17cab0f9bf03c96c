#include "alarm/alarm_xml_depth.h"

#include <strings.h>

#include <algorithm>
#include <cctype>
#include <cstring>

namespace {

constexpr const char* DECLARATION_BEGIN = "<?xml";
constexpr const char* COMMENT_BEGIN = "<!--";
constexpr const char* COMMENT_END = "-->";
constexpr const char* CDATA_BEGIN = "<![CDATA[";
constexpr const char* CDATA_END = "]]>";

enum class Encoding { UNKNOWN, LEGACY, UTF8 };

bool isNameStart(char c) {  // TinyXML takes every byte of 127 and above for a letter
    const auto byte = static_cast<unsigned char>(c);
    return byte >= 127 || byte == '_' || std::isalpha(byte) != 0;
}

bool isNameChar(char c) {
    return isNameStart(c) || std::isdigit(static_cast<unsigned char>(c)) != 0 || c == '-' || c == '.' || c == ':';
}

bool isBlank(char c) {
    return std::isspace(static_cast<unsigned char>(c)) != 0;
}

bool isQuote(char c) {
    return c == '"' || c == '\'';
}

// Bytes that TinyXML takes for one UTF-8 character, whatever stands after the first.
std::size_t utf8Length(char c) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte < 0xC2 || byte > 0xF4) return 1;
    if (byte < 0xE0) return 2;
    return byte < 0xF0 ? 3 : 4;
}

// A position in the text that only moves forward. A zero byte ends the text.
class MarkupScan {
public:
    explicit MarkupScan(const std::string& xml) : m_at(xml.c_str()) {
        if (std::strncmp(m_at, "\xEF\xBB\xBF", 3) == 0) m_encoding = Encoding::UTF8;
    }

    bool deeperThan(std::size_t levels) {
        std::size_t depth = 0;
        for (skipTo('<'); *m_at != '\0'; skipTo('<')) {
            if (startsIgnoringCase(DECLARATION_BEGIN)) {
                skipDeclaration(depth == 0);
            } else if (starts(COMMENT_BEGIN)) {
                skipAfter(COMMENT_BEGIN, COMMENT_END);
            } else if (starts(CDATA_BEGIN)) {
                skipAfter(CDATA_BEGIN, CDATA_END);
            } else if (isNameStart(m_at[1])) {
                if (depth == levels) return true;
                if (!skipTag()) ++depth;
            } else {
                if (m_at[1] == '/' && depth > 0) --depth;
                skipAfter("<", ">");  // an end tag, or markup that TinyXML keeps as it is
            }
        }
        return false;
    }

private:
    bool starts(const char* mark) const { return std::strncmp(m_at, mark, std::strlen(mark)) == 0; }
    bool startsIgnoringCase(const char* mark) const { return strncasecmp(m_at, mark, std::strlen(mark)) == 0; }

    // Moves to the next character `c` or the end. In UTF-8 a broken character hides what follows it, as in TinyXML.
    void skipTo(char c) {
        if (m_encoding != Encoding::UTF8) {
            m_at = strchrnul(m_at, c);
            return;
        }
        const char* at = m_at;
        while (*at != '\0' && *at != c) {
            for (std::size_t length = utf8Length(*at); length > 0 && *at != '\0'; --length) ++at;
        }
        m_at = at;
    }

    void skipAfter(const char* begin, const char* end) {
        const char* found = std::strstr(m_at + std::strlen(begin), end);
        m_at = found != nullptr ? found + std::strlen(end) : m_at + std::strlen(m_at);
    }

    void skipQuoted() {
        const char quote = *m_at++;
        skipTo(quote);
        if (*m_at != '\0') ++m_at;
    }

    void skipBlanks() {
        while (isBlank(*m_at)) ++m_at;
    }

    // Moves to the ">" of a start tag; true when it ends itself ("/>"). Quotes stand around values only: anywhere
    // else TinyXML refuses the tag.
    bool skipTag() {
        const char* last = m_at++;
        while (*m_at != '\0' && *m_at != '>') {
            last = m_at;
            if (isQuote(*m_at)) {
                skipQuoted();
            } else {
                ++m_at;
            }
        }
        return *last == '/';
    }

    // Moves to the ">" of a declaration. Only the values of its three attributes may hold a ">". One outside of all
    // elements decides about the encoding of what follows.
    void skipDeclaration(bool decides) {
        std::string encoding;
        m_at += std::strlen(DECLARATION_BEGIN);
        while (*m_at != '\0' && *m_at != '>') {
            skipBlanks();
            if (startsIgnoringCase("encoding")) {
                encoding = skipAttribute();
            } else if (startsIgnoringCase("version") || startsIgnoringCase("standalone")) {
                skipAttribute();
            } else {
                while (*m_at != '\0' && *m_at != '>' && !isBlank(*m_at)) ++m_at;
            }
        }
        if (decides && m_encoding == Encoding::UNKNOWN) {
            const bool utf8 = encoding.empty() || strncasecmp(encoding.c_str(), "UTF-8", 5) == 0 ||
                              strncasecmp(encoding.c_str(), "UTF8", 4) == 0;
            m_encoding = utf8 ? Encoding::UTF8 : Encoding::LEGACY;
        }
    }

    // Moves past an attribute of a declaration and returns its value.
    std::string skipAttribute() {
        while (isNameChar(*m_at)) ++m_at;
        skipBlanks();
        if (*m_at != '=') return "";
        ++m_at;
        skipBlanks();
        const char* begin = m_at;
        if (isQuote(*m_at)) {
            skipQuoted();
            return std::string(begin + 1, std::max(begin + 1, m_at - 1));
        }
        while (*m_at != '\0' && !isBlank(*m_at) && *m_at != '/' && *m_at != '>') ++m_at;
        return std::string(begin, m_at);
    }

    const char* m_at;
    Encoding m_encoding = Encoding::UNKNOWN;
};

}  // namespace

bool isNestedDeeperThan(const std::string& xml, std::size_t levels) {
    return MarkupScan(xml).deeperThan(levels);
}
