#include "host/destinations/trap_destination_store.h"

#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <atomic>
#include <csignal>
#include <future>
#include <optional>
#include <thread>
#include <vector>

#include "host/destinations/trap_destination_result.h"
#include "tests/base/temporary_root.h"

namespace vrx {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

tTrapDestInfo destination(const std::string& address, unsigned int port = 162, const std::string& user = "--") {
    tTrapDestInfo made;
    made.address = address;
    made.port = port;
    made.user = user;
    return made;
}

std::string textOf(const tTrapDestInfo& row) {
    return row.index + " " + row.address + ":" + std::to_string(row.port) + " v" + std::to_string(row.version) + " t" +
           std::to_string(row.trapType) + " " + row.user;
}

class TrapDestinationStoreTest : public testing::Test {
protected:
    TrapDestinationStoreTest() { open(); }

    void open(std::size_t limit = 5) {
        m_store.reset();
        m_store.emplace(path(), limit);
    }
    std::string path() const { return m_root.pathOf("destinations.db"); }

    std::vector<std::string> rows() const {
        std::vector<std::string> texts;
        for (const tTrapDestInfo& row : m_store->all()) texts.push_back(textOf(row));
        return texts;
    }
    std::vector<std::string> numbers() const {
        std::vector<std::string> texts;
        for (const tTrapDestInfo& row : m_store->all()) texts.push_back(row.index);
        return texts;
    }
    void create(const tTrapDestInfo& made) { ASSERT_EQ(m_store->create(made), TRAP_DESTINATION_OK); }

