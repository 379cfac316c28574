#include "support/WholeRoad.hpp"

#include "datastore/BV1Database.hpp"
#include "location/LocationTracker.hpp"
#include "models/Fence.hpp"
#include "models/FenceFetch.hpp"
#include "models/Trigger.hpp"
#include "zone/ZoneGrid.hpp"

#include <algorithm>
#include <thread>

namespace bvgeo::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

// The fixture's Hall and Park, Hall with a content id.
constexpr const char* kZone = R"({"fences":[
  {"_id":"f1","name":"Hall","location":{"type":"Point","coordinates":[0.73,51.34]},"radius":100,"content_ids":["c1"]},
  {"_id":"f2","name":"Park","location":{"type":"Point","coordinates":[0.7305,51.3405]},"radius":200}]})";

TEST_F(WholeRoadTest, TriggersRunFromEnterThroughLingerToExitAndReachHostAndServer) {
    setZoneAnswer({200, kZone, "Wed, 21 Oct 2015 07:28:00 GMT"});
    startHost(TriggerModes::Both, 300, 600);

    deliver(kLat, kLon, kT0);
    auto zones = requestsTo("/assets/");
    ASSERT_EQ(zones.size(), 1u) << "both trackers got the first fix; one download served them";
    EXPECT_EQ(zones[0].path, "/assets/e2e/zones/" + getZoneName(kLat, kLon, 0.2));
    EXPECT_FALSE(zones[0].header("If-Modified-Since")) << "nothing stored: an unconditional request";
    EXPECT_THAT(delegate->summary(), ElementsAre("enter f1 Hall", "enter f2 Park"));
    EXPECT_EQ(delegate->received[0]->locationEvent, TriggerLocationEventType::Regular);
    EXPECT_EQ(delegate->received[0]->timestamp, static_cast<std::int64_t>(kT0));

    EXPECT_TRUE(requestsTo("/api/").empty()) << "posts wait for the queue's timer";
    advance(1.0);
    auto posts = requestsTo("/api/");
    ASSERT_EQ(posts.size(), 2u);
    for (const auto& post : posts) {
        EXPECT_EQ(post.method, "POST");
        EXPECT_EQ(post.target, "/api/v1/app/e2e/trigger?sdk_ver=1.3.0");
        EXPECT_EQ(post.header("Content-Type"), "application/json");
    }
    // The two posts travel side by side; either may arrive first.
    auto body = nlohmann::json::parse(posts[0].body);
    if (body.value("fenceId", "") != "f1") body = nlohmann::json::parse(posts[1].body);
    EXPECT_EQ(body, (nlohmann::json{{"deviceId", BVGeoTracker::sharedInstance().getDeviceId()},
                                    {"event", "enter"},
                                    {"timestamp", static_cast<std::int64_t>(kT0)},
                                    {"fenceId", "f1"}}));

    deliver(kLat + kStep, kLon, kT0 + 299);
    EXPECT_EQ(delegate->received.size(), 2u);
    deliver(kLat + 2 * kStep, kLon, kT0 + 300); // exactly lingerTime
    deliver(kLat + 3 * kStep, kLon, kT0 + 600); // exactly maxLingerTime: no more lingering
    deliver(kFarLat, kFarLon, kT0 + 700);
    EXPECT_THAT(delegate->summary(), ElementsAre("enter f1 Hall", "enter f2 Park", "linger f1 Hall", "linger f2 Park",
                                                 "exit f1 Hall", "exit f2 Park"));
    EXPECT_EQ(Trigger::list().size(), 6u);

    auto fenceLines = storedLines(LogCategory::FENCE);
    EXPECT_TRUE(hasLine(fenceLines, "callTriggerFences(_:triggerLocationEventType:success:) [Line 62]: Inside Fences: f1, f2, "));
    EXPECT_TRUE(hasLine(fenceLines, "processInsideFences(_:triggerLocationEventType:success:) [Line 54]: Active Fences: f1,f2"));
    EXPECT_EQ(fenceLines.back(), "processInsideFences(_:triggerLocationEventType:success:) [Line 54]: Active Fences: ");
    EXPECT_TRUE(hasLine(storedLines(LogCategory::TRIGGER),
                             "sendTrigger(_:fenceName:type:triggerLocationEventType:) [Line 131]: New Trigger: exit - fenceName: Park fenceId: f2"));
}

