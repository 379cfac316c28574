#include "zone/ZoneCacheRules.hpp"

#include "platform/Geodesic.hpp"
#include "zone/ZoneGrid.hpp"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <ctime>

namespace bvgeo {

CopyAge cachedCopyAge(std::int64_t now, std::int64_t storedAt, std::int64_t cacheExpiration, bool preloaded) {
    if (preloaded) return CopyAge::Preloaded;
    if (storedAt > now) return CopyAge::FromTheFuture;
    return now - storedAt > cacheExpiration ? CopyAge::Expired : CopyAge::Fresh;
}

std::int64_t adoptedCacheTime(std::int64_t now, std::int64_t storedAt, bool preloaded) {
    return preloaded || storedAt > now ? 0 : storedAt;
}

bool answersWithStaleCopy(long status) { return status == 0 || (status >= 500 && status <= 599); }

bool replacesCopy(std::int64_t now, std::int64_t heldStoredAt, bool heldPreloaded, std::int64_t storedAt) {
    return heldPreloaded || heldStoredAt > now || storedAt >= heldStoredAt;
}

bool isPrefetchDue(std::int64_t now, std::optional<std::int64_t> lastAttempt, std::int64_t cacheExpiration) {
    if (!lastAttempt || *lastAttempt > now) return true;
    return now - *lastAttempt > std::max(cacheExpiration, kMinPrefetchInterval);
}

bool isBatteryLow(BatteryState state, float level) {
    return state == BatteryState::Unplugged && level >= 0.0f && level < 0.2f;
}

std::vector<NeighbourCell> neighboursWithin(double latitude, double longitude, double zoneInterval, double distance) {
    std::vector<NeighbourCell> cells;
    if (!(distance > 0) || !(zoneInterval > 0)) return cells;
    const auto centre = getZoneCenterCoordinates(latitude, longitude, zoneInterval);
    const double half = zoneInterval / 2;
    const double north = centre.latitude + half, south = centre.latitude - half;
    const double east = centre.longitude + half, west = centre.longitude - half;

    // Metres to each edge along the meridian or the parallel; a pole has no cell beyond it.
    struct Edge {
        int steps;
        double metres;
    };
    const Edge latitudeEdges[] = {
        {1, north < 90.0 ? geodesicDistance(latitude, longitude, north, longitude) : -1.0},
        {-1, south > -90.0 ? geodesicDistance(latitude, longitude, south, longitude) : -1.0}};
    const Edge longitudeEdges[] = {{1, geodesicDistance(latitude, longitude, latitude, east)},
                                   {-1, geodesicDistance(latitude, longitude, latitude, west)}};
    static constexpr std::string_view kEdge[3][3] = {
        {"south-west corner", "south edge", "south-east corner"},
        {"west edge", "", "east edge"},
        {"north-west corner", "north edge", "north-east corner"}};

    for (const auto& edge : latitudeEdges)
        if (edge.metres >= 0 && edge.metres <= distance)
            cells.push_back({edge.steps, 0, edge.metres, kEdge[edge.steps + 1][1]});
    for (const auto& edge : longitudeEdges)
        if (edge.metres <= distance) cells.push_back({0, edge.steps, edge.metres, kEdge[1][edge.steps + 1]});
    for (const auto& lat : latitudeEdges) {
        if (lat.metres < 0 || lat.metres > distance) continue;
        for (const auto& lng : longitudeEdges) {
            if (lng.metres > distance) continue;
            const double cornerLatitude = lat.steps > 0 ? north : south;
            const double cornerLongitude = lng.steps > 0 ? east : west;
            const double metres = geodesicDistance(latitude, longitude, cornerLatitude, cornerLongitude);
            if (metres <= distance)
                cells.push_back({lat.steps, lng.steps, metres, kEdge[lat.steps + 1][lng.steps + 1]});
        }
    }
    std::stable_sort(cells.begin(), cells.end(),
                     [](const NeighbourCell& a, const NeighbourCell& b) { return a.metres < b.metres; });
    return cells;
}

std::string neighbourZoneName(double latitude, double longitude, double zoneInterval, const NeighbourCell& cell) {
    const auto centre = getZoneCenterCoordinates(latitude, longitude, zoneInterval);
    // The neighbour's centre lies a whole cell away; snapping it again is safe from
    // rounding because it sits in the middle of its cell.
    double neighbourLongitude = centre.longitude + cell.longitudeSteps * zoneInterval;
    if (neighbourLongitude >= 180.0) neighbourLongitude -= 360.0;
    if (neighbourLongitude < -180.0) neighbourLongitude += 360.0;
    return getZoneName(centre.latitude + cell.latitudeSteps * zoneInterval, neighbourLongitude, zoneInterval);
}

namespace {

// "[-]digits" at the front of `text`, consumed; its value in thousandths of a degree.
std::optional<long long> takeInteger(std::string_view& text) {
    std::size_t at = 0;
    if (at < text.size() && text[at] == '-') ++at;
    const std::size_t digitsFrom = at;
    while (at < text.size() && std::isdigit(static_cast<unsigned char>(text[at]))) ++at;
    if (at == digitsFrom || at - digitsFrom > 9) return std::nullopt;
    long long value = 0;
    for (std::size_t i = digitsFrom; i < at; ++i) value = value * 10 + (text[i] - '0');
    if (text[0] == '-') value = -value;
    text.remove_prefix(at);
    return value;
}

std::optional<std::pair<long long, long long>> zoneFileCentre(std::string_view name) {
    if (!name.starts_with("zone_") || !name.ends_with(".json")) return std::nullopt;
    std::string_view rest = name.substr(5, name.size() - 10);
    auto latitude = takeInteger(rest);
    if (!latitude || rest.empty() || rest[0] != '_') return std::nullopt;
    rest.remove_prefix(1);
    auto longitude = takeInteger(rest);
    if (!longitude || !rest.empty()) return std::nullopt;
    return std::pair{*latitude, *longitude};
}

} // namespace

bool looksLikeZoneFileName(std::string_view name) { return zoneFileCentre(name).has_value(); }

bool isZoneFileNameOfGrid(std::string_view name, double zoneInterval) {
    const auto centre = zoneFileCentre(name);
    if (!centre || !(zoneInterval > 0)) return false;
    const double latitude = static_cast<double>(centre->first) / 1000.0;
    const double longitude = static_cast<double>(centre->second) / 1000.0;
    if (latitude < -90.0 || latitude > 90.0 || longitude < -180.0 || longitude > 180.0) return false;
    return getZoneName(latitude, longitude, zoneInterval) == name;
}

std::string httpDate(std::int64_t secondsSince1970) {
    static constexpr const char* kDays[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
    static constexpr const char* kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                              "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    const auto seconds = static_cast<std::time_t>(secondsSince1970);
    std::tm parts{};
    if (!gmtime_r(&seconds, &parts)) return "";
    char text[40];
    std::snprintf(text, sizeof text, "%s, %02d %s %04d %02d:%02d:%02d GMT", kDays[parts.tm_wday], parts.tm_mday,
                  kMonths[parts.tm_mon], parts.tm_year + 1900, parts.tm_hour, parts.tm_min, parts.tm_sec);
    return text;
}

} // namespace bvgeo
