#include "zone/ZoneGrid.hpp"

#include <gtest/gtest.h>

namespace bvgeo {
namespace {

TEST(ZoneGrid, PositionsSnapToCellCentresAndNameTheirFile) {
    struct Case {
        double latitude, longitude, interval;
        const char* name;
    } cases[] = {
        {-23.5505, -46.6333, 0.1, "zone_-23550_-46650.json"},
        {-23.5001, -46.6999, 0.1, "zone_-23550_-46650.json"},
        {0.0, 0.05, 0.1, "zone_50_50.json"},           // zero counts as positive
        {-0.05, 0.0, 0.1, "zone_-50_50.json"},
        {-23.5505, -46.6333, 0.2, "zone_-23500_-46700.json"},
        {51.5074, -0.1278, 0.2, "zone_51500_-100.json"},
        {10.2, -10.2, 1.0, "zone_10500_-10500.json"},
        {10.0, -10.0, 1.0, "zone_10500_-10500.json"},  // a boundary starts the cell away from zero
    };
    for (const auto& c : cases)
        EXPECT_EQ(getZoneName(c.latitude, c.longitude, c.interval), c.name) << c.latitude << ", " << c.longitude;
    EXPECT_DOUBLE_EQ(zoneCenterCoordinate(-23.5505, 0.1), -23.55);
    EXPECT_DOUBLE_EQ(zoneCenterCoordinate(46.6333, 0.1), 46.65);
    EXPECT_EQ(asCoordinateParam(-23.55), "-23550");
}

} // namespace
} // namespace bvgeo
