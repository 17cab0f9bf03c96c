#include "host/agent/objects/event_rows.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace vrx {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Optional;

TEST(EventRowsTest, GivesEachRowOnceThatEventsChanged) {
    EventRows rows;
    rows.add(41, 7);
    rows.add(42, 3);
    rows.add(43, 7);
    rows.add(44, 9);
    EXPECT_THAT(rows.between(40, 44), Optional(ElementsAre(3, 7, 9)));
    EXPECT_THAT(rows.between(41, 43), Optional(ElementsAre(3, 7)));
    EXPECT_THAT(rows.between(44, 44), Optional(IsEmpty()));
    EXPECT_EQ(rows.between(39, 44), std::nullopt) << "40 is not known";
    EXPECT_EQ(rows.between(43, 45), std::nullopt) << "45 has not come";
    EXPECT_EQ(rows.between(44, 43), std::nullopt) << "another store";
}

TEST(EventRowsTest, NothingIsKnownBeforeTheFirstEvent) {
    const EventRows rows;
    EXPECT_EQ(rows.between(0, 1), std::nullopt);
    EXPECT_THAT(rows.between(5, 5), Optional(IsEmpty()));
}

TEST(EventRowsTest, AGapIsANewBeginning) {
    EventRows rows;
    rows.add(1, 1);
    rows.add(3, 3);
    EXPECT_EQ(rows.between(0, 3), std::nullopt);
    EXPECT_THAT(rows.between(2, 3), Optional(ElementsAre(3)));
    rows.add(2, 2);  // of another store
    EXPECT_EQ(rows.between(1, 3), std::nullopt);
    EXPECT_THAT(rows.between(1, 2), Optional(ElementsAre(2)));
}

TEST(EventRowsTest, WhatIsForgottenIsCounted) {
    EventRows rows;
    rows.add(1, 1);
    EXPECT_EQ(rows.forgotten(), 0U);
    rows.forget();
    EXPECT_EQ(rows.forgotten(), 1U);
    EXPECT_EQ(rows.between(0, 1), std::nullopt);
    rows.add(2, 2);
    EXPECT_THAT(rows.between(1, 2), Optional(ElementsAre(2)));
}

TEST(EventRowsTest, KnowsTheLastEventsOnly) {
    EventRows rows;
    for (std::uint32_t event = 1; event <= EventRows::MOST + 10; ++event) rows.add(event, event);
    EXPECT_EQ(rows.between(9, EventRows::MOST + 10), std::nullopt);
    const auto all = rows.between(10, EventRows::MOST + 10);
    ASSERT_TRUE(all);
    EXPECT_EQ(all->size(), EventRows::MOST);
    EXPECT_EQ(all->front(), 11U);
    EXPECT_EQ(all->back(), EventRows::MOST + 10);
}

}  // namespace vrx
