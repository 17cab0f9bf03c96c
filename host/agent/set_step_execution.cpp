#include "host/agent/set_step_execution.h"

#include <algorithm>
#include <exception>
#include <map>

#include "host/agent/agent_log.h"
#include "host/agent/handler_results.h"
#include "host/agent/row_naming.h"
#include "host/agent/snmp_context.h"
#include "host/agent/snmp_value.h"
#include "host/services/backend_protocol.h"

namespace {

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

SetResult StepExecution::apply() {
    const MibObject& mib = m_step.object->mib();
    TableChanges transaction(mib.root);
    if (!mib.table) return applyScalar(transaction);
    std::vector<tChange> changes;
    try {
        const SetResult planned = plan(*m_step.object->reader().records(), changes);
        if (!planned.ok()) return planned;
    } catch (const ReadError& error) {
        agent_log::warn(mib.name + ": a SET needs the current rows, which cannot be read: " + error.what());
        return {SNMP_ERR_GENERR, m_step.rows.front().anyVariable()};
    }
    std::stable_sort(changes.begin(), changes.end(),
                     [](const tChange& a, const tChange& b) { return a.kind < b.kind; });
    for (tChange& change : changes) {
        const int error = call(transaction, change.kind, change.row->number, change.after);
        if (error != SNMP_ERR_NOERROR) {
            const int variable = change.row->anyVariable();
            return {takeBack(transaction) ? error : SNMP_ERR_UNDOFAILED, variable};
        }
        m_done.push_back(std::move(change));
    }
    const int result = transaction.commit();
    if (result == 0) return {};
    m_done.clear();
    agent_log::warn(mib.name + ": a SET could not be kept: " + resultText(result));
    return {snmpErrorOf(result), m_step.rows.front().anyVariable()};
}

SetResult StepExecution::applyScalar(TableChanges& transaction) {
    const SetCell& value = m_step.rows.front().cells.front();
    const int error = call(transaction, Kind::Modify, 0, {{value.tag, value.cell}});
    return {error, error == SNMP_ERR_NOERROR ? 0 : value.variable};
}

// What was done before a change failed.
bool StepExecution::takeBack(TableChanges& changes) {
    if (!changes.takesBack()) return undo();
    m_done.clear();
    return true;
}

SetResult StepExecution::plan(const CR8KPackageV3& current, std::vector<tChange>& changes) const {
    std::map<std::uint32_t, const CTLVRecordV3*> rows;
    std::size_t position = 0;
    for (const CTLVRecordV3* record : current.records()) {
        if (const auto number = rowNumber(m_step.object->mib(), *record, position++)) rows.emplace(*number, record);
    }
    for (const SetRow& row : m_step.rows) {
        const auto found = rows.find(row.number);
        const SetResult result = planRow(row, found == rows.end() ? nullptr : found->second, changes);
        if (!result.ok()) return result;
    }
    return {};
}

SetResult StepExecution::planRow(const SetRow& row, const CTLVRecordV3* current, std::vector<tChange>& changes) const {
    const MibObject& mib = m_step.object->mib();
    if (row.rowStatus == RS_DESTROY) {
        if (!row.cells.empty()) return {SNMP_ERR_INCONSISTENTVALUE, row.cells.front().variable};
        if (current == nullptr) return {};  // a row that is gone already: RFC 2579 wants noError
    } else if (row.rowStatus == RS_CREATEANDGO) {
        if (!mib.creatable) return {SNMP_ERR_NOCREATION, row.rowStatusVariable};
        if (current != nullptr) return {SNMP_ERR_INCONSISTENTVALUE, row.rowStatusVariable};
    } else if (current == nullptr) {
        if (row.rowStatus == RS_ACTIVE) return {SNMP_ERR_INCONSISTENTVALUE, row.rowStatusVariable};
        return {mib.creatable ? SNMP_ERR_INCONSISTENTNAME : SNMP_ERR_NOCREATION, row.cells.front().variable};
    } else if (row.cells.empty()) {
        return {};  // active to active
    }

    tChange change{Kind::Modify, &row, {}, {}};
    if (current != nullptr) {
        for (const MibColumn& column : mib.columns) {
            const auto tag = static_cast<unsigned short>(column.number);
            if (!column.writable() || &column == mib.rowStatus() || !current->has(tag)) continue;
            change.before.emplace(tag, copyCell((*current)[tag]));
        }
    }
    if (row.rowStatus == RS_DESTROY) {
        change.kind = Kind::Delete;
    } else {
        change.kind = current == nullptr ? Kind::Create : Kind::Modify;
        change.after = change.before;
        for (const SetCell& cell : row.cells) change.after[cell.tag] = cell.cell;
        if (isDestinationTable(mib.root)) {
            const SetResult checked = checkDestination(row, change.after);
            if (!checked.ok()) return checked;
        }
    }
    changes.push_back(std::move(change));
    return {};
}

bool StepExecution::undo() {
    const MibObject& mib = m_step.object->mib();
    if (!mib.table) return false;
    TableChanges transaction(mib.root);
    bool undone = true;
    while (!m_done.empty()) {
        const tChange change = std::move(m_done.back());
        m_done.pop_back();
        int error = SNMP_ERR_NOERROR;
        switch (change.kind) {
            case Kind::Create:
                error = call(transaction, Kind::Delete, change.row->number, {});
                break;
            case Kind::Modify:
                error = call(transaction, Kind::Modify, change.row->number, change.before);
                break;
            case Kind::Delete:
                error = call(transaction, Kind::Create, change.row->number, change.before);
                break;
        }
        if (error != SNMP_ERR_NOERROR) {
            agent_log::error(mib.name + ": a SET that failed could not be taken back in row " +
                             std::to_string(change.row->number));
            undone = false;
        }
    }
    return transaction.commit() == 0 && undone;
}

int StepExecution::call(TableChanges& changes, Kind kind, std::uint32_t number, const RowCells& cells) const {
    static constexpr const char* NAMES[] = {"delete", "modify", "create"};  // by Kind
    const MibObject& mib = m_step.object->mib();
    CSnmpHandler& handler = m_step.object->handler();
    const CVRX_SnmpContext context{};
    const std::string what = mib.table
                                 ? std::string(NAMES[static_cast<int>(kind)]) + " of row " + std::to_string(number)
                                 : std::string("set");
    try {
        CR8KPackageV3 request;
        CR8KPackageV3 response;
        CTLVRecordV3& record = appendRecord(request, cells);
        if (const unsigned short tag = mib.table ? numberColumn(mib.root) : static_cast<unsigned short>(0)) {
            appendText(record, tag, std::to_string(number));
        }
        int result = 0;
        if (!mib.table) {
            result = handler.OnSetLeaf(context, request, response);
        } else {
            switch (kind) {
                case Kind::Delete:
                    result = handler.OnDeleteTable(context, request, response);
                    break;
                case Kind::Modify:
                    result = handler.OnModifyTable(context, request, response);
                    break;
                case Kind::Create:
                    changes.nextRow(number);
                    result = handler.OnCreateTable(context, request, response);
                    break;
            }
        }
        if (result == 0) return SNMP_ERR_NOERROR;
        agent_log::warn(mib.name + ": " + what + " failed: " + resultText(result));
        return errorOf(result);
    } catch (const std::exception& error) {
        agent_log::warn(mib.name + ": " + what + " failed: " + error.what());
    } catch (...) {
        agent_log::warn(mib.name + ": " + what + " failed: an exception of an unknown type");
    }
    return SNMP_ERR_GENERR;
}

// Values that were checked one by one can only be at fault together.
int StepExecution::errorOf(int result) const {
    const int error = snmpErrorOf(result);
    return error == SNMP_ERR_WRONGVALUE && isDestinationTable(m_step.object->mib().root) ? SNMP_ERR_INCONSISTENTVALUE
                                                                                         : error;
}
