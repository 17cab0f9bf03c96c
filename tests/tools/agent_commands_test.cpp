#include "tools/agent_commands.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "tools/agent_call.h"

namespace {

std::string tablesOf(const std::string& answer) {
    std::ostringstream out;
    printStatusTables(out, answer);
    return out.str();
}

// With one blank between two.
std::string wordsOf(const std::string& line) {
    std::istringstream in(line);
    std::string words;
    for (std::string word; in >> word;) words += (words.empty() ? "" : " ") + word;
    return words;
}

}  // namespace

TEST(StatusTables, ASectionIsALineForEachField) {
    EXPECT_EQ(tablesOf(R"({"agent":{"version":"1.2","modules":["/a.so","/b.so"],"uptime_seconds":7,"age":0.123456,)"
                       R"("taken":true,"at":null,"note":""}})"),
              "agent\n"
              "  version              1.2\n"
              "  modules              /a.so /b.so\n"
              "  uptime_seconds       7\n"
              "  age                  0.1235\n"
              "  taken                yes\n"
              "  at                   -\n"
              "  note                 -\n");
}

TEST(StatusTables, CountsAreAddedUpAndThoseAboveZeroNamed) {
    EXPECT_EQ(tablesOf(R"({"traps":{"dropped":{"queue full":2,"unresolved":0,"bad OID":1},"lost":{"x":0}}})"),
              "traps\n"
              "  dropped              3 (queue full 2, bad OID 1)\n"
              "  lost                 0\n");
}

TEST(StatusTables, AListHasItsRowsBelowTheirNames) {
    EXPECT_EQ(tablesOf(R"({"objects":[{"name":"a","rows":1},{"name":"b","rows":null}],"others":[]})"),
              "objects\n"
              "  a\n"
              "    rows                 1\n"
              "  b\n"
              "    rows                 -\n"
              "others\n");
}

TEST(StatusTables, TimesAreOneLine) {
    EXPECT_EQ(tablesOf(R"({"calls":{"latency":{"count":3,"sum_seconds":0.5,"max_seconds":0.25,)"
                       R"("p50_seconds":0.000016384,"p90_seconds":0.1,"p99_seconds":0.2,"buckets":[]},)"
                       R"("other":{"count":0,"p99_seconds":0}}})"),
              "calls\n"
              "  latency              3; half within 0.0164 ms, 90 % 100 ms, 99 % 200 ms, longest 250 ms\n"
              "  other                -\n");
}

TEST(StatusTables, DestinationsAreOneLineEach) {
    const std::string tables =
        tablesOf(R"({"destinations":[{"number":"7","address":"192.0.2.1","port":162,"version":3,"state":"ready",)"
                 R"("reason":"","sent":12,"filtered":3,"suppressed":4,"waiting":1,)"
                 R"("dropped":{"queue full":2,"bad OID":0}}]})");
    std::istringstream lines(tables);
    std::string line;
    std::getline(lines, line);
    EXPECT_EQ(line, "destinations");
    std::getline(lines, line);
    EXPECT_EQ(wordsOf(line), "number address ver state sent filtered suppressed waiting dropped reason");
    std::getline(lines, line);
    EXPECT_EQ(wordsOf(line), "7 192.0.2.1 162 3 ready 12 3 4 1 2 (queue full 2) -");
    EXPECT_FALSE(std::getline(lines, line));
}

TEST(StatusTables, WhatIsNoJsonIsSaid) {
    EXPECT_THROW(tablesOf("nothing here"), AgentCallError);
}
