#include "support/LibraryTest.hpp"
#include "support/StoredLogs.hpp"

#include "location/LocationTracker.hpp"
#include "location/LocationTrackerSignificantChanges.hpp"
#include "models/FenceFetch.hpp"
#include "tracker/UrlText.hpp"

#include <bvgeo/BVGeoTracker.hpp>

#include <fstream>
#include <regex>

namespace bvgeo::testing {
namespace {

using ::testing::ElementsAre;

class BVGeoTrackerTest : public LibraryTest {
protected:
    BVGeoTracker& tracker() { return BVGeoTracker::sharedInstance(); }
    bool bothRunning() {
        return LocationTracker::sharedInstance().isEnabled() &&
               LocationTrackerSignificantChanges::sharedInstance().isEnabled();
    }
};

TEST_F(BVGeoTrackerTest, StartsUnconfiguredInDebugModeAndRefusesToStart) {
    auto& t = tracker();
    EXPECT_EQ(sim().console->logLines(), std::vector<std::string>{"SDK LOG: BVGeoTracker.init()"});
    EXPECT_TRUE(t.isDebug());
    EXPECT_FALSE(t.isConfigured());
    EXPECT_EQ(t.environment(), BVEnvironment::PRODUCTION);
    EXPECT_EQ(t.triggerMode(), TriggerMode::BOTH);
    EXPECT_EQ(t.apiUrl(), "");
    EXPECT_EQ(t.zonesBaseUrl(), "");
    EXPECT_EQ(t.config(), configOptions{});

    t.start();
    EXPECT_THAT(storedLines(LogCategory::GENERAL),
                ElementsAre("start() [Line 127]: BVGeoTracker is not configured! Please configure before calling start()"));
    EXPECT_FALSE(LocationTracker::sharedInstance().isEnabled());
}

TEST_F(BVGeoTrackerTest, ConfigureChoosesUrlsDebugModeAndModeOrRefuses) {
    auto& t = tracker();
    t.configure("app1", TriggerModes::LocalOnly, BVEnvironments::Production);
    EXPECT_TRUE(t.isConfigured());
    EXPECT_EQ(t.apiUrl(), "https://api.bvgeo.example/api/v1/app/app1/");
    EXPECT_EQ(t.zonesBaseUrl(), "https://assets.bvgeo.example/app1/zones/");
    EXPECT_FALSE(t.isDebug());
    EXPECT_EQ(t.triggerMode(), TriggerMode::LOCAL_ONLY);
    EXPECT_FALSE(sim().device->isBatteryMonitoringEnabled());

    t.configure("app1", TriggerModes::Both, BVEnvironments::Development);
    EXPECT_EQ(t.apiUrl(), "https://api.dev.bvgeo.example/api/v1/app/app1/");
    EXPECT_TRUE(t.isDebug());
    EXPECT_TRUE(sim().device->isBatteryMonitoringEnabled());

    // A rejected identifier or an out-of-range number keeps the old settings but refuses start.
    t.configure("", 0, 0);
    t.configure("other", 3, 0);
    t.configure("other", 0, 4);
    EXPECT_FALSE(t.isConfigured());
    EXPECT_EQ(t.getAppId(), "app1");
    EXPECT_EQ(t.apiUrl(), "https://api.dev.bvgeo.example/api/v1/app/app1/");
    EXPECT_EQ(t.triggerMode(), TriggerMode::BOTH);

    const std::string fn = "configure(_:triggerMode:environment:) [Line 107]: ";
    EXPECT_THAT(storedLines(LogCategory::GENERAL),
                ElementsAre(fn + "BV Configure app:app1; triggerMode: 1; environment:0; isConfigured: true",
                            fn + "BV Configure app:app1; triggerMode: 0; environment:3; isConfigured: true",
                            "verifyParams [Line 143]: Could not configure BVGeoTracker: Missing parameter appId!",
                            fn + "BV Configure app:; triggerMode: 0; environment:0; isConfigured: false",
                            "configure(_:triggerMode:environment:) [Line 105]: Could not configure BVGeoTracker: Invalid triggerMode 3!",
                            fn + "BV Configure app:other; triggerMode: 3; environment:0; isConfigured: false",
                            "configure(_:triggerMode:environment:) [Line 105]: Could not configure BVGeoTracker: Invalid environment 4!",
                            fn + "BV Configure app:other; triggerMode: 0; environment:4; isConfigured: false"));
    t.start();
    EXPECT_FALSE(bothRunning());
}

TEST_F(BVGeoTrackerTest, SetParametersWritesSevenFieldsWithItsOwnDefaults) {
    auto& t = tracker();
    t.setParameters();
    auto c = t.config();
    EXPECT_EQ(c.locationAccuracy, kLocationAccuracyHundredMeters);
    EXPECT_EQ(c.locationDistanceFilt, 50.0);
    EXPECT_EQ(c.requestQueueRetryInterval, 120.0);
    EXPECT_EQ(c.cacheExpiration, 3600);
    EXPECT_EQ(c.zoneInterval, 0.2);

    t.setParameters(5.0, 10.0, 60, 0.1, 30, 600, 15.0);
    c = t.config();
    EXPECT_EQ(c.locationAccuracy, 5.0);
    EXPECT_EQ(c.locationDistanceFilt, 10.0);
    EXPECT_EQ(c.cacheExpiration, 60);
    EXPECT_EQ(c.zoneInterval, 0.1);
    EXPECT_EQ(c.lingerTime, 30);
    EXPECT_EQ(c.maxLingerTime, 600);
    EXPECT_EQ(c.requestQueueRetryInterval, 15.0);
    EXPECT_EQ(c.locationDeferringTime, 30.0);
    EXPECT_EQ(c.requestQueueTimer, 1.0);
    EXPECT_EQ(c.requestQueueTolerance, 5.0);
    EXPECT_TRUE(storedLines().empty());
}

TEST_F(BVGeoTrackerTest, StartAndStopDriveBothTrackersAndHostLinesGoToClient) {
    auto& t = tracker();
    t.configure("abc", 2, 2);
    t.start();
    EXPECT_TRUE(bothRunning());
    t.stop();
    EXPECT_FALSE(LocationTracker::sharedInstance().isEnabled());
    EXPECT_FALSE(LocationTrackerSignificantChanges::sharedInstance().isEnabled());
    t.log("host says 'hi'");
    EXPECT_THAT(storedLines(LogCategory::CLIENT), ElementsAre("log [Line 161]: host says 'hi'"));
    auto general = storedLines(LogCategory::GENERAL);
    EXPECT_NE(std::find(general.begin(), general.end(), "start() [Line 123]: Started tracking location"), general.end());
    EXPECT_EQ(general.back(), "stop() [Line 152]: LocationTrackerSignificantChanges Foreground stopped!");
}

TEST_F(BVGeoTrackerTest, ResetRefusesBadNamesAndArchivesOtherwiseWithANewDeviceId) {
    auto& t = tracker();
    const auto id = t.getDeviceId();
    EXPECT_TRUE(std::regex_match(id, std::regex("[0-9A-F]{8}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{12}")));
    EXPECT_EQ(t.getDeviceId(), id);
    EXPECT_EQ(sim().settings->string(FenceFetch::kDeviceIdKey), id);
    t.configure("abc", 0, 3);
    t.start();
    FenceFetch::setLastZoneFile("zone_1_1.json");
    FenceFetch::setLastCacheTime(42);
    t.log("before reset");

    std::vector<int> codes;
    auto failed = [&](const BVError& e) {
        EXPECT_EQ(e.domain, "morlane.bvg");
        codes.push_back(e.code);
    };
    auto unexpected = [] { ADD_FAILURE() << "success on a refused reset"; };
    t.reset("", unexpected, failed);
    for (const char* bad : {"a/b", "..", "."}) t.reset(bad, unexpected, failed);
    t.reset(std::string("a\0b", 3), unexpected, failed);
    std::ofstream(sim().documentsDirectory() + "/taken.sqlite") << "x";
    t.reset("taken", unexpected, failed);
    EXPECT_THAT(codes, ElementsAre(1001, 1002, 1002, 1002, 1002, 1000));
    EXPECT_TRUE(bothRunning()) << "a refused reset stops nothing";
    EXPECT_EQ(t.getDeviceId(), id);

    bool ok = false;
    t.reset("archive", [&] { ok = true; }, [](const BVError&) { ADD_FAILURE(); });
    EXPECT_TRUE(ok);
    EXPECT_FALSE(LocationTracker::sharedInstance().isEnabled());
    EXPECT_TRUE(t.isConfigured());
    EXPECT_EQ(FenceFetch::lastZoneFile(), "");
    EXPECT_EQ(FenceFetch::lastCacheTime(), 0);
    EXPECT_TRUE(sim().console->printedLines().back() == "Move successful");
    // The new file starts empty; the archive keeps what was there.
    EXPECT_TRUE(storedLines(LogCategory::CLIENT).empty());
    EXPECT_TRUE(std::ifstream(sim().documentsDirectory() + "/archive.sqlite").good());
    const auto fresh = t.getDeviceId();
    EXPECT_NE(fresh, id);
    EXPECT_EQ(t.getDeviceId(), fresh);
}

TEST_F(BVGeoTrackerTest, AppIdIsOnePathSegmentInUrlsAndStoredAsGiven) {
    auto& t = tracker();
    t.setEnvironmentURLs(BVEnvironment::QA, {"http://h/api/v1/app/", "http://h/"});
    for (auto [id, segment] : {std::pair{"app1", "app1"}, {"a b?c#d", "a%20b%3Fc%23d"},
                               {"../../etc", "..%2F..%2Fetc"}, {"..", "%2E%2E"}, {"Ekenäs", "Eken%C3%A4s"}}) {
        t.configure(id, 0, BVEnvironments::QA);
        EXPECT_EQ(t.apiUrl(), "http://h/api/v1/app/" + std::string(segment) + "/") << id;
        EXPECT_EQ(t.zonesBaseUrl(), "http://h/" + std::string(segment) + "/zones/") << id;
        EXPECT_EQ(t.getAppId(), id);
    }
    EXPECT_EQ(storedLines(LogCategory::GENERAL).back(),
              "configure(_:triggerMode:environment:) [Line 107]: BV Configure app:Ekenäs; triggerMode: 0; "
              "environment:2; isConfigured: true");
    // Placeholder URLs are named once, however often the tracker is configured.
    t.configure("app1", 0, BVEnvironments::Staging);
    t.configure("app1", 0, BVEnvironments::Staging);
    const auto zone = storedLines(LogCategory::ZONE);
    ASSERT_EQ(zone.size(), 1u);
    EXPECT_THAT(zone[0], ::testing::HasSubstr("No base URLs were set for environment 1"));
}

TEST(UrlText, BaseUrlsMustBeHttpWithAHostEndingInASlash) {
    for (const char* good : {"http://127.0.0.1:8080/", "https://geo.example.org/api/v1/app/"})
        EXPECT_FALSE(baseUrlProblem(good)) << good;
    for (const char* bad : {"", "x", "ftp://h/", "http:///", "http://h", "http://h/a b/", "https://h/?q=1/",
                            "file:///etc/"})
        EXPECT_TRUE(baseUrlProblem(bad)) << bad;
}

} // namespace
} // namespace bvgeo::testing
