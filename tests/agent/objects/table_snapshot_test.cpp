#include "host/agent/objects/table_snapshot.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <random>
#include <set>
#include <string>

#include "tests/agent/mib_samples.h"

namespace vrx {

using testing::ElementsAre;
using Found = TableSnapshot::Found;

namespace {

// Rows 2, 7, 30; row 7 has no Counter64.
class TableSnapshotTest : public testing::Test {
protected:
    TableSnapshotTest() : model(loadMib(sampleMib())), snapshot(table(), 0, TableSnapshot::Clock::now()) {
        snapshot.add(30, *makeRow(30, textCell(1, "thirty"), numberCell(2, 30), numberCell(3, 1), numberCell(4, 300)));
        snapshot.add(2, *makeRow(2, textCell(1, "two"), numberCell(2, 2), numberCell(3, 1), numberCell(4, 20)));
        snapshot.add(7, *makeRow(7, textCell(1, ""), numberCell(2, 7), numberCell(3, 1)));
        EXPECT_EQ(snapshot.finish(), 0U);
    }

    const MibObject& table() const { return *model.find(SAMPLE_TABLE); }

    // The name after `suffix`, below the root.
    std::string after(const OidVector& suffix, bool inclusive = false) const {
        const auto instance = snapshot.next(suffix.data(), suffix.size(), inclusive);
        if (!instance) return "end";
        const OidVector name = snapshot.name(*instance);
        return oidText(name.data() + SAMPLE_TABLE.size(), name.size() - SAMPLE_TABLE.size());
    }

    Found find(const OidVector& suffix) const {
        TableSnapshot::Instance instance{};
        return snapshot.find(suffix.data(), suffix.size(), instance);
    }

