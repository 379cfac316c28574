#include "support/LibraryTest.hpp"

#include "datastore/BV1Database.hpp"
#include "models/ActiveFence.hpp"
#include "models/Fence.hpp"
#include "models/Trigger.hpp"

#include <bvgeo/BVGeoTracker.hpp>

#include <nlohmann/json.hpp>

namespace bvgeo::testing {
namespace {

using ::testing::ElementsAre;

class TriggerTest : public LibraryTest {};

TEST_F(TriggerTest, TriggersAccumulateAndListInOrder) {
    Trigger enter("D1", TriggerType::Enter, 1'500'000'000, "42", "O'Brien's Hall", TriggerLocationEventType::Regular);
    Trigger linger("D1", TriggerType::Linger, 5'000'000'000, "42", "Hall", TriggerLocationEventType::SignificantChanges);
    ASSERT_TRUE(Trigger::save(enter));
    ASSERT_TRUE(Trigger::save(enter));
    ASSERT_TRUE(Trigger::save(linger));

    auto all = BVGeoTracker::sharedInstance().listTriggers();
    ASSERT_EQ(all.size(), 3u);
    EXPECT_EQ(all[1]->getFenceName(), "O'Brien's Hall");
    EXPECT_EQ(all[1]->getTimestamp(), 1'500'000'000);
    EXPECT_EQ(all[1]->locationEvent, TriggerLocationEventType::Regular);
    EXPECT_EQ(all[2]->getEvent(), "linger");
    EXPECT_EQ(all[2]->getTimestamp(), 5'000'000'000) << "times are 64-bit end to end";
    EXPECT_EQ(all[2]->locationEvent, TriggerLocationEventType::SignificantChanges);

    EXPECT_EQ(linger.toParameters().dump(),
              R"({"deviceId":"D1","event":"linger","timestamp":5000000000,"fenceId":"42"})");
}

TEST_F(TriggerTest, RowsWithAnUnknownEventAreSkipped) {
    ASSERT_TRUE(BV1Database::executeStatements(
        "INSERT INTO trigger (device_id, event, timestamp) VALUES ('D', 'Enter', 1);"
        "INSERT INTO trigger (device_id, event, timestamp, location_event) VALUES ('D', 'exit', 2, NULL);"));
    auto all = Trigger::list();
    ASSERT_EQ(all.size(), 1u);
    EXPECT_EQ(all[0]->event, TriggerType::Exit);
    EXPECT_EQ(all[0]->getFenceId(), "");
}

TEST_F(TriggerTest, ActiveFencesJoinTheFenceTableAndReplaceById) {
    ActiveFence hall("4'2", 1'500'000'000, "Main Hall");
    ASSERT_TRUE(Fence::save(Fence("4'2", "Main Hall", 1, 1, 10, {}, true)));
    ASSERT_TRUE(ActiveFence::save(hall));
    hall.lastTriggerAt = 1'500'000'300;
    ASSERT_TRUE(ActiveFence::save(hall));
    ASSERT_TRUE(ActiveFence::save(ActiveFence("orphan", 7)));

    auto active = ActiveFence::getActiveFences();
    ASSERT_EQ(active.size(), 1u) << "one row per fence id; stays of unknown fences are hidden";
    EXPECT_EQ(active[0]->fenceId, "4'2");
    EXPECT_EQ(active[0]->lastTriggerAt, 1'500'000'300);

    // A renamed fence shows its new name; a fence stored again brings its stay back.
    ASSERT_TRUE(Fence::save(Fence("4'2", "Great Hall", 1, 1, 10, {}, true)));
    ASSERT_TRUE(Fence::save(Fence("orphan", "Found", 1, 1, 10, {}, true)));
    active = ActiveFence::getActiveFences();
    ASSERT_EQ(active.size(), 2u);
    EXPECT_EQ(active[0]->fenceName, "Great Hall");
    EXPECT_EQ(active[1]->fenceName, "Found");

    EXPECT_TRUE(ActiveFence::remove("unknown"));
    EXPECT_TRUE(ActiveFence::remove("4'2"));
    EXPECT_EQ(ActiveFence::getActiveFences().size(), 1u);
}

} // namespace
} // namespace bvgeo::testing
