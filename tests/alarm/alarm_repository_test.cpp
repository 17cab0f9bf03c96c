#include "alarm/snmp_alarm_repository.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <functional>
#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/alarm/failing_lock.h"
#include "tests/alarm/waiting_thread.h"
#include "tests/fake_host/fake_host.h"

namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

// Opens the mutex of the class.
struct OpenRepository : CAlarmRepository_Singleton {
    using CAlarmRepository_Singleton::m_oMutex;
};

class AlarmRepositoryTest : public testing::Test {
protected:
    AlarmRepositoryTest() : repository(*CAlarmRepository_Singleton::getAlarmRepository()) {
        repository.clearAllAlarmItems();
        host.log().clear();
    }
    ~AlarmRepositoryTest() override { repository.clearAllAlarmItems(); }

    SERIALNO_LIST all() {
        SERIALNO_LIST items;
        repository.getAllAlarmItems(items);
        return items;
    }

    FakeHost host;
    CAlarmRepository_Singleton& repository;
};

// The only test that must find the repository as a new process has it.
TEST(AlarmRepository, StartsEmpty) {
    FakeHost host;
    CAlarmRepository_Singleton* repository = CAlarmRepository_Singleton::getAlarmRepository();
    ASSERT_NE(repository, nullptr);
    EXPECT_EQ(repository->getAlarmRepositorySize(), 0U);
}

TEST_F(AlarmRepositoryTest, ThereIsOneInstance) {
    EXPECT_EQ(CAlarmRepository_Singleton::getAlarmRepository(), &repository);
}

TEST_F(AlarmRepositoryTest, SerialNumberZeroIsRefusedSilently) {
    EXPECT_EQ(repository.addAlarm(0), -1);
    EXPECT_THAT(host.log().linesWithoutTrace(), IsEmpty());
    EXPECT_EQ(repository.getAlarmRepositorySize(), 0U);
}

TEST_F(AlarmRepositoryTest, SerialNumberIsAddedOnce) {
    for (u_int serialNo : {7U, 4294967295U}) {
        repository.clearAllAlarmItems();
        host.log().clear();
        EXPECT_EQ(repository.addAlarm(serialNo), 0);
        EXPECT_EQ(repository.addAlarm(serialNo), -1);
        EXPECT_THAT(host.log().linesWithoutTrace(),
                    ElementsAre("warn 0x1002E alarm with serial num " + std::to_string(serialNo) + " has existed."));
        EXPECT_EQ(repository.getAlarmRepositorySize(), 1U);
        EXPECT_THAT(all(), ElementsAre(serialNo));
    }
}

TEST_F(AlarmRepositoryTest, AbsentSerialNumberIsNotDeleted) {
    repository.addAlarm(7);
    EXPECT_EQ(repository.deleteAlarm(9), -1);
    EXPECT_EQ(repository.deleteAlarm(4294967295U), -1);
    EXPECT_THAT(host.log().linesWithoutTrace(),
                ElementsAre("error 0x1002E alarm with serial num 9 not existed.",
                            "error 0x1002E alarm with serial num 4294967295 not existed."));
    EXPECT_THAT(all(), ElementsAre(7U));
}

TEST_F(AlarmRepositoryTest, SerialNumberZeroIsNeverThereToDelete) {
    EXPECT_EQ(repository.deleteAlarm(0), -1);
    EXPECT_THAT(host.log().linesWithoutTrace(), ElementsAre("error 0x1002E alarm with serial num 0 not existed."));
}

TEST_F(AlarmRepositoryTest, OrderOfInsertionIsKept) {
    for (u_int serialNo : {5U, 3U, 8U}) EXPECT_EQ(repository.addAlarm(serialNo), 0);
    EXPECT_EQ(repository.deleteAlarm(3), 0);
    EXPECT_THAT(all(), ElementsAre(5U, 8U));
    EXPECT_EQ(repository.addAlarm(3), 0);
    EXPECT_THAT(all(), ElementsAre(5U, 8U, 3U));
}

