#include "zone/ZoneBuilder.hpp"

#include "models/Fence.hpp"
#include "platform/Geodesic.hpp"
#include "zone/ZoneGrid.hpp"

#include "support/TempDir.hpp"

#include <GeographicLib/Geodesic.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>

namespace bvgeo {

// How gtest shows a fence in a failure message (found next to Fence by lookup).
static void PrintTo(const Fence& fence, std::ostream* out) {
    *out << fence.id << " \"" << fence.name << "\" " << fence.latitude << ", " << fence.longitude << " r "
         << fence.radius << " content " << fence.content_ids.size();
}

namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

struct Place {
    double latitude, longitude;
};

// The point `metres` from a place along `azimuth` degrees (WGS84).
Place move(Place from, double azimuth, double metres) {
    Place to{};
    GeographicLib::Geodesic::WGS84().Direct(from.latitude, from.longitude, azimuth, metres, to.latitude, to.longitude);
    return to;
}

// Metres from the fence's centre to the point of the named cell nearest to it in
// latitude and longitude (close to the true nearest point for small circles).
double distanceToCell(const Fence& fence, const std::string& name, double interval) {
    int latitude = 0, longitude = 0;
    if (std::sscanf(name.c_str(), "zone_%d_%d.json", &latitude, &longitude) != 2) return HUGE_VAL;
    double centreLatitude = latitude / 1000.0, centreLongitude = longitude / 1000.0;
    double offset = std::remainder(fence.longitude - centreLongitude, 360.0);
    return geodesicDistance(fence.latitude, fence.longitude,
                            std::clamp(fence.latitude, centreLatitude - interval / 2, centreLatitude + interval / 2),
                            centreLongitude + std::clamp(offset, -interval / 2, interval / 2));
}

TEST(ZoneBuilder, CirclesAreListedInEveryCellTheyReachAndNoOther) {
    struct Case {
        const char* what;
        Place centre;
        double radius, interval;
        std::vector<std::string> names;
    } cases[] = {
        {"well inside a cell", {51.3, 0.7}, 1000, 0.2, {"zone_51300_700.json"}},
        {"50 m west of a meridian edge", move({51.3, 0.8}, 270, 50), 150, 0.2,
         {"zone_51300_700.json", "zone_51300_900.json"}},
        {"50 m from the edge but not reaching it", move({51.3, 0.8}, 270, 50), 45, 0.2, {"zone_51300_700.json"}},
        {"50 m south of a parallel edge", move({51.4, 0.7}, 180, 50), 60, 0.2,
         {"zone_51300_700.json", "zone_51500_700.json"}},
        {"at a corner", move({51.4, 0.8}, 45, 30), 100, 0.2,
         {"zone_51300_700.json", "zone_51300_900.json", "zone_51500_700.json", "zone_51500_900.json"}},
        {"negative coordinates", move({-23.4, -46.7}, 0, 40), 80, 0.2,
         {"zone_-23300_-46700.json", "zone_-23500_-46700.json"}},
        {"on both zero lines", {0.0003, -0.0002}, 100, 0.2,
         {"zone_-100_-100.json", "zone_-100_100.json", "zone_100_-100.json", "zone_100_100.json"}},
        {"across the 180th meridian", {10.1, 179.9995}, 200, 0.2,
         {"zone_10100_-179900.json", "zone_10100_179900.json"}},
        {"a wide cell", {10.2, -10.2}, 25000, 1.0,
         {"zone_10500_-10500.json", "zone_10500_-9500.json", "zone_9500_-10500.json"}},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(zoneNamesForCircle(c.centre.latitude, c.centre.longitude, c.radius, c.interval), c.names) << c.what;
    }

    // A circle over the pole reaches the pole's corner of every cell in the top row.
    auto polar = zoneNamesForCircle(89.999, 12.3, 300, 0.2);
    EXPECT_EQ(polar.size(), 1800u);
    EXPECT_TRUE(std::all_of(polar.begin(), polar.end(), [](const std::string& name) {
        return name.rfind("zone_89900_", 0) == 0;
    }));

    EXPECT_THAT(zoneNamesForCircle(91, 0, 100, 0.2), IsEmpty());
    EXPECT_THAT(zoneNamesForCircle(0, 0, -1, 0.2), IsEmpty());
    EXPECT_THAT(zoneNamesForCircle(0, 0, 100, 0.0), IsEmpty());
}

// What users rely on: wherever a device stands inside a fence, the zone file it
// downloads for its position lists that fence.
TEST(ZoneBuilder, EveryPointInsideAFenceLiesInACellWhoseFileListsIt) {
    std::mt19937_64 random(20240517);
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    for (double interval : {0.1, 0.2, 1.0}) {
        std::vector<Fence> fences;
        std::vector<Place> edgePoints;  // for each fence, the point of a cell edge it was placed by
        for (int i = 0; i < 300; ++i) {
            // Centres near a cell corner or with a cell edge just inside the rim, from
            // the equator to 85 degrees, some by the 180th meridian.
            double row = std::floor((unit(random) * 170.0 - 85.0) / interval) * interval;
            double column = i % 10 == 0 ? 180.0 : std::floor((unit(random) * 360.0 - 180.0) / interval) * interval;
            double radius = 10.0 + unit(random) * unit(random) * 3000.0;
            Place edge{row, column};
            Place centre{};
            double justInside = radius * (1.0 - 0.01 * unit(random));
            switch (i % 3) {
            case 0: centre = move(edge, unit(random) * 360.0, unit(random) * 1.5 * radius); break;
            case 1:  // a meridian edge
                edge.latitude += unit(random) * interval;
                centre = move(edge, unit(random) < 0.5 ? 90.0 : 270.0, justInside);
                break;
            default:  // a parallel edge
                edge.longitude += unit(random) * interval;
                centre = move(edge, unit(random) < 0.5 ? 0.0 : 180.0, justInside);
                break;
            }
            fences.push_back({"f" + std::to_string(i), "", centre.latitude, centre.longitude, radius, {}});
            edgePoints.push_back(edge);
        }
        auto cells = assignToCells(fences, interval);
        for (std::size_t i = 0; i < fences.size(); ++i) {
            const Fence& fence = fences[i];
            double towardEdge = 0.0, ignored = 0.0;
            GeographicLib::Geodesic::WGS84().Inverse(fence.latitude, fence.longitude, edgePoints[i].latitude,
                                                     edgePoints[i].longitude, towardEdge, ignored);
            for (int n = 0; n < 40; ++n) {
                // Along the rim, where a missed cell would show: first across the edge,
                // then all round.
                double azimuth = n < 5 ? towardEdge + (n - 2) * 0.2 : unit(random) * 360.0;
                double distance = fence.radius * (n < 30 ? 1.0 - 1e-7 - 0.01 * unit(random) * (n >= 5) : unit(random));
                Place point = move({fence.latitude, fence.longitude}, azimuth, distance);
                ASSERT_LE(geodesicDistance(fence.latitude, fence.longitude, point.latitude, point.longitude),
                          fence.radius);
                auto name = getZoneName(point.latitude, point.longitude, interval);
                auto file = cells.find(name);
                bool listed = file != cells.end() &&
                              std::any_of(file->second.begin(), file->second.end(),
                                          [&](const Fence& listedFence) { return listedFence.id == fence.id; });
                ASSERT_TRUE(listed) << fence.id << " at " << fence.latitude << ", " << fence.longitude << " radius "
                                    << fence.radius << " interval " << interval << ": missing from " << name;
            }
        }
        // Nor is a fence listed in a cell it does not come close to.
        for (const auto& [name, list] : cells)
            for (const auto& fence : list)
                ASSERT_LE(distanceToCell(fence, name, interval), fence.radius * 1.01 + 1.0)
                    << fence.id << " in " << name;
    }
}

TEST(ZoneBuilder, ReadsGeoJsonPointsAndCsvRows) {
    auto geojson = readZoneFences(R"({"type":"FeatureCollection","features":[
        {"type":"Feature","geometry":{"type":"Point","coordinates":[0.73,51.37,12]},
         "properties":{"id":"shop","name":"Shop","radius":150,"content_ids":["c1","c2"]}},
        {"type":"Feature","id":7,"geometry":{"type":"Point","coordinates":[-46.63,-23.55]},
         "properties":{"name":"Square"}}]})",
                                  "places.geojson", {.defaultRadius = 250.0});
    ASSERT_TRUE(geojson.ok) << geojson.error;
    EXPECT_THAT(geojson.fences, ElementsAre(Fence{"shop", "Shop", 51.37, 0.73, 150, {"c1", "c2"}},
                                            Fence{"7", "Square", -23.55, -46.63, 250, {}}));
    EXPECT_THAT(geojson.warnings, IsEmpty());

    auto csv = readZoneFences("\xef\xbb\xbfid,name,lat,lon,radius\r\n"
                              "gn1,\"Sittingbourne, Kent\",51.34,0.73,2500\r\n"
                              "\r\n"
                              "gn2,\"The \"\"Old\"\" Mill\n(by the creek)\", -23.5 ,-46.6,300\r\n"
                              "gn3,Iwade,51.38,0.72,\n",
                              "places.csv", {.defaultRadius = 400.0});
    ASSERT_TRUE(csv.ok) << csv.error;
    EXPECT_THAT(csv.fences, ElementsAre(Fence{"gn1", "Sittingbourne, Kent", 51.34, 0.73, 2500, {}},
                                        Fence{"gn2", "The \"Old\" Mill\n(by the creek)", -23.5, -46.6, 300, {}},
                                        Fence{"gn3", "Iwade", 51.38, 0.72, 400, {}}));

    auto reordered = readZoneFences("name,radius,lon,lat,id,content_ids\nPark,90,2.35,48.85,p1,a; b\n", "p.csv", {});
    EXPECT_THAT(reordered.fences, ElementsAre(Fence{"p1", "Park", 48.85, 2.35, 90, {"a", "b"}}));
}

