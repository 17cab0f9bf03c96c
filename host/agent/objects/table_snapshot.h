// One moment of an object's values, in the order in which a manager walks them: columns by number, rows by number.
//
//     TableSnapshot snapshot(object);
//     snapshot.add(7, record);                       // rows in any order
//     snapshot.finish();
//     auto at = snapshot.next(suffix, length, false);  // the first instance after root.suffix
//     if (at) snapshot.fill(*at, varbind);
//
// A scalar is one column (number 0) with one row. Values are converted when they are added, and kept compactly:
// 10 bytes a cell and the texts. Rows that follow one another with the same text in a column have it once: alarms of
// one definition, raised by one fault, share most of theirs.
//
// Threads: one thread builds it; after finish() it is constant and may be read by any.
#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/agent/objects/mib_model.h"
#include "host/snmp/snmp_value.h"
#include "vrxpub/vrx_tlv_record.h"

namespace vrx {

class TableSnapshot {
public:
    using Clock = std::chrono::steady_clock;

    struct Instance {
        std::size_t column;  // position among the readable columns
        std::size_t row;     // position among the rows
    };

    // A value where it lies; good as long as the snapshot.
    struct Value {
        unsigned char type;
        std::uint64_t number;     // of numeric types; an INTEGER's bits
        std::string_view octets;  // of the others, as SnmpValue has them
    };

    enum class Found { Instance, NoSuchObject, NoSuchInstance };

    // What a reader is shown: with WithoutSecrets a text that is one is empty.
    enum class See { All, WithoutSecrets };

    // `object` outlives the snapshot. `changes`: the object's count of changes, `taken` the time, both from before its
    // values were asked for.
    TableSnapshot(const MibObject& object, std::uint64_t changes, Clock::time_point taken);

    // A later moment: the rows of `base`, of which replace() changes `replaced`; finish() is not called. Texts are
    // shared.
    TableSnapshot(const TableSnapshot& base, std::uint64_t changes, Clock::time_point taken, std::size_t replaced);
    void replace(std::uint32_t number, const CTLVRecordV3* record);  // null: no such row any more

    void reserve(std::size_t rows);  // to come; a hint
    void add(std::uint32_t number, const CTLVRecordV3& record);
    // Puts the rows in order. Of rows with one number the first that was added stays; the count of the others returns.
    std::size_t finish();

    // Of which event of the backend's it shows the moment.
    struct Origin {
        std::uint64_t event = 0;
        std::uint64_t forgotten = 0;     // EventRows::forgotten()
        Clock::time_point wholeSince{};  // when all its rows were read
        std::size_t replaced = 0;        // rows since then
    };
    void setOrigin(const Origin& origin) { m_origin = origin; }
    const std::optional<Origin>& origin() const { return m_origin; }  // nothing: it is not known

    bool showsSameAs(const TableSnapshot& other) const;  // names and values

    std::size_t rows() const { return m_rows.size(); }
    std::size_t columns() const { return m_columns.size(); }  // readable ones
    std::uint64_t changes() const { return m_changes; }
    Clock::time_point taken() const { return m_taken; }

    // Names are the sub-identifiers after the object's root.
    Found find(const oid* suffix, std::size_t length, Instance& instance) const;
    std::optional<Instance> next(const oid* suffix, std::size_t length, bool inclusive) const;
    std::optional<Instance> next(Instance instance) const;         // the one after it
    std::optional<Instance> nextColumn(std::size_t column) const;  // the first one after that column

    OidVector name(Instance instance) const;         // whole, root included
    OidVector columnName(std::size_t column) const;  // of which the column's instances stand below
    unsigned char type(Instance instance) const { return kind(instance).type; }
    oid lastOfName(Instance instance) const { return m_object->table ? m_rows[instance.row].number : 0; }
    Value value(Instance instance, See see = See::All) const;
    [[nodiscard]] bool fill(Instance instance, netsnmp_variable_list* varbind,
                            See see = See::All) const;  // false without memory

    // What a GET of that name finds at best, whatever the rows are: without NoSuch... an instance may exist.
    static Found findName(const MibObject& object, const oid* suffix, std::size_t length);

private:
    // Texts one after the other, each after its length, in blocks that never move.
    class Texts {
    public:
        Texts() = default;
        explicit Texts(const Texts& shared, std::size_t block) : m_block(block), m_blocks(shared.m_blocks) {}
        const char* add(std::string_view text);
        static std::string_view at(const char* added);

    private:
        static constexpr std::size_t REMEMBERED = 8;
        static constexpr std::size_t BLOCK = 4UL * 1024UL;

        std::size_t m_block = BLOCK;
        std::vector<std::shared_ptr<char[]>> m_blocks;
        std::array<const char*, REMEMBERED> m_last{};  // one of each length, but that lengths share places
        char* m_free = nullptr;
        std::size_t m_left = 0;
    };

    // A cell, in two parts, each of which is beside those of its column.
    struct Kind {
        unsigned char type;  // NO_VALUE: no instance
        bool isText : 1;
        bool isSecret : 1;
    };
    union Content {
        std::uint64_t number;
        const char* text;
    };

    struct Row {
        std::uint32_t number;
        std::uint32_t cell;  // position in each column
    };

    // Walks go down the columns: each one's cells and texts lie together.
    struct Column {
        void add(unsigned char type, std::string_view octets, std::uint64_t number, bool isSecret);

        const MibColumn* mib;
        std::vector<Kind> kinds;
        std::vector<Content> contents;
        Texts texts;
    };

    void addCells(const CTLVRecordV3& record);
    const Kind& kind(Instance instance) const { return m_columns[instance.column].kinds[m_rows[instance.row].cell]; }
    std::optional<Instance> firstFrom(std::size_t column, std::size_t row) const;

    const MibObject* m_object;
    std::uint64_t m_changes;
    Clock::time_point m_taken;
    std::vector<Column> m_columns;  // the readable ones
    std::vector<Row> m_rows;
    std::optional<Origin> m_origin;
};

using SnapshotPointer = std::shared_ptr<const TableSnapshot>;

}  // namespace vrx
