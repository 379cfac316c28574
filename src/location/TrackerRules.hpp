// The decisions of the update pipeline as pure functions: they take every input,
// the current time included, as arguments.
#pragma once

#include "location/LocationTrackerFencePosition.hpp"

#include <bvgeo/platform/Device.hpp>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace bvgeo {

// A position is a repeat, and dropped, when it lies less than 1 m from the last
// accepted one and came less than `lingerTime` seconds after it.
bool isDuplicateUpdate(double distanceFromLast, std::int64_t now, std::int64_t lastPositionTime,
                       std::int64_t lingerTime);

// Outside without active fences; otherwise Inside until the newest activation is
// more than `maxLingerTime` seconds old, then InsideForTooLong.
LocationTrackerFencePosition fencePositionFor(const std::vector<std::int64_t>& activatedAt, std::int64_t now,
                                              std::int64_t maxLingerTime);

// "Battery status (<state>): <level x 100 with one decimal>".
std::string batteryStatusLine(BatteryState state, float level);

} // namespace bvgeo
