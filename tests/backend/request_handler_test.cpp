#include "host/backend/request_handler.h"

#include <gtest/gtest.h>

#include <ctime>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tests/backend/test_support.h"

namespace vrx {

namespace {

constexpr std::size_t LIMIT = std::size_t{4} << 20;
constexpr std::size_t SMALL_LIMIT = std::size_t{128} << 10;  // the smallest that may be configured
constexpr unsigned long long BEYOND_32_BITS = 1ULL << 32;

class RequestHandlerTest : public testing::Test {
protected:
    RequestHandlerTest()
        : m_codes(testCommands()),
          m_store(m_directory.file("backend.db"), 1000),
          m_handler(m_store, m_codes, LIMIT, m_traffic, [this] { ++m_changes; }) {}

    // Adds a record to the request and hands it out for its cells.
    CTLVRecordV3& record(unsigned long long code) {
        m_request.append(makeRecord(code));
        return *m_request.records().back();
    }
    CTLVRecordV3& raiseRecord(unsigned long long id = 77, const std::string& parameters = "p") {
        CTLVRecordV3& raise = record(m_codes.raiseAlarm);
        appendUint64(raise, alarm_tag::ID, id);
        appendUint32(raise, alarm_tag::LEVEL, 3);
        appendText(raise, alarm_tag::PARAMETERS, parameters);
        return raise;
    }
    CTLVRecordV3& clearRecord(unsigned int serial) {
        CTLVRecordV3& clear = record(m_codes.clearAlarm);
        appendUint32(clear, alarm_tag::SERIAL, serial);
        appendText(clear, alarm_tag::CLEARED_BY, "TEST");
        return clear;
    }
    CTLVRecordV3& listRecord(unsigned int start, unsigned int count) {
        CTLVRecordV3& list = record(m_codes.getCurrentAlarm);
        appendUint32(list, alarm_tag::SERIAL, start);
        appendUint32(list, alarm_tag::COUNT, count);
        return list;
    }

    // Hands the request over, starts a new one, and gives the result; m_answer has the records.
    int handle() {
        m_answer.clear();
        m_answer.head() = TLVMsgHeadV3();
        m_subscribed = m_handler.handle(m_request, m_answer);
        m_request.clear();
        return static_cast<int>(m_answer.head().uiHeadParam1);
    }
    void raiseAlarms(unsigned int count) {
        for (unsigned int number = 0; number < count; ++number) raiseRecord();
        ASSERT_EQ(handle(), BACKEND_OK);
    }
    void expectRefused(int result) {
        EXPECT_EQ(handle(), result);
        EXPECT_TRUE(m_answer.records().empty());
        EXPECT_EQ(m_traffic.refusals, 1U);
        EXPECT_EQ(m_changes, 0);
        EXPECT_EQ(m_store.lastSequence(), 0U);
    }

