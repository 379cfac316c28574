// The decisions of the zone cache and of neighbour prefetch, as pure functions of
// their inputs (the time included): how old a cached copy counts as, what a copy
// that becomes the current zone leaves as the stored cache time, which failures a
// stale copy may answer, which neighbouring cells a position could enter next, when
// a neighbour may be asked for again, and what names a zone file may have. Any thread.
#pragma once

#include <bvgeo/platform/Device.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace bvgeo {

enum class CopyAge {
    Fresh,         // stored no more than cacheExpiration seconds ago: answers without a request
    Expired,       // stored longer ago: the server is asked whether it changed
    FromTheFuture, // stored after now (the clock went back): asked again, as an expired one
    Preloaded,     // taken from the host's files, of unknown age: asked again, as an expired one
};

// The written expiry rule, applied to one cached copy.
CopyAge cachedCopyAge(std::int64_t now, std::int64_t storedAt, std::int64_t cacheExpiration, bool preloaded);

// The stored cache time ("bv1GeoLastCacheTime") when a cached copy becomes the
// current zone's list: the copy's own time of storing, so that the zone's expiry
// runs on from it; 0 for a copy whose age is unknown or lies ahead of the clock,
// so that the next position asks the server again.
std::int64_t adoptedCacheTime(std::int64_t now, std::int64_t storedAt, bool preloaded);

// Whether a failed download may be answered by a cached copy of any age: no HTTP
// answer at all (no connection, time-out; status 0) or a server error (5xx).
bool answersWithStaleCopy(long status);

// Whether a copy stored at `storedAt` may replace the one the cache holds: not when
// it was asked for before the held one (an answer that took longer than a later
// request), unless the held one is preloaded or stored after now.
bool replacesCopy(std::int64_t now, std::int64_t heldStoredAt, bool heldPreloaded, std::int64_t storedAt);

// A neighbour's prefetch is asked for at most once per cacheExpiration (and never
// more often than once a minute), whatever the answer was; an attempt dated after
// now (the clock went back) no longer counts.
inline constexpr std::int64_t kMinPrefetchInterval = 60;
bool isPrefetchDue(std::int64_t now, std::optional<std::int64_t> lastAttempt, std::int64_t cacheExpiration);

// The platform says the battery is low: discharging and under 20%.
bool isBatteryLow(BatteryState state, float level);

// One cell next to the position's own, `latitudeSteps` and `longitudeSteps` cells
// away (-1, 0 or 1), with the distance from the position to the shared edge or corner.
struct NeighbourCell {
    int latitudeSteps = 0;
    int longitudeSteps = 0;
    double metres = 0.0;
    std::string_view side; // "north edge", "south-east corner", ...
};

// The neighbouring cells of the grid whose shared edge (or corner point) lies within
// `distance` metres of the position, nearest first. Cells beyond a pole are left
// out; across the antimeridian the grid goes on on the other side.
std::vector<NeighbourCell> neighboursWithin(double latitude, double longitude, double zoneInterval, double distance);

// The zone file name of the neighbour `cell` of the position's cell.
std::string neighbourZoneName(double latitude, double longitude, double zoneInterval, const NeighbourCell& cell);

// Whether `name` is "zone_<lat>_<lng>.json" naming a cell of the grid of
// `zoneInterval` (the name that cell's centre gets).
bool isZoneFileNameOfGrid(std::string_view name, double zoneInterval);
// Whether `name` has the form of a zone file name at all.
bool looksLikeZoneFileName(std::string_view name);

// "Sun, 06 Nov 1994 08:49:37 GMT": a Last-Modified text for a file's time.
std::string httpDate(std::int64_t secondsSince1970);

} // namespace bvgeo
