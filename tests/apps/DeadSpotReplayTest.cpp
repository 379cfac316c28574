// Dead spots in replay: the options that give them, and the Kent run played with the
// network gone after its first zone answer, without and with a preloaded zone cache.
#include "ReferenceHttpServer.hpp"
#include "Replay.hpp"

#include "support/TempDir.hpp"

#include "platform/SharedInstance.hpp"
#include "zone/ZoneBuilder.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <sstream>

namespace bvgeo::cli {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;

TEST(DeadSpotOptionsTest, RangesComeAsIsoTimesOrSecondsFromFlagsAndAFileAndMerge) {
    testing::TempDir dir("bvgeo-deadspots");
    const auto file = dir.write("spots.txt", "# tunnels\n\n  1399708800,1399709000 \n2014-05-10T08:10:00Z,2014-05-10T08:20:00Z\n");
    const auto o = parseReplayOptions({"t.gpx", "--offline", "2014-05-10T07:30:00Z,2014-05-10 07:40:00Z",
                                       "--offline=1399708900,1399708950", "--offline-file", file, "--zone-cache",
                                       "8", "--prefetch-distance", "1000", "--preload", "zones"});
    ASSERT_EQ(o.offline.size(), 4u);
    EXPECT_EQ(o.offline[0].from, 1399707000);
    EXPECT_EQ(o.offline[0].to, 1399707600);
    EXPECT_EQ(o.zoneCache, 8u);
    EXPECT_EQ(o.prefetchDistance, 1000.0);
    EXPECT_EQ(o.preload, "zones");

    const DeadSpots spots(o.offline);
    EXPECT_EQ(spots.ranges().size(), 3u) << "the second range lies inside the third";
    EXPECT_TRUE(spots.contains(1399707000));
    EXPECT_TRUE(spots.contains(1399709000));
    EXPECT_FALSE(spots.contains(1399709000.5));
    EXPECT_FALSE(spots.contains(1399706999));

    // The other refusals are in ReplayOptionsTest's table; this one needs a file.
    try {
        parseReplayOptions({"t.gpx", "--offline-file", dir.write("bad.txt", "1,2\n3;4\n")});
        ADD_FAILURE() << "accepted bad.txt";
    } catch (const UsageError& error) {
        EXPECT_THAT(error.what(), HasSubstr("bad.txt:2"));
    }
}

class DeadSpotReplayTest : public ::testing::Test {
protected:
    void SetUp() override {
        ZoneBuildOptions build;
        build.interval = 0.05;
        ASSERT_TRUE(buildZones(examples_ + "/kent-places.csv", (root_ / "server/demo/zones").string(), build).ok);
        ReferenceServerOptions options;
        options.rootDirectory = (root_ / "server").string();
        options.triggerDatabasePath = (root_ / "triggers.sqlite").string();
        server_ = std::make_unique<ReferenceHttpServer>(options);
        ASSERT_TRUE(server_->start(0)) << server_->error();
    }
    void TearDown() override {
        resetAllSharedInstances();
        server_.reset();
    }

    // The triggers of one replay as "event fenceId timestamp" lines.
    std::vector<std::string> replay(ReplayOptions o, ReplaySummary& summary) {
        o.track = examples_ + "/kent-run-2014-05-10.gpx";
        o.apiBase = server_->apiBaseUrl();
        o.assetsBase = server_->assetsBaseUrl();
        o.dataDir = (root_ / ("device" + std::to_string(++runs_))).string();
        o.zoneInterval = 0.05;
        o.json = true;
        std::ostringstream out;
        EXPECT_EQ(runReplay(o, out, &summary), 0);
        resetAllSharedInstances();
        std::vector<std::string> triggers;
        std::istringstream in(out.str());
        for (std::string line; std::getline(in, line);) {
            const auto json = nlohmann::json::parse(line);
            if (json.contains("event"))
                triggers.push_back(json["event"].get<std::string>() + " " + json["fenceId"].get<std::string>() + " " +
                                   std::to_string(json["timestamp"].get<std::int64_t>()));
        }
        return triggers;
    }

    const std::string examples_ = BVGEO_TEST_EXAMPLES_DIR;
    const testing::TempDir root_{"bvgeo-deadspot-replay"};
    std::unique_ptr<ReferenceHttpServer> server_;
    int runs_ = 0;
};

TEST_F(DeadSpotReplayTest, KentRunOfflineAfterItsFirstZoneKeepsEveryTriggerOnlyWithThePreloadedCache) {
    ReplaySummary online;
    const auto expected = replay({}, online);
    ASSERT_EQ(expected.size(), 46u);
    EXPECT_FALSE(online.zones) << "no zone line without the options";

    ReplayOptions o;
    o.offline = {{1399706456, 1399714400}}; // from a second after the first fix to the end
    ReplaySummary written;
    const auto lost = replay(o, written);
    EXPECT_LT(lost.size(), expected.size());
    ASSERT_TRUE(written.zones && written.offline);
    EXPECT_GT(written.zones->positionsWithoutFences, 0u);
    EXPECT_EQ(written.offline->deadSpots, 1u);
    EXPECT_EQ(written.offline->positions, online.fixesAccepted - 2) << "all but the first fix, seen by both trackers";

    o.zoneCache = 64;
    o.preload = (root_ / "server").string();
    ReplaySummary cached;
    EXPECT_EQ(replay(o, cached), expected);
    EXPECT_EQ(cached.zones->positionsWithoutFences, 0u);
    EXPECT_EQ(cached.requestsQueued, 0u) << "the reports went out after the dead spot, while draining";
}

} // namespace
} // namespace bvgeo::cli
