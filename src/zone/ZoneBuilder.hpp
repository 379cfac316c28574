// ZoneBuilder: turns a list of places (GeoJSON points or CSV rows) into the zone
// files the library downloads, one file per cell of the zone grid, each fence listed
// in every cell its circle reaches so that a device in any of those cells sees it.
// A polygon fence (GeoJSON Polygon or MultiPolygon, GBFS geofencing zones) goes into
// every cell its geometry touches, each file holding only its part in that cell
// (ZoneBuilderClip) with a circle that encloses that part.
// The pieces: reading places (ZoneBuilderPlaces), the cells a circle reaches
// (ZoneBuilderCoverage), the zone file text (ZoneBuilderOutput) and keeping the
// output directory in step (ZoneBuilderDirectory).
// Owns nothing between calls; every function is safe on any thread. buildZones
// writes into the output directory, which the caller must not have another build
// writing to at the same time; readers of that directory may run meanwhile and see
// each zone file either whole or not at all. Nothing here throws.
#pragma once

#include "zone/ZoneBuilderCoverage.hpp"
#include "zone/ZoneBuilderOptions.hpp"
#include "zone/ZoneBuilderOutput.hpp"
#include "zone/ZoneBuilderPlaces.hpp"

#include <cstddef>
#include <map>
#include <string>
#include <vector>

namespace bvgeo {

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

// Reads `inputPath`, places its fences and writes one zone file per non-empty cell
// into `outDir` (created when missing). Each file is written under a temporary name
// and renamed into place, unless it already holds exactly the same text. Zone files
// already in `outDir` that this build did not write are removed, so the directory
// describes exactly this input; other files are left alone. On failure part of the
// new files may already be in place.
ZoneBuildResult buildZones(const std::string& inputPath, const std::string& outDir, const ZoneBuildOptions& options);

// What buildZones would write, by file name, without writing it (unchanged and
// staleRemoved stay 0).
ZoneBuildResult buildZoneTexts(const std::string& inputPath, const ZoneBuildOptions& options,
                               std::map<std::string, std::string>& files);

} // namespace bvgeo
