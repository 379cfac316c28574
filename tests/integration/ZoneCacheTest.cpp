// The zone cache, stale-if-error, neighbour prefetch and preload, driven as a host
// drives the library, against a zone server on loopback that answers each zone file
// by name (Last-Modified, 304 for an If-Modified-Since it knows, 403 for zones it
// has not, 500 while failing).
#include "support/TempDir.hpp"
#include "support/WholeRoad.hpp"

#include "fence/FenceManager.hpp"
#include "models/Fence.hpp"
#include "zone/ZoneCache.hpp"

namespace bvgeo::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

constexpr const char* kZoneA = "zone_51300_700.json"; // kLat, kLon of the 0.2 degree grid
constexpr const char* kZoneB = "zone_51500_700.json"; // the cell north of it
constexpr const char* kZoneC = "zone_51700_700.json"; // north of that
constexpr double kBLat = 51.45, kCLat = 51.65;
constexpr const char* kPierZone =
    R"({"fences":[{"_id":"p1","name":"Pier","location":{"type":"Point","coordinates":[0.73,51.45]},"radius":100}]})";

class ZoneCacheTest : public WholeRoadTest {
protected:
    void SetUp() override {
        WholeRoadTest::SetUp();
        server = std::make_unique<LoopbackServer>([this](const httplib::Request& request, httplib::Response& response) {
            std::lock_guard lock(mutex_);
            if (request.path.rfind("/assets/", 0) != 0) return response.set_content("{}", "application/json");
            if (failing_) {
                response.status = 500;
                return;
            }
            auto zone = zones_.find(request.path.substr(request.path.rfind('/') + 1));
            if (zone == zones_.end()) {
                response.status = 403;
            } else if (request.get_header_value("If-Modified-Since") == zone->second.lastModified) {
                response.status = 304;
            } else {
                response.set_header("Last-Modified", zone->second.lastModified);
                response.set_content(zone->second.body, "application/json");
            }
        });
        serve(kZoneA, kHallAndParkZone, "LM-A");
        serve(kZoneB, kPierZone, "LM-B");
        extended.zoneCache = 4;
    }
    void serve(const std::string& zone, const std::string& body, const std::string& lastModified) {
        std::lock_guard lock(mutex_);
        zones_[zone] = {200, body, lastModified};
    }
    void failZoneRequests(bool failing) {
        std::lock_guard lock(mutex_);
        failing_ = failing;
    }
    std::vector<SeenRequest> zoneRequests(const std::string& zone) const {
        std::vector<SeenRequest> out;
        for (auto& request : requestsTo("/assets/"))
            if (request.path.ends_with("/" + zone)) out.push_back(request);
        return out;
    }
    static bool logged(const std::string& text) {
        for (const auto& line : storedLines(LogCategory::ZONE))
            if (line.find(text) != std::string::npos) return true;
        return false;
    }
    static std::vector<std::string> tableIds() {
        std::vector<std::string> ids;
        for (const auto& fence : Fence::getFences(true)) ids.push_back(fence->id);
        return ids;
    }
    std::string cacheFile(const std::string& zone) const {
        return (std::filesystem::path(sim().documentsDirectory()) / ZoneCache::kDirectoryName / (zone + ".cache"))
            .string();
    }
    const TestPlatform& sim() const { return const_cast<ZoneCacheTest*>(this)->LibraryTest::sim(); }
    using LibraryTest::sim;

private:
    std::mutex mutex_;
    std::map<std::string, ZoneAnswer> zones_;
    bool failing_ = false;
};

