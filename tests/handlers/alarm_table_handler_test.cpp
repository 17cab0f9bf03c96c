#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "alarm/snmp_alarm_iniparser.h"
#include "handlers/snmp_tamrel_alarm_handler.h"
#include "module/vrx_exception.h"
#include "tests/fake_host/fake_host.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

constexpr const char* ROW_SIGNATURE =
    "virtual void CSnmpTamrelVrxAlarmHandler::fillRspRecord(const CTLVRecordV3&, CTLVRecordV3*)";

constexpr unsigned long long DISK_FAULT = 4295229443ULL;  // low 32 bits: 262147
constexpr const char* DEFINITIONS =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<root><eventDefinition>\n"
    "<param eventID=\"4295229443\" name=\"Disk fault\" reason=\"A disk failed.\" suggestion=\"Replace disk ##00.\""
    " detail=\"Disk ##00 in enclosure ##01 is ##02{offline:not reachable}.\""
    " location=\"Enclosure ##01, slot ##00\" alarmOid=\"0.1\" paramDesc=\"2=DiskState\"/>\n"
    "<param eventID=\"5\" name=\"Unrendered\" detail=\"Part ##00\" location=\"here\" suggestion=\"see ##\"/>\n"
    "<param eventID=\"507010005\" name=\"Before\" detail=\"d\" location=\"l\" suggestion=\"s\"/>\n"
    "<param eventID=\"507010006\" name=\"First\" detail=\"d\" location=\"l\" suggestion=\"s\"/>\n"
    "<param eventID=\"507010008\" name=\"Middle\" detail=\"d\" location=\"l\" suggestion=\"s\"/>\n"
    "<param eventID=\"507010010\" name=\"Last\" detail=\"d\" location=\"l\" suggestion=\"s\"/>\n"
    "<param eventID=\"507010011\" name=\"After\" detail=\"d\" location=\"l\" suggestion=\"s\"/>\n"
    "<param eventID=\"4801977304\" name=\"Wide\" detail=\"d\" location=\"l\" suggestion=\"s\"/>\n"
    "</eventDefinition></root>\n";
constexpr const char* ENUMERATIONS =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<alarm><param_enum><enum_type name=\"DiskState\"><enum_member value=\"1\">offline</enum_member></enum_type>"
    "</param_enum></alarm>\n";

// 2026-01-02 03:04:05 UTC, and its DateAndTime.
constexpr unsigned long long RAISED = 1767323045ULL;
const std::string RAISED_OCTETS("\x07\xEA\x01\x02\x03\x04\x05\x00+\x00\x00", 11);

// Opens the members that the host's batch query sets.
class OpenAlarmHandler : public CSnmpTamrelVrxAlarmHandler {
public:
    using CSnmpTamrelVrxAlarmHandler::m_batch;
    using CSnmpTamrelVrxAlarmHandler::m_commandCode;
    using CSnmpTamrelVrxAlarmHandler::m_currentKey;
    using CSnmpTamrelVrxAlarmHandler::m_requestType;
    using CSnmpTamrelVrxAlarmHandler::m_wholeTable;
};

class AlarmTableHandlerTest : public testing::Test {
protected:
    AlarmTableHandlerTest() {
        host.setConfig("COMMAND", "GET_CURRENT_ALARM", "12345");
        host.setConfig("SNMP_CONF", "ALARM_INI_PATH", "conf/definitions.xml");
        host.setConfig("SNMP_CONF", "ALARM_PARAM_ENUM_PATH", "conf/enumerations.xml");
        host.writeFile("conf/definitions.xml", DEFINITIONS);
        host.writeFile("conf/enumerations.xml", ENUMERATIONS);
    }
    ~AlarmTableHandlerTest() override { CAlarmConfigParser::destroy(); }

    static TlvRecord requestFor(long long type, const std::string& key) {
        OpenAlarmHandler handler;
        handler.m_requestType = type;
        handler.m_currentKey = key;
        CTLVRecordV3 record(NO_IDENTIFIER, CTLVRecordV3::DEFAULT_BUCKETS);
        handler.fillReqRecord(&record);
        return copyOf(record);
    }

