// Polygon fences through zone files: what the builder writes per cell, what the
// zone reader keeps with polygon fences on and off, and what the fence table gives
// back after a 304.
#include "support/LibraryTest.hpp"
#include "support/StoredLogs.hpp"
#include "support/TempDir.hpp"

#include "datastore/BV1Database.hpp"
#include "debug/DebugMapViewController.hpp"
#include "settings/TrackerSettings.hpp"
#include "fence/FenceIndex.hpp"
#include "models/GeometryReader.hpp"
#include "zone/ZoneBuilder.hpp"
#include "zone/ZoneFileReader.hpp"
#include "zone/ZoneGrid.hpp"

#include <nlohmann/json.hpp>

#include <cstdio>
#include <fstream>
#include <random>
#include <set>

namespace bvgeo::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using nlohmann::json;

const std::string kExamples = BVGEO_TEST_EXAMPLES_DIR;

FenceList readZone(const std::string& body, bool polygonFences) {
    ZoneFileReader reader(polygonFences);
    EXPECT_TRUE(json::sax_parse(body, &reader));
    return reader.takeFences();
}

// Builds `input` at `interval` and checks, for random positions over `west..east,
// south..north`, that the fences of each position's zone file answer as the source
// geometries do. Returns the files.
std::map<std::string, std::string> buildAndCompare(const std::string& input, double interval, double south,
                                                   double north, double west, double east) {
    std::map<std::string, std::string> files;
    ZoneBuildOptions options;
    options.interval = interval;
    const auto built = buildZoneTexts(input, options, files);
    EXPECT_TRUE(built.ok) << built.error;
    std::map<std::string, std::shared_ptr<const FenceGeometry>> source;
    const json document = json::parse(std::ifstream(input));
    const json& features = document.contains("data") ? document["data"]["geofencing_zones"]["features"]
                                                     : document["features"];
    for (const auto& [index, feature] : features.items())
        source[index] = readFenceGeometry(feature["geometry"].dump()).geometry;
    std::mt19937 random(3);
    std::uniform_real_distribution<double> latitude(south, north), longitude(west, east);
    std::map<std::string, FenceList> cells;
    for (int i = 0; i < 4000; ++i) {
        const double lat = latitude(random), lon = longitude(random);
        const std::string name = getZoneName(lat, lon, interval);
        if (!cells.count(name)) cells[name] = files.count(name) ? readZone(files[name], true) : FenceList{};
        std::set<std::string> found, expected;
        for (const auto& fence : cells[name]) {
            EXPECT_TRUE(fence->geometry) << fence->id;
            if (fence->geometry && fence->geometry->contains(lat, lon)) found.insert(fence->id);
        }
        for (const auto& [id, geometry] : source)
            if (geometry && geometry->contains(lat, lon)) expected.insert(id);
        EXPECT_EQ(found, expected) << lat << ", " << lon;
    }
    return files;
}

