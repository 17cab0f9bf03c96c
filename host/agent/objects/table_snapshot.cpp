#include "host/agent/objects/table_snapshot.h"

#include <algorithm>
#include <cstring>

#include "host/agent/objects/cell_value.h"
#include "host/agent/objects/table_rules.h"

namespace vrx {

namespace {

constexpr std::size_t BLOCK_OF_FEW_ROWS = 256;

}  // namespace

const char* TableSnapshot::Texts::add(std::string_view text) {
    const char*& last = m_last[text.size() % m_last.size()];
    if (last != nullptr && at(last) == text) return last;
    const auto length = static_cast<std::uint32_t>(text.size());
    const std::size_t size = sizeof length + text.size();
    if (size > m_left) {
        const std::size_t room = std::max(size, m_block);
        m_blocks.push_back(std::shared_ptr<char[]>(new char[room]));  // not emplaced: it has an owner if that throws
        m_free = m_blocks.back().get();
        m_left = room;
    }
    std::memcpy(m_free, &length, sizeof length);
    std::memcpy(m_free + sizeof length, text.data(), text.size());
    last = m_free;
    m_free += size;
    m_left -= size;
    return last;
}

std::string_view TableSnapshot::Texts::at(const char* added) {
    std::uint32_t length = 0;
    std::memcpy(&length, added, sizeof length);
    return {added + sizeof length, length};
}

TableSnapshot::TableSnapshot(const MibObject& object, std::uint64_t changes, Clock::time_point taken)
    : m_object(&object), m_changes(changes), m_taken(taken) {
    for (const MibColumn& column : object.columns) {
        if (column.readable()) m_columns.push_back({&column, {}, {}, {}});
    }
}

TableSnapshot::TableSnapshot(const TableSnapshot& base, std::uint64_t changes, Clock::time_point taken,
                             std::size_t replaced)
    : m_object(base.m_object), m_changes(changes), m_taken(taken), m_rows(base.m_rows) {
    m_columns.reserve(base.m_columns.size());
    for (const Column& column : base.m_columns) {
        m_columns.push_back({column.mib, {}, {}, Texts(column.texts, BLOCK_OF_FEW_ROWS)});
        Column& copy = m_columns.back();
        copy.kinds.reserve(column.kinds.size() + replaced);
        copy.kinds = column.kinds;
        copy.contents.reserve(column.contents.size() + replaced);
        copy.contents = column.contents;
    }
}

// The cells of a row that is gone stay: a snapshot is brought up to date a few times only.
void TableSnapshot::replace(std::uint32_t number, const CTLVRecordV3* record) {
    const auto at =
        std::lower_bound(m_rows.begin(), m_rows.end(), number,
                         [](const Row& candidate, std::uint32_t wanted) { return candidate.number < wanted; });
    const bool isThere = at != m_rows.end() && at->number == number;
    if (record == nullptr) {
        if (isThere) m_rows.erase(at);
        return;
    }
    const Row row{number, m_columns.empty() ? 0 : static_cast<std::uint32_t>(m_columns.front().kinds.size())};
    if (isThere) {
        *at = row;
    } else {
        m_rows.insert(at, row);
    }
    addCells(*record);
}

bool TableSnapshot::showsSameAs(const TableSnapshot& other) const {
    if (m_object != other.m_object || rows() != other.rows()) return false;
    for (std::size_t column = 0; column < m_columns.size(); ++column) {
        for (std::size_t row = 0; row < m_rows.size(); ++row) {
            const Instance at{column, row};
            const Value mine = value(at);
            const Value others = other.value(at);
            if (m_rows[row].number != other.m_rows[row].number || mine.type != others.type ||
                mine.number != others.number || mine.octets != others.octets ||
                kind(at).isSecret != other.kind(at).isSecret) {
                return false;
            }
        }
    }
    return true;
}

void TableSnapshot::Column::add(unsigned char type, std::string_view octets, std::uint64_t number, bool isSecret) {
    Content content{number};
    if (!octets.empty()) content.text = texts.add(octets);
    kinds.push_back({type, !octets.empty(), isSecret});
    contents.push_back(content);
}

void TableSnapshot::reserve(std::size_t rows) {
    m_rows.reserve(rows);
    for (Column& column : m_columns) {
        column.kinds.reserve(rows);
        column.contents.reserve(rows);
    }
}

void TableSnapshot::add(std::uint32_t number, const CTLVRecordV3& record) {
    m_rows.push_back({number, static_cast<std::uint32_t>(m_rows.size())});
    addCells(record);
}

void TableSnapshot::addCells(const CTLVRecordV3& record) {
    const TableRules* const rules = tableRules(m_object->root);
    for (Column& column : m_columns) {
        const bool isSecret = rules != nullptr && rules->isSecret(*column.mib, record);
        const auto found = record.find(static_cast<unsigned short>(column.mib->number));
        if (found == record.end()) {
            column.add(NO_VALUE, {}, 0, isSecret);
            continue;
        }
        const CTLVCell& from = CTLVRecordV3::cellAt(found);
        const auto text = column.mib->syntax.type == ASN_OCTET_STR ? textOfCell(from) : std::nullopt;
        if (text) {  // most of a table's bytes: from the record to their place at once
            column.add(ASN_OCTET_STR, *text, 0, isSecret);
        } else if (const auto value = valueOfCell(from, column.mib->syntax)) {
            column.add(value->type, value->octets, value->number, isSecret);
        } else {
            column.add(NO_VALUE, {}, 0, isSecret);
        }
    }
}

std::size_t TableSnapshot::finish() {
    const std::size_t added = m_rows.size();
    const auto before = [](const Row& a, const Row& b) { return a.number < b.number; };
    if (!std::is_sorted(m_rows.begin(), m_rows.end(), before)) std::stable_sort(m_rows.begin(), m_rows.end(), before);
    m_rows.erase(
        std::unique(m_rows.begin(), m_rows.end(), [](const Row& a, const Row& b) { return a.number == b.number; }),
        m_rows.end());
    // Copying all cells for the sake of a few would cost more than it gives.
    for (Column& column : m_columns) {
        if (column.contents.capacity() - column.contents.size() <= column.contents.size() / 8) continue;
        column.kinds.shrink_to_fit();
        column.contents.shrink_to_fit();
    }
    return added - m_rows.size();
}

// RFC 3416, 4.2.1: a name that begins with that of a column or a scalar, all of it, lacks the instance, not the object.
TableSnapshot::Found TableSnapshot::findName(const MibObject& object, const oid* suffix, std::size_t length) {
    const MibColumn* column = nullptr;
    std::size_t instanceLength = 1;
    if (!object.table) {
        column = &object.columns.front();
    } else if (length > 1 && suffix[0] == MibObject::ENTRY) {
        column = object.column(suffix[1]);
        instanceLength = MibObject::INSTANCE_LENGTH;
    }
    if (column == nullptr || !column->readable()) return Found::NoSuchObject;
    return length == instanceLength ? Found::Instance : Found::NoSuchInstance;
}

TableSnapshot::Found TableSnapshot::find(const oid* suffix, std::size_t length, Instance& instance) const {
    const Found atBest = findName(*m_object, suffix, length);
    if (atBest != Found::Instance) return atBest;
    if (!m_object->table) {
        if (suffix[0] != 0 || m_rows.empty()) return Found::NoSuchInstance;
        instance = {0, 0};
        return kind(instance).type == ASN_NULL ? Found::NoSuchInstance : Found::Instance;
    }
    const auto column = std::find_if(m_columns.begin(), m_columns.end(),
                                     [suffix](const Column& candidate) { return candidate.mib->number == suffix[1]; });
    const auto row = std::lower_bound(m_rows.begin(), m_rows.end(), suffix[2],
                                      [](const Row& candidate, oid number) { return candidate.number < number; });
    if (row == m_rows.end() || row->number != suffix[2]) return Found::NoSuchInstance;
    instance = {static_cast<std::size_t>(column - m_columns.begin()), static_cast<std::size_t>(row - m_rows.begin())};
    return kind(instance).type == ASN_NULL ? Found::NoSuchInstance : Found::Instance;
}

std::optional<TableSnapshot::Instance> TableSnapshot::next(const oid* suffix, std::size_t length,
                                                           bool inclusive) const {
    if (!m_object->table) {
        if (length == 0 || (inclusive && length == 1 && suffix[0] == 0)) return firstFrom(0, 0);
        return std::nullopt;
    }
    if (length == 0 || suffix[0] < MibObject::ENTRY) return firstFrom(0, 0);
    if (suffix[0] > MibObject::ENTRY) return std::nullopt;
    if (length == 1) return firstFrom(0, 0);

    const auto column =
        std::lower_bound(m_columns.begin(), m_columns.end(), suffix[1],
                         [](const Column& candidate, oid wanted) { return candidate.mib->number < wanted; });
    if (column == m_columns.end()) return std::nullopt;
    const auto position = static_cast<std::size_t>(column - m_columns.begin());
    if (column->mib->number != suffix[1] || length == 2) return firstFrom(position, 0);

    // After row N, or at it when it counts itself; a longer name stands after its row.
    const bool counts = inclusive && length == MibObject::INSTANCE_LENGTH;
    const auto row = std::find_if(
        std::lower_bound(m_rows.begin(), m_rows.end(), suffix[2],
                         [](const Row& candidate, oid number) { return candidate.number < number; }),
        m_rows.end(),
        [&](const Row& candidate) { return counts ? candidate.number >= suffix[2] : candidate.number > suffix[2]; });
    return firstFrom(position, static_cast<std::size_t>(row - m_rows.begin()));
}

std::optional<TableSnapshot::Instance> TableSnapshot::next(Instance instance) const {
    return firstFrom(instance.column, instance.row + 1);
}

std::optional<TableSnapshot::Instance> TableSnapshot::nextColumn(std::size_t column) const {
    return firstFrom(column + 1, 0);
}

std::optional<TableSnapshot::Instance> TableSnapshot::firstFrom(std::size_t column, std::size_t row) const {
    for (; column < m_columns.size(); ++column, row = 0) {
        for (; row < m_rows.size(); ++row) {
            if (kind({column, row}).type != ASN_NULL) return Instance{column, row};
        }
    }
    return std::nullopt;
}

OidVector TableSnapshot::columnName(std::size_t column) const {
    OidVector name = m_object->root;
    if (m_object->table) {
        name.push_back(MibObject::ENTRY);
        name.push_back(m_columns[column].mib->number);
    }
    return name;
}

OidVector TableSnapshot::name(Instance instance) const {
    OidVector name = columnName(instance.column);
    name.push_back(lastOfName(instance));
    return name;
}

TableSnapshot::Value TableSnapshot::value(Instance instance, See see) const {
    const Kind of = kind(instance);
    if (of.isSecret && see == See::WithoutSecrets) return {of.type, 0, {}};
    const Content content = m_columns[instance.column].contents[m_rows[instance.row].cell];
    if (of.isText) return {of.type, 0, Texts::at(content.text)};
    return {of.type, content.number, {}};
}

bool TableSnapshot::fill(Instance instance, netsnmp_variable_list* varbind, See see) const {
    const Value from = value(instance, see);
    return setVarbind(varbind, from.type, from.number, from.octets);
}

}  // namespace vrx
