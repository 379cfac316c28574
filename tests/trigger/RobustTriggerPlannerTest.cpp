// The robust planner over sequences of fixes, with the engine's part played by a
// small stand-in that applies each plan's steps to the stays, as the engine does.
#include "trigger/RobustTriggerPlanner.hpp"

#include <GeographicLib/Geodesic.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace bvgeo {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

constexpr double kLat = 51.34, kLon = 0.73, kRadius = 200;
constexpr std::int64_t kT0 = 1'500'000'000;

class Walk {
public:
    explicit Walk(TriggerFilterOptions options = robust())
        : options_(options),
          index_(std::make_shared<FenceIndex>(
              FenceList{std::make_shared<Fence>("hall", "Hall", kLat, kLon, kRadius, std::vector<std::string>{}, true)})) {
        options_.robustTriggers = true;
    }
    static TriggerFilterOptions robust() { return {}; }

    // A fix `rim` metres from the hall's rim (negative inside), due east, `at`
    // seconds after kT0; what the engine did with it, as "enter"/"exit"/"linger".
    std::vector<std::string> fix(double rim, std::int64_t at, double accuracy = 5, FixMode mode = FixMode::ThreeD,
                                 double bearing = 90) {
        Location location{};
        GeographicLib::Geodesic::WGS84().Direct(kLat, kLon, bearing, kRadius + rim, location.latitude,
                                                location.longitude);
        location.horizontalAccuracy = accuracy;
        location.fixMode = mode;
        return deliver(location, kT0 + at);
    }

    std::vector<std::string> deliver(const Location& location, std::int64_t now, bool stored = true) {
        const FenceList inside = index_->insideFences(location.latitude, location.longitude);
        auto plan = planner.plan(inside, {location, index_}, stays, now, 300, 7200, options_);
        for (auto& note : plan.notes) notes.push_back(note);
        const FenceList& decided = plan.fences.empty() ? inside : plan.fences;
        std::vector<std::string> events;
        std::vector<ActiveStay> next = stays;
        for (const auto& step : plan.steps) {
            switch (step.type) {
            case TriggerType::Enter:
                events.push_back("enter");
                next.push_back({decided[step.index]->id, now, now});
                break;
            case TriggerType::Linger:
                events.push_back("linger");
                for (auto& stay : next)
                    if (stay.fenceId == decided[step.index]->id) stay.lastTriggerAt = now;
                break;
            case TriggerType::Exit:
                events.push_back("exit");
                std::erase_if(next, [&](const ActiveStay& s) { return s.fenceId == stays[step.index].fenceId; });
                break;
            }
        }
        if (stored) stays = std::move(next); // a failed job keeps what the table held
        return events;
    }

    RobustTriggerPlanner planner;
    std::vector<ActiveStay> stays;
    std::vector<std::string> notes;

private:
    TriggerFilterOptions options_;
    std::shared_ptr<FenceIndex> index_;
};

TEST(RobustTriggerPlanner, AReceiverStandingAtTheRimEntersOnceAndIsNeverLetOut) {
    Walk walk;
    // A fix a second for ten minutes, wandering 20 m either way of a point 12 m inside.
    std::vector<std::pair<int, std::string>> events;
    for (int t = 0; t < 600; ++t)
        for (auto& e : walk.fix(-12 + 20 * std::sin(t * 0.2), t)) events.emplace_back(t, e);
    ASSERT_EQ(events.size(), 2u) << ::testing::PrintToString(events);
    EXPECT_EQ(events[0].second, "enter");
    EXPECT_EQ(events[1], std::make_pair(events[0].first + 300, std::string("linger")))
        << "an active fence kept by the buffer lingers as it would inside";
    // Each reason once, not once per fix.
    EXPECT_EQ(std::count_if(walk.notes.begin(), walk.notes.end(),
                            [](const std::string& n) { return n.starts_with("Fence kept by the exit buffer: hall"); }),
              1);
    EXPECT_LE(walk.notes.size(), 3u) << ::testing::PrintToString(walk.notes);
    EXPECT_TRUE(walk.planner.rememberedFences() <= 1);
}

