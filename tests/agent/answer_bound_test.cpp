#include "host/agent/answer_bound.h"

#include <gtest/gtest.h>

#include <memory>

namespace {

struct FreePdu {
    void operator()(netsnmp_pdu* pdu) const { snmp_free_pdu(pdu); }
};
using Pdu = std::unique_ptr<netsnmp_pdu, FreePdu>;

constexpr long ANY_SIZE = 65'507;  // what Net-SNMP's tools take

Pdu getBulk(long variables, long nonRepeaters, long maxRepetitions, long msgMaxSize) {
    Pdu pdu(snmp_pdu_create(SNMP_MSG_GETBULK));
    pdu->version = SNMP_VERSION_3;
    pdu->non_repeaters = nonRepeaters;
    pdu->max_repetitions = maxRepetitions;
    pdu->msgMaxSize = msgMaxSize;
    for (long i = 0; i < variables; ++i) {
        const oid name[] = {1, 3, 6, static_cast<oid>(i)};
        snmp_add_null_var(pdu.get(), name, sizeof name / sizeof name[0]);
    }
    return pdu;
}

long variablesOf(const netsnmp_pdu& pdu) {
    long count = 0;
    for (const netsnmp_variable_list* v = pdu.variables; v != nullptr; v = v->next_variable) ++count;
    return count;
}

}  // namespace

TEST(AnswerBoundTest, RequestsOfManagersThatTakeLongMessagesStayAsTheyAre) {
    const Pdu pdu = getBulk(2, 1, 50, ANY_SIZE);
    boundAnswer(*pdu);
    EXPECT_EQ(pdu->command, SNMP_MSG_GETBULK);
    EXPECT_EQ(pdu->non_repeaters, 1);
    EXPECT_EQ(pdu->max_repetitions, 50);
    EXPECT_EQ(variablesOf(*pdu), 2);
}

TEST(AnswerBoundTest, RepetitionsFitIntoWhatIsTaken) {
    const Pdu pdu = getBulk(3, 1, 10, MESSAGE_OVERHEAD + 9 * LONG_VARIABLE);
    boundAnswer(*pdu);
    EXPECT_EQ(pdu->command, SNMP_MSG_GETBULK);
    EXPECT_EQ(pdu->max_repetitions, 4);  // one and four pairs
}

TEST(AnswerBoundTest, NoMoreRepetitionsThanWereAskedFor) {
    const Pdu pdu = getBulk(1, 0, 2, MESSAGE_OVERHEAD + 9 * LONG_VARIABLE);
    boundAnswer(*pdu);
    EXPECT_EQ(pdu->max_repetitions, 2);
}

TEST(AnswerBoundTest, WhereOneRepetitionMayBeTooLongItIsAGetNext) {
    for (const long nonRepeaters : {0L, 2L, 5L, -1L, 99L}) {
        const Pdu pdu = getBulk(5, nonRepeaters, 10, 1024);
        boundAnswer(*pdu);
        EXPECT_EQ(pdu->command, SNMP_MSG_GETNEXT) << nonRepeaters;
        EXPECT_EQ(pdu->errstat, 0);
        EXPECT_EQ(pdu->errindex, 0);
        EXPECT_EQ(variablesOf(*pdu), 5);
    }
}

TEST(AnswerBoundTest, WithoutRepetitionsOnlyTheFirstVariablesAreAsked) {
    const Pdu pdu = getBulk(5, 2, 0, 1024);
    boundAnswer(*pdu);
    EXPECT_EQ(pdu->command, SNMP_MSG_GETNEXT);
    EXPECT_EQ(variablesOf(*pdu), 2);

    const Pdu none = getBulk(5, 0, 0, 1024);
    boundAnswer(*none);
    EXPECT_EQ(none->command, SNMP_MSG_GETBULK);
    EXPECT_EQ(variablesOf(*none), 0);
}

TEST(AnswerBoundTest, ALongerValueTakesMoreRoom) {
    const Pdu pdu = getBulk(2, 1, 10, MESSAGE_OVERHEAD + 9 * (VARIABLE_OVERHEAD + 2000));
    boundAnswer(*pdu, 2000);
    EXPECT_EQ(pdu->command, SNMP_MSG_GETBULK);
    EXPECT_EQ(pdu->max_repetitions, 8);

    const Pdu tooLong = getBulk(2, 1, 10, MESSAGE_OVERHEAD + 2000);
    boundAnswer(*tooLong, 2000);
    EXPECT_EQ(tooLong->command, SNMP_MSG_GETNEXT);
}

TEST(AnswerBoundTest, OtherRequestsAreLeftAlone) {
    const Pdu next = getBulk(5, 0, 10, 484);
    next->command = SNMP_MSG_GETNEXT;
    const Pdu v2c = getBulk(5, 0, 10, 484);
    v2c->version = SNMP_VERSION_2c;
    for (netsnmp_pdu* pdu : {next.get(), v2c.get()}) {
        const int command = pdu->command;
        boundAnswer(*pdu);
        EXPECT_EQ(pdu->command, command);
        EXPECT_EQ(pdu->max_repetitions, 10);
        EXPECT_EQ(variablesOf(*pdu), 5);
    }
}
