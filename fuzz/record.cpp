// The input steers operations on a record and its cells; each result is compared with a plain list of cells. All tags,
// types, positions and sizes come up, right or not.
#include "vrxpub/vrx_tlv_record.h"

#include <ace/Log_Msg.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "fuzz/finding.h"
#include "fuzz/input.h"
#include "module/vrx_exception.h"
#include "vrxpub/vrx_message_package.h"

namespace {

constexpr std::size_t LONGEST_VALUE = 65535;
constexpr unsigned long BUCKETS[] = {CTLVRecordV3::DEFAULT_BUCKETS, 1, 1000, 0, ~0UL};

struct ModelCell {
    unsigned int tag = 4094;
    unsigned int type = 0;
    std::string value;

    std::string text() const {
        if (type <= CTLVCell::TLV_TYPE_STRING) return value.substr(0, value.find('\0'));
        if (type != CTLVCell::TLV_TYPE_INT) return std::to_string(number(8));
        const std::size_t width = std::min<std::size_t>(value.size(), 8);
        if (width == 0) return "0";
        const bool negative = (static_cast<unsigned char>(value[width - 1]) & 0x80U) != 0;
        if (!negative) return std::to_string(number(8));
        // The distance to the first number that the width cannot hold.
        unsigned long long distance = ~number(8) + 1;
        if (width < 8) distance &= (1ULL << 8 * width) - 1;
        return "-" + std::to_string(distance);
    }

    unsigned long long number(std::size_t width) const {
        unsigned long long sum = 0;
        for (std::size_t i = std::min(width, value.size()); i > 0; --i)
            sum = sum * 256 + static_cast<unsigned char>(value[i - 1]);
        return sum;
    }

    unsigned long long cast(std::size_t width) const {
        const unsigned long long plain = number(width);
        const bool extend = value.size() == 2 && type == CTLVCell::TLV_TYPE_INT && plain > 0x7FFF;
        return extend ? plain | ~0xFFFFULL : plain;
    }
};

template <typename Use>
std::string exceptionOf(const Use& use) {
    try {
        use();
    } catch (const CVRX_Exception& fault) {
        return fault.what();
    }
    return "";
}

class Session {
public:
    explicit Session(Input& input) : m_input(input) {
        const unsigned long buckets = BUCKETS[input.byte() % std::size(BUCKETS)];
        m_findable = buckets != 0 && buckets != ~0UL;
        m_record = std::make_unique<CTLVRecordV3>(m_identifier, buckets);
    }

    void run() {
        while (!m_input.atEnd()) step();
        checkAll();
        checkPackage();
    }

private:
    void step() {
        switch (m_input.byte() % 14) {
            case 0:
            case 1:
            case 2:
                append();
                break;
            case 3:
                for (unsigned int count = m_input.byte() % 80; count > 0; --count) append();  // makes the index
                break;
            case 4:
                find(m_input.word());
                break;
            case 5:
                if (!m_model.empty()) find(m_model[m_input.word() % m_model.size()].tag);
                break;
            case 6:
                replaceValue();
                break;
            case 7:
                require(exceptionOf([this] { m_record->append(nullptr); }).find("null cell") != std::string::npos,
                        "a null cell is taken");
                break;
            case 8:
                m_identifier = m_input.word() * 0x1000100010001ULL;
                m_record->setIdentifier(m_identifier);
                break;
            case 9:
                m_record->clear();
                m_model.clear();
                break;
            case 10:
                checkAll();
                break;
            case 11:
                checkPackage();
                break;
            case 12:
                checkKinds();
                break;
            default:
                checkPositions(m_input.word());
                break;
        }
    }

    // A value of any size; now and then one at the limit of a cell.
    std::string value() {
        const unsigned int size = m_input.byte();
        if (size < 0xF8) return m_input.bytes(size % 40);
        std::string text = m_input.bytes(4);
        text.resize(LONGEST_VALUE - 4 + size % 8, 'v');
        return text;
    }

