// Exactness of polygon containment against GEOS: for each polygon file given, a
// million random positions over the file's box (a tenth within a metre of an edge
// or a vertex) and every vertex itself are asked of our fence index and of GEOS
// prepared geometries ("inside, not on the boundary"); every difference is printed.
// Then the same positions go end to end: the file is built into zone files (clipped
// per cell), each position's zone file is read as the library reads it, and its
// answer is compared with GEOS on the original features.
//
//   bvgeo_polygon_exactness [--positions N] [--interval DEG] FILE...
#include "PolygonData.hpp"

#include "fence/FenceIndex.hpp"
#include "zone/ZoneBuilder.hpp"
#include "zone/ZoneFileReader.hpp"
#include "zone/ZoneGrid.hpp"

#include <algorithm>
#include <cmath>
#include <iostream>
#include <map>
#include <random>
#include <set>

using namespace bvgeo;
using namespace bvgeo::bench;

namespace {

struct Position {
    double latitude, longitude;
};

struct FileCheck {
    std::size_t features = 0, refused = 0, positions = 0, differences = 0;
    std::size_t endToEndPositions = 0, endToEndDifferences = 0, zoneFiles = 0;
};

std::vector<Position> positionsFor(const std::vector<PolygonFeature>& features, std::size_t count) {
    double west = 180, east = -180, south = 90, north = -90;
    std::vector<std::pair<const PolygonFeature*, std::size_t>> vertices; // feature, position
    std::vector<Position> positions;
    for (const auto& feature : features) {
        if (!feature.ours) continue;
        west = std::min(west, feature.ours->west());
        east = std::max(east, feature.ours->east());
        south = std::min(south, feature.ours->south());
        north = std::max(north, feature.ours->north());
        for (const auto& polygon : feature.ours->polygons())
            for (const auto& ring : polygon)
                for (const auto& [x, y] : ring) positions.push_back({y, x}); // every vertex itself
    }
    std::mt19937_64 random(20);
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    const std::size_t vertexCount = positions.size();
    const std::size_t nearEdges = count / 10;
    for (std::size_t i = 0; i + nearEdges < count; ++i)
        positions.push_back({south + unit(random) * (north - south), west + unit(random) * (east - west)});
    // Near an edge or a vertex: a random point of a random edge, moved up to a metre.
    for (std::size_t i = 0; i < nearEdges; ++i) {
        std::size_t at = static_cast<std::size_t>(unit(random) * static_cast<double>(vertexCount - 1));
        const Position a = positions[at], b = positions[at + 1];
        const double t = i % 4 == 0 ? 0.0 : unit(random); // a quarter near vertices
        const double metres = unit(random), angle = unit(random) * 2 * M_PI;
        const double latitude = a.latitude + t * (b.latitude - a.latitude) + metres * std::cos(angle) / 111320.0;
        const double longitude = a.longitude + t * (b.longitude - a.longitude) +
                                 metres * std::sin(angle) / (111320.0 * std::cos(latitude * M_PI / 180));
        positions.push_back({std::clamp(latitude, -90.0, 90.0), std::clamp(longitude, -180.0, 180.0)});
    }
    return positions;
}

// GEOS's answer: the features (by index in `features`) whose geometry contains the position.
class GeosIndex {
public:
    GeosIndex(Geos& geos, const std::vector<PolygonFeature>& features) : geos_(geos) {
        tree_ = GEOSSTRtree_create_r(geos.context(), 10);
        for (std::size_t i = 0; i < features.size(); ++i) {
            if (!features[i].ours) continue;
            GEOSGeometry* geometry = geos.geometry(features[i].geometry);
            prepared_.push_back({features[i].index, geos.prepare(geometry)});
            envelopes_.push_back(GEOSEnvelope_r(geos.context(), geometry));
        }
        for (std::size_t i = 0; i < prepared_.size(); ++i) GEOSSTRtree_insert_r(geos.context(), tree_, envelopes_[i], &prepared_[i]);
    }
    ~GeosIndex() {
        GEOSSTRtree_destroy_r(geos_.context(), tree_);
        for (auto* envelope : envelopes_) GEOSGeom_destroy_r(geos_.context(), envelope);
    }
    std::set<std::size_t> inside(double latitude, double longitude) {
        GEOSGeometry* point = GEOSGeom_createPointFromXY_r(geos_.context(), longitude, latitude);
        Query query{this, point, {}};
        GEOSSTRtree_query_r(geos_.context(), tree_, point,
                            [](void* item, void* data) {
                                auto& q = *static_cast<Query*>(data);
                                auto& entry = *static_cast<Entry*>(item);
                                if (GEOSPreparedContains_r(q.self->geos_.context(), entry.prepared, q.point) == 1)
                                    q.found.insert(entry.feature);
                            },
                            &query);
        GEOSGeom_destroy_r(geos_.context(), point);
        return std::move(query.found);
    }

private:
    struct Entry {
        std::size_t feature;
        const GEOSPreparedGeometry* prepared;
    };
    struct Query {
        GeosIndex* self;
        GEOSGeometry* point;
        std::set<std::size_t> found;
    };
    Geos& geos_;
    GEOSSTRtree* tree_;
    std::vector<Entry> prepared_;
    std::vector<GEOSGeometry*> envelopes_;
};

FenceList fencesOf(const std::vector<PolygonFeature>& features) {
    FenceList fences;
    for (std::size_t i = 0; i < features.size(); ++i) {
        if (!features[i].ours) continue;
        auto fence = std::make_shared<Fence>();
        fence->id = std::to_string(features[i].index);
        fence->geometry = features[i].ours;
        fences.push_back(fence);
    }
    return fences;
}

std::set<std::size_t> ids(const FenceList& fences) {
    std::set<std::size_t> out;
    for (const auto& fence : fences) out.insert(std::stoul(fence->id.substr(0, fence->id.find('#'))));
    return out;
}

} // namespace

