// `bvgeo zones build`: fences in, zone files out, laid out as the server serves them.
#include "Commands.hpp"

#include "Args.hpp"

#include "zone/ZoneBuilder.hpp"

#include <filesystem>
#include <iostream>

namespace bvgeo::cli {

const char* const kZonesHelp = R"(usage: bvgeo zones build INPUT --out DIR --app-id ID [--interval DEG] [--radius M] [--strict]
                         [--id-property NAME] [--name-property NAME] [--index-ids]

Turns fences into the zone files the server publishes: one zone_<lat>_<lng>.json
per grid cell, written to DIR/<ID>/zones/, each holding every fence whose circle
reaches that cell. A polygon fence goes into every cell its geometry touches, with
its part in that cell (clipped, plus a small margin) as "geometry" and a circle
enclosing that part as "location" and "radius".

  INPUT          GeoJSON FeatureCollection of Points (properties id, name, radius,
                 content_ids), Polygons and MultiPolygons, a GBFS
                 geofencing_zones.json (2.1 to 3.x), or CSV with the columns
                 id,name,lat,lon,radius
  --out DIR      server root to write into (bvgeo serve --root DIR)
  --app-id ID    application id the files are published for
  --interval DEG cell side in degrees; must match the trackers' zoneInterval (default 0.2)
  --radius M     radius for fences that give none
  --strict       reject the input at the first bad fence instead of skipping it
  --id-property NAME    the property that holds a feature's id
  --name-property NAME  the property that holds a feature's name (default name)
  --index-ids    every feature's id is its 0-based index in the file (a polygon
                 feature without an id gets that anyway)

example:
  bvgeo zones build examples/data/kent-places.csv --out zones --app-id demo
)";

int runZonesCommand(const std::vector<std::string>& words, std::ostream& out) {
    Args args(words, {{"out"}, {"app-id"}, {"interval"}, {"radius"}, {"strict", false}, {"help", false},
                          {"id-property"}, {"name-property"}, {"index-ids", false}});
    const auto& positionals = args.positionals();
    if (positionals.empty() || positionals[0] != "build") throw UsageError("expected: zones build INPUT ...");
    if (positionals.size() != 2) throw UsageError("zones build needs exactly one INPUT file");
    const auto outDir = args.value("out");
    if (!outDir) throw UsageError("zones build needs --out DIR");
    const auto appId = args.value("app-id");
    if (!appId || appId->empty() || appId->find('/') != std::string::npos || *appId == "." || *appId == "..")
        throw UsageError("zones build needs --app-id ID (a name without '/')");
    ZoneBuildOptions options;
    options.interval = args.number("interval").value_or(options.interval);
    if (options.interval < kMinZoneInterval || options.interval > kMaxZoneInterval)
        throw UsageError("--interval must be between " + std::to_string(kMinZoneInterval) + " and " +
                         std::to_string(kMaxZoneInterval));
    if (auto radius = args.number("radius")) {
        if (*radius <= 0) throw UsageError("--radius must be greater than 0");
        options.defaultRadius = radius;
    }
    options.strict = args.has("strict");
    options.idProperty = args.value("id-property").value_or("");
    options.nameProperty = args.value("name-property").value_or("");
    options.indexIds = args.has("index-ids");

    const auto zonesDir = (std::filesystem::path(*outDir) / *appId / "zones").string();
    const ZoneBuildResult result = buildZones(positionals[1], zonesDir, options);
    for (const auto& warning : result.warnings) std::cerr << "warning: " << warning << '\n';
    if (!result.ok) {
        std::cerr << "bvgeo zones: " << result.error << '\n';
        return 2;
    }
    out << result.fences << " fences in " << result.cells << " zone files (" << result.fenceEntries
        << " entries, " << result.unchanged << " unchanged, " << result.staleRemoved << " stale removed) in "
        << zonesDir << '\n';
    return 0;
}

} // namespace bvgeo::cli