    // The cells that a backend record gives.
    std::vector<TlvCell> rowOf(const TlvRecord& alarm) {
        CTLVRecordV3 out(NO_IDENTIFIER, CTLVRecordV3::DEFAULT_BUCKETS);
        CSnmpTamrelVrxAlarmHandler().fillRspRecord(*makeRecord(alarm), &out);
        return copyOf(out).cells;
    }

    // Lines of fillRspRecord itself, not of the renderer that it calls.
    std::vector<std::string> ownLines() {
        std::vector<std::string> lines;
        for (const FakeLogLine& line : host.log().entries()) {
            if (line.function == "fillRspRecord") lines.push_back(line.toString());
        }
        return lines;
    }

    FakeHost host;
};

TlvRecord alarmRecord(unsigned long long alarmId, const std::string& parameters = "", unsigned int type = 1) {
    return recordOf(2001, u32(0, type), u64(1, alarmId), u32(2, 5), u32(3, 17), u64(4, RAISED), text(8, parameters));
}

TlvRecord without(TlvRecord record, unsigned short tag) {
    std::vector<TlvCell> kept;
    for (const TlvCell& cell : record.cells) {
        if (cell.tag != tag) kept.push_back(cell);
    }
    record.cells = kept;
    return record;
}

TlvRecord with(const TlvRecord& record, const TlvCell& cell) {
    TlvRecord changed = without(record, cell.tag);
    changed.cells.push_back(cell);
    return changed;
}

// Asking the backend.

TEST_F(AlarmTableHandlerTest, GetWithoutKeyAsksForTheFirstAlarm) {
    const auto fromStart = RecordIs(12345, u32(3, 0), u32(9, 1));
    EXPECT_THAT(requestFor(160, CSnmpTableBase::INVALID_KEY), fromStart);
    EXPECT_THAT(requestFor(160, "0"), fromStart);
}

TEST_F(AlarmTableHandlerTest, GetAsksForTheAlarmOfTheKey) {
    EXPECT_THAT(requestFor(160, "7"), RecordIs(12345, u32(3, 6), u32(9, 1)));
}

TEST_F(AlarmTableHandlerTest, GetBulkAsksForFiftyAlarmsAfterTheKey) {
    EXPECT_THAT(requestFor(165, "7"), RecordIs(12345, u32(3, 7), u32(9, 50)));
    EXPECT_THAT(requestFor(165, CSnmpTableBase::INVALID_KEY), RecordIs(12345, u32(3, 0), u32(9, 50)));
    EXPECT_THAT(requestFor(165, "0"), RecordIs(12345, u32(3, 0), u32(9, 50)));
}

TEST_F(AlarmTableHandlerTest, GetNextAndAnyOtherTypeAskForOneAlarmAfterTheKey) {
    const auto oneAfter = RecordIs(12345, u32(3, 7), u32(9, 1));
    EXPECT_THAT(requestFor(161, "7"), oneAfter);
    EXPECT_THAT(requestFor(163, "7"), oneAfter);
    EXPECT_THAT(requestFor(0, "7"), oneAfter);
}

TEST_F(AlarmTableHandlerTest, GetNextWithoutKeyAsksForTheFirstAlarm) {
    EXPECT_THAT(requestFor(161, CSnmpTableBase::INVALID_KEY), RecordIs(12345, u32(3, 0), u32(9, 1)));
    EXPECT_THAT(requestFor(161, "0"), RecordIs(12345, u32(3, 0), u32(9, 1)));
}

TEST_F(AlarmTableHandlerTest, GetOfTheFirstSerialNumberAsksFromTheStart) {
    EXPECT_THAT(requestFor(160, "1"), RecordIs(12345, u32(3, 0), u32(9, 1)));
}

TEST_F(AlarmTableHandlerTest, LargestSerialNumberIsAskedForWhole) {
    EXPECT_THAT(requestFor(160, "4294967295"), RecordIs(12345, u32(3, 4294967294u), u32(9, 1)));
}

