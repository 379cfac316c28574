// Cutting a polygon fence into the zone grid: the cells its geometry touches, the
// part of it in each cell (clipped to the cell and a small margin, so a zone file
// holds only what lies in its cell), and the circle that encloses each part. A
// geometry that crosses the antimeridian (an edge spanning more than 180 degrees of
// longitude) is taken the short way round and its parts moved back into
// [-180, 180]. Pure functions; any thread.
#pragma once

#include "models/FenceGeometry.hpp"
#include "zone/ZoneBuilderCoverage.hpp"

#include <map>
#include <string>

namespace bvgeo {

// Makes a ring that crosses the antimeridian continuous (longitudes past 180); true
// when it did.
bool unwrapAntimeridian(PolygonRings& rings);

// Longitude and latitude margin, in degrees, that a cell's part extends past the
// cell on each side.
double clipMargin(double interval);

// The part of `rings` in every cell it touches (rings as unwrapAntimeridian left them).
std::map<ZoneCell, PolygonRings> clipToCells(const PolygonRings& rings, double interval);

struct EnclosingCircle {
    double latitude = 0, longitude = 0, radius = 0; // radius in whole metres, rounded up
};
// A circle (geodesic radius) enclosing every point of the rings' edges.
EnclosingCircle enclosingCircle(const PolygonRings& rings);

// The rings as a GeoJSON geometry ("Polygon" for one polygon unless `multi`).
std::string geometryJson(const PolygonRings& rings, bool multi);

} // namespace bvgeo