TEST_F(ZoneCacheTest, ZoneChangesAnswerFromFreshCopiesAndFailedDownloadsFromAnyCopy) {
    startHost();
    deliver(kLat, kLon, kT0);
    deliver(kBLat, kLon, kT0 + 60);
    deliver(kLat, kLon, kT0 + 120);
    EXPECT_EQ(zoneRequests(kZoneA).size(), 1u) << "back in a cached zone: no request";
    EXPECT_TRUE(logged("Zone cache: zone_51300_700.json stored 120 s ago is fresh; answered without a request"));
    EXPECT_THAT(delegate->summary(), ElementsAre("enter f1 Hall", "enter f2 Park", "enter p1 Pier", "exit f1 Hall",
                                                 "exit f2 Park", "enter f1 Hall", "enter f2 Park", "exit p1 Pier"));
    // The copy became the current zone as a download would: table and settings say so.
    EXPECT_THAT(tableIds(), ElementsAre("f1", "f2"));
    EXPECT_EQ(FenceFetch::lastZoneFile(), kZoneA);
    EXPECT_EQ(FenceFetch::zoneLastModified(), "LM-A");
    EXPECT_EQ(FenceFetch::lastCacheTime(), static_cast<std::int64_t>(kT0)) << "the copy's own time of storing";

    // An expired copy: downloaded again unconditionally, as any zone change is, so
    // that the answer renews the zone's cache time.
    delegate->received.clear();
    deliver(kBLat, kLon, kT0 + 4000);
    const auto asB = zoneRequests(kZoneB);
    ASSERT_EQ(asB.size(), 2u);
    EXPECT_FALSE(asB[1].header("If-Modified-Since"));
    EXPECT_TRUE(logged("Zone cache: zone_51500_700.json stored 3940 s ago has expired; downloading the zone file "
                       "again"));
    EXPECT_TRUE(hasLine(storedLines(LogCategory::FENCE),
                        "logRetrievedFences(_:fenceList:) [Line 128]: Fences from Zone file (new) - not cached: Pier - "
                        "(p1)"));
    EXPECT_THAT(tableIds(), ElementsAre("p1"));

    // The server down: a copy of any age answers, and the next position asks again.
    failZoneRequests(true);
    deliver(kLat, kLon, kT0 + 8000);
    EXPECT_TRUE(logged("Zone cache: the download failed (status 500); answered with zone_51300_700.json stored "
                       "8000 s ago"));
    const auto asked = zoneRequests(kZoneA).size();
    deliver(kLat + kStep, kLon, kT0 + 8010);
    EXPECT_EQ(zoneRequests(kZoneA).size(), asked + 1);
    EXPECT_THAT(delegate->summary(), ElementsAre("enter p1 Pier", "exit f1 Hall", "exit f2 Park", "enter f1 Hall",
                                                 "enter f2 Park", "exit p1 Pier"));

    // Nothing cached: the road ends as written.
    delegate->received.clear();
    deliver(kCLat, kLon, kT0 + 8100);
    EXPECT_THAT(delegate->received, IsEmpty());
    EXPECT_GE(FenceManager::sharedInstance().unansweredRequests(), 1u);
    EXPECT_EQ(FenceFetch::lastZoneFile(), kZoneA);
}

TEST_F(ZoneCacheTest, CacheOutlivesTheProcessKeepsTheRecentZonesAndRefetchesWhatIsDamaged) {
    extended.zoneCache = 2;
    serve(kZoneC, R"({"fences":[]})", "LM-C");
    startHost();
    deliver(kLat, kLon, kT0);
    deliver(kBLat, kLon, kT0 + 60);
    deliver(kCLat, kLon, kT0 + 120);
    EXPECT_TRUE(logged("Zone cache: zone_51300_700.json removed to make room: the cache keeps 2 zones"));
    EXPECT_THAT(filesIn(std::filesystem::path(sim().documentsDirectory()) / ZoneCache::kDirectoryName),
                ElementsAre("zone_51500_700.json.cache", "zone_51700_700.json.cache"));

    restartHost();
    deliver(kBLat, kLon, kT0 + 180);
    EXPECT_EQ(zoneRequests(kZoneB).size(), 1u) << "the copy on disk answered the new process";

    // A file changed on disk is removed and the zone asked for afresh.
    std::string text = readFile(cacheFile(kZoneC));
    text.back() = '!';
    std::ofstream(cacheFile(kZoneC), std::ios::binary) << text;
    deliver(kCLat, kLon, kT0 + 240);
    EXPECT_TRUE(logged("Zone cache: zone_51700_700.json is damaged (its body does not match its checksum); removed"));
    ASSERT_EQ(zoneRequests(kZoneC).size(), 2u);
    EXPECT_FALSE(zoneRequests(kZoneC).back().header("If-Modified-Since"));

    // A clock set back makes a copy look stored in the future: it is downloaded again.
    deliver(kBLat, kLon, kT0 - 1000);
    EXPECT_TRUE(logged("Zone cache: zone_51500_700.json stored 1060 s after now (the clock went back); downloading"));
    EXPECT_FALSE(zoneRequests(kZoneB).back().header("If-Modified-Since"));
    EXPECT_THAT(tableIds(), ElementsAre("p1"));
}

