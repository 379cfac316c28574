// Reads comma-separated tracks: a header row naming the columns, then one fix per
// row. The time column ("time" or "timestamp") holds ISO 8601 (UTC unless it
// names an offset) or seconds since 1970; latitude ("lat", "latitude") and
// longitude ("lon", "lng", "longitude") are decimal degrees. Names match in any
// case and order; other columns are ignored. Fields may be double-quoted ("" for
// a quote inside) but may not span lines. Runs on the caller's thread.
#pragma once

#include "track/TrackFixCollector.hpp"

#include <string_view>

namespace bvgeo {

void readCsv(std::string_view content, TrackFixCollector& fixes);

// Whether the header row names at least one of the time, latitude and longitude
// columns; what format detection uses to recognise a CSV track.
bool isCsvTrackHeader(std::string_view line);

} // namespace bvgeo
