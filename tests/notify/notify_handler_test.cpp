#include "notify/snmp_tamrel_notify_handler.h"

#include <gmock/gmock.h>
#include <snmp_pp/vb.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "alarm/snmp_alarm_repository.h"
#include "notify/alarm_trap_bindings.h"
#include "notify/alarm_trap_values.h"
#include "platform/snmp_basic_impl.h"
#include "tests/notify/notification.h"

namespace {

bool s_systemNameFails = false;

}  // namespace

// The linker sends the handlers' calls of GetSystemName() here: a host whose last answer for a trap may fail.
std::string realSystemName() __asm__("__real__Z13GetSystemNameB5cxx11v");
std::string wrappedSystemName() __asm__("__wrap__Z13GetSystemNameB5cxx11v");
std::string wrappedSystemName() {
    if (s_systemNameFails) throw std::runtime_error("no system name");
    return realSystemName();
}

namespace {

using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* BASE = "1.3.6.1.4.1.99871.2.91.10.3.1.1";

// The bindings of one call; releases the array.
class Trap {
public:
    Trap(INotifyMsgHandler& handler, const TlvRecord& record) {
        Agentpp::Vbx* array = &m_marker;
        result = handler.constructAlarmTrapVb(*makeRecord(record), array);
        if (array != &m_marker) {
            bindings.reset(array);
            count = handler.getTrapVbLen();
        }
    }

    std::string value(int number) const { return bindings[index(number)].get_printable_value(); }
    std::string oid(int number) const { return bindings[index(number)].get_printable_oid(); }
    unsigned int syntax(int number) const { return static_cast<unsigned int>(bindings[index(number)].get_syntax()); }
    std::string octets(int number) const {
        Snmp_pp::OctetStr octets;
        EXPECT_EQ(bindings[index(number)].get_value(octets), SNMP_CLASS_SUCCESS);
        return std::string(reinterpret_cast<const char*>(octets.data()), octets.len());
    }

    int result = 0;
    int count = 0;
    std::unique_ptr<Agentpp::Vbx[]> bindings;

private:
    static std::size_t index(int number) { return static_cast<std::size_t>(number - 1); }

    Agentpp::Vbx m_marker;  // what the array reference shows before
};

class NotifyHandlerTest : public AlarmFilesTest {
protected:
    NotifyHandlerTest() { host.setProductSn("PSN0001"); }

    std::vector<std::string> logged() { return host.log().linesWithoutTrace(); }

    // The line that shows the event time in the log.
    std::string loggedTime() {
        const std::string label = "ReportingAlarmFaultTime     --- ";
        const std::string dump = host.log().lines("warn").back();
        const std::size_t begin = dump.find(label);
        if (begin == std::string::npos) return "no such line";
        return dump.substr(begin + label.size(), dump.find('\n', begin) - begin - label.size());
    }

    void expectFailure(const TlvRecord& record, int result, const std::string& line) {
        load();
        const Trap trap(handler, record);
        EXPECT_EQ(trap.result, result);
        EXPECT_EQ(trap.bindings, nullptr);
        EXPECT_EQ(host.log().lines("error"), std::vector<std::string>{line});
    }

