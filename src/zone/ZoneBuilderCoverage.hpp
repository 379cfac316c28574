// Which cells of the zone grid a fence's circle reaches: the geometry that decides
// in which zone files the zone builder lists a fence. Pure functions; any thread.
#pragma once

#include "models/Fence.hpp"

#include <map>
#include <string>
#include <utility>
#include <vector>

namespace bvgeo {

// A cell as (latitude index, longitude index): the cell [k*interval, (k+1)*interval]
// in each direction.
using ZoneCell = std::pair<long long, long long>;

// The cells the circle reaches, sorted. Never misses a cell holding a point within
// `radius` metres (geodesic, WGS84) of the centre; may add a cell whose nearest point
// lies up to about 0.7% of the radius further out. Empty when the interval is outside
// [kMinZoneInterval, kMaxZoneInterval] or the fence is not a circle on the earth.
std::vector<ZoneCell> cellsForCircle(double latitude, double longitude, double radius, double interval);

// The zone file name ("zone_<lat>_<lng>.json") of a cell.
std::string cellName(ZoneCell cell, double interval);

// Names of the zone files of every cell the circle reaches (as cellsForCircle), sorted.
std::vector<std::string> zoneNamesForCircle(double latitude, double longitude, double radius, double interval);

// Every fence under the name of each cell it reaches, input order kept within a cell.
std::map<std::string, std::vector<Fence>> assignToCells(const std::vector<Fence>& fences, double interval);

} // namespace bvgeo
