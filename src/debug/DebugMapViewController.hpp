// DebugMapViewController: the map page's server side. A redraw reads what the map
// shows from the library's own records: the fences of the current zone from the
// fence table, the device's position from the newest row of the location history,
// and the square of that position's zone cell, sized by the tracker's zoneInterval.
// It changes nothing. Runs on the console's HTTP workers; every read is one short
// database query, so any thread may call it.
#pragma once

#include <nlohmann/json_fwd.hpp>

#include <array>
#include <limits>
#include <string>

namespace bvgeo {

class Fence;

// One fence circle as the map draws it. An overlay that was never placed sits at
// the invalid coordinate (NaN, NaN), as no map can show it.
struct FenceOverlay {
    double latitude = std::numeric_limits<double>::quiet_NaN();
    double longitude = std::numeric_limits<double>::quiet_NaN();
    double radius = 0.0; // metres
};

class DebugMapViewController {
public:
    // (latitude, longitude) corners of the cell holding the position, starting at
    // the south-west corner and going east, north, then west.
    using ZoneCorners = std::array<std::array<double, 2>, 4>;
    static ZoneCorners zoneCorners(double latitude, double longitude, double zoneInterval);

    // The pin's callout: name, " - ", the radius in metres, "m" ("Shop - 100m").
    static std::string fenceTitle(const Fence& fence);

    // Everything one redraw shows, as the page's JSON: "position" (newest accepted
    // position or null), "zoneInterval", "zone" (centre and corners, or null without
    // a position), "fences" (current-zone fences in table order, each with its
    // title, and with polygon fences on, a polygon fence's "polygons") and
    // "tileUrlTemplate" (null for the offline outlines).
    static nlohmann::json drawOverlays(const std::string& tileUrlTemplate);

    // Just the newest position (what the page polls to know when to redraw).
    static nlohmann::json userLocation();
};

} // namespace bvgeo