TEST(RobustTriggerPlanner, RealMovementEntersAndLeavesOnceConfirmedAndTheDwellHoldsShortVisits) {
    Walk walk;
    EXPECT_TRUE(walk.fix(-50, 0).empty());
    EXPECT_TRUE(walk.planner.awaitingConfirmation());
    EXPECT_TRUE(walk.fix(-60, 5).empty());
    EXPECT_THAT(walk.fix(-70, 10), ElementsAre("enter")) << "three fixes over ten seconds";
    EXPECT_FALSE(walk.planner.awaitingConfirmation());
    // Out again at once: the exit waits for the dwell, then comes with a fix.
    for (int t = 20; t < 130; t += 5) EXPECT_TRUE(walk.fix(100, t).empty()) << t;
    EXPECT_THAT(walk.fix(100, 130), ElementsAre("exit"));
    // Back in straight away: the re-entry waits for the dwell after the exit too.
    for (int t = 135; t < 250; t += 5) EXPECT_TRUE(walk.fix(-100, t).empty()) << t;
    EXPECT_THAT(walk.fix(-100, 250), ElementsAre("enter"));
}

TEST(RobustTriggerPlanner, OneFixHandedOverByBothTrackersCountsOnce) {
    TriggerFilterOptions options;
    options.confirmSeconds = 0;
    Walk walk(options);
    EXPECT_TRUE(walk.fix(-50, 0).empty());
    EXPECT_TRUE(walk.fix(-50, 0).empty());
    EXPECT_TRUE(walk.fix(-51, 1).empty());
    EXPECT_THAT(walk.fix(-52, 2), ElementsAre("enter"));
}

TEST(RobustTriggerPlanner, BadFixesChangeNothingButNoFenceIsStuck) {
    Walk walk;
    for (int t : {0, 5, 10}) walk.fix(-50, t);
    ASSERT_EQ(walk.stays.size(), 1u);
    // Far outside, but each of these is no fix to go by.
    EXPECT_TRUE(walk.fix(500, 200, 500).empty());                          // 500 m accuracy
    EXPECT_TRUE(walk.fix(500, 205, 5, FixMode::TwoD).empty());             // 2D
    EXPECT_TRUE(walk.fix(500, 210, std::nan("")).empty());                  // unknown accuracy...
    EXPECT_TRUE(walk.fix(-50, 215).empty());                               // ...and back inside
    EXPECT_EQ(walk.stays.size(), 1u);
    EXPECT_THAT(walk.notes, ::testing::Contains("Fence kept, fix rejected: hall (accuracy 500 m, limit 100 m)"));
    // A jump of 1,000 km and back is rejected.
    Location far{};
    far.latitude = kLat + 9;
    far.longitude = kLon;
    EXPECT_TRUE(walk.deliver(far, kT0 + 220).empty());
    EXPECT_TRUE(walk.fix(-50, 225).empty());
    EXPECT_EQ(walk.stays.size(), 1u);
    // A real journey of 1,000 km: its fixes keep coming from there, and are believed.
    std::vector<std::string> events;
    for (int i = 0; i < 6; ++i) {
        far.longitude = kLon + i * 0.0001;
        for (auto& e : walk.deliver(far, kT0 + 300 + 5 * i)) events.push_back(e);
    }
    EXPECT_THAT(events, ElementsAre("exit"));
    EXPECT_TRUE(walk.stays.empty());
}

TEST(RobustTriggerPlanner, AChangeTheEngineCouldNotStoreIsDecidedAgainWithoutADwell) {
    Walk walk;
    walk.fix(-50, 0);
    walk.fix(-50.5, 5);
    Location inside{};
    GeographicLib::Geodesic::WGS84().Direct(kLat, kLon, 90, kRadius - 51, inside.latitude, inside.longitude);
    EXPECT_THAT(walk.deliver(inside, kT0 + 10, false), ElementsAre("enter")); // not stored
    EXPECT_TRUE(walk.stays.empty());
    walk.fix(-52, 20);
    walk.fix(-53, 25);
    EXPECT_THAT(walk.fix(-54, 30), ElementsAre("enter")) << "no dwell after an enter that did not happen";
}

} // namespace
} // namespace bvgeo
