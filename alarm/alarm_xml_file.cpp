#include "alarm/alarm_xml_file.h"

#include <sys/stat.h>
#include <tinyxml.h>

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <memory>

#include "alarm/alarm_xml_depth.h"
#include "module/vrx_exception.h"
#include "platform/vrx_utility.h"
#include "platform/vrx_xml_config.h"

namespace {

struct FileCloser {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

std::size_t limitMib() {
    std::string value;
    value = CVRXXmlConfig::instance()->getDeviceItem("SNMP_CONF", "ALARM_FILE_LIMIT_MIB", value);
    const unsigned int limit = StrToUint(value);
    return limit != 0 ? limit : ALARM_XML_DEFAULT_LIMIT_MIB;
}

// Why the file must not reach TinyXML; empty when it may, with the file's bytes in `content`. A file that cannot be
// opened is TinyXML's to report and leaves `opened` false.
std::string readGuarded(const std::string& path, std::string& content, bool& opened) {
    opened = false;
    struct stat status = {};
    if (stat(path.c_str(), &status) != 0) return "";
    if (S_ISDIR(status.st_mode)) return "Is a directory";
    if (!S_ISREG(status.st_mode)) return "Not a regular file";  // opening a pipe could wait for ever
    const File file(std::fopen(path.c_str(), "rb"));
    if (file == nullptr) return "";
    opened = true;

    const std::size_t mib = limitMib();
    const std::size_t limit = mib * 1024 * 1024;
    std::string tooLarge = "File is larger than " + std::to_string(mib) + " MiB";
    if (static_cast<unsigned long long>(status.st_size) > limit) return tooLarge;
    content.reserve(static_cast<std::size_t>(status.st_size) + 1);
    char buffer[65536];
    for (;;) {
        const std::size_t count = std::fread(buffer, 1, sizeof buffer, file.get());
        content.append(buffer, count);
        if (content.size() > limit) return tooLarge;  // it grew, or its size was not told
        if (count < sizeof buffer) break;
    }
    if (std::ferror(file.get()) != 0) return "Failed to read file";
    // TinyXML ends at a zero byte, but a broken UTF-8 character makes it step over one, or over the end of its buffer.
    content.resize(std::strlen(content.c_str()));
    const auto isLead = [](char c) { return static_cast<unsigned char>(c) >= 0xC2; };
    if (std::any_of(content.end() - std::min<std::ptrdiff_t>(3, content.end() - content.begin()), content.end(),
                    isLead))
        content.append(3, '\n');
    if (isNestedDeeperThan(content, ALARM_XML_MAX_DEPTH)) {
        return "Elements are nested more than " + std::to_string(ALARM_XML_MAX_DEPTH) + " levels deep";
    }
    return "";
}

}  // namespace

void loadAlarmXmlFile(const char* opening, const std::string& path, TiXmlDocument& document) {
    std::string content;
    bool opened = false;
    std::string reason = readGuarded(path, content, opened);
    int row = 0;
    int column = 0;
    if (reason.empty()) {
        // TinyXML gets the bytes that were looked at: the file may change meanwhile. A null file is its own case.
        File file;
        if (opened) file.reset(fmemopen(content.data(), content.size(), "rb"));
        if (document.LoadFile(file.get())) return;
        reason = document.ErrorDesc();
        row = document.ErrorRow();
        column = document.ErrorCol();
    }
    throw CVRX_Exception(opening + path + ") failed.\n" + reason + ". Location(row:" + std::to_string(row) +
                         ",col:" + std::to_string(column) + ").");
}
