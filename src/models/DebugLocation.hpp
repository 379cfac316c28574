// DebugLocation: one accepted position in the location history (the locations
// table), with the name of the tracker that accepted it.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace bvgeo {

class DebugLocation {
public:
    DebugLocation() = default;
    DebugLocation(double latitude, double longitude, std::int64_t timestamp, std::string type)
        : latitude(latitude), longitude(longitude), type(std::move(type)), timestamp(timestamp) {}

    double latitude = 0.0;
    double longitude = 0.0;
    std::string type;
    std::int64_t timestamp = 0;

    // Adds a row stamped with the current time. True when the insert ran.
    static bool saveDebugLocation(double latitude, double longitude, const std::string& type);
    // The whole history, in the order it was saved.
    static std::vector<std::shared_ptr<DebugLocation>> getDebugLocations();
    // The newest row and its row key; nothing when the history is empty.
    static std::optional<std::pair<std::int64_t, DebugLocation>> getLastDebugLocation();
};

} // namespace bvgeo
