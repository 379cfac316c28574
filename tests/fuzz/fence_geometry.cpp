// A fence's GeoJSON geometry, as a zone file carries it: any bytes end in a checked,
// indexed geometry or in a problem. A geometry that was kept answers every question
// the library asks of it, and its GeoJSON text reads back as an equal geometry.
#include "models/GeometryReader.hpp"

#include <cmath>
#include <cstdint>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    const auto read = bvgeo::readFenceGeometry(text);
    if (!read.geometry) {
        if (read.problem.empty()) __builtin_trap();
        return 0;
    }
    const auto& geometry = *read.geometry;
    const double west = geometry.west(), east = geometry.east(), south = geometry.south(), north = geometry.north();
    if (!(south <= north) || !std::isfinite(west) || !std::isfinite(east)) __builtin_trap();
    // Positions on a small grid over the box and just beyond it: the sign of the
    // distance to the nearest edge is the containment.
    for (int i = 0; i <= 4; ++i)
        for (int j = 0; j <= 4; ++j) {
            const double latitude = south + (north - south) * (i - 0.5) / 3.0;
            const double longitude = west + (east - west) * (j - 0.5) / 3.0;
            if (latitude < -90 || latitude > 90) continue;
            const bool inside = geometry.contains(latitude, longitude);
            const double distance = geometry.signedDistance(latitude, longitude);
            if (std::isnan(distance) || (inside && distance > 0) || (!inside && distance < 0)) __builtin_trap();
        }
    geometry.rectangleSide(west, south, (west + east) / 2, (south + north) / 2);
    geometry.withinCircle((south + north) / 2, (west + east) / 2, 1000.0);
    const auto again = bvgeo::readFenceGeometry(geometry.geoJson());
    if (!again.geometry || !(*again.geometry == geometry)) __builtin_trap();
    return 0;
}
