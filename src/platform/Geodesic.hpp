// Distances on the WGS84 ellipsoid, in metres. Pure functions, any thread.
#pragma once

#include <bvgeo/Export.hpp>

namespace bvgeo {

// Length of the shortest path between two points on the WGS84 ellipsoid.
BVGEO_API double geodesicDistance(double latitude1, double longitude1, double latitude2, double longitude2);

} // namespace bvgeo
