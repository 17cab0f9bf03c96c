#include "vrxpub/vrx_tlv_cell.h"

#include <string.h>  // explicit_bzero

#include <algorithm>
#include <cstdint>
#include <limits>

#include "module/vrx_exception.h"
#include "vrxpub/vrx_tlv_record.h"

namespace {

// The only width whose sign counts in a cast. The backend's other signed numbers are read as their bit pattern.
bool isSignedShort(const CTLVCell& cell) {
    return cell.length() == 2 && cell.type() == CTLVCell::TLV_TYPE_INT;
}

std::int16_t signedShort(const CTLVCell& cell) {
    return static_cast<std::int16_t>(getLe16(cell.data()));
}

// A number as a signed one of `length` bytes.
std::int64_t signedNumber(std::uint64_t number, unsigned int length) {
    if (length == 0) return 0;
    const unsigned int unused = 64 - 8 * std::min(length, 8U);
    return static_cast<std::int64_t>(number << unused) >> unused;
}

}  // namespace

void CTLVCell::dropArray(unsigned char* array, unsigned short length, bool isLent) {
    explicit_bzero(array, length);
    if (!isLent) delete[] array;
}

const unsigned char* CTLVCell::data() const {
    if (isOutside()) return m_value.outside;
    return m_length == 0 ? nullptr : m_value.inside;
}

unsigned short CTLVCell::wordOf(unsigned short tag, unsigned short type) {
    return static_cast<unsigned short>(tag << TYPE_BITS | (type & TYPE_MASK));
}

void CTLVCell::setTag(unsigned short tag) {
    m_word = wordOf(tag, type());
}

void CTLVCell::set(unsigned short tag, const char* text) {
    set_i(TLV_TYPE_STRING, tag, text, text == nullptr ? 0 : strlen(text) + 1);
}

void CTLVCell::set_i(ETLVType type, unsigned short tag, const void* data, unsigned long length) {
    setCell(wordOf(tag, type), static_cast<const char*>(data), length);
}

void CTLVCell::setCell(unsigned short word, const char* data, unsigned long length) {
    constexpr unsigned long MAX_LENGTH = std::numeric_limits<unsigned short>::max();
    const unsigned long kept = data == nullptr ? 0 : std::min(length, MAX_LENGTH);
    // `data` may point into the former value: that one is wiped only after the copy.
    unsigned char* const formerArray = isOutside() ? m_value.outside : nullptr;
    const unsigned short formerLength = m_length;
    const bool wasLent = m_isLent;

    bool isLent = false;
    if (kept > INSIDE_SIZE) {
        unsigned char* array = m_record != nullptr ? m_record->placeForValue(kept) : nullptr;
        isLent = array != nullptr;
        if (!isLent) array = new unsigned char[kept];
        memcpy(array, data, kept);
        if (kept < length && (word & TYPE_MASK) == TLV_TYPE_STRING) array[kept - 1] = 0;
        if (formerArray == nullptr) wipeInside();
        m_value.outside = array;
    } else {
        if (kept != 0) memmove(m_value.inside, data, kept);
        if (formerLength > kept) explicit_bzero(m_value.inside + kept, INSIDE_SIZE - kept);
    }
    if (m_record != nullptr) m_record->valueReplaced(formerLength, kept, kept > INSIDE_SIZE && !isLent);
    m_word = word;
    m_length = static_cast<unsigned short>(kept);
    m_isLent = isLent;
    if (formerArray != nullptr) dropArray(formerArray, formerLength, wasLent);
}

void CTLVCell::checkNumerical() const {
    if (type() <= TLV_TYPE_STRING) {
        throw CVRX_Exception("CTLVCell isn't numerical type! tag equal to " + std::to_string(tag()));
    }
}

void CTLVCell::checkString() const {
    if (type() != TLV_TYPE_STRING) {
        throw CVRX_Exception("CTLVCell isn't string type! tag equal to " + std::to_string(tag()));
    }
}

std::string CTLVCell::toString() const {
    if (type() == TLV_TYPE_INT) return std::to_string(signedNumber(number(), m_length));
    if (type() > TLV_TYPE_STRING) return std::to_string(number());
    if (m_length == 0) return {};
    const auto* const text = reinterpret_cast<const char*>(data());
    return {text, strnlen(text, m_length)};
}

template <>
unsigned int CTLVCell::ValueCast<unsigned int>::operator()(const CTLVCell* cell) const {
    if (isSignedShort(*cell)) return static_cast<unsigned int>(signedShort(*cell));
    return static_cast<unsigned int>(cell->number());
}

template <>
unsigned long long CTLVCell::ValueCast<unsigned long long>::operator()(const CTLVCell* cell) const {
    if (isSignedShort(*cell)) return static_cast<unsigned long long>(signedShort(*cell));
    return cell->number();
}
