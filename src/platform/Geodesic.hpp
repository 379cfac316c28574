// Distances on the WGS84 ellipsoid, in metres. Pure functions, any thread.
#pragma once


namespace bvgeo {

// Length of the shortest path between two points on the WGS84 ellipsoid.
double geodesicDistance(double latitude1, double longitude1, double latitude2, double longitude2);

} // namespace bvgeo
