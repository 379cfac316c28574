#include "zone/ZoneBuilderChecks.hpp"

#include "zone/ZoneBuilderOptions.hpp"

#include <nlohmann/json.hpp>

#include <charconv>
#include <cmath>

namespace bvgeo {

bool isFenceRadius(double radius) {
    // Half the earth's circumference: anything larger is not a circle on it.
    return std::isfinite(radius) && radius > 0.0 && radius <= 20'003'931.0;
}

std::string checkPlace(double latitude, double longitude) {
    if (!std::isfinite(latitude) || latitude < -90.0 || latitude > 90.0)
        return "latitude " + numberText(latitude) + " is not between -90 and 90";
    if (!std::isfinite(longitude) || longitude < -180.0 || longitude > 180.0)
        return "longitude " + numberText(longitude) + " is not between -180 and 180";
    return {};
}

bool usableInterval(double interval) {
    return std::isfinite(interval) && interval >= kMinZoneInterval && interval <= kMaxZoneInterval;
}

std::string numberText(double value) {
    char buffer[32];
    auto [end, error] = std::to_chars(buffer, buffer + sizeof buffer, value);
    return error == std::errc() ? std::string(buffer, end) : std::string("?");
}

std::string jsonText(const std::string& text) {
    using nlohmann::json;
    return json(text).dump(-1, ' ', false, json::error_handler_t::replace);
}

} // namespace bvgeo
