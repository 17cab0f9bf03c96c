#include "host/agent/sets/set_step_execution.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <stdexcept>

#include "host/agent/loop/agent_loop.h"
#include "tests/agent/mib_samples.h"

namespace vrx {

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr int PARAM_ERROR = 0x3000003;

// A table in memory that writes down what it is asked, and can be told to fail at one of its calls.
class TableHandler : public CSnmpTableHandler {
public:
    int OnQueryTable(const CVRX_SnmpContext&, const CR8KPackageV3&, CR8KPackageV3& response) override {
        if (queryFails) return -1;
        for (const unsigned int number : rows) {
            response.append(makeRow(number, textCell(1, "old"), numberCell(2, 5), numberCell(3, 1), numberCell(4, 9)));
        }
        return 0;
    }
    int OnCreateTable(const CVRX_SnmpContext&, const CR8KPackageV3& request, CR8KPackageV3&) override {
        return called("create", request);
    }
    int OnModifyTable(const CVRX_SnmpContext&, const CR8KPackageV3& request, CR8KPackageV3&) override {
        return called("modify", request);
    }
    int OnDeleteTable(const CVRX_SnmpContext&, const CR8KPackageV3& request, CR8KPackageV3&) override {
        return called("delete", request);
    }

    std::vector<unsigned int> rows;
    bool queryFails = false;
    std::set<std::size_t> failAt;  // numbers of calls, from 1
    int failWith = -1;
    bool throws = false;
    std::vector<std::string> calls;

private:
    int called(const std::string& what, const CR8KPackageV3& request) {
        std::string line = what;
        const CTLVRecordV3& record = *request[0];
        for (auto at = record.begin(); at != record.end(); at = at->next_) {
            const CTLVCell& cell = CTLVRecordV3::cellAt(at);
            line += " " + std::to_string(cell.tag()) + "=" + cell.toString();
        }
        calls.push_back(line);
        if (failAt.count(calls.size()) == 0) return 0;
        if (throws) throw std::runtime_error("thrown");
        return failWith;
    }
};

class SetStepExecution : public testing::Test {
protected:
    SetStepExecution() : model(loadMib(sampleMib())), object(*model.find(SAMPLE_TABLE), handler, loop, {}) {}

    static SetCell cell(unsigned short tag, int variable, const char* text) {
        return {tag, variable, std::shared_ptr<const CTLVCell>(textCell(tag, text))};
    }

    static SetRow row(std::uint32_t number, int status, int statusVariable, std::vector<SetCell> cells) {
        return {number, std::move(cells), status, statusVariable};
    }

    std::string apply(std::vector<SetRow> rows) {
        StepExecution execution(SetStep{&object, std::move(rows)});
        SetResult result = execution.prepare();
        EXPECT_THAT(handler.calls, IsEmpty()) << "a check is no change";
        if (result.ok()) result = execution.carryOut();
        return result.ok() ? "ok" : std::to_string(result.error) + " at " + std::to_string(result.variable);
    }

    static std::string error(int code, int variable) {
        return std::to_string(code) + " at " + std::to_string(variable);
    }

    MibModel model;
    TableHandler handler;
    AgentLoop loop;
    ManagedObject object;
};

}  // namespace

TEST_F(SetStepExecution, AModifyHandsOverTheRowsValuesUnderTheNewOnes) {
    handler.rows = {7};
    EXPECT_EQ(apply({row(7, 0, 0, {cell(1, 1, "new")})}), "ok");
    // Writable columns only, without the row status.
    EXPECT_THAT(handler.calls, ElementsAre("modify 1=new 2=5"));
}

TEST_F(SetStepExecution, ACreateHandsOverWhatTheManagerGives) {
    EXPECT_EQ(apply({row(7, RS_CREATEANDGO, 2, {cell(1, 1, "new")})}), "ok");
    EXPECT_THAT(handler.calls, ElementsAre("create 1=new"));
}

TEST_F(SetStepExecution, OfATableWithoutTransactionsOneRowIsSetAtATime) {
    handler.rows = {1, 2};
    EXPECT_EQ(apply({row(1, RS_DESTROY, 1, {}), row(2, 0, 0, {cell(1, 2, "m")})}), error(SNMP_ERR_GENERR, 2));
    EXPECT_THAT(handler.calls, IsEmpty());
    // A row that needs no change is none.
    EXPECT_EQ(apply({row(9, RS_DESTROY, 1, {}), row(2, 0, 0, {cell(1, 2, "m")})}), "ok");
    EXPECT_THAT(handler.calls, ElementsAre("modify 1=m 2=5"));
}

TEST_F(SetStepExecution, NothingIsDoneWhenARowIsRefused) {
    handler.rows = {1};
    EXPECT_EQ(apply({row(1, RS_DESTROY, 1, {}), row(9, 0, 0, {cell(1, 2, "m")})}), error(SNMP_ERR_INCONSISTENTNAME, 2));
    EXPECT_THAT(handler.calls, IsEmpty());
}

