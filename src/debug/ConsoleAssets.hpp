// The debug console's web files as built into the library: pages, scripts, styles,
// the map library and the offline outlines. Immutable; safe from any thread.
#pragma once

#include <string_view>
#include <vector>

namespace bvgeo {

struct ConsoleAsset {
    std::string_view path;        // URL path: "/map", "/assets/leaflet/leaflet.js"
    std::string_view contentType; // Content-Type to answer with
    std::string_view data;
};

const std::vector<ConsoleAsset>& consoleAssets();

} // namespace bvgeo
