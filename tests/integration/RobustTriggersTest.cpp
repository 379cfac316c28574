// Robust triggers through the whole road: positions from the simulated location
// service, fences from the server, triggers to the delegate and the log.
#include "support/WholeRoad.hpp"

#include <GeographicLib/Geodesic.hpp>

namespace bvgeo::testing {
namespace {

using ::testing::ElementsAre;

constexpr const char* kHallZone = R"({"fences":[
  {"_id":"f1","name":"Hall","location":{"type":"Point","coordinates":[0.73,51.34]},"radius":100}]})";
constexpr double kHallRadius = 100;

class RobustTriggersTest : public WholeRoadTest {
protected:
    // The host of WholeRoadTest with robust triggers on and a 30 m distance filter,
    // so that the filter's lifting while a change waits can be seen.
    void startRobustHost() {
        auto& t = BVGeoTracker::sharedInstance();
        t.setEnvironmentURLs(BVEnvironment::DEVELOPMENT, {server->url("/api/v1/app/"), server->url("/assets/")});
        t.configure("e2e", TriggerModes::Both, BVEnvironments::Development);
        t.setParameters(kLocationAccuracyNearestTenMeters, 30.0, 3600, 0.2, 300, 7200, 30.0);
        extended.triggerFilter.robustTriggers = true;
        t.setExtendedOptions(extended);
        t.setTriggerDelegate(delegate);
        t.start();
    }
    // A fix `rim` metres from the Hall's rim (negative inside), due east of its centre.
    void at(double rim, double seconds) {
        double latitude = 0, longitude = 0;
        GeographicLib::Geodesic::WGS84().Direct(kLat, kLon, 90, kHallRadius + rim, latitude, longitude);
        deliver(latitude, longitude, kT0 + seconds);
    }
    // The standard tracker's distance filter as last set.
    double distanceFilter() { return *sim().locationService->managerStates().at(0).distanceFilter; }
};

TEST_F(RobustTriggersTest, AStillDeviceAtTheRimIsHeldWhileRealMovementEntersAndLeaves) {
    setZoneAnswer({200, kHallZone, ""});
    startRobustHost();

    at(-30, 0);
    EXPECT_TRUE(delegate->received.empty()) << "one fix inside is not yet an enter";
    EXPECT_LT(distanceFilter(), 0) << "while the enter waits, every fix comes";
    at(-31, 5);
    at(-32, 10);
    EXPECT_THAT(delegate->summary(), ElementsAre("enter f1 Hall"));
    EXPECT_EQ(delegate->received[0]->timestamp, static_cast<std::int64_t>(kT0 + 10));
    EXPECT_EQ(distanceFilter(), 30.0);

    // Wandering 10 to 15 m out of the fence and back, as a still receiver does.
    for (double t = 20; t < 280; t += 20) at(static_cast<int>(t) % 40 ? 12 : -20, t);
    EXPECT_EQ(delegate->received.size(), 1u) << "the exit buffer holds the fence";

    // Walking away: the exit comes with the fix that confirms it.
    at(150, 300);
    at(155, 305);
    at(160, 310);
    EXPECT_THAT(delegate->summary(), ElementsAre("enter f1 Hall", "exit f1 Hall"));
    EXPECT_EQ(delegate->received[1]->timestamp, static_cast<std::int64_t>(kT0 + 310));

    auto lines = storedLines(LogCategory::FENCE);
    const auto count = [&](const std::string& start) {
        return std::count_if(lines.begin(), lines.end(), [&](const std::string& line) {
            return line.starts_with("TriggerFilter [Line 1]: " + start);
        });
    };
    EXPECT_EQ(count("Fence kept by the exit buffer: f1 (12 m beyond the rim, leaves from 30 m)"), 1)
        << "once per fence and reason, not once per fix";
    EXPECT_EQ(count("Fence waits for confirmation: enter f1"), 1);
    EXPECT_EQ(count("Fence waits for confirmation: exit f1"), 1);
    EXPECT_TRUE(hasLine(lines, "callTriggerFences(_:triggerLocationEventType:success:) [Line 62]: Inside Fences: "))
        << "the standard lines stay as they are";
}

} // namespace
} // namespace bvgeo::testing