    // Fills a cell in one of the ways that there are, and says what it must be then.
    ModelCell fill(CTLVCell& cell) {
        ModelCell model;
        const unsigned int way = m_input.byte();
        const unsigned int tag = m_input.word();
        const std::string bytes = value();
        switch (way % 5) {
            case 0:
                cell.set_i(static_cast<CTLVCell::ETLVType>(way / 5 % 16), static_cast<unsigned short>(tag),
                           bytes.data(), bytes.size());
                model = {tag % 4096, way / 5 % 16, bytes};
                break;
            case 1:
                cell.setCell(static_cast<unsigned short>(tag), bytes.data(), bytes.size());
                model = {tag / 16, tag % 16, bytes};
                break;
            case 2:
                cell.set(static_cast<unsigned short>(tag), bytes.c_str());
                model = {tag % 4096, CTLVCell::TLV_TYPE_STRING, std::string(bytes.c_str()) + '\0'};
                break;
            case 3:
                cell.set(static_cast<unsigned short>(tag), nullptr);
                model = {tag % 4096, CTLVCell::TLV_TYPE_STRING, ""};
                break;
            default:
                cell.set_i(CTLVCell::TLV_TYPE_OCTETS, static_cast<unsigned short>(tag), nullptr, bytes.size());
                model = {tag % 4096, CTLVCell::TLV_TYPE_OCTETS, ""};
                break;
        }
        if (model.value.size() > LONGEST_VALUE) {
            model.value.resize(LONGEST_VALUE);
            if (model.type == CTLVCell::TLV_TYPE_STRING) model.value.back() = '\0';
        }
        return model;
    }

    void append() {
        if (m_bytes > 2 * LONGEST_VALUE) return;  // enough to pass every limit
        auto cell = std::make_unique<CTLVCell>();
        check(*cell, ModelCell());
        ModelCell model = fill(*cell);
        if (m_input.byte() % 8 == 0) {
            const unsigned int tag = m_input.word();
            cell->setTag(static_cast<unsigned short>(tag));
            model.tag = tag % 4096;
        }
        check(*cell, model);
        m_record->append(cell.get());
        (void)cell.release();
        m_bytes += model.value.size();
        m_model.push_back(model);
    }

    // A new value under the tag that the cell had, taken from anywhere or from the cell's own value.
    void replaceValue() {
        if (m_model.empty()) return;
        const std::size_t at = m_input.word() % m_model.size();
        CTLVCell& cell = cellAt(at);
        ModelCell& model = m_model[at];
        const unsigned int way = m_input.byte();
        if (way % 2 == 0 && cell.length() > 0) {
            const std::size_t from = m_input.word() % cell.length();
            const std::size_t size = m_input.word() % (cell.length() - from + 1);
            const std::string part = model.value.substr(from, size);
            cell.setCell(cell.word(), reinterpret_cast<const char*>(cell.data()) + from, size);
            model.value = part;
        } else {
            const std::string bytes = m_input.bytes(way % 40);
            cell.setCell(cell.word(), bytes.data(), bytes.size());
            model.value = bytes;
        }
        check(cell, model);
    }

    CTLVCell& cellAt(std::size_t at) {
        CTLVRecordV3::Position position = m_record->begin();
        for (; at > 0; --at) position = position->next_;
        return CTLVRecordV3::cellAt(position);
    }

    void find(unsigned int tag) {
        const auto first =
            std::find_if(m_model.begin(), m_model.end(), [tag](const ModelCell& c) { return c.tag == tag; });
        const auto narrow = static_cast<unsigned short>(tag);
        const bool expected = m_findable && first != m_model.end();
        require(m_record->has(narrow) == expected, "has() is wrong");
        if (expected) {
            check((*m_record)[narrow], *first);
            require(&(*m_record)[narrow] == &CTLVRecordV3::cellAt(m_record->find(narrow)), "two cells of one tag");
        } else {
            require(m_record->find(narrow) == m_record->end(), "find() is wrong");
            const std::string text = exceptionOf([this, narrow] { (void)(*m_record)[narrow]; });
            require(text == "CVRX_Exception: record has no cell, tag equal to " + std::to_string(tag),
                    "the exception of an absent tag is wrong");
        }
    }

    static void check(const CTLVCell& cell, const ModelCell& model) {
        require(cell.tag() == model.tag && cell.type() == model.type, "a cell's tag or type is wrong");
        require(cell.length() == model.value.size() && cell.size() == 4 + model.value.size(), "a cell's size is wrong");
        require((cell.data() == nullptr) == model.value.empty(), "a cell's data is null, or is not");
        require(model.value.empty() || memcmp(cell.data(), model.value.data(), model.value.size()) == 0,
                "a cell's value is wrong");
        require(cell.toString() == model.text(), "a cell's text is wrong");
        require(CTLVCell::ValueCast<unsigned int>()(&cell) == static_cast<unsigned int>(model.cast(4)),
                "a cell's number of 32 bits is wrong");
        require(CTLVCell::ValueCast<unsigned long long>()(&cell) == model.cast(8),
                "a cell's number of 64 bits is wrong");
    }