    TemporaryRoot m_root;
    std::optional<TrapDestinationStore> m_store;
};

using Store = TrapDestinationStoreTest;

TEST_F(Store, NewOneIsEmpty) {
    EXPECT_THAT(rows(), IsEmpty());
    EXPECT_FALSE(m_store->has("1"));
}

TEST_F(Store, RowsKeepAllTheirValuesOverARestart) {
    tTrapDestInfo made = destination("nms.example.com", 1162, "operator");
    made.version = 3;
    made.trapType = 4;
    made.index = "ignored";
    create(made);
    create(destination("192.0.2.7"));
    const std::vector<std::string> expected = {"1 nms.example.com:1162 v3 t4 operator", "2 192.0.2.7:162 v2 t3 --"};
    EXPECT_EQ(rows(), expected);
    open();
    EXPECT_EQ(rows(), expected);
}

TEST_F(Store, ModifyRewritesTheRowWhole) {
    create(destination("192.0.2.7"));
    tTrapDestInfo changed = destination("192.0.2.8", 1162, "public");
    changed.index = "1";
    changed.version = 1;
    changed.trapType = 1;
    EXPECT_EQ(m_store->modify(changed), TRAP_DESTINATION_OK);
    EXPECT_THAT(rows(), ElementsAre("1 192.0.2.8:1162 v1 t1 public"));
    open();
    EXPECT_THAT(rows(), ElementsAre("1 192.0.2.8:1162 v1 t1 public"));
}

TEST_F(Store, RemoveTakesTheRowAway) {
    create(destination("192.0.2.7"));
    create(destination("192.0.2.8"));
    EXPECT_EQ(m_store->remove("1"), TRAP_DESTINATION_OK);
    EXPECT_THAT(numbers(), ElementsAre("2"));
    EXPECT_FALSE(m_store->has("1"));
    EXPECT_TRUE(m_store->has("2"));
    open();
    EXPECT_THAT(numbers(), ElementsAre("2"));
}

TEST_F(Store, RowsThatAreNotThereAreNamedSo) {
    create(destination("192.0.2.7"));
    for (const char* index : {"", "0", "2", "01", " 1", "1x", "+1", "65537", "4294967297"}) {
        tTrapDestInfo changed = destination("192.0.2.8");
        changed.index = index;
        EXPECT_EQ(m_store->modify(changed), TRAP_DESTINATION_NO_ROW) << index;
        EXPECT_EQ(m_store->remove(index), TRAP_DESTINATION_NO_ROW) << index;
        EXPECT_FALSE(m_store->has(index)) << index;
    }
    EXPECT_THAT(rows(), ElementsAre("1 192.0.2.7:162 v2 t3 --"));
}

TEST_F(Store, SameAddressPortAndUserIsADuplicate) {
    create(destination("192.0.2.7"));
    tTrapDestInfo same = destination("192.0.2.7");
    same.version = 1;
    same.trapType = 1;
    EXPECT_EQ(m_store->create(same), TRAP_DESTINATION_DUPLICATE);
    EXPECT_EQ(m_store->create(destination("192.0.2.7", 163)), TRAP_DESTINATION_OK);
    EXPECT_EQ(m_store->create(destination("192.0.2.7", 162, "public")), TRAP_DESTINATION_OK);
    EXPECT_THAT(numbers(), ElementsAre("1", "2", "3"));
}

TEST_F(Store, AnotherSpellingOfTheAddressIsADuplicateToo) {
    create(destination("2001:db8::7"));
    create(destination("nms.example.com"));
    EXPECT_EQ(m_store->create(destination("2001:DB8:0::7")), TRAP_DESTINATION_DUPLICATE);
    EXPECT_EQ(m_store->create(destination("NMS.example.com.")), TRAP_DESTINATION_DUPLICATE);
    create(destination("192.0.2.7"));
    EXPECT_EQ(m_store->create(destination("::ffff:192.0.2.7")), TRAP_DESTINATION_DUPLICATE);
}

TEST_F(Store, ModifyMayKeepItsOwnValuesButNotTakeAnothersRow) {
    create(destination("192.0.2.7"));
    create(destination("192.0.2.8"));
    tTrapDestInfo changed = destination("192.0.2.7");
    changed.index = "1";
    changed.trapType = 1;
    EXPECT_EQ(m_store->modify(changed), TRAP_DESTINATION_OK);
    changed.index = "2";
    EXPECT_EQ(m_store->modify(changed), TRAP_DESTINATION_DUPLICATE);
    EXPECT_THAT(rows(), ElementsAre("1 192.0.2.7:162 v2 t1 --", "2 192.0.2.8:162 v2 t3 --"));
}

TEST_F(Store, LimitIsTheMostRows) {
    for (unsigned int port = 1; port <= 5; ++port) create(destination("192.0.2.7", port));
    EXPECT_EQ(m_store->create(destination("192.0.2.7", 6)), TRAP_DESTINATION_LIMIT);
    EXPECT_THAT(rows(), SizeIs(5));
    EXPECT_EQ(m_store->remove("3"), TRAP_DESTINATION_OK);
    EXPECT_EQ(m_store->create(destination("192.0.2.7", 6)), TRAP_DESTINATION_OK);
}

TEST_F(Store, LowerLimitKeepsTheRowsThatAreThere) {
    for (unsigned int port = 1; port <= 5; ++port) create(destination("192.0.2.7", port));
    open(2);
    EXPECT_THAT(rows(), SizeIs(5));
    EXPECT_EQ(m_store->create(destination("192.0.2.7", 6)), TRAP_DESTINATION_LIMIT);
}

TEST_F(Store, NumbersOfDeletedRowsAreNotSoonGivenAgainOverRestartsToo) {
    create(destination("192.0.2.7"));
    create(destination("192.0.2.8"));
    EXPECT_EQ(m_store->remove("2"), TRAP_DESTINATION_OK);
    open();
    create(destination("192.0.2.9"));
    EXPECT_THAT(numbers(), ElementsAre("1", "3"));
}

TEST_F(Store, NumbersBeginAgainAfterTheHighest) {
    {
        TrapDestinationStore::Transaction transaction(*m_store);
        transaction.assignNext(2);
        create(destination("192.0.2.2"));
        ASSERT_EQ(transaction.commit(), TRAP_DESTINATION_OK);
    }
    m_store.reset();
    ASSERT_EQ(system(("sqlite3 " + path() + " 'UPDATE numbering SET last=65534'").c_str()), 0);
    open();
    create(destination("192.0.2.7"));
    create(destination("192.0.2.8"));
    create(destination("192.0.2.9"));
    EXPECT_THAT(numbers(), ElementsAre("1", "2", "3", "65535"));
}

TEST_F(Store, TransactionTakesEffectAsAWhole) {
    TrapDestinationStore::Transaction transaction(*m_store);
    create(destination("192.0.2.7"));
    create(destination("192.0.2.8"));
    std::thread([this] { EXPECT_THAT(rows(), IsEmpty()); }).join();
    EXPECT_THAT(numbers(), ElementsAre("1", "2"));
    EXPECT_TRUE(m_store->has("2"));
    EXPECT_EQ(transaction.commit(), TRAP_DESTINATION_OK);
    std::thread([this] { EXPECT_THAT(numbers(), ElementsAre("1", "2")); }).join();
}

TEST_F(Store, TransactionThatIsLeftIsSeenByNobodyUntilItIsCommitted) {
    TrapDestinationStore::Transaction transaction(*m_store);
    create(destination("192.0.2.7"));
    transaction.leave();
    EXPECT_THAT(rows(), IsEmpty());
    EXPECT_FALSE(m_store->has("1"));
    std::thread([&] {
        EXPECT_THAT(rows(), IsEmpty());
        transaction.enter();
        EXPECT_THAT(numbers(), ElementsAre("1"));
        create(destination("192.0.2.8"));
    }).join();
    EXPECT_THAT(rows(), IsEmpty());
    EXPECT_EQ(transaction.commit(), TRAP_DESTINATION_OK);
    EXPECT_THAT(numbers(), ElementsAre("1", "2"));
}

TEST_F(Store, ChangesOfOthersWaitForTheEndOfATransaction) {
    for (const bool committed : {true, false}) {
        std::optional<TrapDestinationStore::Transaction> transaction(std::in_place, *m_store);
        create(destination("192.0.2.7"));
        transaction->leave();
        std::atomic<bool> ended{false};
        std::promise<void> begun;
        std::thread other([&] {
            begun.set_value();
            const int result = m_store->create(destination("192.0.2.7"));
            EXPECT_TRUE(ended);
            EXPECT_EQ(result, committed ? TRAP_DESTINATION_DUPLICATE : TRAP_DESTINATION_OK);
        });
        begun.get_future().wait();
        ended = true;
        if (committed) {
            EXPECT_EQ(transaction->commit(), TRAP_DESTINATION_OK);
        }
        transaction.reset();
        other.join();
        EXPECT_THAT(rows(), SizeIs(1));
        EXPECT_EQ(m_store->remove(m_store->all().front().index), TRAP_DESTINATION_OK);
    }
}

TEST_F(Store, TransactionWithoutCommitChangesNothing) {
    create(destination("192.0.2.1"));
    {
        TrapDestinationStore::Transaction transaction(*m_store);
        create(destination("192.0.2.7"));
        EXPECT_EQ(m_store->remove("1"), TRAP_DESTINATION_OK);
    }
    EXPECT_THAT(numbers(), ElementsAre("1"));
    open();
    EXPECT_THAT(numbers(), ElementsAre("1"));
}

TEST_F(Store, RefusedChangeLeavesItsTransactionUsable) {
    TrapDestinationStore::Transaction transaction(*m_store);
    create(destination("192.0.2.7"));
    EXPECT_EQ(m_store->create(destination("192.0.2.7")), TRAP_DESTINATION_DUPLICATE);
    create(destination("192.0.2.8"));
    EXPECT_EQ(transaction.commit(), TRAP_DESTINATION_OK);
    EXPECT_THAT(numbers(), ElementsAre("1", "2"));
}

TEST_F(Store, SecondCommitOfATransactionFails) {
    TrapDestinationStore::Transaction transaction(*m_store);
    EXPECT_EQ(transaction.commit(), TRAP_DESTINATION_OK);
    EXPECT_EQ(transaction.commit(), TRAP_DESTINATION_STORE_FAILED);
}

TEST_F(Store, NumberCanBeAskedFor) {
    TrapDestinationStore::Transaction transaction(*m_store);
    transaction.assignNext(700);
    create(destination("192.0.2.7"));
    create(destination("192.0.2.8"));
    EXPECT_EQ(transaction.commit(), TRAP_DESTINATION_OK);
    EXPECT_THAT(numbers(), ElementsAre("1", "700"));
}

TEST_F(Store, NumberOfAnotherRowIsTaken) {
    create(destination("192.0.2.7"));
    TrapDestinationStore::Transaction transaction(*m_store);
    transaction.assignNext(1);
    EXPECT_EQ(m_store->create(destination("192.0.2.8")), TRAP_DESTINATION_NUMBER_TAKEN);
}

TEST_F(Store, NumberBeyondTheHighestIsRefused) {
    TrapDestinationStore::Transaction transaction(*m_store);
    transaction.assignNext(65536);
    EXPECT_EQ(m_store->create(destination("192.0.2.8")), TRAP_DESTINATION_BAD_VALUE);
}

TEST_F(Store, ListenerHearsOfEachChangeThatTookEffect) {
    int heard = 0;
    std::size_t seen = 0;
    m_store->setListener([&] {
        ++heard;
        seen = m_store->all().size();
    });
    create(destination("192.0.2.7"));
    EXPECT_EQ(heard, 1);
    EXPECT_EQ(seen, 1U);
    EXPECT_EQ(m_store->create(destination("192.0.2.7")), TRAP_DESTINATION_DUPLICATE);
    EXPECT_EQ(heard, 1);
    {
        TrapDestinationStore::Transaction transaction(*m_store);
        create(destination("192.0.2.8"));
        create(destination("192.0.2.9"));
        EXPECT_EQ(heard, 1);
        EXPECT_EQ(transaction.commit(), TRAP_DESTINATION_OK);
    }
    EXPECT_EQ(heard, 2);
    EXPECT_EQ(seen, 3U);
    { const TrapDestinationStore::Transaction nothing(*m_store); }
    EXPECT_EQ(heard, 2);
    m_store->setListener({});
    EXPECT_EQ(m_store->remove("1"), TRAP_DESTINATION_OK);
    EXPECT_EQ(heard, 2);
}

TEST_F(Store, ListenerMayChangeTheListAndOtherThreadsMayToo) {
    m_store->setListener([this] {
        m_store->setListener({});
        std::thread([this] { create(destination("192.0.2.8")); }).join();
        create(destination("192.0.2.9"));
    });
    create(destination("192.0.2.7"));
    EXPECT_THAT(rows(), SizeIs(3));
}

TEST_F(Store, FilesAreTheOwnersAlone) {
    create(destination("192.0.2.7"));
    struct stat status = {};
    ASSERT_EQ(stat(path().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0600U);
}

TEST_F(Store, JournalIsTheOwnersAlone) {
    TrapDestinationStore::Transaction transaction(*m_store);
    create(destination("192.0.2.7"));
    struct stat status = {};
    ASSERT_EQ(stat((path() + "-journal").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0600U);
}

TEST_F(Store, FileThatWasOpenToOthersIsMadePrivate) {
    m_store.reset();
    ASSERT_EQ(chmod(path().c_str(), 0666), 0);
    open();
    struct stat status = {};
    ASSERT_EQ(stat(path().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0600U);
}

TEST_F(Store, FileThatIsNoDatabaseThrows) {
    m_store.reset();
    m_root.write("destinations.db", std::string(5000, 'x'));
    EXPECT_THROW(open(), std::runtime_error);
}

TEST_F(Store, FolderInPlaceOfTheFileThrows) {
    m_store.reset();
    std::filesystem::create_directory(m_root.pathOf("folder.db"));
    EXPECT_THROW(TrapDestinationStore(m_root.pathOf("folder.db"), 5), std::runtime_error);
    EXPECT_THROW(TrapDestinationStore(m_root.pathOf("missing/folder.db"), 5), std::runtime_error);
}

TEST_F(Store, YoungerSchemaThrows) {
    m_store.reset();
    ASSERT_EQ(system(("sqlite3 " + path() + " 'PRAGMA user_version=2'").c_str()), 0);
    EXPECT_THROW(open(), std::runtime_error);
}

// No room on the disk: files of this process cannot grow for a while.
class FullDisk {
public:
    FullDisk() {
        std::signal(SIGXFSZ, SIG_IGN);
        getrlimit(RLIMIT_FSIZE, &m_before);
        const rlimit none = {1, m_before.rlim_max};
        setrlimit(RLIMIT_FSIZE, &none);
    }
    ~FullDisk() { setrlimit(RLIMIT_FSIZE, &m_before); }
    FullDisk(const FullDisk&) = delete;
    FullDisk& operator=(const FullDisk&) = delete;

private:
    rlimit m_before = {};
};

TEST_F(Store, FullDiskGivesACodeAndTheListStays) {
    create(destination("192.0.2.7"));
    const std::vector<std::string> before = rows();
    {
        const FullDisk full;
        EXPECT_EQ(m_store->create(destination("192.0.2.8")), TRAP_DESTINATION_STORE_FAILED);
        EXPECT_EQ(m_store->remove("1"), TRAP_DESTINATION_STORE_FAILED);
        tTrapDestInfo changed = destination("192.0.2.9");
        changed.index = "1";
        EXPECT_EQ(m_store->modify(changed), TRAP_DESTINATION_STORE_FAILED);
    }
    EXPECT_EQ(rows(), before);
    EXPECT_EQ(m_store->create(destination("192.0.2.8")), TRAP_DESTINATION_OK);
    open();
    EXPECT_THAT(numbers(), ElementsAre("1", "2"));
}

TEST_F(Store, TransactionThatMetAFullDiskIsLost) {
    create(destination("192.0.2.7"));
    {
        TrapDestinationStore::Transaction transaction(*m_store);
        create(destination("192.0.2.8"));
        {
            const FullDisk full;
            EXPECT_EQ(transaction.commit(), TRAP_DESTINATION_STORE_FAILED);
        }
    }
    EXPECT_THAT(numbers(), ElementsAre("1"));
    open();
    EXPECT_THAT(numbers(), ElementsAre("1"));
}

TEST_F(Store, FileThatWasTakenAwayGivesACode) {
    create(destination("192.0.2.7"));
    ASSERT_EQ(unlink(path().c_str()), 0);
    EXPECT_EQ(m_store->create(destination("192.0.2.8")), TRAP_DESTINATION_STORE_FAILED);
    EXPECT_THAT(numbers(), ElementsAre("1"));
}

TEST_F(Store, ThreadsChangeAndReadAtTheSameTime) {
    open(1000);
    constexpr unsigned int THREADS = 4;
    constexpr unsigned int ROWS = 20;
    std::atomic<bool> done{false};
    std::atomic<int> odd{0};
    std::thread reader([&] {
        while (!done) {
            if (m_store->all().size() % 2 != 0) ++odd;  // each transaction makes two rows
        }
    });
    std::vector<std::thread> writers;
    for (unsigned int thread = 0; thread < THREADS; ++thread) {
        writers.emplace_back([this, thread] {
            for (unsigned int i = 0; i < ROWS; ++i) {
                TrapDestinationStore::Transaction transaction(*m_store);
                EXPECT_EQ(m_store->create(destination("192.0.2.7", thread * 1000 + i + 1)), TRAP_DESTINATION_OK);
                EXPECT_EQ(m_store->create(destination("192.0.2.8", thread * 1000 + i + 1)), TRAP_DESTINATION_OK);
                EXPECT_EQ(transaction.commit(), TRAP_DESTINATION_OK);
            }
        });
    }
    for (std::thread& writer : writers) writer.join();
    done = true;
    reader.join();
    EXPECT_EQ(odd, 0);
    EXPECT_THAT(rows(), SizeIs(2 * THREADS * ROWS));
}

}  // namespace

}  // namespace vrx
