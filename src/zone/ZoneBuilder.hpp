// ZoneBuilder: turns a list of places (GeoJSON points or CSV rows) into the zone
// files the library downloads, one file per cell of the zone grid, each fence listed
// in every cell its circle reaches so that a device in any of those cells sees it.
// Owns nothing between calls; every function is safe on any thread. buildZones
// writes into the output directory, which the caller must not have another build
// writing to at the same time; readers of that directory may run meanwhile and see
// each zone file either whole or not at all. Nothing here throws.
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

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace bvgeo {

// One fence as a zone file carries it: centre in degrees, radius in metres.
struct ZoneFence {
    std::string id;
    std::string name;
    double latitude = 0.0;
    double longitude = 0.0;
    double radius = 0.0;
    std::vector<std::string> content_ids;

    friend bool operator==(const ZoneFence&, const ZoneFence&) = default;
};

struct ZoneBuildOptions {
    // Side of a cell in degrees; must match the zoneInterval the trackers run with.
    double interval = 0.2;
    // Metres, for fences that give no radius. Without it such fences are skipped.
    std::optional<double> defaultRadius;
    // Reject the whole input at the first bad fence instead of skipping it.
    bool strict = false;
};

struct ZoneFenceList {
    bool ok = false;
    std::string error;
    std::vector<ZoneFence> fences;  // in input order
    std::vector<std::string> warnings;
};

struct ZoneBuildResult {
    bool ok = false;
    std::string error;
    std::size_t fences = 0;        // fences read and placed
    std::size_t cells = 0;         // zone files the input makes
    std::size_t unchanged = 0;     // of those, files already holding the same text, left untouched
    std::size_t fenceEntries = 0;  // fences summed over those files
    std::size_t staleRemoved = 0;  // zone files of an earlier build that no cell needs any more
    std::vector<std::string> warnings;
};

// Cell sides the grid can name without two cells sharing a file name (names carry
// the centre to a thousandth of a degree).
constexpr double kMinZoneInterval = 0.002;
constexpr double kMaxZoneInterval = 90.0;

// Fences from the text of a GeoJSON FeatureCollection of Point features (properties
// id, name, radius, content_ids; the Feature's own id when properties have none) or
// of a CSV file with a header naming the columns id, name, lat, lon, radius (in any
// order; content_ids optional, ';'-separated).
// The format is chosen by content. `sourceName` only labels the messages.
ZoneFenceList readZoneFences(std::string_view text, const std::string& sourceName, const ZoneBuildOptions& options);

// Names of the zone files ("zone_<lat>_<lng>.json") of every cell the circle
// reaches, sorted. Never misses a cell holding a point within `radius` metres
// (geodesic, WGS84) of the centre; may add a cell whose nearest point lies up to
// about 0.7% of the radius further out. Empty when the interval is outside
// [kMinZoneInterval, kMaxZoneInterval] or the fence is not a circle on the earth.
std::vector<std::string> zoneNamesForCircle(double latitude, double longitude, double radius, double interval);

// Every fence under the name of each cell it reaches, input order kept within a cell.
std::map<std::string, std::vector<ZoneFence>> assignToCells(const std::vector<ZoneFence>& fences, double interval);

// The zone file for a list of fences: {"fences":[{"_id","name","location":
// {"type":"Point","coordinates":[lng,lat]},"radius","content_ids"}, ...]}.
std::string zoneFileText(const std::vector<ZoneFence>& fences);

// Reads `inputPath`, places its fences and writes one zone file per non-empty cell
// into `outDir` (created when missing). Each file is written under a temporary name
// and renamed into place, unless it already holds exactly the same text. Zone files
// already in `outDir` that this build did not write are removed, so the directory
// describes exactly this input; other files are left alone. On failure part of the
// new files may already be in place.
ZoneBuildResult buildZones(const std::string& inputPath, const std::string& outDir, const ZoneBuildOptions& options);

} // namespace bvgeo
