#include "support/LibraryTest.hpp"
#include "support/StoredLogs.hpp"

#include "location/LocationTracker.hpp"
#include "location/LocationTrackerSignificantChanges.hpp"
#include "models/DebugLocation.hpp"

#include <bvgeo/BVGeoTracker.hpp>

#include <GeographicLib/Geodesic.hpp>

namespace bvgeo::testing {
namespace {

using ::testing::ElementsAre;

// A point `metres` north-east of (lat, lon) on the ellipsoid.
Location offset(double lat, double lon, double metres, double time) {
    double lat2 = 0, lon2 = 0;
    GeographicLib::Geodesic::WGS84().Direct(lat, lon, 45.0, metres, lat2, lon2);
    return {lat2, lon2, time};
}

class LocationTrackerTest : public LibraryTest {
protected:
    void SetUp() override {
        LibraryTest::SetUp();
        standard = &LocationTracker::sharedInstance(); // first manager made: index 0
        significant = &LocationTrackerSignificantChanges::sharedInstance();
    }
    void startTracking(int environment = BVEnvironments::Development) {
        auto& t = BVGeoTracker::sharedInstance();
        t.configure("app", 0, environment);
        // Every fix reaches the standard tracker, so the pipeline itself decides.
        t.setParameters(kLocationAccuracyHundredMeters, kDistanceFilterNone);
        t.start();
    }
    SimulatedManagerState standardManager() { return sim().locationService->managerStates().at(0); }
    SimulatedManagerState significantManager() { return sim().locationService->managerStates().at(1); }
    std::vector<std::string> locationLines() { return storedLines(LogCategory::LOCATION); }

