// Before Net-SNMP's headers: they declare a type of the name that its value types give arguments.
#include "platform/snmp_table_base.h"

#include "host/agent/objects/object_reader.h"

#include <algorithm>
#include <exception>
#include <limits>
#include <string>
#include <utility>

#include "host/agent/objects/backend_sequence.h"
#include "host/agent/objects/result_codes.h"
#include "host/agent/objects/row_index.h"
#include "host/agent/objects/snmp_context.h"
#include "host/base/logging.h"
#include "host/transport/backend_protocol.h"
#include "host/transport/batch_reader.h"

namespace vrx {

namespace {

// How long a table that changes while it is read is read anew. One that takes longer by itself is read once.
constexpr std::chrono::milliseconds REREAD_TIME{250};

constexpr std::size_t BATCH_ROWS = 50;  // that one backend call gives, at one moment

// Rows that are read one by one since all were read: what they take of memory is bounded.
constexpr std::size_t MOST_REPLACED = 256;

const OidVector ENTERPRISE = {1, 3, 6, 1, 4, 1, 99871, 2};  // requests name rows below it

std::unique_ptr<CTLVRecordV3> newRecord() {
    return std::make_unique<CTLVRecordV3>(CTLVRecordV3::NO_IDENTIFIER, CTLVRecordV3::DEFAULT_BUCKETS);
}

// The row's name as a request carries it: with the first column, below the enterprise.
std::string rowOid(const MibObject& object, std::uint64_t number) {
    OidVector name(object.root.begin() + static_cast<std::ptrdiff_t>(ENTERPRISE.size()), object.root.end());
    name.insert(name.end(), {MibObject::ENTRY, object.columns.front().number, number});
    return oidText(name);
}

}  // namespace

ObjectReader::ObjectReader(const MibObject& object, CSnmpHandler& handler, std::function<std::uint64_t()> changes,
                           const EventRows& eventRows)
    : m_object(&object),
      m_handler(handler),
      m_changes(std::move(changes)),
      m_eventRows(eventRows),
      m_table(dynamic_cast<CSnmpTableBase*>(&handler)),
      m_batch(m_table != nullptr && isBelow(object.root.data(), object.root.size(), ENTERPRISE)),
      m_large(m_batch) {}

bool ObjectReader::asks(unsigned long long backendCommand) const {
    return m_table != nullptr && static_cast<unsigned long long>(m_table->backendCommand()) == backendCommand;
}

std::unique_ptr<CR8KPackageV3> ObjectReader::query(const CR8KPackageV3& request) {
    const CVRX_SnmpContext context{};
    auto response = std::make_unique<CR8KPackageV3>();
    int result = 0;
    if (const auto obstacle = m_obstacle ? m_obstacle() : std::nullopt) throw ReadError(*obstacle);
    const ModuleLineLimit limit(BATCH_ROWS);  // a batch of rows may have a line each
    try {
        result = m_object->table ? m_handler.OnQueryTable(context, request, *response)
                                 : m_handler.OnQueryLeaf(context, request, *response);
    } catch (const std::exception& error) {
        throw ReadError(error.what());
    } catch (...) {
        throw ReadError("an exception of an unknown type");
    }
    if (result != 0) throw ReadError(resultText(m_object->root, result));
    return response;
}

std::unique_ptr<CR8KPackageV3> ObjectReader::row(std::uint32_t number) {
    CR8KPackageV3 request;
    auto record = newRecord();
    appendUint64(*record, CSnmpTableBase::REQUEST_TYPE_TAG, CSnmpTableBase::REQUEST_GET);
    appendText(*record, CSnmpTableBase::REQUEST_OID_TAG, rowOid(*m_object, number));
    request.append(std::move(record));
    return query(request);
}

std::unique_ptr<CR8KPackageV3> ObjectReader::records() {
    if (m_table != nullptr) m_table->setWholeTable(true);
    CR8KPackageV3 request;
    auto record = newRecord();
    if (m_batch) appendUint64(*record, CSnmpTableBase::REQUEST_TYPE_TAG, CSnmpTableBase::REQUEST_GETBULK);
    request.append(std::move(record));
    return query(request);
}

std::unique_ptr<CR8KPackageV3> ObjectReader::batchAfter(std::uint64_t row) {
    m_table->setWholeTable(false);
    CR8KPackageV3 request;
    auto record = newRecord();
    appendUint64(*record, CSnmpTableBase::REQUEST_TYPE_TAG, CSnmpTableBase::REQUEST_GETBULK);
    if (row > 0) appendText(*record, CSnmpTableBase::REQUEST_OID_TAG, rowOid(*m_object, row));
    request.append(std::move(record));
    return query(request);
}

// Batch by batch, so that the records of a large table are never all there at once. Gives how many had records.
std::size_t ObjectReader::addBatches(TableSnapshot& snapshot) {
    std::size_t batches = 0;
    const BatchesRead read = readBatches(0, [&](unsigned long long row) -> std::optional<Batch> {
        if (row > std::numeric_limits<std::uint32_t>::max()) return std::nullopt;  // after it no request can go on
        const auto batch = batchAfter(row);
        const auto& records = batch->records();
        if (records.empty()) return std::nullopt;
        ++batches;
        addRows(*batch, snapshot);
        return Batch{records.size(), records.back()->identifier()};
    });
    if (read.end == BatchEnd::TooMany) throw ReadError("more than " + std::to_string(LONGEST_LIST) + " rows");
    if (read.end == BatchEnd::NoProgress) throw ReadError("no rows after number " + std::to_string(read.after));
    return batches;
}

void ObjectReader::addRows(const CR8KPackageV3& response, TableSnapshot& snapshot) {
    std::size_t position = 0;
    for (const CTLVRecordV3* record : response.records()) {
        if (const auto number = rowNumber(*m_object, *record, position)) {
            snapshot.add(*number, *record);
        } else {
            ++m_unnumbered;
        }
        ++position;
    }
}

SnapshotPointer ObjectReader::whole() {
    const auto begin = TableSnapshot::Clock::now();
    while (true) {
        const std::uint64_t forgotten = m_eventRows.forgotten();
        std::optional<std::uint64_t> event;
        if (m_large) event = lastBackendEvent();
        const std::uint64_t changes = m_changes();
        const auto now = TableSnapshot::Clock::now();
        auto snapshot = std::make_shared<TableSnapshot>(*m_object, changes, now);
        snapshot->reserve(m_rows + BATCH_ROWS);
        std::size_t batches = 0;
        if (m_batch) {
            batches = addBatches(*snapshot);
        } else {
            addRows(*records(), *snapshot);
        }
        m_duplicates += snapshot->finish();
        m_rows = snapshot->rows();
        const bool compared = m_large;
        m_large = batches > 1;  // each is of a moment of its own
        const bool comparedSame = m_large && compared && lastBackendEvent() == event;
        if (comparedSame && event) snapshot->setOrigin({event.value_or(0), forgotten, now, 0});
        const bool oneMoment = m_changes() == changes && (!m_large || comparedSame);
        if (oneMoment || TableSnapshot::Clock::now() - begin >= REREAD_TIME) return snapshot;
    }
}

SnapshotPointer ObjectReader::current(const SnapshotPointer& before, std::chrono::milliseconds wholeAge) {
    if (before == nullptr || !before->origin()) return whole();
    try {
        if (SnapshotPointer snapshot = broughtUpToDate(*before, wholeAge)) return snapshot;
    } catch (const ReadError&) {  // whether the table can be read is for the whole of it to tell
    }
    SnapshotPointer snapshot = whole();
    const auto& now = snapshot->origin();
    const bool sameMoment =
        now && now->event == before->origin()->event && now->forgotten == before->origin()->forgotten;
    if (sameMoment && before->origin()->replaced > 0 && !snapshot->showsSameAs(*before)) ++m_differences;
    return snapshot;
}

// Null when that cannot be, or takes as many backend calls as all rows do.
SnapshotPointer ObjectReader::broughtUpToDate(const TableSnapshot& before, std::chrono::milliseconds wholeAge) {
    TableSnapshot::Origin origin = *before.origin();
    const auto begin = TableSnapshot::Clock::now();
    while (TableSnapshot::Clock::now() - begin < REREAD_TIME) {
        const std::uint64_t changes = m_changes();
        const auto now = TableSnapshot::Clock::now();
        if (m_eventRows.forgotten() != origin.forgotten || now - origin.wholeSince >= wholeAge) return nullptr;
        const std::optional<std::uint64_t> event = lastBackendEvent();
        const auto numbers = event ? m_eventRows.between(origin.event, *event) : std::nullopt;
        if (!numbers || numbers->size() * BATCH_ROWS > before.rows() ||
            origin.replaced + numbers->size() > MOST_REPLACED) {
            return nullptr;
        }
        auto snapshot = std::make_shared<TableSnapshot>(before, changes, now, numbers->size());
        for (const std::uint32_t number : *numbers) {
            const auto response = row(number);
            const auto& records = response->records();
            const auto found = std::find_if(records.begin(), records.end(), [&](const CTLVRecordV3* record) {
                return rowNumber(*m_object, *record, 0) == number;
            });
            snapshot->replace(number, found == records.end() ? nullptr : *found);
        }
        const bool oneMoment = numbers->empty() || lastBackendEvent() == event;
        if (m_eventRows.forgotten() != origin.forgotten) return nullptr;
        if (!oneMoment) continue;
        origin.event = *event;
        origin.replaced += numbers->size();
        snapshot->setOrigin(origin);
        m_rows = snapshot->rows();
        return snapshot;
    }
    return nullptr;
}

SnapshotPointer ObjectReader::rows(const std::vector<std::uint32_t>& numbers) {
    auto snapshot = std::make_shared<TableSnapshot>(*m_object, m_changes(), TableSnapshot::Clock::now());
    for (const std::uint32_t number : numbers) {
        const auto response = row(number);
        for (const CTLVRecordV3* row : response->records()) {
            if (rowNumber(*m_object, *row, 0) == number) snapshot->add(number, *row);
        }
    }
    m_duplicates += snapshot->finish();
    return snapshot;
}

std::uint64_t ObjectReader::duplicates() const {
    return m_duplicates + (m_table == nullptr ? 0 : m_table->duplicates());
}

std::uint64_t ObjectReader::badRecords() const {
    return m_unnumbered + (m_table == nullptr ? 0 : m_table->badRecords());
}

}  // namespace vrx