TEST_F(AlarmRepositoryTest, RandomChangesGiveWhatAPlainListGives) {
    std::mt19937 random(15);  // NOLINT(cert-msc32-c, cert-msc51-cpp): the same changes each time
    std::vector<u_int> expected;
    for (int i = 0; i < 20000; ++i) {
        const auto serialNo = static_cast<u_int>(random() % 200);
        const auto found = std::find(expected.begin(), expected.end(), serialNo);
        const bool isThere = found != expected.end();
        const auto change = random() % 400;
        if (change == 0) {
            ASSERT_EQ(repository.clearAllAlarmItems(), 0);
            expected.clear();
        } else if (change < 200) {
            ASSERT_EQ(repository.addAlarm(serialNo), serialNo == 0 || isThere ? -1 : 0) << i;
            if (serialNo != 0 && !isThere) expected.push_back(serialNo);
        } else {
            ASSERT_EQ(repository.deleteAlarm(serialNo), isThere ? 0 : -1) << i;
            if (isThere) expected.erase(found);
        }
        ASSERT_EQ(repository.getAlarmRepositorySize(), expected.size()) << i;
        if (i % 50 == 0 && !expected.empty()) {
            ASSERT_THAT(all(), ElementsAreArray(expected)) << i;
        }
    }
}

TEST_F(AlarmRepositoryTest, SnapshotReplacesTheCallersList) {
    repository.addAlarm(4294967295U);
    SERIALNO_LIST items{1, 2};
    EXPECT_EQ(repository.getAllAlarmItems(items), 0);
    EXPECT_THAT(items, ElementsAre(4294967295U));
}

TEST_F(AlarmRepositoryTest, EmptyRepositoryLeavesTheCallersList) {
    SERIALNO_LIST items{1, 2};
    EXPECT_EQ(repository.getAllAlarmItems(items), -1);
    EXPECT_THAT(items, ElementsAre(1U, 2U));
    EXPECT_THAT(host.log().linesWithoutTrace(), ElementsAre("error 0x1002E alarm repository is empty."));
}

TEST_F(AlarmRepositoryTest, ClearingEmptiesTheList) {
    repository.addAlarm(1);
    repository.addAlarm(2);
    EXPECT_EQ(repository.clearAllAlarmItems(), 0);
    EXPECT_EQ(repository.getAlarmRepositorySize(), 0U);
    EXPECT_EQ(repository.addAlarm(1), 0);
}

TEST_F(AlarmRepositoryTest, ClearingAnEmptyRepositorySucceeds) {
    EXPECT_EQ(repository.clearAllAlarmItems(), 0);
    EXPECT_THAT(host.log().linesWithoutTrace(), IsEmpty());
}

TEST_F(AlarmRepositoryTest, OperationsAreTraced) {
    SERIALNO_LIST items;
    CAlarmRepository_Singleton::getAlarmRepository();
    repository.addAlarm(7);
    repository.addAlarm(0);
    repository.getAllAlarmItems(items);
    repository.deleteAlarm(7);
    repository.clearAllAlarmItems();
    EXPECT_THAT(
        host.log().lines("trace"),
        ElementsAre(
            "trace enter static CAlarmRepository_Singleton* CAlarmRepository_Singleton::getAlarmRepository()...",
            "trace leave static CAlarmRepository_Singleton* CAlarmRepository_Singleton::getAlarmRepository(): OK",
            "trace enter int CAlarmRepository_Singleton::addAlarm(u_int)...",
            "trace leave int CAlarmRepository_Singleton::addAlarm(u_int): OK",
            "trace enter int CAlarmRepository_Singleton::addAlarm(u_int)...",
            "trace leave int CAlarmRepository_Singleton::addAlarm(u_int): NOK",
            "trace enter int CAlarmRepository_Singleton::getAllAlarmItems(SERIALNO_LIST&)...",
            "trace enter u_int CAlarmRepository_Singleton::getAlarmRepositorySize()...",
            "trace leave u_int CAlarmRepository_Singleton::getAlarmRepositorySize(): OK",
            "trace leave int CAlarmRepository_Singleton::getAllAlarmItems(SERIALNO_LIST&): OK",
            "trace enter int CAlarmRepository_Singleton::deleteAlarm(u_int)...",
            "trace leave int CAlarmRepository_Singleton::deleteAlarm(u_int): OK",
            "trace enter int CAlarmRepository_Singleton::clearAllAlarmItems()...",
            "trace leave int CAlarmRepository_Singleton::clearAllAlarmItems(): OK"));
}

TEST_F(AlarmRepositoryTest, RefusalsAreTracedAsFailed) {
    SERIALNO_LIST items;
    repository.getAllAlarmItems(items);
    repository.deleteAlarm(7);
    EXPECT_THAT(host.log().lines(),
                ElementsAre("trace enter int CAlarmRepository_Singleton::getAllAlarmItems(SERIALNO_LIST&)...",
                            "trace enter u_int CAlarmRepository_Singleton::getAlarmRepositorySize()...",
                            "trace leave u_int CAlarmRepository_Singleton::getAlarmRepositorySize(): OK",
                            "error 0x1002E alarm repository is empty.",
                            "trace leave int CAlarmRepository_Singleton::getAllAlarmItems(SERIALNO_LIST&): NOK",
                            "trace enter int CAlarmRepository_Singleton::deleteAlarm(u_int)...",
                            "error 0x1002E alarm with serial num 7 not existed.",
                            "trace leave int CAlarmRepository_Singleton::deleteAlarm(u_int): NOK"));
    for (const FakeLogLine& line : host.log().entries()) EXPECT_EQ(line.module, 4U);
}

