// Fence: a named circle on the earth (centre in degrees, radius in metres) with its
// content identifiers, as read from a zone file or the fence table. Shared by the
// lists that hold it; its fields are set only while it is being built. Lists read
// here (and from zone files) keep their fences in blocks owned by the whole list
// (FenceListBuilder), so a fence stays valid while any fence of its list is held.
// The table operations run on the caller's thread.
//
// A polygon fence also carries its geometry (read only when the host enabled
// polygon fences); its circle then encloses the geometry, and containment follows
// the geometry. The geometry is immutable and shared by every copy of the record.
#pragma once

#include "models/FenceGeometry.hpp"

#include <nlohmann/json_fwd.hpp>

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace bvgeo {

class Fence {
public:
    Fence() = default;
    Fence(std::string id, std::string name, double latitude, double longitude, double radius,
          std::vector<std::string> content_ids, bool current_zone = true)
        : id(std::move(id)), name(std::move(name)), latitude(latitude), longitude(longitude), radius(radius),
          content_ids(std::move(content_ids)), current_zone(current_zone) {}

    std::string id;
    std::string name;
    double latitude = 0.0;
    double longitude = 0.0;
    double radius = 0.0;
    std::vector<std::string> content_ids;
    bool current_zone = true;
    // Null for a circle.
    std::shared_ptr<const FenceGeometry> geometry;

    // Geometries compare by content.
    friend bool operator==(const Fence& a, const Fence& b);

    // One element of a zone file's "fences" array. No fence when the location's
    // type is text other than "Point", or its coordinates are not two numbers.
    static std::optional<Fence> fenceFromJson(const nlohmann::json& object);

    static bool save(const Fence& fence);
    // Clears the table (with keepEarlierZones, as in debug mode: marks every row not
    // current), then saves each fence in order, all in one transaction: on any
    // failure nothing changes.
    static bool saveFenceList(const std::vector<std::shared_ptr<Fence>>& fences, bool keepEarlierZones);
    static bool clearFenceCache(bool keepFences = false);
    static std::vector<std::shared_ptr<Fence>> getFences(bool onlyCurrentZone = true);

    // Polygon fences. With `withGeometries`, saveFenceList also replaces the
    // "fence_geometry" table (created on first use) in the same transaction: one row
    // per fence with its circle and its geometry as GeoJSON (NULL for a circle); and
    // getFences gives each fence the geometry of its row when the row's circle is
    // the fence's. Without it neither touches that table.
    static bool saveFenceList(const std::vector<std::shared_ptr<Fence>>& fences, bool keepEarlierZones,
                              bool withGeometries);
    static std::vector<std::shared_ptr<Fence>> getFences(bool onlyCurrentZone, bool withGeometries);
    // Whether every current fence has a geometry row of the same circle, i.e. the
    // table was last written with geometries kept: only then can the stored list
    // stand for an unchanged zone file.
    static bool geometriesStoredForCurrentFences();

    // Content identifiers joined with ", " (empty leading elements vanish) and split again.
    static std::string serializeArray(const std::vector<std::string>& values);
    static std::vector<std::string> deserializeArray(const std::string& text);
};

} // namespace bvgeo
