#include "host/agent/objects/snapshot_store.h"

#include <gtest/gtest.h>

#include "tests/agent/mib_samples.h"

namespace vrx {

using std::chrono::milliseconds;

namespace {

class SnapshotStoreTest : public testing::Test {
protected:
    SnapshotStoreTest() : model(loadMib(sampleMib())), store(limits()) {}

    static SnapshotLimits limits() {
        SnapshotLimits l;
        l.walkAge = milliseconds(10'000);
        l.freshAge = milliseconds(1'000);
        l.quietAge = milliseconds(5'000);
        l.kept = 2;
        l.walks = 3;
        return l;
    }

    SnapshotPointer taken(SnapshotStore::TimePoint when) {
        auto snapshot = std::make_shared<TableSnapshot>(*model.find(SAMPLE_TABLE), store.changes(), when);
        snapshot->finish();
        return snapshot;
    }

    SnapshotStore::TimePoint at(int time) const { return start + milliseconds(time); }

    static OidVector name(oid row) {
        OidVector result = SAMPLE_TABLE;
        result.insert(result.end(), {1, 1, row});
        return result;
    }

    MibModel model;
    SnapshotStore store;
    SnapshotStore::TimePoint start = TableSnapshot::Clock::now();
};

}  // namespace

TEST_F(SnapshotStoreTest, NothingReadIsNothingFresh) {
    EXPECT_EQ(store.fresh(start), nullptr);
}

TEST_F(SnapshotStoreTest, ASnapshotIsFreshForItsTime) {
    const auto snapshot = taken(start);
    store.put(snapshot, start);
    EXPECT_EQ(store.fresh(start + milliseconds(1'000)), snapshot);
    EXPECT_EQ(store.fresh(start + milliseconds(1'001)), nullptr);
}

TEST_F(SnapshotStoreTest, WhileChangesAreToldItIsFreshForLonger) {
    store.setChangeFeedLive([] { return true; });
    const auto snapshot = taken(start);
    store.put(snapshot, start);
    EXPECT_EQ(store.fresh(start + milliseconds(5'000)), snapshot);
    EXPECT_EQ(store.fresh(start + milliseconds(5'001)), nullptr);
}

TEST_F(SnapshotStoreTest, ChangedRowsThatWereReadDoNotMakeTheOthersYounger) {
    store.setChangeFeedLive([] { return true; });
    const auto snapshot = std::make_shared<TableSnapshot>(*taken(start), store.changes(), at(4'000), 0);
    snapshot->setOrigin({1, 0, at(0), 0});
    store.put(snapshot, at(4'000));
    EXPECT_EQ(store.fresh(at(5'000)), snapshot);
    EXPECT_EQ(store.fresh(at(5'001)), nullptr);
    const auto later = std::make_shared<TableSnapshot>(*snapshot, store.changes(), at(4'900), 0);
    later->setOrigin({2, 0, at(0), 0});
    store.put(later, at(4'900));
    EXPECT_EQ(store.fresh(at(5'800)), later);
}

TEST_F(SnapshotStoreTest, AChangeMakesItStaleAtOnceAlsoWhileChangesAreTold) {
    store.setChangeFeedLive([] { return true; });
    store.put(taken(start), start);
    store.markChanged();
    EXPECT_EQ(store.fresh(start), nullptr);
}

TEST_F(SnapshotStoreTest, WhenChangesAreNotToldAnyMoreTheShortAgeHoldsAtOnce) {
    bool told = true;
    store.setChangeFeedLive([&told] { return told; });
    const auto snapshot = taken(start);
    store.put(snapshot, start);
    told = false;
    EXPECT_EQ(store.fresh(start + milliseconds(1'000)), snapshot);
    EXPECT_EQ(store.fresh(start + milliseconds(1'001)), nullptr);
}

TEST_F(SnapshotStoreTest, AShorterQuietAgeTakesNothingFromTheOther) {
    SnapshotLimits shorter = limits();
    shorter.quietAge = milliseconds(0);
    store.setLimits(shorter);
    store.setChangeFeedLive([] { return true; });
    const auto snapshot = taken(start);
    store.put(snapshot, start);
    EXPECT_EQ(store.fresh(start + milliseconds(1'000)), snapshot);
    EXPECT_EQ(store.fresh(start + milliseconds(1'001)), nullptr);
}

TEST_F(SnapshotStoreTest, ASnapshotThatMayStillAnswerIsNotPurged) {
    SnapshotLimits longer = limits();
    longer.quietAge = milliseconds(20'000);
    store.setLimits(longer);
    store.put(taken(start), start);
    store.setChangeFeedLive([] { return true; });
    store.purge(start + milliseconds(20'000));
    EXPECT_EQ(store.held(), 1U);
    store.purge(start + milliseconds(20'001));
    EXPECT_EQ(store.held(), 0U);
}

TEST_F(SnapshotStoreTest, AChangeMakesItStaleAtOnce) {
    store.put(taken(start), start);
    store.markChanged();
    EXPECT_EQ(store.fresh(start), nullptr);
    const auto newer = taken(start);
    store.put(newer, start);
    EXPECT_EQ(store.fresh(start), newer);
}

TEST_F(SnapshotStoreTest, AChangeDuringTheReadingMakesItStaleToo) {
    const auto begunBefore = taken(start);
    store.markChanged();
    store.put(begunBefore, start);
    EXPECT_EQ(store.fresh(start), nullptr);
}

TEST_F(SnapshotStoreTest, AClientThatGoesOnStaysInItsSnapshot) {
    const auto old = taken(start);
    store.answered("client", old, {{name(0), name(50)}}, start);
    store.markChanged();
    store.put(taken(start), start);
    EXPECT_EQ(store.ofWalk("client", name(50), start), old);
}

TEST_F(SnapshotStoreTest, ARequestOfHundredsOfVariablesIsNoWalk) {
    const auto old = taken(start);
    store.answered("client", old, std::vector<SnapshotStore::Span>(256, {name(0), name(50)}), start);
    EXPECT_EQ(store.ofWalk("client", name(50), start), old);
    store.answered("other", old, std::vector<SnapshotStore::Span>(257, {name(0), name(50)}), start);
    EXPECT_EQ(store.ofWalk("other", name(50), start), nullptr);
}

TEST_F(SnapshotStoreTest, AnAnswerThatLostItsEndIsGoneOnWithFromAnyOfItsNames) {
    const auto old = taken(start);
    store.answered("client", old, {{name(0), name(50)}}, start);
    EXPECT_EQ(store.ofWalk("client", name(20), start), old);
    EXPECT_EQ(store.ofWalk("client", name(51), start), nullptr);
}

TEST_F(SnapshotStoreTest, AnotherClientIsInNoWalk) {
    store.answered("client", taken(start), {{name(0), name(50)}}, start);
    EXPECT_EQ(store.ofWalk("other", name(50), start), nullptr);
}

TEST_F(SnapshotStoreTest, ARequestThatStartsAgainIsANewWalk) {
    store.answered("client", taken(start), {{SAMPLE_TABLE, name(50)}}, start);
    EXPECT_EQ(store.ofWalk("client", SAMPLE_TABLE, start), nullptr);
}

TEST_F(SnapshotStoreTest, APollOfOneNameIsANewWalkEachTime) {
    store.answered("client", taken(start), {{name(1), name(2)}}, start);
    EXPECT_EQ(store.ofWalk("client", name(1), start), nullptr);
}

TEST_F(SnapshotStoreTest, ARetryInAWalkStaysInTheWalk) {
    const auto snapshot = taken(start);
    store.answered("client", snapshot, {{name(0), name(50)}}, start);
    store.answered("client", snapshot, {{name(50), name(99)}}, start);
    EXPECT_EQ(store.ofWalk("client", name(50), start), snapshot);
    EXPECT_EQ(store.ofWalk("client", name(99), start), snapshot);
    EXPECT_EQ(store.ofWalk("client", name(20), start), nullptr) << "the walk has left that place";
}

TEST_F(SnapshotStoreTest, AWalkEndsAtItsAge) {
    const auto snapshot = taken(start);
    store.answered("client", snapshot, {{name(0), name(50)}}, start);
    EXPECT_EQ(store.ofWalk("client", name(50), start + milliseconds(10'000)), snapshot);
    EXPECT_EQ(store.ofWalk("client", name(50), start + milliseconds(10'001)), nullptr);
}

TEST_F(SnapshotStoreTest, SeveralWalksOfOneClientKeepTheirSnapshots) {
    const auto first = taken(start);
    const auto second = taken(start + milliseconds(1));
    store.answered("client", first, {{name(0), name(10)}}, start);
    store.answered("client", second, {{name(100), name(110)}}, start);
    EXPECT_EQ(store.ofWalk("client", name(10), start), first);
    EXPECT_EQ(store.ofWalk("client", name(110), start), second);
}

TEST_F(SnapshotStoreTest, SeveralColumnsAtOnceAreOneWalk) {
    const auto snapshot = taken(start);
    store.answered("client", snapshot, {{name(0), name(10)}, {name(1'000), name(1'010)}}, start);
    EXPECT_EQ(store.ofWalk("client", name(1'010), start), snapshot);
}

TEST_F(SnapshotStoreTest, WalksInTheOldestSnapshotAreForgottenWhenThereAreTooMany) {
    const auto first = taken(start);
    const auto second = taken(start + milliseconds(1));
    store.answered("a", first, {{name(0), name(10)}}, start);
    store.answered("b", second, {{name(0), name(10)}}, start);
    const auto third = taken(start + milliseconds(2));
    store.put(third, start);
    EXPECT_EQ(store.held(), 2U);
    EXPECT_EQ(store.ofWalk("a", name(10), start), nullptr);
    EXPECT_EQ(store.ofWalk("b", name(10), start), second);
    EXPECT_EQ(store.fresh(start), third);
}

TEST_F(SnapshotStoreTest, TheLongestUnusedWalkIsForgottenWhenThereAreTooMany) {
    const auto snapshot = taken(start);
    for (const char* client : {"a", "b", "c", "d"}) store.answered(client, snapshot, {{name(0), name(10)}}, start);
    EXPECT_EQ(store.ofWalk("a", name(10), start), nullptr);
    EXPECT_EQ(store.ofWalk("b", name(10), start), snapshot);
}

TEST_F(SnapshotStoreTest, PurgeLetsGoOfEverythingPastItsAge) {
    const auto snapshot = taken(start);
    store.put(snapshot, start);
    store.answered("client", snapshot, {{name(0), name(10)}}, start);
    store.purge(start + milliseconds(10'001));
    EXPECT_EQ(store.held(), 0U);
    EXPECT_EQ(snapshot.use_count(), 1);
}

}  // namespace vrx
