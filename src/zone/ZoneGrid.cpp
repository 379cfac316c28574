#include "zone/ZoneGrid.hpp"

#include <cmath>
#include <cstdio>

namespace bvgeo {

double zoneCenterCoordinate(double coordinate, double zoneInterval) {
    double sign = coordinate < 0 ? -1.0 : 1.0;
    return (coordinate - std::fmod(coordinate, zoneInterval)) + sign * zoneInterval / 2;
}

ZoneCenter getZoneCenterCoordinates(double latitude, double longitude, double zoneInterval) {
    return {zoneCenterCoordinate(latitude, zoneInterval), zoneCenterCoordinate(longitude, zoneInterval)};
}

std::string asCoordinateParam(double value) {
    char buffer[64];
    std::snprintf(buffer, sizeof buffer, "%.f", value * 1000.0);
    return buffer;
}

std::string getZoneName(double latitude, double lng, double zoneInterval) {
    auto centre = getZoneCenterCoordinates(latitude, lng, zoneInterval);
    return "zone_" + asCoordinateParam(centre.latitude) + "_" + asCoordinateParam(centre.longitude) + ".json";
}

} // namespace bvgeo