TEST_F(AlarmTableHandlerTest, KeyThatIsNoNumberAsksFromTheStart) {
    EXPECT_THAT(requestFor(160, "x"), RecordIs(12345, u32(3, 0), u32(9, 1)));
}

TEST_F(AlarmTableHandlerTest, KeyOfNoRowAsksFromTheStartWhateverNumberTheHostReadsInIt) {
    host.readOtherTextsAs(9);
    EXPECT_THAT(requestFor(160, CSnmpTableBase::INVALID_KEY), RecordIs(12345, u32(3, 0), u32(9, 1)));
    EXPECT_THAT(requestFor(161, CSnmpTableBase::INVALID_KEY), RecordIs(12345, u32(3, 0), u32(9, 1)));
    EXPECT_THAT(requestFor(161, "x"), RecordIs(12345, u32(3, 9), u32(9, 1)));
}

TEST_F(AlarmTableHandlerTest, CommandCodeThatIsNoNumberIsZero) {
    host.setConfig("COMMAND", "GET_CURRENT_ALARM", "alarms");
    EXPECT_EQ(requestFor(160, "7").identifier, 0u);
    EXPECT_THAT(host.log().lines(), IsEmpty());
}

TEST_F(AlarmTableHandlerTest, CommandCodeThatIsMissingIsZero) {
    host.setConfig("COMMAND", "GET_CURRENT_ALARM", "");
    EXPECT_EQ(requestFor(160, "7").identifier, 0u);
}

TEST_F(AlarmTableHandlerTest, CommandCodeIsReadOnceAtConstruction) {
    OpenAlarmHandler handler;
    host.setConfig("COMMAND", "GET_CURRENT_ALARM", "9");
    CTLVRecordV3 record(NO_IDENTIFIER, CTLVRecordV3::DEFAULT_BUCKETS);
    handler.fillReqRecord(&record);
    EXPECT_EQ(record.identifier(), 12345u);
    EXPECT_THAT(host.configReads(), ElementsAre("COMMAND/GET_CURRENT_ALARM"));
}

TEST_F(AlarmTableHandlerTest, NewHandlerStandsBeforeTheTable) {
    OpenAlarmHandler handler;
    EXPECT_EQ(handler.m_requestType, 160);
    EXPECT_EQ(handler.m_currentKey, CSnmpTableBase::INVALID_KEY);
    EXPECT_FALSE(handler.m_wholeTable);
    EXPECT_FALSE(handler.isWholeTable());
    EXPECT_TRUE(handler.m_batch.records().empty());
    EXPECT_EQ(handler.m_commandCode, 12345);
}

// Keys.

TEST_F(AlarmTableHandlerTest, KeyOfAWholeRowIsItsLastSubIdentifier) {
    CSnmpTamrelVrxAlarmHandler handler;
    EXPECT_EQ(handler.getMibKey(Agentpp::Oidx("91.10.1.1.1.9.4711")), "4711");
    EXPECT_EQ(handler.getMibKey(Agentpp::Oidx("91.10.1.1.1.9.0")), "0");
    EXPECT_EQ(handler.getMibKey(Agentpp::Oidx("91.10.1.1.1.9.4294967295")), "4294967295");
}

TEST_F(AlarmTableHandlerTest, OidOfAnyOtherLengthIsNoKey) {
    CSnmpTamrelVrxAlarmHandler handler;
    EXPECT_EQ(handler.getMibKey(Agentpp::Oidx("91.10.1.1.1.9")), CSnmpTableBase::INVALID_KEY);
    EXPECT_EQ(handler.getMibKey(Agentpp::Oidx("91.10.1.1.1.9.1.2")), CSnmpTableBase::INVALID_KEY);
    EXPECT_EQ(handler.getMibKey(Agentpp::Oidx()), CSnmpTableBase::INVALID_KEY);
}

