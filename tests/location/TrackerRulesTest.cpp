#include "location/TrackerRules.hpp"

#include <gtest/gtest.h>

namespace bvgeo {
namespace {

TEST(TrackerRules, DuplicateFilterDropsOnlyNearAndRecentRepeats) {
    struct Case {
        double distance;
        std::int64_t now, last, linger;
        bool duplicate;
    } cases[] = {
        {0.5, 1000, 900, 300, true},        // near and recent
        {0.5, 1200, 900, 300, false},       // exactly lingerTime later: accepted
        {0.5, 1199, 900, 300, true},        // one second short of it
        {1.0, 1000, 999, 300, false},       // exactly one metre: accepted
        {0.999, 1000, 999, 300, true},
        {0.0, 1'500'000'000, 0, 300, false}, // first update ever
    };
    for (const auto& c : cases)
        EXPECT_EQ(isDuplicateUpdate(c.distance, c.now, c.last, c.linger), c.duplicate)
            << c.distance << " m, " << c.now - c.last << " s";
}

TEST(TrackerRules, FencePositionFollowsTheNewestActivation) {
    using P = LocationTrackerFencePosition;
    EXPECT_EQ(fencePositionFor({}, 10'000, 7200), P::Outside);
    EXPECT_EQ(fencePositionFor({2800}, 10'000, 7200), P::Inside);            // exactly maxLingerTime
    EXPECT_EQ(fencePositionFor({2799}, 10'000, 7200), P::InsideForTooLong);  // one second more
    EXPECT_EQ(fencePositionFor({0, 9940}, 10'000, 7200), P::Inside);         // a fresh one keeps it Inside
    EXPECT_EQ(fencePositionFor({-50}, 10'000, 7200), P::InsideForTooLong);   // newest never below 0
    EXPECT_EQ(rawValue(P::InsideForTooLong), "InsideForTooLong"); // as the "configure with" line shows it
}

TEST(TrackerRules, BatteryLineShowsStateAndPercentWithOneDecimal) {
    EXPECT_EQ(batteryStatusLine(BatteryState::Unknown, -1.0f), "Battery status (Unknown): -100.0");
    EXPECT_EQ(batteryStatusLine(BatteryState::Unplugged, 0.5f), "Battery status (Unplugged): 50.0");
    EXPECT_EQ(batteryStatusLine(BatteryState::Charging, 0.87f), "Battery status (Charging): 87.0");
    EXPECT_EQ(batteryStatusLine(BatteryState::Full, 1.0f), "Battery status (Full): 100.0");
}

} // namespace
} // namespace bvgeo
