// Reading the zone builder's input: a list of places, GeoJSON or CSV, into fences.
// Pure functions; any thread; nothing throws.
//
// What a bad fence costs: a problem with one fence (not a Point, no id, a radius that
// is missing, not a number or not positive, coordinates off the earth, a CSV line
// with the wrong number of fields, text of the wrong type or not in UTF-8) skips
// that fence with a warning, or rejects the input when `strict` is set. A problem
// with the input as a whole (unreadable, neither JSON nor CSV, JSON that is not a
// FeatureCollection, a CSV header without the needed columns, a quote never closed,
// two fences with the same id, no usable fence at all) rejects it. Messages name the
// file and the place: "places.geojson: features[3]: ..." (0-based, as in a JSON
// path) or "places.csv:17: ..." (the line the record starts on).
#pragma once

#include "models/Fence.hpp"
#include "zone/ZoneBuilderOptions.hpp"

#include <string>
#include <string_view>
#include <vector>

namespace bvgeo {

struct ZoneFenceList {
    bool ok = false;
    std::string error;
    std::vector<Fence> fences; // in input order
    // Parallel to fences: a polygon fence's rings (longitudes made continuous across
    // the antimeridian), or no polygons for a circle.
    std::vector<PolygonRings> shapes;
    std::vector<std::string> warnings;
};

// Fences from the text of a GeoJSON FeatureCollection of Point features (properties
// id, name, radius, content_ids; the Feature's own id when properties have none),
// Polygon and MultiPolygon features (checked as the library checks a geometry), a
// GBFS geofencing_zones.json (versions 2.1 to 3.x; names plain or localized), or
// of a CSV file with a header naming the columns id, name, lat, lon, radius (in any
// order; content_ids optional, ';'-separated).
// The format is chosen by content. `sourceName` only labels the messages.
ZoneFenceList readZoneFences(std::string_view text, const std::string& sourceName, const ZoneBuildOptions& options);

} // namespace bvgeo