TEST_F(AlarmTableHandlerTest, GetMibKeyLogsItsSignature) {
    CSnmpTamrelVrxAlarmHandler().getMibKey(Agentpp::Oidx("1"));
    const std::string signature = "virtual std::string CSnmpTamrelVrxAlarmHandler::getMibKey(const Agentpp::Oidx&)";
    EXPECT_THAT(host.log().lines(),
                ElementsAre("trace enter " + signature + "...", "trace leave " + signature + ": OK"));
}

TEST_F(AlarmTableHandlerTest, IndexOfARecordIsItsSerialNumberAsText) {
    CSnmpTamrelVrxAlarmHandler handler;
    EXPECT_EQ(handler.getIndexOfRecord(*makeRecord(recordOf(2001, u32(3, 4294967295u)))), "4294967295");
    EXPECT_EQ(handler.getIndexOfRecord(*makeRecord(recordOf(2001, text(3, "12")))), "12");
    const std::string signature =
        "virtual std::string CSnmpTamrelVrxAlarmHandler::getIndexOfRecord(const CTLVRecordV3&)";
    EXPECT_THAT(host.log().lines(),
                ElementsAre("trace enter " + signature + "...", "trace leave " + signature + ": OK",
                            "trace enter " + signature + "...", "trace leave " + signature + ": OK"));
}

TEST_F(AlarmTableHandlerTest, IndexOfARecordWithoutSerialNumberThrows) {
    EXPECT_THROW(CSnmpTamrelVrxAlarmHandler().getIndexOfRecord(*makeRecord(recordOf(2001, u32(1, 1)))), CVRX_Exception);
}

// Rows.

TEST_F(AlarmTableHandlerTest, AlarmBecomesARowOfTwelveCellsInTheirOrder) {
    EXPECT_THAT(rowOf(alarmRecord(DISK_FAULT, "7,CTE0&#44;A,1")),
                ElementsAre(text(1, "NODE0001"), text(2, "Enclosure CTE0,A, slot 7"), text(3, "Replace disk 7."),
                            text(4, "Disk fault"), i32(5, 2), i32(6, 2), u32(7, 262147), u64(12, DISK_FAULT),
                            octets(8, RAISED_OCTETS), u32(9, 17),
                            text(10, "Disk 7 in enclosure CTE0,A is not reachable."), i32(11, 1)));
    EXPECT_THAT(host.log().lines().front(), std::string("trace enter ") + ROW_SIGNATURE + "...");
    EXPECT_THAT(host.log().lines().back(), std::string("trace leave ") + ROW_SIGNATURE + ": OK");
    EXPECT_EQ(host.log().entries().front().module, 4u);
    EXPECT_THAT(ownLines(), IsEmpty());
}

TEST_F(AlarmTableHandlerTest, SeverityIsShownOnTheManagementScale) {
    const std::pair<unsigned int, int> levels[] = {{0, 4}, {3, 4}, {4, 3}, {5, 2},
                                                   {6, 1}, {7, 1}, {8, 4}, {4294967295u, 4}};
    for (const auto& [severity, level] : levels) {
        const std::vector<TlvCell> cells = rowOf(with(alarmRecord(DISK_FAULT), u32(2, severity)));
        ASSERT_EQ(cells.size(), 12u);
        EXPECT_EQ(cells[5], i32(6, level)) << severity;
    }
}

TEST_F(AlarmTableHandlerTest, UnknownNodeCodeIsAStringOfLengthZero) {
    host.setNodeCode({});
    const std::vector<TlvCell> cells = rowOf(alarmRecord(DISK_FAULT));
    ASSERT_EQ(cells.size(), 12u);
    EXPECT_EQ(cells[0], noText(1));
}

TEST_F(AlarmTableHandlerTest, TimeThatTheHostCannotConvertIsAnEmptyCell) {
    host.failTimeConversions();
    const std::vector<TlvCell> cells = rowOf(alarmRecord(DISK_FAULT));
    ASSERT_EQ(cells.size(), 12u);
    EXPECT_EQ(cells[8], octets(8, ""));
    EXPECT_THAT(ownLines(), IsEmpty());
}

