// ZoneBuildOptions: what a zone build is told beyond its input, and the cell sides
// it accepts. Plain values.
#pragma once

#include <optional>

namespace bvgeo {

struct ZoneBuildOptions {
    // Side of a cell in degrees; must match the zoneInterval the trackers run with.
    double interval = 0.2;
    // Metres, for fences that give no radius. Without it such fences are skipped.
    std::optional<double> defaultRadius;
    // Reject the whole input at the first bad fence instead of skipping it.
    bool strict = false;
};

// Cell sides the grid can name without two cells sharing a file name (names carry
// the centre to a thousandth of a degree).
constexpr double kMinZoneInterval = 0.002;
constexpr double kMaxZoneInterval = 90.0;

} // namespace bvgeo