TEST_F(WholeRoadTest, ZoneFileComesFromMemoryTableOrServerByZoneAndAge) {
    setZoneAnswer({200, kZone, "LM1"});
    startHost();
    const std::string listing = "logRetrievedFences(_:fenceList:) [Line 128]: Fences from ";
    const std::string both = ": Hall - (f1),Park - (f2)";

    deliver(kLat, kLon, kT0);
    EXPECT_TRUE(hasLine(storedLines(LogCategory::FENCE), listing + "Zone file (new) - not cached" + both));
    EXPECT_EQ(FenceFetch::zoneLastModified(), "LM1");

    deliver(kLat + kStep, kLon, kT0 + 10);
    EXPECT_TRUE(hasLine(storedLines(LogCategory::FENCE), listing + "Memory" + both));

    restartHost();
    deliver(kLat + 2 * kStep, kLon, kT0 + 20);
    EXPECT_TRUE(hasLine(storedLines(LogCategory::FENCE), listing + "Cache" + both));
    EXPECT_TRUE(hasLine(storedLines(LogCategory::ZONE),
                             "getFenceList(_:lng:success:) [Line 81]: Cache not expired, retrieving from cache..."));
    deliver(kLat + 3 * kStep, kLon, kT0 + 3600); // exactly cacheExpiration: still fresh
    EXPECT_EQ(requestsTo("/assets/").size(), 1u);

    setZoneAnswer({304, "", ""});
    deliver(kLat + 4 * kStep, kLon, kT0 + 3601);
    deliver(kLat + 5 * kStep, kLon, kT0 + 3602); // a 304 renews nothing: conditional again
    auto zones = requestsTo("/assets/");
    ASSERT_EQ(zones.size(), 3u);
    EXPECT_EQ(zones[1].header("If-Modified-Since"), "LM1");
    EXPECT_EQ(zones[2].header("If-Modified-Since"), "LM1");
    EXPECT_TRUE(hasLine(storedLines(LogCategory::FENCE), listing + "Zone file (same) - cached" + both));
    EXPECT_EQ(FenceFetch::zoneLastModified(), "LM1");

    // A 403 is a zone without fences: stored (marked not current in debug mode), and every stay ends.
    setZoneAnswer({403, "", ""});
    deliver(kLat + 6 * kStep, kLon, kT0 + 3603);
    EXPECT_TRUE(hasLine(storedLines(LogCategory::FENCE), listing + "Zone file (same) - not cached: "));
    EXPECT_TRUE(Fence::getFences(true).empty());
    EXPECT_EQ(Fence::getFences(false).size(), 2u);
    EXPECT_EQ(FenceFetch::lastCacheTime(), static_cast<std::int64_t>(kT0 + 3603));
    // The stay began before the restart and still ends with an exit under the stored names.
    EXPECT_THAT(delegate->summary(), ElementsAre("enter f1 Hall", "enter f2 Park", "linger f1 Hall", "linger f2 Park",
                                                 "exit f1 Hall", "exit f2 Park"));
}

TEST_F(WholeRoadTest, FailedDownloadCallsNothingAndTheNextPositionTriesAgain) {
    setZoneAnswer({500, "", ""});
    sim().reachability->setType(BVReachabilityType::WWAN);
    startHost();
    deliver(kLat, kLon, kT0);
    auto zone = storedLines(LogCategory::ZONE);
    EXPECT_TRUE(std::any_of(zone.begin(), zone.end(), [](const std::string& line) {
        return line.ends_with("Request Failed: Status (500). Network Type: WWAN");
    }));
    EXPECT_TRUE(std::any_of(zone.begin(), zone.end(), [](const std::string& line) {
        return line == "getFencesFromZone(_:success:) [Line 112]: Zone file retrive failed. Network Type: WWAN";
    }));
    EXPECT_TRUE(delegate->received.empty());
    EXPECT_EQ(FenceFetch::lastZoneFile(), "");
    for (const auto& line : storedLines(LogCategory::FENCE)) EXPECT_THAT(line, ::testing::Not(HasSubstr("Inside Fences")));

    setZoneAnswer({200, kZone, ""});
    deliver(kLat + kStep, kLon, kT0 + 5);
    EXPECT_EQ(requestsTo("/assets/").size(), 2u);
    EXPECT_THAT(delegate->summary(), ElementsAre("enter f1 Hall", "enter f2 Park"));
    EXPECT_EQ(FenceFetch::zoneLastModified(), "") << "an answer without Last-Modified stores empty text";
}

TEST_F(WholeRoadTest, TriggerModeDecidesBetweenDelegateAndServer) {
    struct Case {
        int mode;
        std::size_t delegateCalls, posts;
    } cases[] = {{TriggerModes::Both, 2, 2}, {TriggerModes::LocalOnly, 2, 0}, {TriggerModes::RemoteOnly, 0, 2}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.mode);
        startOver(kZone);
        std::size_t postsBefore = requestsTo("/api/").size();
        startHost(c.mode);
        deliver(kLat, kLon, kT0);
        advance(1.0);
        EXPECT_EQ(delegate->received.size(), c.delegateCalls);
        EXPECT_EQ(requestsTo("/api/").size() - postsBefore, c.posts);
        EXPECT_EQ(Trigger::list().size(), 2u) << "stored in every mode";
    }
}

TEST_F(WholeRoadTest, TwoTrackersDeliveringAtOnceShareOneSlowDownload) {
    setZoneAnswer({200, kZone, ""});
    startHost();
    server->holdAnswers();
    sim().clock->set(kT0);
    auto walk = [this](double startLat) {
        for (int i = 0; i < 20; ++i) sim().locationService->push(startLat + i * kStep, kLon, kT0);
    };
    std::thread a(walk, kLat);
    std::thread b(walk, kLat + 0.0005);
    ASSERT_TRUE(server->waitForRequests(1, 10.0));
    a.join();
    b.join();
    server->releaseAnswers();
    settle();
    EXPECT_EQ(requestsTo("/assets/").size(), 1u) << "requests for a zone in flight wait for its download";
    // Both walks stay inside both fences: each is entered exactly once, never left.
    auto summary = delegate->summary();
    EXPECT_EQ(std::count(summary.begin(), summary.end(), "enter f1 Hall"), 1);
    EXPECT_EQ(std::count(summary.begin(), summary.end(), "enter f2 Park"), 1);
}

} // namespace
} // namespace bvgeo::testing