TEST_F(AlarmTableHandlerTest, HandlerWithoutDateAndTimeShowsTheTimeAsText) {
    class TextTimeHandler : public CSnmpTamrelVrxAlarmHandler {
        bool useDateAndTime() override { return false; }
    } handler;
    CTLVRecordV3 out(NO_IDENTIFIER, CTLVRecordV3::DEFAULT_BUCKETS);
    handler.fillRspRecord(*makeRecord(alarmRecord(DISK_FAULT)), &out);
    EXPECT_EQ(copyOf(out).cells[8], octets(8, "2026-01-02,03:04:05.0,+00:00"));
}

TEST_F(AlarmTableHandlerTest, TimeIsTakenAsSignedSeconds) {
    const std::vector<TlvCell> cells = rowOf(with(alarmRecord(DISK_FAULT), u64(4, ~0ULL)));
    ASSERT_EQ(cells.size(), 12u);
    EXPECT_EQ(cells[8], octets(8, std::string("\x07\xB1\x0C\x1F\x17\x3B\x3B\x00+\x00\x00", 11)));
}

TEST_F(AlarmTableHandlerTest, FormOfTheTimeIsAskedForWhenTheTimeWasRead) {
    class CountingHandler : public CSnmpTamrelVrxAlarmHandler {
    public:
        bool useDateAndTime() override {
            ++asked;
            return true;
        }
        int asked = 0;
    } handler;
    CTLVRecordV3 out(NO_IDENTIFIER, CTLVRecordV3::DEFAULT_BUCKETS);
    handler.fillRspRecord(*makeRecord(alarmRecord(DISK_FAULT, "", 8)), &out);
    EXPECT_THROW(handler.fillRspRecord(*makeRecord(without(alarmRecord(DISK_FAULT), 4)), &out), CVRX_Exception);
    EXPECT_EQ(handler.asked, 0);
    handler.fillRspRecord(*makeRecord(alarmRecord(DISK_FAULT)), &out);
    EXPECT_EQ(handler.asked, 1);
}

TEST_F(AlarmTableHandlerTest, UsesDateAndTime) {
    EXPECT_TRUE(CSnmpTamrelVrxAlarmHandler().useDateAndTime());
}

TEST_F(AlarmTableHandlerTest, HooksAroundARowDoNothing) {
    CSnmpTamrelVrxAlarmHandler handler;
    EXPECT_EQ(handler.preGetRspCell(*makeRecord(alarmRecord(DISK_FAULT))), 0);
    handler.postGetRspCell(*makeRecord(alarmRecord(DISK_FAULT)));
    EXPECT_THAT(host.log().lines(), IsEmpty());
}

TEST_F(AlarmTableHandlerTest, MarkerRecordIsNoRowAndNothingElseIsReadOfIt) {
    EXPECT_THAT(rowOf(recordOf(2001, u32(4095, 0))), IsEmpty());
    EXPECT_THAT(rowOf(with(alarmRecord(DISK_FAULT), noText(4095))), IsEmpty());
    EXPECT_THAT(host.log().linesWithoutTrace(), IsEmpty());
}

TEST_F(AlarmTableHandlerTest, ClearAlarmIsNoRow) {
    EXPECT_THAT(rowOf(alarmRecord(DISK_FAULT, "", 8)), IsEmpty());
    EXPECT_THAT(host.log().linesWithoutTrace(), ElementsAre("debug 0xFFFF ignore clear type alarm 4295229443"));
}

TEST_F(AlarmTableHandlerTest, ClearAlarmNeedsNoFurtherCells) {
    EXPECT_THAT(rowOf(recordOf(2001, u32(0, 8), u64(1, 6), u32(3, 1))), IsEmpty());
    EXPECT_THAT(host.log().linesWithoutTrace(), ElementsAre("debug 0xFFFF ignore clear type alarm 6"));
}