    LogCapture m_log;
    TemporaryDirectory m_directory;
    BackendCommands m_codes;
    BackendTraffic m_traffic;
    int m_changes = 0;
    AlarmStore m_store;
    RequestHandler m_handler;
    CR8KPackageV3 m_request;
    CR8KPackageV3 m_answer;
    std::optional<unsigned long long> m_subscribed;
};

}  // namespace

TEST_F(RequestHandlerTest, SystemWwnIsTheStoresName) {
    record(m_codes.getSystemWwn);
    ASSERT_EQ(handle(), BACKEND_OK);
    ASSERT_EQ(m_answer.records().size(), 1U);
    EXPECT_EQ(m_answer[0]->identifier(), m_codes.getSystemWwn);
    EXPECT_EQ(textOf(*m_answer[0], 1), m_store.worldWideName());
}

TEST_F(RequestHandlerTest, StatusCountsAlarmsEventsAndTraffic) {
    raiseAlarms(3);
    clearRecord(99);
    EXPECT_EQ(handle(), BACKEND_UNKNOWN_SERIAL);
    m_traffic.clients = 5;
    m_traffic.subscribers = 2;
    record(m_codes.getBackendStatus);
    ASSERT_EQ(handle(), BACKEND_OK);
    const CTLVRecordV3& status = *m_answer[0];
    EXPECT_EQ(status.identifier(), m_codes.getBackendStatus);
    EXPECT_EQ(uint64Of(status, status_tag::ACTIVE_ALARMS), 3U);
    EXPECT_EQ(uint64Of(status, status_tag::LAST_SEQUENCE), 3U);
    EXPECT_EQ(uint64Of(status, status_tag::OLDEST_SEQUENCE), 1U);
    EXPECT_EQ(uint64Of(status, status_tag::CLIENTS), 5U);
    EXPECT_EQ(uint64Of(status, status_tag::SUBSCRIBERS), 2U);
    EXPECT_EQ(uint64Of(status, status_tag::REQUESTS), 3U);
    EXPECT_EQ(uint64Of(status, status_tag::REFUSALS), 1U);
    EXPECT_EQ(textOf(status, status_tag::STORE), m_store.identity());
}

TEST_F(RequestHandlerTest, RaiseAnswersTheSerialNumberOfEachAlarm) {
    raiseRecord();
    raiseRecord();
    ASSERT_EQ(handle(), BACKEND_OK);
    ASSERT_EQ(m_answer.records().size(), 2U);
    EXPECT_EQ(m_answer[0]->identifier(), m_codes.raiseAlarm);
    EXPECT_EQ(uint32Of(*m_answer[0], alarm_tag::SERIAL), 1U);
    EXPECT_EQ(uint32Of(*m_answer[1], alarm_tag::SERIAL), 2U);
    EXPECT_EQ(m_changes, 1);
}

TEST_F(RequestHandlerTest, RaiseTakesAGivenSerialAndTime) {
    CTLVRecordV3& raise = raiseRecord();
    appendUint32(raise, alarm_tag::SERIAL, 42);
    appendUint64(raise, alarm_tag::RAISED, 1234567890);
    ASSERT_EQ(handle(), BACKEND_OK);
    EXPECT_EQ(uint32Of(*m_answer[0], alarm_tag::SERIAL), 42U);
    EXPECT_EQ(m_store.activeAfter(0, 1, LIMIT).at(0).raised, 1234567890U);
}

TEST_F(RequestHandlerTest, RaiseWithoutATimeIsNow) {
    const auto before = static_cast<unsigned long long>(std::time(nullptr));
    raiseAlarms(1);
    const unsigned long long raised = m_store.activeAfter(0, 1, LIMIT).at(0).raised;
    EXPECT_GE(raised, before);
    EXPECT_LE(raised, static_cast<unsigned long long>(std::time(nullptr)));
}

TEST_F(RequestHandlerTest, RaiseOfAnActiveSerialIsRefused) {
    raiseAlarms(1);
    appendUint32(raiseRecord(), alarm_tag::SERIAL, 1);
    EXPECT_EQ(handle(), BACKEND_SERIAL_ACTIVE);
    EXPECT_EQ(m_changes, 1);
}

TEST_F(RequestHandlerTest, OneBadRaiseRefusesAllOfThePackage) {
    raiseRecord();
    appendUint64(record(m_codes.raiseAlarm), alarm_tag::ID, 1);
    expectRefused(BACKEND_MISSING_CELL);
}

TEST_F(RequestHandlerTest, RaiseWithSerialZeroIsRefused) {
    appendUint32(raiseRecord(), alarm_tag::SERIAL, 0);
    expectRefused(BACKEND_WRONG_CELL);
}

TEST_F(RequestHandlerTest, RaiseNeedsIdLevelAndParameters) {
    for (const unsigned short missing : {alarm_tag::ID, alarm_tag::LEVEL, alarm_tag::PARAMETERS}) {
        CTLVRecordV3& raise = record(m_codes.raiseAlarm);
        if (missing != alarm_tag::ID) appendUint64(raise, alarm_tag::ID, 1);
        if (missing != alarm_tag::LEVEL) appendUint32(raise, alarm_tag::LEVEL, 1);
        if (missing != alarm_tag::PARAMETERS) appendText(raise, alarm_tag::PARAMETERS, "");
        EXPECT_EQ(handle(), BACKEND_MISSING_CELL) << missing;
    }
    EXPECT_EQ(m_store.lastSequence(), 0U);
}

TEST_F(RequestHandlerTest, RaiseWithTheLongestParametersIsAnsweredAndListed) {
    raiseRecord(77, std::string(LONGEST_ALARM_PARAMETERS, 'x'));
    ASSERT_EQ(handle(), BACKEND_OK);
    listRecord(0, 1);
    ASSERT_EQ(handle(), BACKEND_OK);
    EXPECT_EQ(textOf(*m_answer[0], alarm_tag::PARAMETERS).size(), LONGEST_ALARM_PARAMETERS);
    EXPECT_TRUE(encodePackage(m_answer, LIMIT).has_value());
}

TEST_F(RequestHandlerTest, RaiseWithLongerParametersIsRefused) {
    raiseRecord(77, std::string(LONGEST_ALARM_PARAMETERS + 1, 'x'));
    expectRefused(BACKEND_WRONG_CELL);
}

TEST_F(RequestHandlerTest, AnAlarmIdThatIsATextIsRefused) {
    CTLVRecordV3& raise = record(m_codes.raiseAlarm);
    appendText(raise, alarm_tag::ID, "77");
    appendUint32(raise, alarm_tag::LEVEL, 3);
    appendText(raise, alarm_tag::PARAMETERS, "p");
    expectRefused(BACKEND_WRONG_CELL);
}

TEST_F(RequestHandlerTest, AParameterListThatIsANumberIsRefused) {
    CTLVRecordV3& raise = record(m_codes.raiseAlarm);
    appendUint64(raise, alarm_tag::ID, 77);
    appendUint32(raise, alarm_tag::LEVEL, 3);
    appendUint32(raise, alarm_tag::PARAMETERS, 1);
    expectRefused(BACKEND_WRONG_CELL);
}

TEST_F(RequestHandlerTest, ClearEndsAnAlarm) {
    raiseAlarms(2);
    clearRecord(1);
    ASSERT_EQ(handle(), BACKEND_OK);
    EXPECT_TRUE(m_answer.records().empty());
    EXPECT_EQ(m_changes, 2);
    EXPECT_EQ(m_store.status().activeAlarms, 1U);
}

TEST_F(RequestHandlerTest, ClearOfAnUnknownSerialIsRefused) {
    clearRecord(42);
    expectRefused(BACKEND_UNKNOWN_SERIAL);
}

TEST_F(RequestHandlerTest, ClearNeedsSerialAndAsker) {
    appendUint32(record(m_codes.clearAlarm), alarm_tag::SERIAL, 1);
    EXPECT_EQ(handle(), BACKEND_MISSING_CELL);
    appendText(record(m_codes.clearAlarm), alarm_tag::CLEARED_BY, "TEST");
    EXPECT_EQ(handle(), BACKEND_MISSING_CELL);
}

TEST_F(RequestHandlerTest, ASerialBeyond32BitsIsRefusedAndNotCut) {
    raiseAlarms(1);
    CTLVRecordV3& clear = record(m_codes.clearAlarm);
    appendUint64(clear, alarm_tag::SERIAL, BEYOND_32_BITS + 1);
    appendText(clear, alarm_tag::CLEARED_BY, "TEST");
    EXPECT_EQ(handle(), BACKEND_WRONG_CELL);
    EXPECT_EQ(m_store.status().activeAlarms, 1U);
}

TEST_F(RequestHandlerTest, ANumberOfZeroOrNineBytesIsRefused) {
    for (const unsigned long size : {0UL, 9UL}) {
        auto cell = std::make_unique<CTLVCell>();
        const unsigned char bytes[9] = {1};
        cell->set_i(CTLVCell::TLV_TYPE_UINT, alarm_tag::SERIAL, bytes, size);
        CTLVRecordV3& clear = record(m_codes.clearAlarm);
        clear.append(cell.get());
        (void)cell.release();
        appendText(clear, alarm_tag::CLEARED_BY, "TEST");
        EXPECT_EQ(handle(), BACKEND_WRONG_CELL) << size;
    }
}

TEST_F(RequestHandlerTest, CurrentAlarmsHaveAllTheirCells) {
    CTLVRecordV3& raise = raiseRecord(BEYOND_32_BITS, "a=b");
    appendUint64(raise, alarm_tag::RAISED, 1000);
    ASSERT_EQ(handle(), BACKEND_OK);
    listRecord(0, 10);
    ASSERT_EQ(handle(), BACKEND_OK);
    ASSERT_EQ(m_answer.records().size(), 1U);
    const CTLVRecordV3& alarm = *m_answer[0];
    EXPECT_EQ(alarm.identifier(), m_codes.getCurrentAlarm);
    EXPECT_EQ(alarm.count(), 8U);
    EXPECT_EQ(uint32Of(alarm, alarm_tag::TYPE), ALARM_TYPE_FAULT);
    EXPECT_EQ(uint64Of(alarm, alarm_tag::ID), BEYOND_32_BITS);
    EXPECT_EQ(uint32Of(alarm, alarm_tag::LEVEL), 3U);
    EXPECT_EQ(uint32Of(alarm, alarm_tag::SERIAL), 1U);
    EXPECT_EQ(uint64Of(alarm, alarm_tag::RAISED), 1000U);
    EXPECT_EQ(uint64Of(alarm, alarm_tag::ENDED), 0U);
    EXPECT_EQ(uint64Of(alarm, alarm_tag::SECOND_END), 0U);
    EXPECT_EQ(textOf(alarm, alarm_tag::PARAMETERS), "a=b");
}

TEST_F(RequestHandlerTest, CurrentAlarmsComeAfterTheStartUpToTheCount) {
    raiseAlarms(5);
    listRecord(2, 2);
    ASSERT_EQ(handle(), BACKEND_OK);
    ASSERT_EQ(m_answer.records().size(), 2U);
    EXPECT_EQ(uint32Of(*m_answer[0], alarm_tag::SERIAL), 3U);
    EXPECT_EQ(uint32Of(*m_answer[1], alarm_tag::SERIAL), 4U);
    listRecord(5, 2);
    ASSERT_EQ(handle(), BACKEND_OK);
    EXPECT_TRUE(m_answer.records().empty());
}

TEST_F(RequestHandlerTest, AnAnswerWithAllTheLargestAlarmsStaysWithinThePackageLimit) {
    for (int number = 0; number < 60; ++number) raiseRecord(77, std::string(LONGEST_ALARM_PARAMETERS, 'x'));
    ASSERT_EQ(handle(), BACKEND_OK);
    RequestHandler handler(m_store, m_codes, SMALL_LIMIT, m_traffic, [] {});
    listRecord(0, 60);
    EXPECT_FALSE(handler.handle(m_request, m_answer).has_value());
    EXPECT_TRUE(encodePackage(m_answer, SMALL_LIMIT).has_value());
}

TEST_F(RequestHandlerTest, CurrentAlarmsNeedStartAndCount) {
    appendUint32(record(m_codes.getCurrentAlarm), alarm_tag::SERIAL, 0);
    expectRefused(BACKEND_MISSING_CELL);
}

TEST_F(RequestHandlerTest, AnUnknownCommandIsRefused) {
    record(9999);
    expectRefused(BACKEND_UNKNOWN_COMMAND);
}

TEST_F(RequestHandlerTest, ARequestWithoutARecordIsRefused) {
    expectRefused(BACKEND_NO_RECORD);
}

TEST_F(RequestHandlerTest, RecordsOfTwoCommandsAreRefused) {
    raiseRecord();
    clearRecord(1);
    expectRefused(BACKEND_MIXED_RECORDS);
}

TEST_F(RequestHandlerTest, TwoRecordsOfACommandThatTakesOneAreRefused) {
    record(m_codes.getSystemWwn);
    record(m_codes.getSystemWwn);
    expectRefused(BACKEND_MIXED_RECORDS);
}

TEST_F(RequestHandlerTest, ASubscriptionWithoutANumberBeginsNow) {
    raiseAlarms(3);
    record(m_codes.subscribeAlarm);
    ASSERT_EQ(handle(), BACKEND_OK);
    EXPECT_EQ(uint64Of(*m_answer[0], event_tag::LAST_SEQUENCE), 3U);
    EXPECT_EQ(m_subscribed, 3U);
}

TEST_F(RequestHandlerTest, ASubscriptionBeginsAfterTheEventHandled) {
    raiseAlarms(3);
    appendUint64(record(m_codes.subscribeAlarm), event_tag::HANDLED, 1);
    ASSERT_EQ(handle(), BACKEND_OK);
    EXPECT_EQ(m_subscribed, 1U);
}

TEST_F(RequestHandlerTest, ASubscriptionAfterAnEventThatIsNotThereYetBeginsNow) {
    raiseAlarms(3);
    appendUint64(record(m_codes.subscribeAlarm), event_tag::HANDLED, ~0ULL);
    ASSERT_EQ(handle(), BACKEND_OK);
    EXPECT_EQ(m_subscribed, 3U);
}

TEST_F(RequestHandlerTest, OnlyASubscriptionSubscribes) {
    raiseAlarms(1);
    EXPECT_FALSE(m_subscribed.has_value());
}

TEST_F(RequestHandlerTest, ASubscriptionWithATextForANumberIsRefused) {
    appendText(record(m_codes.subscribeAlarm), event_tag::HANDLED, "1");
    expectRefused(BACKEND_WRONG_CELL);
    EXPECT_FALSE(m_subscribed.has_value());
}

TEST_F(RequestHandlerTest, APushHoldsTheEventsAfterAPosition) {
    raiseAlarms(2);
    clearRecord(1);
    ASSERT_EQ(handle(), BACKEND_OK);
    unsigned long long position = 1;
    CR8KPackageV3 push;
    m_handler.fillPush(position, push);
    EXPECT_EQ(position, 3U);
    EXPECT_EQ(push.head().uiHeadParam1, 0U);
    ASSERT_EQ(push.records().size(), 2U);
    EXPECT_EQ(push[0]->identifier(), m_codes.subscribeAlarm);
    EXPECT_EQ(uint64Of(*push[0], event_tag::SEQUENCE), 2U);
    EXPECT_EQ(uint32Of(*push[0], alarm_tag::TYPE), ALARM_TYPE_FAULT);
    EXPECT_EQ(uint64Of(*push[1], event_tag::SEQUENCE), 3U);
    EXPECT_EQ(uint32Of(*push[1], alarm_tag::TYPE), ALARM_TYPE_CLEAR);
    EXPECT_EQ(uint32Of(*push[1], alarm_tag::SERIAL), 1U);
    EXPECT_GT(uint64Of(*push[1], alarm_tag::ENDED), 0U);
}

TEST_F(RequestHandlerTest, APushWithoutEventsIsEmptyAndStaysWhereItWas) {
    unsigned long long position = 7;
    CR8KPackageV3 push;
    m_handler.fillPush(position, push);
    EXPECT_EQ(position, 7U);
    EXPECT_TRUE(push.records().empty());
}

TEST_F(RequestHandlerTest, AStoreThatFailsIsARefusalAndALogLine) {
    SqliteDatabase(m_directory.file("backend.db")).execute("DROP TABLE events");
    raiseRecord();
    EXPECT_EQ(handle(), BACKEND_STORE_FAILED);
    EXPECT_EQ(m_log.lines(), std::vector<std::string>{"error [backend] alarm store: no such table: events"});
    EXPECT_TRUE(m_store.activeAfter(0, 1, LIMIT).empty());
}

}  // namespace vrx
