#include <gmock/gmock.h>

#include "alarm/snmp_alarm_repository.h"
#include "notify/snmp_tamrel_notify_handler.h"
#include "tests/fake_host/fake_host.h"

// The linker sends the handlers' calls of getAlarmRepository() here, because the real one always has a repository.
extern "C" {
CAlarmRepository_Singleton*
__real__ZN26CAlarmRepository_Singleton18getAlarmRepositoryEv();  // NOLINT: the linker's names
CAlarmRepository_Singleton* __wrap__ZN26CAlarmRepository_Singleton18getAlarmRepositoryEv();  // NOLINT
}

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

bool s_repositoryMissing = false;

class RepositoryUpdateTest : public testing::Test {
protected:
    RepositoryUpdateTest() : repository(*CAlarmRepository_Singleton::getAlarmRepository()) {
        repository.clearAllAlarmItems();
        for (u_int serialNo : {5U, 7U}) repository.addAlarm(serialNo);
        host.log().clear();
    }
    ~RepositoryUpdateTest() override {
        s_repositoryMissing = false;
        repository.clearAllAlarmItems();
    }

    SERIALNO_LIST active() {
        SERIALNO_LIST items;
        repository.getAllAlarmItems(items);
        return items;
    }

    FakeHost host;
    CAlarmRepository_Singleton& repository;
    CTamrelNotifyMsgHandler handler;
};

TEST_F(RepositoryUpdateTest, ActiveAlarmIsAdded) {
    EXPECT_EQ(handler.putAlarmIntoRepository(9, 1), 0);
    EXPECT_THAT(active(), ElementsAre(5U, 7U, 9U));
    EXPECT_THAT(host.log().linesWithoutTrace(), IsEmpty());
}

TEST_F(RepositoryUpdateTest, EndedAlarmIsDeleted) {
    EXPECT_EQ(handler.putAlarmIntoRepository(5, 2), 0);
    EXPECT_THAT(active(), ElementsAre(7U));
    EXPECT_THAT(host.log().linesWithoutTrace(), IsEmpty());
}

TEST_F(RepositoryUpdateTest, SerialNumberZeroIsNotAdded) {
    EXPECT_EQ(handler.putAlarmIntoRepository(0, 1), -1);
    EXPECT_THAT(host.log().linesWithoutTrace(),
                ElementsAre("error 0x1002E add alarm with serial num 0 into repository failed, errcode=-1"));
    EXPECT_THAT(active(), ElementsAre(5U, 7U));
}

TEST_F(RepositoryUpdateTest, SerialNumberAlreadyHeldIsNotAdded) {
    EXPECT_EQ(handler.putAlarmIntoRepository(7, 1), -1);
    EXPECT_THAT(host.log().linesWithoutTrace(),
                ElementsAre("warn 0x1002E alarm with serial num 7 has existed.",
                            "error 0x1002E add alarm with serial num 7 into repository failed, errcode=-1"));
    EXPECT_THAT(active(), ElementsAre(5U, 7U));
}

TEST_F(RepositoryUpdateTest, UnknownSerialNumberIsNotDeleted) {
    EXPECT_EQ(handler.putAlarmIntoRepository(9, 2), -1);
    EXPECT_THAT(host.log().linesWithoutTrace(),
                ElementsAre("error 0x1002E alarm with serial num 9 not existed.",
                            "error 0x1002E delete clear type alarm 9 failed, errcode=-1"));
    EXPECT_THAT(active(), ElementsAre(5U, 7U));
}

TEST_F(RepositoryUpdateTest, CategoryThreeLeavesTheRepositoryAlone) {
    EXPECT_EQ(handler.putAlarmIntoRepository(5, 3), 0);
    EXPECT_THAT(
        host.log().lines(),
        ElementsAre(
            "trace enter int CTamrelNotifyMsgHandler::putAlarmIntoRepository(u_int, u_int)...",
            "trace enter static CAlarmRepository_Singleton* CAlarmRepository_Singleton::getAlarmRepository()...",
            "trace leave static CAlarmRepository_Singleton* CAlarmRepository_Singleton::getAlarmRepository(): OK",
            "trace leave int CTamrelNotifyMsgHandler::putAlarmIntoRepository(u_int, u_int): OK"));
    EXPECT_THAT(active(), ElementsAre(5U, 7U));
}

