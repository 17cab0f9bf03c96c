// Carries out what a SET asks of one object, through its handler: all of it, or nothing.
//
//     StepExecution execution(step);
//     const SetResult result = execution.apply();   // on the object's worker
//     if (!others.ok()) execution.undo();           // likewise, when another object's step failed
//
// A row is created, modified or deleted whole: for a modify the handler gets the row's current values under the new
// ones, so that setting one column never changes another. Rows are deleted first, then modified, then created, so that
// a new row may take over what a deleted one had.
//
// Threads: apply() and undo() on the object's worker.
#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "host/agent/destination_table.h"
#include "host/agent/set_request.h"
#include "vrxpub/vrx_message_package.h"

class StepExecution {
public:
    explicit StepExecution(SetStep step) : m_step(std::move(step)) {}

    // On failure nothing is changed, or the error is undoFailed.
    SetResult apply();

    // Takes back what apply() did; false when that failed, or when the object is a scalar.
    bool undo();

private:
    enum class Kind { Delete, Modify, Create };  // in the order in which they are done

    struct tChange {
        Kind kind;
        const SetRow* row;
        RowCells before;  // writable columns; empty for Create
        RowCells after;   // empty for Delete
    };

    SetResult applyScalar(TableChanges& transaction);
    SetResult plan(const CR8KPackageV3& current, std::vector<tChange>& changes) const;
    SetResult planRow(const SetRow& row, const CTLVRecordV3* current, std::vector<tChange>& changes) const;
    int call(TableChanges& changes, Kind kind, std::uint32_t number, const RowCells& cells) const;
    bool takeBack(TableChanges& changes);
    int errorOf(int result) const;

    SetStep m_step;
    std::vector<tChange> m_done;
};
