// The zone grid: square cells of `zoneInterval` degrees, named by their centre.
// Pure functions; any thread.
#pragma once

#include <string>

namespace bvgeo {

struct ZoneCenter {
    double latitude = 0.0;
    double longitude = 0.0;
};

// Snaps one coordinate to the centre of its cell: the boundary is taken toward zero
// and the centre lies half a cell further out (zero counts as positive).
double zoneCenterCoordinate(double coordinate, double zoneInterval);

ZoneCenter getZoneCenterCoordinates(double latitude, double longitude, double zoneInterval);

// The coordinate times 1000, rounded to a whole number: -23.55 -> "-23550".
std::string asCoordinateParam(double value);

// "zone_<lat>_<lng>.json" for the cell holding the position.
std::string getZoneName(double latitude, double lng, double zoneInterval);

} // namespace bvgeo