TEST(ZoneBuilder, BadFencesAreSkippedWithAWarningAndBadInputsRejected) {
    struct Skipped {
        const char* input;
        const char* where;
        const char* problem;
    } skipped[] = {
        {R"({"features":[{"geometry":{"type":"LineString","coordinates":[[0,0],[1,1]]},
                          "properties":{"id":"a","radius":5}}]})",
         "in: features[0]", "LineString, not a Point"},
        {R"({"features":[{"geometry":{"type":"Point","coordinates":[0,0]},"properties":{"radius":5}}]})",
         "in: features[0]", "no id"},
        {R"({"features":[{"geometry":{"type":"Point","coordinates":[0,0]},"properties":{"id":"a","radius":"big"}}]})",
         "in: features[0]", "radius \"big\" is not a number"},
        {R"({"features":[{"geometry":{"type":"Point","coordinates":[0,0]},"properties":{"id":"a","radius":0}}]})",
         "in: features[0]", "radius 0 is not a positive"},
        {R"({"features":[{"geometry":{"type":"Point","coordinates":[0,0]},"properties":{"id":"a"}}]})",
         "in: features[0]", "no radius"},
        {R"({"features":[{"geometry":{"type":"Point","coordinates":[10,95]},"properties":{"id":"a","radius":5}}]})",
         "in: features[0]", "latitude 95"},
        {"id,name,lat,lon,radius\na,A,51,0,abc\n", "in:2", "radius \"abc\" is not a number"},
        {"id,name,lat,lon,radius\na,A,51,0,-5\n", "in:2", "not a positive"},
        {"id,name,lat,lon,radius\na,A,51,200,5\n", "in:2", "longitude 200"},
        {"id,name,lat,lon,radius\na,A,nan,0,5\n", "in:2", "lat \"nan\" is not a number"},
        {"id,name,lat,lon,radius\n\n,A,51,0,5\n", "in:3", "no id"},
        {"id,name,lat,lon,radius\na,Bad, name,51,0,5\n", "in:2", "has 6 fields, the header has 5"},
        {"id,name,lat,lon,radius\na,Caf\xe9,51,0,5\n", "in:2", "name is not UTF-8"},
    };
    const std::string good = R"({"geometry":{"type":"Point","coordinates":[1,1]},"properties":{"id":"ok","radius":5}})";
    for (const auto& c : skipped) {
        // A good fence beside the bad one: the input stands, the bad fence goes.
        std::string input = c.input;
        if (input.front() == '{')
            input.insert(input.rfind(']'), "," + good);
        else
            input += "ok,Ok,1,1,5\n";
        auto read = readZoneFences(input, "in", {});
        ASSERT_TRUE(read.ok) << c.input << ": " << read.error;
        ASSERT_EQ(read.fences.size(), 1u) << c.input;
        EXPECT_EQ(read.fences[0].id, "ok");
        ASSERT_EQ(read.warnings.size(), 1u) << c.input;
        EXPECT_THAT(read.warnings[0], HasSubstr(c.where)) << c.input;
        EXPECT_THAT(read.warnings[0], HasSubstr(c.problem)) << c.input;

        ZoneBuildOptions strictOptions;
        strictOptions.strict = true;
        auto strict = readZoneFences(input, "in", strictOptions);
        EXPECT_FALSE(strict.ok) << c.input;
        EXPECT_THAT(strict.error, HasSubstr(c.problem)) << c.input;
        EXPECT_THAT(strict.fences, IsEmpty());

        auto alone = readZoneFences(c.input, "in", {});
        EXPECT_FALSE(alone.ok) << c.input;
        EXPECT_THAT(alone.error, HasSubstr("no usable fences")) << c.input;
    }

    struct Rejected {
        const char* input;
        const char* error;
    } rejected[] = {
        {"", "in: is empty"},
        {"hello world\nthis is not a list of places\n", "in: not GeoJSON, nor CSV"},
        {"id,name,latitude\na,A,51\n", "lacks lon)"},
        {"{\"features\": [", "in: is not valid JSON"},
        {R"({"type":"Feature","geometry":{"type":"Point","coordinates":[0,0]}})", "not a GeoJSON FeatureCollection"},
        {R"({"features":[{"geometry":{"type":"Point","coordinates":[0,0]},"properties":{"id":"a","radius":5}},
                         {"geometry":{"type":"Point","coordinates":[1,1]},"properties":{"id":"a","radius":5}}]})",
         "in: features[1]: duplicate id \"a\" (first at features[0])"},
        {"id,name,lat,lon,radius\na,A,51,0,5\nb,B,52,0,5\na,C,53,0,5\n", "in:4: duplicate id \"a\" (first at 2)"},
        {"id,name,lat,lon,radius\na,A,51,0,5\nb,\"Never closed,52,0,5\nc,C,53,0,5\n",
         "in:3: a quoted field is never closed"},
        {"\x89PNG\r\n\x1a\n\0\0\0\rIHDR", "not GeoJSON, nor CSV"},
    };
    for (const auto& c : rejected) {
        auto read = readZoneFences(c.input, "in", {.defaultRadius = 100.0});
        EXPECT_FALSE(read.ok) << c.input;
        EXPECT_THAT(read.error, HasSubstr(c.error)) << c.input;
        EXPECT_THAT(read.fences, IsEmpty());
    }
}

