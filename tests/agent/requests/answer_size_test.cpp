#include "host/agent/requests/answer_size.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <string>

namespace vrx {

namespace {

struct FreePdu {
    void operator()(netsnmp_pdu* pdu) const { snmp_free_pdu(pdu); }
};
using Pdu = std::unique_ptr<netsnmp_pdu, FreePdu>;

constexpr long ANY_SIZE = 65'507;          // what Net-SNMP's tools take
constexpr std::size_t VARIABLE_SIZE = 16;  // octets: headers 2 + 2 + 2, a name of 5, a text of 5

// A message of the session is built as the library does it.
class AnswerBoundTest : public testing::Test {
protected:
    AnswerBoundTest() {
        snmp_sess_init(&session);
        session.sndMsgMaxSize = ANY_SIZE;
        netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_REVERSE_ENCODE, 1);
    }
    ~AnswerBoundTest() override { std::free(buffer); }

    Pdu request(int command, long variables, long nonRepeaters = 0, long maxRepetitions = 0) {
        Pdu pdu(snmp_pdu_create(command));
        pdu->version = SNMP_VERSION_2c;
        pdu->errstat = nonRepeaters;
        pdu->errindex = maxRepetitions;
        for (long i = 0; i < variables; ++i) {
            const oid name[] = {1, 3, 6, 1, 1, static_cast<oid>(i % 100)};
            snmp_pdu_add_variable(pdu.get(), name, sizeof name / sizeof name[0], ASN_OCTET_STR, "value", 5);
        }
        return pdu;
    }

    // The answer to `pdu`, made of its own variables.
    int build(netsnmp_pdu& pdu, long error = SNMP_ERR_NOERROR) {
        pdu.command = SNMP_MSG_RESPONSE;
        pdu.errstat = error;
        pdu.errindex = error == SNMP_ERR_NOERROR ? 0 : 1;
        return buildMessage(&session, &pdu, &buffer, &size, &used);
    }

    static long variablesOf(const netsnmp_pdu& pdu) { return count_varbinds(pdu.variables); }

    netsnmp_session session{};
    std::size_t size = 484;
    unsigned char* buffer = static_cast<unsigned char*>(std::malloc(size));
    std::size_t used = 0;
};

}  // namespace

TEST_F(AnswerBoundTest, TheEngineKnowsNoBound) {
    for (const unsigned command : {SNMP_MSG_GET, SNMP_MSG_GETNEXT, SNMP_MSG_GETBULK, SNMP_MSG_SET}) {
        const Pdu pdu = request(static_cast<int>(command), 2);
        pdu->msgMaxSize = 484;
        boundAnswer(session, *pdu);
        EXPECT_GT(pdu->msgMaxSize, LONG_MAX >> 24) << command;
    }
}

TEST_F(AnswerBoundTest, RequestsOfManagersThatTakeLongMessagesStayAsTheyAre) {
    const Pdu pdu = request(SNMP_MSG_GETBULK, 2, 1, 50);
    boundAnswer(session, *pdu);
    EXPECT_EQ(pdu->command, SNMP_MSG_GETBULK);
    EXPECT_EQ(pdu->non_repeaters, 1);
    EXPECT_EQ(pdu->max_repetitions, 50);
    EXPECT_EQ(variablesOf(*pdu), 2);
}

