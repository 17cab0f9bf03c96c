#include "snmp_pp/oid.h"

#include <algorithm>
#include <cstring>
#include <string>

namespace Snmp_pp {

namespace {

constexpr SmiUINT32 SUB_IDENTIFIER_MASK = 0xFFFFFFFFUL;

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

// Appends what the text says to `ids`; false, with `ids` in any state, when the text does not parse.
bool parseDotted(const char* text, std::vector<SmiUINT32>& ids) {
    const char* at = text;
    while (*at != '\0') {
        if (*at == '.') {
            ++at;
        } else if (*at == '$') {
            const char* end = std::strchr(at + 1, '$');
            if (end == nullptr) {
                return false;
            }
            for (++at; at != end; ++at) {
                ids.push_back(static_cast<unsigned char>(*at));
            }
            ++at;
        } else if (isDigit(*at)) {
            SmiUINT32 number = 0;
            for (; isDigit(*at); ++at) {
                number = (number * 10 + static_cast<SmiUINT32>(*at - '0')) & SUB_IDENTIFIER_MASK;
            }
            ids.push_back(number);
        } else {
            return false;
        }
    }
    return true;
}

std::string joined(std::vector<SmiUINT32>::const_iterator from, std::vector<SmiUINT32>::const_iterator to) {
    std::string text;
    for (auto id = from; id != to; ++id) {
        if (id != from) {
            text += '.';
        }
        text += std::to_string(*id);
    }
    return text;
}

int compared(const std::vector<SmiUINT32>& left, const std::vector<SmiUINT32>& right, SmiUINT32 count) {
    for (SmiUINT32 i = 0; i < count; ++i) {
        if (i >= left.size() || i >= right.size()) {
            return left.size() == right.size() ? 0 : (left.size() < right.size() ? -1 : 1);
        }
        if (left[i] != right[i]) {
            return left[i] < right[i] ? -1 : 1;
        }
    }
    return 0;
}

}  // namespace

Oid::Oid(const char* text, bool dotted) {
    if (dotted) {
        *this = text;
    } else if (text != nullptr) {
        std::transform(text, text + std::strlen(text), std::back_inserter(m_ids),
                       [](char c) { return static_cast<unsigned char>(c); });
    }
}

Oid::Oid(const SmiUINT32* raw, int count) {
    if (raw != nullptr && count > 0) {
        set_data(raw, static_cast<unsigned int>(count));
    }
}

// An Oid of dots only is copied as an ordinary empty one.
Oid::Oid(const Oid& other) : SnmpSyntax(other), m_ids(other.m_ids) {}

Oid& Oid::operator=(const char* text) {
    std::vector<SmiUINT32> ids;
    const bool parsed = text != nullptr && *text != '\0' && parseDotted(text, ids);
    if (!parsed) {
        ids.clear();
    }
    m_ids.swap(ids);
    m_emptyBuffer = parsed;
    m_text.drop();
    return *this;
}

Oid& Oid::operator=(const Oid& other) {
    if (this != &other) {
        m_ids = other.m_ids;
        m_emptyBuffer = false;
        m_text.drop();
    }
    return *this;
}

SnmpSyntax& Oid::operator=(const SnmpSyntax& other) {
    const auto* oid = dynamic_cast<const Oid*>(&other);
    if (oid != nullptr) {
        *this = *oid;
    } else {
        clear();
    }
    return *this;
}

Oid& Oid::operator+=(const char* text) {
    if (text == nullptr) {
        return *this;
    }
    std::vector<SmiUINT32> added;
    if (!parseDotted(text, added)) {
        clear();
        return *this;
    }
    m_ids.insert(m_ids.end(), added.begin(), added.end());
    m_text.drop();
    return *this;
}

Oid& Oid::operator+=(SmiUINT32 subIdentifier) {
    m_ids.push_back(subIdentifier & SUB_IDENTIFIER_MASK);
    m_text.drop();
    return *this;
}

Oid& Oid::operator+=(const Oid& other) {
    const std::size_t count = other.m_ids.size();  // before the change: the other one may be this one
    m_ids.resize(m_ids.size() + count);
    std::copy_n(other.m_ids.begin(), count, m_ids.end() - static_cast<std::ptrdiff_t>(count));
    m_text.drop();
    return *this;
}

Oid operator+(const Oid& left, const Oid& right) {
    Oid sum;
    sum.m_ids.reserve(left.m_ids.size() + right.m_ids.size());
    sum.m_ids = left.m_ids;
    sum += right;
    return sum;
}

bool Oid::operator==(const Oid& other) const {
    return m_ids == other.m_ids;
}
bool Oid::operator!=(const Oid& other) const {
    return m_ids != other.m_ids;
}
bool Oid::operator<(const Oid& other) const {
    return m_ids < other.m_ids;
}
bool Oid::operator<=(const Oid& other) const {
    return m_ids <= other.m_ids;
}
bool Oid::operator>(const Oid& other) const {
    return m_ids > other.m_ids;
}
bool Oid::operator>=(const Oid& other) const {
    return m_ids >= other.m_ids;
}

int Oid::nCompare(SmiUINT32 count, const Oid& other) const {
    return compared(m_ids, other.m_ids, std::min<SmiUINT32>(count, std::max(m_ids.size(), other.m_ids.size())));
}

int Oid::nCompare(const Oid& other) const {
    return nCompare(std::max(len(), other.len()), other);
}

SmiUINT32& Oid::operator[](SmiUINT32 position) {
    m_text.drop();
    return m_ids[position];
}

void Oid::clear() {
    m_ids.clear();
    m_emptyBuffer = false;
    m_text.drop();
}

void Oid::trim(SmiUINT32 count) {
    if (count > 0 && count <= m_ids.size()) {
        m_ids.resize(m_ids.size() - count);
        m_emptyBuffer = false;
        m_text.drop();
    }
}

void Oid::set_data(const SmiUINT32* raw, unsigned int count) {
    const bool wasHeld = valid();
    std::vector<SmiUINT32> ids;
    if (raw != nullptr) {
        ids.reserve(count);
        std::transform(raw, raw + count, std::back_inserter(ids),
                       [](SmiUINT32 id) { return id & SUB_IDENTIFIER_MASK; });
    }
    m_ids.swap(ids);
    m_emptyBuffer = wasHeld;
    m_text.drop();
}

SmiOID* Oid::oidval() {
    m_text.drop();
    m_view = {m_ids.size(), m_ids.data()};
    return &m_view;
}

const char* Oid::get_printable() const {
    return m_text.text([this] { return joined(m_ids.begin(), m_ids.end()); });
}

const char* Oid::get_printable(SmiUINT32 count) const {
    return count > len() ? get_printable(0, 0) : get_printable(len() - count + 1, count);
}

const char* Oid::get_printable(SmiUINT32 start, SmiUINT32 count) const {
    m_partText.clear();
    if (start >= 1 && start <= len() && count <= len() - start + 1) {
        const auto from = m_ids.begin() + static_cast<std::ptrdiff_t>(start - 1);
        m_partText = joined(from, from + static_cast<std::ptrdiff_t>(count));
    }
    return m_partText.c_str();
}

}  // namespace Snmp_pp
