// ZoneCacheRecord: one zone file as the zone cache keeps it on disk: a first line
// of JSON naming the zone, its Last-Modified text, when it was stored, whether it
// came from the host's preload files, and the length and FNV-1a checksum of the
// body that follows; then the zone file's body exactly as the server sent it
// (nothing for a zone the server answered 403, a zone without fences). The
// checksum and length catch a file cut short or changed on disk. Pure functions;
// any thread.
#pragma once

#include "fence/FenceIndex.hpp"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace bvgeo {

struct ZoneCacheRecord {
    std::string zone; // "zone_<lat>_<lng>.json"
    std::string lastModified;
    std::int64_t storedAt = 0;
    bool preloaded = false;
    bool noFences = false; // the server answered 403: a zone without fences
    std::string body;
};

std::string encodeZoneCacheRecord(const ZoneCacheRecord& record);

// The first line alone (without its line end), body left empty: enough to index a
// file without reading it whole. `problem` says why when there is no record.
std::optional<ZoneCacheRecord> decodeZoneCacheHeader(std::string_view line, std::string& problem);

// A whole file: header, then a body of the length and checksum the header gives.
std::optional<ZoneCacheRecord> decodeZoneCacheRecord(std::string_view text, std::string& problem);

// The fences of a zone file body, read by the same reader a download uses; none
// (with `problem`) when the body is not a JSON object.
std::optional<FenceList> fencesOfZoneFileBody(const std::string& body, std::string& problem,
                                              bool polygonFences = false);

} // namespace bvgeo