TEST_F(SetStepExecution, RowStatusDecides) {
    handler.rows = {1};
    EXPECT_EQ(apply({row(1, RS_CREATEANDGO, 1, {cell(1, 2, "c")})}), error(SNMP_ERR_INCONSISTENTVALUE, 1));
    EXPECT_EQ(apply({row(2, RS_ACTIVE, 1, {})}), error(SNMP_ERR_INCONSISTENTVALUE, 1));
    EXPECT_EQ(apply({row(1, RS_DESTROY, 1, {cell(1, 2, "c")})}), error(SNMP_ERR_INCONSISTENTVALUE, 2));
    EXPECT_EQ(apply({row(1, RS_ACTIVE, 1, {})}), "ok");
    EXPECT_EQ(apply({row(2, RS_DESTROY, 1, {})}), "ok");
    EXPECT_THAT(handler.calls, IsEmpty());
    EXPECT_EQ(apply({row(1, RS_ACTIVE, 1, {cell(1, 2, "m")})}), "ok");
    EXPECT_THAT(handler.calls, ElementsAre("modify 1=m 2=5"));
}

TEST_F(SetStepExecution, ARowOfATableWithoutCreationIsNotCreated) {
    MibObject fixed = *model.find(SAMPLE_TABLE);
    fixed.creatable = false;
    ManagedObject fixedObject(fixed, handler, loop, {});
    StepExecution create(SetStep{&fixedObject, {row(1, RS_CREATEANDGO, 1, {cell(1, 2, "c")})}});
    EXPECT_EQ(create.prepare().error, SNMP_ERR_NOCREATION);
    StepExecution modify(SetStep{&fixedObject, {row(1, 0, 0, {cell(1, 2, "c")})}});
    EXPECT_EQ(modify.prepare().error, SNMP_ERR_NOCREATION);
}

TEST_F(SetStepExecution, ResultsOfTheHandlerBecomeErrors) {
    TableTraits traits;
    traits.results = {{0x4000001, SNMP_ERR_RESOURCEUNAVAILABLE, "full"},
                      {0x4000002, SNMP_ERR_INCONSISTENTVALUE, "twice"}};
    registerTable(SAMPLE_TABLE, traits);
    handler.rows = {1};
    for (const auto& [result, expected] :
         {std::pair{PARAM_ERROR, SNMP_ERR_WRONGVALUE}, std::pair{-1, SNMP_ERR_GENERR},
          std::pair{0x4000001, SNMP_ERR_RESOURCEUNAVAILABLE}, std::pair{0x4000002, SNMP_ERR_INCONSISTENTVALUE},
          std::pair{0x4000003, SNMP_ERR_GENERR}, std::pair{0x5000101, SNMP_ERR_RESOURCEUNAVAILABLE},
          std::pair{0x5000006, SNMP_ERR_GENERR}}) {
        handler.calls.clear();
        handler.failAt = {1};
        handler.failWith = result;
        EXPECT_EQ(apply({row(1, 0, 0, {cell(1, 4, "m")})}), error(expected, 4)) << result;
    }
}

TEST_F(SetStepExecution, AnExceptionOfTheHandlerIsGenErr) {
    handler.rows = {1};
    handler.failAt = {1};
    handler.throws = true;
    EXPECT_EQ(apply({row(1, 0, 0, {cell(1, 4, "m")})}), error(SNMP_ERR_GENERR, 4));
}

TEST_F(SetStepExecution, RowsThatCannotBeReadCannotBeSet) {
    handler.queryFails = true;
    EXPECT_EQ(apply({row(1, 0, 0, {cell(1, 4, "m")})}), error(SNMP_ERR_GENERR, 4));
    EXPECT_THAT(handler.calls, IsEmpty());
}

TEST(V1Error, FollowsTheTableOfCoexistence) {
    for (const int error : {SNMP_ERR_WRONGVALUE, SNMP_ERR_WRONGENCODING, SNMP_ERR_WRONGTYPE, SNMP_ERR_WRONGLENGTH,
                            SNMP_ERR_INCONSISTENTVALUE}) {
        EXPECT_EQ(v1Error(error), SNMP_ERR_BADVALUE);
    }
    for (const int error : {SNMP_ERR_NOACCESS, SNMP_ERR_NOTWRITABLE, SNMP_ERR_NOCREATION, SNMP_ERR_INCONSISTENTNAME,
                            SNMP_ERR_AUTHORIZATIONERROR}) {
        EXPECT_EQ(v1Error(error), SNMP_ERR_NOSUCHNAME);
    }
    for (const int error :
         {SNMP_ERR_RESOURCEUNAVAILABLE, SNMP_ERR_COMMITFAILED, SNMP_ERR_UNDOFAILED, SNMP_ERR_GENERR}) {
        EXPECT_EQ(v1Error(error), SNMP_ERR_GENERR);
    }
    EXPECT_EQ(v1Error(SNMP_ERR_NOERROR), SNMP_ERR_NOERROR);
    EXPECT_EQ(v1Error(SNMP_ERR_TOOBIG), SNMP_ERR_TOOBIG);
}

}  // namespace vrx
