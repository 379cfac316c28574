// Reads comma-separated tracks: a header row naming the columns, then one fix per
// row. The time column ("time", "timestamp", "time_utc", "timestamp_utc",
// "datetime") holds ISO 8601 (fractions of a second allowed; UTC unless it names
// an offset) or seconds since 1970; latitude ("lat", "latitude") and longitude
// ("lon", "lng", "longitude") are decimal degrees. Optional quality columns are
// kept with the fix: "accuracy" (metres), "hdop", "speed" (m/s), "sats" and
// "mode" (gpsd's 1 no fix, 2, 3, or "2d"/"3d"; rows saying no fix are skipped).
// Names match in any case and order; other columns are ignored. Fields may be
// double-quoted ("" for a quote inside) but may not span lines. Runs on the
// caller's thread.
#pragma once

#include "track/TrackFixCollector.hpp"

#include <string_view>

namespace bvgeo {

void readCsv(std::string_view content, TrackFixCollector& fixes);

// Whether the header row names at least one of the time, latitude and longitude
// columns; what format detection uses to recognise a CSV track.
bool isCsvTrackHeader(std::string_view line);

} // namespace bvgeo
