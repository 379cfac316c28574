// The values a host tunes location delivery with: desired accuracy and distance
// filter, in metres. Plain constants, shared by the options and the location service.
#pragma once

#include <limits>

namespace bvgeo {

// Desired-accuracy values, metres.
inline constexpr double kLocationAccuracyBest = -1.0;
inline constexpr double kLocationAccuracyNearestTenMeters = 10.0;
inline constexpr double kLocationAccuracyHundredMeters = 100.0;
// Distance filter that lets every update through.
inline constexpr double kDistanceFilterNone = -1.0;
// The largest distance, meaning "no distance limit".
inline constexpr double kLocationDistanceMax = std::numeric_limits<double>::max();

} // namespace bvgeo