TEST(ZoneBuilder, WritesZoneFilesTheTrackerCanReadAndReplacesAnEarlierBuild) {
    const testing::TempDir folder("zonebuilder");
    // Two fences straddle the meridian 0.8 (so both sit in both cells); one lies alone.
    std::string input = folder.write("places.geojson", R"({"type":"FeatureCollection","features":[
        {"type":"Feature","geometry":{"type":"Point","coordinates":[0.7995,51.3]},
         "properties":{"id":"b","name":"O'Brien's","radius":150,"content_ids":["c1"]}},
        {"type":"Feature","geometry":{"type":"Point","coordinates":[0.8005,51.31]},
         "properties":{"id":"a","name":"Mill","radius":100}},
        {"type":"Feature","geometry":{"type":"Point","coordinates":[-46.65,-23.55]},
         "properties":{"id":"c","name":"Praça","radius":200}}]})");
    auto out = folder.path() / "zones" / "v1";

    auto built = buildZones(input, out.string(), {});
    ASSERT_TRUE(built.ok) << built.error;
    EXPECT_EQ(built.fences, 3u);
    EXPECT_EQ(built.cells, 3u);
    EXPECT_EQ(built.fenceEntries, 5u);
    EXPECT_THAT(testing::filesIn(out), ElementsAre("zone_-23500_-46700.json", "zone_51300_700.json", "zone_51300_900.json"));

    for (const auto& name : {"zone_51300_700.json", "zone_51300_900.json"}) {
        auto document = nlohmann::json::parse(testing::readFile(out / name));
        ASSERT_TRUE(document["fences"].is_array());
        std::vector<Fence> fences;
        for (const auto& element : document["fences"]) fences.push_back(Fence::fenceFromJson(element).value());
        ASSERT_EQ(fences.size(), 2u) << name;
        EXPECT_EQ(fences[0].id, "b");  // input order
        EXPECT_EQ(fences[0].name, "O'Brien's");
        EXPECT_DOUBLE_EQ(fences[0].latitude, 51.3);
        EXPECT_DOUBLE_EQ(fences[0].longitude, 0.7995);
        EXPECT_DOUBLE_EQ(fences[0].radius, 150);
        EXPECT_THAT(fences[0].content_ids, ElementsAre("c1"));
        EXPECT_EQ(fences[1].id, "a");
        EXPECT_THAT(fences[1].content_ids, IsEmpty());
        EXPECT_EQ(document["fences"][1]["content_ids"], nlohmann::json::array());
    }
    auto square = nlohmann::json::parse(testing::readFile(out / "zone_-23500_-46700.json"));
    EXPECT_EQ(square["fences"][0]["location"]["coordinates"], nlohmann::json::parse("[-46.65,-23.55]"));
    EXPECT_EQ(square["fences"][0]["name"], "Praça");

    // A rebuild: "c" has gone, "a" moved; files that did not change stay as they were.
    std::ofstream(out / "notes.txt") << "not a zone file";
    std::ofstream(out / ".zone_1_1.json.tmp-12345") << "{\"fen";  // from a build that was killed
    std::string second = folder.write("places.csv", "id,name,lat,lon,radius\n"
                                                    "b,O'Brien's,51.3,0.7995,150\n"
                                                    "a,Mill,51.31,0.85,100\n");
    auto rebuilt = buildZones(second, out.string(), {});
    ASSERT_TRUE(rebuilt.ok) << rebuilt.error;
    EXPECT_EQ(rebuilt.cells, 2u);
    EXPECT_EQ(rebuilt.staleRemoved, 1u);
    EXPECT_THAT(testing::filesIn(out), ElementsAre("notes.txt", "zone_51300_700.json", "zone_51300_900.json"));
    auto again = buildZones(second, out.string(), {});
    EXPECT_EQ(again.unchanged, 2u);
    EXPECT_EQ(again.staleRemoved, 0u);

    // Failures say what and where, and never leave temporary files behind.
    auto missing = buildZones((folder.path() / "nope.csv").string(), out.string(), {});
    EXPECT_FALSE(missing.ok);
    EXPECT_THAT(missing.error, HasSubstr("nope.csv"));
    auto onAFile = buildZones(second, (out / "notes.txt").string(), {});
    EXPECT_FALSE(onAFile.ok);
    EXPECT_THAT(onAFile.error, HasSubstr("notes.txt"));
    ZoneBuildOptions fine;
    fine.interval = 0.0001;
    auto badInterval = buildZones(second, out.string(), fine);
    EXPECT_FALSE(badInterval.ok);
    EXPECT_THAT(badInterval.error, HasSubstr("interval"));
    auto badInput = buildZones(folder.write("bad.csv", "id,name\n"), out.string(), {});
    EXPECT_FALSE(badInput.ok);
    EXPECT_THAT(badInput.error, HasSubstr("bad.csv"));
    EXPECT_THAT(testing::filesIn(out), ElementsAre("notes.txt", "zone_51300_700.json", "zone_51300_900.json"));
}

} // namespace
} // namespace bvgeo