    MibModel model;
    TableSnapshot snapshot;
};

}  // namespace

TEST_F(TableSnapshotTest, WalksColumnByColumnInTheOrderOfRowNumbers) {
    std::vector<std::string> names;
    OidVector at;
    while (const auto instance = snapshot.next(at.data(), at.size(), false)) {
        const OidVector name = snapshot.name(*instance);
        at.assign(name.begin() + static_cast<std::ptrdiff_t>(SAMPLE_TABLE.size()), name.end());
        names.push_back(oidText(at));
    }
    EXPECT_THAT(names, ElementsAre("1.1.2", "1.1.7", "1.1.30", "1.2.2", "1.2.7", "1.2.30", "1.3.2", "1.3.7", "1.3.30",
                                   "1.4.2", "1.4.30"));
}

// Of three hundred rows some are changed, added and taken away, again and again: it is what reading all of them gives.
TEST_F(TableSnapshotTest, ReplacedRowsMakeWhatReadingAllOfThemMakes) {
    std::mt19937 random(1);
    std::map<std::uint32_t, std::unique_ptr<CTLVRecordV3>> rows;
    const auto change = [&] {
        const auto number = static_cast<std::uint32_t>(1 + random() % 300);
        if (random() % 3 == 0) {
            rows.erase(number);
        } else {
            const std::string text(random() % 400, static_cast<char>('a' + random() % 26));
            rows[number] = random() % 4 == 0 ? makeRow(number, textCell(1, text.c_str()))
                                             : makeRow(number, textCell(1, text.c_str()), numberCell(2, random() % 9),
                                                       numberCell(4, random()));
        }
        return number;
    };
    const auto read = [&] {
        auto whole = std::make_unique<TableSnapshot>(table(), 0, TableSnapshot::Clock::now());
        for (const auto& [number, record] : rows) whole->add(number, *record);
        whole->finish();
        return whole;
    };
    for (int i = 0; i < 500; ++i) change();
    std::unique_ptr<const TableSnapshot> last = read();
    for (int round = 0; round < 40; ++round) {
        const auto base = std::move(last);
        const auto baseAgain = read();
        std::set<std::uint32_t> changed;
        for (std::size_t count = random() % 8; count > 0; --count) changed.insert(change());
        auto next = std::make_unique<TableSnapshot>(*base, 1, TableSnapshot::Clock::now(), changed.size());
        for (const std::uint32_t number : changed) {
            next->replace(number, rows.count(number) == 0 ? nullptr : rows.at(number).get());
        }
        EXPECT_TRUE(next->showsSameAs(*read())) << round;
        EXPECT_TRUE(base->showsSameAs(*baseAgain)) << "its own rows are as they were";
        last = std::move(next);  // the one before goes, and its texts stay
    }
}

TEST_F(TableSnapshotTest, ADifferenceOfOneValueIsSeen) {
    TableSnapshot same(snapshot, 1, TableSnapshot::Clock::now(), 1);
    EXPECT_TRUE(same.showsSameAs(snapshot));
    const auto row = makeRow(7, textCell(1, ""), numberCell(2, 8), numberCell(3, 1));
    same.replace(7, row.get());
    EXPECT_FALSE(same.showsSameAs(snapshot));
    TableSnapshot fewer(snapshot, 1, TableSnapshot::Clock::now(), 1);
    fewer.replace(7, nullptr);
    EXPECT_FALSE(fewer.showsSameAs(snapshot));
    EXPECT_EQ(fewer.rows(), 2U);
}

TEST_F(TableSnapshotTest, ATextThatComesAgainInItsColumnIsKeptOnce) {
    TableSnapshot rows(table(), 0, TableSnapshot::Clock::now());
    const std::vector<const char*> texts = {"a fault", "another", "a fault", "a fault", "a third one", "a fault", ""};
    for (std::uint32_t row = 0; row < texts.size(); ++row)
        rows.add(row + 1, *makeRow(row + 1, textCell(1, texts[row])));
    rows.finish();
    const auto at = [&rows](std::size_t row) { return rows.value({0, row}).octets; };
    for (std::size_t row = 0; row < texts.size(); ++row) EXPECT_EQ(at(row), texts[row]) << row;
    EXPECT_EQ(at(2).data(), at(3).data());
    EXPECT_EQ(at(3).data(), at(5).data()) << "a text of another length does not push it out";
    EXPECT_NE(at(0).data(), at(1).data());
}

TEST_F(TableSnapshotTest, SteppingByInstanceGivesTheSameNames) {
    auto byName = snapshot.next(nullptr, 0, false);
    auto byStep = byName;
    while (byName) {
        ASSERT_TRUE(byStep);
        EXPECT_EQ(snapshot.name(*byName), snapshot.name(*byStep));
        const OidVector name = snapshot.name(*byName);
        byName = snapshot.next(name.data() + SAMPLE_TABLE.size(), name.size() - SAMPLE_TABLE.size(), false);
        byStep = snapshot.next(*byStep);
    }
    EXPECT_FALSE(byStep);
}

TEST_F(TableSnapshotTest, GoesOnAfterNamesOfNoInstance) {
    EXPECT_EQ(after({}), "1.1.2");
    EXPECT_EQ(after({0, 99, 99}), "1.1.2");
    EXPECT_EQ(after({1}), "1.1.2");
    EXPECT_EQ(after({1, 0, 5}), "1.1.2");
    EXPECT_EQ(after({1, 2}), "1.2.2");
    EXPECT_EQ(after({1, 2, 0}), "1.2.2");
    EXPECT_EQ(after({1, 2, 6}), "1.2.7");
    EXPECT_EQ(after({1, 2, 7, 0}), "1.2.30") << "a longer name stands after its row";
    EXPECT_EQ(after({1, 2, 6, 9}), "1.2.7");
    EXPECT_EQ(after({1, 2, 4294967295}), "1.3.2");
    EXPECT_EQ(after({1, 4, 2}), "1.4.30") << "row 7 has no such instance";
    EXPECT_EQ(after({1, 4, 30}), "end");
    EXPECT_EQ(after({1, 5}), "end");
    EXPECT_EQ(after({2}), "end");
}

TEST_F(TableSnapshotTest, AnInclusiveStartCountsItself) {
    EXPECT_EQ(after({1, 2, 7}, true), "1.2.7");
    EXPECT_EQ(after({1, 2, 7}, false), "1.2.30");
    EXPECT_EQ(after({1, 2, 7, 0}, true), "1.2.30");
}

TEST_F(TableSnapshotTest, TellsUnknownColumnsFromUnknownRows) {
    EXPECT_EQ(find({1, 1, 2}), Found::Instance);
    EXPECT_EQ(find({1, 1, 3}), Found::NoSuchInstance);
    EXPECT_EQ(find({1, 4, 7}), Found::NoSuchInstance) << "the row lacks the column";
    EXPECT_EQ(find({1, 1, 2, 0}), Found::NoSuchInstance);
    EXPECT_EQ(find({1, 8, 2}), Found::NoSuchObject);
    EXPECT_EQ(find({1, 9, 2}), Found::NoSuchObject) << "the index column is not accessible";
    EXPECT_EQ(find({2, 1, 2}), Found::NoSuchObject);
    EXPECT_EQ(find({1, 1}), Found::NoSuchInstance) << "a column is an object";
    EXPECT_EQ(find({1, 9}), Found::NoSuchObject);
    EXPECT_EQ(find({1}), Found::NoSuchObject) << "an entry is none";
    EXPECT_EQ(find({}), Found::NoSuchObject);
}

TEST_F(TableSnapshotTest, FillsVarbindsByTheColumnsSyntax) {
    netsnmp_variable_list varbind{};
    ASSERT_TRUE(snapshot.fill({0, 0}, &varbind));
    EXPECT_EQ(varbind.type, ASN_OCTET_STR);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(varbind.val.string), varbind.val_len), "two");
    ASSERT_TRUE(snapshot.fill({0, 1}, &varbind));
    EXPECT_EQ(varbind.type, ASN_OCTET_STR);
    EXPECT_EQ(varbind.val_len, 0U);
    ASSERT_TRUE(snapshot.fill({1, 2}, &varbind));
    EXPECT_EQ(varbind.type, ASN_GAUGE);
    EXPECT_EQ(*varbind.val.integer, 30);
    ASSERT_TRUE(snapshot.fill({3, 2}, &varbind));
    EXPECT_EQ(varbind.type, ASN_COUNTER64);
    EXPECT_EQ(varbind.val.counter64->low, 300U);
    snmp_free_var_internals(&varbind);
}

