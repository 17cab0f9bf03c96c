#include "handlers/tlv_columns.h"

#include <cstdlib>

#include "platform/vrx_xml_config.h"

namespace handlers {

namespace {

// Numbers on the wire are little-endian, whatever the machine is.
template <std::size_t SIZE>
void setNumber(CTLVCell& cell, CTLVCell::ETLVType type, unsigned short tag, unsigned long long number) {
    unsigned char bytes[SIZE];
    for (unsigned char& byte : bytes) {
        byte = static_cast<unsigned char>(number & 0xFF);
        number >>= 8;
    }
    cell.set_i(type, tag, bytes, SIZE);
}

}  // namespace

long long commandCode(const char* command) {
    std::string text;
    text = CVRXXmlConfig::instance()->getDeviceItem("COMMAND", command, text);
    return std::strtoll(text.c_str(), nullptr, 10);
}

unsigned int readUInt32(const CTLVRecordV3& record, unsigned short tag) {
    const CTLVCell& cell = record[tag];
    cell.checkNumerical();
    return CTLVCell::ValueCast<unsigned int>()(&cell);
}

unsigned long long readUInt64(const CTLVRecordV3& record, unsigned short tag) {
    const CTLVCell& cell = record[tag];
    cell.checkNumerical();
    return CTLVCell::ValueCast<unsigned long long>()(&cell);
}

std::string readString(const CTLVRecordV3& record, unsigned short tag) {
    const CTLVCell& cell = record[tag];
    cell.checkString();
    return cell.toString();
}

void setUInt32(CTLVCell& cell, unsigned short tag, unsigned int number) {
    setNumber<4>(cell, CTLVCell::TLV_TYPE_UINT, tag, number);
}

void setUInt64(CTLVCell& cell, unsigned short tag, unsigned long long number) {
    setNumber<8>(cell, CTLVCell::TLV_TYPE_UINT, tag, number);
}

void setInt32(CTLVCell& cell, unsigned short tag, int number) {
    setNumber<4>(cell, CTLVCell::TLV_TYPE_INT, tag, static_cast<unsigned int>(number));
}

std::unique_ptr<CTLVRecordV3> makeRow() {
    return std::make_unique<CTLVRecordV3>(CTLVRecordV3::NO_IDENTIFIER, CTLVRecordV3::DEFAULT_BUCKETS);
}

}  // namespace handlers
