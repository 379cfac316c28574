#include "zone/ZoneBuilderCoverage.hpp"

#include "zone/ZoneBuilderChecks.hpp"
#include "zone/ZoneGrid.hpp"

#include "platform/Wgs84.hpp"

#include <algorithm>
#include <cmath>
#include <set>

namespace bvgeo {

namespace {

using wgs84::kDegree;
using wgs84::kMinMetresPerDegreeLatitude;
using wgs84::kMinMetresPerDegreeLongitudeAtEquator;
using wgs84::meridianRadius;

// Index k of the cell [k*interval, (k+1)*interval] holding `coordinate`, as the
// library's own cell function decides it (boundaries included).
long long cellIndex(double coordinate, double interval) {
    return std::llround(zoneCenterCoordinate(coordinate, interval) / interval - 0.5);
}

// Largest cosine of the angle between the centre and any point of the meridian
// segment at longitude offset `deltaLongitude`, latitudes [south, north] (radians).
double bestCosineOnMeridian(double sinLat, double cosLat, double deltaLongitude, double south, double north) {
    double a = sinLat;
    double b = cosLat * std::cos(deltaLongitude);
    // cos(angle) = a sin(phi) + b cos(phi): a sinusoid in phi, so the best point is
    // an end of the segment or its crest.
    auto at = [&](double phi) { return a * std::sin(phi) + b * std::cos(phi); };
    double best = std::max(at(south), at(north));
    double crest = std::atan2(a, b);
    if (crest >= south && crest <= north) best = std::max(best, at(crest));
    return best;
}

// Angle (radians, on a unit sphere) from the centre to the nearest point of the
// rectangle of latitudes [south, north] and longitudes [west, east] (degrees).
double angleToRectangle(double latitude, double longitude, double south, double north, double west, double east) {
    south = std::max(south, -90.0);
    north = std::min(north, 90.0);
    double offset = std::fmod(longitude - west, 360.0);
    if (offset < 0) offset += 360.0;
    if (offset <= east - west) {
        // The centre's own meridian crosses the rectangle: the nearest point lies on it.
        double nearest = std::clamp(latitude, south, north);
        return std::abs(latitude - nearest) * kDegree;
    }
    // Otherwise the nearest point is on a side meridian (the nearest points of the
    // top and bottom edges are their corners, which the sides include).
    double phi = latitude * kDegree;
    double sinLat = std::sin(phi), cosLat = std::cos(phi);
    double best = std::max(bestCosineOnMeridian(sinLat, cosLat, (west - longitude) * kDegree, south * kDegree,
                                                 north * kDegree),
                           bestCosineOnMeridian(sinLat, cosLat, (east - longitude) * kDegree, south * kDegree,
                                                north * kDegree));
    return std::acos(std::clamp(best, -1.0, 1.0));
}

} // namespace

std::vector<ZoneCell> cellsForCircle(double latitude, double longitude, double radius, double interval) {
    std::vector<ZoneCell> cells;
    if (!usableInterval(interval) || !checkPlace(latitude, longitude).empty() || !isFenceRadius(radius))
        return cells;

    // Every point within `radius` of the centre, and every point of the shortest path
    // to it, lies in this band of latitudes.
    double band = radius / kMinMetresPerDegreeLatitude;
    double south = std::max(latitude - band, -90.0);
    double north = std::min(latitude + band, 90.0);

    // Along such a path a metre never spans more longitude than on the band's most
    // poleward parallel, whose degree is at least 111,319 m times its cosine.
    double poleward = std::max(std::abs(south), std::abs(north));
    double parallelCosine = std::cos(poleward * kDegree);
    double spread = 360.0;
    if (poleward < 90.0 && parallelCosine > 1e-12) spread = radius / (kMinMetresPerDegreeLongitudeAtEquator * parallelCosine);
    std::vector<std::pair<double, double>> longitudeRanges;
    if (spread >= 180.0) {
        longitudeRanges.emplace_back(-180.0, 180.0);
    } else {
        double west = longitude - spread, east = longitude + spread;
        longitudeRanges.emplace_back(std::max(west, -180.0), std::min(east, 180.0));
        if (east > 180.0) longitudeRanges.emplace_back(-180.0, east - 360.0);
        if (west < -180.0) longitudeRanges.emplace_back(west + 360.0, 180.0);
    }

    // For points within reach the WGS84 metric is nowhere shorter than that of a
    // sphere whose radius is the smallest meridian radius in the band (the meridian
    // radius never exceeds the prime-vertical one, and grows poleward). Distances on
    // that sphere are therefore a lower bound of the geodesic ones.
    double smallestLatitude = (south <= 0.0 && north >= 0.0) ? 0.0 : std::min(std::abs(south), std::abs(north));
    double sphereRadius = meridianRadius(smallestLatitude);
    // Room for rounding in the cell boundaries and in the trigonometry.
    double reach = radius * (1.0 + 1e-9) + 1e-3;

    // One cell of margin on each side: the cell function's boundaries are only as
    // exact as its floating-point arithmetic; the distance test removes the extras.
    const long long firstRow = cellIndex(-90.0, interval), lastRow = cellIndex(90.0, interval);
    const long long firstColumn = cellIndex(-180.0, interval), lastColumn = cellIndex(180.0, interval);
    std::set<long long> columns;
    for (auto [west, east] : longitudeRanges) {
        for (long long k = std::max(cellIndex(west, interval) - 1, firstColumn);
             k <= std::min(cellIndex(east, interval) + 1, lastColumn); ++k)
            columns.insert(k);
    }
    for (long long row = std::max(cellIndex(south, interval) - 1, firstRow);
         row <= std::min(cellIndex(north, interval) + 1, lastRow); ++row) {
        double rowSouth = static_cast<double>(row) * interval, rowNorth = rowSouth + interval;
        for (long long column : columns) {
            double cellWest = static_cast<double>(column) * interval;
            double angle = angleToRectangle(latitude, longitude, rowSouth, rowNorth, cellWest, cellWest + interval);
            if (angle * sphereRadius <= reach) cells.emplace_back(row, column);
        }
    }
    return cells;
}

std::string cellName(ZoneCell cell, double interval) {
    // The cell's centre lies half a cell from any boundary, so the library's naming
    // puts it in this very cell.
    return getZoneName((static_cast<double>(cell.first) + 0.5) * interval,
                       (static_cast<double>(cell.second) + 0.5) * interval, interval);
}

std::vector<std::string> zoneNamesForCircle(double latitude, double longitude, double radius, double interval) {
    std::vector<std::string> names;
    for (auto cell : cellsForCircle(latitude, longitude, radius, interval)) names.push_back(cellName(cell, interval));
    std::sort(names.begin(), names.end());
    return names;
}

std::map<std::string, std::vector<Fence>> assignToCells(const std::vector<Fence>& fences, double interval) {
    std::map<ZoneCell, std::vector<const Fence*>> byCell;
    for (const auto& fence : fences)
        for (auto cell : cellsForCircle(fence.latitude, fence.longitude, fence.radius, interval))
            byCell[cell].push_back(&fence);
    std::map<std::string, std::vector<Fence>> named;
    for (const auto& [cell, members] : byCell) {
        auto& list = named[cellName(cell, interval)];
        list.reserve(members.size());
        for (const Fence* fence : members) list.push_back(*fence);
    }
    return named;
}

} // namespace bvgeo
