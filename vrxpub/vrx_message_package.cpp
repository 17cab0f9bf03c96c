#include "vrxpub/vrx_message_package.h"

#include <ace/Log_Msg.h>

#include <algorithm>
#include <cstdio>
#include <limits>
#include <locale>
#include <string>

#include "module/vrx_exception.h"
#include "vrxpub/vrx_little_endian.h"

namespace {

constexpr unsigned int MIN_TLV_SIZE = CTLVCell::MIN_TLV_SIZE;
constexpr unsigned int MIN_RECORD_SIZE = CTLVRecordV3::MIN_RECORD_SIZE;
constexpr unsigned int MAX_WIRE_TYPE = 9;

// Named in the log lines of refused records, in this form whatever compiler built us.
constexpr char GET_RECORD_SIGNATURE[] =
    "u_int CTLVPackageV3<MSG_S_HEAD>::getRecord(unsigned char*, unsigned int, CTLVRecordV3*&) "
    "[with MSG_S_HEAD = TLVMsgHeadV3; u_int = unsigned int]";

template <typename... Parts>
std::string join(const Parts&... parts) {
    std::ostringstream text;
    text.imbue(std::locale::classic());  // a host's locale may group digits
    (text << ... << parts);
    return text.str();
}

// Our text is an argument, not the format: ACE has directives of its own.
void logError(const std::string& text) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("%D %M (%t) %s\n"), text.c_str()));
}

void logInvalidHead() {
    ACE_ERROR((LM_ERROR, ACE_TEXT("%D %M (%t) invalid MSG header!\n")));
}

struct tCellHead {
    unsigned short word;
    unsigned short length;
};

tCellHead cellHeadAt(const unsigned char* p) {
    return {getLe16(p), getLe16(p + 2)};
}

// Checks the cells of a record whose `recordLen` bytes lie within `remain`, and counts them and the bytes of their long
// values. Returns what is wrong with them, as the log line has it, or an empty text. All numbers are 32 bits wide, so
// that none wraps at 65535.
std::string checkCells(const unsigned char* buf, unsigned int recordLen, unsigned int remain, unsigned int& count,
                       unsigned int& longValues) {
    const unsigned int end = MIN_RECORD_SIZE + recordLen;
    unsigned int cells = 0;
    unsigned int valueBytes = 0;
    for (unsigned int pos = MIN_RECORD_SIZE; pos < end; ++cells) {
        if (remain - pos < MIN_TLV_SIZE) {
            return join(" : (MIN_TLV_SIZE > uiBufSize - pos) ->", MIN_TLV_SIZE, " < ", "uiBufSize", " - ", pos);
        }
        const tCellHead head = cellHeadAt(buf + pos);
        const unsigned int type = head.word & 0xFU;
        // "unmated" here, and the name instead of its value above: rules of log collectors match these words.
        if (type > MAX_WIRE_TYPE) return join(" : data type unmated, received type is ", type);
        pos += MIN_TLV_SIZE;
        if (head.length + pos > end) {
            return join(" : data length is too long, ((sDataLen + pos) > usRecordLen + MIN_RECORD_SIZE) ->",
                        head.length, "+", pos, " > ", recordLen, "+", MIN_RECORD_SIZE);
        }
        if (head.length > CTLVCell::INSIDE_SIZE) valueBytes += head.length;
        pos += head.length;  // never past `end`: the loop ends exactly there
    }
    count = cells;
    longValues = valueBytes;
    return {};
}

}  // namespace

void TLVMsgHeadV3::dump(std::ostringstream& os) const {
    char line[256];
    (void)snprintf(line, sizeof line,
                   "head: magic 0x%08X version %u uiHeadParam1 0x%08X uiHeadParam2 0x%08X usHeadParam1 0x%04X "
                   "usHeadParam2 0x%04X usHeadParam3 0x%04X usHeadParam4 0x%04X uiDataLen %u",
                   uiMagic, uiVersion, uiHeadParam1, uiHeadParam2, unsigned{usHeadParam1}, unsigned{usHeadParam2},
                   unsigned{usHeadParam3}, unsigned{usHeadParam4}, uiDataLen);
    os << line << std::endl;
}

template <typename MSG_S_HEAD>
CTLVPackageV3<MSG_S_HEAD>::CTLVPackageV3() = default;

template <typename MSG_S_HEAD>
CTLVPackageV3<MSG_S_HEAD>::~CTLVPackageV3() {
    CTLVPackageV3::clear();
}

