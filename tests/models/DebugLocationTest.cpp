#include "support/LibraryTest.hpp"

#include "datastore/BV1Database.hpp"
#include "models/DebugLocation.hpp"

#include <gmock/gmock.h>

namespace bvgeo::testing {
namespace {

using DebugLocationTest = LibraryTest;

TEST_F(DebugLocationTest, HistoryRoundTripsInSavedOrder) {
    sim().clock->set(1'456'841'109.75);
    ASSERT_TRUE(DebugLocation::saveDebugLocation(52.520008, 13.404954, "LocationTracker"));
    sim().clock->advance(60);
    ASSERT_TRUE(DebugLocation::saveDebugLocation(0.0, 0.0, "LocationTrackerSignificantChanges"));
    sim().clock->advance(3'000'000'000.0); // past 2038: times must not wrap at 32 bits
    ASSERT_TRUE(DebugLocation::saveDebugLocation(-33.8688197, 151.2092955, "LocationTracker"));

    auto history = DebugLocation::getDebugLocations();
    ASSERT_EQ(history.size(), 3u);
    EXPECT_EQ(history[0]->latitude, 52.520008);
    EXPECT_EQ(history[0]->longitude, 13.404954);
    EXPECT_EQ(history[0]->type, "LocationTracker");
    EXPECT_EQ(history[0]->timestamp, 1'456'841'109);
    EXPECT_EQ(history[1]->timestamp, 1'456'841'169);
    EXPECT_EQ(history[2]->latitude, -33.8688197);
    EXPECT_EQ(history[2]->longitude, 151.2092955);
    EXPECT_EQ(history[2]->timestamp, 4'456'841'169);

    // Stored as numbers, not text, so the debug console can compare them.
    std::vector<std::string> types;
    auto collect = [&](const DatabaseRow& row) { types.push_back(row.stringForColumn("t")); };
    BV1Database().getDatabase().executeQuery("SELECT typeof(latitude) AS t FROM locations", {}, collect);
    EXPECT_THAT(types, ::testing::ElementsAre("real", "real", "real"));
}

} // namespace
} // namespace bvgeo::testing