TEST_F(TableSnapshotTest, OfRowsWithOneNumberTheFirstStays) {
    TableSnapshot twice(table(), 0, TableSnapshot::Clock::now());
    twice.add(5, *makeRow(5, textCell(1, "first")));
    twice.add(4, *makeRow(4, textCell(1, "four")));
    twice.add(5, *makeRow(5, textCell(1, "second")));
    EXPECT_EQ(twice.finish(), 1U);
    EXPECT_EQ(twice.rows(), 2U);
    netsnmp_variable_list varbind{};
    ASSERT_TRUE(twice.fill({0, 1}, &varbind));
    EXPECT_EQ(std::string(reinterpret_cast<char*>(varbind.val.string), varbind.val_len), "first");
    snmp_free_var_internals(&varbind);
}

TEST_F(TableSnapshotTest, AnEmptyTableHasNoInstance) {
    TableSnapshot empty(table(), 0, TableSnapshot::Clock::now());
    empty.finish();
    TableSnapshot::Instance instance{};
    const OidVector suffix = {1, 1, 2};
    EXPECT_EQ(empty.find(suffix.data(), suffix.size(), instance), Found::NoSuchInstance);
    EXPECT_FALSE(empty.next(nullptr, 0, false));
}

TEST(ScalarSnapshot, IsTheInstanceZero) {
    const MibModel model = loadMib(sampleMib());
    TableSnapshot scalar(*model.find(SAMPLE_SCALAR), 0, TableSnapshot::Clock::now());
    scalar.add(1, *makeRow(CTLVRecordV3::NO_IDENTIFIER, numberCell(0, 42, CTLVCell::TLV_TYPE_UINT, 4)));
    scalar.finish();
    TableSnapshot::Instance instance{};
    const OidVector zero = {0};
    const OidVector one = {1};
    const OidVector longer = {0, 0};
    EXPECT_EQ(scalar.find(zero.data(), zero.size(), instance), Found::Instance);
    EXPECT_EQ(scalar.find(one.data(), one.size(), instance), Found::NoSuchInstance);
    EXPECT_EQ(scalar.find(longer.data(), longer.size(), instance), Found::NoSuchInstance);
    EXPECT_EQ(scalar.find(nullptr, 0, instance), Found::NoSuchInstance);
    ASSERT_TRUE(scalar.next(nullptr, 0, false));
    EXPECT_EQ(oidText(scalar.name(*scalar.next(nullptr, 0, false))), oidText(SAMPLE_SCALAR) + ".0");
    EXPECT_FALSE(scalar.next(zero.data(), zero.size(), false));
    EXPECT_TRUE(scalar.next(zero.data(), zero.size(), true));
}

}  // namespace vrx
