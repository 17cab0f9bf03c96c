#include "alarm/alarm_xml_file.h"

#include <sys/stat.h>
#include <tinyxml.h>

#include <cstdio>
#include <cstring>
#include <memory>

#include "alarm/alarm_constants.h"
#include "alarm/alarm_xml_depth.h"
#include "module/vrx_exception.h"
#include "platform/vrx_utility.h"
#include "platform/vrx_xml_config.h"

namespace {

// A broken UTF-8 character at the end makes TinyXML step up to this many bytes over the end of the text.
constexpr std::size_t TINYXML_OVERRUN = 3;

struct FileCloser {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

std::size_t limitMib() {
    std::string value;
    value = CVRXXmlConfig::instance()->getDeviceItem(KSNMPCONF, "ALARM_FILE_LIMIT_MIB", value);
    const unsigned int limit = StrToUint(value);
    return limit != 0 ? limit : ALARM_XML_DEFAULT_LIMIT_MIB;
}

// Why the file cannot be read; empty when `content` holds its bytes.
std::string readFile(std::FILE* file, std::size_t expectedSize, std::string& content) {
    const std::size_t mib = limitMib();
    const std::size_t limit = mib * 1024 * 1024;
    std::string tooLarge = "File is larger than " + std::to_string(mib) + " MiB";
    if (expectedSize > limit) return tooLarge;
    content.reserve(expectedSize + TINYXML_OVERRUN);
    char buffer[65536];
    std::size_t count = 0;
    do {
        count = std::fread(buffer, 1, sizeof buffer, file);
        content.append(buffer, count);
        if (content.size() > limit) return tooLarge;  // it grew, or its size was not told
    } while (count == sizeof buffer);
    return std::ferror(file) != 0 ? "Failed to read file" : "";
}

// As TinyXML reads a file: up to the first zero byte, each CR LF and each CR a line feed.
void normalize(std::string& text) {
    text.resize(std::strlen(text.c_str()));
    if (text.find('\r') == std::string::npos) return;
    std::size_t kept = 0;
    char former = '\0';
    for (const char c : text) {
        if (c != '\n' || former != '\r') text[kept++] = c == '\r' ? '\n' : c;
        former = c;
    }
    text.resize(kept);
}

// Parses the file into `document`, which then knows TinyXML's error; or returns why the file never reached it.
std::string parseGuarded(const std::string& path, TiXmlDocument& document) {
    struct stat status = {};
    const bool exists = stat(path.c_str(), &status) == 0;
    if (exists && S_ISDIR(status.st_mode)) return "Is a directory";
    if (exists && !S_ISREG(status.st_mode)) return "Not a regular file";  // opening a pipe could wait for ever
    const File file(exists ? std::fopen(path.c_str(), "rb") : nullptr);
    if (file == nullptr) {
        document.LoadFile(static_cast<std::FILE*>(nullptr));  // says in TinyXML's words that there is no file
        return "";
    }
    std::string content;
    std::string reason = readFile(file.get(), static_cast<std::size_t>(status.st_size), content);
    if (!reason.empty()) return reason;
    normalize(content);
    if (isNestedDeeperThan(content, ALARM_XML_MAX_DEPTH)) {
        return "Elements are nested more than " + std::to_string(ALARM_XML_MAX_DEPTH) + " levels deep";
    }
    content.append(TINYXML_OVERRUN, '\0');
    document.Parse(content.c_str());
    if (document.Error() && document.TabSize() == 0) {  // once more, for the error's place
        document.Clear();
        document.SetTabSize(TiXmlDocument().TabSize());
        document.Parse(content.c_str());
    }
    return "";
}

}  // namespace

void loadAlarmXmlFile(const char* opening, const std::string& path, TiXmlDocument& document) {
    std::string reason = parseGuarded(path, document);
    int row = 0;
    int column = 0;
    if (reason.empty()) {
        if (!document.Error()) return;
        reason = document.ErrorDesc();
        row = document.ErrorRow();
        column = document.ErrorCol();
    }
    throw CVRX_Exception(opening + path + ") failed.\n" + reason + ". Location(row:" + std::to_string(row) +
                         ",col:" + std::to_string(column) + ").");
}