TEST_F(RepositoryUpdateTest, UpdateIsTraced) {
    const std::string handlerName = "int CTamrelNotifyMsgHandler::";
    const std::string put = handlerName + "putAlarmIntoRepository(u_int, u_int)";
    const std::string get = "static CAlarmRepository_Singleton* CAlarmRepository_Singleton::getAlarmRepository()";
    const std::string update = handlerName + "updateRepository(u_int, u_int, CAlarmRepository_Singleton*)";
    for (u_int category : {1U, 2U}) {
        host.log().clear();
        EXPECT_EQ(handler.putAlarmIntoRepository(9, category), 0);
        const std::string change = category == 1 ? "int CAlarmRepository_Singleton::addAlarm(u_int)"
                                                 : "int CAlarmRepository_Singleton::deleteAlarm(u_int)";
        EXPECT_THAT(host.log().lines(), ElementsAre("trace enter " + put + "...", "trace enter " + get + "...",
                                                    "trace leave " + get + ": OK", "trace enter " + update + "...",
                                                    "trace enter " + change + "...", "trace leave " + change + ": OK",
                                                    "trace leave " + update + ": OK", "trace leave " + put + ": OK"));
        for (const FakeLogLine& line : host.log().entries()) EXPECT_EQ(line.module, 4U);
    }
}

TEST_F(RepositoryUpdateTest, AnyOtherCategoryDeletes) {
    EXPECT_EQ(handler.putAlarmIntoRepository(5, 0), 0);
    EXPECT_EQ(repository.addAlarm(5), 0);
    EXPECT_EQ(handler.putAlarmIntoRepository(5, 4294967295U), 0);
    EXPECT_EQ(handler.putAlarmIntoRepository(7, 4), 0);
    EXPECT_EQ(repository.getAlarmRepositorySize(), 0U);
}

TEST_F(RepositoryUpdateTest, DirectUpdateOfCategoryThreeDeletes) {
    EXPECT_EQ(handler.updateRepository(3, 5, &repository), 0);
    EXPECT_THAT(active(), ElementsAre(7U));
    EXPECT_THAT(
        host.log().lines().front(),
        "trace enter int CTamrelNotifyMsgHandler::updateRepository(u_int, u_int, CAlarmRepository_Singleton*)...");
}

TEST_F(RepositoryUpdateTest, RefusalsAreTracedAsFailed) {
    const std::string leave = "trace leave int CTamrelNotifyMsgHandler::";
    for (u_int category : {1U, 2U}) {
        host.log().clear();
        EXPECT_EQ(handler.putAlarmIntoRepository(category == 1 ? 5 : 9, category), -1);
        const std::vector<std::string> traces = host.log().lines("trace");
        ASSERT_GE(traces.size(), 2U);
        EXPECT_EQ(traces.rbegin()[1], leave + "updateRepository(u_int, u_int, CAlarmRepository_Singleton*): NOK");
        EXPECT_EQ(traces.rbegin()[0], leave + "putAlarmIntoRepository(u_int, u_int): NOK");
    }
}

TEST_F(RepositoryUpdateTest, DirectUpdatePassesRefusalsOn) {
    EXPECT_EQ(handler.updateRepository(1, 4294967295U, &repository), 0);
    EXPECT_EQ(handler.updateRepository(1, 4294967295U, &repository), -1);
    EXPECT_EQ(handler.updateRepository(2, 4294967294U, &repository), -1);
    EXPECT_THAT(host.log().lines("error"),
                ElementsAre("error 0x1002E add alarm with serial num 4294967295 into repository failed, errcode=-1",
                            "error 0x1002E alarm with serial num 4294967294 not existed.",
                            "error 0x1002E delete clear type alarm 4294967294 failed, errcode=-1"));
    EXPECT_THAT(active(), ElementsAre(5U, 7U, 4294967295U));
}

TEST_F(RepositoryUpdateTest, MissingRepositoryIsReportedForEveryCategory) {
    s_repositoryMissing = true;
    for (u_int category : {1U, 2U, 3U}) {
        host.log().clear();
        EXPECT_EQ(handler.putAlarmIntoRepository(9, category), -1);
        EXPECT_THAT(host.log().lines(),
                    ElementsAre("trace enter int CTamrelNotifyMsgHandler::putAlarmIntoRepository(u_int, u_int)...",
                                "error 0x10014 null repository ptr",
                                "trace leave int CTamrelNotifyMsgHandler::putAlarmIntoRepository(u_int, u_int): NOK"));
    }
}

}  // namespace

CAlarmRepository_Singleton* __wrap__ZN26CAlarmRepository_Singleton18getAlarmRepositoryEv() {
    return s_repositoryMissing ? nullptr : __real__ZN26CAlarmRepository_Singleton18getAlarmRepositoryEv();
}
