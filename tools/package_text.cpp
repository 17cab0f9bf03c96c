#include "tools/package_text.h"

#include <ace/Log_Msg.h>
#include <ace/Log_Msg_Backend.h>
#include <ace/Log_Record.h>
#include <fmt/format.h>
#include <sysexits.h>

#include <cctype>
#include <cstring>
#include <fstream>
#include <iostream>
#include <sstream>
#include <stdexcept>
#include <utility>

#include "host/command_line/option_parser.h"
#include "vrxpub/vrx_message_package.h"

namespace vrx {

namespace {

int hexDigit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

bool isSeparator(char c) {
    return std::isspace(static_cast<unsigned char>(c)) != 0 || c == ':' || c == ',';
}

// Collects what the codec logs while it lives: the decoder names its reasons through the ACE log only.
class CodecLog : public ACE_Log_Msg_Backend {
public:
    CodecLog() : m_previous(ACE_Log_Msg::msg_backend(this)), m_flags(ACE_LOG_MSG->flags()) {
        ACE_LOG_MSG->set_flags(ACE_Log_Msg::CUSTOM);
        ACE_LOG_MSG->clr_flags(ACE_Log_Msg::STDERR);
    }
    ~CodecLog() override {
        ACE_LOG_MSG->clr_flags(ACE_LOG_MSG->flags());
        ACE_LOG_MSG->set_flags(m_flags);
        ACE_Log_Msg::msg_backend(m_previous);
    }
    CodecLog(const CodecLog&) = delete;
    CodecLog& operator=(const CodecLog&) = delete;

    int open(const ACE_TCHAR*) override { return 0; }
    int reset() override { return 0; }
    int close() override { return 0; }
    ssize_t log(ACE_Log_Record& record) override {
        m_text += record.msg_data();
        return static_cast<ssize_t>(std::strlen(record.msg_data()));
    }
    const std::string& text() const { return m_text; }

private:
    ACE_Log_Msg_Backend* m_previous;
    unsigned long m_flags;
    std::string m_text;
};

const char* typeName(CTLVCell::ETLVType type) {
    switch (type) {
        case CTLVCell::TLV_TYPE_NONE:
            return "none";
        case CTLVCell::TLV_TYPE_OCTETS:
            return "octets";
        case CTLVCell::TLV_TYPE_STRING:
            return "string";
        case CTLVCell::TLV_TYPE_UINT:
            return "uint";
        case CTLVCell::TLV_TYPE_INT:
            return "int";
    }
    return "other";
}

std::string cellValue(const CTLVCell& cell) {
    if (cell.type() == CTLVCell::TLV_TYPE_UINT || cell.type() == CTLVCell::TLV_TYPE_INT) return cell.toString();
    if (cell.type() == CTLVCell::TLV_TYPE_STRING) {
        std::string quoted = "\"";
        for (const char c : cell.toString())
            quoted +=
                static_cast<unsigned char>(c) < 0x20 || c == 0x7F ? fmt::format("\\x{:02X}", c) : std::string(1, c);
        return quoted + "\"";
    }
    std::string hex;
    for (unsigned int i = 0; i < cell.length(); ++i) hex += fmt::format("{}{:02X}", i == 0 ? "" : " ", cell.data()[i]);
    return hex;
}

void printRecord(std::ostream& out, std::size_t number, const CTLVRecordV3& record) {
    out << fmt::format("record {}: identifier {} (0x{:X}), {} cells, {} bytes\n", number, record.identifier(),
                       record.identifier(), record.count(), record.length());
    for (auto position = record.begin(); position != record.end(); position = position->next_) {
        const CTLVCell& cell = CTLVRecordV3::cellAt(position);
        out << fmt::format("  tag {:>4}  {:<6} {:>5} bytes  {}\n", cell.tag(), typeName(cell.type()), cell.length(),
                           cellValue(cell));
    }
}

std::string readAll(const std::string& path) {
    std::ostringstream content;
    if (path == "-") {
        content << std::cin.rdbuf();
        return content.str();
    }
    std::ifstream file(path, std::ios::binary);
    if (!file) throw std::runtime_error("cannot read " + path);
    content << file.rdbuf();
    return content.str();
}

}  // namespace

std::vector<unsigned char> bytesOfHex(const std::string& text) {
    std::vector<unsigned char> bytes;
    for (std::size_t at = 0; at < text.size();) {
        if (isSeparator(text[at])) {
            ++at;
            continue;
        }
        const int high = hexDigit(text[at]);
        const int low = at + 1 < text.size() ? hexDigit(text[at + 1]) : -1;
        if (high < 0 || low < 0) throw std::runtime_error(fmt::format("no hex byte at character {}", at + 1));
        bytes.push_back(static_cast<unsigned char>(high * 16 + low));
        at += 2;
    }
    return bytes;
}

bool printPackage(std::ostream& out, std::vector<unsigned char> bytes) {
    CR8KPackageV3 package;
    unsigned int parsed = CR8KPackageV3::FAILURE;
    std::string reason;
    {
        const CodecLog log;
        parsed = package.decode(bytes.data(), static_cast<unsigned int>(bytes.size()));
        reason = log.text();
    }
    if (parsed == CR8KPackageV3::FAILURE) {
        out << fmt::format("not a package ({} bytes):\n{}", bytes.size(), reason);
        return false;
    }
    const TLVMsgHeadV3& head = package.head();
    out << fmt::format(
        "header: magic 0x{:08X}, version {}, parameters {} 0x{:X} 0x{:X} 0x{:X} 0x{:X} 0x{:X}, {} bytes of records\n",
        head.uiMagic, head.uiVersion, head.uiHeadParam1, head.uiHeadParam2, head.usHeadParam1, head.usHeadParam2,
        head.usHeadParam3, head.usHeadParam4, head.uiDataLen);
    std::size_t number = 0;
    for (const CTLVRecordV3* record : package.records()) printRecord(out, number++, *record);
    const std::size_t used = TLVMsgHeadV3::SIZE + static_cast<std::size_t>(head.uiDataLen);
    if (used < bytes.size()) out << fmt::format("{} bytes after the package\n", bytes.size() - used);
    return true;
}

void DecodeCommand::define(OptionParser& command) {
    command.add("FILE", file, "file with the package's bytes (default: standard input)");
    command.add("--hex", hex, "the package as hex text");
    command.addFlag("--hex-file", hexFile, "FILE holds hex text");
}

int DecodeCommand::run() {
    std::vector<unsigned char> bytes;
    if (!hex.empty()) {
        bytes = bytesOfHex(hex);
    } else {
        const std::string content = readAll(file);
        bytes = hexFile ? bytesOfHex(content) : std::vector<unsigned char>(content.begin(), content.end());
    }
    return printPackage(std::cout, std::move(bytes)) ? EX_OK : EX_DATAERR;
}

}  // namespace vrx
