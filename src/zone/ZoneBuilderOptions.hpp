// ZoneBuildOptions: what a zone build is told beyond its input, and the cell sides
// it accepts. Plain values.
#pragma once

#include <optional>
#include <string>

namespace bvgeo {

struct ZoneBuildOptions {
    // Side of a cell in degrees; must match the zoneInterval the trackers run with.
    double interval = 0.2;
    // Metres, for fences that give no radius. Without it such fences are skipped.
    std::optional<double> defaultRadius;
    // Reject the whole input at the first bad fence instead of skipping it.
    bool strict = false;
    // Polygon features: the property that holds a feature's id (default: the
    // feature's "id", or properties.id) and its name (default "name"). A polygon
    // feature without an id, and every feature with indexIds, takes its 0-based
    // index in the file as id.
    std::string idProperty{};
    std::string nameProperty{};
    bool indexIds = false;
};

// Cell sides the grid can name without two cells sharing a file name (names carry
// the centre to a thousandth of a degree).
constexpr double kMinZoneInterval = 0.002;
constexpr double kMaxZoneInterval = 90.0;

} // namespace bvgeo