int main(int argc, char** argv) {
    std::size_t count = 1'000'000;
    double interval = 0.2;
    std::vector<std::string> files;
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if (arg == "--positions" && i + 1 < argc) count = std::stoul(argv[++i]);
        else if (arg == "--interval" && i + 1 < argc) interval = std::stod(argv[++i]);
        else files.push_back(arg);
    }
    if (files.empty()) {
        std::cerr << "usage: bvgeo_polygon_exactness [--positions N] [--interval DEG] FILE...\n";
        return 2;
    }
    std::size_t totalPositions = 0, totalDifferences = 0, totalEndToEnd = 0, totalEndToEndDifferences = 0;
    for (const auto& file : files) {
        Geos geos;
        const auto features = loadPolygonFeatures(file);
        FileCheck check;
        check.features = features.size();
        for (const auto& feature : features)
            if (!feature.ours) {
                ++check.refused;
                std::cout << file << ": feature " << feature.index << " refused: " << feature.problem << '\n';
            }
        GeosIndex reference(geos, features);
        std::set<std::size_t> accepted;
        for (const auto& feature : features)
            if (feature.ours) accepted.insert(feature.index);
        const FenceIndex index(fencesOf(features));
        const auto positions = positionsFor(features, count);
        std::vector<std::set<std::size_t>> expected(positions.size());
        for (std::size_t i = 0; i < positions.size(); ++i) {
            const auto& p = positions[i];
            expected[i] = reference.inside(p.latitude, p.longitude);
            if (ids(index.insideFences(p.latitude, p.longitude)) != expected[i]) {
                if (++check.differences <= 10)
                    std::cout << file << ": differs at " << p.latitude << ", " << p.longitude << '\n';
            }
        }
        check.positions = positions.size();

        // End to end: the same file built into zone files, read back per cell.
        std::map<std::string, std::string> zoneFiles;
        ZoneBuildOptions options;
        options.interval = interval;
        options.indexIds = true; // fence ids are then the features' indices in the file
        const ZoneBuildResult built = buildZoneTexts(file, options, zoneFiles);
        for (const auto& warning : built.warnings) std::cout << "warning: " << warning << '\n';
        if (!built.ok) {
            std::cout << file << ": zone build failed: " << built.error << '\n';
        } else {
            check.zoneFiles = zoneFiles.size();
            std::map<std::string, std::unique_ptr<FenceIndex>> cells;
            for (std::size_t i = 0; i < positions.size(); ++i) {
                const auto& p = positions[i];
                const std::string name = getZoneName(p.latitude, p.longitude, interval);
                auto& cell = cells[name];
                if (!cell) {
                    ZoneFileReader reader(true);
                    if (auto it = zoneFiles.find(name); it != zoneFiles.end()) nlohmann::json::sax_parse(it->second, &reader);
                    cell = std::make_unique<FenceIndex>(reader.takeFences());
                }
                // Fence ids are the features' indices (builder ids "<index>").
                // Only features our reader took as they are: GEOS reads the others literally.
                std::set<std::size_t> found;
                for (const auto& fence : cell->insideFences(p.latitude, p.longitude))
                    if (accepted.count(std::stoul(fence->id))) found.insert(std::stoul(fence->id));
                ++check.endToEndPositions;
                if (found != expected[i] && ++check.endToEndDifferences <= 10) {
                    std::cout << file << ": end to end differs at " << p.latitude << ", " << p.longitude << " in " << name
                              << ": expected";
                    for (auto f : expected[i]) std::cout << ' ' << f;
                    std::cout << ", found";
                    for (auto f : found) std::cout << ' ' << f;
                    std::cout << '\n';
                }
            }
        }
        std::cout << file << ": " << check.features << " polygon features (" << check.refused << " refused), "
                  << check.positions << " positions, " << check.differences << " differences; end to end through "
                  << check.zoneFiles << " zone files of " << interval << " degrees: " << check.endToEndPositions
                  << " positions, " << check.endToEndDifferences << " differences\n";
        totalPositions += check.positions;
        totalDifferences += check.differences;
        totalEndToEnd += check.endToEndPositions;
        totalEndToEndDifferences += check.endToEndDifferences;
    }
    std::cout << "total: " << totalPositions << " positions, " << totalDifferences << " differences; end to end "
              << totalEndToEnd << " positions, " << totalEndToEndDifferences << " differences\n";
    return totalDifferences == 0 && totalEndToEndDifferences == 0 ? 0 : 1;
}
