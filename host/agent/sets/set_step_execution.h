// Carries out what a SET asks of one object, through its handler: first what can be given up, then what makes it so.
//
//     StepExecution execution(step);
//     execution.prepare();
//     execution.carryOut();  // when all objects of the SET are prepared
//     execution.giveUp();    // when one of them is not
//
// The rows of a table with rules (the trap destinations) are changed by prepare() in a transaction, which nobody sees:
// carryOut() commits it. Of other objects prepare() checks only, and carryOut() makes the one change, which nothing
// takes back.
//
// A row is created, modified or deleted whole: for a modify the handler gets the row's current values under the new
// ones, so that setting one column never changes another. Rows are deleted first, then modified, then created, so that
// a new row may take over what a deleted one had.
//
// Threads: one at a time; the operations on the object's worker.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "host/agent/objects/table_rules.h"
#include "host/agent/sets/set_request.h"
#include "vrxpub/vrx_message_package.h"

namespace vrx {

class StepExecution {
public:
    explicit StepExecution(SetStep step) : m_step(std::move(step)) {}

    ManagedObject& object() const { return *m_step.object; }

    SetResult prepare();   // on failure nothing has changed
    SetResult carryOut();  // likewise, as far as the handler tells
    void giveUp() { m_transaction.reset(); }

private:
    bool revocable() const { return m_step.revocable(); }
    int firstVariable() const { return m_step.rows.front().anyVariable(); }

    enum class Kind { Delete, Modify, Create };  // in the order in which they are done

    struct Change {
        Kind kind;
        const SetRow* row;
        RowCells cells;  // empty for Delete
    };

    SetResult prepareTable();
    SetResult plan(const CR8KPackageV3& current);
    SetResult planRow(const SetRow& row, const CTLVRecordV3* current);
    SetResult make(const Change& change);
    [[nodiscard]] int call(const Change& change, const CR8KPackageV3& request);

    SetStep m_step;
    std::vector<Change> m_changes;
    std::unique_ptr<RowChanges> m_transaction;
};

}  // namespace vrx