template <typename MSG_S_HEAD>
void CTLVPackageV3<MSG_S_HEAD>::append(std::unique_ptr<CTLVRecordV3> record) {
    if (record == nullptr) throw CVRX_Exception("package can't hold a null record");
    m_records.push_back(record.get());
    (void)record.release();
}

template <typename MSG_S_HEAD>
void CTLVPackageV3<MSG_S_HEAD>::clear() {
    for (const CTLVRecordV3* record : m_records) delete record;
    m_records.clear();
}

template <typename MSG_S_HEAD>
CTLVRecordV3* CTLVPackageV3<MSG_S_HEAD>::operator[](std::size_t index) const {
    if (index >= m_records.size()) throw CVRX_Exception("record don't exist, index is " + std::to_string(index));
    return *std::next(m_records.begin(), static_cast<std::ptrdiff_t>(index));
}

template <typename MSG_S_HEAD>
void CTLVPackageV3<MSG_S_HEAD>::dump(std::ostringstream& os) const {
    os << '{' << std::endl;
    m_head.dump(os);
    for (const CTLVRecordV3* record : m_records) record->dump(os);
    os << '}' << std::endl;
}

// Sets uiDataLen and returns the size of the whole package, which may be more than 32 bits hold.
template <typename MSG_S_HEAD>
unsigned long long CTLVPackageV3<MSG_S_HEAD>::updateDataLen() {
    unsigned long long dataLen = 0;
    for (const CTLVRecordV3* record : m_records) dataLen += MIN_RECORD_SIZE + record->length();
    m_head.uiDataLen = static_cast<unsigned int>(dataLen);
    return dataLen + MSG_S_HEAD::SIZE;
}

// Writes the package into a buffer that holds it up to `end`.
template <typename MSG_S_HEAD>
void CTLVPackageV3<MSG_S_HEAD>::write(unsigned char* buf, const unsigned char* end) const {
    unsigned char* p = buf;
    p = putLe32(p, m_head.uiMagic);
    p = putLe32(p, m_head.uiVersion);
    p = putLe32(p, m_head.uiHeadParam1);
    p = putLe32(p, m_head.uiHeadParam2);
    p = putLe16(p, m_head.usHeadParam1);
    p = putLe16(p, m_head.usHeadParam2);
    p = putLe16(p, m_head.usHeadParam3);
    p = putLe16(p, m_head.usHeadParam4);
    p = putLe32(p, m_head.uiDataLen);
    for (auto next = m_records.begin(); next != m_records.end();) {
        const CTLVRecordV3* const record = *next++;
        if (next != m_records.end()) __builtin_prefetch((*next)->begin());  // memory's answer is what takes time here
        unsigned char* const recordLen = putLe64(p, record->identifier());
        p = recordLen + 2;
        for (auto position = record->begin(); position != record->end(); position = position->next_) {
            p = CTLVRecordV3::cellAt(position).write(p, end);
        }
        // The field is 16 bits wide: a longer record keeps all its cells and the low 16 bits of their length.
        putLe16(recordLen, static_cast<std::uint16_t>(p - recordLen - 2));
    }
}

template <typename MSG_S_HEAD>
unsigned int CTLVPackageV3<MSG_S_HEAD>::encode(unsigned char*& out) {
    const unsigned long long total = updateDataLen();
    if (total >= FAILURE) {  // FAILURE itself is no size either
        ACE_ERROR((LM_ERROR, ACE_TEXT("%D %M (%t) data size is too large! data size=%Q!\n"), total));
        return FAILURE;
    }
    auto* const buf = new unsigned char[total];
    write(buf, buf + total);
    out = buf;
    return static_cast<unsigned int>(total);
}

template <typename MSG_S_HEAD>
unsigned int CTLVPackageV3<MSG_S_HEAD>::encode(unsigned char* buf, unsigned int size) {
    const unsigned long long total = updateDataLen();
    if (buf == nullptr) {
        ACE_ERROR((LM_ERROR, ACE_TEXT("%D %M (%t) buf pointer is null!\n")));
        return FAILURE;
    }
    if (size < total || total >= FAILURE) {
        const auto shown = static_cast<unsigned int>(std::min<unsigned long long>(total, FAILURE));
        ACE_ERROR((LM_ERROR, ACE_TEXT("%D %M (%t) buf size is less than data size! buf size=%u, data size=%u!\n"), size,
                   shown));
        return FAILURE;
    }
    write(buf, buf + total);
    return static_cast<unsigned int>(total);
}

