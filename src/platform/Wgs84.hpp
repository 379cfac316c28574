// The WGS84 ellipsoid's radii of curvature and the bounds the fence index and the
// zone builder draw from them to size boxes around a circle. Pure functions; any thread.
#pragma once

#include <cmath>
#include <numbers>

namespace bvgeo::wgs84 {

inline constexpr double kDegree = std::numbers::pi / 180.0;
inline constexpr double kEquatorialRadius = 6378137.0;
inline constexpr double kFlattening = 1.0 / 298.257223563;
inline constexpr double kEccentricitySquared = kFlattening * (2.0 - kFlattening);

// Lower bounds on metres per degree: a meridian degree is shortest at the equator
// (110,574.27 m), and a degree of longitude is at least a·cosφ (111,319.49 m at the
// equator). Both are rounded down so boxes built from them stay conservative.
inline constexpr double kMinMetresPerDegreeLatitude = 110574.0;
inline constexpr double kMinMetresPerDegreeLongitudeAtEquator = 111319.0;

// M: the meridian's radius of curvature, the smallest of the ellipsoid at that
// latitude, growing with |latitude|.
inline double meridianRadius(double latitudeDegrees) {
    const double s = std::sin(latitudeDegrees * kDegree);
    const double w = 1.0 - kEccentricitySquared * s * s;
    return kEquatorialRadius * (1.0 - kEccentricitySquared) / (w * std::sqrt(w));
}

// N·cosφ: the radius of the parallel.
inline double parallelRadius(double latitudeDegrees) {
    const double s = std::sin(latitudeDegrees * kDegree);
    return kEquatorialRadius * std::cos(latitudeDegrees * kDegree) / std::sqrt(1.0 - kEccentricitySquared * s * s);
}

} // namespace bvgeo::wgs84
