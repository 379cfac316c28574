// Polygon fence geometry: what contains what, what is refused and why, and the
// distance to the rim. Expectations come from hand-drawn shapes, or from a plain ray
// count written here on its own.
#include "models/GeometryReader.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <string>
#include <vector>

namespace bvgeo::testing {
namespace {

using ::testing::HasSubstr;

std::shared_ptr<const FenceGeometry> geometry(const std::string& json) {
    auto read = readFenceGeometry(json);
    EXPECT_TRUE(read.geometry) << json << ": " << read.problem;
    return read.geometry;
}

// A square with a square hole; the second polygon is a triangle east of it, wound
// the other way.
constexpr const char* kSquareWithHoleAndTriangle = R"({"type":"MultiPolygon","coordinates":[
  [[[0,0],[4,0],[4,4],[0,4],[0,0]], [[1,1],[1,3],[3,3],[3,1],[1,1]]],
  [[[5,0],[5,4],[7,0],[5,0]]]]})";

TEST(FenceGeometry, InsideAnOuterRingAndNoHoleAndNeverOnAnEdge) {
    const auto shape = geometry(kSquareWithHoleAndTriangle);
    struct Case {
        double latitude, longitude;
        bool inside;
        const char* what;
    } cases[] = {
        {0.5, 0.5, true, "in the square"},       {2, 2, false, "in the hole"},
        {1, 2, false, "on the hole's edge"},     {0, 2, false, "on the outer edge"},
        {4, 4, false, "on a vertex"},            {3, 3, false, "on a hole's vertex"},
        {1, 5.5, true, "in the triangle"},       {3.9, 5.5, false, "east of the triangle's slope"},
        {2, 4.5, false, "between the polygons"}, {-0.001, 2, false, "just south"},
        {2, 360.5, true, "a longitude 360 on"},  {NAN, 1, false, "no latitude"},
    };
    for (const auto& c : cases) EXPECT_EQ(shape->contains(c.latitude, c.longitude), c.inside) << c.what;
}

// Even-odd over the rings by a horizontal ray; positions on an edge do not occur in
// the random part of the comparison below.
bool rayCount(const std::vector<std::vector<std::pair<double, double>>>& rings, double x, double y) {
    bool inside = false;
    for (const auto& ring : rings)
        for (std::size_t i = 0; i + 1 < ring.size(); ++i) {
            auto [ax, ay] = ring[i];
            auto [bx, by] = ring[i + 1];
            if ((ay > y) != (by > y) && x < ax + (y - ay) * (bx - ax) / (by - ay)) inside = !inside;
        }
    return inside;
}

TEST(FenceGeometry, ManyEdgedPolygonsGiveThePlainRayAnswerAndAreRoundTripped) {
    // A 400-pointed star (the grid's territory) with a 200-sided hole, both windings.
    std::string json = R"({"type":"Polygon","coordinates":[[)";
    std::vector<std::vector<std::pair<double, double>>> rings(2);
    for (int i = 0; i <= 400; ++i) {
        const double angle = 2 * M_PI * (i % 400) / 400, r = i % 2 ? 1.0 : 0.7;
        rings[0].emplace_back(10 + r * std::cos(angle), 50 + r * std::sin(angle) * 0.6);
    }
    for (int i = 0; i <= 200; ++i) {
        const double angle = -2 * M_PI * (i % 200) / 200;
        rings[1].emplace_back(10 + 0.3 * std::cos(angle), 50 + 0.2 * std::sin(angle));
    }
    for (std::size_t r = 0; r < rings.size(); ++r) {
        if (r) json += "],[";
        for (std::size_t i = 0; i < rings[r].size(); ++i)
            json += (i ? "," : "") + std::string("[") + std::to_string(rings[r][i].first) + "," +
                    std::to_string(rings[r][i].second) + "]";
    }
    json += "]]}";
    const auto shape = geometry(json);
    ASSERT_TRUE(shape);
    const auto stored = shape->polygons()[0];

    std::mt19937 random(7);
    std::uniform_real_distribution<double> x(8.9, 11.1), y(49.3, 50.7);
    int inside = 0;
    for (int i = 0; i < 20000; ++i) {
        const double lon = x(random), lat = y(random);
        const bool expected = rayCount(stored, lon, lat);
        inside += expected;
        ASSERT_EQ(shape->contains(lat, lon), expected) << lat << ", " << lon;
    }
    EXPECT_GT(inside, 2000);
    for (const auto& ring : stored)
        for (const auto& [lon, lat] : ring) ASSERT_FALSE(shape->contains(lat, lon)) << "vertex " << lat << ", " << lon;

    auto again = readFenceGeometry(shape->geoJson());
    ASSERT_TRUE(again.geometry) << again.problem;
    EXPECT_TRUE(*again.geometry == *shape);
}

