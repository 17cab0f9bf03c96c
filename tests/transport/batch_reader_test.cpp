#include "host/transport/batch_reader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <deque>
#include <stdexcept>
#include <vector>

namespace vrx {

namespace {

using testing::ElementsAre;

// Gives the batches one after the other, nothing after them.
class Batches {
public:
    explicit Batches(std::deque<Batch> batches) : m_batches(std::move(batches)) {}

    BatchesRead readAfter(unsigned long long number) {
        return readBatches(number, [this](unsigned long long after) -> std::optional<Batch> {
            asked.push_back(after);
            if (m_batches.empty()) return std::nullopt;
            const Batch batch = m_batches.front();
            m_batches.pop_front();
            return batch;
        });
    }

    std::vector<unsigned long long> asked;

private:
    std::deque<Batch> m_batches;
};

}  // namespace

TEST(BatchReader, AsksAfterTheLastNumberUntilNothingMoreIsWanted) {
    Batches batches({{50, 57}, {50, 4294967295ULL}, {3, 18446744073709551615ULL}});
    const BatchesRead read = batches.readAfter(7);
    EXPECT_EQ(read.end, BatchEnd::Complete);
    EXPECT_EQ(read.after, 18446744073709551615ULL);
    EXPECT_THAT(batches.asked, ElementsAre(7, 57, 4294967295ULL, 18446744073709551615ULL));
}

TEST(BatchReader, NoBatchIsACompleteList) {
    Batches batches({});
    EXPECT_EQ(batches.readAfter(0).end, BatchEnd::Complete);
    EXPECT_THAT(batches.asked, ElementsAre(0));
}

TEST(BatchReader, ABatchThatDoesNotGoOnEndsTheReading) {
    Batches same({{2, 6}, {2, 6}, {2, 9}});
    BatchesRead read = same.readAfter(0);
    EXPECT_EQ(read.end, BatchEnd::NoProgress);
    EXPECT_EQ(read.after, 6U);
    EXPECT_THAT(same.asked, ElementsAre(0, 6));

    Batches back({{2, 6}, {2, 5}});
    EXPECT_EQ(back.readAfter(0).end, BatchEnd::NoProgress);
}

TEST(BatchReader, AListOfAMillionRecordsIsRead) {
    Batches batches({{LONGEST_LIST - 1, 1}, {1, 2}});
    EXPECT_EQ(batches.readAfter(0).end, BatchEnd::Complete);
    EXPECT_EQ(LONGEST_LIST, 1000000U);
}

TEST(BatchReader, ALongerListDoesNotEnd) {
    Batches batches({{LONGEST_LIST, 1}, {1, 2}, {1, 3}});
    EXPECT_EQ(batches.readAfter(0).end, BatchEnd::TooMany);
    EXPECT_THAT(batches.asked, ElementsAre(0, 1));
}

TEST(BatchReader, WhatIsThrownEndsTheReading) {
    const auto fail = [](unsigned long long) -> std::optional<Batch> { throw std::runtime_error("cannot ask"); };
    EXPECT_THROW(readBatches(0, fail), std::runtime_error);
}

}  // namespace vrx
