#include "platform/Geodesic.hpp"
#include <bvgeo/platform/LocationService.hpp>

#include <GeographicLib/Geodesic.hpp>

namespace bvgeo {

double geodesicDistance(double latitude1, double longitude1, double latitude2, double longitude2) {
    double metres = 0.0;
    GeographicLib::Geodesic::WGS84().Inverse(latitude1, longitude1, latitude2, longitude2, metres);
    return metres;
}

double Location::distanceFrom(const Location& other) const {
    return geodesicDistance(latitude, longitude, other.latitude, other.longitude);
}

} // namespace bvgeo
