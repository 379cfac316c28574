// ExtendedOptions: what a host may ask of the library beyond the tracker's
// configuration. Every default keeps the library's standard behaviour, so a host
// that never sets this record sees no difference. Set it with
// BVGeoTracker::setExtendedOptions before start(); a plain value, safe to copy
// between threads.
#pragma once

#include <bvgeo/Export.hpp>
#include <bvgeo/TriggerFilterOptions.hpp>

#include <cstddef>
#include <cstdint>

namespace bvgeo {

struct BVGEO_API ExtendedOptions {
    // Delivery. With durableDelivery on, a trigger report is written to
    // "BVGOutbox.sqlite" beside the database before it is queued, removed when the
    // server accepts it, and sent again (with its original idempotency key) after
    // a relaunch. The outbox keeps at most outboxMaxReports reports, none older
    // than outboxMaxAgeSeconds; what falls out is logged.
    bool durableDelivery = false;
    std::size_t outboxMaxReports = 10'000;
    std::int64_t outboxMaxAgeSeconds = 7 * 24 * 3600;

    // Storage growth; 0 means no limit. The oldest log and location rows beyond
    // maxLogRows / maxLocationRows are deleted as new ones are added, and a
    // "Fences from ...: " line names at most fenceListingLimit fences.
    std::size_t maxLogRows = 0;
    std::size_t maxLocationRows = 0;
    std::size_t fenceListingLimit = 0;

    // Fences without a network. zoneCache > 0 keeps the zone files of up to that
    // many zones in "BVGZoneCache/" beside the database, least recently used going
    // first, each with its Last-Modified and time of storing. A zone change to a
    // cached zone answers from the copy while it is fresh (as the current zone's
    // cacheExpiration rule has it) and downloads it again once it is not; when a
    // download fails (no connection, 5xx, time-out) a copy of any age
    // answers. prefetchDistance > 0 (metres, with zoneCache) fetches in the
    // background the neighbouring cells a position that close to its cell's edge
    // or corner could enter next. 0 keeps the standard behaviour.
    std::size_t zoneCache = 0;
    double prefetchDistance = 0.0;

    // Robust triggers: enter and exit decided with hysteresis, the fix's accuracy,
    // confirmation and outlier rejection (TriggerFilterOptions.hpp). Off by default.
    TriggerFilterOptions triggerFilter;

    // Polygon fences. With polygonFences on, a zone file's fence may carry a
    // "geometry" (GeoJSON Polygon or MultiPolygon, enclosed by its circle) and then
    // contains a position exactly when the position lies inside one of its polygons
    // (not in a hole, not on an edge). Geometries are kept in a table of their own,
    // "fence_geometry". A bad geometry leaves its fence a circle, with a log line.
    // Off, geometries are skipped unread and every fence is its circle.
    bool polygonFences = false;

    bool operator==(const ExtendedOptions&) const = default;
};

} // namespace bvgeo