TEST_F(ZoneCacheTest, PrefetchFetchesTheNeighbourNearAnEdgeIntoTheCacheOnly) {
    extended.prefetchDistance = 500;
    startHost();
    deliver(kLat, kLon, kT0);
    EXPECT_THAT(zoneRequests(kZoneB), IsEmpty()) << "the middle of the cell";

    // 223 m from the north edge: the cell beyond it is fetched, and nothing else changes.
    deliver(51.398, kLon, kT0 + 10);
    ASSERT_EQ(zoneRequests(kZoneB).size(), 1u);
    EXPECT_TRUE(logged("Prefetch: zone_51500_700.json, 223 m from the cell's north edge"));
    EXPECT_TRUE(logged("Prefetch: zone_51500_700.json stored (1 fences)"));
    EXPECT_EQ(FenceFetch::lastZoneFile(), kZoneA);
    EXPECT_EQ(FenceFetch::zoneLastModified(), "LM-A");
    EXPECT_THAT(tableIds(), ElementsAre("f1", "f2"));
    deliver(51.3981, kLon, kT0 + 20);
    EXPECT_EQ(zoneRequests(kZoneB).size(), 1u) << "fresh in the cache";

    // Crossing over needs no request.
    deliver(kBLat, kLon, kT0 + 30);
    EXPECT_EQ(zoneRequests(kZoneB).size(), 1u);
    EXPECT_EQ(delegate->summary().back(), "enter p1 Pier");

    // Back at the edge once A's copy has expired: not while the platform says no
    // network or a low battery; then once, conditionally.
    sim().reachability->setReachable(false);
    deliver(51.402, kLon, kT0 + 4000);
    sim().reachability->setReachable(true);
    sim().device->setBattery(BatteryState::Unplugged, 0.1f);
    deliver(51.4021, kLon, kT0 + 4010);
    EXPECT_TRUE(logged("Prefetch skipped: no network"));
    EXPECT_TRUE(logged("Prefetch skipped: battery low (10%)"));
    EXPECT_EQ(zoneRequests(kZoneA).size(), 1u);
    sim().device->setBattery(BatteryState::Charging, 0.1f);
    deliver(51.4022, kLon, kT0 + 4020);
    ASSERT_EQ(zoneRequests(kZoneA).size(), 2u);
    EXPECT_EQ(zoneRequests(kZoneA).back().header("If-Modified-Since"), "LM-A");
    EXPECT_TRUE(logged("Prefetch: zone_51300_700.json not modified; the cached copy stays"));

    // A server that fails prefetches forever costs one request per cell per cacheExpiration.
    failZoneRequests(true);
    for (int minute = 1; minute <= 130; ++minute) deliver(51.402 + minute * kStep, kLon, kT0 + 4020 + minute * 60);
    EXPECT_EQ(zoneRequests(kZoneA).size(), 4u) << "at 4020 (304), 7621 and 11222 s";
    EXPECT_TRUE(logged("Prefetch: zone_51300_700.json failed (status 500); not asked again for 3600 s"));
    EXPECT_EQ(FenceFetch::lastZoneFile(), kZoneB);
}

TEST_F(ZoneCacheTest, PreloadedZonesAnswerWhereThereNeverWasANetwork) {
    TempDir root;
    std::filesystem::create_directories(root / "e2e/zones");
    std::filesystem::create_directories(root / "other/zones");
    root.write(std::string("e2e/zones/") + kZoneA, kHallAndParkZone);
    root.write(std::string("e2e/zones/") + kZoneB, kPierZone);
    root.write("e2e/zones/notes.txt", "hello");
    root.write("e2e/zones/zone_51350_725.json", kPierZone); // a cell of the 0.05 degree grid
    root.write(std::string("e2e/zones/") + kZoneC, "{\"fences\":[");
    root.write(std::string("other/zones/") + kZoneA, kHallAndParkZone);
    startHost();
    auto& tracker = BVGeoTracker::sharedInstance();

    auto preloaded = tracker.preloadZones(root.path().string());
    EXPECT_EQ(preloaded.error, "");
    EXPECT_EQ(preloaded.loaded, 2u);
    EXPECT_EQ(preloaded.skipped, 3u);
    EXPECT_TRUE(logged("e2e/zones/notes.txt: not a zone file name"));
    EXPECT_TRUE(logged("e2e/zones/zone_51350_725.json: not a cell of the 0.2 degree grid"));
    EXPECT_TRUE(logged("e2e/zones/zone_51700_700.json: not a zone file: not valid JSON"));
    EXPECT_THAT(tracker.preloadZones((root / "other/zones").string()).error,
                HasSubstr("holds the zone files of app id 'other', not 'e2e'"));
    EXPECT_THAT(tracker.preloadZones((root / "e2e").string()).error, HasSubstr("has no zone files of app id 'e2e'"));

    HTTPClient::sharedInstance().setNetworkDown([] { return true; });
    deliver(kLat, kLon, kT0);
    deliver(kBLat, kLon, kT0 + 60);
    EXPECT_TRUE(logged("answered with the preloaded copy of zone_51300_700.json"));
    EXPECT_THAT(delegate->summary(), ElementsAre("enter f1 Hall", "enter f2 Park", "enter p1 Pier", "exit f1 Hall",
                                                 "exit f2 Park"));
    EXPECT_THAT(requestsTo("/assets/"), IsEmpty());
}

} // namespace
} // namespace bvgeo::testing
