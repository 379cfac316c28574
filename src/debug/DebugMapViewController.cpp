#include "debug/DebugMapViewController.hpp"

#include "models/DebugLocation.hpp"
#include "models/Fence.hpp"
#include "platform/NumberText.hpp"
#include "settings/TrackerSettings.hpp"
#include "zone/ZoneGrid.hpp"

#include <nlohmann/json.hpp>

#include <cmath>

namespace bvgeo {

namespace {

using nlohmann::json;

// Corner arithmetic leaves binary noise (-23.55 - 0.05 = -23.599999999999998);
// a nanodegree is a tenth of a millimetre, far below anything a map shows.
double tidy(double degrees) { return std::round(degrees * 1e9) / 1e9; }

json positionJson() {
    auto last = DebugLocation::getLastDebugLocation();
    if (!last) return nullptr;
    const auto& [id, location] = *last;
    return {{"id", id},
            {"latitude", location.latitude},
            {"longitude", location.longitude},
            {"timestamp", location.timestamp},
            {"type", location.type}};
}

std::string radiusText(double radius) {
    // Whole metres read as such ("100"), anything else in its shortest exact form.
    if (std::isfinite(radius) && radius == std::trunc(radius) && std::fabs(radius) < 1e15)
        return std::to_string(static_cast<long long>(radius));
    return doubleText(radius);
}

json polygonsJson(const FenceGeometry& geometry) {
    json polygons = json::array();
    for (const auto& polygon : geometry.polygons()) {
        json rings = json::array();
        for (const auto& ring : polygon) {
            json positions = json::array();
            for (const auto& [longitude, latitude] : ring) positions.push_back({latitude, longitude});
            rings.push_back(std::move(positions));
        }
        polygons.push_back(std::move(rings));
    }
    return polygons;
}

} // namespace

DebugMapViewController::ZoneCorners DebugMapViewController::zoneCorners(double latitude, double longitude,
                                                                         double zoneInterval) {
    const auto centre = getZoneCenterCoordinates(latitude, longitude, zoneInterval);
    const double half = zoneInterval / 2;
    return {{{tidy(centre.latitude - half), tidy(centre.longitude - half)},
             {tidy(centre.latitude - half), tidy(centre.longitude + half)},
             {tidy(centre.latitude + half), tidy(centre.longitude + half)},
             {tidy(centre.latitude + half), tidy(centre.longitude - half)}}};
}

std::string DebugMapViewController::fenceTitle(const Fence& fence) {
    return fence.name + " - " + radiusText(fence.radius) + "m";
}

json DebugMapViewController::drawOverlays(const std::string& tileUrlTemplate) {
    // Fences first, then the zone, as the page draws them.
    json fences = json::array();
    const bool polygonFences = TrackerSettings::sharedInstance().extendedOptions().polygonFences;
    for (const auto& fence : Fence::getFences(true, polygonFences)) {
        FenceOverlay overlay{fence->latitude, fence->longitude, fence->radius};
        json drawn = {{"id", fence->id},
                      {"name", fence->name},
                      {"latitude", overlay.latitude},
                      {"longitude", overlay.longitude},
                      {"radius", overlay.radius},
                      {"title", fenceTitle(*fence)}};
        // A polygon fence is drawn as its polygons, holes included: per polygon its
        // rings, each a list of [latitude, longitude].
        if (fence->geometry) drawn["polygons"] = polygonsJson(*fence->geometry);
        fences.push_back(std::move(drawn));
    }
    const double interval = TrackerSettings::sharedInstance().config().zoneInterval;
    json position = positionJson();
    json zone = nullptr;
    if (!position.is_null() && interval > 0) {
        const double latitude = position["latitude"].get<double>();
        const double longitude = position["longitude"].get<double>();
        const auto centre = getZoneCenterCoordinates(latitude, longitude, interval);
        json corners = json::array();
        for (const auto& corner : zoneCorners(latitude, longitude, interval)) corners.push_back({corner[0], corner[1]});
        zone = {{"center", {tidy(centre.latitude), tidy(centre.longitude)}}, {"corners", corners}};
    }
    return {{"position", position},
            {"zoneInterval", interval},
            {"zone", zone},
            {"fences", fences},
            {"tileUrlTemplate", tileUrlTemplate.empty() ? json(nullptr) : json(tileUrlTemplate)}};
}

json DebugMapViewController::userLocation() { return {{"position", positionJson()}}; }

} // namespace bvgeo