    CTamrelNotifyMsgHandler handler;
};

TEST_F(NotifyHandlerTest, RaisedAlarmGivesFifteenBindings) {
    load();
    const Trap trap(handler, notification());
    ASSERT_EQ(trap.result, 0);
    ASSERT_EQ(trap.count, 15);
    const struct {
        unsigned int syntax;
        const char* value;
    } expected[] = {
        {sNMP_SYNTAX_OCTETS, "NODE0001"},
        {sNMP_SYNTAX_OCTETS, "Enclosure CTE0,A, slot 7"},
        {sNMP_SYNTAX_OCTETS, "Replace disk 7."},
        {sNMP_SYNTAX_OCTETS, "Disk fault"},
        {sNMP_SYNTAX_INT32, "2"},
        {sNMP_SYNTAX_INT32, "2"},
        {sNMP_SYNTAX_GAUGE32, "262147"},
        {sNMP_SYNTAX_OCTETS, nullptr},  // octets: compared below
        {sNMP_SYNTAX_GAUGE32, "42"},
        {sNMP_SYNTAX_OCTETS, "Disk 7 in enclosure CTE0,A is not reachable."},
        {sNMP_SYNTAX_INT32, "1"},
        {sNMP_SYNTAX_CNTR64, "4295229443"},
        {sNMP_SYNTAX_INT32, "7700"},
        {sNMP_SYNTAX_OCTETS, "PSN0001"},
        {sNMP_SYNTAX_OCTETS, "storage-1"},
    };
    for (int number = 1; number <= 15; ++number) {
        SCOPED_TRACE(number);
        EXPECT_EQ(trap.oid(number), std::string(BASE) + "." + std::to_string(number) + ".0");
        EXPECT_EQ(trap.syntax(number), expected[number - 1].syntax);
        if (expected[number - 1].value != nullptr) {
            EXPECT_EQ(trap.value(number), expected[number - 1].value);
        }
    }
    EXPECT_EQ(trap.octets(8), RAISED_OCTETS);
}

TEST_F(NotifyHandlerTest, WholeTrapIsLoggedAsAWarning) {
    load();
    const Trap trap(handler, notification());
    EXPECT_THAT(logged(), ElementsAre("warn 0x1002E the content of alarm is \n"
                                      "ReportingAlarmNodeCode      --- NODE0001\n"
                                      "ReportingAlarmLocationInfo  --- Enclosure CTE0,A, slot 7\n"
                                      "ReportingAlarmRestoreAdvice --- Replace disk 7.\n"
                                      "ReportingAlarmFaultTitle    --- Disk fault\n"
                                      "ReportingAlarmFaultType     --- 2\n"
                                      "ReportingAlarmFaultLevel    --- 2\n"
                                      "ReportingAlarmAlarmID       --- 262147\n"
                                      "ReportingAlarmFaultTime     --- 2026-01-02,03:04:05.0,+00:00\n"
                                      "ReportingAlarmSerialNo      --- 42\n"
                                      "ReportingAlarmAdditionInfo  --- Disk 7 in enclosure CTE0,A is not reachable.\n"
                                      "ReportingAlarmFaultCategory --- 1\n"
                                      "ReportingAlarmLocationAlmID --- 4295229443\n"
                                      "ReportingAlarmProductModel  --- 7700\n"
                                      "ReportingAlarmProductSN     --- PSN0001\n"
                                      "ReportingAlarmProductSystemName     --- storage-1\n"));
}

TEST_F(NotifyHandlerTest, ActiveAlarmHasCategoryOneFaultTypeTwoAndTheTimeRaised) {
    load();
    const Trap trap(handler, notification());
    EXPECT_EQ(trap.value(11), "1");
    EXPECT_EQ(trap.value(5), "2");
    EXPECT_EQ(loggedTime(), RAISED_TEXT);
}

TEST_F(NotifyHandlerTest, EndTimeGivesCategoryTwoAndItsTime) {
    load();
    const Trap trap(handler, notification({u64(5, ENDED)}));
    EXPECT_EQ(trap.value(11), "2");
    EXPECT_EQ(trap.value(5), "2");
    EXPECT_EQ(loggedTime(), ENDED_TEXT);
}

TEST_F(NotifyHandlerTest, SecondEndTimeIsPreferred) {
    load();
    const Trap both(handler, notification({u64(5, ENDED), u64(6, SECOND_END)}));
    EXPECT_EQ(both.value(11), "2");
    EXPECT_EQ(loggedTime(), SECOND_END_TEXT);
    const Trap second(handler, notification({u64(6, SECOND_END)}));
    EXPECT_EQ(second.value(11), "2");
    EXPECT_EQ(loggedTime(), SECOND_END_TEXT);
}

TEST_F(NotifyHandlerTest, EndTimeBeyondThirtyTwoBitsDoesNotEndTheAlarm) {
    load();
    const Trap trap(handler, notification({u64(5, 1ULL << 32)}));
    EXPECT_EQ(trap.value(11), "1");
    EXPECT_EQ(loggedTime(), RAISED_TEXT);
}

TEST_F(NotifyHandlerTest, SecondEndTimeBeyondThirtyTwoBitsIsTheTimeOfAnEndedAlarm) {
    load();
    // The first end time decides that the alarm has ended; the second is then read whole.
    const Trap trap(handler, notification({u64(5, ENDED), u64(6, 1ULL << 32)}));
    EXPECT_EQ(trap.value(11), "2");
    EXPECT_EQ(loggedTime(), "2106-02-07,06:28:16.0,+00:00");
}

TEST_F(NotifyHandlerTest, CategoryIsReadFromTheEndTimes) {
    const std::pair<std::vector<TlvCell>, unsigned int> cases[] = {
        {{}, 1U},
        {{u32(5, 1)}, 2U},
        {{u32(6, 1)}, 2U},
        {{u64(6, 1ULL << 32), u64(5, 1ULL << 32)}, 1U},
        {{rawCell(6, CTLVCell::TLV_TYPE_INT, "\xFF")}, 2U},
        {{rawCell(6, CTLVCell::TLV_TYPE_UINT, std::string("\0\x01", 2))}, 2U},
        {{rawCell(6, CTLVCell::TLV_TYPE_UINT, std::string("\0\0\x01", 3))}, 2U},
        {{rawCell(6, CTLVCell::TLV_TYPE_UINT, std::string("\0\0\0\x01", 4))}, 2U},
        {{rawCell(6, CTLVCell::TLV_TYPE_UINT, std::string("\0\0\0\0\x01", 5))}, 1U},
        {{rawCell(6, CTLVCell::TLV_TYPE_UINT, "")}, 1U},
    };
    for (const auto& [cells, expected] : cases) {
        unsigned int category = 9;
        handler.getAlarmCategory(*makeRecord(notification(cells)), category);
        EXPECT_EQ(category, expected) << notification(cells);
    }
    EXPECT_THAT(host.log().lines(), IsEmpty());
}

// No record has category 3; who fills the bindings from elsewhere may have it.
TEST_F(NotifyHandlerTest, FaultTypeFollowsTheCategory) {
    const std::pair<unsigned int, const char*> cases[] = {{0U, "2"}, {1U, "2"}, {2U, "2"}, {3U, "3"}, {4U, "2"}};
    for (const auto& [category, faultType] : cases) {
        tAlarmTrapValues values;
        values.category = category;
        Agentpp::Vbx bindings[ALARM_TRAP_BINDINGS];
        fillAlarmTrapBindings(handler.getBaseOid(), values, bindings, nullptr);
        EXPECT_STREQ(bindings[4].get_printable_value(), faultType) << category;
        EXPECT_EQ(bindings[10].get_printable_value(), std::to_string(category));
    }
}

TEST_F(NotifyHandlerTest, CategoryOfAWrongCellThrows) {
    unsigned int category = 9;
    for (const unsigned short tag : {static_cast<unsigned short>(6), static_cast<unsigned short>(5)}) {
        try {
            handler.getAlarmCategory(*makeRecord(notification({text(tag, "0")})), category);
            ADD_FAILURE() << "no exception for tag " << tag;
        } catch (const CVRX_Exception& e) {
            EXPECT_EQ(e.what(), "CVRX_Exception: CTLVCell isn't numerical type! tag equal to " + std::to_string(tag));
        }
    }
    EXPECT_EQ(category, 9U);
}

TEST_F(NotifyHandlerTest, LevelIsOfTheManagementSystemsScale) {
    load();
    const std::pair<unsigned int, const char*> levels[] = {{3, "4"}, {4, "3"}, {6, "1"}, {4294967295U, "4"}};
    for (const auto& [level, expected] : levels) {
        EXPECT_EQ(Trap(handler, notification({u32(2, level)})).value(6), expected);
    }
}

TEST_F(NotifyHandlerTest, CellsOfOtherWidthsAreReadInTheWidthOfTheirValue) {
    writeDefinitions("<param eventID='70' detail='d'/>");
    load();
    const unsigned long long upper = 1ULL << 32;
    const Trap trap(handler, notification({u32(1, 70), u64(2, upper + 4), u64(3, upper + 42),
                                           u32(4, static_cast<unsigned int>(RAISED)), u32(5, 0),
                                           rawCell(6, CTLVCell::TLV_TYPE_UINT, std::string(1, '\0'))}));
    ASSERT_EQ(trap.result, 0);
    EXPECT_EQ(trap.value(12), "70");
    EXPECT_EQ(trap.value(6), "3");
    EXPECT_EQ(trap.value(9), "42");
    EXPECT_EQ(loggedTime(), RAISED_TEXT);
    const Trap ended(handler, notification({u32(1, 70), u32(5, static_cast<unsigned int>(ENDED))}));
    ASSERT_EQ(ended.result, 0);
    EXPECT_EQ(loggedTime(), ENDED_TEXT);
}

TEST_F(NotifyHandlerTest, AlarmIdFillsBothWordsOfTheCounter) {
    writeDefinitions("<param eventID='-2' detail='d'/>");
    load();
    const Trap trap(handler, notification({u64(1, 0xFFFFFFFFFFFFFFFEULL), u32(3, 4294967295U)}));
    ASSERT_EQ(trap.result, 0);
    EXPECT_EQ(trap.value(12), "18446744073709551614");
    EXPECT_EQ(trap.value(7), "4294967294");
    EXPECT_EQ(trap.value(9), "4294967295");
}

TEST_F(NotifyHandlerTest, EmptyTextsAreEmptyAlsoInTheLog) {
    writeDefinitions("<param eventID='70' name='' detail='' location='' suggestion=''/>");
    host.setProductSn("");
    load();
    const Trap trap(handler, notification({u64(1, 70)}));
    ASSERT_EQ(trap.result, 0);
    for (int number : {2, 3, 4, 10, 14}) {
        SCOPED_TRACE(number);
        EXPECT_EQ(trap.octets(number), "");
        EXPECT_EQ(trap.syntax(number), sNMP_SYNTAX_OCTETS);
    }
    EXPECT_THAT(logged(), ElementsAre("warn 0x1002E the content of alarm is \n"
                                      "ReportingAlarmNodeCode      --- NODE0001\n"
                                      "ReportingAlarmLocationInfo  --- \n"
                                      "ReportingAlarmRestoreAdvice --- \n"
                                      "ReportingAlarmFaultTitle    --- \n"
                                      "ReportingAlarmFaultType     --- 2\n"
                                      "ReportingAlarmFaultLevel    --- 2\n"
                                      "ReportingAlarmAlarmID       --- 70\n"
                                      "ReportingAlarmFaultTime     --- 2026-01-02,03:04:05.0,+00:00\n"
                                      "ReportingAlarmSerialNo      --- 42\n"
                                      "ReportingAlarmAdditionInfo  --- \n"
                                      "ReportingAlarmFaultCategory --- 1\n"
                                      "ReportingAlarmLocationAlmID --- 70\n"
                                      "ReportingAlarmProductModel  --- 7700\n"
                                      "ReportingAlarmProductSN     --- \n"
                                      "ReportingAlarmProductSystemName     --- storage-1\n"));
}

TEST_F(NotifyHandlerTest, PercentSignsOfTextsAreLoggedAsTheyAre) {
    writeDefinitions("<param eventID='70' name='100%s %n %d%%' detail='d'/>");
    load();
    const Trap trap(handler, notification({u64(1, 70)}));
    ASSERT_EQ(trap.result, 0);
    EXPECT_EQ(trap.value(4), "100%s %n %d%%");
    EXPECT_THAT(host.log().lines("warn").back(),
                testing::HasSubstr("\nReportingAlarmFaultTitle    --- 100%s %n %d%%\nReportingAlarmFaultType "));
}

TEST_F(NotifyHandlerTest, UnknownNodeCodeIsAnEmptyText) {
    host.setNodeCode(std::nullopt);
    load();
    const Trap trap(handler, notification());
    ASSERT_EQ(trap.result, 0);
    EXPECT_EQ(trap.octets(1), "");
    EXPECT_EQ(trap.syntax(1), sNMP_SYNTAX_OCTETS);
}

TEST_F(NotifyHandlerTest, IdentityThatTheHostDoesNotKnowIsSentEmpty) {
    host.setNodeCode(std::nullopt);
    host.setDeviceType(0);
    host.setProductSn("");
    host.setSystemName("");
    load();
    const Trap trap(handler, notification());
    ASSERT_EQ(trap.result, 0);
    for (int number : {1, 14, 15}) {
        SCOPED_TRACE(number);
        EXPECT_EQ(trap.octets(number), "");
        EXPECT_EQ(trap.syntax(number), sNMP_SYNTAX_OCTETS);
    }
    EXPECT_EQ(trap.value(13), "0");
    EXPECT_THAT(host.log().lines("error"), IsEmpty());
}

TEST_F(NotifyHandlerTest, TimeThatTheHostCannotConvertIsSentEmpty) {
    host.failTimeConversions();
    load();
    CTamrelOIDBasedMsgHandler oidBased;
    for (INotifyMsgHandler* each : std::vector<INotifyMsgHandler*>{&handler, &oidBased}) {
        const Trap trap(*each, notification());
        ASSERT_EQ(trap.result, 0);
        EXPECT_EQ(trap.octets(8), "");
        EXPECT_EQ(trap.syntax(8), sNMP_SYNTAX_OCTETS);
        EXPECT_EQ(loggedTime(), "");
        EXPECT_EQ(trap.value(9), "42");
    }
    EXPECT_THAT(host.log().lines("error"), IsEmpty());
}

TEST_F(NotifyHandlerTest, NegativeDeviceTypeStaysNegative) {
    host.setDeviceType(-5);
    load();
    EXPECT_EQ(Trap(handler, notification()).value(13), "-5");
}

TEST_F(NotifyHandlerTest, ParametersWithoutATextAreEmpty) {
    load();
    const Trap trap(handler, notification({noText(8)}));
    ASSERT_EQ(trap.result, 0);
    EXPECT_EQ(trap.value(10), "Disk -- in enclosure -- is --.");
}

TEST_F(NotifyHandlerTest, ParametersEndAtTheFirstZeroByte) {
    load();
    const Trap unterminated(handler, notification({rawCell(8, CTLVCell::TLV_TYPE_STRING, "7,A,2")}));
    EXPECT_EQ(unterminated.value(10), "Disk 7 in enclosure A is partly working.");
    const Trap early(handler, notification({rawCell(8, CTLVCell::TLV_TYPE_STRING, std::string("7\0,A,2\0", 7))}));
    EXPECT_EQ(early.value(10), "Disk 7 in enclosure -- is --.");
}

TEST_F(NotifyHandlerTest, UnknownAlarmReturnsTheParsersCode) {
    expectFailure(notification({u64(1, 5)}), -1, "error 0x1002C parse alarm 5 failed");
    expectFailure(notification({u64(1, 0xFFFFFFFFFFFFFFFFULL)}), -1,
                  "error 0x1002C parse alarm 18446744073709551615 failed");
}

TEST_F(NotifyHandlerTest, AlarmThatCannotBeRenderedReturnsTheParsersCode) {
    writeDefinitions("<param eventID='70' detail='##00' location='##' suggestion='s'/>");
    load();
    const Trap trap(handler, notification({u64(1, 70), text(8, "x")}));
    EXPECT_EQ(trap.result, 0x100400F);
    EXPECT_EQ(trap.bindings, nullptr);
    EXPECT_EQ(host.log().lines("error").back(), "error 0x1002C parse alarm 70 failed");
}

TEST_F(NotifyHandlerTest, NumericParametersAreRefused) {
    expectFailure(notification({u32(8, 1)}), -1,
                  "error 0x1002C handle notify failed, CVRX_Exception: CTLVCell isn't string type! tag equal to 8");
}

TEST_F(NotifyHandlerTest, OctetsAreNoParameters) {
    expectFailure(notification({octets(8, "7,A,1")}), -1,
                  "error 0x1002C handle notify failed, CVRX_Exception: CTLVCell isn't string type! tag equal to 8");
}

TEST_F(NotifyHandlerTest, TextInANumericCellIsRefused) {
    for (const unsigned short tag : std::vector<unsigned short>{1, 2, 3, 4, 5, 6}) {
        SCOPED_TRACE(tag);
        expectFailure(
            notification({text(tag, "1")}), -1,
            "error 0x1002C handle notify failed, CVRX_Exception: CTLVCell isn't numerical type! tag equal to " +
                std::to_string(tag));
    }
}

TEST_F(NotifyHandlerTest, FirstEndTimeOfAnEndedAlarmIsCheckedToo) {
    expectFailure(notification({u64(6, SECOND_END), text(5, "1")}), -1,
                  "error 0x1002C handle notify failed, CVRX_Exception: CTLVCell isn't numerical type! tag equal to 5");
}

TEST_F(NotifyHandlerTest, AbsentCellIsRefused) {
    for (const unsigned short tag : std::vector<unsigned short>{1, 2, 3, 4, 5, 6, 8}) {
        SCOPED_TRACE(tag);
        load();
        const Trap trap(handler, notificationWithout(tag));
        EXPECT_EQ(trap.result, -1);
        EXPECT_EQ(trap.bindings, nullptr);
        EXPECT_THAT(
            host.log().lines("error"),
            ElementsAre("error 0x1002C handle notify failed, CVRX_Exception: record has no cell, tag equal to " +
                        std::to_string(tag)));
    }
}

TEST_F(NotifyHandlerTest, DefinitionsThatCannotBeLoadedAreReported) {
    writeDefinitionFile("<alarms/>");
    const Trap trap(handler, notification());
    EXPECT_EQ(trap.result, -1);
    EXPECT_EQ(trap.bindings, nullptr);
    EXPECT_THAT(
        host.log().lines("error"),
        ElementsAre("error 0x1002C handle notify failed, CVRX_Exception: root element(alarms) is invalid, should "
                    "be (root)."));
}

struct OrderCase {
    const char* name;
    std::vector<TlvCell> instead;
    const char* error;
};

void PrintTo(const OrderCase& c, std::ostream* os) {
    *os << c.name;
}

class ReadingOrderTest : public NotifyHandlerTest, public testing::WithParamInterface<OrderCase> {};

// Of several faults in a record the one that is met first is told.
TEST_P(ReadingOrderTest, FirstFaultIsTold) {
    expectFailure(notification(GetParam().instead), -1, std::string("error 0x1002C ") + GetParam().error);
}

INSTANTIATE_TEST_SUITE_P(
    Faults, ReadingOrderTest,
    testing::Values(OrderCase{"AlarmIdBeforeParameters",
                              {text(1, "x"), u32(8, 1)},
                              "handle notify failed, CVRX_Exception: CTLVCell isn't numerical type! tag equal to 1"},
                    OrderCase{"ParametersBeforeTheLookUp",
                              {u64(1, 5), u32(8, 1)},
                              "handle notify failed, CVRX_Exception: CTLVCell isn't string type! tag equal to 8"},
                    OrderCase{"LookUpBeforeLevel", {u64(1, 5), text(2, "x")}, "parse alarm 5 failed"},
                    OrderCase{"LevelBeforeCategory",
                              {text(2, "x"), text(6, "x"), text(5, "x"), text(3, "x"), text(4, "x")},
                              "handle notify failed, CVRX_Exception: CTLVCell isn't numerical type! tag equal to 2"},
                    OrderCase{"SecondEndTimeBeforeEndTime",
                              {text(6, "x"), text(5, "x"), text(3, "x"), text(4, "x")},
                              "handle notify failed, CVRX_Exception: CTLVCell isn't numerical type! tag equal to 6"},
                    OrderCase{"EndTimeBeforeSerialNumber",
                              {text(5, "x"), text(3, "x"), text(4, "x")},
                              "handle notify failed, CVRX_Exception: CTLVCell isn't numerical type! tag equal to 5"},
                    OrderCase{"SerialNumberBeforeTimeRaised",
                              {text(3, "x"), text(4, "x")},
                              "handle notify failed, CVRX_Exception: CTLVCell isn't numerical type! tag equal to 3"},
                    OrderCase{"TimeRaisedOfAnEndedAlarmIsReadToo",
                              {text(4, "x"), u64(6, SECOND_END)},
                              "handle notify failed, CVRX_Exception: CTLVCell isn't numerical type! tag equal to 4"},
                    OrderCase{"TimeRaisedBeforeTheEndTimeThatTheCategorySkipped",
                              {text(4, "x"), u64(6, SECOND_END), text(5, "x")},
                              "handle notify failed, CVRX_Exception: CTLVCell isn't numerical type! tag equal to 4"}),
    [](const testing::TestParamInfo<OrderCase>& test) { return test.param.name; });

TEST_F(NotifyHandlerTest, DefinitionsAreNeededBeforeTheRecordIsRead) {
    writeDefinitionFile("<alarms/>");
    const Trap trap(handler, notification({text(1, "x")}));
    EXPECT_EQ(trap.result, -1);
    EXPECT_THAT(host.log().lines("error"),
                ElementsAre("error 0x1002C handle notify failed, CVRX_Exception: root element(alarms) is invalid, "
                            "should be (root)."));
}

// A handler of another host's making: the virtual operations that the construction asks.
class OwnBaseHandler : public CTamrelNotifyMsgHandler {
public:
    Agentpp::Oidx& getBaseOid() override {
        if (fails) throw std::runtime_error("no base");
        return base;
    }
    Agentpp::Oidx base{"1.3.9"};
    bool fails = false;
};

TEST_F(NotifyHandlerTest, BaseOidIsTheHandlersOwn) {
    OwnBaseHandler own;
    load();
    const Trap trap(own, notification());
    ASSERT_EQ(trap.result, 0);
    EXPECT_EQ(trap.oid(1), "1.3.9.1.0");
    EXPECT_EQ(trap.oid(15), "1.3.9.15.0");
    EXPECT_STREQ(own.base.get_printable(), "1.3.9");  // copied, not extended
}

TEST_F(NotifyHandlerTest, OtherExceptionsLeaveTheOperation) {
    OwnBaseHandler own;
    own.fails = true;
    load();
    Agentpp::Vbx marker;
    Agentpp::Vbx* array = &marker;
    EXPECT_THROW(own.constructAlarmTrapVb(*makeRecord(notification()), array), std::runtime_error);
    EXPECT_EQ(array, &marker);
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(NotifyHandlerTest, ArrayIsTheCallersBeforeItIsFilled) {
    load();
    s_systemNameFails = true;
    Agentpp::Vbx* array = nullptr;
    EXPECT_THROW(handler.constructAlarmTrapVb(*makeRecord(notification()), array), std::runtime_error);
    s_systemNameFails = false;
    ASSERT_NE(array, nullptr);
    const std::unique_ptr<Agentpp::Vbx[]> bindings(array);
    EXPECT_STREQ(bindings[13].get_printable_value(), "PSN0001");
    EXPECT_STREQ(bindings[14].get_printable_oid(), "1.3.6.1.4.1.99871.2.91.10.3.1.1.15.0");
}

TEST_F(NotifyHandlerTest, NotificationLeavesTheRepositoryAlone) {
    load();
    CAlarmRepository_Singleton* repository = CAlarmRepository_Singleton::getAlarmRepository();
    EXPECT_EQ(Trap(handler, notification()).result, 0);
    EXPECT_EQ(repository->getAlarmRepositorySize(), 0U);
    EXPECT_EQ(repository->addAlarm(42), 0);
    EXPECT_EQ(Trap(handler, notification({u64(5, ENDED)})).result, 0);
    EXPECT_EQ(repository->getAlarmRepositorySize(), 1U);
    repository->clearAllAlarmItems();
}

TEST_F(NotifyHandlerTest, ConstructionIsTraced) {
    load();
    const Trap trap(handler, notification());
    const std::string look = "int CAlarmConfigParser::getAlarmInfo(";
    std::vector<std::string> lines = host.log().lines("trace");
    const auto entered = std::find_if(lines.begin(), lines.end(), [&look](const std::string& line) {
        return testing::Value(line, testing::StartsWith("trace enter " + look));
    });
    const auto left = std::find_if(entered, lines.end(), [&look](const std::string& line) {
        return testing::Value(line, testing::StartsWith("trace leave " + look));
    });
    ASSERT_NE(left, lines.end());
    lines.erase(entered + 1, left);  // the steps of the look-up
    EXPECT_THAT(
        lines,
        ElementsAre("trace enter virtual int CTamrelNotifyMsgHandler::constructAlarmTrapVb(const CTLVRecordV3&, "
                    "Agentpp::Vbx*&)...",
                    "trace enter static CAlarmConfigParser* CAlarmConfigParser::instance()...",
                    "trace leave static CAlarmConfigParser* CAlarmConfigParser::instance(): OK",
                    "trace enter int CAlarmConfigParser::getAlarmInfo(long long unsigned int, const std::string&, "
                    "std::string&, std::string&, u_int&, std::string&, std::string&)...",
                    "trace leave int CAlarmConfigParser::getAlarmInfo(long long unsigned int, const std::string&, "
                    "std::string&, std::string&, u_int&, std::string&, std::string&): OK",
                    "trace enter int CAlarmConfigParser::converToQ7700AlarmLevel(int)...",
                    "trace leave int CAlarmConfigParser::converToQ7700AlarmLevel(int): OK",
                    "trace enter void CTamrelNotifyMsgHandler::dump_alarm_info(const char**)...",
                    "trace leave void CTamrelNotifyMsgHandler::dump_alarm_info(const char**): OK",
                    "trace leave virtual int CTamrelNotifyMsgHandler::constructAlarmTrapVb(const CTLVRecordV3&, "
                    "Agentpp::Vbx*&): OK"));
    for (const FakeLogLine& line : host.log().entries()) EXPECT_EQ(line.module, 4U);
}

TEST_F(NotifyHandlerTest, FailedConstructionIsTracedAsFailed) {
    load();
    for (const TlvRecord& record : {notification({u64(1, 5)}), notification({u32(8, 1)})}) {
        host.log().clear();
        const Trap trap(handler, record);
        EXPECT_EQ(host.log().lines().back(),
                  "trace leave virtual int CTamrelNotifyMsgHandler::constructAlarmTrapVb(const CTLVRecordV3&, "
                  "Agentpp::Vbx*&): NOK");
        EXPECT_EQ(host.log().entries().rbegin()[1].function, "constructAlarmTrapVb");
    }
}

TEST_F(NotifyHandlerTest, WhereNobodyTakesWarningsTheTrapIsTheSame) {
    load();
    const Trap logged(handler, notification());
    const std::vector<std::string> traces = host.log().lines("trace");
    host.log().clear();
    host.log().refuse({"warn"});
    const Trap trap(handler, notification());
    ASSERT_EQ(trap.result, 0);
    for (int number = 1; number <= 15; ++number) {
        EXPECT_EQ(trap.oid(number), logged.oid(number));
        EXPECT_EQ(trap.value(number), logged.value(number)) << number;
        EXPECT_EQ(trap.syntax(number), logged.syntax(number)) << number;
    }
    EXPECT_THAT(host.log().linesWithoutTrace(), IsEmpty());
    EXPECT_EQ(host.log().lines("trace"), traces);
}

TEST_F(NotifyHandlerTest, NullTextsBecomeUnknownInPlace) {
    std::vector<const char*> texts(15, "x");
    texts[0] = nullptr;
    texts[14] = nullptr;
    handler.dump_alarm_info(texts.data());
    EXPECT_STREQ(texts[0], "Unknown");
    EXPECT_STREQ(texts[14], "Unknown");
    EXPECT_THAT(logged(), ElementsAre("warn 0x1002E the content of alarm is \n"
                                      "ReportingAlarmNodeCode      --- Unknown\n"
                                      "ReportingAlarmLocationInfo  --- x\n"
                                      "ReportingAlarmRestoreAdvice --- x\n"
                                      "ReportingAlarmFaultTitle    --- x\n"
                                      "ReportingAlarmFaultType     --- x\n"
                                      "ReportingAlarmFaultLevel    --- x\n"
                                      "ReportingAlarmAlarmID       --- x\n"
                                      "ReportingAlarmFaultTime     --- x\n"
                                      "ReportingAlarmSerialNo      --- x\n"
                                      "ReportingAlarmAdditionInfo  --- x\n"
                                      "ReportingAlarmFaultCategory --- x\n"
                                      "ReportingAlarmLocationAlmID --- x\n"
                                      "ReportingAlarmProductModel  --- x\n"
                                      "ReportingAlarmProductSN     --- x\n"
                                      "ReportingAlarmProductSystemName     --- Unknown\n"));
}

TEST_F(NotifyHandlerTest, FixedAnswersAndTheirSilence) {
    EXPECT_STREQ(handler.getTrapOid(1).get_printable(), "1.3.6.1.4.1.99871.2.91.10.2.1.0.1");
    EXPECT_EQ(&handler.getTrapOid(1), &handler.getTrapOid(2));
    EXPECT_STREQ(handler.getBaseOid().get_printable(), BASE);
    CTamrelNotifyMsgHandler other;
    EXPECT_EQ(&handler.getTrapOid(1), &other.getTrapOid(1));
    EXPECT_EQ(&handler.getBaseOid(), &other.getBaseOid());
    EXPECT_TRUE(handler.useDateAndTime());
    EXPECT_EQ(handler.getTrapVbLen(), 15);
    EXPECT_THAT(host.log().lines(), IsEmpty());
}

tTrapDestInfo destination(const std::string& index, unsigned int version, unsigned int trapType) {
    tTrapDestInfo d;
    d.index = index;
    d.address = "192.0.2." + index;
    d.port = 10162;
    d.version = version;
    d.trapType = trapType;
    d.user = "user" + index;
    return d;
}

TEST_F(NotifyHandlerTest, DestinationsOfTrapTypeOneAndThreeAreChosen) {
    std::map<std::string, tTrapDestInfo> all;
    std::list<tTrapDestInfo> expected;
    int number = 0;
    for (unsigned int version : {0U, 1U, 2U, 3U, 4294967295U}) {
        for (unsigned int trapType : {0U, 1U, 2U, 3U, 4U, 5U, 4294967295U}) {
            const std::string key = std::to_string(100 + ++number);
            all[key] = destination(key, version, trapType);
            if (trapType == 1 || trapType == 3) expected.push_back(all[key]);
        }
    }
    std::list<tTrapDestInfo> chosen;
    handler.filterTrapMap(all, chosen);
    EXPECT_EQ(chosen, expected);
    EXPECT_THAT(host.log().lines(), IsEmpty());
}

TEST_F(NotifyHandlerTest, ChosenDestinationsFollowTheKeysAfterWhatWasThere) {
    const tTrapDestInfo before = destination("1", 1, 2);
    std::list<tTrapDestInfo> chosen{before};
    handler.filterTrapMap({}, chosen);
    EXPECT_THAT(chosen, ElementsAre(before));
    const tTrapDestInfo two = destination("2", 2, 3);
    const tTrapDestInfo three = destination("3", 2, 1);
    handler.filterTrapMap({{"b", two}, {"a", three}}, chosen);
    EXPECT_THAT(chosen, ElementsAre(before, three, two));
}

TEST_F(NotifyHandlerTest, ManyThreadsBuildTheSameTrap) {
    load();
    std::vector<std::thread> threads;
    std::vector<int> wrong(6);
    threads.reserve(wrong.size());
    for (int& count : wrong) {
        threads.emplace_back([this, &count] {
            for (int i = 0; i < 50; ++i) {
                const Trap trap(handler, notification());
                if (trap.result != 0 || trap.oid(15) != std::string(BASE) + ".15.0" ||
                    trap.value(10) != "Disk 7 in enclosure CTE0,A is not reachable.") {
                    ++count;
                }
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_THAT(wrong, Each(0));
}

// --- the handler with an OID for each alarm

class OidBasedHandlerTest : public NotifyHandlerTest {
protected:
    static constexpr const char* PREFIX = "1.3.6.1.4.1.99871.2.91.10.2.1.1";

    CTamrelOIDBasedMsgHandler oidBased;
};

TEST_F(OidBasedHandlerTest, BindingsStandBelowItsOwnOidAndTheTimeIsText) {
    load();
    const Trap trap(oidBased, notification());
    ASSERT_EQ(trap.result, 0);
    ASSERT_EQ(trap.count, 15);
    for (int number = 1; number <= 15; ++number) {
        EXPECT_EQ(trap.oid(number), "1.3.6.1.4.1.99871.2.251.20.1.3." + std::to_string(number) + ".0");
    }
    EXPECT_EQ(trap.octets(8), RAISED_TEXT);
    EXPECT_EQ(trap.syntax(8), sNMP_SYNTAX_OCTETS);
    EXPECT_EQ(loggedTime(), RAISED_TEXT);
    EXPECT_EQ(trap.value(2), "Enclosure CTE0,A, slot 7");
}

TEST_F(OidBasedHandlerTest, TrapOidIsTheAlarmsOwn) {
    load();
    EXPECT_STREQ(oidBased.getTrapOid(DISK_FAULT).get_printable(), "1.3.6.1.4.1.99871.2.91.10.2.1.1.5.7");
    EXPECT_THAT(logged(), ElementsAre("debug 0xFFFF alarmid = 40003;oid = 1.3.6.1.4.1.99871.2.91.10.2.1.1.5.7 "));
    const std::vector<std::string> traces = host.log().lines("trace");
    EXPECT_EQ(traces.front(),
              "trace enter virtual Agentpp::Oidx& CTamrelOIDBasedMsgHandler::getTrapOid(long long unsigned int)...");
    EXPECT_EQ(traces.back(),
              "trace leave virtual Agentpp::Oidx& CTamrelOIDBasedMsgHandler::getTrapOid(long long unsigned int): OK");
    EXPECT_STREQ(handler.getTrapOid(DISK_FAULT).get_printable(), "1.3.6.1.4.1.99871.2.91.10.2.1.0.1");
}

TEST_F(OidBasedHandlerTest, UnknownAlarmStillHasATrapOid) {
    load();
    for (int call = 0; call < 2; ++call) {
        host.log().clear();
        EXPECT_STREQ(oidBased.getTrapOid(11).get_printable(), PREFIX);
        EXPECT_THAT(logged(), ElementsAre("warn 0x1002E alarm 11 desn't need to be parsed.",
                                          "error 0x1002C parse alarm 11 failed",
                                          "debug 0xFFFF alarmid = b;oid = 1.3.6.1.4.1.99871.2.91.10.2.1.1. "));
    }
}

TEST_F(OidBasedHandlerTest, AlarmZeroStillHasATrapOid) {
    load();
    EXPECT_STREQ(oidBased.getTrapOid(0).get_printable(), PREFIX);
    EXPECT_THAT(host.log().lines("error"),
                ElementsAre("error 0x1002E invalid alarm id 0", "error 0x1002C parse alarm 0 failed"));
}

TEST_F(OidBasedHandlerTest, EmptyDefinitionsStillGiveATrapOid) {
    writeDefinitions("");
    load();
    EXPECT_STREQ(oidBased.getTrapOid(DISK_FAULT).get_printable(), PREFIX);
    EXPECT_THAT(host.log().lines("error"), ElementsAre("error 0x1002E alarm config info is empty.",
                                                       "error 0x1002C parse alarm 4295229443 failed"));
}

TEST_F(OidBasedHandlerTest, DefinitionsThatCannotBeLoadedStillGiveATrapOid) {
    writeDefinitionFile("<alarms/>");
    EXPECT_STREQ(oidBased.getTrapOid(DISK_FAULT).get_printable(), PREFIX);
    EXPECT_THAT(
        host.log().lines("error"),
        ElementsAre("error 0x1002C handle notify failed, CVRX_Exception: root element(alarms) is invalid, should "
                    "be (root).",
                    "error 0x1002C parse alarm 4295229443 failed"));
}

TEST_F(OidBasedHandlerTest, FailedLookUpIsTracedAsFailed) {
    load();
    oidBased.getTrapOid(11);
    EXPECT_THAT(
        host.log().lines("trace"),
        ElementsAre("trace enter virtual Agentpp::Oidx& CTamrelOIDBasedMsgHandler::getTrapOid(long long unsigned "
                    "int)...",
                    "trace enter static CAlarmConfigParser* CAlarmConfigParser::instance()...",
                    "trace leave static CAlarmConfigParser* CAlarmConfigParser::instance(): OK",
                    "trace enter int CAlarmConfigParser::getAlarmOidInfo(long long unsigned int, std::string&)...",
                    "trace leave int CAlarmConfigParser::getAlarmOidInfo(long long unsigned int, std::string&): NOK",
                    "trace leave virtual Agentpp::Oidx& CTamrelOIDBasedMsgHandler::getTrapOid(long long unsigned "
                    "int): NOK"));
}

// As a host does: the bindings of an alarm, then its trap OID, whose look-up fails: the definitions were exchanged
// meanwhile.
TEST_F(OidBasedHandlerTest, TrapIsStillBuiltAfterALookUpThatFailed) {
    for (const bool isThereAFile : {true, false}) {
        SCOPED_TRACE(isThereAFile);
        writeDefinitions(DISK_FAULT_DEFINITION);
        load();
        const Trap trap(oidBased, notification());
        ASSERT_EQ(trap.result, 0);
        CAlarmConfigParser::destroy();
        writeDefinitions("<param eventID='70'/>");
        if (!isThereAFile) std::filesystem::remove(host.root() + "/" + DEFINITION_PATH);
        host.log().clear();
        EXPECT_STREQ(oidBased.getTrapOid(DISK_FAULT).get_printable(), PREFIX);
        EXPECT_EQ(host.log().lines("error").back(), "error 0x1002C parse alarm 4295229443 failed");
        EXPECT_EQ(trap.value(12), "4295229443");
        EXPECT_EQ(trap.value(10), "Disk 7 in enclosure CTE0,A is not reachable.");
        EXPECT_EQ(trap.oid(15), "1.3.6.1.4.1.99871.2.251.20.1.3.15.0");
    }
}

TEST_F(OidBasedHandlerTest, DefinitionWithoutOidGivesNoErrorAndNoOid) {
    writeDefinitions("<param eventID='70'/>");
    load();
    EXPECT_EQ(oidBased.getTrapOid(70).len(), 0U);
    EXPECT_THAT(logged(), ElementsAre("debug 0xFFFF alarmid = 46;oid = 1.3.6.1.4.1.99871.2.91.10.2.1.1.None "));
}

TEST_F(OidBasedHandlerTest, BothResultsAreTheSameObject) {
    load();
    Agentpp::Oidx& first = oidBased.getTrapOid(DISK_FAULT);
    Agentpp::Oidx& second = oidBased.getTrapOid(11);
    EXPECT_EQ(&first, &second);
    EXPECT_STREQ(first.get_printable(), PREFIX);
}

TEST_F(OidBasedHandlerTest, FixedAnswers) {
    EXPECT_STREQ(oidBased.getBaseOid().get_printable(), "1.3.6.1.4.1.99871.2.251.20.1.3");
    CTamrelOIDBasedMsgHandler other;
    EXPECT_EQ(&oidBased.getBaseOid(), &other.getBaseOid());
    EXPECT_FALSE(oidBased.useDateAndTime());
    EXPECT_EQ(oidBased.getTrapVbLen(), 15);
    EXPECT_THAT(host.log().lines(), IsEmpty());
}

TEST_F(OidBasedHandlerTest, DestinationsOfTrapTypeThreeAndFourAreChosenUnlessSnmpV1) {
    std::map<std::string, tTrapDestInfo> all;
    std::list<tTrapDestInfo> expected{destination("1", 1, 1)};
    std::list<tTrapDestInfo> chosen = expected;
    int number = 0;
    for (unsigned int version : {0U, 1U, 2U, 3U, 4294967295U}) {
        for (unsigned int trapType : {0U, 1U, 2U, 3U, 4U, 5U, 4294967295U}) {
            const std::string key = std::to_string(100 + ++number);
            all[key] = destination(key, version, trapType);
            if (version != 1 && (trapType == 3 || trapType == 4)) expected.push_back(all[key]);
        }
    }
    oidBased.filterTrapMap(all, chosen);
    EXPECT_EQ(chosen, expected);
    EXPECT_THAT(host.log().lines(), IsEmpty());
}

}  // namespace
