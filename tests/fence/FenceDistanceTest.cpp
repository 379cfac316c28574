// The distance to a fence's rim, and the index's query for fences near a position.
#include "fence/FenceDistance.hpp"
#include "fence/FenceIndex.hpp"

#include "models/GeometryReader.hpp"
#include "platform/Geodesic.hpp"

#include <GeographicLib/Geodesic.hpp>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <string>

namespace bvgeo {
namespace {

std::shared_ptr<Fence> makeFence(std::string id, double latitude, double longitude, double radius) {
    return std::make_shared<Fence>(std::move(id), "", latitude, longitude, radius, std::vector<std::string>{}, true);
}

std::pair<double, double> walk(double latitude, double longitude, double azimuth, double metres) {
    double endLatitude = 0.0, endLongitude = 0.0;
    GeographicLib::Geodesic::WGS84().Direct(latitude, longitude, azimuth, metres, endLatitude, endLongitude);
    return {endLatitude, endLongitude};
}

TEST(FenceDistance, MeasuresTheGeodesicToTheRimAndAgreesInSignWithContainment) {
    std::mt19937_64 random(7);
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    for (int i = 0; i < 10000; ++i) {
        const double latitude = 170.0 * unit(random) - 85.0, longitude = 360.0 * unit(random) - 180.0;
        const double radius = std::exp(std::log(5.0) + unit(random) * std::log(2e5 / 5.0));
        const Fence fence("f", "", latitude, longitude, radius, {}, true);
        // Near the rim most of the time, where the sign matters; anywhere otherwise.
        const double factors[] = {1.0, 1.0 - 1e-9, 1.0 + 1e-9, 0.9 + 0.2 * unit(random), 3.0 * unit(random)};
        const auto [lat, lon] = walk(latitude, longitude, 360.0 * unit(random), radius * factors[i % 5]);
        const double rim = signedDistanceToRim(fence, lat, lon);
        const double exact = geodesicDistance(lat, lon, latitude, longitude) - radius;
        ASSERT_NEAR(rim, exact, 0.01) << "fence " << latitude << "," << longitude << " r " << radius;
        ASSERT_EQ(rim < 0.0, isLocationInsideFence(lat, lon, fence)) << rim;
    }
    const double inf = std::numeric_limits<double>::infinity();
    EXPECT_EQ(signedDistanceToRim(Fence("f", "", 51, 0, 0, {}, true), 51, 0), inf) << "a fence without area";
    EXPECT_EQ(signedDistanceToRim(Fence("f", "", 95, 0, 10, {}, true), 51, 0), inf) << "a centre off the earth";
    EXPECT_EQ(signedDistanceToRim(Fence("f", "", 51, 0, 10, {}, true), std::nan(""), 0), inf);
}

TEST(FenceDistance, APolygonFenceIsMeasuredToItsNearestEdgeHolesIncluded) {
    // A square of 0.02 degrees with a hole of 0.004 degrees in its middle; its circle
    // (which encloses it) is not what is measured.
    auto geometry = readFenceGeometry(R"({"type":"Polygon","coordinates":[
        [[0.69,51.34],[0.71,51.34],[0.71,51.36],[0.69,51.36],[0.69,51.34]],
        [[0.698,51.348],[0.702,51.348],[0.702,51.352],[0.698,51.352],[0.698,51.348]]]})");
    ASSERT_TRUE(geometry.geometry) << geometry.problem;
    Fence fence("p", "", 51.35, 0.70, 1500, {}, true);
    fence.geometry = geometry.geometry;
    const double metresPerDegreeLatitude = 111'257.0; // at 51.35 degrees
    EXPECT_NEAR(signedDistanceToRim(fence, 51.345, 0.70), -0.003 * metresPerDegreeLatitude, 2.0); // near the hole
    const double metresPerDegreeLongitude = 69'668.0;
    EXPECT_NEAR(signedDistanceToRim(fence, 51.35, 0.70), 0.002 * metresPerDegreeLongitude, 2.0); // in the hole
    EXPECT_NEAR(signedDistanceToRim(fence, 51.335, 0.70), 0.005 * metresPerDegreeLatitude, 2.0);  // south of it
    EXPECT_EQ(signedDistanceToRim(fence, 51.34, 0.70), 0.0) << "on an edge is outside";
    std::mt19937_64 random(5);
    std::uniform_real_distribution<double> lat(51.339, 51.361), lon(0.689, 0.711);
    for (int i = 0; i < 2000; ++i) {
        const double a = lat(random), b = lon(random);
        ASSERT_EQ(signedDistanceToRim(fence, a, b) < 0.0, isLocationInsideFence(a, b, fence)) << a << "," << b;
    }
    EXPECT_EQ(signedDistanceToRim(fence, std::nan(""), 0.7), std::numeric_limits<double>::infinity());
}

TEST(FenceDistance, FencesNearAPositionAreThoseAScanFindsWithinTheMargin) {
    std::mt19937_64 random(11);
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    FenceList fences;
    for (int i = 0; i < 1500; ++i) {
        // Most in one zone, some huge, some straddling the antimeridian.
        const bool antimeridian = i % 100 == 1;
        const double latitude = antimeridian ? 10.0 * unit(random) : 51.3 + 0.2 * unit(random);
        const double longitude = antimeridian ? 179.9 + 0.2 * unit(random) : 0.6 + 0.2 * unit(random);
        const double radius = i % 500 == 0 ? 2e5 : 20.0 + 2000.0 * unit(random) * unit(random);
        fences.push_back(makeFence(std::to_string(i), latitude, longitude, radius));
    }
    const FenceIndex index(fences);
    std::size_t found = 0;
    for (int q = 0; q < 200; ++q) {
        const Fence& around = *fences[static_cast<std::size_t>(unit(random) * 1499)];
        const double margin = (q % 3) * 40.0;
        const auto [lat, lon] = walk(around.latitude, around.longitude, 360.0 * unit(random),
                                     around.radius + margin * (2.0 * unit(random) - 0.5));
        std::vector<std::string> expected, got;
        for (const auto& fence : fences)
            if (signedDistanceToRim(*fence, lat, lon) < margin) expected.push_back(fence->id);
        for (const auto& fence : index.fencesNear(lat, lon, margin)) got.push_back(fence->id);
        ASSERT_EQ(got, expected) << "at " << lat << "," << lon << " margin " << margin;
        found += got.size();
    }
    EXPECT_GT(found, 200u);
    EXPECT_TRUE(index.fencesNear(91, 0, 10).empty());
    EXPECT_TRUE(index.fencesNear(51.4, 0.7, std::nan("")).empty());
}

} // namespace
} // namespace bvgeo