TEST(PolygonZoneBuilder, GbfsZonesAreCutIntoTheCellsTheyTouchAndBadFeaturesGetALineEach) {
    const std::string input = kExamples + "/sample-geofencing_zones.json";
    std::map<std::string, std::string> files;
    ZoneBuildOptions options;
    options.interval = 0.002; // cells of about 220 m: every zone spans several
    const auto built = buildZoneTexts(input, options, files);
    ASSERT_TRUE(built.ok) << built.error;
    EXPECT_EQ(built.fences, 3u);
    EXPECT_THAT(built.warnings, ElementsAre(HasSubstr("features[3]: skipped: geometry polygon 0 has edges that cross"),
                                            HasSubstr("features[4]: skipped: has no geometry")));
    EXPECT_GT(files.size(), 6u);
    for (const auto& [name, text] : files) {
        const json zone = json::parse(text);
        for (const auto& fence : zone["fences"]) {
            // Each part stays within its cell and the margin, inside its own circle.
            auto part = readFenceGeometry(fence["geometry"].dump());
            ASSERT_TRUE(part.geometry) << part.problem;
            const double lat = fence["location"]["coordinates"][1], lon = fence["location"]["coordinates"][0];
            double centreLat = 0, centreLon = 0;
            ASSERT_EQ(std::sscanf(name.c_str(), "zone_%lf_%lf.json", &centreLat, &centreLon), 2);
            const double half = 0.001 + 2 * 0.002e-4 + 1e-12;
            EXPECT_GE(part.geometry->south(), centreLat / 1000 - half) << name;
            EXPECT_LE(part.geometry->north(), centreLat / 1000 + half) << name;
            EXPECT_GE(part.geometry->west(), centreLon / 1000 - half) << name;
            EXPECT_LE(part.geometry->east(), centreLon / 1000 + half) << name;
            EXPECT_TRUE(part.geometry->withinCircle(lat, lon, fence["radius"].get<double>())) << name;
        }
    }
    buildAndCompare(input, 0.002, 51.349, 51.359, 0.699, 0.717);

    TempDir dir;
    const auto wrongVersion = dir.write("old.json", R"({"version":"1.1","data":{"geofencing_zones":{}}})");
    const auto refused = buildZoneTexts(wrongVersion, options, files);
    EXPECT_FALSE(refused.ok);
    EXPECT_THAT(refused.error, HasSubstr("GBFS file of version \"1.1\""));
}

TEST(PolygonZoneBuilder, APolygonAcrossTheAntimeridianLandsOnBothSides) {
    TempDir dir;
    const auto input = dir.write("fiji.geojson", R"({"type":"FeatureCollection","features":[
      {"type":"Feature","id":"reef","properties":{"name":"Reef"},"geometry":{"type":"Polygon","coordinates":[
        [[179.7,-17.0],[-179.6,-17.0],[-179.6,-16.5],[179.7,-16.5],[179.7,-17.0]]]}}]})");
    std::map<std::string, std::string> files;
    ZoneBuildOptions options;
    options.interval = 0.2;
    ASSERT_TRUE(buildZoneTexts(input, options, files).ok);
    for (auto [lat, lon, inside] : {std::tuple{-16.7, 179.9, true}, {-16.7, -179.9, true}, {-16.7, 179.6, false},
                                    {-16.7, -179.5, false}}) {
        const std::string name = getZoneName(lat, lon, 0.2);
        const auto fences = files.count(name) ? readZone(files[name], true) : FenceList{};
        bool found = false;
        for (const auto& fence : fences) found |= fence->geometry && fence->geometry->contains(lat, lon);
        EXPECT_EQ(found, inside) << lat << ", " << lon;
    }
}

class PolygonZoneReaderTest : public LibraryTest {};

constexpr const char* kZone = R"({"fences":[
  {"_id":"yard","name":"Yard","location":{"type":"Point","coordinates":[0.702,51.352]},"radius":300,
   "geometry":{"type":"Polygon","coordinates":[[[0.700,51.350],[0.704,51.350],[0.704,51.354],[0.700,51.350]]]}},
  {"_id":"bow","name":"Bow","location":{"type":"Point","coordinates":[0.71,51.35]},"radius":300,
   "geometry":{"type":"Polygon","coordinates":[[[0.709,51.349],[0.711,51.351],[0.711,51.349],[0.709,51.351],[0.709,51.349]]]}},
  {"_id":"far","name":"Far","location":{"type":"Point","coordinates":[0.71,51.35]},"radius":10,
   "geometry":{"type":"Polygon","coordinates":[[[0.70,51.30],[0.72,51.30],[0.72,51.32],[0.70,51.30]]]}},
  {"_id":"plain","name":"Plain","location":{"type":"Point","coordinates":[0.72,51.35]},"radius":50,"geometry":null}]})";

