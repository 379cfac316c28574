// The fence index, the distance to a fence's rim, and the index's query for fences
// near a position.
#include "fence/FenceDistance.hpp"
#include "fence/FenceIndex.hpp"

#include "models/GeometryReader.hpp"
#include "platform/Geodesic.hpp"

#include <GeographicLib/Geodesic.hpp>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <numbers>
#include <random>
#include <string>
#include <utility>

namespace bvgeo {
namespace {

std::shared_ptr<Fence> makeFence(std::string id, double latitude, double longitude, double radius) {
    return std::make_shared<Fence>(std::move(id), "", latitude, longitude, radius, std::vector<std::string>{}, true);
}

// Where a walk of `metres` along the azimuth from the point ends.
std::pair<double, double> walk(double latitude, double longitude, double azimuth, double metres) {
    double endLatitude = 0.0, endLongitude = 0.0;
    GeographicLib::Geodesic::WGS84().Direct(latitude, longitude, azimuth, metres, endLatitude, endLongitude);
    return {endLatitude, endLongitude};
}

std::vector<std::string> ids(const FenceList& fences) {
    std::vector<std::string> result;
    for (const auto& fence : fences) result.push_back(fence->id);
    return result;
}

TEST(FenceIndex, RimIsOutsideAndOneCentimetreCloserIsInside) {
    struct Case {
        double latitude, longitude, radius;
    };
    const Case cases[] = {{0.0, 0.0, 10.0},      {48.85, 2.35, 1500.0}, {-60.0, -70.0, 30000.0},
                          {10.0, 179.99, 500.0}, {89.5, 40.0, 2000.0},  {-33.9, 151.2, 0.5}};
    for (const Case& c : cases) {
        for (double azimuth : {0.0, 37.0, 90.0, 180.0, 251.0, 315.0}) {
            const auto [rimLatitude, rimLongitude] = walk(c.latitude, c.longitude, azimuth, c.radius);
            // The radius is the rule's own measure of the rim point, so it lies exactly one radius away.
            const auto fence = makeFence("f", c.latitude, c.longitude,
                                         geodesicDistance(rimLatitude, rimLongitude, c.latitude, c.longitude));
            const FenceIndex index({fence});
            SCOPED_TRACE(testing::Message()
                         << c.latitude << "," << c.longitude << " r=" << c.radius << " az=" << azimuth);
            EXPECT_FALSE(isLocationInsideFence(rimLatitude, rimLongitude, *fence));
            EXPECT_TRUE(index.insideFences(rimLatitude, rimLongitude).empty());

            const auto [nearLatitude, nearLongitude] = walk(c.latitude, c.longitude, azimuth, c.radius - 0.01);
            EXPECT_TRUE(isLocationInsideFence(nearLatitude, nearLongitude, *fence));
            EXPECT_EQ(index.insideFences(nearLatitude, nearLongitude), FenceList{fence});
        }
    }
}

TEST(FenceIndex, FencesWithoutAreaOrPlaceContainNothing) {
    const double nan = std::numeric_limits<double>::quiet_NaN(), inf = std::numeric_limits<double>::infinity();
    const FenceList degenerate = {
        makeFence("zero", 10.0, 10.0, 0.0),        makeFence("negative", 10.0, 10.0, -5.0),
        makeFence("nan", 10.0, 10.0, nan),         makeFence("infinite", 10.0, 10.0, inf),
        makeFence("no latitude", nan, 10.0, 50.0), makeFence("off the globe", 91.0, 10.0, 50.0),
        makeFence("no longitude", 10.0, inf, 50.0)};
    for (const auto& fence : degenerate) EXPECT_FALSE(isLocationInsideFence(10.0, 10.0, *fence)) << fence->id;
    FenceList list = degenerate;
    list.push_back(nullptr);
    EXPECT_TRUE(FenceIndex(list).insideFences(10.0, 10.0).empty());

    const FenceIndex planet({makeFence("planet", 0.0, 0.0, 3.0e7)});
    EXPECT_EQ(planet.insideFences(-70.0, 123.0).size(), 1u);
    EXPECT_TRUE(planet.insideFences(nan, 0.0).empty());
    EXPECT_TRUE(planet.insideFences(90.5, 0.0).empty());
    EXPECT_TRUE(planet.insideFences(0.0, inf).empty());
}

TEST(FenceIndex, OverlappingFencesComeBackInListOrderAndFarOnesNot) {
    const FenceIndex index({nullptr, makeFence("district", 48.8566, 2.3522, 2000.0),
                            makeFence("continent", 50.0, 10.0, 2.0e6), makeFence("sydney", -33.87, 151.21, 5000.0),
                            makeFence("square", 48.8570, 2.3525, 60.0),
                            makeFence("dateline", 48.8566, 179.9, 15000.0)});
    EXPECT_EQ(ids(index.insideFences(48.8567, 2.3523)), (std::vector<std::string>{"district", "continent", "square"}));
    EXPECT_EQ(ids(index.insideFences(48.8566, -179.95)), (std::vector<std::string>{"dateline"}));
    EXPECT_EQ(ids(index.insideFences(48.8566, 180.05 - 360.0 * 3)), (std::vector<std::string>{"dateline"}));
    EXPECT_TRUE(index.insideFences(-45.0, -120.0).empty());
    EXPECT_EQ(index.fences().size(), 6u);
}

// Run over two populations: radii spread from metres to tens of kilometres, and a
// split one (tiny and kilometre-sized fences) whose boxes overflow the grid's entry
// budget, so that many fences fall back to the everywhere list.
TEST(FenceIndex, AgreesWithAnExactScanOnRandomFencesAndRimPositions) {
    std::mt19937_64 random(20240611);
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    const auto logUniform = [&](double low, double high) { return low * std::pow(high / low, unit(random)); };
    const std::pair<double, double> clusters[] = {
        {48.8, 2.3}, {-33.9, 151.2}, {0.5, -78.5}, {64.1, -21.9}, {-52.0, 179.7}};

    for (const bool split : {false, true}) {
        SCOPED_TRACE(split ? "split radii" : "spread radii");
        FenceList fences;
        for (int i = 0; i < 2500; ++i) {
            double latitude, longitude, radius;
            if (i % 50 == 0) { // around a pole
                latitude = (i % 100 == 0 ? 1.0 : -1.0) * (88.5 + 1.4 * unit(random));
                longitude = 360.0 * unit(random) - 180.0;
                radius = logUniform(10.0, 3.0e5);
            } else if (i % 50 == 1) { // straddling the antimeridian, longitudes as given, not normalised
                latitude = 120.0 * unit(random) - 60.0;
                longitude = 179.5 + unit(random);
                radius = logUniform(100.0, 1.0e5);
            } else if (i % 200 == 2) { // huge
                latitude = 160.0 * unit(random) - 80.0;
                longitude = 360.0 * unit(random) - 180.0;
                radius = logUniform(3.0e5, 5.0e6);
            } else {
                const auto& [clusterLatitude, clusterLongitude] = clusters[i % 5];
                latitude = clusterLatitude + 0.6 * (unit(random) - 0.5);
                longitude = clusterLongitude +
                            0.6 * (unit(random) - 0.5) / std::cos(clusterLatitude * std::numbers::pi / 180.0);
                radius = !split ? logUniform(1.0, 3.0e4) : unit(random) < 0.5 ? 5.0 : 2000.0 + 2000.0 * unit(random);
            }
            fences.push_back(makeFence(std::to_string(i), latitude, longitude, radius));
            if (i % 97 == 0) fences.push_back(nullptr);
        }
        const FenceIndex index(fences);

        int positionsInside = 0, fencesFound = 0;
        for (int q = 0; q < 2000; ++q) {
            const Fence* around = nullptr;
            while (!around)
                around = fences[static_cast<std::size_t>(unit(random) * static_cast<double>(fences.size()))].get();
            const double factors[] = {1.0, 1.0 - 1e-9, 1.0 + 1e-9, 0.98 + 0.04 * unit(random), 1.5 * unit(random)};
            auto [latitude, longitude] =
                walk(around->latitude, around->longitude, 360.0 * unit(random), around->radius * factors[q % 5]);
            if (q % 7 == 0) longitude += 360.0;

            FenceList expected;
            for (const auto& fence : fences)
                // A degree of latitude is never shorter than 110 km, which spares most exact calls.
                if (fence && std::abs(latitude - fence->latitude) * 110000.0 < fence->radius &&
                    geodesicDistance(latitude, longitude, fence->latitude, fence->longitude) < fence->radius)
                    expected.push_back(fence);
            ASSERT_EQ(index.insideFences(latitude, longitude), expected) << "at " << latitude << ", " << longitude;
            ASSERT_EQ(isLocationInsideFence(latitude, longitude, *around),
                      geodesicDistance(latitude, longitude, around->latitude, around->longitude) < around->radius);
            positionsInside += expected.empty() ? 0 : 1;
            fencesFound += static_cast<int>(expected.size());
        }
        // Guards against a generator that drifted into trivial cases.
        EXPECT_GT(positionsInside, 700);
        EXPECT_GT(fencesFound, positionsInside);
    }
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
