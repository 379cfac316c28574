// The whole road with polygon fences: a hand-made GBFS file built into zone files,
// served by the reference server, and a hand-checked walk replayed through them.
#include "ReferenceHttpServer.hpp"
#include "Replay.hpp"

#include "support/TempDir.hpp"

#include "platform/SharedInstance.hpp"
#include "zone/ZoneBuilder.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <filesystem>
#include <fstream>
#include <sstream>

namespace bvgeo::cli {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;

const std::string kExamples = BVGEO_TEST_EXAMPLES_DIR;

class PolygonReplayTest : public ::testing::Test {
protected:
    // Zone files of the sample, with their geometries or without (circles only).
    void serve(bool withGeometries) {
        server_.reset();
        const fs::path zones = root_ / ("server-" + std::to_string(withGeometries)) / "demo" / "zones";
        const auto built = buildZones(kExamples + "/sample-geofencing_zones.json", zones.string(), {});
        ASSERT_TRUE(built.ok) << built.error;
        if (!withGeometries)
            for (const auto& file : fs::directory_iterator(zones)) {
                auto document = nlohmann::json::parse(std::ifstream(file.path()));
                for (auto& fence : document["fences"]) fence.erase("geometry");
                std::ofstream(file.path()) << document.dump();
            }
        ReferenceServerOptions options;
        options.rootDirectory = zones.parent_path().parent_path().string();
        options.triggerDatabasePath = (zones.parent_path().parent_path() / "triggers.sqlite").string();
        server_ = std::make_unique<ReferenceHttpServer>(options);
        ASSERT_TRUE(server_->start(0)) << server_->error();
    }
    void TearDown() override {
        resetAllSharedInstances();
        server_.reset();
    }

    // "event name" per trigger of a replay of the walk.
    std::vector<std::string> replay(bool polygonFences, std::optional<std::int64_t> cacheExpiration = {},
                                    ReplayOptions o = {}) {
        o.track = kExamples + "/polygon-walk.csv";
        o.apiBase = server_->apiBaseUrl();
        o.assetsBase = server_->assetsBaseUrl();
        o.dataDir = (root_ / ("device-" + std::to_string(++runs_))).string();
        o.json = true;
        o.polygonFences = polygonFences;
        o.cacheExpiration = cacheExpiration;
        std::ostringstream out;
        EXPECT_EQ(runReplay(o, out), 0);
        std::vector<std::string> triggers;
        std::istringstream lines(out.str());
        for (std::string line; std::getline(lines, line);) {
            auto object = nlohmann::json::parse(line);
            if (object.contains("event"))
                triggers.push_back(object["event"].get<std::string>() + " " + object["fenceName"].get<std::string>());
        }
        return triggers;
    }

    const testing::TempDir root_{"bvgeo-polygon-replay"};
    std::unique_ptr<ReferenceHttpServer> server_;
    int runs_ = 0;
};

TEST_F(PolygonReplayTest, TheWalkEntersLingersAndLeavesTheZonesItReallyCrossesAndCirclesStayCirclesWithoutTheOption) {
    serve(true);
    // Checked by hand against the drawing in examples/data/README.md: into the yard's
    // lower arm, five minutes there, out through the notch of its L (still inside its
    // circle); across the park's pond (its hole), into the park, out past the narrow
    // lane, whose circle the walk crosses but whose strip it never touches.
    const std::vector<std::string> polygons{"enter Depot yard", "linger Depot yard", "exit Depot yard",
                                            "enter Park",       "linger Park",       "exit Park"};
    EXPECT_EQ(replay(true), polygons);
    // Every zone request after the first is conditional and answered 304: the fences
    // then come from the table, geometries included.
    EXPECT_EQ(replay(true, 0), polygons);

    const auto circles = replay(false);
    EXPECT_THAT(circles, ::testing::Contains("enter Narrow lane"));
    serve(false);
    EXPECT_EQ(replay(false), circles);

    // Offline from the first fix on, the zones preloaded into the zone cache answer
    // with their geometries, as downloads do.
    serve(true);
    ReplayOptions offline;
    offline.offline = {{1700000000, 1700001140}};
    offline.zoneCache = 16;
    offline.preload = (root_ / "server-1" / "demo" / "zones").string();
    EXPECT_EQ(replay(true, {}, offline), polygons);

    // Robust triggers read a polygon fence's rim from its nearest edge: the same
    // stays, the narrow lane's circle still never counts; the walk ends two fixes
    // after leaving the park, one short of what confirms an exit.
    ReplayOptions robust;
    robust.triggerFilter.robustTriggers = true;
    EXPECT_EQ(replay(true, {}, robust), std::vector<std::string>(polygons.begin(), polygons.end() - 1));
}

} // namespace
} // namespace bvgeo::cli