TEST_F(AlarmTableHandlerTest, TypeIsTheFirstSixteenBitsOfItsCell) {
    struct Case {
        const char* name;
        std::string bytes;
        bool isRow;
    };
    const Case cases[] = {
        {"empty is 0", "", true},
        {"one byte", "\x08", false},
        {"two bytes", std::string("\x08\x00", 2), false},
        {"two bytes, high one set", std::string("\x08\x01", 2), true},
        {"third byte is not looked at", std::string("\x08\x00\x01", 3), false},
        {"upper half is not looked at", std::string("\x08\x00\x01\x00", 4), false},
        {"eight bytes", std::string("\x08\x00\xFF\xFF\xFF\xFF\xFF\xFF", 8), false},
    };
    for (const Case& c : cases) {
        for (int type : {3, 4}) {
            EXPECT_EQ(!rowOf(with(alarmRecord(DISK_FAULT), rawCell(0, type, c.bytes))).empty(), c.isRow)
                << c.name << ", type " << type;
        }
    }
}

TEST_F(AlarmTableHandlerTest, NumbersThatReportNoFaultAreNoRows) {
    for (unsigned long long alarmId : {507010006ULL, 507010008ULL, 507010010ULL}) {
        host.log().clear();
        EXPECT_THAT(rowOf(alarmRecord(alarmId)), IsEmpty());
        EXPECT_THAT(ownLines(), ElementsAre("debug 0xFFFF ignore non-fault alarm " + std::to_string(alarmId)));
    }
}

TEST_F(AlarmTableHandlerTest, NumbersBesideThoseThatReportNoFaultAreRows) {
    EXPECT_EQ(rowOf(alarmRecord(507010005)).size(), 12u);
    EXPECT_EQ(rowOf(alarmRecord(507010011)).size(), 12u);
}

TEST_F(AlarmTableHandlerTest, NumberIsTheLowHalfOfTheAlarmId) {
    // 4801977304 is 507010008 and 2^32.
    EXPECT_THAT(rowOf(alarmRecord(4801977304ULL)), IsEmpty());
    EXPECT_THAT(ownLines(), ElementsAre("debug 0xFFFF ignore non-fault alarm 4801977304"));
}

TEST_F(AlarmTableHandlerTest, AlarmWithoutDefinitionIsNoRow) {
    EXPECT_THAT(rowOf(alarmRecord(99)), IsEmpty());
    EXPECT_THAT(ownLines(), IsEmpty());
    EXPECT_THAT(host.log().lines().back(), std::string("trace leave ") + ROW_SIGNATURE + ": NOK");
}

TEST_F(AlarmTableHandlerTest, AlarmWhoseTextsCannotBeRenderedIsNoRow) {
    EXPECT_THAT(rowOf(alarmRecord(5, "x")), IsEmpty());
    EXPECT_THAT(ownLines(), IsEmpty());
    EXPECT_THAT(host.log().lines().back(), std::string("trace leave ") + ROW_SIGNATURE + ": NOK");
}

TEST_F(AlarmTableHandlerTest, DefinitionsThatCannotBeLoadedGiveNoRowAndAnErrorLineWithTheReason) {
    host.writeFile("conf/definitions.xml", "<alarms/>");
    EXPECT_THAT(rowOf(alarmRecord(DISK_FAULT)), IsEmpty());
    EXPECT_THAT(ownLines(), ElementsAre("error 0x1002E failed to render alarm 4295229443: CVRX_Exception: root "
                                        "element(alarms) is invalid, should be (root)."));
    EXPECT_THAT(host.log().lines().back(), std::string("trace leave ") + ROW_SIGNATURE + ": NOK");
}

TEST_F(AlarmTableHandlerTest, LoadIsTriedAgainForTheNextAlarm) {
    host.writeFile("conf/definitions.xml", "<alarms/>");
    EXPECT_THAT(rowOf(alarmRecord(DISK_FAULT)), IsEmpty());
    host.writeFile("conf/definitions.xml", DEFINITIONS);
    EXPECT_EQ(rowOf(alarmRecord(DISK_FAULT)).size(), 12u);
}