TEST_F(AnswerBoundTest, NoMoreRepetitionsThanCanFit) {
    const Pdu pdu = request(SNMP_MSG_GETBULK, 3, 1, 2'000'000'000);
    pdu->msgMaxSize = 700;
    boundAnswer(session, *pdu);
    EXPECT_EQ(pdu->max_repetitions, 50);  // 100 variables of 7 octets

    const Pdu huge = request(SNMP_MSG_GETBULK, 1, 0, 2'000'000'000);
    session.sndMsgMaxSize = 0x7FFFFFFF;
    boundAnswer(session, *huge);
    EXPECT_EQ(huge->max_repetitions, static_cast<long>(MOST_VARIABLES));
}

TEST_F(AnswerBoundTest, WhereTheEngineWouldRepeatNothingItIsAGetNext) {
    const Pdu most = request(SNMP_MSG_GETBULK, 100, 0, 5);
    boundAnswer(session, *most);
    EXPECT_EQ(most->command, SNMP_MSG_GETBULK);
    const Pdu pdu = request(SNMP_MSG_GETBULK, 101, 0, 5);
    boundAnswer(session, *pdu);
    EXPECT_EQ(pdu->command, SNMP_MSG_GETNEXT);
    EXPECT_EQ(pdu->errstat, 0);
    EXPECT_EQ(pdu->errindex, 0);
    const Pdu none = request(SNMP_MSG_GETBULK, 101, 0, 0);
    boundAnswer(session, *none);
    EXPECT_EQ(none->command, SNMP_MSG_GETBULK);
}

TEST_F(AnswerBoundTest, WhatFitsIsSentWhole) {
    const Pdu pdu = request(SNMP_MSG_GET, 1000);
    boundAnswer(session, *pdu);
    ASSERT_EQ(build(*pdu), 0);
    EXPECT_GT(used, 1000 * VARIABLE_SIZE);
    EXPECT_EQ(buffer[0], ASN_SEQUENCE | ASN_CONSTRUCTOR);  // from the buffer's start
    EXPECT_EQ(variablesOf(*pdu), 1000);
}

TEST_F(AnswerBoundTest, TheLastSizeThatFits) {
    const Pdu whole = request(SNMP_MSG_GET, 100);
    boundAnswer(session, *whole);
    ASSERT_EQ(build(*whole), 0);
    session.sndMsgMaxSize = used;
    const Pdu fits = request(SNMP_MSG_GET, 100);
    boundAnswer(session, *fits);
    EXPECT_EQ(build(*fits), 0);
    --session.sndMsgMaxSize;
    const Pdu tooLong = request(SNMP_MSG_GET, 100);
    boundAnswer(session, *tooLong);
    EXPECT_EQ(build(*tooLong), -1);
    EXPECT_EQ(session.s_snmp_errno, SNMPERR_TOO_LONG);
}

TEST_F(AnswerBoundTest, AGetBulkLosesWhatDoesNotFit) {
    for (const long bound : {484L, 1000L, 1001L, 1016L, 5000L}) {
        const Pdu pdu = request(SNMP_MSG_GETBULK, 400, 0, 1);
        pdu->msgMaxSize = bound;
        boundAnswer(session, *pdu);
        ASSERT_EQ(build(*pdu), 0) << bound;
        EXPECT_LE(used, static_cast<std::size_t>(bound));
        EXPECT_GT(used + 2 * VARIABLE_SIZE, static_cast<std::size_t>(bound));
        EXPECT_LT(variablesOf(*pdu), 400);
    }
}

TEST_F(AnswerBoundTest, AGetBulkOfWhichNothingFitsIsTooBig) {
    const Pdu pdu = request(SNMP_MSG_GETBULK, 0, 0, 1);
    const oid name[] = {1, 3, 6};
    const std::string text(500, 'x');
    snmp_pdu_add_variable(pdu.get(), name, 3, ASN_OCTET_STR, text.data(), text.size());
    pdu->msgMaxSize = 484;
    boundAnswer(session, *pdu);
    EXPECT_EQ(build(*pdu), -1);
}

TEST_F(AnswerBoundTest, AnErrorThatDoesNotFitIsATooBigWithoutVariables) {
    for (const long version : {SNMP_VERSION_1, SNMP_VERSION_2c}) {
        const Pdu pdu = request(SNMP_MSG_SET, 100);
        pdu->version = version;
        pdu->msgMaxSize = 484;
        boundAnswer(session, *pdu);
        ASSERT_EQ(build(*pdu, SNMP_ERR_GENERR), 0);
        EXPECT_EQ(pdu->errstat, SNMP_ERR_TOOBIG);
        EXPECT_EQ(pdu->errindex, 0);
        EXPECT_EQ(variablesOf(*pdu), 0);
        EXPECT_LE(used, 484U);
    }
}

TEST_F(AnswerBoundTest, ATooBigNamesTheVariablesInVersion1Only) {
    const Pdu first = request(SNMP_MSG_GET, 3);
    first->version = SNMP_VERSION_1;
    boundAnswer(session, *first);
    ASSERT_EQ(build(*first, SNMP_ERR_TOOBIG), 0);
    EXPECT_EQ(variablesOf(*first), 3);
    const Pdu second = request(SNMP_MSG_GET, 3);
    boundAnswer(session, *second);
    ASSERT_EQ(build(*second, SNMP_ERR_TOOBIG), 0);
    EXPECT_EQ(variablesOf(*second), 0);
}

TEST_F(AnswerBoundTest, WhatDoesNotFitEvenSoIsDroppedAndCounted) {
    const Pdu pdu = request(SNMP_MSG_GET, 1);
    session.sndMsgMaxSize = 20;
    boundAnswer(session, *pdu);
    const auto before = snmp_get_statistic(STAT_SNMPSILENTDROPS);
    EXPECT_EQ(build(*pdu, SNMP_ERR_TOOBIG), -1);
    EXPECT_EQ(snmp_get_statistic(STAT_SNMPSILENTDROPS), before + 1);
}

TEST_F(AnswerBoundTest, ASetIsKnownNotToBeAnswerableBeforeItIsDone) {
    const Pdu pdu = request(SNMP_MSG_SET, 100);
    boundAnswer(session, *pdu);
    EXPECT_TRUE(answerFits(session, *pdu));
    ASSERT_EQ(build(*pdu, SNMP_ERR_INCONSISTENTNAME), 0);
    session.sndMsgMaxSize = used - 1;
    const Pdu tooLong = request(SNMP_MSG_SET, 100);
    boundAnswer(session, *tooLong);
    EXPECT_FALSE(answerFits(session, *tooLong));
}

// The library's forward encoder takes its buffer for larger than it is.
TEST_F(AnswerBoundTest, FlagsThatAskForTheOtherEncoderAreWithoutEffect) {
    const Pdu pdu = request(SNMP_MSG_GETNEXT, 100);
    pdu->flags |= UCD_MSG_FLAG_FORWARD_ENCODE | UCD_MSG_FLAG_BULK_TOOBIG;
    boundAnswer(session, *pdu);
    ASSERT_EQ(build(*pdu), 0);
    EXPECT_EQ(variablesOf(*pdu), 100);
}

}  // namespace vrx