TEST_F(PolygonZoneReaderTest, GeometriesAreKeptOnlyWhenAskedAndABadOneLeavesItsCircleWithALine) {
    for (const auto& fence : readZone(kZone, false)) EXPECT_FALSE(fence->geometry) << fence->id;
    EXPECT_THAT(storedLines(LogCategory::FENCE), ::testing::IsEmpty());

    const auto fences = readZone(kZone, true);
    ASSERT_EQ(fences.size(), 4u);
    ASSERT_TRUE(fences[0]->geometry);
    EXPECT_TRUE(fences[0]->geometry->contains(51.3505, 0.7035));
    EXPECT_FALSE(fences[0]->geometry->contains(51.3535, 0.7005)); // in the circle, not the triangle
    EXPECT_FALSE(fences[1]->geometry);
    EXPECT_FALSE(fences[2]->geometry);
    EXPECT_FALSE(fences[3]->geometry);
    EXPECT_THAT(storedLines(LogCategory::FENCE),
                ElementsAre("fenceFromJson(_:) [Line 1]: Polygon fence bow stays a circle: its geometry polygon 0 has "
                            "edges that cross at [0.709, 51.349]",
                            "fenceFromJson(_:) [Line 1]: Polygon fence far stays a circle: its geometry reaches beyond "
                            "the fence's circle"));
}

TEST_F(PolygonZoneReaderTest, StoredGeometriesComeBackWithTheirFencesAndLeaveTheFenceTableAsItWas) {
    const auto fences = readZone(kZone, true);
    const auto rows = [] {
        std::vector<std::string> out;
        BV1Database().getDatabase().executeQuery("SELECT * FROM fence", {}, [&](const DatabaseRow& row) {
            out.push_back(row.stringForColumn("id") + "|" + row.stringForColumn("latitude") + "|" +
                          row.stringForColumn("longitude") + "|" + row.stringForColumn("radius") + "|" +
                          row.stringForColumn("content_ids") + "|" + row.stringForColumn("current_zone"));
        });
        return out;
    };
    const auto hasGeometryTable = [] {
        bool found = false;
        BV1Database().getDatabase().executeQuery("SELECT name FROM sqlite_master WHERE name = 'fence_geometry'", {},
                                                 [&](const DatabaseRow&) { found = true; });
        return found;
    };
    ASSERT_TRUE(Fence::saveFenceList(fences, false));
    const auto written = rows();
    EXPECT_FALSE(hasGeometryTable());
    EXPECT_FALSE(Fence::geometriesStoredForCurrentFences());

    ASSERT_TRUE(Fence::saveFenceList(fences, true, true));
    EXPECT_EQ(rows(), written);
    EXPECT_TRUE(Fence::geometriesStoredForCurrentFences());
    const auto back = Fence::getFences(true, true);
    ASSERT_EQ(back.size(), fences.size());
    for (std::size_t i = 0; i < back.size(); ++i) {
        // (No content ids read back as one empty id, as for any stored fence.)
        Fence expected = *fences[i];
        expected.content_ids = {""};
        EXPECT_TRUE(*back[i] == expected) << fences[i]->id;
    }
    EXPECT_TRUE(back[0]->geometry);
    for (const auto& fence : Fence::getFences(true)) EXPECT_FALSE(fence->geometry); // not asked for

    // The debug map draws what is stored: polygons with polygon fences on.
    EXPECT_FALSE(DebugMapViewController::drawOverlays("")["fences"][0].contains("polygons"));
    ExtendedOptions extended;
    extended.polygonFences = true;
    TrackerSettings::sharedInstance().setExtendedOptions(extended);
    const auto map = DebugMapViewController::drawOverlays("");
    EXPECT_EQ(map["fences"][0]["polygons"], json::parse("[[[[51.35,0.7],[51.35,0.704],[51.354,0.704],[51.35,0.7]]]]"));
    EXPECT_FALSE(map["fences"][3].contains("polygons"));

    // A list stored later without them (polygon fences turned off) is not theirs.
    ASSERT_TRUE(Fence::saveFenceList({std::make_shared<Fence>("yard", "Yard", 51.36, 0.702, 300, std::vector<std::string>{})},
                                     false));
    EXPECT_FALSE(Fence::geometriesStoredForCurrentFences());
    EXPECT_FALSE(Fence::getFences(true, true)[0]->geometry);
}

} // namespace
} // namespace bvgeo::testing