template <typename MSG_S_HEAD>
bool CTLVPackageV3<MSG_S_HEAD>::verifyMsgHead(const unsigned char* buf, unsigned int size) {
    if (buf == nullptr || size < MSG_S_HEAD::SIZE) {
        ACE_ERROR((LM_ERROR,
                   ACE_TEXT("%D %M (%t) at File=%s,Line=%d,Function=CTLVPackageV3::verifyMsgHead: pBuf is null or "
                            "uiBufSize equal zero!\n"),
                   __FILE__, __LINE__));
        return false;
    }
    return getLe32(buf) == MSG_S_HEAD::MAGIC && getLe32(buf + 4) == MSG_S_HEAD::VERSION;
}

template <typename MSG_S_HEAD>
unsigned int CTLVPackageV3<MSG_S_HEAD>::decode(unsigned char* buf, unsigned int size) {
    if (!verifyMsgHead(buf, size)) {
        logInvalidHead();
        return FAILURE;
    }
    const unsigned int dataLen = getLe32(buf + 24);
    if (dataLen > size - MSG_S_HEAD::SIZE) {
        logInvalidHead();
        return FAILURE;
    }

    unsigned long long pos = 0;  // a refused record adds the size it claims
    while (dataLen - pos >= MIN_RECORD_SIZE) {
        CTLVRecordV3* record = nullptr;
        pos += getRecord(buf + MSG_S_HEAD::SIZE + pos, static_cast<unsigned int>(dataLen - pos), record);
        if (record == nullptr) {
            logError(join("at File=", __FILE__, ",Line=", __LINE__, " : it failed to parse record, buf size=", size,
                          ", parsing pos=", pos + MSG_S_HEAD::SIZE));
            clear();
            return FAILURE;
        }
        append(std::unique_ptr<CTLVRecordV3>(record));
    }
    if (pos < dataLen) {
        logError(join("at File=", __FILE__, ",Line=", __LINE__, ": MIN_RECORD_SIZE(", MIN_RECORD_SIZE,
                      ") > uiRemainLen, buf size=", size, ", parsing pos=", pos + MSG_S_HEAD::SIZE));
        clear();
        return FAILURE;
    }

    m_head.uiHeadParam1 = getLe32(buf + 8);
    m_head.uiHeadParam2 = getLe32(buf + 12);
    m_head.usHeadParam1 = getLe16(buf + 16);
    m_head.usHeadParam2 = getLe16(buf + 18);
    m_head.usHeadParam3 = getLe16(buf + 20);
    m_head.usHeadParam4 = getLe16(buf + 22);
    m_head.uiDataLen = dataLen;
    return dataLen;
}

template <typename MSG_S_HEAD>
unsigned int CTLVPackageV3<MSG_S_HEAD>::getRecord(unsigned char* buf, unsigned int remain, CTLVRecordV3*& out) {
    out = nullptr;
    if (buf == nullptr || remain < MIN_RECORD_SIZE) {
        logError(join("at File=", __FILE__, ",Line=", __LINE__, ",Function=", GET_RECORD_SIGNATURE,
                      ": MIN_RECORD_SIZE(", MIN_RECORD_SIZE, ") > uiRemainLen"));
        return 0;
    }
    const unsigned int recordLen = getLe16(buf + 8);
    const unsigned int size = recordLen + MIN_RECORD_SIZE;
    if (size > remain) {
        // Two blanks, and "<" for a test that is ">": rules of log collectors match these words.
        logError(join("at File=", __FILE__, ",Line=", __LINE__, ",Function=", GET_RECORD_SIGNATURE,
                      " : record length is too long, (usRecordLen +  MIN_RECORD_SIZE) > uiBufSize ->", recordLen, "+",
                      MIN_RECORD_SIZE, " < ", remain));
        return size;
    }

    // Nothing is made before all cells are known to be good: a malformed record costs no memory.
    unsigned int cells = 0;
    unsigned int longValues = 0;
    const std::string fault = checkCells(buf, recordLen, remain, cells, longValues);
    if (!fault.empty()) {
        logError(join("at File=", __FILE__, ",Line=", __LINE__, ",Function=", GET_RECORD_SIGNATURE, fault));
        return 0;
    }
    auto record = CTLVRecordV3::withRoom(getLe64(buf), std::max<unsigned long>(CTLVRecordV3::DEFAULT_BUCKETS, cells),
                                         cells, longValues);
    record->appendAll(buf + MIN_RECORD_SIZE, cells);
    out = record.release();
    return size;
}

template class CTLVPackageV3<TLVMsgHeadV3>;