TEST_F(AlarmTableHandlerTest, MissingCellThrowsAndLeavesWhatWasAppended) {
    const std::pair<unsigned short, std::size_t> cases[] = {{0, 0}, {1, 0}, {2, 0}, {3, 0}, {4, 8}, {8, 0}};
    for (const auto& [tag, appended] : cases) {
        CTLVRecordV3 out(NO_IDENTIFIER, CTLVRecordV3::DEFAULT_BUCKETS);
        const auto in = makeRecord(without(alarmRecord(DISK_FAULT), tag));
        EXPECT_THROW(CSnmpTamrelVrxAlarmHandler().fillRspRecord(*in, &out), CVRX_Exception) << tag;
        EXPECT_EQ(out.count(), appended) << tag;
        EXPECT_THAT(host.log().lines().back(), StartsWith(std::string("trace leave ") + ROW_SIGNATURE)) << tag;
    }
}

TEST_F(AlarmTableHandlerTest, CellsAreReadInTheirOrder) {
    TlvRecord alarm = recordOf(2001);
    for (const TlvCell& next : {u32(3, 17), u32(0, 1), u64(1, DISK_FAULT), text(8, ""), u32(2, 5), u64(4, RAISED)}) {
        CTLVRecordV3 out(NO_IDENTIFIER, CTLVRecordV3::DEFAULT_BUCKETS);
        try {
            CSnmpTamrelVrxAlarmHandler().fillRspRecord(*makeRecord(alarm), &out);
            ADD_FAILURE() << "no exception without tag " << next.tag;
        } catch (const CVRX_Exception& fault) {
            EXPECT_EQ(fault.what(), "CVRX_Exception: record has no cell, tag equal to " + std::to_string(next.tag));
        }
        alarm.cells.push_back(next);
    }
    EXPECT_EQ(rowOf(alarm).size(), 12u);
}

TEST_F(AlarmTableHandlerTest, CellOfTheWrongKindThrows) {
    for (unsigned short tag = 0; tag <= 4; ++tag) {
        CTLVRecordV3 out(NO_IDENTIFIER, CTLVRecordV3::DEFAULT_BUCKETS);
        const auto in = makeRecord(with(alarmRecord(DISK_FAULT), text(tag, "5")));
        try {
            CSnmpTamrelVrxAlarmHandler().fillRspRecord(*in, &out);
            ADD_FAILURE() << "no exception for tag " << tag;
        } catch (const CVRX_Exception& fault) {
            EXPECT_EQ(fault.what(),
                      "CVRX_Exception: CTLVCell isn't numerical type! tag equal to " + std::to_string(tag));
        }
    }
}

TEST_F(AlarmTableHandlerTest, ParametersAreTakenInTheirTextForm) {
    const std::vector<TlvCell> cells = rowOf(with(alarmRecord(DISK_FAULT), u32(8, 7)));
    ASSERT_EQ(cells.size(), 12u);
    EXPECT_EQ(cells[2], text(3, "Replace disk 7."));
}

TEST_F(AlarmTableHandlerTest, QueryOfTheWholePathGivesTheRowsOfFaultsOnly) {
    host.backend().answer(0,
                          {alarmRecord(DISK_FAULT, "7,CTE0,1"), with(alarmRecord(507010007), u32(3, 18)),
                           with(alarmRecord(DISK_FAULT, "", 8), u32(3, 19)), with(alarmRecord(507010011), u32(3, 20))});
    // Numbers without a row in between do not end the table: the host may ask for what is after them.
    host.backend().answerAlways([](CR8KPackageV3&, CR8KPackageV3&) { return 0; });
    CVRX_SnmpContext ctx;
    CSnmpTamrelVrxAlarmHandler handler;
    CR8KPackageV3 rsp;
    EXPECT_EQ(handler.OnQueryTable(ctx, requestWith(u32(1, 165), text(2, "91.10.1.1.1.9.16")), rsp), 0);
    const std::vector<TlvRecord> rows = recordsOf(rsp);
    ASSERT_EQ(rows.size(), 2u);
    EXPECT_EQ(rows[0].identifier, 17u);
    EXPECT_EQ(rows[1].identifier, 20u);
    EXPECT_EQ(rows[0].cells.size(), 12u);
    EXPECT_THAT(host.backend().sent()[0], RecordIs(12345, u32(3, 16), u32(9, 50)));
}

}  // namespace