TEST(FenceGeometry, BadGeometriesAreRefusedWithTheReason) {
    const std::string tooMany = [] {
        std::string text = R"({"type":"Polygon","coordinates":[[)";
        for (std::size_t i = 0; i <= FenceGeometry::kMaxPositions; ++i) text += "[0,0],";
        return text + "[0,0]]]}";
    }();
    struct Case {
        std::string json, problem;
    } cases[] = {
        {R"({"type":"Polygon","coordinates":[[[0,0],[1,0],[0,0]]]})", "fewer than four"},
        {R"({"type":"Polygon","coordinates":[[[0,0],[1,0],[1,1],[0,1]]]})", "not closed"},
        {R"({"type":"Polygon","coordinates":[[[0,0],[2,2],[2,0],[0,2],[0,0]]]})", "edges that cross"},
        {R"({"type":"Polygon","coordinates":[[[0,0],[1,0],[1,1],[0,1],[0,0]],[[5,5],[6,5],[6,6],[5,5]]]})",
         "hole outside"},
        {R"({"type":"Polygon","coordinates":[[[0,0],[9,0],[9,9],[0,9],[0,0]],[[1,1],[8,1],[8,8],[1,1]],
            [[5,2],[7,2],[7,4],[5,2]]]})", "hole inside another"},
        {R"({"type":"Polygon","coordinates":[[[0,0],[200,0],[1,1],[0,0]]]})", "not on the earth"},
        {R"({"type":"Polygon","coordinates":[[[[0,0],[1,0],[1,1],[0,0]]]]})", "do not match its type"},
        {R"({"type":"MultiPolygon","coordinates":[[[[[0,0]]]]]})", "deeper than a MultiPolygon"},
        {R"({"type":"Point","coordinates":[0,0]})", "not a Polygon or MultiPolygon"},
        {R"({"type":"Polygon","coordinates":"none"})", "has no coordinates"},
        {R"({"type":"Polygon","coordinates":[[[0,"a"],[1,0],[1,1],[0,0]]]})", "other than numbers"},
        {R"({"coordinates":[[[0,0],[1,0],[1,1],[0,0]]]})", "has no type"},
        {R"([1,2])", "not a JSON object"},
        {R"({"type":"Polygon")", "not valid JSON"},
        {tooMany, "more than 1000000 positions"},
    };
    for (const auto& c : cases) {
        auto read = readFenceGeometry(c.json);
        EXPECT_FALSE(read.geometry) << c.json.substr(0, 80);
        EXPECT_THAT(read.problem, HasSubstr(c.problem)) << c.json.substr(0, 80);
    }
    // Repeated positions are what real data has, and no fault.
    EXPECT_TRUE(readFenceGeometry(R"({"type":"Polygon","coordinates":[[[0,0],[1,0],[1,0],[1,1],[0,0]]]})").geometry);
}

TEST(FenceGeometry, SignedDistanceIsMetresToTheRimNegativeInside) {
    // 0.01 degrees square at 51.5 N: 1,113 m high, about 694 m wide.
    const auto square = geometry(R"({"type":"Polygon","coordinates":[[[0,51.5],[0.01,51.5],[0.01,51.51],[0,51.51],[0,51.5]]]})");
    const double metresPerDegreeLongitude = 69'437.0, metresPerDegreeLatitude = 111'258.0;
    EXPECT_NEAR(square->signedDistance(51.505, 0.002), -0.002 * metresPerDegreeLongitude, 1.0);
    EXPECT_NEAR(square->signedDistance(51.5099, 0.005), -0.0001 * metresPerDegreeLatitude, 0.1);
    EXPECT_NEAR(square->signedDistance(51.4991, 0.005), 0.0009 * metresPerDegreeLatitude, 0.1);
    EXPECT_NEAR(square->signedDistance(51.505, -0.001), 0.001 * metresPerDegreeLongitude, 0.2);
    EXPECT_EQ(square->signedDistance(51.5, 0.005), 0.0); // on the rim
    EXPECT_TRUE(square->withinCircle(51.505, 0.005, 800));
    EXPECT_FALSE(square->withinCircle(51.505, 0.005, 500));
}

} // namespace
} // namespace bvgeo::testing
