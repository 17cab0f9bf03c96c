#include "host/agent/sets/set_step_execution.h"

#include <algorithm>
#include <exception>
#include <map>

#include "host/agent/objects/cell_value.h"
#include "host/agent/objects/result_codes.h"
#include "host/agent/objects/row_index.h"
#include "host/agent/objects/snmp_context.h"
#include "host/transport/backend_protocol.h"
#include "host/transport/backend_result.h"

namespace vrx {

namespace {

constexpr const char* NO_ROW = "there is no such row";

CTLVRecordV3& appendRecord(CR8KPackageV3& package, const RowCells& cells) {
    auto record = std::make_unique<CTLVRecordV3>(CTLVRecordV3::NO_IDENTIFIER, CTLVRecordV3::DEFAULT_BUCKETS);
    for (const auto& [tag, cell] : cells) {
        auto copy = copyCell(*cell);
        record->append(copy.get());
        static_cast<void>(copy.release());  // the record owns it from here
    }
    CTLVRecordV3& appended = *record;
    package.append(std::move(record));
    return appended;
}

}  // namespace

SetResult StepExecution::prepare() {
    if (!m_step.object->mib().table) {
        const SetCell& value = m_step.rows.front().cells.front();
        m_changes.push_back({Kind::Modify, &m_step.rows.front(), {{value.tag, value.cell}}});
        return {};
    }
    if (revocable()) m_transaction = m_step.rules()->begin();
    try {
        SetResult result = prepareTable();
        if (!result.ok()) {
            giveUp();
        } else if (m_transaction) {
            m_transaction->leave();
        }
        return result;
    } catch (...) {
        giveUp();
        throw;
    }
}

SetResult StepExecution::prepareTable() {
    try {
        const SetResult planned = plan(*m_step.object->reader().records());
        if (!planned.ok()) return planned;
    } catch (const ReadError& error) {
        return {SNMP_ERR_GENERR, firstVariable(), std::string("the current rows cannot be read: ") + error.what()};
    }
    std::stable_sort(m_changes.begin(), m_changes.end(),
                     [](const Change& a, const Change& b) { return a.kind < b.kind; });
    if (!revocable()) {
        if (m_changes.size() <= 1) return {};
        return {SNMP_ERR_GENERR, m_changes[1].row->anyVariable(), "of this table one row can be set at a time"};
    }
    for (const Change& change : m_changes) {
        const SetResult made = make(change);
        if (!made.ok()) return made;
    }
    return {};
}

SetResult StepExecution::carryOut() {
    if (!revocable()) return m_changes.empty() ? SetResult{} : make(m_changes.front());
    const int result = m_transaction->commit();
    m_transaction.reset();
    if (result == 0) return {};
    const OidVector& root = m_step.object->mib().root;
    return {snmpErrorOf(root, result), firstVariable(), "the rows cannot be kept: " + resultText(root, result)};
}

SetResult StepExecution::plan(const CR8KPackageV3& current) {
    std::map<std::uint32_t, const CTLVRecordV3*> rows;
    std::size_t position = 0;
    for (const CTLVRecordV3* record : current.records()) {
        if (const auto number = rowNumber(m_step.object->mib(), *record, position++)) rows.emplace(*number, record);
    }
    for (const SetRow& row : m_step.rows) {
        const auto found = rows.find(row.number);
        const SetResult result = planRow(row, found == rows.end() ? nullptr : found->second);
        if (!result.ok()) return result;
    }
    return {};
}

SetResult StepExecution::planRow(const SetRow& row, const CTLVRecordV3* current) {
    const MibObject& mib = m_step.object->mib();
    if (row.rowStatus == RS_DESTROY) {
        if (!row.cells.empty()) {
            return {SNMP_ERR_INCONSISTENTVALUE, row.cells.front().variable, "its row is destroyed by the same SET"};
        }
        if (current == nullptr) return {};  // a row that is gone already: RFC 2579 wants noError
        m_changes.push_back({Kind::Delete, &row, {}});
        return {};
    }
    if (row.rowStatus == RS_CREATEANDGO) {
        if (!mib.creatable) return {SNMP_ERR_NOCREATION, row.rowStatusVariable, "rows cannot be created"};
        if (current != nullptr) return {SNMP_ERR_INCONSISTENTVALUE, row.rowStatusVariable, "the row is there already"};
    } else if (current == nullptr) {
        if (row.rowStatus == RS_ACTIVE) return {SNMP_ERR_INCONSISTENTVALUE, row.rowStatusVariable, NO_ROW};
        return {mib.creatable ? SNMP_ERR_INCONSISTENTNAME : SNMP_ERR_NOCREATION, row.cells.front().variable, NO_ROW};
    } else if (row.cells.empty()) {
        return {};  // active to active
    }

    Change change{current == nullptr ? Kind::Create : Kind::Modify, &row, {}};
    if (current != nullptr) {
        for (const MibColumn& column : mib.columns) {
            const auto tag = static_cast<unsigned short>(column.number);
            if (!column.writable() || &column == mib.rowStatus() || !current->has(tag)) continue;
            change.cells.emplace(tag, copyCell((*current)[tag]));
        }
    }
    const RowCells before = change.cells;
    for (const SetCell& cell : row.cells) change.cells[cell.tag] = cell.cell;
    if (revocable()) {
        SetResult checked = m_step.rules()->check(row, before, change.cells);
        if (!checked.ok()) return checked;
    }
    m_changes.push_back(std::move(change));
    return {};
}

// Asks the handler.
SetResult StepExecution::make(const Change& change) {
    static constexpr const char* NAMES[] = {"delete", "modify", "create"};  // by Kind
    const MibObject& mib = m_step.object->mib();
    int variable = change.row->anyVariable();
    std::string failure;
    int error = SNMP_ERR_GENERR;
    try {
        CR8KPackageV3 request;
        CTLVRecordV3& record = appendRecord(request, change.cells);
        if (const unsigned short tag = tableTraits(mib.root).numberColumn) {
            appendText(record, tag, std::to_string(change.row->number));
        }
        const int result = call(change, request);
        if (result == 0) return {};
        error = snmpErrorOf(mib.root, result);
        failure = resultText(mib.root, result);
        if (revocable()) {
            // Values that were checked one by one can only be at fault together.
            if (error == SNMP_ERR_WRONGVALUE) error = SNMP_ERR_INCONSISTENTVALUE;
            variable = m_step.rules()->variableOf(*change.row, result);
        } else if (backendMayHaveDone(result)) {
            failure += "; whether the backend has carried it out is not known";
        }
    } catch (const std::exception& exception) {
        failure = exception.what();
    } catch (...) {
        failure = "an exception of an unknown type";
    }
    return {error, variable,
            std::string(mib.table ? NAMES[static_cast<int>(change.kind)] : "set") + " failed: " + failure};
}

int StepExecution::call(const Change& change, const CR8KPackageV3& request) {
    CSnmpHandler& handler = m_step.object->handler();
    const CVRX_SnmpContext context{};
    CR8KPackageV3 response;
    if (!m_step.object->mib().table) return handler.OnSetLeaf(context, request, response);
    switch (change.kind) {
        case Kind::Delete:
            return handler.OnDeleteTable(context, request, response);
        case Kind::Modify:
            return handler.OnModifyTable(context, request, response);
        case Kind::Create:
            break;
    }
    if (m_transaction) m_transaction->assignNext(change.row->number);
    return handler.OnCreateTable(context, request, response);
}

}  // namespace vrx
