#include "location/TrackerRules.hpp"

#include <algorithm>
#include <cstdio>

namespace bvgeo {

bool isDuplicateUpdate(double distanceFromLast, std::int64_t now, std::int64_t lastPositionTime,
                       std::int64_t lingerTime) {
    return distanceFromLast < 1.0 && now - lastPositionTime < lingerTime;
}

LocationTrackerFencePosition fencePositionFor(const std::vector<std::int64_t>& activatedAt, std::int64_t now,
                                              std::int64_t maxLingerTime) {
    if (activatedAt.empty()) return LocationTrackerFencePosition::Outside;
    std::int64_t newest = std::max<std::int64_t>(0, *std::max_element(activatedAt.begin(), activatedAt.end()));
    return now - newest > maxLingerTime ? LocationTrackerFencePosition::InsideForTooLong
                                        : LocationTrackerFencePosition::Inside;
}

std::string batteryStatusLine(BatteryState state, float level) {
    const char* text = "Unknown";
    switch (state) {
    case BatteryState::Unplugged: text = "Unplugged"; break;
    case BatteryState::Charging: text = "Charging"; break;
    case BatteryState::Full: text = "Full"; break;
    case BatteryState::Unknown: break;
    }
    char buffer[96];
    std::snprintf(buffer, sizeof buffer, "Battery status (%s): %.01f", text, static_cast<double>(level) * 100.0);
    return buffer;
}

} // namespace bvgeo