TEST_F(AlarmRepositoryTest, SerialNumberThatIsThereIsTracedAsFailed) {
    repository.addAlarm(7);
    host.log().clear();
    repository.addAlarm(7);
    EXPECT_THAT(host.log().lines(), ElementsAre("trace enter int CAlarmRepository_Singleton::addAlarm(u_int)...",
                                                "warn 0x1002E alarm with serial num 7 has existed.",
                                                "trace leave int CAlarmRepository_Singleton::addAlarm(u_int): NOK"));
}

TEST_F(AlarmRepositoryTest, InstanceAndSizeNeedNoLock) {
    repository.addAlarm(7);
    ASSERT_EQ(OpenRepository::m_oMutex.acquire(), 0);
    EXPECT_EQ(CAlarmRepository_Singleton::getAlarmRepository(), &repository);  // would wait for this very thread
    EXPECT_EQ(repository.getAlarmRepositorySize(), 1U);
    OpenRepository::m_oMutex.release();
}

TEST_F(AlarmRepositoryTest, OperationsGoOnWhenTheLockFails) {
    const FailingLock failing(OpenRepository::m_oMutex);
    EXPECT_EQ(repository.addAlarm(7), 0);
    EXPECT_EQ(repository.addAlarm(8), 0);
    EXPECT_EQ(repository.deleteAlarm(7), 0);
    EXPECT_THAT(all(), ElementsAre(8U));
    EXPECT_EQ(repository.clearAllAlarmItems(), 0);
}

TEST_F(AlarmRepositoryTest, EveryResultLeavesTheLockFree) {
    SERIALNO_LIST items;
    repository.getAllAlarmItems(items);
    repository.addAlarm(0);
    repository.addAlarm(7);
    repository.addAlarm(7);
    repository.getAllAlarmItems(items);
    repository.deleteAlarm(8);
    repository.deleteAlarm(7);
    repository.clearAllAlarmItems();  // each of them would wait for the lock that the one before kept
    ASSERT_EQ(OpenRepository::m_oMutex.tryacquire(), 0);
    OpenRepository::m_oMutex.release();
}

TEST_F(AlarmRepositoryTest, ChangesAndSnapshotWaitForTheLock) {
    const std::pair<const char*, std::function<int()>> operations[] = {
        {"addAlarm(", [this] { return repository.addAlarm(7); }},
        {"getAllAlarmItems(",
         [this] {
             SERIALNO_LIST items;
             return repository.getAllAlarmItems(items);
         }},
        {"deleteAlarm(", [this] { return repository.deleteAlarm(7); }},
        {"clearAllAlarmItems(", [this] { return repository.clearAllAlarmItems(); }}};
    for (const auto& [name, operation] : operations) {
        SCOPED_TRACE(name);
        ASSERT_EQ(OpenRepository::m_oMutex.acquire(), 0);
        int result = -2;
        WaitingThread thread([&result, &run = operation] { result = run(); });
        EXPECT_TRUE(thread.waits());
        OpenRepository::m_oMutex.release();
        thread.join();
        EXPECT_EQ(result, 0);
    }
}

TEST_F(AlarmRepositoryTest, ManyThreadsLoseNothing) {
    constexpr u_int THREADS = 6;
    constexpr u_int EACH = 200;
    std::vector<std::thread> threads;
    for (u_int t = 0; t < THREADS; ++t) {
        threads.emplace_back([t] {
            CAlarmRepository_Singleton* shared = CAlarmRepository_Singleton::getAlarmRepository();
            for (u_int i = 1; i <= EACH; ++i) {
                shared->addAlarm(t * EACH + i);
                if (i % 2 == 0) shared->deleteAlarm(t * EACH + i);
                SERIALNO_LIST items;
                shared->getAllAlarmItems(items);
                shared->getAlarmRepositorySize();
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(repository.getAlarmRepositorySize(), THREADS * EACH / 2);
    EXPECT_EQ(all().size(), THREADS * EACH / 2);
}

}  // namespace