    void checkAll() {
        require(m_record->identifier() == m_identifier, "the identifier is wrong");
        require(m_record->count() == m_model.size(), "the number of cells is wrong");
        unsigned long length = 0;
        std::size_t at = 0;
        for (auto p = m_record->begin(); p != m_record->end(); p = p->next_, ++at) {
            check(CTLVRecordV3::cellAt(p), m_model[at]);
            length += 4 + m_model[at].value.size();
        }
        require(at == m_model.size() && m_record->length() == length, "the walk over the cells is wrong");
        if (length > 4096) return;  // three characters a byte
        std::ostringstream text;
        m_record->dump(text);
        require(!text.str().empty(), "a record's dump is empty");
    }

    void checkKinds() {
        if (m_model.empty()) return;
        const std::size_t at = m_input.word() % m_model.size();
        const CTLVCell& cell = cellAt(at);
        const std::string tag = std::to_string(m_model[at].tag);
        require(exceptionOf([&cell] { cell.checkNumerical(); }) ==
                    (m_model[at].type > 2 ? "" : "CVRX_Exception: CTLVCell isn't numerical type! tag equal to " + tag),
                "checkNumerical() is wrong");
        require(exceptionOf([&cell] { cell.checkString(); }) ==
                    (m_model[at].type == 2 ? "" : "CVRX_Exception: CTLVCell isn't string type! tag equal to " + tag),
                "checkString() is wrong");
    }

    // A package of a few records, asked for one at any position.
    static void checkPositions(unsigned int position) {
        CR8KPackageV3 package;
        constexpr unsigned int RECORDS = 3;
        for (unsigned int i = 0; i < RECORDS; ++i)
            package.append(std::make_unique<CTLVRecordV3>(i, CTLVRecordV3::DEFAULT_BUCKETS));
        const std::string text = exceptionOf(
            [&] { require(package[position]->identifier() == position, "a package gives another record"); });
        require(
            text ==
                (position < RECORDS ? "" : "CVRX_Exception: record don't exist, index is " + std::to_string(position)),
            "the exception of an absent record is wrong");
    }

    // The record, written and read again, alone and in pieces. Types above 9 do not travel.
    void checkPackage() {
        const bool travels = m_record->length() <= 65535 && std::all_of(m_model.begin(), m_model.end(),
                                                                        [](const ModelCell& c) { return c.type <= 9; });
        CR8KPackageV3 package;
        CTLVRecordV3* const record = m_record.get();
        package.append(std::move(m_record));
        unsigned char* out = nullptr;
        const unsigned int size = package.encode(out);
        const std::unique_ptr<unsigned char[]> bytes(out);
        package.records().clear();
        m_record.reset(record);
        require(size == TLVMsgHeadV3::SIZE + CTLVRecordV3::MIN_RECORD_SIZE + record->length(), "encode() is wrong");
        if (!travels) return;

        CR8KPackageV3 received;
        require(received.decode(bytes.get(), size) == size - TLVMsgHeadV3::SIZE, "a package does not come back");
        require(received[0]->identifier() == m_identifier && received[0]->count() == m_model.size(),
                "a record comes back as another one");
        std::size_t at = 0;
        for (auto p = received[0]->begin(); p != received[0]->end(); p = p->next_)
            check(CTLVRecordV3::cellAt(p), m_model[at++]);

        const unsigned int whole = size - TLVMsgHeadV3::SIZE;
        const unsigned int remain = m_input.word() % (whole + 1);
        const std::vector<unsigned char> piece(bytes.get() + TLVMsgHeadV3::SIZE,
                                               bytes.get() + TLVMsgHeadV3::SIZE + remain);
        if (remain < CTLVRecordV3::MIN_RECORD_SIZE) return;  // getRecord's caller looks at that
        CTLVRecordV3* taken = nullptr;
        const unsigned int result = package.getRecord(const_cast<unsigned char*>(piece.data()), remain, taken);
        const std::unique_ptr<CTLVRecordV3> owner(taken);
        require((taken != nullptr) == (remain == whole), "a record that is cut off is taken for a whole one");
        require(result == whole, "the size of a record is wrong");
    }

    Input& m_input;
    bool m_findable = false;
    unsigned long long m_identifier = 1;
    std::unique_ptr<CTLVRecordV3> m_record;
    std::vector<ModelCell> m_model;
    std::size_t m_bytes = 0;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const bool quiet = (ACE_LOG_MSG->priority_mask(0, ACE_Log_Msg::PROCESS), true);
    (void)quiet;
    Input input(data, size);
    Session(input).run();
    return 0;
}
