#include "platform/Geodesic.hpp"

#include <bvgeo/platform/LocationService.hpp>

#include <gtest/gtest.h>

namespace bvgeo {
namespace {

TEST(GeodesicDistance, MatchesKnownWgs84LengthsAndIsSymmetric) {
    EXPECT_NEAR(geodesicDistance(0, 0, 1, 0), 110574.389, 1e-3) << "one degree of latitude at the equator";
    EXPECT_NEAR(geodesicDistance(0, 0, 0, 1), 111319.491, 1e-3) << "one degree of longitude at the equator";
    EXPECT_EQ(geodesicDistance(-23.5, -46.625, -23.5, -46.625), 0.0);

    const Location saoPaulo{-23.5505, -46.6333, 0}, london{51.5074, -0.1278, 0};
    const double there = saoPaulo.distanceFrom(london);
    EXPECT_NEAR(there, 9.49e6, 0.02e6);
    EXPECT_DOUBLE_EQ(there, london.distanceFrom(saoPaulo));
}

} // namespace
} // namespace bvgeo
