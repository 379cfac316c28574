// Where the device stands relative to its fences, as the trackers re-tune for it.
#pragma once

#include <optional>
#include <string_view>

namespace bvgeo {

enum class LocationTrackerFencePosition : int { Unknown = 0, Inside = 1, InsideForTooLong = 2, Outside = 3 };

std::string_view rawValue(LocationTrackerFencePosition position);
std::optional<LocationTrackerFencePosition> locationTrackerFencePositionFromRaw(std::string_view text);

} // namespace bvgeo
