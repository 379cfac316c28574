// The text of the zone files the zone builder writes: {"fences":[{"_id","name",
// "location":{"type":"Point","coordinates":[lng,lat]},"radius","content_ids"}, ...]}
// and a line end. Pure functions; any thread. Text that is not UTF-8 throws
// nlohmann::json's type_error, as the places reader never lets through.
#pragma once

#include "models/Fence.hpp"

#include <cstddef>
#include <string>
#include <vector>

namespace bvgeo {

// The zone file listing `fences` in order.
std::string zoneFileText(const std::vector<Fence>& fences);

// One fence as its zone file entry, so that a fence listed in many files is encoded once.
std::string zoneFileEntry(const Fence& fence);
// The same with a "geometry" member last (GeoJSON text).
std::string zoneFileEntry(const Fence& fence, const std::string& geometryJson);

// The zone file listing entries[i] for each i of `members` in order: what
// zoneFileText gives for the fences the entries were made from.
std::string zoneFileText(const std::vector<std::string>& entries, const std::vector<std::size_t>& members);

} // namespace bvgeo