    LocationTracker* standard = nullptr;
    LocationTrackerSignificantChanges* significant = nullptr;
};

TEST_F(LocationTrackerTest, StartTunesManagersAndBeginsEachKindOfDelivery) {
    sim().locationService->setAuthorizationStatus(AuthorizationStatus::NotDetermined);
    startTracking();
    for (const auto& m : {standardManager(), significantManager()}) {
        EXPECT_TRUE(m.hasDelegate);
        EXPECT_EQ(m.activityType, ActivityType::Other);
        EXPECT_EQ(m.desiredAccuracy, kLocationAccuracyHundredMeters);
        EXPECT_EQ(m.distanceFilter, kDistanceFilterNone);
        EXPECT_EQ(m.pausesLocationUpdatesAutomatically, true);
        EXPECT_EQ(m.allowsBackgroundLocationUpdates, true);
        EXPECT_EQ(m.authorizationRequests, 1);
    }
    EXPECT_TRUE(standardManager().updatingLocation);
    EXPECT_FALSE(standardManager().monitoringSignificantChanges);
    EXPECT_TRUE(significantManager().monitoringSignificantChanges);
    EXPECT_FALSE(significantManager().updatingLocation);

    auto general = storedLines(LogCategory::GENERAL);
    EXPECT_THAT(std::vector<std::string>(general.begin() + 2, general.begin() + 6),
                ElementsAre("configure [Line 43]: LocationTracker configure with Unknown",
                            "requestAuthorization() [Line 56]: 0",
                            "start() [Line 146]: LocationTracker Foreground started!",
                            "configure [Line 43]: LocationTrackerSignificantChanges configure with Unknown"));
}

TEST_F(LocationTrackerTest, AcceptedFixIsLoggedAndStoredUnderTheTrackersName) {
    startTracking();
    sim().deliver(-23.5, -46.625, 1'500'000'100);
    // The first fix reaches both managers: the significant-change rule counts it.
    EXPECT_THAT(locationLines(),
                ElementsAre("locationManager(_:didUpdateLocations:) [Line 101]: LocationTracker Location Updated: "
                            "[-23.5, -46.625] - App State: 0",
                            "locationManager(_:didUpdateLocations:) [Line 101]: LocationTrackerSignificantChanges "
                            "Location Updated: [-23.5, -46.625] - App State: 0"));
    auto history = DebugLocation::getDebugLocations();
    ASSERT_EQ(history.size(), 2u);
    EXPECT_EQ(history[0]->type, "LocationTracker");
    EXPECT_EQ(history[1]->type, "LocationTrackerSignificantChanges");
    EXPECT_EQ(history[0]->latitude, -23.5);
    EXPECT_EQ(history[0]->longitude, -46.625);
    EXPECT_EQ(history[0]->timestamp, 1'500'000'100);
    EXPECT_EQ(standard->lastPositionTime(), 1'500'000'100);

    // Debug mode adds the battery line, read from the device that configure switched on.
    sim().device->setBattery(BatteryState::Charging, 0.25f);
    sim().deliver(-23.6, -46.625, 1'500'000'200);
    EXPECT_EQ(storedLines(LogCategory::CLIENT).back(),
              "locationManager(_:didUpdateLocations:) [Line 136]: Battery status (Charging): 25.0");
}

TEST_F(LocationTrackerTest, RepeatsAreDroppedUntilLingerTimeButStillWakeAndRearm) {
    startTracking();
    const double t0 = 1'500'000'100;
    sim().deliver(10.0, 10.0, t0);
    auto near = offset(10.0, 10.0, 0.5, t0 + 299);
    sim().deliver(near.latitude, near.longitude, near.timestamp);
    EXPECT_EQ(standard->lastPositionTime(), static_cast<std::int64_t>(t0));
    EXPECT_EQ(standardManager().deferredRequests, 2) << "an ignored fix still re-arms deferred delivery";
    EXPECT_EQ(standardManager().deferredTimeout, 30.0);
    EXPECT_EQ(standardManager().deferredDistance, kLocationDistanceMax);

    sim().deliver(near.latitude, near.longitude, t0 + 300); // exactly lingerTime after the accepted one
    EXPECT_EQ(standard->lastPositionTime(), static_cast<std::int64_t>(t0 + 300));
    EXPECT_EQ(locationLines().size(), 3u); // first fix twice (both trackers), then the re-accepted one
    EXPECT_EQ(DebugLocation::getDebugLocations().size(), 3u);
}

TEST_F(LocationTrackerTest, LongStayStopsStandardUpdatesUntilTheNextSignificantChange) {
    startTracking();
    const std::int64_t now = 1'500'010'000;
    sim().clock->set(now);
    auto stay = [](std::int64_t activatedAt) {
        return ActiveFenceList{std::make_shared<ActiveFence>("f1", activatedAt, "Fence")};
    };

    standard->fencesProcessed({}, stay(now - 7200));
    EXPECT_EQ(standardManager().pausesLocationUpdatesAutomatically, false) << "Inside forbids pausing";
    EXPECT_TRUE(standard->isEnabled());

    standard->fencesProcessed({}, {});
    EXPECT_EQ(standardManager().pausesLocationUpdatesAutomatically, true) << "Outside allows pausing";

    // Several stays: only the newest activation counts.
    significant->fencesProcessed({}, {std::make_shared<ActiveFence>("old", now - 90'000), stay(now - 60)[0]});
    EXPECT_TRUE(standard->isEnabled());

    significant->fencesProcessed({}, stay(now - 7201));
    EXPECT_FALSE(standard->isEnabled()) << "too long inside stops the standard tracker, whoever is configured";
    EXPECT_FALSE(standardManager().updatingLocation);
    EXPECT_TRUE(significant->isEnabled());

    // The next significant-change fix starts the standard tracker before it is processed.
    sim().deliver(51.0, 0.7, now + 10);
    EXPECT_TRUE(standard->isEnabled());
    EXPECT_TRUE(standardManager().updatingLocation);
    auto general = storedLines(LogCategory::GENERAL);
    EXPECT_EQ(general.back(), "start() [Line 146]: LocationTracker Foreground started!");
}

TEST_F(LocationTrackerTest, ProductionWritesNeitherConfigureNorBatteryLines) {
    startTracking(BVEnvironments::Production);
    sim().deliver(1.0, 2.0, 1'500'000'100);
    for (const auto& line : storedLines())
        EXPECT_EQ(line.find("configure with"), std::string::npos) << line;
    EXPECT_TRUE(storedLines(LogCategory::CLIENT).empty());
    EXPECT_TRUE(sim().console->logLines().size() == 1u) << "no console echo with debug mode off";
}

} // namespace
} // namespace bvgeo::testing
