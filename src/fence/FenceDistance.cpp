#include "fence/FenceDistance.hpp"

#include "fence/FenceIndex.hpp"
#include "platform/Geodesic.hpp"
#include "platform/Wgs84.hpp"

#include <cmath>
#include <limits>

namespace bvgeo {
namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();

// Within this many metres of the centre the plane fitted at the mid-latitude stays
// within millimetres of the ellipsoid; farther, the geodesic is worth its cost.
constexpr double kLocalReach = 5000.0;
// Closer to the rim than this, the sign is left to the exact containment rule.
constexpr double kSignSlack = 0.05;
// Towards the poles the meridians converge too fast for it; the geodesic takes over.
constexpr double kPolarLimit = 80.0;

bool usable(double latitude, double longitude) {
    return latitude >= -90.0 && latitude <= 90.0 && std::isfinite(longitude);
}

} // namespace

double signedDistanceToRim(const Fence& fence, double latitude, double longitude) {
    if (fence.geometry) {
        if (!usable(latitude, longitude)) return kInfinity;
        const double fromEdge = fence.geometry->signedDistance(latitude, longitude);
        // Inside a hair from an edge still reads as inside.
        return fromEdge == 0.0 && fence.geometry->contains(latitude, longitude) ? -std::numeric_limits<double>::min()
                                                                                : fromEdge;
    }
    if (!usable(latitude, longitude) || !usable(fence.latitude, fence.longitude) || !(fence.radius > 0.0) ||
        !std::isfinite(fence.radius))
        return kInfinity;
    double distance = -1.0;
    if (std::abs(latitude) < kPolarLimit && std::abs(fence.latitude) < kPolarLimit) {
        // The ellipsoid's radii of curvature at the middle latitude (as in Wgs84.hpp,
        // from one cosine for both).
        const double cosine = std::cos((latitude + fence.latitude) / 2.0 * wgs84::kDegree);
        const double w = 1.0 - wgs84::kEccentricitySquared * (1.0 - cosine * cosine);
        const double rootW = std::sqrt(w);
        const double meridian = wgs84::kEquatorialRadius * (1.0 - wgs84::kEccentricitySquared) / (w * rootW);
        const double parallel = wgs84::kEquatorialRadius * cosine / rootW;
        double dLongitude = longitude - fence.longitude;
        if (dLongitude > 180.0 || dLongitude < -180.0) dLongitude = std::remainder(dLongitude, 360.0);
        const double north = (latitude - fence.latitude) * wgs84::kDegree * meridian;
        const double east = dLongitude * wgs84::kDegree * parallel;
        const double local = std::sqrt(north * north + east * east);
        if (local < kLocalReach) distance = local;
    }
    if (distance < 0.0) distance = geodesicDistance(latitude, longitude, fence.latitude, fence.longitude);
    const double fromRim = distance - fence.radius;
    if (std::abs(fromRim) >= kSignSlack) return fromRim;
    // On a hair either way: the exact rule decides, and the distance keeps its sign.
    const bool inside = isLocationInsideFence(latitude, longitude, fence);
    const double exact = geodesicDistance(latitude, longitude, fence.latitude, fence.longitude) - fence.radius;
    if (inside) return exact < 0.0 ? exact : -std::numeric_limits<double>::min();
    return exact >= 0.0 ? exact : 0.0;
}

} // namespace bvgeo
